#include "cli/EventTable.h"

#include <cmath>

#include "cli/Text.h"

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

std::string NumberOrDash(bool known, const char* format, double value) {
  return known ? Format(format, value) : "-";
}

std::string CsvText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

double WavelengthNm(const TSorData& record) {
  const int stored = record.FxdParams->AW;
  if (stored == 0) return record.GenParams->NW;
  // The field is signed on file, but a wavelength in tenths may pass its bound.
  const int actual = stored < 0 ? stored + 65536 : stored;
  return actual < kLargestStoredNm ? actual : actual / 10.0;
}

bool Reflects(const EventRow& row) {
  const char shape = row.code.empty() ? '?' : row.code[0];
  return row.reflectanceDb.has_value() && shape != '0';
}

double NoMinusZero(double km) { return std::abs(km) < 0.00005 ? 0.0 : km; }

EventRow MakeEventRow(const TSorData& record, int index) {
  const TSorBlockKeyEvents1E& event = *record.KeyEvents->events->GetData(index);
  EventRow row;
  row.number = event.EN;
  row.eptOwt = event.EPT;
  row.distanceKm = record.OwtToLen(event.EPT);
  row.code = Utf8(event.EC);
  row.technique = Utf8(event.LMT);
  row.type = TypeInWords(event, index == 0);
  row.lossDb = event.GetEL();
  if (event.ER != 0) row.reflectanceDb = event.GetER();
  row.attenuationDbPerKm = event.GetACI();
  const int markers[] = {event.ML0, event.ML1, event.ML2, event.ML3, event.ML4};
  std::copy(std::begin(markers), std::end(markers), row.markersOwt);
  row.comment = Utf8(event.CMT);
  return row;
}

nlohmann::ordered_json JsonOfRow(const EventRow& row) {
  nlohmann::ordered_json event;
  event["number"] = row.number;
  event["ept"] = row.eptOwt;
  event["distance_km"] = row.distanceKm;
  event["code"] = row.code;
  event["technique"] = row.technique;
  event["loss_db"] = row.lossDb;
  if (row.reflectanceDb) {
    event["reflectance_db"] = *row.reflectanceDb;
  } else {
    event["reflectance_db"] = nullptr;
  }
  event["attenuation_db_per_km"] = row.attenuationDbPerKm;
  event["markers"] = row.markersOwt;
  event["comment"] = row.comment;
  return event;
}

EventTable MakeEventTable(const std::string& file, const TSorData& record, const TTH& thresholds) {
  EventTable table;
  table.file = file;
  table.points = record.DataPts->GetPointsNum();
  table.wavelengthNm = WavelengthNm(record);
  table.pulseNs = record.FxdParams->GetNsPulse(0.0);
  table.spacingM = record.FxdParams->LenDS() * 1000.0;
  table.rangeKm = record.GetMaxLen() - record.GetMinLen();
  table.groupIndex = record.FxdParams->GetRI();
  table.ltDb = thresholds.THLoss;
  table.rtDb = thresholds.THRef;
  table.etDb = thresholds.THEnd;
  table.ctDbPerKm = thresholds.dBkm;
  table.noiseFloorDb = record.FxdParams->GetNF();
  table.totalLossDb = record.KeyEvents->GetEEL();
  table.returnLossDb = record.KeyEvents->ORL / 1000.0;
  double cumulatedDb = 0.0;
  for (int i = 0; i < record.KeyEvents->events->GetSize(); ++i) {
    EventRow row = MakeEventRow(record, i);
    // Before the launch there is no fibre to measure a loss against.
    if (i > 0) {
      cumulatedDb += row.attenuationDbPerKm * (row.distanceKm - table.events.back().distanceKm);
      // What the last event takes is the light itself, not a loss on the way.
      if (i + 1 < record.KeyEvents->events->GetSize()) cumulatedDb += row.lossDb;
    }
    row.cumulatedDb = cumulatedDb;
    table.lengthKm = row.distanceKm;
    table.events.push_back(std::move(row));
  }
  return table;
}

