// SPDX-License-Identifier: Apache-2.0
#include "lib/Text.h"
#include "reflyze/report.h"
#include "report/Words.h"

namespace reflyze {
namespace {

std::string CsvText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

std::string CsvHeader() {
  return "file,number,distance_km,type,code,loss_db,reflectance_db,attenuation_db_per_km,cumulated_db,"
         "comment\n";
}

std::string CsvOf(const EventTable& table) {
  const auto number = [](std::optional<double> value) { return value ? NumberOrDash(value, 3) : ""; };
  std::string text;
  for (const Event& row : table.events) {
    text += CsvText(ValidUtf8(table.file)) +
            Format(",%d,%.6f,%s,%s,%s,%s,%s,%.3f,", row.number, NoMinusZero(row.distanceKm, 6),
                   CsvText(row.type).c_str(), CsvText(row.code).c_str(), number(row.lossDb).c_str(),
                   number(row.reflectanceDb).c_str(), number(row.attenuationDbPerKm).c_str(),
                   NoMinusZero(row.cumulatedDb, 3)) +
            CsvText(row.comment) + "\n";
  }
  return text;
}

}  // namespace reflyze
