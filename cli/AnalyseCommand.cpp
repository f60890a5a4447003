// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/reflyze.h"

namespace reflyze::cli {
namespace {

struct AnalyseCommand {
  Job job;
  bool module = false;  // show the module's answer alone
  ThresholdOptions thresholds;
  AnalyseOptions analysis;
  LinkOptions link;
  std::optional<Limits> limits;  // of its document
  std::string format = "text";
};

std::string Heading(const AnalyseCommand& options) {
  const Measurement measurement = options.module ? Measurement::kNone : Measurement::kDone;
  return options.limits ? JudgedCsvHeader(measurement) : CsvHeader(measurement);
}

// What stands between two listings.
std::string Between(const std::string& format) { return format == "text" ? "\n" : ""; }

void AnalyseTrace(Session& session, const AnalyseCommand& options, Trace trace, const std::string& place,
                  FileResult& result) {
  const std::string name = ShownName(trace.Name()), secondTable = trace.SecondTableWarning();
  LinkTable link =
      BetweenReels(options.module ? AnalyseBy(session.Module(), std::move(trace), options.analysis)
                                  : Analyse(std::move(trace), options.analysis),
                   options.link.AskedReels());
  EventTable& table = link.table;
  if (options.limits) JudgeLink(link, *options.limits);
  if (!place.empty()) {
    if (!secondTable.empty() && !options.analysis.dropUnknown)
      table.warnings.push_back({name, secondTable + " (--drop-unknown leaves them out)"});
    result.outputs.push_back(table.record.To(place));
  }
  result.warnings.insert(result.warnings.end(), table.warnings.begin(), table.warnings.end());
  if (link.verdict && link.verdict->verdict == Verdict::kFail) result.status = kFails;
  result.listing += (result.listing.empty() ? "" : Between(options.format)) + ListingOf(link, options.format);
}

// A file may hold several traces. Each is listed as a record of its own, under the name of the file.
FileResult AnalyseFile(Session& session, const AnalyseCommand& options, size_t index) {
  const InputArguments& inputs = options.job.inputs;
  Trace file = session.Open(inputs.files[index].name);
  const std::string place = inputs.places.empty() ? "" : inputs.places[index];
  const int traces = place.empty() ? file.TraceCount() : 1;  // only one trace can be stored
  FileResult result;
  if (traces < 2) {
    AnalyseTrace(session, options, std::move(file), place, result);
  } else {
    for (int i = 0; i < traces; ++i) AnalyseTrace(session, options, file.Part(i), "", result);
  }
  return result;
}

// Traces are analysed on several threads, each with an engine and a record of its own. What they share is
// filled before they start and only read then: the module with its tables, the options with their documents.
int RunAnalyse(Session& session, AnalyseCommand& options) {
  SettleInputs(options.job.inputs);
  options.analysis.thresholds = options.thresholds.thresholds;
  options.limits = ReadLimits(session, options.link);
  options.analysis.document = ReadDocument(session, options.thresholds);
  if (options.module) session.Module();
  return PrintJob(session, options.job, options.format, Heading(options),
                  [&](size_t index) { return AnalyseFile(session, options, index); });
}

}  // namespace

void AddAnalyseCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<AnalyseCommand>();
  CLI::App* command =
      app.add_subcommand("analyse", "Find the events of a trace, measure them and print the event table");
  AddJobInputs(*command, options->job, "; several give a result each");
  AddJobOutput(*command, options->job,
               "Store the record with its event table; of several, each below that folder");
  command->add_flag("--ends-only", options->analysis.endsOnly, "Keep only the first and the last event");
  CLI::Option* explain = command->add_flag("--explain", options->analysis.explain,
                                           "Tell why each event was found, dropped or taken for the end");
  command->add_flag("--module", options->module, "Show what the analysis module itself answers")
      ->excludes(explain);
  command
      ->add_flag("--drop-unknown", options->analysis.dropUnknown,
                 "Store no blocks that no one here knows, such as a maker's own event table")
      ->needs("--output");
  AddThresholdOptions(*command, options->thresholds);
  AddLinkOptions(*command, options->link);
  AddTableFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunAnalyse(running, *options); };
  });
}

}  // namespace reflyze::cli
