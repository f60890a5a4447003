// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/import.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct ImportCommand {
  Job job;
  ImportOptions options;
};

int RunImport(Session& session, ImportCommand& command) {
  InputArguments& inputs = command.job.inputs;
  inputs.endings = {".csv", ".txt"};
  inputs.ending = ".sor";
  SettleInputs(inputs);
  return PrintJob(session, command.job, "", "", [&](size_t index) {
    const std::string &name = inputs.files[index].name, &place = inputs.places[index];
    const std::vector<char> text = session.Read(name, kLargestCurve);
    const ImportedCurve imported =
        ImportCurve({text.begin(), text.end()}, command.options, place, ShownName(name));
    FileResult result;
    result.warnings = imported.warnings;
    result.outputs = {{place, imported.trace.Bytes()}};
    return result;
  });
}

}  // namespace

void AddImportCommand(CLI::App& app, Session& session) {
  auto import = std::make_shared<ImportCommand>();
  ImportOptions& options = import->options;
  CLI::App* command = app.add_subcommand("import", "Make a trace of a curve in CSV");
  command
      ->add_option(
          "CURVE", import->job.inputs.names,
          "CSV of distances and levels, - for standard input, @FILE for a list of names, or a pattern")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  AddJobFlags(*command, import->job);
  AddJobOutput(*command, import->job, "SOR file to write; of several, each below that folder")->required();
  const auto number = [&](const char* name, std::optional<double>& value, const char* unit, double least,
                          double most, const char* what) {
    command->add_option(name, value, what)->type_name(unit)->transform(NumberBetween(least, most));
  };
  number("--wavelength", options.wavelengthNm, "NM", 400.0, 2500.0, "Wavelength; 1550 without it");
  number("--pulse", options.pulseNs, "NS", 1.0, 30000.0, "Pulse width; 100 without it");
  number("--index", options.groupIndex, "N", 1.0, 2.0, "Group index; near 1.468 without it");
  number("--user-offset", options.userOffsetKm, "KM", 0.0, 1000.0,
         "Where the zero of the distances lies, from the launch; at the launch without it");
  number("--backscatter", options.backscatterDb, "DB", -100.0, -40.0,
         "Backscatter coefficient for a pulse of 1 ns; none without it");
  command->add_option("--distance", options.distanceColumn, "Column of the distances, by name or number")
      ->type_name("COLUMN");
  command->add_option("--level", options.levelColumn, "Column of the levels, by name or number")
      ->type_name("COLUMN");
  command->add_option("--unit", options.unit, "Unit of the distances, where the heading tells none")
      ->check(CLI::IsMember({"km", "m"}));
  command->callback([import, &session] {
    session.command = [import](Session& running) { return RunImport(running, *import); };
  });
}

}  // namespace reflyze::cli
