// SPDX-License-Identifier: Apache-2.0

// What a trace of a job says of itself.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "lib/LoadedRecord.h"
#include "lib/Text.h"
#include "reflyze/cable.h"
#include "util/convert.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

std::vector<std::string> Words(const std::string& stem) {
  std::vector<std::string> words(1);
  for (const char c : stem) {
    if (c == '_' || c == ' ') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  words.erase(std::remove(words.begin(), words.end(), ""), words.end());
  return words;
}

std::string DirectionOf(std::string word) {
  std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::toupper(c); });
  if (word == "A" || word == "AB" || word == "OE") return "A";
  return word == "B" || word == "BA" || word == "EO" ? "B" : "";
}

int WavelengthOf(const std::string& word) {
  const std::string digits = word.substr(0, 4), rest = word.substr(std::min<size_t>(4, word.size()));
  if (digits.size() != 4 && word != "850") return 0;
  if (!rest.empty() && rest != "nm") return 0;
  if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) return 0;
  const int nm = std::atoi(digits.c_str());
  return nm == 850 || (nm >= 1260 && nm <= 1675) ? nm : 0;
}

// The wavelength that an instrument is sold for, of the one that its laser has.
int Nominal(double nm) {
  for (const int usual : {850, 1300, 1310, 1383, 1490, 1550, 1625, 1650}) {
    if (std::fabs(nm - usual) <= 5.0) return usual;
  }
  for (const int usual : {850, 1310, 1490, 1550, 1625}) {
    if (std::fabs(nm - usual) <= 15.0) return usual;
  }
  return TruncToInt(std::round(nm));
}

bool HasDigit(const std::string& word) {
  return std::any_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
}

void TakeName(CableTrace& trace) {
  std::vector<std::string> words = Words(std::filesystem::path(trace.file).stem().string());
  if (words.size() > 1 && !(trace.direction = DirectionOf(words.back())).empty()) words.pop_back();
  if (words.size() > 1 && (trace.wavelengthNm = WavelengthOf(words.back())) != 0) words.pop_back();
  // Some put the fibre behind the wavelength or the direction in front of it; then the record decides.
  if (!words.empty() && trace.wavelengthNm != 0 && HasDigit(words.back())) {
    trace.fibre = words.back();
    words.pop_back();
    for (const std::string& word : words) trace.cable += (trace.cable.empty() ? "" : "_") + word;
  }
}

// FNV-1a over the levels, which tells samples apart as well as any digest that nobody attacks.
std::uint64_t DigestOf(const TSorData& record) {
  std::uint64_t digest = 14695981039346656037ull;
  const long count = record.DataPts->GetPointsNum();
  for (long i = 0; i < count; ++i) {
    const auto level = static_cast<std::int64_t>(std::lround(record.NumToLevel(i) * 10000.0));
    digest = (digest ^ static_cast<std::uint64_t>(level)) * 1099511628211ull;
  }
  return digest;
}

constexpr const char* kState = "reflyze cable trace 1";

template <class T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

std::optional<double> NumberAt(const Json& json, const char* key) {
  const Json& value = json.at(key);
  return value.is_null() ? std::nullopt : std::optional<double>(value.get<double>());
}

Json StateOfEvent(const Event& event) {
  return {{"n", event.number},
          {"ept", event.eptOwt},
          {"km", event.distanceKm},
          {"sd", OrNull(event.distanceSdM)},
          {"code", event.code},
          {"type", event.type},
          {"loss", OrNull(event.lossDb)},
          {"loss_sd", OrNull(event.lossSdDb)},
          {"r", OrNull(event.reflectanceDb)},
          {"r_sd", OrNull(event.reflectanceSdDb)},
          {"r_least", event.reflectanceAtLeast},
          {"a", OrNull(event.attenuationDbPerKm)},
          {"a_sd", OrNull(event.attenuationSdDbPerKm)},
          {"sum", OrNull(event.cumulatedDb)},
          {"p", OrNull(event.probability)}};
}

