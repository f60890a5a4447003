#include <CLI/CLI.hpp>
#include <fstream>
#include <iterator>
#include <memory>

#include "cli/JsonText.h"
#include "cli/Options.h"
#include "cli/OutputFile.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/Text.h"
#include "sim/Simulate.h"

namespace reflyze::cli {
namespace {

struct SimulateOptions {
  std::string link;
  std::string output;
  std::string truth;
  std::uint64_t seed = 1;
  std::string format = "text";
};

sim::Link ReadLink(Session& session, const std::string& name) {
  const std::vector<char> bytes = ReadInput(session, name);
  try {
    return sim::LinkFromText(std::string(bytes.begin(), bytes.end()));
  } catch (const sim::LinkError& error) {
    throw Problem(kUnreadable, (name == "-" ? "standard input" : name) + ": " + error.what());
  }
}

std::string TextOfTruth(const std::string& output, const sim::SimulatedTrace& trace) {
  std::string text = Format("%s: %ld points, noise %.1f dB, %.3f km\n", OneLine(output).c_str(),
                            trace.record->DataPts->GetPointsNum(), trace.truth.noiseDb, trace.truth.lengthKm);
  for (const sim::TrueEvent& event : trace.truth.events) {
    text += Format(" %3d  %9.4f km  %s  loss %7.3f dB  %s  %5.1f dB above noise\n", event.number,
                   NoMinusZero(event.distanceKm, 4), event.code.c_str(), NoMinusZero(event.lossDb, 3),
                   event.reflectanceDb ? Format("%7.2f dB", *event.reflectanceDb).c_str() : "        - ",
                   event.snrDb);
  }
  return text;
}

int RunSimulate(Session& session, const SimulateOptions& options) {
  const sim::Link link = ReadLink(session, options.link);
  const sim::SimulatedTrace trace = sim::Simulate(link, options.seed);
  const nlohmann::ordered_json truth = sim::JsonOfTruth(options.output, trace);
  std::vector<Output> outputs = {{options.output, RecordBytes(*trace.record, options.output)}};
  if (!options.truth.empty()) outputs.push_back({options.truth, JsonText(truth, 1) + "\n"});
  SaveTogether(outputs);
  session.Print(options.format == "json" ? JsonText(truth) + "\n" : TextOfTruth(options.output, trace));
  return kDone;
}

}  // namespace

void AddSimulateCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<SimulateOptions>();
  CLI::App* command = app.add_subcommand("simulate", "Make the trace that a described link would give");
  command->add_option("LINK", options->link, "JSON description of a link, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("-o,--output", options->output, "SOR file to write")->required()->check(OutputName());
  command->add_option("--truth", options->truth, "Store what stands on the fibre, as JSON")
      ->check(OutputName());
  command->add_option("--seed", options->seed, "Seed of the noise")
      ->check(WholeNumber())
      ->capture_default_str();
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    if (NameTheSame(options->truth, options->output))
      throw CLI::ValidationError("--truth", "is the trace's own file");
    session.command = [options](Session& running) { return RunSimulate(running, *options); };
  });
}

}  // namespace reflyze::cli
