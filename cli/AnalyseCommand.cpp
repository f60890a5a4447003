#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <vector>

#include "cli/Analysis.h"
#include "cli/EventTable.h"
#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"

namespace reflyze::cli {
namespace {

struct AnalyseOptions {
  std::vector<std::string> traces;
  std::string output;
  bool endsOnly = false;
  ThresholdOptions thresholds;
  std::string format = "text";
};

std::string Listing(const EventTable& table, const std::string& format) {
  if (format == "json") return JsonOf(table);
  if (format == "csv") return CsvOf(table);
  return TextOf(table);
}

std::string AnalyseOne(Session& session, const AnalyseOptions& options, const ThresholdSource& source,
                       const std::string& name) {
  LoadedRecord loaded = LoadRecord(session, name, NeedPoints::kYes);
  TTH thresholds = source.For(*loaded.record);
  Analyse(session, loaded, thresholds, options.endsOnly);
  std::string listing = Listing(MakeEventTable(loaded.name, *loaded.record, thresholds), options.format);
  if (!options.output.empty()) SaveRecord(*loaded.record, options.output);
  WarnIfTruncated(session, loaded);
  return listing;
}

// One result a trace, in order; a trace that can't be analysed costs its line on standard error and not the
// others.
int RunAnalyse(Session& session, const AnalyseOptions& options) {
  int status = kDone;
  const ThresholdSource source(session, options.thresholds);
  // Stands before the next listing: a heading once, and an empty line between texts.
  std::string before = options.format == "csv" ? CsvHeader() : "";
  for (size_t i = 0; i < options.traces.size(); ++i) {
    session.Progress(i + 1, options.traces.size(), options.traces[i]);
    try {
      const std::string listing = AnalyseOne(session, options, source, options.traces[i]);
      session.Progress(0, 0, "");
      session.Print(before + listing);
      before = options.format == "text" ? "\n" : "";
    } catch (const Problem& problem) {
      session.Progress(0, 0, "");
      session.Warn(problem.what());
      status = std::max<int>(status, problem.status());
    }
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
  AddThresholdOptions(*command, options->thresholds);
  command->add_option("--format", options->format, "text, json (one object a line) or csv")
      ->check(CLI::IsMember({"text", "json", "csv"}))
      ->capture_default_str();
  command->callback([options, &session] {
    if (!options->output.empty() && options->traces.size() > 1) {
      throw CLI::ValidationError("--output", "goes with one trace");
    }
    session.command = [options](Session& running) { return RunAnalyse(running, *options); };
  });
}

}  // namespace reflyze::cli