Event EventFrom(const Json& json) {
  Event event;
  event.number = json.at("n");
  event.eptOwt = json.at("ept");
  event.distanceKm = json.at("km");
  event.distanceSdM = NumberAt(json, "sd");
  event.code = json.at("code");
  event.type = json.at("type");
  event.lossDb = NumberAt(json, "loss");
  event.lossSdDb = NumberAt(json, "loss_sd");
  event.reflectanceDb = NumberAt(json, "r");
  event.reflectanceSdDb = NumberAt(json, "r_sd");
  event.reflectanceAtLeast = json.at("r_least");
  event.attenuationDbPerKm = NumberAt(json, "a");
  event.attenuationSdDbPerKm = NumberAt(json, "a_sd");
  event.cumulatedDb = NumberAt(json, "sum");
  event.probability = NumberAt(json, "p");
  return event;
}

CableTrace TraceFrom(const Json& json, const std::string& file) {
  CableTrace trace;
  trace.file = trace.table.file = file;
  trace.cable = json.at("cable");
  trace.fibre = json.at("fibre");
  trace.direction = json.at("direction");
  trace.wavelengthNm = json.at("nm");
  trace.dateUtc = json.at("date");
  trace.samples = json.at("samples");
  trace.recordFibre = json.at("record_fibre");
  trace.recordNm = json.at("record_nm");
  trace.from = json.at("from");
  trace.to = json.at("to");
  trace.table.wavelengthNm = json.at("actual_nm");
  trace.table.pulseNs = json.at("pulse");
  trace.table.spacingM = json.at("spacing");
  trace.table.fibre = json.at("shows_fibre");
  trace.table.measurement = json.at("measured").get<bool>() ? Measurement::kDone : Measurement::kFailed;
  trace.table.lengthKm = NumberAt(json, "length");
  trace.table.totalLossDb = NumberAt(json, "total");
  trace.table.totalLossSdDb = NumberAt(json, "total_sd");
  trace.table.returnLossDb = NumberAt(json, "orl");
  for (const std::string text : json.at("warnings")) trace.table.warnings.push_back({file, text});
  for (const Json& event : json.at("events")) trace.table.events.push_back(EventFrom(event));
  return trace;
}

}  // namespace

CableTrace ReadForCable(const Trace& input) {
  CableTrace trace;
  trace.file = input.Name();
  const Card card = input.GetCard();
  TakeName(trace);
  trace.recordFibre = Trimmed(card.fibre, " ");
  trace.recordNm = Nominal(card.wavelengthNm);
  trace.from = Trimmed(card.from, " ");
  trace.to = Trimmed(card.to, " ");
  trace.dateUtc = card.dateUtc;
  if (trace.cable.empty()) trace.cable = Trimmed(card.cable, " ");
  if (trace.fibre.empty()) trace.fibre = trace.recordFibre;
  if (trace.wavelengthNm == 0) trace.wavelengthNm = trace.recordNm;
  trace.samples = DigestOf(*input.Loaded().record);
  return trace;
}

CableTrace AnalyseForCable(Trace input, const AnalyseOptions& options) {
  CableTrace trace = ReadForCable(input);
  trace.table = Analyse(std::move(input), options);
  return trace;
}

std::string StateOf(const CableTrace& trace) {
  const EventTable& table = trace.table;
  Json json = {{"state", kState},
               {"cable", trace.cable},
               {"fibre", trace.fibre},
               {"direction", trace.direction},
               {"nm", trace.wavelengthNm},
               {"date", trace.dateUtc},
               {"samples", trace.samples},
               {"record_fibre", trace.recordFibre},
               {"record_nm", trace.recordNm},
               {"from", trace.from},
               {"to", trace.to},
               {"actual_nm", table.wavelengthNm},
               {"pulse", table.pulseNs},
               {"spacing", table.spacingM},
               {"shows_fibre", table.fibre},
               {"measured", table.measurement == Measurement::kDone},
               {"length", OrNull(table.lengthKm)},
               {"total", OrNull(table.totalLossDb)},
               {"total_sd", OrNull(table.totalLossSdDb)},
               {"orl", OrNull(table.returnLossDb)}};
  json["warnings"] = Json::array();
  for (const Warning& warning : table.warnings) json["warnings"].push_back(warning.text);
  json["events"] = Json::array();
  for (const Event& event : table.events) json["events"].push_back(StateOfEvent(event));
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

CableTrace CableTraceFrom(const std::string& state, const std::string& file) {
  try {
    const Json json = Json::parse(state);
    if (json.at("state") == kState) return TraceFrom(json, file);
  } catch (const Json::exception&) {
    // What is no such text ends below.
  }
  throw Error(ErrorKind::kUnreadable, file, "the state beside its result is none");
}

}  // namespace reflyze
