// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Silence.h"

#include <algorithm>
#include <set>

namespace reflyze::watch {
namespace {

constexpr Millis kMostGraceMillis = 60000;

bool IsSilent(const Expected& one) {
  const Millis every = one.everySeconds * kMillisPerSecond,
               most = 2 * every + std::min(every, kMostGraceMillis);
  return one.everySeconds > 0 && one.quiet > most;
}

// Whether a fibre of an alarm has spoken since. Traces are numbered as they come.
bool Spoke(const Expected& one, const Alarm& alarm) {
  return alarm.kind == AlarmKind::kInstrument ? one.lastGood > alarm.lastTrace
                                              : one.lastGood != alarm.lastTrace;
}

// An alarm goes on while nothing has come from any that it is of.
bool GoesOn(const Alarm& alarm, const std::vector<Expected>& expected) {
  const bool whole = alarm.kind == AlarmKind::kInstrument;
  bool any = false;
  for (const Expected& one : expected) {
    if (whole ? one.instrument != alarm.instrument : one.fibre != alarm.fibre) continue;
    any = true;
    if (Spoke(one, alarm)) return false;
  }
  return any;
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

bool InstrumentIn(const Silent& silent, const std::string& name) {
  return std::binary_search(silent.instruments.begin(), silent.instruments.end(), name);
}

AlarmChange NoTraceFrom(const Expected& one, Millis now) {
  Alarm alarm;
  alarm.fibre = one.fibre;
  alarm.kind = AlarmKind::kNoTrace;
  alarm.lastTrace = one.lastGood;
  alarm.severity = Severity::kMajor;
  // Traces may come all the time and still say nothing of now.
  alarm.sentence = std::string("no trace ") +
                   (one.bad ? "that can be compared and is newer than those before " : "") + "came for " +
                   std::to_string(one.quiet / kMillisPerSecond) + " s; one is expected every " +
                   std::to_string(one.everySeconds) + " s";
  return Raised(alarm, now);
}

AlarmChange DeadInstrument(const std::string& name, const std::vector<Expected>& expected, Millis now) {
  Alarm alarm;
  for (const Expected& one : expected) {
    if (one.instrument == name) alarm.lastTrace = std::max(alarm.lastTrace, one.lastGood);
  }
  alarm.instrument = name;
  alarm.kind = AlarmKind::kInstrument;
  alarm.severity = Severity::kMajor;
  alarm.sentence =
      "instrument " + name + " sends no trace that can be compared and is new, of any of its fibres";
  return Raised(alarm, now);
}

}  // namespace

Silent SilentOf(const std::vector<Expected>& expected) {
  std::map<std::string, std::pair<int, int>> counts;  // of an instrument: fibres, silent ones
  for (const Expected& one : expected) {
    if (one.everySeconds <= 0) continue;
    ++counts[one.instrument].first;
    counts[one.instrument].second += IsSilent(one) ? 1 : 0;
  }
  Silent silent;
  for (const auto& [name, count] : counts) {
    if (!name.empty() && count.first >= 2 && count.first == count.second) silent.instruments.push_back(name);
  }
  for (const Expected& one : expected) {
    if (!InstrumentIn(silent, one.instrument) && IsSilent(one)) silent.fibres.push_back(one);
  }
  return silent;
}

std::vector<AlarmChange> NextSilence(const std::vector<Alarm>& open, const std::vector<Expected>& expected,
                                     Millis now) {
  const Silent silent = SilentOf(expected);
  std::vector<AlarmChange> changes;
  std::set<Id> fibres;
  std::set<std::string> told;  // instruments whose alarm goes on, and stands for those of their fibres
  std::set<std::string> instruments(silent.instruments.begin(), silent.instruments.end());
  for (const Expected& one : silent.fibres) fibres.insert(one.fibre);
  for (const Alarm& alarm : open) {
    const bool whole = alarm.kind == AlarmKind::kInstrument;
    const bool known = whole ? instruments.erase(alarm.instrument) > 0 : fibres.erase(alarm.fibre) > 0;
    // That of an instrument stands for those of its fibres.
    const bool within = !whole && std::any_of(expected.begin(), expected.end(), [&](const Expected& one) {
      return one.fibre == alarm.fibre && InstrumentIn(silent, one.instrument);
    });
    const bool ends = !known && (within || !GoesOn(alarm, expected));
    if (ends) changes.push_back(Cleared(alarm, now));
    if (whole && !ends) told.insert(alarm.instrument);
  }
  for (const Expected& one : silent.fibres) {
    if (fibres.count(one.fibre) > 0 && told.count(one.instrument) == 0)
      changes.push_back(NoTraceFrom(one, now));
  }
  for (const std::string& name : instruments) changes.push_back(DeadInstrument(name, expected, now));
  return changes;
}

}  // namespace reflyze::watch
