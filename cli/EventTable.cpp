#include "cli/EventTable.h"

#include <algorithm>

#include "cli/JsonText.h"
#include "cli/Text.h"
#include "ref/figures/refAutoNoise.h"

namespace reflyze::cli {
namespace {

// Stored wavelengths below this are in nm, the others in tenths of a nm.
constexpr int kLargestStoredNm = 2000;

// The event code's first character says how the event looks, the second where it stands (SR-4731).
std::string TypeInWords(const TSorBlockKeyEvents1E& event, bool first) {
  const char shape = event.EC.Len() > 0 ? event.EC.c_str()[0] : '?';
  const char place = event.EC.Len() > 1 ? event.EC.c_str()[1] : '?';
  if (place == 'O') return "out of range";
  const bool saturated = shape == '2' || shape == 'D';
  const bool reflective = saturated || shape == '1' || shape == 'd';
  std::string words = saturated ? "saturated" : reflective ? "reflective" : "non-reflective";
  if (event.IsEOF()) return "end, " + words;
  if (first) return "launch";
  if (!reflective && event.GetEL() < 0.0) return "gain";
  return words;
}

// The event code's first character says how the event looks (SR-4731).
bool IsSaturated(const std::string& code) { return !code.empty() && (code[0] == '2' || code[0] == 'D'); }
bool Reflects(const std::string& code) { return !code.empty() && code[0] != '0'; }

EventRow MakeEventRow(const TSorData& record, int index, Numbers numbers) {
  const TSorBlockKeyEvents1E& event = *record.KeyEvents->events->GetData(index);
  const bool all = numbers == Numbers::kAsStored;
  const bool launch = index == 0, end = index + 1 == record.KeyEvents->events->GetSize();
  EventRow row;
  row.number = event.EN;
  row.eptOwt = event.EPT;
  row.distanceKm = record.OwtToLen(event.EPT);
  row.code = Utf8(event.EC);
  row.technique = Utf8(event.LMT);
  row.type = TypeInWords(event, launch);
  if (all || !(launch || end)) row.lossDb = event.GetEL();
  if (event.ER != 0 && (all || (Reflects(row.code) && KnowsBackscatter(record)))) {
    row.reflectanceDb = event.GetER();
    row.reflectanceAtLeast = IsSaturated(row.code);
  }
  if (all || !launch) row.attenuationDbPerKm = event.GetACI();
  const int markers[] = {event.ML0, event.ML1, event.ML2, event.ML3, event.ML4};
  std::copy(std::begin(markers), std::end(markers), row.markersOwt);
  row.comment = Utf8(event.CMT);
  return row;
}

void TakeThresholds(const TTH& asked, EventTable& table) {
  table.ltDb = asked.THLoss;
  table.rtDb = asked.THRef <= TTH::kLowestReflectanceDb ? TTH::kEveryReflectanceDb : asked.THRef;
  table.etDb = std::max(asked.THEnd, TTH::kLeastEndDb);
  table.ctDbPerKm = asked.dBkm;
}

// A stored 0 was never set.
void TakeStoredThresholds(const TSorData& record, EventTable& table) {
  const auto set = [](std::optional<double>& threshold, double stored) {
    if (stored != 0.0) threshold = stored;
  };
  set(table.ltDb, record.FxdParams->GetLT());
  set(table.rtDb, record.FxdParams->GetRT());
  set(table.etDb, record.FxdParams->GetET());
  set(table.ctDbPerKm, record.QRTParams->GetCT());
}

std::string CsvText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::string WithUnit(const std::string& number, const char* unit) {
  return number == "-" ? number : number + " " + unit;
}

}  // namespace

double WavelengthNm(const TSorData& record) {
  const int stored = record.FxdParams->AW;
  if (stored == 0) return record.GenParams->NW;
  // The field is signed on file, but a wavelength in tenths may pass its bound.
  const int actual = stored < 0 ? stored + 65536 : stored;
  return actual < kLargestStoredNm ? actual : actual / 10.0;
}

// Noise stands as high as its floor, and by chance a little higher. Light that comes back from a fibre stands
// higher at least where it is launched. A floor that another instrument has stored may be anything: before a
// trace is called dark, it is taken from the trace.
bool ShowsFibre(const TSorData& record) {
  if (record.KeyEvents->ListedEvents() < 2) return false;
  constexpr double kOverNoiseDb = 3.0;
  double highestDb = record.NumToLevel(0);
  for (long i = 1; i < record.DataPts->GetPointsNum(); ++i)
    highestDb = std::max<double>(highestDb, record.NumToLevel(i));
  if (highestDb > record.FxdParams->GetNF() + kOverNoiseDb) return true;
  TSorData scratch;  // settling the noise floor writes into the record
  scratch.Assign(record);
  RefAutoReSetNF(&scratch);
  return highestDb > scratch.FxdParams->GetNF() + kOverNoiseDb;
}

double NoiseFloorDb(const TSorData& record) {
  constexpr double kSteps = 1e6;  // in a dB, of a raw level times its scale factor
  return NearestDecimal(record.FxdParams->GetNF(), kSteps);
}

bool KnowsBackscatter(const TSorData& record) { return record.FxdParams->BC != 0; }

std::string NumberOrDash(std::optional<double> value, int decimals) {
  return value ? Format("%.*f", decimals, NoMinusZero(*value, decimals)) : "-";
}

std::string ReflectanceText(const EventRow& row) {
  return (row.reflectanceAtLeast ? ">" : "") + NumberOrDash(row.reflectanceDb, 2);
}

std::string ShownName(const std::string& file) { return file == "-" ? "standard input" : OneLine(file); }

std::vector<EventRow> MakeEventRows(const TSorData& record, Numbers numbers) {
  std::vector<EventRow> rows;
  double cumulatedDb = 0.0;
  const int count = static_cast<int>(record.KeyEvents->events->GetSize());
  for (int i = 0; i < count; ++i) {
    EventRow row = MakeEventRow(record, i, numbers);
    // Before the launch there is no fibre to measure a loss against, and what the last event takes is the
    // light itself, not a loss on the way.
    if (i > 0) cumulatedDb += *row.attenuationDbPerKm * (row.distanceKm - rows.back().distanceKm);
    if (i > 0 && i + 1 < count) cumulatedDb += *row.lossDb;
    row.cumulatedDb = cumulatedDb;
    rows.push_back(std::move(row));
  }
  return rows;
}

nlohmann::ordered_json JsonOfRow(const EventRow& row) {
  nlohmann::ordered_json event;
  event["number"] = row.number;
  event["ept"] = row.eptOwt;
  event["distance_km"] = row.distanceKm;
  event["type"] = row.type;
  event["code"] = row.code;
  event["technique"] = row.technique;
  event["loss_db"] = NumberOrNull(row.lossDb);
  event["reflectance_db"] = NumberOrNull(row.reflectanceDb);
  event["reflectance_at_least"] = row.reflectanceAtLeast;
  event["attenuation_db_per_km"] = NumberOrNull(row.attenuationDbPerKm);
  event["cumulated_db"] = row.cumulatedDb;
  event["markers"] = row.markersOwt;
  event["comment"] = row.comment;
  return event;
}

EventTable MakeEventTable(const std::string& file, const TSorData& record, const std::optional<TTH>& asked,
                          Numbers numbers) {
  EventTable table;
  table.file = file;
  table.points = record.DataPts->GetPointsNum();
  table.wavelengthNm = WavelengthNm(record);
  table.pulseNs = record.FxdParams->GetNsPulse(0.0);
  table.spacingM = record.FxdParams->LenDS() * 1000.0;
  table.rangeKm = record.GetMaxLen() - record.GetMinLen();
  table.groupIndex = record.FxdParams->GetRI();
  if (asked) {
    TakeThresholds(*asked, table);
  } else {
    TakeStoredThresholds(record, table);
  }
  table.noiseFloorDb = NoiseFloorDb(record);
  table.events = MakeEventRows(record, numbers);
  const bool all = numbers == Numbers::kAsStored;
  table.fibre = ShowsFibre(record);
  if (!table.fibre && !all) {
    table.events.clear();
    return table;
  }
  if (!table.events.empty()) table.lengthKm = table.events.back().distanceKm;
  table.totalLossDb = record.KeyEvents->GetEEL();
  const bool measured = record.KeyEvents->ORL != 0 && KnowsBackscatter(record);
  if (all || measured) table.returnLossDb = record.KeyEvents->ORL / 1000.0;
  return table;
}

std::string TextOf(const EventTable& table) {
  std::string text;
  text += Format("File         %s\n", ShownName(table.file).c_str());
  text += Format("Wavelength   %.1f nm      Pulse  %.0f ns      Range  %.3f km\n", table.wavelengthNm,
                 table.pulseNs, table.rangeKm);
  text += Format("Group index  %.5f      Points %ld, %.4f m apart\n", table.groupIndex, table.points,
                 table.spacingM);
  text += Format("Thresholds   loss %s, reflectance %s, end %s, slope %s\n\n",
                 WithUnit(NumberOrDash(table.ltDb, 3), "dB").c_str(),
                 WithUnit(NumberOrDash(table.rtDb, 1), "dB").c_str(),
                 WithUnit(NumberOrDash(table.etDb, 2), "dB").c_str(),
                 WithUnit(NumberOrDash(table.ctDbPerKm, 2), "dB/km").c_str());
  text += "  No  Distance  Type                   Loss    Refl.    Section  Cumulated\n";
  text += "            km                           dB       dB      dB/km         dB\n";
  text += " ---  --------  -------------------  ------  -------  ---------  ---------\n";
  bool saturated = false;
  for (const EventRow& row : table.events) {
    text += Format(" %3d  %8.4f  %-19s  %6s  %7s  %9s  %9.3f\n", row.number, NoMinusZero(row.distanceKm, 4),
                   row.type.c_str(), NumberOrDash(row.lossDb, 3).c_str(), ReflectanceText(row).c_str(),
                   NumberOrDash(row.attenuationDbPerKm, 3).c_str(), NoMinusZero(row.cumulatedDb, 3));
    saturated = saturated || row.reflectanceAtLeast;
  }
  if (table.events.empty()) text += " no events\n";
  text += Format("\nLength %s  End-to-end loss %s  Return loss %s%s\nNoise floor %.2f dB\n",
                 WithUnit(NumberOrDash(table.lengthKm, 4), "km").c_str(),
                 WithUnit(NumberOrDash(table.totalLossDb, 3), "dB").c_str(),
                 saturated && table.returnLossDb ? "<" : "",
                 WithUnit(NumberOrDash(table.returnLossDb, 2), "dB").c_str(), table.noiseFloorDb);
  if (!table.fibre) text += "The trace shows no fibre\n";
  return text;
}

nlohmann::ordered_json JsonObjectOf(const EventTable& table) {
  nlohmann::ordered_json json;
  json["file"] = table.file;
  json["points"] = table.points;
  json["wavelength_nm"] = table.wavelengthNm;
  json["pulse_ns"] = table.pulseNs;
  json["spacing_m"] = table.spacingM;
  json["thresholds"] = {{"lt_db", NumberOrNull(table.ltDb)},
                        {"rt_db", NumberOrNull(table.rtDb)},
                        {"et_db", NumberOrNull(table.etDb)},
                        {"ct_db_per_km", NumberOrNull(table.ctDbPerKm)}};
  json["noise_floor_db"] = table.noiseFloorDb;
  json["length_km"] = NumberOrNull(table.lengthKm);
  json["total_loss_db"] = NumberOrNull(table.totalLossDb);
  json["orl_db"] = NumberOrNull(table.returnLossDb);
  json["fibre"] = table.fibre;
  json["warnings"] = table.warnings;
  json["events"] = nlohmann::ordered_json::array();
  for (const EventRow& row : table.events) json["events"].push_back(JsonOfRow(row));
  return json;
}

std::string JsonOf(const EventTable& table) { return JsonText(JsonObjectOf(table)) + "\n"; }

std::string CsvHeader() {
  return "file,number,distance_km,type,code,loss_db,reflectance_db,attenuation_db_per_km,cumulated_db,"
         "comment\n";
}

std::string CsvOf(const EventTable& table) {
  const auto number = [](std::optional<double> value) { return value ? NumberOrDash(value, 3) : ""; };
  std::string text;
  for (const EventRow& row : table.events) {
    text += CsvText(ValidUtf8(table.file)) +
            Format(",%d,%.6f,%s,%s,%s,%s,%s,%.3f,", row.number, NoMinusZero(row.distanceKm, 6),
                   CsvText(row.type).c_str(), CsvText(row.code).c_str(), number(row.lossDb).c_str(),
                   number(row.reflectanceDb).c_str(), number(row.attenuationDbPerKm).c_str(),
                   NoMinusZero(row.cumulatedDb, 3)) +
            CsvText(row.comment) + "\n";
  }
  return text;
}

}  // namespace reflyze::cli
