// SPDX-License-Identifier: Apache-2.0

// The card and the event table of a file, as people, scripts and spreadsheets read them.

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "lib/Decimal.h"
#include "lib/Text.h"
#include "reflyze/report.h"
#include "report/JsonText.h"
#include "report/Words.h"
#include "util/timeutil.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kMinute = 60, kHour = 3600;  // s

std::string Stamp(const std::tm& time, const char* format) {
  char text[40];
  return {text, std::strftime(text, sizeof text, format, &time)};
}

// The same instant by the clock of this place, with its distance from UTC; "" beyond the calendar.
struct Instant {
  std::string utc, local;
};

Instant InstantOf(long long seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm utc{}, local{};
  if (seconds == 0 || gmtime_r(&time, &utc) == nullptr || !ToLocalTime(static_cast<long>(seconds), local))
    return {};
  std::tm shown = local;
  const long offset = static_cast<long>(timegm(&shown) - time), size = std::labs(offset);
  return {Stamp(utc, "%Y-%m-%dT%H:%M:%SZ"),
          Stamp(local, "%Y-%m-%dT%H:%M:%S") +
              Format("%c%02ld:%02ld", offset < 0 ? '-' : '+', size / kHour, size % kHour / kMinute)};
}

std::string OrDash(const std::string& text) {
  std::string line = OneLine(text);
  line.resize(line.find_last_not_of(' ') + 1);  // makers fill texts up
  return line.empty() ? "-" : line;
}

std::string Number(std::optional<double> value, int decimals, const char* unit = "") {
  if (!value || !std::isfinite(*value)) return "-";
  return NumberOrDash(value, decimals) + (*unit == '\0' ? "" : std::string(" ") + unit);
}

std::string DirectionInWords(const std::string& code) {
  if (code == "ST") return "as named, from the first place to the second";
  if (code == "RT") return "reverse, from the second place to the first";
  if (code == "DT") return "none, the difference of two traces";
  if (code == "RF") return "as named, a reference trace";
  return OrDash(code);
}

std::string DataStateInWords(const std::string& code) {
  if (code == "BC") return "as built";
  if (code == "CC") return "as it was at the time";
  if (code == "RC") return "as repaired";
  if (code == "OT") return "other";
  return OrDash(code);
}

std::string DateText(long long seconds) {
  const Instant instant = InstantOf(seconds);
  return instant.utc.empty() ? "-" : instant.local + " (" + instant.utc + ")";
}

std::string Serial(const std::string& name, const std::string& serial) {
  return OrDash(name) + (OrDash(serial) == "-" ? "" : ", number " + OrDash(serial));
}

std::string Instrument(const Card& card) {
  const std::string maker = OrDash(card.supplier), model = Serial(card.instrument, card.instrumentSerial);
  return maker == "-" ? model : model == "-" ? maker : maker + ", " + model;
}

std::string AveragesText(const Sheet& sheet) {
  std::string text = sheet.card.averages > 0 ? std::to_string(sheet.card.averages) : "-";
  if (sheet.averagingTime)
    text +=
        Format(" in %d (tenths of a second by the standard, seconds from many makers)", *sheet.averagingTime);
  return text;
}

std::string CardText(const Sheet& sheet) {
  const Card& card = sheet.card;
  std::string text;
  const auto line = [&text](const char* name, const std::string& value) {
    text += PaddedRight(name, 13) + value + "\n";
  };
  line("File",
       ShownName(sheet.file) + Format(" (%lld bytes, revision %.2f)", sheet.bytes, sheet.revision / 100.0));
  line("Cable",
       OrDash(card.cable) + (OrDash(card.cableCode) == "-" ? "" : ", code " + OrDash(card.cableCode)));
  line("Fibre", OrDash(card.fibre) +
                    (sheet.hasFibreType && card.fibreType > 0 ? Format(" (G.%d)", card.fibreType) : ""));
  line("Between", OrDash(card.from) + " and " + OrDash(card.to));
  line("Direction", DirectionInWords(sheet.direction));
  line("State", DataStateInWords(sheet.dataState));
  line("Date", DateText(card.dateUtc));
  line("Operator", OrDash(card.operatorName));
  line("Comment", OrDash(card.comment));
  line("Instrument", Instrument(card));
  line("Module", Serial(card.module, card.moduleSerial));
  line("Software", OrDash(card.software));
  line("Wavelength", Number(card.wavelengthNm, 1, "nm") + Format(" (nominal %.0f nm)", sheet.nominalNm));
  line("Pulse", Number(card.pulseNs, 0, "ns"));
  line("Range", Number(card.rangeKm, 3, "km") + ", " + std::to_string(card.points) + " points " +
                    Number(card.spacingM, 4, "m") + " apart, the first at " + Number(sheet.firstKm, 4, "km"));
  line("Group index", Number(card.groupIndex, 5));
  line("Backscatter", Number(card.backscatterDb, 1, "dB") + " (pulse of 1 ns)");
  line("Averages", AveragesText(sheet));
  line("Thresholds", "loss " + Number(sheet.thresholds.lossDb, 3, "dB") + ", reflectance " +
                         Number(sheet.thresholds.reflectanceDb, 1, "dB") + ", end " +
                         Number(sheet.thresholds.endDb, 2, "dB") + ", slope " +
                         Number(sheet.thresholds.slopeDbPerKm, 2, "dB/km"));
  line("User offset", Number(card.userOffsetKm, 4, "km"));
  line("Noise floor", Number(sheet.noiseFloorDb, 2, "dB"));
  return text;
}

