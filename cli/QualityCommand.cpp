// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/quality.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct QualityCommand {
  Job job;
  std::string longPulse;
  int lastPercent = 10;
  std::string format = "text";
};

int RunQuality(Session& session, QualityCommand& options) {
  SettleInputs(options.job.inputs);
  QualityOptions asked;
  asked.lastPercent = options.lastPercent;
  // One of both may come through a pipe.
  if (!options.longPulse.empty()) asked.longPulse = session.Open(options.longPulse);
  return PrintJob(
      session, options.job, options.format, QualityCsvHeader(!options.longPulse.empty()), [&](size_t index) {
        const QualityTable table = Quality(session.Open(options.job.inputs.files[index].name), asked);
        FileResult result;
        result.listing = ListingOf(table, options.format);
        result.warnings = table.warnings;
        return result;
      });
}

}  // namespace

void AddQualityCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<QualityCommand>();
  CLI::App* command = app.add_subcommand(
      "quality", "Tell how far each event's place and loss can be trusted; analyses what has no events");
  AddJobInputs(*command, options->job, "; several give a result each");
  command
      ->add_option("--long-pulse", options->longPulse,
                   "The same fibre with a longer pulse, for losses within dead zones")
      ->type_name(kFileValue)
      ->check(InputName());
  command
      ->add_option("--last-percent", options->lastPercent,
                   "Does the fibre end in the last N percent of the range?")
      ->type_name("N")
      ->check(WholeNumber())
      ->check(NumberBetween(0.0, 100.0))
      ->capture_default_str();
  AddTableFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunQuality(running, *options); };
  });
}

}  // namespace reflyze::cli
