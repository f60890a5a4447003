// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct ShowCommand {
  Job job;
  SheetOptions sheet;
  bool curve = false;  // the points instead of the sheet
  std::string format = "text";
};

std::string Listing(const Sheet& sheet, const std::string& format) {
  if (format == "json") return JsonOf(sheet);
  return format == "csv" ? CsvOf(sheet) : TextOf(sheet);
}

int RunShow(Session& session, ShowCommand& options) {
  const InputArguments& inputs = options.job.inputs;
  SettleInputs(options.job.inputs);
  const bool several = inputs.files.size() > 1;
  std::string heading;
  if (options.curve) {
    heading = CurveCsvHeader(several);
  } else if (options.format == "csv") {
    heading = SheetCsvHeader(options.sheet.measure ? Measurement::kDone : Measurement::kNone);
  }
  return PrintJob(session, options.job, options.curve ? "csv" : options.format, heading, [&](size_t index) {
    const Trace trace = session.Open(inputs.files[index].name);
    FileResult result;
    if (options.curve) {
      result.listing = CurveCsv(trace, several);
      result.warnings = trace.Warnings();
    } else {
      const Sheet sheet = SheetOf(trace, options.sheet);
      result.listing = Listing(sheet, options.format);
      result.warnings = sheet.warnings;
    }
    return result;
  });
}

}  // namespace

void AddShowCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<ShowCommand>();
  CLI::App* command =
      app.add_subcommand("show", "Show what a file says of itself: its card and its own event table");
  AddJobInputs(*command, options->job, "; several give a sheet each");
  CLI::Option* measure = command->add_flag("--measure", options->sheet.measure,
                                           "Set beside it what is measured on the trace, with differences");
  CLI::Option* format =
      command->add_option("--format", options->format, "text, json (one object a line) or csv")
          ->check(CLI::IsMember({"text", "json", "csv"}))
          ->capture_default_str();
  command
      ->add_flag("--curve", options->curve,
                 "Write the points instead, as CSV of distance (km) and level (dB)")
      ->excludes(measure)
      ->excludes(format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunShow(running, *options); };
  });
}

}  // namespace reflyze::cli
