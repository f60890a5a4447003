// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/import.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct ImportCommand {
  std::string curve;
  std::string output;
  ImportOptions options;
};

int RunImport(Session& session, const ImportCommand& command) {
  const std::vector<char> text = session.Read(command.curve, kLargestCurve);
  const ImportedCurve imported =
      ImportCurve({text.begin(), text.end()}, command.options, command.output, ShownName(command.curve));
  imported.trace.Save(command.output);
  session.Warn(imported.warnings);
  return kDone;
}

}  // namespace

void AddImportCommand(CLI::App& app, Session& session) {
  auto import = std::make_shared<ImportCommand>();
  ImportOptions& options = import->options;
  CLI::App* command = app.add_subcommand("import", "Make a trace of a curve in CSV");
  command->add_option("CURVE", import->curve, "CSV of distances and levels, or - for standard input")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("-o,--output", import->output, "SOR file to write")
      ->required()
      ->type_name(kFileValue)
      ->check(OutputName());
  const auto number = [&](const char* name, std::optional<double>& value, const char* unit, double least,
                          double most, const char* what) {
    command->add_option(name, value, what)->type_name(unit)->transform(NumberBetween(least, most));
  };
  number("--wavelength", options.wavelengthNm, "NM", 400.0, 2500.0, "Wavelength; 1550 without it");
  number("--pulse", options.pulseNs, "NS", 1.0, 30000.0, "Pulse width; 100 without it");
  number("--index", options.groupIndex, "N", 1.0, 2.0, "Group index; near 1.468 without it");
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
