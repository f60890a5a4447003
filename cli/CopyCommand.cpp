// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/trace.h"

namespace reflyze::cli {
namespace {

constexpr int kMostTraces = 32767;  // a record counts its stretches in 16 bits

struct CopyCommand {
  std::string input;
  std::string output;
  int trace = 0;  // of several, from 1; 0: the record as it is
  CopyOptions copy;
};

int RunCopy(Session& session, const CopyCommand& options) {
  const Trace file = session.Open(options.input);
  (options.trace > 0 ? file.Part(options.trace - 1) : file).Save(options.output, options.copy);
  session.Warn(file.Warnings());
  return kDone;
}

}  // namespace

void AddCopyCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CopyCommand>();
  CLI::App* command = app.add_subcommand("copy", "Copy a record, whole or without some of its blocks");
  command->add_option("IN", options->input, "SOR file, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("OUT", options->output, "File to write")
      ->required()
      ->type_name(kFileValue)
      ->check(OutputName());
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
    session.command = [options](Session& running) { return RunCopy(running, *options); };
  });
}

}  // namespace reflyze::cli
