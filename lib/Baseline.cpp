// SPDX-License-Identifier: Apache-2.0
#include "lib/Baseline.h"

#include <algorithm>
#include <memory>

#include "lib/Text.h"
#include "measure/Plausible.h"
#include "measure/PlausibleComparison.h"
#include "ref/events/refEvent.h"
#include "src/filter/Filter.h"
#include "src/monitor/RFTSUParams.h"
#include "util/convert.h"
#include "util/latin1.h"

namespace reflyze {
namespace {

short LimitThousandths(double value) { return TruncToShort(value * 1000.0 + 0.5); }

TShortThreshold Relative(double limit) { return {0, LimitThousandths(limit), false}; }

// One alarm level, in force. The block itself gives it a set of limits for each event.
void SetLevel(TSorData& record, const Monitoring& monitoring) {
  TSorBlockRFTSParameters& block = *record.RFTSParams;
  block.Clear();
  auto level = std::make_unique<TRFTSLevel>();
  level->SetName(Latin1(monitoring.level).c_str());
  level->Enable();
  TThresholdsRFTSSet limits;
  limits.SetLT(Relative(monitoring.ltDb));
  limits.SetRT(Relative(monitoring.rtDb));
  limits.SetCT(Relative(monitoring.ctDbPerKm));
  level->SetLevelThresholdsSet(limits);
  level->SetEELT(Relative(monitoring.eelDb));
  block.AddLevel(level.release());
  block.SetActiveLevel(0);
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) block.OnKeyEventAdd(i);
}

// A comparison left to itself searches new events only where slopes have changed. A splice near the end of a
// section hardly changes its slope, and a reflection may hide the change. The search is cheap enough to be
// made each time.
constexpr double kAnyChangeOfSlope = 0.0;

void SetSettings(TSorData& record, const Monitoring& monitoring) {
  TSorBlockRFTSParameters& block = *record.RFTSParams;
  block.SetTNUP(0);
  block.SetUseUParameters(true);
  SetSetting(block, "EvtDetectDeltaCT", kAnyChangeOfSlope);
  // A new event counts from the same loss as a change of an event.
  SetSetting(block, "AutoLT", std::max(monitoring.ltDb, TRFTSUParams().AutoLT));
  for (const auto& [name, value] : monitoring.settings) SetSetting(block, name, value);
}

// Where to search between two events. The place of an event is known to a pulse or two where pulses are long
// or noise is near; a find nearer to it than that is the event itself. Behind an event the search waits until
// the table's section begins, but not long: a section may have been cut down to the part whose slope could be
// trusted, and that may begin close to the next event.
void ClearSearch(TSorData& record) {
  constexpr double kNearPulses = 3.0;
  constexpr double kFarPulses = 5.0, kFarKm = 0.5;
  const TSorBlockKeyEvents& events = *record.KeyEvents;
  TSorBlockQRTEvents& sections = *record.QRTEvents;
  if (sections.ListedEvents() + 1 != events.ListedEvents()) return;
  const double pulseOwt = record.FxdParams->GetOwtPulse(0);
  const int nearOwt = TruncToInt(kNearPulses * pulseOwt);
  const int farOwt = TruncToInt(std::max(kFarPulses * pulseOwt, record.dLenToOwt(kFarKm)));
  for (int i = 0; i < sections.ListedEvents(); ++i) {
    TSorBlockQRTEvents1E& section = sections.EventAt(i);
    const int before = events.EventAt(i).EPT, behind = events.EventAt(i + 1).EPT;
    const int from = std::clamp(section.ML0, before + nearOwt, before + farOwt);
    if (from >= behind - nearOwt) continue;
    section.ML0 = from;
    section.ML1 = behind - nearOwt;
    RefEventRecalculate(&record, &section);
  }
}

void AddStretch(TSorData& record, const Stretch& stretch) {
  auto section = std::make_unique<TSorBlockQRTEvents1E>();
  section->ML0 = TruncToInt(record.LenToOwt(stretch.fromKm) + 0.5);
  section->ML1 = TruncToInt(record.LenToOwt(stretch.toKm) + 0.5);
  section->LMT = "LS";
  section->EC = "DU9999";
  if (RefEventAdd(&record, section.get()) != 0) {
    throw Error(ErrorKind::kUsage, "",
                Format("the stretch from %g to %g km is not on the trace, which goes from %.3f to %.3f km",
                       stretch.fromKm, stretch.toKm, record.GetMinLen(), record.GetMaxLen()));
  }
  section.release();
}

// Lets each section end clear of its event. An event's place is known to a few points only, and another
// acquisition has its points elsewhere. A point that stands on the foot of a reflection would be taken for
// the level before it.
void ClearSectionEnds(TSorData& record) {
  constexpr double kClearPoints = 3.0;
  constexpr double kShortestSectionPoints = 30.0;
  const double spacingOwt = record.FxdParams->GetOwtDS(0);
  for (int i = 1; i < record.KeyEvents->ListedEvents(); ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    const double clearOwt = event.EPT - kClearPoints * spacingOwt;
    if (event.ML1 > event.EPT || event.ML1 <= clearOwt) continue;
    if (clearOwt - event.ML0 < kShortestSectionPoints * spacingOwt) continue;
    event.ML1 = TruncToInt(clearOwt);
  }
}

// A file can hold losses of up to 32.767 dB. That of a fibre's end reaches down to the bottom of the scale
// and may be larger; cut, it would differ from the whole loss of the current trace and look like another end.
void RegainLargestLosses(TSorData& record) {
  constexpr short kLargestOnFile = 32767;
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    if (event.EL != kLargestOnFile) continue;
    TSorBlockKeyEvents1E measured(event);
    RefEventSCalculate(&record, &measured);
    if (measured.EL == kLargestOnFile) event.ELWide = measured.ELWide;
  }
}

