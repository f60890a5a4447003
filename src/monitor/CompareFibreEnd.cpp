// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "sor/sorData.h"
#include "src/monitor/TraceComparison.h"
#include "util/convert.h"

using reflyze::TraceComparison;

// Where the current fibre ends. As long as the baseline's last event looks on the current trace as it did,
// the fibre ends there; else the current trace is analysed.

namespace {

// Below this attenuation in dB/km there is no fibre but noise.
constexpr double kLeastOfFibre = 0.05;

bool Differ(double a, double b, double limit) { return std::fabs(a - b) > limit; }

TSorBlockKeyEvents1E* LastEvent(TSorData& trace) {
  const int count = trace.KeyEvents->ListedEvents();
  return count > 0 ? &trace.KeyEvents->EventAt(count - 1) : nullptr;
}

std::unique_ptr<TSorBlockKeyEvents1E> CopyOf(const TSorBlockKeyEvents1E* event) {
  return event == nullptr ? nullptr : std::make_unique<TSorBlockKeyEvents1E>(*event);
}

}  // namespace

double TraceComparison::CalculateSegmentACI(TSorData* trace, long from, long to) const {
  const double lengthOwt = static_cast<double>(to) - static_cast<double>(from);
  if (lengthOwt < 1.0) return 0.0;
  double slope = 0.0, intercept = 0.0;
  RefMathLSL(trace, static_cast<double>(from), static_cast<double>(to), slope, intercept, 1.0);
  return -slope * lengthOwt / trace->dOwtToLen(lengthOwt);
}

bool TraceComparison::IsEventChanged(TSorData* base, TSorData* current, int index) const {
  if (index < 0 || index >= base->KeyEvents->ListedEvents()) return false;
  TSorBlockKeyEvents1E& was = base->KeyEvents->EventAt(index);
  const TSorBlockKeyEvents1E* is = GetCorrespondentEvent(base, current, &was);
  if (is == nullptr) return true;  // the current trace is too short to show it
  if (Differ(was.GetACI(), is->GetACI(), monitoring.EvtChangeCT)) return true;
  if (is->GetACI() < kLeastOfFibre) return true;
  if (was.IsEOF()) return Differ(was.GetEL(), is->GetEL(), monitoring.EvtChangeET);
  if (Differ(was.GetEL(), is->GetEL(), monitoring.EvtChangeLT)) return true;
  const double behindWas = CalculateSegmentACI(base, was.ML2, was.ML3);
  const double behindIs = CalculateSegmentACI(current, is->ML2, is->ML3);
  return Differ(behindWas, behindIs, monitoring.EvtChangeCT) || behindIs < kLeastOfFibre;
}

TSorBlockKeyEvents1E* TraceComparison::srCompare_FindEOF(TSorData* base, TSorData* current) {
  const int events = base->KeyEvents->ListedEvents();
  int i = events - 1;
  while (i >= 1 && IsEventChanged(base, current, i)) --i;
  const int firstOfChangedTail = i + 1;
  if (firstOfChangedTail == events) return CopyOf(LastEvent(*current)).release();

  TSorData scratch;
  scratch.Assign(*current);
  AnalyseForComparison(scratch);
  return CopyOf(LastEvent(scratch)).release();
}

// A fibre that ends early is broken only if events remain behind its end: those of the baseline, which are on
// the current trace by now.
void TraceComparison::srCompare_InsertEOF(TSorData* base, TSorData* current, long& eof, long& end,
                                          int& result) {
  end = TruncToLong(GetEndOfMonitoringOWT(base));
  const TSorBlockKeyEvents1E* last = LastEvent(*base);
  const std::unique_ptr<TSorBlockKeyEvents1E> found(srCompare_FindEOF(base, current));
  eof = last != nullptr ? last->EPT : end;
  if (found != nullptr && found->EPT < eof) {
    TSorBlockKeyEvents1E* partner = GetCorrespondentEvent(current, current, found.get());
    if (partner == nullptr) {
      InsertEvent(current, found.get(), false);
      partner = GetCorrespondentEvent(current, current, found.get());
    }
    if (partner != nullptr) {
      eof = partner->EPT;
      const bool early = eof < end || IsOwtWithinAutoEvent(end, current, found.get());
      if (early && partner != LastEvent(*current)) {
        result = mrFibreBreak;
        const int index = GetEventIndex(current, partner->EPT);
        if (index < current->RFTSEvents->GetTNRFTSE())
          current->RFTSEvents->GetEvent(index)->MakeFiberBreak(true);
        current->RFTSEvents->MakeFail(true);
      }
    }
  }
  if (eof < end) end = eof;
}

void TraceComparison::srCompare_DeleteExcessEvents(TSorData* current, long eof) const {
  constexpr int kSourceOfEvent = 1;  // character of the event code: "F" found, "E" end of the fibre
  constexpr char kAdded = 'A';       // by hand
  TSorBlockKeyEvents& events = *current->KeyEvents;
  for (int i = events.ListedEvents() - 1; i >= 0; --i) {
    TSorBlockKeyEvents1E& excess = events.EventAt(i);
    if (excess.EPT <= eof) continue;
    const char source = excess.EC.Len() > kSourceOfEvent ? excess.EC.c_str()[kSourceOfEvent] : kAdded;
    excess.EC.SetAt(kSourceOfEvent, kAdded);
    RefEventDel(current, i, 1);
    if (i == 0) continue;
    TSorBlockKeyEvents1E& before = events.EventAt(i - 1);
    before.EC.SetAt(kSourceOfEvent, source);
    before.ML2 = before.ML3 = TruncToInt(current->GetMaxOwt());
    // An event that is deleted next need not be measured: the event in front of it measures the whole
    // trace anew.
    const bool goesNext = i > 1 && before.EPT > eof && events.EventAt(i - 2).EC.Len() > kSourceOfEvent;
    if (!goesNext) RefEventRecalculate(current, &before, 0);
  }
}
