// SPDX-License-Identifier: Apache-2.0

// Tables for spreadsheets and scripts: a line an event, one heading for all files of a job. What was not
// measured is empty; flags are 1 and 0.

#include <algorithm>
#include <cmath>

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

std::string CsvNumber(std::optional<double> value, int decimals) {
  return value && std::isfinite(*value) ? NumberOrDash(value, decimals) : "";
}

namespace {

constexpr int kDecimals = 3;
constexpr int kPlaceDecimals = 6;      // mm
constexpr int kDeviationDecimals = 5;  // the least deviations are of some 0.0001 dB/km

// A line, cell by cell.
class CsvLine {
 public:
  CsvLine& Text(const std::string& text) { return Cell(CsvText(text)); }
  CsvLine& File(const std::string& name) { return Text(ValidUtf8(name)); }
  CsvLine& Count(long long value) { return Cell(std::to_string(value)); }
  CsvLine& Number(std::optional<double> value, int decimals = kDecimals) {
    return Cell(CsvNumber(value, decimals));
  }
  CsvLine& Place(std::optional<double> km) { return Number(km, kPlaceDecimals); }
  CsvLine& Deviation(std::optional<double> sd) { return Number(sd, kDeviationDecimals); }
  CsvLine& Flag(bool set) { return Cell(set ? "1" : "0"); }
  CsvLine& Cell(const std::string& text) {
    if (begun_) text_ += ',';
    begun_ = true;
    text_ += text;
    return *this;
  }
  std::string End() const { return text_ + "\n"; }

 private:
  std::string text_;
  bool begun_ = false;
};

constexpr const char* kEventColumns =
    ",number,distance_km,type,code,loss_db,reflectance_db,attenuation_db_per_km,cumulated_db,comment";
constexpr const char* kVerdictColumns = ",loss_verdict,reflectance_verdict,attenuation_verdict";

void AddEvent(CsvLine& line, const Event& row) {
  line.Count(row.number).Place(row.distanceKm).Text(row.type).Text(row.code);
  line.Number(row.lossDb).Number(row.reflectanceDb).Number(row.attenuationDbPerKm).Number(row.cumulatedDb);
  line.Text(row.comment);
}

void AddVerdicts(CsvLine& line, const EventVerdict& worth) {
  for (const Verdict one : {worth.loss, worth.reflectance, worth.attenuation}) line.Cell(WordOf(one));
}

std::string CsvOfTable(const EventTable& table, const LinkVerdict* verdict) {
  std::string text;
  for (size_t i = 0; i < table.events.size(); ++i) {
    const Event& row = table.events[i];
    CsvLine line;
    AddEvent(line.File(table.file), row);
    if (table.measurement != Measurement::kNone) {
      for (const std::optional<double>& sd :
           {row.distanceSdM, row.lossSdDb, row.reflectanceSdDb, row.attenuationSdDbPerKm, row.probability})
        line.Deviation(sd);
    }
    if (verdict != nullptr) AddVerdicts(line, verdict->events[i]);
    text += line.End();
  }
  return text;
}

}  // namespace

// What is measured stands behind what every table has, so that each column keeps its place.
std::string CsvHeader(Measurement measurement) {
  std::string heading = std::string("file") + kEventColumns;
  if (measurement != Measurement::kNone)
    heading += ",distance_sd_m,loss_sd_db,reflectance_sd_db,attenuation_sd_db_per_km,probability";
  return heading + "\n";
}

std::string JudgedCsvHeader(Measurement measurement) {
  std::string heading = CsvHeader(measurement);
  heading.pop_back();
  return heading + kVerdictColumns + "\n";
}

std::string CsvOf(const EventTable& table) { return CsvOfTable(table, nullptr); }

std::string CsvOf(const LinkTable& link) {
  return CsvOfTable(link.table, link.verdict ? &*link.verdict : nullptr);
}

std::string CsvOf(const Baseline& baseline) { return CsvOf(baseline.events); }

std::string ComparisonCsvHeader(Numbers numbers) {
  std::string heading =
      std::string("file,baseline,result") + kEventColumns + ",monitored,new,fail,fiber_break";
  const bool measured = numbers == Numbers::kMeasured;
  if (measured) heading += ",new_contradicted";
  for (const char* quantity : {"lt", "rt", "ct"}) {
    const std::string name = std::string(",") + quantity + "_", unit = name == ",ct_" ? "_db_per_km" : "_db";
    heading += name + "deviation" + unit;
    for (const char* flag : {"absolute", "compared", "exceeded"}) heading += name + flag;
    if (measured) heading += name + "measured" + unit + name + "measured_sd" + unit + name + "contradicted";
  }
  return heading + "\n";
}

std::string CsvOf(const Comparison& table) {
  const bool measured = table.numbers == Numbers::kMeasured;
  const auto begun = [&] {
    CsvLine line;
    return line.File(table.file).File(table.baselineFile).Count(table.result);
  };
  std::string text;
  for (const ComparedEvent& row : table.rows) {
    CsvLine line = begun();
    AddEvent(line, row.event);
    line.Flag(row.monitored).Flag(row.isNew).Flag(row.fail).Flag(row.fiberBreak);
    if (measured) line.Flag(row.newContradicted);
    for (const Deviation* one : {&row.loss, &row.reflectance, &row.attenuation}) {
      line.Number(one->compared || !measured ? std::optional(one->value) : std::nullopt);
      line.Flag(one->absolute).Flag(one->compared).Flag(one->exceeded);
      if (measured) line.Number(one->measured).Deviation(one->measuredSd).Flag(one->contradicted);
    }
    text += line.End();
  }
  if (!table.rows.empty()) return text;
  // A fibre that is not there has no events, and yet its answer.
  CsvLine line = begun();
  const std::string heading = ComparisonCsvHeader(table.numbers);
  for (auto cells = std::count(heading.begin(), heading.end(), ',') - 2; cells > 0; --cells) line.Cell("");
  return line.End();
}

