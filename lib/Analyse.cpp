// SPDX-License-Identifier: Apache-2.0
#include "lib/AnalysedRecord.h"
#include "lib/Engine.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"

namespace reflyze {
namespace {

// Warnings about the trace.
std::vector<Warning> WarningsOfTrace(const LoadedRecord& loaded, const MeasuredLink* link) {
  std::vector<Warning> warnings = WarningsOf(loaded);
  for (Warning& warning : WarningsOfBackscatter(loaded.name, *loaded.record, link))
    warnings.push_back(std::move(warning));
  return warnings;
}

// The table of a record as it stands.
EventTable TableOf(const LoadedRecord& loaded, const std::optional<TTH>& thresholds, Numbers numbers) {
  EventTable table = MakeEventTable(loaded, thresholds, numbers);
  table.warnings = WarningsOfTrace(loaded, nullptr);
  return table;
}

// The table takes the record.
void KeepRecord(LoadedRecord& loaded, bool dropUnknown, EventTable& table) {
  if (dropUnknown) loaded.record->WriteSpecialBlocks = 0;
  table.record = Keep(loaded);
}

// The table of a record that has just been searched, with what was measured; without that, as it was found.
EventTable MeasuredTableOf(const LoadedRecord& loaded, const TTH& thresholds,
                           const std::optional<MeasuredTable>& measured) {
  const MeasuredLink* link = measured ? &measured->link : nullptr;
  EventTable table = MakeEventTable(loaded, thresholds, Numbers::kMeasured,
                                    measured ? std::optional<bool>(link->fibre) : std::nullopt);
  if (measured) {
    TakeMeasured(*loaded.record, *measured, table);
  } else {
    TakeUnmeasured(*loaded.record, table);
  }
  table.warnings = WarningsOfTrace(loaded, link);
  if (!measured && table.fibre) table.warnings.push_back(NotMeasured(loaded.name));
  return table;
}

}  // namespace

EventTable Analyse(Trace trace, const AnalyseOptions& options) {
  LoadedRecord loaded = ForMeasuring(std::move(trace));
  TTH thresholds = ThresholdsFor(*loaded.record, options);
  ExplainingEngine explaining;
  AnalysisService& engine = options.explain ? explaining : Engine();
  const std::optional<MeasuredTable> measured =
      AnalyseAndMeasure(engine, loaded, thresholds, options.endsOnly);
  EventTable table = MeasuredTableOf(loaded, thresholds, measured);
  KeepRecord(loaded, options.dropUnknown, table);
  table.reasons = explaining.TakeReasons();
  return table;
}

EventTable AnalyseBy(AnalysisService& service, Trace trace, const AnalyseOptions& options) {
  LoadedRecord loaded = ForMeasuring(std::move(trace));
  TTH thresholds = ThresholdsFor(*loaded.record, options);
  CallEngine(loaded.name, "is not a trace that can be analysed",
             [&] { service.Analyse(*loaded.record, thresholds, options.endsOnly); });
  EventTable table = TableOf(loaded, thresholds, Numbers::kAsStored);
  KeepRecord(loaded, options.dropUnknown, table);
  return table;
}

EventTable StoredEvents(Trace trace, Numbers numbers) {
  LoadedRecord loaded = ForMeasuring(std::move(trace));
  EventTable table = TableOf(loaded, std::nullopt, numbers);
  KeepRecord(loaded, false, table);
  return table;
}

}  // namespace reflyze
