// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/trace.h"

namespace reflyze::cli {
namespace {

constexpr int kMostTraces = 32767;  // a record counts its stretches in 16 bits

struct CopyCommand {
  Job job;
  int trace = 0;  // of several, from 1; 0: the record as it is
  CopyOptions copy;
};

int RunCopy(Session& session, CopyCommand& options) {
  const InputArguments& inputs = options.job.inputs;
  SettleInputs(options.job.inputs);
  return PrintJob(session, options.job, "", "", [&](size_t index) {
    const Trace file = session.Open(inputs.files[index].name);
    const Trace copied = options.trace > 0 ? file.Part(options.trace - 1) : file;
    FileResult result;
    result.warnings = file.Warnings();
    result.outputs = {{inputs.places[index], copied.Bytes(options.copy)}};
    return result;
  });
}

// As with other programs that copy, the last name is where it goes, unless an option says so.
void TakeLastAsOutput(InputArguments& inputs) {
  if (!inputs.output.empty()) return;
  if (inputs.names.size() < 2) throw CLI::ValidationError("OUT", "is required");
  inputs.output = inputs.names.back();
  inputs.names.pop_back();
  if (inputs.output == "-")
    throw CLI::ValidationError("OUT", "a file must be named, standard output takes none");
}

}  // namespace

void AddCopyCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CopyCommand>();
  CLI::App* command = app.add_subcommand("copy", "Copy a record, whole or without some of its blocks");
  AddJobInputs(*command, options->job, "; the last name is where the copy goes, without --output");
  AddJobOutput(*command, options->job, "File to write; of several, each below that folder");
  CLI::Option* native =
      command->add_flag("--native", options->copy.native,
                        "Write the record anew, in the revisions and with the blocks of reflyze");
  command->add_flag("--no-proprietary", options->copy.noProprietary,
                    "Leave out the blocks of this instrument family (QRT, RFTS, EmbData)");
  command->add_flag("--no-unknown", options->copy.noUnknown, "Leave out the blocks that no one here knows");
  command
      ->add_option("--trace", options->trace,
                   "Of a record that holds several traces, this one alone, without the events of the file")
      ->type_name("N")
      ->needs(native)
      ->check(NumberBetween(1, kMostTraces));
  command->callback([options, &session] {
    TakeLastAsOutput(options->job.inputs);
    session.command = [options](Session& running) { return RunCopy(running, *options); };
  });
}

}  // namespace reflyze::cli
