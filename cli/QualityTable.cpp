#include "cli/QualityTable.h"

#include "cli/EventTable.h"
#include "cli/JsonText.h"
#include "cli/Text.h"
#include "ref/events/refEvent.h"

namespace reflyze::cli {
namespace {

constexpr double kNotInNoise = -1.0;  // in place of a loss: the longer pulse shows noise only

QualityRow RowOf(TSorData& record, const TSorData* longPulse, const EventRow& event, int index) {
  QualityRow row;
  row.number = event.number;
  row.distanceKm = event.distanceKm;
  row.code = event.code;
  row.lossDb = event.lossDb;
  row.trustM = RefEventTrusting(&record, index) * record.FxdParams->LenDS() * 1000.0;
  row.measurable = static_cast<Measurable>(RefEventLossMeasurable(&record, index));
  // Launch and end are no joints.
  if (longPulse != nullptr && index > 0 && index + 1 < record.KeyEvents->ListedEvents()) {
    const double lossDb = RefEventGetEventLossFromTwoSorPulses(&record, index, {longPulse});
    if (lossDb != kNotInNoise) row.twoPulseLossDb = lossDb;
  }
  return row;
}

// Nothing is lost at the launch, so that it ends no range.
void SettleRange(QualityTable& table) {
  table.allMeasurable = true;
  table.measurableKm = table.lengthKm;
  for (size_t i = 1; i < table.rows.size(); ++i) {
    if (table.rows[i].measurable == Measurable::kYes) continue;
    table.allMeasurable = false;
    table.measurableKm = table.rows[i].distanceKm;
    return;
  }
}

void JudgeLaunch(TSorData& record, QualityTable& table) {
  float quality = 0.0f, levelDb = 0.0f;
  // The level and the loss of the fibre come from the record.
  table.launch = static_cast<LaunchState>(RefEventLinkQuality(&record, quality, levelDb, 0.0f, 0.0f, 0.0f));
  table.launchQuality = quality;
  table.launchLevelDb = levelDb;
}

const char* Word(Measurable measurable) {
  switch (measurable) {
    case Measurable::kYes:
      return "yes";
    case Measurable::kEndsRange:
      return "ends";
    case Measurable::kNo:
      break;
  }
  return "no";
}

const char* Word(LaunchState launch) {
  switch (launch) {
    case LaunchState::kMeasured:
      return "measured";
    case LaunchState::kSaturated:
      return "saturated";
    case LaunchState::kUnknown:
      break;
  }
  return "unknown";
}

std::string LaunchInWords(const QualityTable& table) {
  if (table.launch == LaunchState::kUnknown) return "cannot be judged from this trace";
  return Format("level %.2f dB, link quality %.4g (smaller is better)%s", table.launchLevelDb,
                table.launchQuality, table.launch == LaunchState::kSaturated ? ", saturated" : "");
}

std::string RowsText(const QualityTable& table) {
  if (table.rows.empty()) return " no events\n";
  const bool twoPulses = table.longPulseFile.has_value();
  std::string text =
      std::string("  No  Distance     Trust    Loss  Measurable") + (twoPulses ? "  Two pulses\n" : "\n");
  text += std::string("            km         m      dB") + (twoPulses ? "                      dB\n" : "\n");
  text += std::string(" ---  --------  --------  ------  ----------") + (twoPulses ? "  ----------\n" : "\n");
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const QualityRow& row = table.rows[i];
    const bool launch = i == 0;
    text += Format(" %3d  %8.4f  %8.2f  %6s  ", row.number, NoMinusZero(row.distanceKm, 4), row.trustM,
                   NumberOrDash(row.lossDb, 3).c_str());
    text += twoPulses ? Format("%-10s  %10s\n", launch ? "-" : Word(row.measurable),
                               NumberOrDash(row.twoPulseLossDb, 3).c_str())
                      : Format("%s\n", launch ? "-" : Word(row.measurable));
  }
  return text;
}

}  // namespace

