#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "cli/AnalysedRecord.h"
#include "cli/Baseline.h"
#include "cli/EngineCall.h"
#include "cli/EventTable.h"
#include "cli/JsonText.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Text.h"
#include "src/monitor/RFTSUParams.h"

namespace reflyze::cli {
namespace {

struct BaselineOptions {
  std::string trace;
  std::string output;
  Monitoring monitoring;
  std::vector<std::string> search, settings;  // as written
  std::string format = "text";
};

constexpr double kFarthestKm = 10000.0;

std::string LevelNameProblem(const std::string& name) {
  // To a record, a comparison with a level that has no name is none.
  if (name.find_first_not_of(' ') == std::string::npos) return "the name is empty";
  return std::any_of(name.begin(), name.end(), IsControl) ? "a name is one line of text" : "";
}

// "FROM:TO" in km.
std::string StretchProblem(const std::string& text) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos) return "\"" + text + "\" is not KM:KM";
  const CLI::Validator distance = NumberBetween(-kFarthestKm, kFarthestKm);
  std::string from = text.substr(0, colon), to = text.substr(colon + 1);
  for (std::string* km : {&from, &to}) {
    std::string wrong = distance(*km);
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
  std::string value = text.substr(equals + 1);
  const std::string wrong = NumberBetween(setting->least, setting->most)(value);
  return wrong.empty() ? "" : name + ": " + wrong;
}

std::pair<std::string, double> SettingOf(const std::string& text) {
  const size_t equals = text.find('=');
  return {text.substr(0, equals), std::strtod(text.c_str() + equals + 1, nullptr)};
}

// A check without a name of its own in the help: the option's text tells.
CLI::Validator Check(std::string (*problem)(const std::string&)) {
  return CLI::Validator([problem](std::string& text) { return problem(text); }, "");
}

std::vector<Stretch> StretchesOn(const TSorData& record) {
  std::vector<Stretch> stretches;
  for (int i = 0; i < record.QRTEvents->events->GetSize(); ++i) {
    const TSorBlockQRTEvents1E& section = *record.QRTEvents->events->GetData(i);
    stretches.push_back({record.OwtToLen(section.ML0), record.OwtToLen(section.ML1)});
  }
  return stretches;
}

// The limits as the record holds them, in thousandths.
Monitoring HeldLimits(const TSorData& record, const Monitoring& asked) {
  constexpr double kThousandths = 1000.0;
  const TRFTSLevel& level = *record.RFTSParams->GetActiveLevel();
  const TThresholdsRFTSSet& limits = *level.GetThresholdsSet(0);
  Monitoring held = asked;
  held.level = Utf8(level.GetName());
  held.ltDb = limits.GetLT().GetThreshold() / kThousandths;
  held.rtDb = limits.GetRT().GetThreshold() / kThousandths;
  held.ctDbPerKm = limits.GetCT().GetThreshold() / kThousandths;
  held.eelDb = level.GetEELT().GetThreshold() / kThousandths;
  return held;
}

using Settings = std::vector<std::pair<std::string, double>>;

Settings SettingsOf(const TSorData& record) {
  Settings settings;
  for (int i = 0; i < record.RFTSParams->GetTNUP(); ++i) {
    TRFTSUniversalParameter& setting = *record.RFTSParams->GetUParameter(i);
    settings.emplace_back(setting.GetName().c_str(), setting.GetValue());
  }
  return settings;
}

std::string TextOf(const EventTable& events, const Monitoring& monitoring,
                   const std::vector<Stretch>& stretches, const Settings& settings) {
  std::string text = TextOf(events);
  text +=
      Format("\nAlarm level  %s: changes of loss above %.3f dB, reflectance %.2f dB, section %.3f dB/km\n",
             OneLine(monitoring.level).c_str(), monitoring.ltDb, monitoring.rtDb, monitoring.ctDbPerKm);
  text += "New events   searched in";
  for (size_t i = 0; i < stretches.size(); ++i) {
    text += Format("%s %.3f to %.3f", i == 0 ? "" : ",", NoMinusZero(stretches[i].fromKm, 3),
                   NoMinusZero(stretches[i].toKm, 3));
  }
  text += stretches.empty() ? " no section\n" : " km\n";
  for (const auto& [name, value] : settings) text += Format("Setting      %s = %g\n", name.c_str(), value);
  return text;
}

std::string JsonOf(const EventTable& events, const Monitoring& monitoring,
                   const std::vector<Stretch>& stretches, const Settings& settings) {
  nlohmann::ordered_json json = JsonObjectOf(events);
  json["level"] = {{"name", monitoring.level},
                   {"lt_db", monitoring.ltDb},
                   {"rt_db", monitoring.rtDb},
                   {"ct_db_per_km", monitoring.ctDbPerKm},
                   {"eel_db", monitoring.eelDb}};
  json["search"] = nlohmann::ordered_json::array();
  for (const Stretch& stretch : stretches)
    json["search"].push_back({{"from_km", stretch.fromKm}, {"to_km", stretch.toKm}});
  json["settings"] = nlohmann::ordered_json::object();
  for (const auto& [name, value] : settings) json["settings"][name] = value;
  return JsonText(json) + "\n";
}

// A joint that the baseline does not list would be told as new with the first search for new events. Whether
// one is listed is a matter of noise close to the threshold: half of what the search takes keeps clear of it.
ThresholdOptions FineEnough(const Monitoring& monitoring) {
  constexpr double kShareOfSearch = 0.5;
  double searchLtDb = TRFTSUParams().AutoLT;
  for (const auto& [name, value] : monitoring.settings)
    if (name == "AutoLT") searchLtDb = value;
  ThresholdOptions thresholds;
  thresholds.mostLtDb = kShareOfSearch * searchLtDb;
  return thresholds;
}

int RunBaseline(Session& session, const BaselineOptions& options) {
  const ThresholdSource thresholds(session, FineEnough(options.monitoring));
  AnalysedRecord loaded = LoadAnalysedRecord(session, options.trace, thresholds, false);
  TSorData& record = *loaded.record;
  if (!ShowsFibre(record))
    throw Problem(kUnreadable, loaded.name + ": shows no fibre: nothing to watch behind the launch");
  CallEngine(loaded.name, "watched", [&] { MakeBaseline(record, options.monitoring); });
  const EventTable events = MakeEventTable(loaded.given, record, loaded.thresholds, Numbers::kMeasured);
  const Monitoring held = HeldLimits(record, options.monitoring);
  const std::vector<Stretch> stretches = StretchesOn(record);
  const Settings settings = SettingsOf(record);
  SaveRecord(record, options.output);
  WarnOfReading(session, loaded);
  WarnOfSecondTable(session, loaded);
  session.Print(options.format == "json" ? JsonOf(events, held, stretches, settings)
                                         : TextOf(events, held, stretches, settings));
  return kDone;
}

std::string SettingsHelp() {
  std::string text =
      "Limits that are not given: 0.2 dB, 2 dB, 0.05 dB/km and 0.5 dB. They are limits of what changes, of "
      "the\n"
      "loss only of what grows. Settings of the comparison, each with the value that it has without --set:\n";
  for (const ComparisonSetting& setting : ComparisonSettings())
    text += Format("  %-19s %s\n", setting.name, setting.meaning);
  return text;
}

}  // namespace

void AddBaselineCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<BaselineOptions>();
  Monitoring& monitoring = options->monitoring;
  CLI::App* command = app.add_subcommand(
      "baseline", "Make a trace the baseline of its fibre's monitoring; analyses what has no events");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("-o,--output", options->output, "SOR file to write")->required()->check(OutputName());
  command->add_option("--level", monitoring.level, "Name of the alarm level")
      ->required()
      ->check(Check(LevelNameProblem));
  const auto addLimit = [&](const char* name, double& limit, const char* meaning) {
    command->add_option(name, limit, meaning)
        ->transform(NumberBetween(0.0, kLargestLimit))
        ->capture_default_str();
  };
  addLimit("--lt", monitoring.ltDb, "Largest growth of an event's loss, dB");
  addLimit("--rt", monitoring.rtDb, "Largest change of its reflectance, dB");
  addLimit("--ct", monitoring.ctDbPerKm, "Largest change of the attenuation before it, dB/km");
  addLimit("--eel", monitoring.eelDb, "Largest change of the end-to-end loss, dB; stored for other hosts");
  command
      ->add_option("--search", options->search,
                   "KM:KM, a stretch to search for new events; else each section between two events")
      ->allow_extra_args(false)
      ->check(Check(StretchProblem));
  command->add_option("--set", options->settings, "NAME=VALUE, a setting of the comparison, see below")
      ->allow_extra_args(false)
      ->check(Check(SettingProblem));
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->footer(SettingsHelp());
  command->callback([options, &session] {
    for (const std::string& text : options->search) options->monitoring.search.push_back(StretchOf(text));
    for (const std::string& text : options->settings) options->monitoring.settings.push_back(SettingOf(text));
    session.command = [options](Session& running) { return RunBaseline(running, *options); };
  });
}

}  // namespace reflyze::cli
