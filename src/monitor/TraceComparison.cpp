// SPDX-License-Identifier: Apache-2.0
#include "src/monitor/TraceComparison.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "ref/events/refEvent.h"
#include "sor/sorData.h"
#include "src/analysis/Analysis.h"
#include "src/filter/Filter.h"
#include "src/monitor/CompareScale.h"
#include "util/convert.h"

using reflyze::TraceComparison;

// The comparison of a trace with the baseline of its fibre. It does not analyse the current trace freely: it
// lays the baseline's events on it, finds where the fibre now ends, looks for new events where the baseline
// asks for it, drops what lies behind the end, and measures each event against its thresholds.

namespace {

using reflyze::TruncToLong;

class Comparison {
 public:
  Comparison(TraceComparison& engine, TSorData& base, TSorData& current)
      : auto_(engine), base_(&base), current_(current) {}

  // A new trace.
  int Run() {
    Prepare();
    ShareTimeScale();
    if (!auto_.srCompare_SetLevelName(base_, &current_, level_)) return Report(mrNoActiveLevel);
    // The entries follow the events only in a block that has the name of its level.
    RefEventRFTSSync(&current_);
    if (!auto_.srCompare_CheckLinkPresence(base_, &current_)) return Report(mrNoLink);
    RefEventApplyTemplate(&current_, base_);
    SettleEvents();
    CompareEvents();
    return Report(result_);
  }

  // A trace with the events that an earlier comparison settled. Nothing is filtered or searched again.
  int RunAgain() {
    current_.RFTSEvents->MakeFail(false);
    ShareTimeScale();
    if (!auto_.srCompare_SetLevelName(base_, &current_, level_)) return Report(mrNoActiveLevel);
    const long earlier = current_.RFTSEvents->GetMonitorResult();
    if (earlier == mrNoLink) return mrNoLink;
    PointAtLevel();
    end_ = TruncToLong(auto_.GetEndOfMonitoringOWT(base_));
    const int events = current_.KeyEvents->ListedEvents();
    if (events > 0) end_ = std::min(end_, static_cast<long>(current_.KeyEvents->EventAt(events - 1).EPT));
    if (earlier == mrFibreBreak) {
      result_ = mrFibreBreak;
      current_.RFTSEvents->MakeFail(true);
    }
    CompareEvents();
    return Report(result_);
  }

 private:
  void Prepare() {
    auto_.Filter(&current_);
    auto_.Filter(base_);
    auto_.InitRFTSParameters(base_);
    auto_.srCompare_CopyFixedParamsFromBaseToCurSor(&current_, base_);
    auto_.srCompare_InitRFTS(&current_);
  }

  // From here on times of both traces may be held against each other.
  void ShareTimeScale() {
    carriedBase_ = reflyze::OnTimeScaleOf(*base_, current_);
    if (carriedBase_ != nullptr) base_ = carriedBase_.get();
  }

  void SettleEvents() {
    long eof = 0;
    auto_.srCompare_InsertEOF(base_, &current_, eof, end_, result_);
    auto_.FindNewEvents(base_, &current_, end_);
    auto_.srCompare_DeleteExcessEvents(&current_, eof);
  }

  // The trace may have been compared before its baseline got this level; then it keeps the one it had.
  void PointAtLevel() {
    const int index = current_.RFTSParams->GetLevelIndex(level_->GetName());
    if (index >= 0) current_.RFTSParams->SetActiveLevel(static_cast<short>(index));
  }

  // The launch is no event of the fibre and is left out. An event that the current trace does not have ends
  // the comparison: what lies behind it is not seen either.
  void CompareEvents() {
    for (int i = 1; i < base_->KeyEvents->ListedEvents(); ++i) {
      TSorBlockKeyEvents1E *baseEvent = nullptr, *currentEvent = nullptr;
      TSorBlockRFTSEvents1E* entry = nullptr;
      TThresholdsRFTSSet* thresholds = nullptr;
      if (!auto_.srCompare_InitNextEvents(i, base_, &current_, level_, baseEvent, currentEvent, entry,
                                          thresholds, end_)) {
        return;
      }
      // Records whose tables are out of step: nothing to hold the event against, or nowhere to note it.
      if (entry == nullptr || thresholds == nullptr) continue;
      auto_.srCompare_InitRFTSEvent(base_, &current_, entry, thresholds, baseEvent, currentEvent);
      if (!thresholds->IsEnabled() || IsBehindEnd(*baseEvent)) continue;
      auto_.srCompare_CheckRFTSEvent(entry, thresholds, &current_);
    }
  }

