// SPDX-License-Identifier: Apache-2.0
#include "lib/AnalysedRecord.h"

#include <cmath>

#include "lib/Engine.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"
#include "measure/Plausible.h"

namespace reflyze {
namespace {

constexpr double kNoReflectanceDb = -200.0;  // far below any backscatter

// Whether any event has a section on the trace before it.
bool HasMarkers(const TSorData& record) {
  for (int i = 1; i < record.KeyEvents->ListedEvents(); ++i) {
    const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    if (event.ML0 >= record.GetMinOwt() && event.ML0 < event.ML1 && event.ML1 <= record.GetMaxOwt())
      return true;
  }
  return false;
}

}  // namespace

AnalysedRecord WithEvents(Trace trace, const AnalyseOptions& options, bool anew) {
  AnalysedRecord analysed;
  analysed.loaded = ForMeasuring(std::move(trace));
  const TSorData& record = *analysed.loaded.record;
  if (!anew && HasMarkers(record)) return analysed;
  analysed.eventsReplaced = !anew && record.KeyEvents->ListedEvents() > 1;  // a launch alone has no section
  TTH thresholds = ThresholdsFor(record, options);
  AnalyseBest(Engine(), analysed.loaded, thresholds, false);
  analysed.thresholds = thresholds;
  return analysed;
}

void AnalyseBest(AnalysisService& engine, LoadedRecord& loaded, TTH& thresholds, bool endsOnly) {
  TSorData& record = *loaded.record;
  CallEngine(loaded.name, "is not a trace that can be analysed", [&] {
    AnalysePlausibly(record, thresholds, [&](TTH& values) { engine.Analyse(record, values, false); });
    if (endsOnly) engine.Analyse(record, thresholds, true);
  });
}

std::optional<MeasuredTable> AnalyseAndMeasure(AnalysisService& engine, LoadedRecord& loaded, TTH& thresholds,
                                               bool endsOnly) {
  AnalyseBest(engine, loaded, thresholds, false);
  std::optional<MeasuredTable> measured;
  CallEngine(loaded.name, "is not a trace that can be measured", [&] {
    measured = MeasureTable(*loaded.record);
    if (endsOnly && measured) KeepMeasuredEnds(*loaded.record, *measured);
    if (endsOnly && !measured) engine.Analyse(*loaded.record, thresholds, true);
  });
  return measured;
}

std::vector<Warning> WarningsOf(const AnalysedRecord& analysed) {
  std::vector<Warning> warnings = WarningsOf(analysed.loaded);
  if (analysed.eventsReplaced) {
    warnings.push_back({analysed.loaded.name,
                        "its events don't tell the sections that they were measured on; analysed anew"});
  }
  return warnings;
}

void WarnIfOtherWavelength(const LoadedRecord& one, const LoadedRecord& other,
                           std::vector<Warning>& warnings) {
  constexpr double kSameShare = 0.02;
  const double nm = WavelengthNm(*one.record), otherNm = WavelengthNm(*other.record);
  if (std::fabs(nm - otherNm) <= kSameShare * nm) return;
  warnings.push_back(
      {other.name, Format("was measured at %.0f nm, and %s at %.0f nm", otherNm, one.name.c_str(), nm)});
}

UnmeasuredReflectances::UnmeasuredReflectances(TSorData& record) {
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    if (event.ER != 0) continue;
    event.SetER(kNoReflectanceDb);
    events_.push_back(&event);
  }
}

UnmeasuredReflectances::~UnmeasuredReflectances() {
  for (TSorBlockKeyEvents1E* event : events_) event->ER = 0;
}

}  // namespace reflyze