std::string MergedCsvHeader(bool judged) {
  return std::string(
             "file_a,file_b,number,distance_km,code,loss_a_db,loss_a_sd_db,loss_b_db,loss_b_sd_db,loss_db,"
             "loss_sd_db,reflectance_a_db,reflectance_b_db,attenuation_db_per_km,attenuation_sd_db_per_km,"
             "seen_from") +
         (judged ? kVerdictColumns : "") + "\n";
}

std::string CsvOf(const MergedLink& link) {
  const MergedTable& table = link.table;
  std::string text;
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const MergedEvent& row = table.rows[i];
    CsvLine line;
    line.File(table.fileA).File(table.fileB).Count(static_cast<long long>(i) + 1).Place(row.distanceKm);
    line.Text(row.a.listed ? row.a.code : row.b.code);
    line.Number(row.a.lossDb).Deviation(row.a.lossSdDb).Number(row.b.lossDb).Deviation(row.b.lossSdDb);
    line.Number(row.meanLossDb).Deviation(row.meanLossSdDb);
    line.Number(row.a.reflectanceDb).Number(row.b.reflectanceDb);
    line.Number(row.attenuationDbPerKm).Deviation(row.attenuationSdDbPerKm);
    line.Cell(SeenFrom(row.a.seen, row.b.seen));
    if (link.verdict) AddVerdicts(line, link.verdict->events[i]);
    text += line.End();
  }
  return text;
}

std::string QualityCsvHeader(bool twoPulses) {
  return std::string(
             "file,number,distance_km,distance_sd_m,code,loss_db,loss_sd_db,probability,trust_m,measurable") +
         (twoPulses ? ",two_pulse_loss_db" : "") + "\n";
}

std::string CsvOf(const QualityTable& table) {
  std::string text;
  for (const JudgedEvent& row : table.rows) {
    CsvLine line;
    line.File(table.file).Count(row.number).Place(row.distanceKm).Deviation(row.distanceSdM).Text(row.code);
    line.Number(row.lossDb).Deviation(row.lossSdDb).Deviation(row.probability).Number(row.trustM);
    line.Cell(Word(row.measurable));
    if (table.longPulseFile) line.Number(row.twoPulseLossDb);
    text += line.End();
  }
  return text;
}

std::string MeasureCsvHeader() {
  return "file,kind,place_1_km,place_2_km,place_3_km,place_4_km,level_db,level_sd_db,loss_db,loss_sd_db,"
         "attenuation_db_per_km,attenuation_sd_db_per_km,orl_db,orl_sd_db,orl_at_most,reflectance_db,"
         "reflectance_sd_db,reflectance_at_least\n";
}

std::string CsvOf(const PlaceMeasure& measure) {
  constexpr size_t kMostPlaces = 4;
  constexpr int kPerKmDecimals = 4;  // as in the listing
  CsvLine line;
  line.File(measure.file).Cell(NameOf(measure.kind));
  for (size_t i = 0; i < kMostPlaces; ++i)
    line.Place(i < measure.placesKm.size() ? std::optional(measure.placesKm[i]) : std::nullopt);
  line.Number(measure.levelDb).Deviation(measure.levelSdDb);
  line.Number(measure.lossDb).Deviation(measure.lossSdDb);
  line.Number(measure.attenuationDbPerKm, kPerKmDecimals).Deviation(measure.attenuationSdDbPerKm);
  line.Number(measure.returnLossDb).Deviation(measure.returnLossSdDb).Flag(measure.returnLossAtMost);
  line.Number(measure.reflectanceDb).Deviation(measure.reflectanceSdDb).Flag(measure.reflectanceAtLeast);
  return line.End();
}

std::string FilterCsvHeader() {
  return "file,number,type,begin_km,peak_km,end_km,begin_db,peak_db,end_db,grade_up,grade_down,width\n";
}

std::string CsvOf(const FilterTable& table) {
  std::string text;
  for (size_t i = 0; i < table.events.size(); ++i) {
    const FilterEvent& row = table.events[i];
    CsvLine line;
    line.File(table.file).Count(static_cast<long long>(i) + 1).Text(row.type);
    for (const FilterPoint* point : {&row.begin, &row.peak, &row.end}) line.Place(point->distanceKm);
    for (const FilterPoint* point : {&row.begin, &row.peak, &row.end}) line.Number(point->levelDb);
    text += line.Count(row.gradeUp).Count(row.gradeDown).Count(row.width).End();
  }
  return text;
}

std::string SimulationCsvHeader() {
  return "file,number,distance_km,code,loss_db,insertion_loss_db,reflectance_db,attenuation_db_per_km,"
         "snr_db,saturated\n";
}

std::string CsvOf(const Simulation& simulation) {
  std::string text;
  for (const TrueEvent& row : simulation.truth.events) {
    CsvLine line;
    line.File(simulation.trace.Name()).Count(row.number).Place(row.distanceKm).Text(row.code);
    line.Number(row.lossDb).Number(row.insertionLossDb).Number(row.reflectanceDb);
    text += line.Number(row.attenuationDbPerKm).Number(row.snrDb).Flag(row.saturated).End();
  }
  return text;
}

}  // namespace reflyze
