// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/Analysis.h"
#include "src/monitor/TraceComparison.h"
#include "util/convert.h"

using reflyze::TraceComparison;

// Events that the baseline does not have. A whole analysis is dear, so it is run only where the slopes of the
// two traces differ; of what it finds, an event stays that passes the thresholds of the trace also once it is
// measured between its neighbours.

namespace {

using reflyze::TruncToInt;
using reflyze::TruncToLong;

// The blocks that an added event changes, so that it can be taken back: the flags of the trace with it.
class EventTables {
 public:
  explicit EventTables(const TSorData& trace)
      : keyEvents_(*trace.KeyEvents),
        parameters_(*trace.RFTSParams),
        entries_(*trace.RFTSEvents),
        link_(*trace.LnkParams) {}

  void PutBack(TSorData& trace) const {
    trace.KeyEvents->Assign(keyEvents_);
    trace.RFTSParams->Assign(parameters_);
    trace.RFTSEvents->Assign(entries_);
    trace.LnkParams->Assign(link_);
  }

 private:
  TSorBlockKeyEvents keyEvents_;
  TSorBlockRFTSParameters parameters_;
  TSorBlockRFTSEvents entries_;
  TSorBlockLinkParameters link_;
};

class NewEventSearch {
 public:
  NewEventSearch(TraceComparison& engine, TSorData& base, TSorData& current, long endOwt)
      : auto_(engine), base_(base), current_(current), endOwt_(endOwt) {}

  void Run() {
    const TSorBlockQRTEvents& sections = *base_.QRTEvents;
    for (int i = 0; i < sections.ListedEvents(); ++i) {
      const TSorBlockQRTEvents1E& section = sections.EventAt(i);
      if (section.ML0 > endOwt_) return;
      if (auto_.IsNewEventPossible(&base_, &current_, section.ML0, section.ML1))
        SearchSection(section.ML0, section.ML1);
    }
  }

 private:
  void SearchSection(long fromOwt, long toOwt) {
    TSorData& analysed = Analysed();
    for (int i = 0; i < analysed.KeyEvents->ListedEvents(); ++i) {
      TSorBlockKeyEvents1E& event = analysed.KeyEvents->EventAt(i);
      if (event.EPT > endOwt_) return;
      if (!IsNewBehind(fromOwt, event)) continue;
      if (!(event.EPT < toOwt && !auto_.IsOwtWithinAutoEvent(toOwt, &analysed, &event))) return;
      TryEvent(event);
    }
  }

  // The points of the trace stay as they are while events are added, so one analysis serves all sections.
  TSorData& Analysed() {
    if (analysed_ == nullptr) {
      analysed_ = std::make_unique<TSorData>();
      analysed_->Assign(current_);
      auto_.AnalyseForComparison(*analysed_);
    }
    return *analysed_;
  }

  bool IsNewBehind(long fromOwt, TSorBlockKeyEvents1E& event) {
    return fromOwt < event.EPT && !auto_.IsOwtWithinAutoEvent(fromOwt, analysed_.get(), &event) &&
           auto_.GetCorrespondentEvent(analysed_.get(), &current_, &event) == nullptr;
  }

  void TryEvent(TSorBlockKeyEvents1E& event) {
    const EventTables before(current_);
    TSorBlockKeyEvents1E* inserted = auto_.InsertEvent(&current_, &event, true);
    if (inserted != nullptr) ForgetNoise(*inserted);
    if (!auto_.CanBeFoundByAutomat(&current_, inserted)) before.PutBack(current_);
  }

  // A splice has no reflectance. What was measured at its place is the noise, which no threshold is meant
  // for.
  static void ForgetNoise(TSorBlockKeyEvents1E& event) {
    constexpr char kNotReflective = '0';
    if (event.EC.Len() > 0 && event.EC.c_str()[0] == kNotReflective) event.SetER(0.0);
  }

  TraceComparison& auto_;
  TSorData& base_;
  TSorData& current_;
  long endOwt_;
  std::unique_ptr<TSorData> analysed_;  // the current trace with the events of an analysis
};

// Slopes of two traces held against each other, window by window.
class SlopeComparison {
 public:
  SlopeComparison(TSorData& base, TSorData& current) : base_(base), current_(current) {}

  bool Differ(long fromOwt, long toOwt, double windowKm, double limitDbPerKm) {
    // There is nothing to be found outside the current trace.
    fromOwt = std::max(fromOwt, static_cast<long>(TruncToInt(current_.GetMinOwt())));
    toOwt = std::min(toOwt, static_cast<long>(TruncToInt(current_.GetMaxOwt())));
    const long window = Window(windowKm, toOwt - fromOwt);
    if (window <= 0) return false;
    const long overlap = window / 10;
    long a = fromOwt, b = fromOwt;
    while (b < toOwt) {
      b = a + window;
      if (b > toOwt) {
        b = toOwt;
        a = toOwt - window;
      }
      if (std::fabs(Attenuation(base_, a, b) - Attenuation(current_, a, b)) > limitDbPerKm) return true;
      a += window - overlap;
    }
    return false;
  }

 private:
  // In OWT. A window that is wanted shorter than a point has no slope: it gets one point, which also bounds
  // their number.
  long Window(double windowKm, long lengthOwt) const {
    const double windowOwt = current_.dLenToOwt(windowKm);
    if (!(windowOwt < static_cast<double>(lengthOwt))) return lengthOwt;
    const long window = TruncToLong(windowOwt);
    if (window <= 0) return window;
    const double points = static_cast<double>(std::max(current_.DataPts->GetPointsNum(), 1L));
    const long onePoint = TruncToLong((current_.GetMaxOwt() - current_.GetMinOwt()) / points);
    return std::min(std::max(window, onePoint), lengthOwt);
  }

