// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct MeasureCommand {
  Job job;
  std::optional<double> atKm, fromKm, toKm;
  std::vector<double> eventKm;
  bool twoPoint = false, leastSquares = false, returnLoss = false;
  std::string format = "text";
};

MeasureRequest RequestOf(const MeasureCommand& options) {
  if (options.atKm) return {MeasureKind::kAt, {*options.atKm}};
  if (!options.eventKm.empty()) return {MeasureKind::kEvent, options.eventKm};
  const MeasureKind kind = options.leastSquares ? MeasureKind::kLeastSquares
                           : options.returnLoss ? MeasureKind::kReturnLoss
                                                : MeasureKind::kTwoPoint;
  return {kind, {*options.fromKm, *options.toKm}};
}

int RunMeasure(Session& session, MeasureCommand& options) {
  SettleInputs(options.job.inputs);
  const MeasureRequest request = RequestOf(options);
  return PrintJob(session, options.job, options.format, MeasureCsvHeader(), [&](size_t index) {
    const PlaceMeasure measure = Measure(session.Open(options.job.inputs.files[index].name), request);
    FileResult result;
    result.listing = ListingOf(measure, options.format);
    result.warnings = measure.warnings;
    return result;
  });
}

}  // namespace

void AddMeasureCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<MeasureCommand>();
  CLI::App* command =
      app.add_subcommand("measure", "Measure one number at a place or between places, with its uncertainty");
  AddJobInputs(*command, options->job, "; several give a number each");
  const auto addKm = [&](const char* name, std::optional<double>& km, const char* meaning) {
    return command->add_option(name, km, meaning)
        ->type_name("KM")
        ->transform(NumberBetween(-kFarthestKm, kFarthestKm));
  };
  CLI::Option* at = addKm("--at", options->atKm, "The level at a place, and the reflectance of a peak there");
  CLI::Option* from = addKm("--from", options->fromKm, "Begin of a stretch");
  CLI::Option* to = addKm("--to", options->toKm, "End of the stretch");
  CLI::Option* event =
      command
          ->add_option("--event", options->eventKm,
                       "The loss of an event between A and B, by the lines from a to A and from "
                       "B to b")
          ->type_name("KM,KM,KM,KM")
          ->delimiter(',')
          ->expected(4)
          ->transform(NumberBetween(-kFarthestKm, kFarthestKm));
  from->needs(to)->excludes(at)->excludes(event);
  to->needs(from);
  at->excludes(event);
  CLI::Option* twoPoint = command->add_flag("--two-point", options->twoPoint,
                                            "What the levels of both places differ by; so without a flag");
  CLI::Option* line = command->add_flag("--lsa", options->leastSquares, "The fibre's line by least squares");
  CLI::Option* orl = command->add_flag("--orl", options->returnLoss, "The return loss of the stretch");
  for (CLI::Option* flag : {twoPoint, line, orl}) flag->needs(from);
  twoPoint->excludes(line)->excludes(orl);
  line->excludes(orl);
  AddTableFormatOption(*command, options->format);
  command->callback([options, &session] {
    if (!options->atKm && !options->fromKm && options->eventKm.empty())
      throw CLI::ValidationError("measure", "needs --at, --from and --to, or --event");
    session.command = [options](Session& running) { return RunMeasure(running, *options); };
  });
}

}  // namespace reflyze::cli
