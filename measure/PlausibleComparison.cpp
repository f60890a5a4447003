// SPDX-License-Identifier: Apache-2.0
#include "measure/PlausibleComparison.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "measure/Plausible.h"
#include "ref/figures/refAutoNoise.h"
#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "src/module/Auto.h"
#include "util/convert.h"

namespace reflyze {
namespace {

// From here on behind an event, levels are compared. Both traces show the same tail of it, unless the event
// has changed.
constexpr double kCommonTailKm = 0.2;
constexpr double kCommonTailPulses = 4.0;
constexpr double kPastEndPulses = 2.0;          // behind an alleged end, where the fibre may really end
constexpr double kClearPoints = 3.0;            // in front of an event, whose place is known to a few points
constexpr double kWindowKm = 1.0;               // over which a level is taken, where there is room
constexpr double kLeastPoints = 10.0;           // and at least
constexpr double kComparableOverNoiseDb = 3.0;  // up to where levels can be compared
constexpr double kMostDb = 0.5;                 // the most that one place can weigh

double Km(const TSorData& trace, int index) { return trace.OwtToLen(trace.KeyEvents->EventAt(index).EPT); }

// Two traces of one fibre lie a constant apart, but for what has changed. Within a section the distance
// between them stays as it is; at an event it moves by the change of the event's loss. This class holds a
// table of the current trace against that.
class ChangeAccount {
 public:
  // May write into both records, because the noise floor has to be settled.
  ChangeAccount(TSorData& baseline, TSorData& current) : baseline_(baseline), current_(current) {
    RefAutoReSetNF(&baseline);
    RefAutoReSetNF(&current);
    pulseKm_ = current.dOwtToLen(current.FxdParams->GetOwtPulse(0));
    pointKm_ = std::max(current.FxdParams->LenDS(), baseline.FxdParams->LenDS());
    leastKm_ = std::max(pulseKm_, kLeastPoints * pointKm_);
    lowestDb_ = std::max(current.FxdParams->GetNF(), baseline.FxdParams->GetNF()) + kComparableOverNoiseDb;
  }

  double untoldDb() const { return untoldDb_; }    // by which levels come apart within sections
  double mistoldDb() const { return mistoldDb_; }  // by which events change otherwise than the table tells

  void Draw() {
    const double shadowKm = std::max(kCommonTailKm, kCommonTailPulses * pulseKm_);
    const int events = current_.KeyEvents->ListedEvents();
    std::optional<double> apartDb;  // distance between the traces, in front of the events passed since
    double toldDb = 0.0;            // change that the table tells of these events
    for (int i = 0; i + 1 < events; ++i) {
      if (i > 0) toldDb += ToldDb(i);
      const double fromKm = Km(current_, i) + shadowKm;
      const double toKm = Km(current_, i + 1) - kClearPoints * pointKm_;
      const double windowKm = std::min(kWindowKm, (toKm - fromKm) / 2);
      if (windowKm < leastKm_) continue;
      if (!IsClear(fromKm) || !IsClear(toKm)) return;
      const double beginDb = ApartDb(fromKm, fromKm + windowKm), endDb = ApartDb(toKm - windowKm, toKm);
      if (apartDb) mistoldDb_ += std::min(std::fabs(beginDb - *apartDb - toldDb), kMostDb);
      untoldDb_ += std::min(std::fabs(endDb - beginDb), kMostDb);
      apartDb = endDb;
      toldDb = 0.0;
    }
  }

  // Whether the current trace follows the baseline beyond its last event.
  bool FibreGoesOn() const {
    const int events = current_.KeyEvents->ListedEvents();
    if (events < 1) return false;
    const double endKm = Km(current_, events - 1);
    const double fromKm = endKm + kPastEndPulses * pulseKm_ + kClearPoints * pointKm_;
    if (!IsClear(fromKm + 2 * leastKm_)) return false;
    const double beforeDb = ApartDb(std::max(endKm - kWindowKm, endKm / 2), endKm);
    const auto follows = [&](double km) {
      return std::fabs(ApartDb(km, km + leastKm_) - beforeDb) <= kMostDb;
    };
    return follows(fromKm) && follows(fromKm + leastKm_);
  }

 private:
  bool IsClear(double km) const {
    return baseline_.LenToLevel(km, 1) > lowestDb_ && current_.LenToLevel(km, 1) > lowestDb_;
  }
  // The level in the middle of a stretch, by a line through it.
  static double LevelDb(TSorData& trace, double fromKm, double toKm) {
    const double from = trace.LenToOwt(fromKm), to = trace.LenToOwt(toKm);
    double slope = 0.0, intercept = 0.0;
    RefMathLSL(&trace, from, to, slope, intercept, 1.0);
    return intercept + slope * (from + to) / 2;
  }
  // By how much the current trace lies below the baseline.
  double ApartDb(double fromKm, double toKm) const {
    return LevelDb(baseline_, fromKm, toKm) - LevelDb(current_, fromKm, toKm);
  }
  // The growth of loss that the table tells of an event; of a new event, its loss.
  double ToldDb(int index) const {
    constexpr double kSameKm = 0.001;
    const double lossDb = current_.KeyEvents->EventAt(index).GetEL();
    for (int i = 0; i < baseline_.KeyEvents->ListedEvents(); ++i) {
      if (std::fabs(Km(baseline_, i) - Km(current_, index)) < kSameKm)
        return lossDb - baseline_.KeyEvents->EventAt(i).GetEL();
    }
    return lossDb;
  }

