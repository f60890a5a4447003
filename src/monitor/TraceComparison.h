// SPDX-License-Identifier: Apache-2.0
#pragma once

// The comparison of a trace with the baseline of its fibre. Times are one way in 100 ps, levels and losses in
// dB on the one-way scale (5 log10 of power), slopes in dB/km. Where it has to know what is on the current
// trace it asks an analysis, always the same one: what an analysis has learned about its detectors holds for
// the next trace of a comparison too.

#include "ref/events/refEventEdit.h"
#include "src/monitor/RFTSUParams.h"

class TRFTSLevel;
class TSorBlockKeyEvents1E;
class TSorBlockRFTSEvents1E;
class TSorData;
class TThresholdsRFTSSet;

// What a comparison comes to.
enum TMonitorResult : int {
  mrCompared = 1,           // the flags of the monitoring events say what has changed
  mrNoLink = 10002,         // the current trace does not show the fibre
  mrNoActiveLevel = 10003,  // the baseline does not say what to hold the fibre against
  mrFibreBreak = 10004,     // the fibre ends before the end of monitoring
};

namespace reflyze {

struct AnalysisState;

class TraceComparison {
 public:
  // Analyses are made by `analysis`, which outlives the comparison.
  explicit TraceComparison(AnalysisState& analysis) : analysis_(analysis) {}
  TraceComparison(const TraceComparison&) = delete;
  TraceComparison& operator=(const TraceComparison&) = delete;

  // --- The whole (TraceComparison.cpp) ---

  // Says what changed on a fibre since its baseline was stored. `current` gets the baseline's events, those
  // that are new, and in its monitoring events one entry for each of them, with deviations and flags; `base`
  // may be filtered and is else left as it is. With `recheck` the events that an earlier comparison left in
  // `current` are held against the thresholds once more. The result is also stored as MonitorResult.
  int Compare(TSorData* base, TSorData* current, bool recheck);
  // The analysis as the comparison runs it: with the trace's own thresholds, taken literally. With
  // `useMonitoringThresholds` they are first set to those of the monitoring.
  void Automat(TSorData* trace, int useMonitoringThresholds, ReturnLoss returnLoss = ReturnLoss::kMeasured);
  // Smooths a record that is flagged for filtering.
  void Filter(TSorData* trace) const;
  // Takes the settings of the comparison from the baseline.
  void InitRFTSParameters(TSorData* base);
  void srCompare_CopyFixedParamsFromBaseToCurSor(TSorData* current, TSorData* base) const;
  // Thresholds with which a trace is searched for what the baseline does not have.
  void srCompare_SetRFTSAutoThresholds(TSorData* trace) const;
  void srCompare_InitRFTS(TSorData* current) const;
  // Whether the current trace shows the fibre of the baseline where its level is tested.
  bool srCompare_CheckLinkPresence(TSorData* base, TSorData* current) const;
  // The baseline's active level, noted in the current trace by its name. False where there is none.
  bool srCompare_SetLevelName(TSorData* base, TSorData* current, TRFTSLevel*& level) const;
  // Time up to which the fibre is watched: that of the baseline's last event, or of the landmark "EOFLMN".
  double GetEndOfMonitoringOWT(TSorData* base) const;

  // --- Pairs of events (CompareEvents.cpp) --- Times less than 1 ns apart are the same time.

