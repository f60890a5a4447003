// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/monitor.h"
#include "reflyze/report.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct CompareCommand {
  std::string baseline, current;
  std::string output;
  CompareOptions compare;
  bool module = false;  // show the module's answer alone
  std::string format = "text";
};

int RunCompare(Session& session, const CompareCommand& options) {
  Trace baseline = session.Open(options.baseline), current = session.Open(options.current);
  const std::string name = ShownName(current.Name()), secondTable = current.SecondTableWarning();
  Comparison comparison =
      options.module ? CompareBy(session.Module(), std::move(baseline), std::move(current), options.compare)
                     : Compare(std::move(baseline), std::move(current), options.compare);
  if (!options.output.empty()) {
    if (!secondTable.empty()) comparison.warnings.push_back({name, secondTable});
    comparison.record.Save(options.output);
  }
  session.Warn(comparison.warnings);
  session.Print(options.format == "json" ? JsonOf(comparison) : TextOf(comparison));
  return comparison.Changed() ? kChanged : kDone;
}

}  // namespace

void AddCompareCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CompareCommand>();
  CLI::App* command =
      app.add_subcommand("compare", "Tell what changed since the baseline; status 1 if anything did");
  command->add_option("BASELINE", options->baseline, "SOR file that reflyze baseline made")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("CURRENT", options->current, "SOR file of the same fibre, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("-o,--output", options->output, "Store the current record with its results")
      ->type_name(kFileValue)
      ->check(OutputName());
  command->add_flag("--recheck", options->compare.recheck,
                    "Hold the results in CURRENT, stored by an earlier comparison, against the limits again");
  command->add_flag("--module", options->module,
                    "Show what the analysis module itself answers to the two records as they are");
  AddFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCompare(running, *options); };
  });
}

}  // namespace reflyze::cli
