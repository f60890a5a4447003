// SPDX-License-Identifier: Apache-2.0
#include "cli/Options.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "cli/Session.h"
#include "reflyze/events.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

// A check that adds nothing to the help, since the option's text says what it takes.
template <class Check>
CLI::Validator Unnamed(Check check) {
  return CLI::Validator([check](std::string& text) { return check(text); }, "");
}

}  // namespace

CLI::Validator NumberBetween(double least, double most) {
  return Unnamed([least, most](std::string& text) -> std::string {
    std::string wrong = WhyNoNumber(text, least, most);
    if (!wrong.empty()) return wrong;
    char exact[64];
    std::snprintf(exact, sizeof exact, "%a", std::strtod(text.c_str(), nullptr));
    text = exact;
    return "";
  });
}

CLI::Validator WholeNumber() {
  return Unnamed([](const std::string& text) -> std::string {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole ? "" : "\"" + text + "\" is no whole number from 0 to 18446744073709551615";
  });
}

CLI::Validator TextEncoding() {
  return Unnamed([](const std::string& text) -> std::string {
    return IsTextEncoding(text) ? "" : "\"" + text + "\" is no encoding that is known here";
  });
}

bool NameTheSame(const std::string& one, const std::string& other) {
  std::error_code unknown;  // where it is set, the names as given decide
  const std::filesystem::path path = std::filesystem::weakly_canonical(one, unknown);
  const std::filesystem::path otherPath = std::filesystem::weakly_canonical(other, unknown);
  return one == other || (!unknown && path == otherPath);
}

CLI::Validator InputName() {
  return Unnamed(
      [](const std::string& text) -> std::string { return text.empty() ? "the name is empty" : ""; });
}

CLI::Validator OutputName() {
  return Unnamed([](const std::string& text) -> std::string {
    if (text.empty()) return "the name is empty";
    return text == "-" ? "a file must be named, standard output takes none" : "";
  });
}

CLI::Option* AddFormatOption(CLI::App& command, std::string& format) {
  return command.add_option("--format", format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
}

CLI::Option* AddTableFormatOption(CLI::App& command, std::string& format, const std::string& json) {
  return command.add_option("--format", format, "text, json (" + json + ") or csv")
      ->check(CLI::IsMember({"text", "json", "csv"}))
      ->capture_default_str();
}

unsigned WorkOptions::Threads() const { return jobs != 0 ? jobs : std::thread::hardware_concurrency(); }

void AddWorkOptions(CLI::App& command, WorkOptions& options) {
  constexpr unsigned kMostJobs = 1024;
  command
      .add_option("-j,--jobs", options.jobs,
                  "Traces to analyse at once; as many as there are cores, if not given")
      ->type_name("N")
      ->check(NumberBetween(1, kMostJobs));
  command.add_flag("-q,--quiet", options.quiet, "Don't show on a terminal which trace is being analysed");
}

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options) {
  Thresholds& asked = options.thresholds;
  command.add_option("--lt", asked.lossDb, "Loss threshold, dB")
      ->type_name("DB")
      ->transform(NumberBetween(0.0, kLargestThreshold));
  command.add_option("--rt", asked.reflectanceDb, "Reflectance threshold, dB (negative)")
      ->type_name("DB")
      ->transform(NumberBetween(-kLargestThreshold, 0.0));
  command.add_option("--et", asked.endDb, "End of fibre threshold, dB")
      ->type_name("DB")
      ->transform(NumberBetween(0.0, kLargestThreshold));
  command.add_option("--ct", asked.slopeDbPerKm, "Slope threshold, dB/km")
      ->type_name("DB_PER_KM")
      ->transform(NumberBetween(0.0, kLargestThreshold));
  CLI::Option* file = command.add_option("--thresholds", options.file, "INI document with thresholds")
                          ->type_name(kFileValue)
                          ->check(InputName());
  command.add_option("--section", options.section, "Section of that document")
      ->type_name("NAME")
      ->needs(file)
      ->capture_default_str();
}

ThresholdDocument ReadDocument(Session& session, const ThresholdOptions& options) {
  if (options.file.empty()) return {};
  const std::vector<char> bytes = session.Read(options.file, kLargestThresholdDocument);
  return ThresholdDocument::FromText(options.file, {bytes.begin(), bytes.end()}, options.section);
}

Reels LinkOptions::AskedReels() const {
  Reels reels;
  const auto take = [](const std::string& text, bool& there, std::optional<double>& km) {
    there = !text.empty();
    if (there && text != "auto") km = std::strtod(text.c_str(), nullptr);
  };
  take(launch, reels.launch, reels.launchKm);
  take(receive, reels.receive, reels.receiveKm);
  return reels;
}

void AddLinkOptions(CLI::App& command, LinkOptions& options) {
  constexpr double kShortestKm = 0.001, kLongestKm = 100.0;
  const CLI::Validator length = Unnamed([](const std::string& text) -> std::string {
    return text == "auto" ? "" : WhyNoNumber(text, kShortestKm, kLongestKm);
  });
  command
      .add_option("--limits", options.limits, "Document of limits (INI or JSON); status 5 if something fails")
      ->type_name(kFileValue)
      ->check(InputName());
  command
      .add_option("--launch", options.launch,
                  "Launch reel, km or auto: the link begins with the connector at its end")
      ->type_name("KM")
      ->check(length);
  command
      .add_option("--receive", options.receive,
                  "Receive reel, km or auto: the link ends with the connector in front of it")
      ->type_name("KM")
      ->check(length);
}

std::string ReadLimitsText(Session& session, const LinkOptions& options) {
  if (options.limits.empty()) return "";
  const std::vector<char> bytes = session.Read(options.limits, kLargestLimitsDocument);
  return {bytes.begin(), bytes.end()};
}

std::optional<Limits> ReadLimits(Session& session, const LinkOptions& options) {
  if (options.limits.empty()) return std::nullopt;
  return Limits::FromText(ShownName(options.limits), ReadLimitsText(session, options));
}

}  // namespace reflyze::cli
