// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <utility>

#include "lib/Baseline.h"
#include "lib/CompareTable.h"
#include "lib/Engine.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"
#include "lib/MeasuredChange.h"
#include "measure/PlausibleComparison.h"
#include "reflyze/version.h"

namespace reflyze {
namespace {

// Warnings of what makes a comparison worse but not impossible.
void WarnOfOtherMeasurement(const LoadedRecord& baseline, const LoadedRecord& current,
                            std::vector<Warning>& warnings) {
  constexpr double kSameShare = 0.02;
  const double nmA = WavelengthNm(*baseline.record), nmB = WavelengthNm(*current.record);
  const double nsA = baseline.record->FxdParams->GetNsPulse(0.0);
  const double nsB = current.record->FxdParams->GetNsPulse(0.0);
  const auto warn = [&](const char* how, double a, double b, const char* unit) {
    if (std::fabs(a - b) <= kSameShare * a) return;
    warnings.push_back({current.name, Format("was measured %s %.0f %s, and %s %s %.0f %s", how, b, unit,
                                             baseline.name.c_str(), how, a, unit)});
  };
  warn("at", nmA, nmB, "nm");
  warn("with a pulse of", nsA, nsB, "ns");
}

// Where another fibre was found, the comparison gives no more results than that.
bool HoldsResults(const TSorData& record) {
  const TSorBlockRFTSEvents& results = *record.RFTSEvents;
  const int events = record.KeyEvents->ListedEvents();
  if (results.IsEmpty()) return false;
  return results.GetMonitorResult() == mrNoLink || (events > 0 && results.GetTNRFTSE() == events);
}

// Refuses records that the comparison can't take: without events in the baseline, or, for a recheck, without
// results in the current trace.
void RequireUsable(const LoadedRecord& baseline, const LoadedRecord& current, bool recheck) {
  // What the end of a cut file has taken away reads as defaults, and a limit that was never set raises no
  // alarm.
  if (baseline.Truncated())
    throw Error(ErrorKind::kUnreadable, baseline.name,
                "ends before its map says: limits may be missing from it");
  const int watched = baseline.record->KeyEvents->ListedEvents();
  const TRFTSLevel* level = baseline.record->RFTSParams->GetActiveLevel();
  if (level == nullptr) return;  // the comparison answers that by itself
  if (level->GetName().Len() == 0)
    throw Error(ErrorKind::kUnreadable, baseline.name,
                "its alarm level has no name, so that results can't be kept");
  if (watched == 0)
    throw Error(ErrorKind::kUnreadable, baseline.name, "has an alarm level, but no events to watch");
  if (level->GetTNTS() < watched)
    throw Error(ErrorKind::kUnreadable, baseline.name,
                "its alarm level has limits for " + Format("%d of its %d events", level->GetTNTS(), watched));
  if (recheck && !HoldsResults(*current.record))
    throw Error(ErrorKind::kUnreadable, current.name, "holds no results of a comparison to check again");
}

// Whether to give the answer of a module to two records as they are, or the best answer to two records made
// alike.
enum class Answer { kOfModule, kBest };

int ResultOf(AnalysisService& service, TSorData& baseline, TSorData& current, bool recheck, Answer answer) {
  const auto compare = [&](TSorData& base, TSorData& trace) { return service.Compare(base, trace, recheck); };
  if (answer == Answer::kOfModule) return compare(baseline, current);
  MakeComparable(baseline, current);
  if (recheck) return compare(baseline, current);
  return TellBreakBeforeTheDark(baseline, current, ComparePlausibly(baseline, current, compare));
}

// The comparison knows neither files nor versions. Its host notes them.
void NoteOrigin(const LoadedRecord& baseline, TSorData& current) {
  const std::string& path = baseline.name;
  current.RFTSEvents->SetBaseSorName(path.substr(path.rfind('/') + 1).c_str());
  current.RFTSEvents->MonitorVersion = ModuleVersion().c_str();
  HoldMarkers(current);
}

Comparison CompareAs(Answer answer, AnalysisService& service, Trace baselineTrace, Trace currentTrace,
                     const CompareOptions& options, MeasuredBaselines* memory = nullptr) {
  LoadedRecord baseline = ForMeasuring(std::move(baselineTrace));
  LoadedRecord current = ForMeasuring(std::move(currentTrace));
  RequireUsable(baseline, current, options.recheck);
  Comparison table;
  CallEngine(baseline.name + ", " + current.name, "is not a trace that can be compared", [&] {
    const int result = ResultOf(service, *baseline.record, *current.record, options.recheck, answer);
    table = MakeCompareTable(baseline, current, result,
                             answer == Answer::kOfModule ? Numbers::kAsStored : Numbers::kMeasured);
    if (answer == Answer::kBest) HoldAgainstMeasured(*baseline.record, *current.record, table, memory);
  });
  table.recheck = options.recheck;
  current.record->WriteProprietaryBlocks = 1;  // the results are in one of these blocks
  if (answer == Answer::kBest) NoteOrigin(baseline, *current.record);
  table.warnings = WarningsOf(baseline);
  for (Warning& warning : WarningsOf(current)) table.warnings.push_back(std::move(warning));
  WarnOfOtherMeasurement(baseline, current, table.warnings);
  table.record = Keep(current);
  return table;
}

}  // namespace

Comparison Compare(Trace baseline, Trace current, const CompareOptions& options) {
  return CompareAs(Answer::kBest, Engine(), std::move(baseline), std::move(current), options);
}

Comparison Compare(Trace baseline, Trace current, BaselineMemory& memory, const CompareOptions& options) {
  return CompareAs(Answer::kBest, Engine(), std::move(baseline), std::move(current), options, &memory.Held());
}

Comparison CompareBy(AnalysisService& service, Trace baseline, Trace current, const CompareOptions& options) {
  return CompareAs(Answer::kOfModule, service, std::move(baseline), std::move(current), options);
}

}  // namespace reflyze
