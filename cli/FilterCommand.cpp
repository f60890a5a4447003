// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/filter.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct FilterCommand {
  Job job;
  std::string kind = NameOf(FilterKind::kAuto);
  FilterOptions filter;
  std::string format = "text";
};

FilterKind KindOf(const std::string& name) {
  for (const FilterKind kind : {FilterKind::kKernel, FilterKind::kFast}) {
    if (name == NameOf(kind)) return kind;
  }
  return FilterKind::kAuto;
}

int RunFilter(Session& session, FilterCommand& options) {
  options.filter.kind = KindOf(options.kind);
  const InputArguments& inputs = options.job.inputs;
  SettleInputs(options.job.inputs);
  return PrintJob(session, options.job, options.format, FilterCsvHeader(), [&](size_t index) {
    const FilterTable table = Filter(session.Open(inputs.files[index].name), options.filter);
    FileResult result;
    result.listing = ListingOf(table, options.format);
    result.warnings = table.warnings;
    result.outputs = {table.record.To(inputs.places[index])};
    return result;
  });
}

}  // namespace

void AddFilterCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<FilterCommand>();
  CLI::App* command = app.add_subcommand("filter", "Smooth a trace and print what the filter found");
  AddJobInputs(*command, options->job, "; several give a result each");
  AddJobOutput(*command, options->job,
               "Store the trace with its smoothed levels; of several, each below that folder")
      ->required();
  command
      ->add_option("--kind", options->kind,
                   "auto: a mean that stops at events; fast: a low pass; kernel: the trace's own, if any")
      ->check(CLI::IsMember({"auto", "fast", "kernel"}))
      ->capture_default_str();
  command
      ->add_option("--level", options->filter.level,
                   "Strength of the filter, 1 is usual; without it the trace's")
      ->type_name("L")
      ->transform(NumberBetween(kLeastFilterLevel, kLargestFilterLevel));
  AddTableFormatOption(*command, options->format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunFilter(running, *options); };
  });
}

}  // namespace reflyze::cli
