// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Inputs.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct DumpCommand {
  InputArguments inputs;
  DumpOptions dump;
  std::string format = "text";
};

int RunDump(Session& session, DumpCommand& options) {
  SettleInputs(options.inputs);
  bool first = true;
  return ForEachFile(session, options.inputs, [&](size_t index) {
    const Trace trace = session.Open(options.inputs.files[index].name);
    const bool json = options.format == "json";
    const std::string listing = json ? DumpJson(trace, options.dump) : DumpText(trace, options.dump);
    session.Print((first || json ? "" : "\n") + listing);
    first = false;
    session.Warn(DumpWarnings(trace));
  });
}

}  // namespace

void AddDumpCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<DumpCommand>();
  CLI::App* command = app.add_subcommand("dump", "Show every field of every block of a file");
  AddInputs(*command, options->inputs, "; several give a listing each");
  command->add_flag("--no-data{false}", options->dump.samples, "Leave the samples out");
  command->add_flag("--native", options->dump.native,
                    "Show every block that a record has in memory, also those that the file does not have");
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunDump(running, *options); };
  });
}

}  // namespace reflyze::cli
