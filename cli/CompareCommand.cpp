#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>

#include "cli/Baseline.h"
#include "cli/CompareTable.h"
#include "cli/EngineCall.h"
#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Text.h"
#include "cli/UsableTrace.h"
#include "measure/PlausibleComparison.h"

namespace reflyze::cli {
namespace {

struct CompareOptions {
  std::string baseline, current;
  std::string output;
  bool recheck = false;
  bool module = false;  // its answer alone
  std::string format = "text";
};

// What hampers a comparison without forbidding it.
void WarnOfOtherMeasurement(Session& session, const LoadedRecord& baseline, const LoadedRecord& current) {
  constexpr double kSameShare = 0.02;
  const double nmA = WavelengthNm(*baseline.record), nmB = WavelengthNm(*current.record);
  const double nsA = baseline.record->FxdParams->GetNsPulse(0.0);
  const double nsB = current.record->FxdParams->GetNsPulse(0.0);
  const auto warn = [&](const char* how, double a, double b, const char* unit) {
    if (std::fabs(a - b) <= kSameShare * a) return;
    session.Warn(current.name + Format(": warning: was measured %s %.0f %s, and %s %s %.0f %s", how, b, unit,
                                       baseline.name.c_str(), how, a, unit));
  };
  warn("at", nmA, nmB, "nm");
  warn("with a pulse of", nsA, nsB, "ns");
}

// Where another fibre was found there are no more results than that.
bool HoldsResults(const TSorData& record) {
  const TSorBlockRFTSEvents& results = *record.RFTSEvents;
  const int events = record.KeyEvents->ListedEvents();
  if (results.IsEmpty()) return false;
  return results.GetMonitorResult() == mrNoLink || (events > 0 && results.GetTNRFTSE() == events);
}

// Records that the comparison can't take: there would be nothing to lay on the other trace, or nothing to
// hold against limits again.
void RequireUsable(const LoadedRecord& baseline, const LoadedRecord& current, bool recheck) {
  // What a cut has taken reads as defaults, and a limit that nobody has set keeps silent.
  if (baseline.Truncated())
    throw Problem(kUnreadable, baseline.name + ": ends before its map says: limits may be missing from it");
  const int watched = baseline.record->KeyEvents->ListedEvents();
  const TRFTSLevel* level = baseline.record->RFTSParams->GetActiveLevel();
  if (level == nullptr) return;  // the comparison has its own answer to that
  if (level->GetName().Len() == 0)
    throw Problem(kUnreadable,
                  baseline.name + ": its alarm level has no name, so that results can't be kept");
  if (watched == 0)
    throw Problem(kUnreadable, baseline.name + ": has an alarm level, but no events to watch");
  if (level->GetTNTS() < watched)
    throw Problem(kUnreadable, baseline.name + ": its alarm level has limits for " +
                                   Format("%d of its %d events", level->GetTNTS(), watched));
  if (recheck && !HoldsResults(*current.record))
    throw Problem(kUnreadable, current.name + ": holds no results of a comparison to check again");
}

// The answer of the module to two records as they are, or, where not only that is asked for, the best answer
// to two records made alike.
CompareTable Compare(Session& session, LoadedRecord& baseline, LoadedRecord& current, bool recheck,
                     bool moduleOnly) {
  RequireUsable(baseline, current, recheck);
  TSorData& record = *current.record;
  CompareTable table;
  CallEngine(baseline.name + ", " + current.name, "compared", [&] {
    if (!moduleOnly) MakeComparable(*baseline.record, record);
    const auto compare = [&](TSorData& base, TSorData& trace) {
      return session.Module().Compare(base, trace, recheck);
    };
    const int result = recheck || moduleOnly ? compare(*baseline.record, record)
                                             : ComparePlausibly(*baseline.record, record, compare);
    table = MakeCompareTable(*baseline.record, record, result,
                             moduleOnly ? Numbers::kAsStored : Numbers::kMeasured);
  });
  table.baselineFile = baseline.given;
  table.file = current.given;
  table.recheck = recheck;
  record.WriteProprietaryBlocks = 1;  // results are in such a block
  if (moduleOnly) return table;
  // The comparison knows neither files nor versions; its host notes them.
  const std::string& path = baseline.name;
  record.RFTSEvents->SetBaseSorName(path.substr(path.rfind('/') + 1).c_str());
  record.RFTSEvents->MonitorVersion = session.Module().Version().c_str();
  HoldMarkers(record);
  return table;
}

int RunCompare(Session& session, const CompareOptions& options) {
  LoadedRecord baseline = LoadRecord(session, options.baseline, NeedPoints::kYes);
  LoadedRecord current = LoadRecord(session, options.current, NeedPoints::kYes);
  const CompareTable table = Compare(session, baseline, current, options.recheck, options.module);
  if (!options.output.empty()) SaveRecord(*current.record, options.output);
  for (const LoadedRecord* loaded : {&baseline, &current}) WarnOfFile(session, *loaded);
  if (!options.output.empty()) WarnOfSecondTable(session, current);
  WarnOfOtherMeasurement(session, baseline, current);
  session.Print(options.format == "json" ? JsonOf(table) : TextOf(table));
  return table.Changed() ? kChanged : kDone;
}

}  // namespace

void AddCompareCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CompareOptions>();
  CLI::App* command =
      app.add_subcommand("compare", "Tell what changed since the baseline; status 1 if anything did");
  command->add_option("BASELINE", options->baseline, "SOR file that reflyze baseline made")
      ->required()
      ->check(InputName());
  command->add_option("CURRENT", options->current, "SOR file of the same fibre, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("-o,--output", options->output, "Store the current record with its results")
      ->check(OutputName());
  command->add_flag("--recheck", options->recheck,
                    "Hold the results in CURRENT, stored by an earlier comparison, against the limits again");
  command->add_flag("--module", options->module,
                    "Show what the analysis module itself answers to the two records as they are");
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCompare(running, *options); };
  });
}

}  // namespace reflyze::cli
