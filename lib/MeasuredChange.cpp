// SPDX-License-Identifier: Apache-2.0
#include "lib/MeasuredChange.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "lib/BaselineMemory.h"
#include "lib/Decimal.h"
#include "ref/events/refEvent.h"
#include "sor/sorData.h"
#include "src/monitor/CompareScale.h"

// Losses that are measured one event at a time from the sections beside it jump where a section is believed
// on one trace and not on the other. A fit of the whole trace has no such jumps, and it knows how far each of
// its numbers can be trusted. Two traces have independent noise, so the variances of both add up in a change.

namespace reflyze {
namespace {

constexpr double kClearDeviations = 3.0;

using MaybeMeasured = std::optional<Measured>;

// What is known no better than this, in dB or dB/km, is not known.
constexpr double kMostDeviation = 3.0;

MaybeMeasured Known(const MaybeMeasured& measured) {
  return measured && measured->deviation < kMostDeviation ? measured : std::nullopt;
}

// Deviation of a sum of two that know nothing of each other.
double Together(double one, double other) { return std::sqrt(one * one + other * other); }

MaybeMeasured ChangeOf(const MaybeMeasured& before, const MaybeMeasured& now) {
  if (!before || !now) return std::nullopt;
  return Known(Measured{now->value - before->value, Together(now->deviation, before->deviation)});
}

// The same place in two tables: the comparison laid the events of one on the other trace.
int IndexAt(const TSorData& record, int owt) {
  constexpr int kSameOwt = 10;
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) {
    if (std::abs(record.KeyEvents->EventAt(i).EPT - owt) < kSameOwt) return i;
  }
  return -1;
}

const MeasuredEvent* Find(const MeasuredLink& link, int listed) {
  const auto found = std::find_if(link.events.begin(), link.events.end(),
                                  [&](const MeasuredEvent& event) { return event.listed == listed; });
  return found == link.events.end() ? nullptr : &*found;
}

// One event of the current trace on both.
struct EventOnBoth {
  const MeasuredEvent *before = nullptr, *now = nullptr;  // null where one of them lacks it
  double lengthKm = 0.0;                                  // of the section in front, 0 for none on both
  bool Whole() const { return before != nullptr && now != nullptr; }
  // Change of the loss of the section in front.
  MaybeMeasured SectionDb() const {
    if (!Whole() || !(lengthKm > 0.0)) return std::nullopt;
    const MaybeMeasured change = ChangeOf(before->attenuationDbPerKm, now->attenuationDbPerKm);
    if (!change) return std::nullopt;
    return Measured{change->value * lengthKm, change->deviation * lengthKm};
  }
};

// The events of both traces, measured under one table. What is new on the current trace is measured on the
// baseline too: a joint too weak to be listed there may always have been.
class BothTraces {
 public:
  BothTraces(const TSorData& baseline, const TSorData& current, const Comparison& table,
             MeasuredBaselines* memory) {
    std::unique_ptr<TSorData> before = OnTimeScaleOf(baseline, current);
    if (before == nullptr) {
      before = std::make_unique<TSorData>();
      before->Assign(baseline);
    }
    AddNew(current, table, *before);
    MeasureOptions options;
    options.keepsTable = true;
    before_ = memory != nullptr ? memory->Measure(*before, options) : MeasureLink(*before, options);
    if (!before_ || !before_->fibre) return;
    now_ = MeasureLink(current, options);
    if (!now_ || !now_->fibre) return;
    for (int i = 0; i < current.KeyEvents->ListedEvents(); ++i) Pair(*before, current, i);
  }

  const std::vector<EventOnBoth>& events() const { return events_; }  // none where one can't be measured

