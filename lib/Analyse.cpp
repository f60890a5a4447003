// SPDX-License-Identifier: Apache-2.0
#include "lib/AnalysedRecord.h"
#include "lib/Engine.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"

namespace reflyze {
namespace {

// The table of a record that has just been analysed, with warnings about the trace.
EventTable TableOf(LoadedRecord loaded, const std::optional<TTH>& thresholds, Numbers numbers,
                   bool dropUnknown) {
  EventTable table = MakeEventTable(loaded, thresholds, numbers);
  if (dropUnknown) loaded.record->WriteSpecialBlocks = 0;
  table.warnings = WarningsOf(loaded);
  if (!KnowsBackscatter(*loaded.record)) {
    table.warnings.push_back(
        {loaded.name, "states no backscatter coefficient, without which no reflectance can be told"});
  }
  table.record = Keep(loaded);
  return table;
}

}  // namespace

EventTable Analyse(Trace trace, const AnalyseOptions& options) {
  LoadedRecord loaded = ForMeasuring(std::move(trace));
  TTH thresholds = ThresholdsFor(*loaded.record, options);
  ExplainingEngine explaining;
  AnalysisService& engine = options.explain ? explaining : Engine();
  AnalyseBest(engine, loaded, thresholds, options.endsOnly);
  EventTable table = TableOf(std::move(loaded), thresholds, Numbers::kMeasured, options.dropUnknown);
  table.reasons = explaining.TakeReasons();
  return table;
}

EventTable AnalyseBy(AnalysisService& service, Trace trace, const AnalyseOptions& options) {
  LoadedRecord loaded = ForMeasuring(std::move(trace));
  TTH thresholds = ThresholdsFor(*loaded.record, options);
  CallEngine(loaded.name, "is not a trace that can be analysed",
             [&] { service.Analyse(*loaded.record, thresholds, options.endsOnly); });
  return TableOf(std::move(loaded), thresholds, Numbers::kAsStored, options.dropUnknown);
}

EventTable StoredEvents(Trace trace, Numbers numbers) {
  return TableOf(ForMeasuring(std::move(trace)), std::nullopt, numbers, false);
}

}  // namespace reflyze
