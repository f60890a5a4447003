// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/merge.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct MergeCommand {
  std::string traceA, traceB;
  std::vector<std::string> outputs;  // two
  ThresholdOptions thresholds;
  std::string format = "text";
};

int RunMerge(Session& session, const MergeCommand& options) {
  MergeOptions asked;
  asked.thresholds = options.thresholds.thresholds;
  asked.document = ReadDocument(session, options.thresholds);
  Trace a = session.Open(options.traceA), b = session.Open(options.traceB);
  const MergedTable table = Merge(std::move(a), std::move(b), asked);
  SaveTogether({table.recordA.To(options.outputs[0]), table.recordB.To(options.outputs[1])});
  session.Warn(table.warnings);
  session.Print(options.format == "json" ? JsonOf(table) : TextOf(table));
  return kDone;
}

}  // namespace

void AddMergeCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<MergeCommand>();
  CLI::App* command = app.add_subcommand(
      "merge",
      "Bring the events of both directions of a fibre together; with thresholds, analyse both first");
  command->add_option("A", options->traceA, "SOR file from the first end, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("B", options->traceB, "SOR file from the other end")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("-o,--output", options->outputs, "Store both records with their merged events")
      ->required()
      ->expected(2)
      ->type_name(kFileValue)
      ->check(OutputName());
  AddThresholdOptions(*command, options->thresholds);
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    if (NameTheSame(options->outputs[0], options->outputs[1])) {
      throw CLI::ValidationError("--output", "takes two different files");
    }
    session.command = [options](Session& running) { return RunMerge(running, *options); };
  });
}

}  // namespace reflyze::cli
