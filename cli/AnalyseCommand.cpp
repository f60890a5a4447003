#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "cli/Analysis.h"
#include "cli/Aside.h"
#include "cli/EngineCall.h"
#include "cli/EventTable.h"
#include "cli/Options.h"
#include "cli/OrderedWork.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Stretches.h"
#include "cli/Text.h"
#include "cli/UsableTrace.h"

namespace reflyze::cli {
namespace {

constexpr unsigned kMostJobs = 1024;

struct AnalyseOptions {
  std::vector<std::string> traces;
  std::string output;
  bool endsOnly = false;
  bool module = false;  // its answer alone
  bool dropUnknown = false;
  ThresholdOptions thresholds;
  std::string format = "text";
  unsigned jobs = 0;  // 0: as many as the machine has cores
  bool quiet = false;
};

std::string Listing(const EventTable& table, const std::string& format) {
  if (format == "json") return JsonOf(table);
  if (format == "csv") return CsvOf(table);
  return TextOf(table);
}

// What a reader of the table should know of the trace, beside what its file is worth.
void AddWarnings(LoadedRecord& loaded, bool storesUnknown) {
  if (!KnowsBackscatter(*loaded.record))
    loaded.warnings.push_back("states no backscatter coefficient, without which no reflectance can be told");
  const std::string kept = storesUnknown ? UnknownBlocksStay(*loaded.record) : "";
  if (!kept.empty()) loaded.warnings.push_back(kept + " (--drop-unknown leaves them out)");
}

// What stands between two listings.
std::string Between(const std::string& format) { return format == "text" ? "\n" : ""; }

// Standard input can be read once, and by the first that asks for it, whichever thread is faster.
void RequireFirstOfStandardInput(const std::vector<std::string>& traces, size_t index) {
  if (traces[index] != "-" || std::find(traces.begin(), traces.end(), "-") == traces.begin() + index) return;
  throw Problem(kUnreadable, "standard input: was read for an earlier trace");
}

// Several traces in a file are each a record of its own, under the one name.
std::vector<LoadedRecord> TracesOf(LoadedRecord loaded) {
  std::vector<LoadedRecord> traces;
  const int count = TracesIn(*loaded.record);
  if (count < 2) {
    traces.push_back(std::move(loaded));
    return traces;
  }
  for (int i = 0; i < count; ++i) {
    LoadedRecord trace;
    trace.given = loaded.given;
    trace.name = loaded.name;
    trace.record = TraceOf(*loaded.record, i);
    traces.push_back(std::move(trace));
  }
  traces.front().warnings = loaded.warnings;
  return traces;
}

std::string AnalyseTrace(Session& session, const AnalyseOptions& options, const ThresholdSource& source,
                         LoadedRecord& loaded) {
  TTH thresholds = source.For(*loaded.record);
  const auto analyse = options.module ? AnalyseByModule : Analyse;
  analyse(session, loaded, thresholds, options.endsOnly);
  EventTable table = MakeEventTable(loaded.given, *loaded.record, thresholds,
                                    options.module ? Numbers::kAsStored : Numbers::kMeasured);
  if (options.dropUnknown) loaded.record->WriteSpecialBlocks = 0;
  AddWarnings(loaded, !options.output.empty() && !options.dropUnknown);
  table.warnings = loaded.warnings;
  if (!options.output.empty()) SaveRecord(*loaded.record, options.output);
  WarnOfFile(session, loaded);
  return Listing(table, options.format);
}

std::string AnalyseFile(Session& session, const AnalyseOptions& options, const ThresholdSource& source,
                        size_t index) {
  RequireFirstOfStandardInput(options.traces, index);
  const bool stored = !options.output.empty();  // as one trace
  std::string listing;
  for (LoadedRecord& trace : TracesOf(
           LoadRecord(session, options.traces[index], stored ? NeedPoints::kYes : NeedPoints::kSeveral))) {
    if (!listing.empty()) listing += Between(options.format);
    listing += AnalyseTrace(session, options, source, trace);
  }
  return listing;
}

// What comes of one trace.
struct Outcome {
  std::optional<std::string> listing;  // none where the trace could not be analysed
  int status = kDone;
  Sayings sayings;  // warnings, errors and log entries
};

// Whatever is wrong with a trace, it is that trace's line on standard error and not the end of the others.
Outcome AnalyseAside(Session& session, const AnalyseOptions& options, const ThresholdSource& source,
                     size_t index) {
  Outcome outcome;
  const Aside aside(outcome.sayings);
  const std::string name = options.traces[index] == "-" ? "standard input" : options.traces[index];
  try {
    CallEngine(name, "listed", [&] { outcome.listing = AnalyseFile(session, options, source, index); });
  } catch (const Problem& problem) {
    session.Warn(problem.what());
    outcome.status = problem.status();
  } catch (const std::exception& error) {
    session.Warn(name + ": " + error.what());
    outcome.status = kUnreadable;
  }
  return outcome;
}

// One result a trace, in order. Traces are analysed on several threads, each with an engine and a record of
// its own. What they share is filled before they start and only read then: the module with its tables, the
// texts of the thresholds, the options. Warnings and the log are spoken in order by this thread. Standard
// input belongs to one trace, and only a single trace is stored.
int RunAnalyse(Session& session, const AnalyseOptions& options) {
  int status = kDone;
  const ThresholdSource source(session, options.thresholds);
  session.Module();
  const size_t total = options.traces.size();
  OrderedWork<Outcome> work(total, options.jobs != 0 ? options.jobs : std::thread::hardware_concurrency(),
                            [&](size_t index) { return AnalyseAside(session, options, source, index); });
  // Stands before the next listing: a heading once, and an empty line between texts.
  std::string before = options.format == "csv" ? CsvHeader() : "";
  for (size_t i = 0; i < total; ++i) {
    if (!options.quiet) session.Progress(i + 1, total, options.traces[i]);
    const Outcome outcome = work.Next();
    if (!options.quiet) session.Progress(0, 0, "");
    for (const auto& say : outcome.sayings) say();
    status = std::max(status, outcome.status);
    if (!outcome.listing) continue;
    session.Print(before + *outcome.listing);
    before = Between(options.format);
  }
  return status;
}

}  // namespace

void AddAnalyseCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<AnalyseOptions>();
  CLI::App* command = app.add_subcommand("analyse", "Find the events of a trace and print the event table");
  command
      ->add_option("TRACE", options->traces, "SOR file, or - for standard input; several give a result each")
      ->required()
      ->check(InputName());
  command->add_option("-o,--output", options->output, "Store the record with its event table")
      ->check(OutputName());
  command->add_flag("--ends-only", options->endsOnly, "Keep only the first and the last event");
  command->add_flag("--module", options->module, "Show what the analysis module itself answers");
  command
      ->add_flag("--drop-unknown", options->dropUnknown,
                 "Store no blocks that no one here knows, such as a maker's own event table")
      ->needs("--output");
  AddThresholdOptions(*command, options->thresholds);
  command->add_option("--format", options->format, "text, json (one object a line) or csv")
      ->check(CLI::IsMember({"text", "json", "csv"}))
      ->capture_default_str();
  command
      ->add_option("-j,--jobs", options->jobs,
                   "Traces to analyse at once; as many as there are cores, if not given")
      ->check(NumberBetween(1, kMostJobs));
  command->add_flag("-q,--quiet", options->quiet, "Don't show on a terminal which trace is being analysed");
  command->callback([options, &session] {
    if (!options->output.empty() && options->traces.size() > 1) {
      throw CLI::ValidationError("--output", "goes with one trace");
    }
    session.command = [options](Session& running) { return RunAnalyse(running, *options); };
  });
}

}  // namespace reflyze::cli
