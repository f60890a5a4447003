// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/monitor.h"
#include "reflyze/report.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct BaselineCommand {
  Job job;
  Monitoring monitoring;
  std::vector<std::string> search, settings;  // as written
  std::string format = "text";
};

std::string LevelNameProblem(const std::string& name) {
  // A level without a name tells a record that there was no comparison.
  if (name.find_first_not_of(' ') == std::string::npos) return "the name is empty";
  return OneLine(name) != name ? "a name is one line of text" : "";
}

// "FROM:TO" in km.
std::string StretchProblem(const std::string& text) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos) return "\"" + text + "\" is not KM:KM";
  const std::string from = text.substr(0, colon), to = text.substr(colon + 1);
  for (const std::string& km : {from, to}) {
    std::string wrong = WhyNoNumber(km, -kFarthestKm, kFarthestKm);
    if (!wrong.empty()) return wrong;
  }
  return std::strtod(from.c_str(), nullptr) < std::strtod(to.c_str(), nullptr)
             ? ""
             : "\"" + text + "\" has no length";
}

Stretch StretchOf(const std::string& text) {
  return {std::strtod(text.c_str(), nullptr), std::strtod(text.c_str() + text.find(':') + 1, nullptr)};
}

// "NAME=VALUE".
std::string SettingProblem(const std::string& text) {
  const size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  const ComparisonSetting* setting = FindComparisonSetting(name);
  if (setting == nullptr) return "the comparison has no setting \"" + name + "\"";
  if (equals == std::string::npos) return name + " lacks its value";
  const std::string wrong = WhyNoNumber(text.substr(equals + 1), setting->least, setting->most);
  return wrong.empty() ? "" : name + ": " + wrong;
}

std::pair<std::string, double> SettingOf(const std::string& text) {
  const size_t equals = text.find('=');
  return {text.substr(0, equals), std::strtod(text.c_str() + equals + 1, nullptr)};
}

// A check that adds nothing to the help, since the option's text says what it takes.
CLI::Validator Check(std::string (*problem)(const std::string&)) {
  return CLI::Validator([problem](std::string& text) { return problem(text); }, "");
}

int RunBaseline(Session& session, BaselineCommand& options) {
  const InputArguments& inputs = options.job.inputs;
  SettleInputs(options.job.inputs);
  return PrintJob(session, options.job, options.format, CsvHeader(Measurement::kNone), [&](size_t index) {
    const Baseline baseline = MakeBaseline(session.Open(inputs.files[index].name), options.monitoring);
    FileResult result;
    result.listing = ListingOf(baseline, options.format);
    result.warnings = baseline.warnings;
    result.outputs = {baseline.record.To(inputs.places[index])};
    return result;
  });
}

std::string SettingsHelp() {
  std::string text =
      "Limits that are not given: 0.2 dB, 2 dB, 0.05 dB/km and 0.5 dB. They are limits of what changes, of "
      "the\n"
      "loss only of what grows. Settings of the comparison, each with the value that it has without --set:\n";
  for (const ComparisonSetting& setting : ComparisonSettings())
    text += "  " + std::string(setting.name) + std::string(20 - std::strlen(setting.name), ' ') +
            setting.meaning + "\n";
  return text;
}

}  // namespace

void AddBaselineCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<BaselineCommand>();
  Monitoring& monitoring = options->monitoring;
  CLI::App* command = app.add_subcommand(
      "baseline", "Make a trace the baseline of its fibre's monitoring; analyses what has no events");
  AddJobInputs(*command, options->job, "; several give a baseline each");
  AddJobOutput(*command, options->job, "SOR file to write; of several, each below that folder")->required();
  command->add_option("--level", monitoring.level, "Name of the alarm level")
      ->type_name("NAME")
      ->required()
      ->check(Check(LevelNameProblem));
  const auto addLimit = [&](const char* name, double& limit, const char* unit, const char* meaning) {
    command->add_option(name, limit, meaning)
        ->type_name(unit)
        ->transform(NumberBetween(0.0, kLargestLimit))
        ->capture_default_str();
  };
  addLimit("--lt", monitoring.ltDb, "DB", "Largest growth of an event's loss, dB");
  addLimit("--rt", monitoring.rtDb, "DB", "Largest change of its reflectance, dB");
  addLimit("--ct", monitoring.ctDbPerKm, "DB_PER_KM", "Largest change of the attenuation before it, dB/km");
  addLimit("--eel", monitoring.eelDb, "DB",
           "Largest change of the end-to-end loss, dB; stored for other hosts");
  command
      ->add_option("--search", options->search,
                   "A stretch to search for new events; else each section between two events")
      ->type_name("KM:KM")
      ->allow_extra_args(false)
      ->check(Check(StretchProblem));
  command->add_option("--set", options->settings, "A setting of the comparison, see below")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false)
      ->check(Check(SettingProblem));
  AddTableFormatOption(*command, options->format);
  command->footer(SettingsHelp());
  command->callback([options, &session] {
    for (const std::string& text : options->search) options->monitoring.search.push_back(StretchOf(text));
    for (const std::string& text : options->settings) options->monitoring.settings.push_back(SettingOf(text));
    session.command = [options](Session& running) { return RunBaseline(running, *options); };
  });
}

}  // namespace reflyze::cli
