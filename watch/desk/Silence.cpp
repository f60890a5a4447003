// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Silence.h"

#include <algorithm>
#include <set>

namespace reflyze::watch {
namespace {

constexpr Millis kMillisPerSecond = 1000;
constexpr Millis kMostGraceMillis = 60000;

bool IsSilent(const Expected& one, Millis now, Millis jumpedAt) {
  const Millis every = one.everySeconds * kMillisPerSecond,
               most = 2 * every + std::min(every, kMostGraceMillis);
  return one.everySeconds > 0 && now - std::max(one.since, jumpedAt) > most;
}

AlarmChange Raised(Alarm alarm, Millis now) {
  alarm.state = AlarmState::kConfirmed;
  alarm.seen = 1;
  alarm.raisedAt = now;
  alarm.confirmedAt = now;
  return {alarm, Telling::kConfirmed};
}

AlarmChange Cleared(Alarm alarm, Millis now) {
  alarm.state = AlarmState::kCleared;
  alarm.clearedAt = now;
  return {alarm, Telling::kCleared};
}

AlarmChange NoTraceFrom(const Expected& one, Millis now) {
  Alarm alarm;
  alarm.fibre = one.fibre;
  alarm.kind = AlarmKind::kNoTrace;
  alarm.severity = Severity::kMajor;
  alarm.sentence = "no trace came for " + std::to_string((now - one.since) / kMillisPerSecond) +
                   " s; one is expected every " + std::to_string(one.everySeconds) + " s";
  return Raised(alarm, now);
}

AlarmChange DeadInstrument(const std::string& name, Millis now) {
  Alarm alarm;
  alarm.instrument = name;
  alarm.kind = AlarmKind::kInstrument;
  alarm.severity = Severity::kMajor;
  alarm.sentence = "instrument " + name + " sends no trace of any of its fibres";
  return Raised(alarm, now);
}

}  // namespace

Silent SilentOf(const std::vector<Expected>& expected, Millis now, Millis jumpedAt) {
  std::map<std::string, std::pair<int, int>> counts;  // of an instrument: fibres, silent ones
  for (const Expected& one : expected) {
    if (one.everySeconds <= 0) continue;
    ++counts[one.instrument].first;
    counts[one.instrument].second += IsSilent(one, now, jumpedAt) ? 1 : 0;
  }
  Silent silent;
  for (const auto& [name, count] : counts) {
    if (!name.empty() && count.first >= 2 && count.first == count.second) silent.instruments.push_back(name);
  }
  for (const Expected& one : expected) {
    const bool told =
        std::binary_search(silent.instruments.begin(), silent.instruments.end(), one.instrument);
    if (!told && IsSilent(one, now, jumpedAt)) silent.fibres.push_back(one);
  }
  return silent;
}

std::vector<AlarmChange> NextSilence(const std::vector<Alarm>& open, const Silent& silent, Millis now) {
  std::vector<AlarmChange> changes;
  std::set<Id> fibres;
  std::set<std::string> instruments(silent.instruments.begin(), silent.instruments.end());
  for (const Expected& one : silent.fibres) fibres.insert(one.fibre);
  for (const Alarm& alarm : open) {
    if (alarm.kind == AlarmKind::kNoTrace && fibres.erase(alarm.fibre) == 0)
      changes.push_back(Cleared(alarm, now));
    if (alarm.kind == AlarmKind::kInstrument && instruments.erase(alarm.instrument) == 0)
      changes.push_back(Cleared(alarm, now));
  }
  for (const Expected& one : silent.fibres) {
    if (fibres.count(one.fibre) > 0) changes.push_back(NoTraceFrom(one, now));
  }
  for (const std::string& name : instruments) changes.push_back(DeadInstrument(name, now));
  return changes;
}

}  // namespace reflyze::watch
