#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Stretches.h"
#include "cli/Text.h"
#include "cli/UsableTrace.h"

namespace reflyze::cli {
namespace {

constexpr int kMostTraces = 32767;  // a record counts its stretches in 16 bits

struct CopyOptions {
  std::string input;
  std::string output;
  bool native = false;
  bool noProprietary = false;
  bool noUnknown = false;
  int trace = 0;  // of several, from 1; 0: the record as it is
};

// A record of our own writing has all its samples, those too that its file does not have: nobody could see
// any more that they were never measured.
void RequireAllSamples(const LoadedRecord& loaded) {
  RequireReadThrough(loaded);
  if (EndsInsideSamples(loaded))
    throw Problem(kUnreadable, loaded.name + ": ends inside its samples; it can only be copied as it stands");
}

void TakeTrace(LoadedRecord& loaded, int number) {
  const int traces = TracesIn(*loaded.record);
  if (traces < 2 || number > traces)
    throw Problem(kUnreadable,
                  loaded.name + Format(": has no trace %d of its own; it holds %d", number, traces));
  loaded.record = TraceOf(*loaded.record, number - 1);
}

void SaveNative(LoadedRecord& loaded, const CopyOptions& options) {
  RequireAllSamples(loaded);
  CountTimesFromFirstSample(loaded);
  if (options.trace > 0) TakeTrace(loaded, options.trace);
  loaded.record->WriteProprietaryBlocks = options.noProprietary ? 0 : 1;
  loaded.record->WriteSpecialBlocks = options.noUnknown ? 0 : 1;
  SaveRecord(*loaded.record, options.output);
}

int RunCopy(Session& session, const CopyOptions& options) {
  LoadedRecord loaded = LoadRecord(session, options.input, NeedPoints::kNo);
  if (options.native) {
    SaveNative(loaded, options);
  } else {
    const auto keeps = [&](const std::string& id) {
      return !(options.noProprietary && IsProprietary(id)) && !(options.noUnknown && IsUnknown(id));
    };
    SaveText(CopyOfFile(loaded, keeps), options.output);
  }
  WarnOfFile(session, loaded);
  return kDone;
}

}  // namespace

void AddCopyCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CopyOptions>();
  CLI::App* command = app.add_subcommand("copy", "Copy a record, whole or without some of its blocks");
  command->add_option("IN", options->input, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("OUT", options->output, "File to write")->required()->check(OutputName());
  CLI::Option* native = command->add_flag(
      "--native", options->native, "Write the record anew, in the revisions and with the blocks of reflyze");
  command->add_flag("--no-proprietary", options->noProprietary,
                    "Leave out the blocks of this instrument family (QRT, RFTS, EmbData)");
  command->add_flag("--no-unknown", options->noUnknown, "Leave out the blocks that no one here knows");
  command
      ->add_option("--trace", options->trace,
                   "Of a record that holds several traces, this one alone, without the events of the file")
      ->needs(native)
      ->check(NumberBetween(1, kMostTraces));
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCopy(running, *options); };
  });
}

}  // namespace reflyze::cli