std::string TextOf(const EventTable& table) {
  std::string text;
  text += Format("File         %s\n", OneLine(table.file).c_str());
  text += Format("Wavelength   %.1f nm      Pulse  %.0f ns      Range  %.3f km\n", table.wavelengthNm,
                 table.pulseNs, table.rangeKm);
  text += Format("Group index  %.5f      Points %ld, %.4f m apart\n", table.groupIndex, table.points,
                 table.spacingM);
  text += Format("Thresholds   loss %.3f dB, reflectance %.1f dB, end %.2f dB, slope %.2f dB/km\n\n",
                 table.ltDb, table.rtDb, table.etDb, table.ctDbPerKm);
  text += "  No  Distance  Type                   Loss    Refl.    Section      Total\n";
  text += "            km                           dB       dB      dB/km         dB\n";
  text += " ---  --------  -------------------  ------  -------  ---------  ---------\n";
  for (size_t i = 0; i < table.events.size(); ++i) {
    const EventRow& row = table.events[i];
    const bool atAnEnd = i == 0 || i + 1 == table.events.size();
    text += Format(" %3d  %8.4f  %-19s  %6s  %7s  %9s  %9.3f\n", row.number, NoMinusZero(row.distanceKm),
                   row.type.c_str(), NumberOrDash(!atAnEnd, "%.3f", row.lossDb).c_str(),
                   NumberOrDash(Reflects(row), "%.2f", row.reflectanceDb.value_or(0.0)).c_str(),
                   NumberOrDash(i > 0, "%.3f", row.attenuationDbPerKm).c_str(), row.cumulatedDb);
  }
  if (table.events.empty()) text += " no events\n";
  text += Format("\nLength %.4f km  Loss %.3f dB  Return loss %.2f dB  Noise floor %.2f dB\n", table.lengthKm,
                 table.totalLossDb, table.returnLossDb, table.noiseFloorDb);
  return text;
}

nlohmann::ordered_json JsonObjectOf(const EventTable& table) {
  nlohmann::ordered_json json;
  json["file"] = Utf8(table.file.data(), table.file.size());
  json["points"] = table.points;
  json["wavelength_nm"] = table.wavelengthNm;
  json["pulse_ns"] = table.pulseNs;
  json["spacing_m"] = table.spacingM;
  json["thresholds"] = {
      {"lt_db", table.ltDb}, {"rt_db", table.rtDb}, {"et_db", table.etDb}, {"ct_db_per_km", table.ctDbPerKm}};
  json["noise_floor_db"] = table.noiseFloorDb;
  json["length_km"] = table.lengthKm;
  json["total_loss_db"] = table.totalLossDb;
  json["orl_db"] = table.returnLossDb;
  json["events"] = nlohmann::ordered_json::array();
  for (const EventRow& row : table.events) json["events"].push_back(JsonOfRow(row));
  return json;
}

std::string JsonOf(const EventTable& table) { return JsonObjectOf(table).dump() + "\n"; }

std::string CsvHeader() {
  return "file,number,distance_km,type,code,loss_db,reflectance_db,attenuation_db_per_km,cumulated_db,"
         "comment\n";
}

std::string CsvOf(const EventTable& table) {
  std::string text;
  for (const EventRow& row : table.events) {
    text += CsvText(table.file) +
            Format(",%d,%.6f,%s,%s,%.3f,%s,%.3f,%.3f,", row.number, row.distanceKm, CsvText(row.type).c_str(),
                   CsvText(row.code).c_str(), row.lossDb,
                   row.reflectanceDb ? Format("%.3f", *row.reflectanceDb).c_str() : "",
                   row.attenuationDbPerKm, row.cumulatedDb) +
            CsvText(row.comment) + "\n";
  }
  return text;
}

}  // namespace reflyze::cli
