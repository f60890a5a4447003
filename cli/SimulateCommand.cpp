// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"
#include "reflyze/simulate.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct SimulateCommand {
  std::string link;
  std::string output;
  std::string truth;
  std::uint64_t seed = 1;
  std::string format = "text";
};

int RunSimulate(Session& session, const SimulateCommand& options) {
  const std::vector<char> link = session.Read(options.link);
  const Simulation simulation =
      Simulate({link.begin(), link.end()}, options.seed, options.output, ShownName(options.link));
  std::vector<Output> outputs = {{options.output, simulation.trace.Bytes()}};
  if (!options.truth.empty()) outputs.push_back({options.truth, JsonOf(simulation, 1)});
  SaveTogether(outputs);
  session.Print((options.format == "csv" ? SimulationCsvHeader() : "") +
                ListingOf(simulation, options.format));
  return kDone;
}

}  // namespace

void AddSimulateCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<SimulateCommand>();
  CLI::App* command = app.add_subcommand("simulate", "Make the trace that a described link would give");
  command->add_option("LINK", options->link, "JSON description of a link, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("-o,--output", options->output, "SOR file to write")
      ->required()
      ->type_name(kFileValue)
      ->check(OutputName());
  command->add_option("--truth", options->truth, "Store what stands on the fibre, as JSON")
      ->type_name(kFileValue)
      ->check(OutputName());
  command->add_option("--seed", options->seed, "Seed of the noise")
      ->type_name("N")
      ->check(WholeNumber())
      ->capture_default_str();
  AddTableFormatOption(*command, options->format, "one object");
  command->callback([options, &session] {
    if (NameTheSame(options->truth, options->output))
      throw CLI::ValidationError("--truth", "is the trace's own file");
    session.command = [options](Session& running) { return RunSimulate(running, *options); };
  });
}

}  // namespace reflyze::cli