std::string Km(double km) { return Number(km, 4); }

std::string StoredRows(const Sheet& sheet) {
  std::string text =
      "  No  Distance    Loss    Refl.    Section  Cumulated  Code      What it is\n"
      "            km      dB       dB      dB/km         dB\n"
      " ---  --------  ------  -------  ---------  ---------  --------  ----------\n";
  bool any = false;
  for (const SheetRow& row : sheet.rows) {
    if (!row.stored) continue;
    any = true;
    const Event& event = *row.stored;
    text +=
        Format("%c%3d  %8s  %6s  %7s  %9s  %9s  %-8s  %s\n", row.meaning.byHand ? '*' : ' ', event.number,
               Km(event.distanceKm).c_str(), Number(event.lossDb, 3).c_str(), ReflectanceText(event).c_str(),
               Number(event.attenuationDbPerKm, 3).c_str(), Number(event.cumulatedDb, 3).c_str(),
               OneLine(event.code + event.technique).c_str(), OneLine(row.meaning.words).c_str());
    if (OrDash(event.comment) != "-") text += std::string(57, ' ') + OneLine(event.comment) + "\n";
  }
  return any ? text : text + " no events\n";
}

std::string TotalsText(const SheetTotals& totals) {
  return Format("Length %s  End-to-end loss %s  Return loss %s\n", Number(totals.lengthKm, 4, "km").c_str(),
                Number(totals.totalLossDb, 3, "dB").c_str(), Number(totals.returnLossDb, 2, "dB").c_str());
}

// A number that was measured, and by how much it differs from that of the file.
std::string WithDifference(std::optional<double> measured, std::optional<double> off, int decimals, int width,
                           int offWidth, bool atLeast = false) {
  const std::string number = (atLeast && measured ? ">" : "") + Number(measured, decimals);
  const std::string difference = off ? Format("%+.*f", decimals, NoMinusZero(*off, decimals)) : "-";
  return Format("%*s %*s", width, number.c_str(), offWidth, difference.c_str());
}

std::string MeasuredRows(const Sheet& sheet) {
  std::string text =
      "\nMeasured on the trace, with the difference to the file\n"
      "  No      Distance           Loss             Refl.            Section\n"
      "            km        m        dB       dB       dB       dB     dB/km   dB/km\n"
      " ---  --------  -------  --------  -------  -------  -------  --------  ------\n";
  for (const SheetRow& row : sheet.rows) {
    if (!row.measured) {
      text += Format(" %3d  not found at %s km\n", row.stored->number, Km(row.stored->distanceKm).c_str());
      continue;
    }
    const Event& event = *row.measured;
    text += Format(
        " %3s  %s  %s  %s  %s\n", row.stored ? std::to_string(row.stored->number).c_str() : "new",
        Format("%8s %8s", Km(event.distanceKm).c_str(),
               row.distanceOffM ? Format("%+.2f", NoMinusZero(*row.distanceOffM, 2)).c_str() : "-")
            .c_str(),
        WithDifference(event.lossDb, row.lossOffDb, 3, 8, 8).c_str(),
        WithDifference(event.reflectanceDb, row.reflectanceOffDb, 2, 7, 8, event.reflectanceAtLeast).c_str(),
        WithDifference(event.attenuationDbPerKm, row.attenuationOffDbPerKm, 3, 8, 7).c_str());
  }
  return text + "\n" + TotalsText(sheet.measured);
}

Json JsonOf(const SheetTotals& totals) {
  return {{"length_km", NumberOrNull(totals.lengthKm)},
          {"total_loss_db", NumberOrNull(totals.totalLossDb)},
          {"orl_db", NumberOrNull(totals.returnLossDb)}};
}

