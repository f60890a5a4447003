// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/AlarmLife.h"

#include <algorithm>
#include <cmath>

namespace reflyze::watch {
namespace {

// Two traces of one fibre place a break some points apart, whatever their deviations say.
constexpr double kSamePlaceKm = 0.03;
constexpr double kSamePlaceDeviations = 4.0;

// Alarms that come from traces; the others have a life by the clock.
bool FromTraces(const Alarm& alarm) {
  return alarm.kind != AlarmKind::kNoTrace && alarm.kind != AlarmKind::kInstrument &&
         alarm.kind != AlarmKind::kTrend;
}

bool SamePlace(const Alarm& alarm, const Finding& finding) {
  if (alarm.km < 0.0 || finding.km < 0.0) return alarm.km < 0.0 && finding.km < 0.0;
  const double both = kSamePlaceDeviations * std::hypot(alarm.sdKm, finding.sdKm);
  return std::abs(alarm.km - finding.km) <= std::max(kSamePlaceKm, both);
}

bool SameThing(const Alarm& alarm, const Finding& finding) {
  if (alarm.kind != finding.kind) return false;
  // A fibre is broken once: the first place is what matters, and it may move towards the instrument.
  if (alarm.kind == AlarmKind::kBroken || alarm.kind == AlarmKind::kOtherFibre) return true;
  return alarm.event >= 0 && finding.event >= 0 ? alarm.event == finding.event : SamePlace(alarm, finding);
}

Alarm Begun(const Finding& finding, const AlarmStep& step) {
  Alarm alarm;
  alarm.fibre = step.fibre;
  alarm.kind = finding.kind;
  alarm.severity = finding.severity;
  alarm.event = finding.event;
  alarm.firstTrace = step.trace;
  alarm.raisedAt = step.at;
  return alarm;
}

// What is seen now counts; an alarm never becomes less bad while it lasts, since noise would let it flicker.
AlarmChange Seen(Alarm alarm, const Finding& finding, const AlarmStep& step) {
  AlarmChange change;
  const bool worse = finding.severity > alarm.severity;
  alarm.severity = std::max(alarm.severity, finding.severity);
  alarm.km = finding.km;
  alarm.sdKm = finding.sdKm;
  alarm.value = finding.value;
  alarm.limit = finding.limit;
  alarm.sentence = finding.sentence;
  alarm.lastTrace = step.trace;
  alarm.seen += 1;
  alarm.missed = 0;
  if (alarm.state == AlarmState::kRaised && alarm.seen >= step.confirm) {
    alarm.state = AlarmState::kConfirmed;
    alarm.confirmedAt = step.at;
    change.told = Telling::kConfirmed;
  } else if (alarm.state == AlarmState::kConfirmed && worse) {
    change.told = Telling::kWorse;
  }
  change.alarm = alarm;
  return change;
}

AlarmChange Missed(Alarm alarm, const AlarmStep& step) {
  AlarmChange change;
  alarm.missed += 1;
  alarm.seen = 0;
  if (alarm.state == AlarmState::kRaised) {
    alarm.state = AlarmState::kPassed;
    alarm.clearedAt = step.at;
  } else if (alarm.missed >= step.confirm) {
    alarm.state = AlarmState::kCleared;
    alarm.clearedAt = step.at;
    change.told = Telling::kCleared;
  }
  change.alarm = alarm;
  return change;
}

// Up to where a trace shows the fibre of its baseline, km.
double SeenUpTo(const std::vector<Finding>& findings, double shownKm) {
  double km = shownKm;
  for (const Finding& finding : findings) {
    if (finding.kind == AlarmKind::kOtherFibre) return -HUGE_VAL;
    if (finding.kind == AlarmKind::kBroken) km = std::min(km, finding.km);
  }
  return km;
}

bool CouldBeSeen(const Alarm& alarm, double upTo) {
  if (alarm.kind == AlarmKind::kOtherFibre) return upTo > -HUGE_VAL;
  // What concerns the whole link can't be judged of a part.
  if (alarm.km < 0.0) return upTo == HUGE_VAL;
  return alarm.km + kSamePlaceDeviations * alarm.sdKm < upTo;
}

// Each finding goes on with the alarm that it is of, or begins one; `visible` says which of the rest were
// missed.
template <typename Visible>
std::vector<AlarmChange> Next(const std::vector<Alarm>& open, const std::vector<Finding>& findings,
                              const AlarmStep& step, Visible visible) {
  std::vector<AlarmChange> changes;
  std::vector<bool> taken(findings.size(), false);
  for (const Alarm& alarm : open) {
    std::size_t match = 0;
    while (match < findings.size() && (taken[match] || !SameThing(alarm, findings[match]))) ++match;
    if (match < findings.size()) {
      taken[match] = true;
      changes.push_back(Seen(alarm, findings[match], step));
    } else if (visible(alarm)) {
      changes.push_back(Missed(alarm, step));
    }
  }
  for (std::size_t i = 0; i < findings.size(); ++i) {
    if (!taken[i]) changes.push_back(Seen(Begun(findings[i], step), findings[i], step));
  }
  return changes;
}

}  // namespace

std::vector<AlarmChange> NextAlarms(const std::vector<Alarm>& open, const std::vector<Finding>& findings,
                                    const AlarmStep& step) {
  const double upTo = SeenUpTo(findings, step.shownKm);
  return Next(open, findings, step,
              [&](const Alarm& alarm) { return FromTraces(alarm) && CouldBeSeen(alarm, upTo); });
}

std::vector<AlarmChange> NextTrendAlarms(const std::vector<Alarm>& open, const std::vector<Finding>& creeping,
                                         AlarmStep step) {
  step.confirm = 1;
  return Next(open, creeping, step, [](const Alarm& alarm) { return alarm.kind == AlarmKind::kTrend; });
}

}  // namespace reflyze::watch