// The comparison takes the end for unchanged as long as its loss is. But noise, too, falls to the bottom of
// the scale, and now and then by what the end of the fibre did. Where light came to the end and comes no
// more, the end gets a loss that no place on a trace has, so that it is searched anew.
void ForgetEndInTheDark(TSorData& baseline, const TSorData& current) {
  constexpr int kNoLoss = 1000000;  // thousandths of dB
  const int last = baseline.KeyEvents->ListedEvents() - 1;
  if (last < 1) return;
  TSorBlockKeyEvents1E& end = baseline.KeyEvents->EventAt(last);
  if (end.IsEOF() && EndsInTheDark(baseline, current)) end.ELWide = kNoLoss;
}

}  // namespace

void MakeBaselineOf(TSorData& record, const Monitoring& monitoring) {
  // A comparison measures the events on the raw points of the current trace. Losses that were measured
  // otherwise (on a smoothed trace, by another maker's analysis, as the mean of two directions) would differ
  // from that by their method alone.
  GiveReceiverRate(record);
  TSorFilter(&record).SetFilter(0);
  ClearSectionEnds(record);
  RefEventRecalculate(&record, record.KeyEvents, 0);
  SetLevel(record, monitoring);
  SetSettings(record, monitoring);
  if (monitoring.search.empty()) {
    RefEventSORToQRTSync(&record);
    ClearSearch(record);
  } else {
    record.QRTEvents->events->Clear();
    record.QRTEvents->TNE = 0;
    for (const Stretch& stretch : monitoring.search) AddStretch(record, stretch);
  }
  // A baseline holds no result, even if it was the current trace of an earlier comparison.
  record.RFTSEvents->Assign(TSorBlockRFTSEvents());
  record.WriteProprietaryBlocks = 1;
  HoldMarkers(record);
}

void HoldMarkers(TSorData& record) {
  constexpr short kFirstWithMarkers = 200;
  record.Revision = std::max(record.Revision, kFirstWithMarkers);
}

void MakeComparable(TSorData& baseline, TSorData& current) {
  RegainLargestLosses(baseline);
  ForgetEndInTheDark(baseline, current);
  TSorBlockQRTParameters &baselineParams = *baseline.QRTParams, &params = *current.QRTParams;
  // Smoothing makes reflections lower.
  if (baselineParams.isFilter() != params.isFilter()) {
    TSorFilter(&baseline).SetFilter(0);
    TSorFilter(&current).SetFilter(0);
  }
  if (baselineParams.modes.empty() || params.modes.empty()) return;
  short &baselineBandwidth = baselineParams.modes[0].BWU1, &bandwidth = params.modes[0].BWU1;
  if (baselineBandwidth == 0) baselineBandwidth = bandwidth;
  if (bandwidth == 0) bandwidth = baselineBandwidth;
}

}  // namespace reflyze
