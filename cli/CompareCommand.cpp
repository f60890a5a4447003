// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <set>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/monitor.h"
#include "reflyze/report.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct CompareCommand {
  Job job;  // its files are the current traces
  std::string baseline;
  std::vector<std::string> baselines;  // one a current trace
  CompareOptions compare;
  bool module = false;  // show the module's answer alone
  std::string format = "text";
};

// A current trace belongs to the baseline of its name, or of its path below the folder that was named. One
// without a baseline keeps its place as an error, and baselines that nothing belongs to come behind.
void PairByName(const std::vector<InputFile>& baselines, CompareCommand& options) {
  std::map<std::string, const InputFile*> byName;
  std::set<std::string> used;
  for (const InputFile& file : baselines) {
    if (!file.problem.empty()) throw Error(ErrorKind::kUnreadable, file.name, file.problem);
    const auto [known, fresh] = byName.emplace(file.below, &file);
    if (!fresh)
      throw Error(ErrorKind::kUsage, file.name, "has the name of another baseline, " + known->second->name);
  }
  std::vector<InputFile>& files = options.job.inputs.files;
  for (InputFile& file : files) {
    options.baselines.emplace_back();
    if (!file.problem.empty()) continue;
    const auto found = byName.find(file.below);
    if (found == byName.end()) {
      file.problem = "has no baseline, no " + ShownName(file.below) + " in " + ShownName(options.baseline);
    } else {
      options.baselines.back() = found->second->name;
      used.insert(file.below);
    }
  }
  for (const InputFile& file : baselines) {
    if (used.count(file.below) > 0) continue;
    files.push_back({file.name, file.below, "has no current trace of its name"});
    options.baselines.emplace_back();
  }
}

void SettlePairs(CompareCommand& options) {
  InputArguments& inputs = options.job.inputs;
  InputOptions folders;
  inputs.folders = folders.folders = true;
  const std::vector<InputFile> baselines = FilesOf({options.baseline}, folders);
  SettleInputs(inputs);
  if (baselines.size() == 1 && baselines[0].name == options.baseline && baselines[0].problem.empty()) {
    options.baselines.assign(inputs.files.size(), options.baseline);
    return;
  }
  PairByName(baselines, options);
  inputs.places.resize(inputs.output.empty() ? 0 : inputs.files.size());
}

FileResult CompareFile(Session& session, const CompareCommand& options, size_t index) {
  const InputArguments& inputs = options.job.inputs;
  Trace baseline = session.Open(options.baselines[index]), current = session.Open(inputs.files[index].name);
  const std::string name = ShownName(current.Name()), secondTable = current.SecondTableWarning();
  Comparison comparison =
      options.module ? CompareBy(session.Module(), std::move(baseline), std::move(current), options.compare)
                     : Compare(std::move(baseline), std::move(current), options.compare);
  FileResult result;
  if (!inputs.places.empty()) {
    if (!secondTable.empty()) comparison.warnings.push_back({name, secondTable});
    result.outputs = {comparison.record.To(inputs.places[index])};
  }
  result.warnings = comparison.warnings;
  result.listing = ListingOf(comparison, options.format);
  if (comparison.Changed()) result.status = kChanged;
  return result;
}

int RunCompare(Session& session, CompareCommand& options) {
  SettlePairs(options);
  if (options.baseline == "-" && options.job.inputs.files.size() > 1)
    throw Error(ErrorKind::kUsage, "", "standard input can be the baseline of one trace only");
  if (options.module) session.Module();
  options.job.reads = [&](size_t index) {
    return std::vector<std::string>{options.baselines[index], options.job.inputs.files[index].name};
  };
  const Numbers numbers = options.module ? Numbers::kAsStored : Numbers::kMeasured;
  return PrintJob(session, options.job, options.format, ComparisonCsvHeader(numbers),
                  [&](size_t index) { return CompareFile(session, options, index); });
}

}  // namespace

void AddCompareCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CompareCommand>();
  CLI::App* command =
      app.add_subcommand("compare", "Tell what changed since the baseline; status 1 if anything did");
  command
      ->add_option(
          "BASELINE", options->baseline,
          "SOR file that reflyze baseline made, or a folder of them: each has the name of its current "
          "trace")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command
      ->add_option(
          "CURRENT", options->job.inputs.names,
          "SOR file of the same fibre, or - for standard input; several, folders, @FILE and patterns "
          "give a result each")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  AddJobFlags(*command, options->job);
  AddJobOutput(*command, options->job,
               "Store the current record with its results; of several, each below that folder");
  command->add_flag("--recheck", options->compare.recheck,
                    "Hold the results in CURRENT, stored by an earlier comparison, against the limits again");
  command->add_flag("--module", options->module,
                    "Show what the analysis module itself answers to the two records as they are");
  AddTableFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCompare(running, *options); };
  });
}

}  // namespace reflyze::cli