  TSorData &baseline_, &current_;
  double pulseKm_, pointKm_;
  double leastKm_;   // shortest window
  double lowestDb_;  // lowest level that can be compared
  double untoldDb_ = 0.0, mistoldDb_ = 0.0;
};

// Whether the table has a fibre: a launch, and something behind the launch of the baseline.
bool HasFibre(const TSorData& baseline, const TSorData& current) {
  const int events = current.KeyEvents->ListedEvents();
  if (baseline.KeyEvents->ListedEvents() < 2) return true;  // nor does the baseline ask for one
  return events > 1 && Km(current, events - 1) > Km(baseline, 0);
}

// Whether a trace shows light up to an event, which is known to a few points. In the dark, negative powers
// are stored as nearly none, so that the mean of what is left lies 3.5 dB below the noise floor. May write
// into the record, because the noise floor has to be settled.
bool ShowsLightUpTo(TSorData& trace, double km) {
  constexpr long kPoints = 64;
  constexpr double kUnderFloorDb = 1.75;
  const double last =
      std::min(trace.LenToNum(km) - kClearPoints, static_cast<double>(trace.DataPts->GetPointsNum()));
  float* lin = RefEmbGetLinf(&trace);
  if (!(last >= static_cast<double>(kPoints)) || lin == nullptr) return false;
  return RefMathPower(&trace, lin, TruncToLong(last) - kPoints, kPoints, 1) >
         RefAutoReSetNF(&trace) - kUnderFloorDb;
}

}  // namespace

bool EndsInTheDark(const TSorData& baseline, const TSorData& current) {
  const int last = baseline.KeyEvents->ListedEvents() - 1;
  if (last < 1) return false;
  const double km = Km(baseline, last);
  TSorData before, now;
  before.Assign(baseline);
  now.Assign(current);
  return ShowsLightUpTo(before, km) && !ShowsLightUpTo(now, km);
}

double ComparisonDoubts(const TSorData& baseline, const TSorData& current, int result) {
  constexpr double kUntold = 4.0, kMistold = 0.5, kNoFibre = 4.0 * kWrongTable;
  if (result != mrCompared && result != mrFibreBreak) return 0.0;
  if (!HasFibre(baseline, current)) return kNoFibre;
  TSorData before, now;
  before.Assign(baseline);
  now.Assign(current);
  ChangeAccount account(before, now);
  account.Draw();
  const int table = Implausibility(now);
  double doubts = table / kWrongTable * kWrongTable + static_cast<double>(table % kWrongTable) / kWrongTable;
  if (result == mrFibreBreak && account.FibreGoesOn()) doubts += kWrongTable;
  if (result == mrCompared && EndsInTheDark(baseline, current)) doubts += kWrongTable;
  return doubts + kUntold * account.untoldDb() + kMistold * account.mistoldDb();
}

int TellBreakBeforeTheDark(const TSorData& baseline, TSorData& current, int result) {
  if (result != mrCompared || !EndsInTheDark(baseline, current)) return result;
  TSorData before, now;  // copies, because settling the noise floor writes into a record
  before.Assign(baseline);
  now.Assign(current);
  TAuto engine;
  const double monitoredKm = baseline.OwtToLen(engine.GetEndOfMonitoringOWT(&before));
  const auto isLitBefore = [&](int index) { return ShowsLightUpTo(now, Km(current, index)); };
  for (int i = 1; i + 1 < current.KeyEvents->ListedEvents(); ++i) {
    if (isLitBefore(i + 1)) continue;
    TSorBlockRFTSEvents& entries = *current.RFTSEvents;
    if (!isLitBefore(i) || Km(current, i) >= monitoredKm || i >= entries.GetTNRFTSE()) return result;
    entries.GetEvent(i)->MakeFiberBreak(true);
    entries.MakeFail(true);
    entries.SetMonitorResult(mrFibreBreak);
    engine.srCompare_DeleteExcessEvents(&current, current.KeyEvents->EventAt(i).EPT);
    return mrFibreBreak;
  }
  return result;
}

bool TellsOfChange(const TSorData& compared, int result) {
  return result != mrCompared || compared.RFTSEvents->IsFail();
}

void LetLeastLossEnd(const TSorData& baseline, TSorData& copy) {
  constexpr double kLeastEtDb = 1.0;
  copy.Assign(baseline);
  SetSetting(*copy.RFTSParams, "AutoET", kLeastEtDb);
}

void TakeComparison(TSorData& record, const TSorData& compared) {
  record.FxdParams->Assign(*compared.FxdParams);
  record.KeyEvents->Assign(*compared.KeyEvents);
  record.LnkParams->Assign(*compared.LnkParams);
  record.RFTSParams->Assign(*compared.RFTSParams);
  record.RFTSEvents->Assign(*compared.RFTSEvents);
  record.QRTParams->Assign(*compared.QRTParams);
  record.QRTEvents->Assign(*compared.QRTEvents);
}

}  // namespace reflyze
