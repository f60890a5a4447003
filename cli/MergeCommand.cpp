// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/limits.h"
#include "reflyze/merge.h"
#include "reflyze/report.h"
#include "reflyze/span.h"

namespace reflyze::cli {
namespace {

struct MergeCommand {
  std::string traceA, traceB;
  std::vector<std::string> outputs;  // two
  ThresholdOptions thresholds;
  LinkOptions link;
  std::string format = "text";
};

// Each direction is analysed and cut to the link between its own reels, which need not be equally long.
MergedLink MergeWithReels(Session& session, const MergeCommand& options, const MergeOptions& asked) {
  const Reels reels = options.link.AskedReels();
  AnalyseOptions analysis;
  analysis.thresholds = asked.thresholds;
  analysis.document = asked.document;
  const EventTable a = Analyse(session.Open(options.traceA), analysis);
  const EventTable b = Analyse(session.Open(options.traceB), analysis);
  MergedLink link = MergeBetweenReels(a, b, reels, reels);
  const LinkTable linkA = BetweenReels(a, reels), linkB = BetweenReels(b, reels);
  for (const LinkTable* one : {&linkA, &linkB})
    link.table.warnings.insert(link.table.warnings.end(), one->table.warnings.begin(),
                               one->table.warnings.end());
  link.table.recordA = linkA.table.record;
  link.table.recordB = linkB.table.record;
  return link;
}

int RunMerge(Session& session, const MergeCommand& options) {
  MergeOptions asked;
  asked.thresholds = options.thresholds.thresholds;
  asked.document = ReadDocument(session, options.thresholds);
  const std::optional<Limits> limits = ReadLimits(session, options.link);
  MergedLink link;
  if (options.link.launch.empty() && options.link.receive.empty()) {
    Trace a = session.Open(options.traceA), b = session.Open(options.traceB);
    link.table = Merge(std::move(a), std::move(b), asked);
  } else {
    link = MergeWithReels(session, options, asked);
  }
  if (limits) link.verdict = Judge(link, *limits);
  SaveTogether({link.table.recordA.To(options.outputs[0]), link.table.recordB.To(options.outputs[1])});
  session.Warn(link.table.warnings);
  session.Print(options.format == "json" ? JsonOf(link) : TextOf(link));
  return link.verdict && link.verdict->verdict == Verdict::kFail ? kFails : kDone;
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
  AddLinkOptions(*command, options->link);
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    if (NameTheSame(options->outputs[0], options->outputs[1])) {
      throw CLI::ValidationError("--output", "takes two different files");
    }
    session.command = [options](Session& running) { return RunMerge(running, *options); };
  });
}

}  // namespace reflyze::cli