  // dB/km
  static double Attenuation(TSorData& trace, long a, long b) {
    double slope = 0.0, intercept = 0.0;
    const auto fromOwt = static_cast<double>(a), toOwt = static_cast<double>(b);
    RefMathLSL(&trace, fromOwt, toOwt, slope, intercept, 1.0);
    return -slope * (toOwt - fromOwt) / (trace.OwtToLen(toOwt) - trace.OwtToLen(fromOwt));
  }

  TSorData& base_;
  TSorData& current_;
};

// The next unit of time, or the last one that there is.
int JustBehind(int owt) { return owt < std::numeric_limits<int>::max() ? owt + 1 : owt; }

// Makes a new event and its neighbours agree about who holds which stretch of fibre.
class Neighbourhood {
 public:
  Neighbourhood(TSorData& trace, TSorBlockKeyEvents1E& event)
      : trace_(trace),
        events_(*trace.KeyEvents),
        event_(event),
        index_(RefEventGetNumEvent(&trace, &event)) {}

  int index() const { return index_; }

  // Sections behind earlier events end where the new one begins, those before later events begin where its
  // own disturbance is over.
  void CorrectNeighbours() {
    for (int i = index_ - 1; i >= 0; --i) EndSectionBehind(events_.EventAt(i));
    for (int i = index_ + 1; i < events_.ListedEvents(); ++i) BeginSectionBefore(events_.EventAt(i));
  }

  void CorrectEvent() {
    bool touched = false;
    if (index_ >= 1 && event_.ML0 < events_.EventAt(index_ - 1).ML2) {
      event_.ML0 = events_.EventAt(index_ - 1).ML2;
      EndSectionBefore();
      touched = true;
    }
    if (index_ < events_.ListedEvents() - 1 && events_.EventAt(index_ + 1).EPT < event_.ML3) {
      event_.ML3 = events_.EventAt(index_ + 1).EPT;
      if (event_.ML3 < event_.ML2) event_.ML2 = event_.EPT;
      touched = true;
    }
    if (touched) RefEventRecalculate(&trace_, &event_, 0);
  }

 private:
  void EndSectionBehind(TSorBlockKeyEvents1E& earlier) {
    if (event_.EPT >= earlier.ML3) return;
    earlier.ML3 = event_.EPT;
    if (earlier.ML3 <= earlier.ML2)
      earlier.ML2 =
          TruncToInt(static_cast<double>(RefAutoSearchEndOfEvent(&trace_, earlier.EPT, earlier.ML3)));
    RefEventRecalculate(&trace_, &earlier, 0);
  }

  // Two reflections close together share the section in front of both. Where that lies before the earlier
  // one, the new event's own section ends at the event.
  void EndSectionBefore() {
    if (event_.ML1 <= event_.ML0) event_.ML1 = std::max(event_.EPT, JustBehind(event_.ML0));
  }

  void BeginSectionBefore(TSorBlockKeyEvents1E& later) {
    if (later.ML0 >= event_.ML2) return;
    later.ML0 = event_.ML2;
    if (later.ML1 <= later.ML0) later.ML1 = JustBehind(later.ML0);
    RefEventRecalculate(&trace_, &later, 0);
  }

  TSorData& trace_;
  TSorBlockKeyEvents& events_;
  TSorBlockKeyEvents1E& event_;
  const int index_;
};

}  // namespace

void TraceComparison::AnalyseForComparison(TSorData& scratch) {
  srCompare_SetRFTSAutoThresholds(&scratch);
  Automat(&scratch, 0, ReturnLoss::kLeftOut);
  // The record is the caller's and goes before the analysis does.
  analysis_.sor = nullptr;
  analysis_.linf = nullptr;
}

void TraceComparison::FindNewEvents(TSorData* base, TSorData* current, long end) {
  NewEventSearch(*this, *base, *current, end).Run();
}

bool TraceComparison::IsNewEventPossible(TSorData* base, TSorData* current, long from, long to) const {
  return SlopeComparison(*base, *current)
      .Differ(from, to, monitoring.EvtSearchStep, monitoring.EvtDetectDeltaCT);
}

bool TraceComparison::CanBeFoundByAutomat(TSorData* trace, TSorBlockKeyEvents1E* event) const {
  return trace != nullptr && event != nullptr && event->GetEL() > trace->FxdParams->GetLT() &&
         event->GetER() > trace->FxdParams->GetRT();
}

TSorBlockKeyEvents1E* TraceComparison::InsertEvent(TSorData* trace, TSorBlockKeyEvents1E* event,
                                                   bool fail) const {
  auto copy = std::make_unique<TSorBlockKeyEvents1E>(*event);
  if (RefEventAdd(trace, copy.get(), 1) < 0) return nullptr;
  TSorBlockKeyEvents1E* inserted = copy.release();  // the table owns it now
  Neighbourhood neighbourhood(*trace, *inserted);
  if (monitoring.CorrectMarkers) neighbourhood.CorrectNeighbours();
  neighbourhood.CorrectEvent();
  TSorBlockRFTSEvents& entries = *trace->RFTSEvents;
  if (neighbourhood.index() < entries.GetTNRFTSE()) entries.GetEvent(neighbourhood.index())->MakeNew(true);
  if (fail) entries.MakeFail(true);
  return inserted;
}
