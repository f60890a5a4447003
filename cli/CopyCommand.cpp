#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"

namespace reflyze::cli {
namespace {

struct CopyOptions {
  std::string input;
  std::string output;
  bool noProprietary = false;
  bool noUnknown = false;
};

int RunCopy(Session& session, const CopyOptions& options) {
  LoadedRecord loaded = LoadRecord(session, options.input, NeedPoints::kNo);
  RequireReadThrough(loaded);
  loaded.record->WriteProprietaryBlocks = options.noProprietary ? 0 : 1;
  loaded.record->WriteSpecialBlocks = options.noUnknown ? 0 : 1;
  SaveRecord(*loaded.record, options.output);
  WarnIfTruncated(session, loaded);
  return kDone;
}

}  // namespace

void AddCopyCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CopyOptions>();
  CLI::App* command = app.add_subcommand("copy", "Read a record and write it back");
  command->add_option("IN", options->input, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("OUT", options->output, "File to write")->required()->check(OutputName());
  command->add_flag("--no-proprietary", options->noProprietary,
                    "Leave out the blocks of this instrument family (QRT, RFTS, EmbData)");
  command->add_flag("--no-unknown", options->noUnknown, "Leave out the blocks that no one here knows");
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCopy(running, *options); };
  });
}

}  // namespace reflyze::cli
