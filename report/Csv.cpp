// SPDX-License-Identifier: Apache-2.0
#include "lib/Text.h"
#include "reflyze/report.h"
#include "report/Words.h"

namespace reflyze {

std::string CsvText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

namespace {

constexpr int kDeviationDecimals = 5;  // the least deviations are of some 0.0001 dB/km

}  // namespace

// What is measured stands behind what every table has, so that each column keeps its place.
std::string CsvHeader(Measurement measurement) {
  std::string heading =
      "file,number,distance_km,type,code,loss_db,reflectance_db,attenuation_db_per_km,cumulated_db,comment";
  if (measurement != Measurement::kNone)
    heading += ",distance_sd_m,loss_sd_db,reflectance_sd_db,attenuation_sd_db_per_km,probability";
  return heading + "\n";
}

std::string JudgedCsvHeader(Measurement measurement) {
  std::string heading = CsvHeader(measurement);
  heading.pop_back();
  return heading + ",loss_verdict,reflectance_verdict,attenuation_verdict\n";
}

namespace {

std::string CsvOfTable(const EventTable& table, const LinkVerdict* verdict) {
  const auto number = [](std::optional<double> value, int decimals = 3) {
    return value ? NumberOrDash(value, decimals) : "";
  };
  std::string text;
  for (size_t i = 0; i < table.events.size(); ++i) {
    const Event& row = table.events[i];
    text += CsvText(ValidUtf8(table.file)) +
            Format(",%d,%.6f,%s,%s,%s,%s,%s,%s,", row.number, NoMinusZero(row.distanceKm, 6),
                   CsvText(row.type).c_str(), CsvText(row.code).c_str(), number(row.lossDb).c_str(),
                   number(row.reflectanceDb).c_str(), number(row.attenuationDbPerKm).c_str(),
                   number(row.cumulatedDb).c_str()) +
            CsvText(row.comment);
    if (table.measurement != Measurement::kNone) {
      for (const std::optional<double>& sd :
           {row.distanceSdM, row.lossSdDb, row.reflectanceSdDb, row.attenuationSdDbPerKm, row.probability})
        text += "," + number(sd, kDeviationDecimals);
    }
    if (verdict != nullptr) {
      const EventVerdict& worth = verdict->events[i];
      for (const Verdict one : {worth.loss, worth.reflectance, worth.attenuation})
        text += std::string(",") + WordOf(one);
    }
    text += "\n";
  }
  return text;
}

}  // namespace

std::string CsvOf(const EventTable& table) { return CsvOfTable(table, nullptr); }

std::string CsvOf(const LinkTable& link) {
  return CsvOfTable(link.table, link.verdict ? &*link.verdict : nullptr);
}

}  // namespace reflyze
