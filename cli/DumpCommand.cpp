// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct DumpCommand {
  std::string trace;
  DumpOptions dump;
  std::string format = "text";
};

int RunDump(Session& session, const DumpCommand& options) {
  const Trace trace = session.Open(options.trace);
  session.Print(options.format == "json" ? DumpJson(trace, options.dump) : DumpText(trace, options.dump));
  session.Warn(DumpWarnings(trace));
  return kDone;
}

}  // namespace

void AddDumpCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<DumpCommand>();
  CLI::App* command = app.add_subcommand("dump", "Show every field of every block of a file");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_flag("--no-data{false}", options->dump.samples, "Leave the samples out");
  command->add_flag("--native", options->dump.native,
                    "Show every block that a record has in memory, also those that the file does not have");
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunDump(running, *options); };
  });
}

}  // namespace reflyze::cli