 private:
  static void AddNew(const TSorData& current, const Comparison& table, TSorData& before) {
    const int events = before.KeyEvents->ListedEvents();
    if (events == 0) return;
    const int last = before.KeyEvents->EventAt(events - 1).EPT;
    for (size_t i = 1; i + 1 < table.rows.size(); ++i) {
      const TSorBlockKeyEvents1E& event = current.KeyEvents->EventAt(static_cast<long>(i));
      if (!table.rows[i].isNew || event.EPT >= last || IndexAt(before, event.EPT) >= 0) continue;
      auto copy = std::make_unique<TSorBlockKeyEvents1E>(event);
      if (RefEventAdd(&before, copy.get(), 0) >= 0) copy.release();  // the table owns it
    }
  }

  void Pair(const TSorData& before, const TSorData& current, int index) {
    EventOnBoth pair;
    const int was = IndexAt(before, current.KeyEvents->EventAt(index).EPT);
    pair.now = Find(*now_, index);
    if (was >= 0) pair.before = Find(*before_, was);
    const bool sameFront =
        index > 0 && was > 0 && IndexAt(before, current.KeyEvents->EventAt(index - 1).EPT) == was - 1;
    const MeasuredEvent* front = sameFront ? Find(*now_, index - 1) : nullptr;
    if (front != nullptr && pair.now != nullptr) pair.lengthKm = pair.now->km.value - front->km.value;
    events_.push_back(pair);
  }

  std::optional<MeasuredLink> before_, now_;
  std::vector<EventOnBoth> events_;
};

void Tell(const MaybeMeasured& measured, Deviation& deviation) {
  if (!measured) return;
  deviation.measured = Millionths(measured->value);
  deviation.measuredSd = Millionths(measured->deviation);
}

// The quantity that is limited.
MaybeMeasured LimitedOf(const Deviation& deviation, const MaybeMeasured& before, const MaybeMeasured& now) {
  return deviation.absolute ? Known(now) : ChangeOf(before, now);
}

bool LiesUnder(const Measured& measured, double limit) {
  return measured.value + kClearDeviations * measured.deviation < limit;
}

// Whether a change that was told over its limit, up or down, was measured otherwise. One that is over the
// limit the other way is a change all the same.
bool SpeaksAgainst(const Measured& measured, const Deviation& told) {
  const double alongTold = told.value < 0.0 ? -measured.value : measured.value;
  return LiesUnder({alongTold, measured.deviation}, told.limit) && -alongTold < told.limit;
}

// Clears alarms that do not stand, in a row and in its entry of the record.
class AlarmJudge {
 public:
  AlarmJudge(const std::vector<EventOnBoth>& events, double newFromDb)
      : events_(events), newFromDb_(newFromDb) {}

  void Hold(size_t index, ComparedEvent& row, TSorBlockRFTSEvents1E& entry) const {
    const EventOnBoth& both = events_[index];
    if (!both.Whole() || row.fiberBreak) return;
    HoldLoss(index, row, entry);
    HoldReflectance(both, row.reflectance, entry.RT);
    HoldAttenuation(both, row.attenuation, entry.CT);
    HoldNew(index, row, entry);
    if (!row.fail || row.loss.exceeded || row.reflectance.exceeded || row.attenuation.exceeded) return;
    row.fail = false;
    entry.MakeFail(false);
  }

 private:
  static void Contradict(Deviation& deviation, TShortDeviation& stored) {
    deviation.exceeded = false;
    deviation.contradicted = true;
    stored.MakeExceeded(false);
  }

  // Loss that a fit does not find at its event may stand beside it, in one of its sections.
  Measured WithNeighbours(size_t index, Measured loss) const {
    for (const size_t section : {index, index + 1}) {
      const MaybeMeasured db = section < events_.size() ? events_[section].SectionDb() : std::nullopt;
      if (!db) continue;
      loss.value += std::max(db->value, 0.0);
      loss.deviation = Together(loss.deviation, db->deviation);
    }
    return loss;
  }