Json TextOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json CardJson(const Sheet& sheet) {
  const Card& card = sheet.card;
  const Instant instant = InstantOf(card.dateUtc);
  Json json = {{"cable", card.cable}, {"fibre", card.fibre}, {"cable_code", card.cableCode}};
  json["fibre_type"] = sheet.hasFibreType ? Json(card.fibreType) : Json(nullptr);
  json.update({{"from", card.from}, {"to", card.to}});
  json["direction"] = TextOrNull(sheet.direction);
  json["state"] = TextOrNull(sheet.dataState);
  json["date_utc"] = TextOrNull(instant.utc);
  json["date_local"] = TextOrNull(instant.local);
  for (const auto& [key, text] : {std::pair("operator", &card.operatorName),
                                  {"comment", &card.comment},
                                  {"supplier", &card.supplier},
                                  {"instrument", &card.instrument},
                                  {"instrument_serial", &card.instrumentSerial},
                                  {"module", &card.module},
                                  {"module_serial", &card.moduleSerial},
                                  {"software", &card.software}})
    json[key] = *text;
  json["wavelength_nm"] = card.wavelengthNm;
  json["nominal_nm"] = sheet.nominalNm;
  json["pulse_ns"] = card.pulseNs;
  json["points"] = card.points;
  json["spacing_m"] = card.spacingM;
  json["range_km"] = card.rangeKm;
  json["first_km"] = NumberOrNull(sheet.firstKm);
  json["group_index"] = NearestDecimal(card.groupIndex, 1e5);  // steps of the record
  json["backscatter_db"] = NumberOrNull(card.backscatterDb);
  json["averages"] = card.averages > 0 ? Json(card.averages) : Json(nullptr);
  json["averaging_time"] = sheet.averagingTime ? Json(*sheet.averagingTime) : Json(nullptr);
  json["user_offset_km"] = card.userOffsetKm;
  json["noise_floor_db"] = NumberOrNull(sheet.noiseFloorDb);
  json["thresholds"] = {{"lt_db", NumberOrNull(sheet.thresholds.lossDb)},
                        {"rt_db", NumberOrNull(sheet.thresholds.reflectanceDb)},
                        {"et_db", NumberOrNull(sheet.thresholds.endDb)},
                        {"ct_db_per_km", NumberOrNull(sheet.thresholds.slopeDbPerKm)}};
  return json;
}

Json JsonOfEvent(const Event& event, const CodeMeaning& meaning) {
  return {{"number", event.number},
          {"ept", event.eptOwt},
          {"distance_km", event.distanceKm},
          {"type", event.type},
          {"code", event.code},
          {"technique", event.technique},
          {"meaning", meaning.words},
          {"by_hand", meaning.byHand},
          {"loss_db", NumberOrNull(event.lossDb)},
          {"reflectance_db", NumberOrNull(event.reflectanceDb)},
          {"reflectance_at_least", event.reflectanceAtLeast},
          {"attenuation_db_per_km", NumberOrNull(event.attenuationDbPerKm)},
          {"cumulated_db", NumberOrNull(event.cumulatedDb)},
          {"markers", event.markersOwt},
          {"comment", event.comment}};
}

Json JsonOfMeasured(const Event& event) {
  return {{"distance_km", event.distanceKm},
          {"distance_sd_m", NumberOrNull(event.distanceSdM)},
          {"code", event.code},
          {"loss_db", NumberOrNull(event.lossDb)},
          {"loss_sd_db", NumberOrNull(event.lossSdDb)},
          {"reflectance_db", NumberOrNull(event.reflectanceDb)},
          {"reflectance_sd_db", NumberOrNull(event.reflectanceSdDb)},
          {"reflectance_at_least", event.reflectanceAtLeast},
          {"attenuation_db_per_km", NumberOrNull(event.attenuationDbPerKm)},
          {"attenuation_sd_db_per_km", NumberOrNull(event.attenuationSdDbPerKm)},
          {"probability", NumberOrNull(event.probability)}};
}

Json JsonOf(const SheetRow& row, Measurement measurement) {
  Json json = row.stored ? JsonOfEvent(*row.stored, row.meaning) : Json{{"number", nullptr}};
  if (measurement == Measurement::kNone) return json;
  json["measured"] = row.measured ? JsonOfMeasured(*row.measured) : Json(nullptr);
  json["difference"] = {{"distance_m", NumberOrNull(row.distanceOffM)},
                        {"loss_db", NumberOrNull(row.lossOffDb)},
                        {"reflectance_db", NumberOrNull(row.reflectanceOffDb)},
                        {"attenuation_db_per_km", NumberOrNull(row.attenuationOffDbPerKm)}};
  return json;
}

