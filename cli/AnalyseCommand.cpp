// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "cli/Aside.h"
#include "cli/Commands.h"
#include "cli/Inputs.h"
#include "cli/Options.h"
#include "cli/OrderedWork.h"
#include "cli/Session.h"
#include "reflyze/reflyze.h"

namespace reflyze::cli {
namespace {

struct AnalyseCommand {
  InputArguments inputs;
  bool module = false;  // show the module's answer alone
  ThresholdOptions thresholds;
  AnalyseOptions analysis;
  LinkOptions link;
  std::optional<Limits> limits;  // of its document
  std::string format = "text";
  WorkOptions work;
};

std::string Listing(const LinkTable& link, const std::string& format) {
  if (format == "json") return JsonOf(link);
  if (format == "csv") return CsvOf(link);
  return TextOf(link);
}

std::string Heading(const AnalyseCommand& options) {
  if (options.format != "csv") return "";
  const Measurement measurement = options.module ? Measurement::kNone : Measurement::kDone;
  return options.limits ? JudgedCsvHeader(measurement) : CsvHeader(measurement);
}

// What stands between two listings.
std::string Between(const std::string& format) { return format == "text" ? "\n" : ""; }

std::string AnalyseTrace(Session& session, const AnalyseCommand& options, Trace trace,
                         const std::string& place, int& status) {
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
    if (options.inputs.below) MakeFolderOf(place);
    table.record.Save(place);
  }
  session.Warn(table.warnings);
  status = std::max<int>(status, link.verdict && link.verdict->verdict == Verdict::kFail ? kFails : kDone);
  return Listing(link, options.format);
}

// A file may hold several traces. Each is listed as a record of its own, under the name of the file.
std::string AnalyseFile(Session& session, const AnalyseCommand& options, size_t index, int& status) {
  RequireFile(options.inputs.files, index);
  Trace file = session.Open(options.inputs.files[index].name);
  const std::string place = options.inputs.places.empty() ? "" : options.inputs.places[index];
  const int traces = place.empty() ? file.TraceCount() : 1;  // only one trace can be stored
  if (traces < 2) return AnalyseTrace(session, options, std::move(file), place, status);
  std::string listing;
  for (int i = 0; i < traces; ++i)
    listing +=
        (i == 0 ? "" : Between(options.format)) + AnalyseTrace(session, options, file.Part(i), "", status);
  return listing;
}

// The result of one trace.
struct Outcome {
  std::optional<std::string> listing;  // none where the trace could not be analysed
  int status = kDone;
  Sayings sayings;  // warnings, errors and log entries
};

// A trace that can't be analysed costs one line on standard error. The others go on.
Outcome AnalyseAside(Session& session, const AnalyseCommand& options, size_t index) {
  Outcome outcome;
  const Aside aside(outcome.sayings);
  const std::string name = ShownName(options.inputs.files[index].name);
  try {
    outcome.listing = AnalyseFile(session, options, index, outcome.status);
  } catch (const Error& error) {
    session.Warn(error.what());
    outcome.status = StatusOf(error);
  } catch (const std::exception& error) {
    session.Warn(name + ": " + error.what());
    outcome.status = kUnreadable;
  }
  return outcome;
}

// One result for each trace, in order. Traces are analysed on several threads, each with an engine and a
// record of its own. What they share is filled before they start and only read then: the module with its
// tables, the options with their document of thresholds. This thread says the warnings and the log entries,
// in order. Standard input belongs to one trace.
int RunAnalyse(Session& session, AnalyseCommand& options) {
  int status = kDone;
  SettleInputs(options.inputs);
  options.analysis.thresholds = options.thresholds.thresholds;
  options.limits = ReadLimits(session, options.link);
  options.analysis.document = ReadDocument(session, options.thresholds);
  if (options.module) session.Module();
  const size_t total = options.inputs.files.size();
  OrderedWork<Outcome> work(total, options.work.Threads(),
                            [&](size_t index) { return AnalyseAside(session, options, index); });
  // What goes before the next listing: a heading before the first, and an empty line between texts.
  std::string before = Heading(options);
  for (size_t i = 0; i < total; ++i) {
    if (!options.work.quiet) session.Progress(i + 1, total, options.inputs.files[i].name);
    const Outcome outcome = work.Next();
    if (!options.work.quiet) session.Progress(0, 0, "");
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
  auto options = std::make_shared<AnalyseCommand>();
  CLI::App* command =
      app.add_subcommand("analyse", "Find the events of a trace, measure them and print the event table");
  AddInputs(*command, options->inputs, "; several give a result each");
  command
      ->add_option("-o,--output", options->inputs.output,
                   "Store the record with its event table; of several, each below that folder")
      ->type_name(kFileValue)
      ->check(OutputName());
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
  AddTableFormatOption(*command, options->format, "one object a line");
  AddWorkOptions(*command, options->work);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunAnalyse(running, *options); };
  });
}

}  // namespace reflyze::cli
