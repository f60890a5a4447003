// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct DumpCommand {
  Job job;
  DumpOptions dump;
  std::string format = "text";
};

int RunDump(Session& session, DumpCommand& options) {
  SettleInputs(options.job.inputs);
  return PrintJob(session, options.job, options.format, "", [&](size_t index) {
    const Trace trace = session.Open(options.job.inputs.files[index].name);
    FileResult result;
    result.listing = options.format == "json" ? DumpJson(trace, options.dump) : DumpText(trace, options.dump);
    result.warnings = DumpWarnings(trace);
    return result;
  });
}

}  // namespace

void AddDumpCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<DumpCommand>();
  CLI::App* command = app.add_subcommand("dump", "Show every field of every block of a file");
  AddJobInputs(*command, options->job, "; several give a listing each");
  command->add_flag("--no-data{false}", options->dump.samples, "Leave the samples out");
  command->add_flag("--native", options->dump.native,
                    "Show every block that a record has in memory, also those that the file does not have");
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunDump(running, *options); };
  });
}

}  // namespace reflyze::cli