  void HoldLoss(size_t index, ComparedEvent& row, TSorBlockRFTSEvents1E& entry) const {
    const EventOnBoth& both = events_[index];
    const MaybeMeasured loss = LimitedOf(row.loss, both.before->lossDb, both.now->lossDb);
    Tell(loss, row.loss);
    if (row.loss.exceeded && loss && LiesUnder(WithNeighbours(index, *loss), row.loss.limit))
      Contradict(row.loss, entry.LT);
  }

  static void HoldReflectance(const EventOnBoth& both, Deviation& deviation, TShortDeviation& stored) {
    if (both.now->reflectanceAtLeast || (both.before->reflectanceAtLeast && !deviation.absolute)) return;
    MaybeMeasured limited = LimitedOf(deviation, both.before->reflectanceDb, both.now->reflectanceDb);
    if (!limited) return;
    if (deviation.absolute) limited->value = -limited->value;  // the return loss, at least so much
    Tell(limited, deviation);
    if (!deviation.exceeded) return;
    const bool isWithin = deviation.absolute
                              ? limited->value - kClearDeviations * limited->deviation > deviation.limit
                              : SpeaksAgainst(*limited, deviation);
    if (isWithin) Contradict(deviation, stored);
  }

  static void HoldAttenuation(const EventOnBoth& both, Deviation& deviation, TShortDeviation& stored) {
    if (!deviation.absolute && !(both.lengthKm > 0.0)) return;  // not the same section
    const MaybeMeasured limited =
        LimitedOf(deviation, both.before->attenuationDbPerKm, both.now->attenuationDbPerKm);
    Tell(limited, deviation);
    if (deviation.exceeded && limited &&
        (deviation.absolute ? LiesUnder(*limited, deviation.limit) : SpeaksAgainst(*limited, deviation)))
      Contradict(deviation, stored);
  }

  // A new event is one whose loss has grown from that of plain fibre.
  void HoldNew(size_t index, ComparedEvent& row, TSorBlockRFTSEvents1E& entry) const {
    const EventOnBoth& both = events_[index];
    if (!row.isNew || (both.now->reflects && !both.before->reflects)) return;
    if (!row.loss.measured ||
        !LiesUnder(WithNeighbours(index, *ChangeOf(both.before->lossDb, both.now->lossDb)), newFromDb_))
      return;
    row.isNew = false;
    row.newContradicted = true;
    entry.MakeNew(false);
  }

  const std::vector<EventOnBoth>& events_;
  double newFromDb_;
};

// An event at which nothing more is seen is new as well, and by itself no failure.
bool Fails(const Comparison& table) {
  if (table.result != kCompared) return true;
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const ComparedEvent& row = table.rows[i];
    if (row.fail || row.fiberBreak || (row.isNew && i + 1 < table.rows.size())) return true;
  }
  return false;
}

bool HasContradiction(const Comparison& table) {
  return std::any_of(table.rows.begin(), table.rows.end(), [](const ComparedEvent& row) {
    return row.newContradicted || row.loss.contradicted || row.reflectance.contradicted ||
           row.attenuation.contradicted;
  });
}

}  // namespace

void HoldAgainstMeasured(const TSorData& baseline, TSorData& current, Comparison& table,
                         MeasuredBaselines* memory) {
  if (table.result != kCompared && table.result != kFibreBreak) return;
  TSorBlockRFTSEvents& entries = *current.RFTSEvents;
  const BothTraces both(baseline, current, table, memory);
  if (both.events().size() != table.rows.size()) return;
  const AlarmJudge judge(both.events(), current.FxdParams->GetLT());
  for (size_t i = 1; i < table.rows.size() && i < static_cast<size_t>(entries.GetTNRFTSE()); ++i)
    judge.Hold(i, table.rows[i], *entries.GetEvent(static_cast<int>(i)));
  if (!HasContradiction(table) || Fails(table)) return;
  table.fail = false;
  entries.MakeFail(false);
}

}  // namespace reflyze
