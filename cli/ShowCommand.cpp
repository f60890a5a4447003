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

int RunShow(Session& session, ShowCommand& options) {
  const InputArguments& inputs = options.job.inputs;
  SettleInputs(options.job.inputs);
  const bool several = inputs.files.size() > 1;
  const std::string heading =
      options.curve ? CurveCsvHeader(several)
                    : SheetCsvHeader(options.sheet.measure ? Measurement::kDone : Measurement::kNone);
  return PrintJob(session, options.job, options.curve ? "csv" : options.format, heading, [&](size_t index) {
    const Trace trace = session.Open(inputs.files[index].name);
    FileResult result;
    if (options.curve) {
      result.listing = CurveCsv(trace, several);
      result.warnings = trace.Warnings();
    } else {
      const Sheet sheet = SheetOf(trace, options.sheet);
      result.listing = ListingOf(sheet, options.format);
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
  CLI::Option* format = AddTableFormatOption(*command, options->format);
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
