// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/quality.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct QualityCommand {
  std::string trace;
  std::string longPulse;
  int lastPercent = 10;
  std::string format = "text";
};

int RunQuality(Session& session, const QualityCommand& options) {
  Trace trace = session.Open(options.trace);
  QualityOptions asked;
  asked.lastPercent = options.lastPercent;
  if (!options.longPulse.empty()) asked.longPulse = session.Open(options.longPulse);
  const QualityTable table = Quality(std::move(trace), asked);
  session.Warn(table.warnings);
  session.Print(options.format == "json" ? JsonOf(table) : TextOf(table));
  return kDone;
}

}  // namespace

void AddQualityCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<QualityCommand>();
  CLI::App* command = app.add_subcommand(
      "quality", "Tell how far each event's place and loss can be trusted; analyses what has no events");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
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
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunQuality(running, *options); };
  });
}

}  // namespace reflyze::cli