  int GetEventIndex(TSorData* trace, long owt) const;  // -1 for none
  // Whether a time lies within the distance by which the place of an event may differ, that included.
  bool IsOwtWithinAutoEvent(long owt, TSorData* trace, TSorBlockKeyEvents1E* event) const;
  // The event of `b` that is the event `event` of `a`; null for none.
  TSorBlockKeyEvents1E* GetCorrespondentEvent(TSorData* a, TSorData* b, TSorBlockKeyEvents1E* event) const;
  // Event `index` of the baseline, its partner, the partner's entry and the thresholds of the event. False
  // without a partner, and then only `baseEvent` is set. Entry and thresholds are null in records that lack
  // them. The last argument is not used.
  bool srCompare_InitNextEvents(int index, TSorData* base, TSorData* current, TRFTSLevel* level,
                                TSorBlockKeyEvents1E*& baseEvent, TSorBlockKeyEvents1E*& currentEvent,
                                TSorBlockRFTSEvents1E*& entry, TThresholdsRFTSSet*& thresholds, long) const;
  // Fills the deviations of an entry, in the forms that the thresholds have.
  void srCompare_InitRFTSEvent(TSorData* base, TSorData* current, TSorBlockRFTSEvents1E* entry,
                               TThresholdsRFTSSet* thresholds, TSorBlockKeyEvents1E* baseEvent,
                               TSorBlockKeyEvents1E* currentEvent) const;
  // Holds an entry against its thresholds and flags it, and the trace, where one is exceeded.
  void srCompare_CheckRFTSEvent(TSorBlockRFTSEvents1E* entry, TThresholdsRFTSSet* thresholds,
                                TSorData* current) const;
  // The same for the end-to-end loss of `measured`, noted in `owner`. No command asks for it.
  void srCompare_EELT(TSorData* base, TSorData* owner, TSorData* measured, TRFTSLevel* level) const;

  // --- End of the current fibre (CompareFibreEnd.cpp) ---

  // Attenuation in dB/km between two times; 0 for less than one unit of time.
  double CalculateSegmentACI(TSorData* trace, long from, long to) const;
  // Whether event `index` of the baseline looks so different on the current trace that the fibre may have
  // ended before it; so does one without a partner there.
  bool IsEventChanged(TSorData* base, TSorData* current, int index) const;
  // Copy of the event that now ends the fibre, owned by the caller; null for a trace without events.
  TSorBlockKeyEvents1E* srCompare_FindEOF(TSorData* base, TSorData* current);
  // Puts that event on the current trace and tells a break: `result` becomes 10004. `eof` is the time where
  // the fibre ends, `end` the time up to which it is compared.
  void srCompare_InsertEOF(TSorData* base, TSorData* current, long& eof, long& end, int& result);
  // Deletes the events behind `eof`. What then is the last event takes over the mark of the fibre's end.
  void srCompare_DeleteExcessEvents(TSorData* current, long eof) const;

  // --- New events (CompareNewEvents.cpp) ---

  // Looks for events that the baseline does not have on the stretches that it marks, not behind `end`.
  void FindNewEvents(TSorData* base, TSorData* current, long end);
  // Puts the events of an analysis with those thresholds on a copy of the current trace, whose return loss
  // nobody asks for.
  void AnalyseForComparison(TSorData& scratch);
  // Whether the slopes of the two traces differ between two times, so that a search is worth its time.
  bool IsNewEventPossible(TSorData* base, TSorData* current, long from, long to) const;
  // Whether an event passes the thresholds of a record for loss and for reflectance. Not a null one.
  bool CanBeFoundByAutomat(TSorData* trace, TSorBlockKeyEvents1E* event) const;
  // Adds a copy of an event, marked as new, and makes room for it between its neighbours. Gives the copy; the
  // record owns it. Null for an event outside the trace. With `fail` the trace is marked as failed.
  TSorBlockKeyEvents1E* InsertEvent(TSorData* trace, TSorBlockKeyEvents1E* event, bool fail) const;

  // Leaves of a trace what lies between two times, and makes it a fibre of `slope` dB/km before and behind
  // (IsolateSection.cpp). No command asks for it.
  void IsolateSection(TSorData* trace, double fromOwt, double toOwt, double slope) const;

  // --- Settings of the comparison; defaults until InitRFTSParameters ---
  TRFTSUParams monitoring;

 private:
  AnalysisState& analysis_;
};

}  // namespace reflyze