QualityTable MakeQualityTable(TSorData& record, const TSorData* longPulse, int lastPercent) {
  QualityTable table;
  table.pulseNs = record.FxdParams->GetNsPulse(0.0);
  table.noiseFloorDb = NoiseFloorDb(record);
  table.lastPercent = lastPercent;
  table.fibre = ShowsFibre(record);
  if (!table.fibre) return table;
  const int count = record.KeyEvents->ListedEvents();
  for (const EventRow& event : MakeEventRows(record, Numbers::kMeasured))
    table.rows.push_back(RowOf(record, longPulse, event, static_cast<int>(table.rows.size())));
  table.lengthKm = count > 0 ? table.rows.back().distanceKm : 0.0;
  table.noiseFloorDb = NoiseFloorDb(record);  // settled by what has judged the events
  SettleRange(table);
  JudgeLaunch(record, table);
  table.endInLastPercent = RefEventIsEofInLastNpercent(&record, lastPercent, 0.0) != 0;
  return table;
}

std::string TextOf(const QualityTable& table) {
  std::string text = Format("File         %s\n", ShownName(table.file).c_str());
  if (table.longPulseFile) text += Format("Long pulse   %s\n", ShownName(*table.longPulseFile).c_str());
  text += Format("Length       %s      Pulse  %.0f ns      Noise floor  %.2f dB\n\n",
                 table.fibre ? Format("%.4f km", table.lengthKm).c_str() : "-", table.pulseNs,
                 table.noiseFloorDb);
  if (!table.fibre) return text + "The trace shows no fibre\n";
  text += RowsText(table) + "\n";
  // The end of the fibre ends every range.
  text += table.measurableKm == table.lengthKm
              ? "Losses       can be measured along the whole fibre\n"
              : Format("Losses       can be measured up to %.4f km\n", table.measurableKm);
  text += "Launch       " + LaunchInWords(table) + "\n";
  text += Format("End          %s the last %d %% of the range\n", table.endInLastPercent ? "in" : "before",
                 table.lastPercent);
  return text;
}

std::string JsonOf(const QualityTable& table) {
  using Json = nlohmann::ordered_json;
  Json json;
  json["file"] = table.file;
  if (table.longPulseFile) json["long_pulse"] = *table.longPulseFile;
  json["pulse_ns"] = table.pulseNs;
  json["fibre"] = table.fibre;
  json["length_km"] = table.fibre ? Json(table.lengthKm) : Json(nullptr);
  json["noise_floor_db"] = table.noiseFloorDb;
  json["measurable_km"] = table.fibre ? Json(table.measurableKm) : Json(nullptr);
  json["all_measurable"] = table.allMeasurable;
  const bool judged = table.launch != LaunchState::kUnknown;
  json["launch"] = {{"state", Word(table.launch)},
                    {"quality", judged ? Json(NearestDecimal(table.launchQuality)) : Json(nullptr)},
                    {"level_db", judged ? Json(NearestDecimal(table.launchLevelDb)) : Json(nullptr)}};
  json["end_in_last_percent"] = {{"percent", table.lastPercent},
                                 {"result", table.fibre ? Json(table.endInLastPercent) : Json(nullptr)}};
  json["events"] = nlohmann::ordered_json::array();
  for (const QualityRow& row : table.rows) {
    nlohmann::ordered_json event;
    event["number"] = row.number;
    event["distance_km"] = row.distanceKm;
    event["code"] = row.code;
    event["loss_db"] = NumberOrNull(row.lossDb);
    event["trust_m"] = row.trustM;
    event["measurable"] = Word(row.measurable);
    if (table.longPulseFile) event["two_pulse_loss_db"] = NumberOrNull(row.twoPulseLossDb);
    json["events"].push_back(std::move(event));
  }
  return JsonText(json) + "\n";
}

}  // namespace reflyze::cli
