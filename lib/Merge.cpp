// SPDX-License-Identifier: Apache-2.0
#include "lib/AnalysedRecord.h"
#include "lib/Directions.h"
#include "lib/EngineCall.h"
#include "lib/MergeTable.h"
#include "lib/StoredBlocks.h"
#include "ref/events/refEvent.h"
#include "ref/events/refEventBiDir.h"

namespace reflyze {
namespace {

// Why two traces are no two directions of one fibre, in words: what the merge has found, and the ends as they
// stood before it.
[[noreturn]] void RefuseMerge(int code, const LoadedRecord& a, double endA, const LoadedRecord& b,
                              double endB) {
  const TSorBlockFixedParameters &fixedA = *a.record->FxdParams, &fixedB = *b.record->FxdParams;
  std::string why =
      Format("its fibre ends at %.4f km, and that of %s at %.4f km: too far apart for one fibre", endB,
             a.name.c_str(), endA);
  if (code == 1) {
    why = Format("was measured with a pulse of %.0f ns, and %s with one of %.0f ns; both must have the same",
                 fixedB.GetNsPulse(0.0), a.name.c_str(), fixedA.GetNsPulse(0.0));
  } else if (code == 2) {
    why = Format("has its points %.4f m apart, and %s %.4f m; both must have the same spacing",
                 fixedB.LenDS() * 1000.0, a.name.c_str(), fixedA.LenDS() * 1000.0);
  } else if (endA == endB) {
    throw Error(ErrorKind::kUnreadable, a.name,
                "nothing in it says how far the place of its end can be trusted");
  }
  throw Error(ErrorKind::kUnreadable, b.name, why);
}

double EndKm(const LoadedRecord& loaded) {
  const TSorBlockKeyEvents& table = *loaded.record->KeyEvents;
  if (table.ListedEvents() < 2)
    throw Error(ErrorKind::kUnreadable, loaded.name, "has no two events, launch and end of the fibre");
  return loaded.record->OwtToLen(table.EventAt(table.ListedEvents() - 1).EPT);
}

// Brings the blocks that have an entry for each event in step with the merged table.
void TellInsertedEvents(TSorData& record, const OwnEvents& own) {
  const int count = record.KeyEvents->ListedEvents();
  for (int i = 0; i < count; ++i) {
    if (own.count(&record.KeyEvents->EventAt(i)) > 0) continue;
    record.RFTSParams->OnKeyEventAdd(i);
    record.RFTSEvents->OnKeyEventAdd(i);
    record.LnkParams->OnKeyEventAdd(i);
  }
  if (own.size() < static_cast<size_t>(count)) RefEventENSync(&record);
}

MergedTable MergeRecords(LoadedRecord& a, LoadedRecord& b) {
  const double endA = EndKm(a), endB = EndKm(b);
  const OwnEvents ownA = OwnEventsOf(*a.record), ownB = OwnEventsOf(*b.record);
  MergedTable table;
  CallEngine(a.name + ", " + b.name, "is not a trace that can be merged", [&] {
    int code = 0;
    {
      const UnmeasuredReflectances unmeasuredA(*a.record), unmeasuredB(*b.record);
      code = MatchBiDir(a.record.get(), b.record.get());
    }
    if (code != 0) RefuseMerge(code, a, endA, b, endB);
    TellInsertedEvents(*a.record, ownA);
    TellInsertedEvents(*b.record, ownB);
    table = MakeMergedTable({a, ownA, MeasureListed(*a.record)}, {b, ownB, MeasureListed(*b.record)});
    AverageBiDir(a.record.get(), b.record.get());
    TakeMeanLosses(*a.record, table);
  });
  return table;
}

// A table that was found here is measured before the other direction's events come into it.
void MeasureOwn(AnalysedRecord& analysed) {
  if (!analysed.thresholds) return;
  CallEngine(analysed.loaded.name, "is not a trace that can be measured",
             [&] { MeasureTable(*analysed.loaded.record); });
}

bool AnyIn(const MergeOptions& options) {
  const Thresholds& asked = options.thresholds;
  return asked.lossDb || asked.reflectanceDb || asked.endDb || asked.slopeDbPerKm ||
         options.document.section() != nullptr;
}

}  // namespace

MergedTable Merge(Trace traceA, Trace traceB, const MergeOptions& options) {
  AnalyseOptions analysis;
  analysis.thresholds = options.thresholds;
  analysis.document = options.document;
  const bool anew = AnyIn(options);  // who gives thresholds wants an analysis
  AnalysedRecord a = WithEvents(std::move(traceA), analysis, anew);
  AnalysedRecord b = WithEvents(std::move(traceB), analysis, anew);
  RequireTwoTraces(a.loaded, b.loaded);
  MeasureOwn(a);
  MeasureOwn(b);
  const std::vector<std::string> doubts = DoubtsOfTwoDirections(a.loaded, b.loaded);
  MergedTable table = MergeRecords(a.loaded, b.loaded);
  for (const AnalysedRecord* analysed : {&a, &b}) {
    for (Warning& warning : WarningsOf(*analysed)) table.warnings.push_back(std::move(warning));
    const std::string stays = UnknownBlocksStay(*analysed->loaded.record, analysed->loaded.texts);
    if (!stays.empty()) table.warnings.push_back({analysed->loaded.name, stays});
  }
  WarnIfOtherWavelength(a.loaded, b.loaded, table.warnings);
  for (const std::string& doubt : doubts) table.warnings.push_back({b.loaded.name, doubt});
  table.recordA = Keep(a.loaded);
  table.recordB = Keep(b.loaded);
  return table;
}

}  // namespace reflyze
