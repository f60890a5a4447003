#include "cli/FilterTable.h"

#include <algorithm>

#include "cli/EventTable.h"
#include "cli/JsonText.h"
#include "cli/Text.h"

namespace reflyze::cli {
namespace {

constexpr double kLowestNoiseDb = -100.0;   // of a trace whose noise needed no measure
constexpr double kFilterLevelSteps = 10.0;  // that a record tells apart

// A noise figure of 0 was not measured, and neither was one below every level.
std::optional<double> Measured(float noiseDb) {
  if (noiseDb == 0.0F || noiseDb <= kLowestNoiseDb) return std::nullopt;
  return NearestDecimal(noiseDb);
}

FilterPoint PointAt(const TSorData& record, long point) {
  return {record.NumToLen(point), NearestDecimal(static_cast<float>(record.NumToLevel(point)))};
}

// A type that was never set has no letter.
std::string TypeLetter(const TFEvent& event) { return event.type == 0 ? "" : Utf8(&event.type, 1); }

nlohmann::ordered_json JsonOfRow(const FilterEventRow& row) {
  nlohmann::ordered_json event;
  event["begin"] = row.event.begin;
  event["rise"] = row.event.rise;
  event["peak"] = row.event.peak;
  event["end"] = row.event.end;
  event["tail"] = row.event.tail;
  event["gradeUp"] = row.event.gradeUp;
  event["gradeDown"] = row.event.gradeDown;
  event["width"] = row.event.width;
  event["type"] = TypeLetter(row.event);
  event["level_db"] = {{"begin", row.begin.levelDb}, {"peak", row.peak.levelDb}, {"end", row.end.levelDb}};
  event["distance_km"] = {
      {"begin", row.begin.distanceKm}, {"peak", row.peak.distanceKm}, {"end", row.end.distanceKm}};
  return event;
}

double Km(const FilterPoint& point) { return NoMinusZero(point.distanceKm, 4); }
double Db(const FilterPoint& point) { return NoMinusZero(point.levelDb, 2); }

std::string NoiseInWords(std::optional<double> noiseDb) {
  return noiseDb ? Format("%.2f dB", *noiseDb) : "not measured";
}

std::string EventsAsText(const FilterTable& table) {
  std::string text;
  text += "  No  T            Distance, km              Level, dB           Grade   Width\n";
  text += "         begin      peak       end   begin    peak     end   up  down  points\n";
  text += " ---  -  --------  --------  --------  ------  ------  ------  ---  ----  -----\n";
  for (size_t i = 0; i < table.events.size(); ++i) {
    const FilterEventRow& row = table.events[i];
    text += Format(" %3zu  %1s  %8.4f  %8.4f  %8.4f  %6.2f  %6.2f  %6.2f  %3d  %4d  %5d\n", i + 1,
                   OneLine(TypeLetter(row.event)).c_str(), Km(row.begin), Km(row.peak), Km(row.end),
                   Db(row.begin), Db(row.peak), Db(row.end), row.event.gradeUp, row.event.gradeDown,
                   row.event.width);
  }
  if (table.events.empty()) text += " no events\n";
  return text;
}

}  // namespace

std::optional<double> FilterTable::NoiseLowDb() const { return Measured(found.noiseLow); }
std::optional<double> FilterTable::NoiseHighDb() const { return Measured(found.noiseHigh); }

FilterTable MakeFilterTable(const std::string& file, FilterKind kind, const TSorData& record,
                            const AutoFilterResultData& found) {
  FilterTable table;
  table.file = file;
  table.kind = kind;
  table.filterLevel = NearestDecimal(record.QRTParams->GetFilterLevel(), kFilterLevelSteps);
  table.points = record.DataPts->GetPointsNum();
  table.spacingM = record.FxdParams->LenDS() * 1000.0;
  table.kernelPoints = record.QRTParams->TMC;
  table.found = found;
  const long listed = found.events == nullptr ? 0 : std::clamp(found.count, 0L, kMostFilterEvents);
  for (long i = 0; i < listed; ++i) {
    const TFEvent& event = found.events[i];
    table.events.push_back(
        {event, PointAt(record, event.begin), PointAt(record, event.peak), PointAt(record, event.end)});
  }
  table.found.events = nullptr;
  table.found.pointMap = nullptr;
  return table;
}

const char* NameOf(FilterKind kind) {
  switch (kind) {
    case FilterKind::kKernel:
      return "kernel";
    case FilterKind::kFast:
      return "fast";
    case FilterKind::kAuto:
      break;
  }
  return "auto";
}

std::string TextOf(const FilterTable& table) {
  std::string text;
  text += Format("File     %s\n", ShownName(table.file).c_str());
  text += Format("Filter   %s, level %.1f      Points %ld, %.4f m apart\n", NameOf(table.kind),
                 table.filterLevel, table.points, table.spacingM);
  if (table.kind == FilterKind::kKernel) text += Format("Kernel   %ld points\n", table.kernelPoints);
  if (table.kind != FilterKind::kAuto) return text;
  text += Format("Ripple   %.3f dB where the scan began, %.3f dB over the fibre\n", table.found.polar,
                 table.found.polarEnd);
  text += Format("Noise    of samples %s, of the running mean %s\n", NoiseInWords(table.NoiseLowDb()).c_str(),
                 NoiseInWords(table.NoiseHighDb()).c_str());
  text += Format("Fibre    from point %ld      Ghosts %ld      Ringing period %ld points\n\n",
                 table.found.firstBegin, table.found.ghostCount, table.found.ringCount);
  return text + EventsAsText(table);
}

std::string JsonOf(const FilterTable& table) {
  nlohmann::ordered_json json;
  json["file"] = table.file;
  json["kind"] = NameOf(table.kind);
  json["level"] = table.filterLevel;
  json["points"] = table.points;
  json["spacing_m"] = table.spacingM;
  json["kernel_points"] = table.kernelPoints;
  json["count"] = table.found.count;
  json["first_begin"] = table.found.firstBegin;
  json["ghost_count"] = table.found.ghostCount;
  json["ring_count"] = table.found.ringCount;
  json["polar"] = NearestDecimal(table.found.polar);
  json["polar_end"] = NearestDecimal(table.found.polarEnd);
  json["noise_low"] = NumberOrNull(table.NoiseLowDb());
  json["noise_high"] = NumberOrNull(table.NoiseHighDb());
  json["events"] = nlohmann::ordered_json::array();
  for (const FilterEventRow& row : table.events) json["events"].push_back(JsonOfRow(row));
  return JsonText(json) + "\n";
}

}  // namespace reflyze::cli