std::string CsvOfStored(const SheetRow& row) {
  constexpr const char* kNothing = ",,,,,,,,,,,";
  if (!row.stored) return kNothing;
  const Event& event = *row.stored;
  return Format(",%d,%s,%s,%s,%s,%s,%d,", event.number, CsvNumber(event.distanceKm, 6).c_str(),
                CsvText(event.type).c_str(), CsvText(event.code).c_str(), CsvText(event.technique).c_str(),
                CsvText(row.meaning.words).c_str(), row.meaning.byHand ? 1 : 0) +
         CsvNumber(event.lossDb, 3) + "," + CsvNumber(event.reflectanceDb, 3) + "," +
         CsvNumber(event.attenuationDbPerKm, 3) + "," + CsvNumber(event.cumulatedDb, 3) + "," +
         CsvText(event.comment);
}

std::string CsvOfMeasured(const SheetRow& row) {
  const Event measured = row.measured.value_or(Event());
  std::string text = "," + (row.measured ? CsvNumber(measured.distanceKm, 6) : "");
  for (const std::optional<double>& value :
       {measured.lossDb, measured.reflectanceDb, measured.attenuationDbPerKm, row.distanceOffM, row.lossOffDb,
        row.reflectanceOffDb, row.attenuationOffDbPerKm})
    text += "," + CsvNumber(value, 3);
  return text;
}

}  // namespace

std::string TextOf(const Sheet& sheet) {
  std::string text = CardText(sheet) + "\n" + StoredRows(sheet);
  bool byHand = false;
  for (const SheetRow& row : sheet.rows) byHand = byHand || (row.stored && row.meaning.byHand);
  if (byHand) text += "* set by hand\n";
  text += "\n" + TotalsText(sheet.stored);
  const bool measured = sheet.measurement == Measurement::kDone ||
                        (sheet.measurement == Measurement::kFailed && sheet.measured.lengthKm);
  return measured ? text + MeasuredRows(sheet) : text;
}

std::string JsonOf(const Sheet& sheet) {
  Json json = {{"file", sheet.file}, {"bytes", sheet.bytes}, {"revision", sheet.revision}};
  json["card"] = CardJson(sheet);
  json.update(JsonOf(sheet.stored));
  if (sheet.measurement != Measurement::kNone) json["measured"] = JsonOf(sheet.measured);
  json["warnings"] = Json::array();
  for (const Warning& warning : sheet.warnings) json["warnings"].push_back(warning.text);
  json["events"] = Json::array();
  for (const SheetRow& row : sheet.rows) json["events"].push_back(JsonOf(row, sheet.measurement));
  return JsonText(json) + "\n";
}

std::string SheetCsvHeader(Measurement measurement) {
  std::string heading =
      "file,number,distance_km,type,code,technique,meaning,by_hand,loss_db,reflectance_db,"
      "attenuation_db_per_km,cumulated_db,comment";
  if (measurement != Measurement::kNone)
    heading +=
        ",measured_distance_km,measured_loss_db,measured_reflectance_db,measured_attenuation_db_per_km,"
        "distance_difference_m,loss_difference_db,reflectance_difference_db,"
        "attenuation_difference_db_per_km";
  return heading + "\n";
}

std::string CsvOf(const Sheet& sheet) {
  std::string text;
  for (const SheetRow& row : sheet.rows) {
    text += CsvText(ValidUtf8(sheet.file)) + CsvOfStored(row);
    if (sheet.measurement != Measurement::kNone) text += CsvOfMeasured(row);
    text += "\n";
  }
  return text;
}

std::string CurveCsvHeader(bool named) {
  return named ? "file,distance_km,level_db\n" : "distance_km,level_db\n";
}

std::string CurveCsv(const Trace& trace, bool named) {
  const std::vector<double>&levels = trace.LevelsDb(), &places = trace.DistancesKm();
  constexpr int kLevelDecimals = 4;  // levels are of steps of 0.001 dB, seldom of finer ones
  const std::string name = named ? CsvText(ValidUtf8(trace.Name())) + "," : "";
  std::string text;
  for (size_t i = 0; i < levels.size(); ++i) {
    text += name + CsvNumber(places[i], 6) + "," + CsvNumber(levels[i], kLevelDecimals) + "\n";
  }
  return text;
}

}  // namespace reflyze