  // The event at which monitoring ends is still watched.
  bool IsBehindEnd(TSorBlockKeyEvents1E& event) {
    return event.EPT >= end_ && !auto_.IsOwtWithinAutoEvent(end_, base_, &event);
  }

  int Report(int result) {
    current_.RFTSEvents->SetMonitorResult(result);
    return result;
  }

  TraceComparison& auto_;
  TSorData* base_;
  TSorData& current_;
  std::unique_ptr<TSorData> carriedBase_;  // the baseline where `base_` is a copy of it
  TRFTSLevel* level_ = nullptr;            // of `base_`
  long end_ = 0;                           // OWT up to which the fibre is watched
  int result_ = mrCompared;
};

}  // namespace

int TraceComparison::Compare(TSorData* base, TSorData* current, bool recheck) {
  Comparison comparison(*this, *base, *current);
  return recheck ? comparison.RunAgain() : comparison.Run();
}

void TraceComparison::Filter(TSorData* trace) const {
  if (trace->QRTParams->isFilter()) TSorFilter(trace).SetFilter(TSorFilter::kFTTFilter);
}

void TraceComparison::InitRFTSParameters(TSorData* base) { monitoring.Take(*base); }

void TraceComparison::srCompare_CopyFixedParamsFromBaseToCurSor(TSorData* current, TSorData* base) const {
  current->FxdParams->SetET(monitoring.AutoET);
  current->FxdParams->SetRT(base->FxdParams->GetRT());
  current->QRTParams->SetCT(base->QRTParams->GetCT());
  current->FxdParams->SetLT(monitoring.AutoLT);
}

void TraceComparison::srCompare_SetRFTSAutoThresholds(TSorData* trace) const {
  trace->FxdParams->SetLT(monitoring.AutoLT);
  trace->FxdParams->SetRT(monitoring.AutoRT);
  trace->FxdParams->SetET(monitoring.AutoET);
  trace->QRTParams->SetCT(monitoring.AutoCT);
}

void TraceComparison::srCompare_InitRFTS(TSorData* current) const {
  current->RFTSEvents->MakeFail(false);
  current->RFTSEvents->Clear();
}

bool TraceComparison::srCompare_CheckLinkPresence(TSorData* base, TSorData* current) const {
  const double baseDb = base->LenToLevel(monitoring.NoLinkDistance, 1);
  const double currentDb = current->LenToLevel(monitoring.NoLinkDistance, 1);
  return std::fabs(baseDb - currentDb) <= monitoring.NoLinkDeltaDB;
}

bool TraceComparison::srCompare_SetLevelName(TSorData* base, TSorData* current, TRFTSLevel*& level) const {
  level = base->RFTSParams->GetActiveLevel();
  if (level == nullptr) return false;
  current->RFTSEvents->SetLevelName(level->GetName());
  return true;
}

// Monitoring may end at a landmark, such as the last manhole of an operator's own route. Of several landmarks
// with its number the last one counts. One whose event is not in the table stands where the landmark itself
// is.
double TraceComparison::GetEndOfMonitoringOWT(TSorData* base) const {
  constexpr long kNoLandmark = -1;
  TSorBlockKeyEvents& events = *base->KeyEvents;
  const int count = events.ListedEvents();
  double endOwt = count > 0 ? events.EventAt(count - 1).EPT : 0.0;

  const TRFTSUniversalParameter* landmark = base->RFTSParams->GetUParameter(TString("EOFLMN"));
  if (landmark == nullptr) return endOwt;
  const long wanted = TruncToLong(landmark->GetValue());
  if (wanted == kNoLandmark) return endOwt;
  for (int i = 0; i < base->LnkParams->ListedLandmarks(); ++i) {
    const TSorBlockLinkParamLandmark& at = base->LnkParams->LandmarkAt(i);
    // A number above 32767 stands in its signed field by its low 16 bits.
    if (at.LMN != wanted && reflyze::LowBits16(at.LMN) != wanted) continue;
    const bool hasEvent = at.REN > 0 && at.REN <= count;
    endOwt = hasEvent ? events.EventAt(at.REN - 1).EPT : at.LML;
  }
  return endOwt;
}

void TraceComparison::Automat(TSorData* trace, int useMonitoringThresholds, ReturnLoss returnLoss) {
  if (useMonitoringThresholds != 0) srCompare_SetRFTSAutoThresholds(trace);
  TTH thresholds;
  thresholds.Take(*trace);
  thresholds.fromAutomat = 1;
  AnalyseRecord(analysis_, *trace, &thresholds, returnLoss);
}
