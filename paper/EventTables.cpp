// SPDX-License-Identifier: Apache-2.0
#include "paper/EventTables.h"

#include <algorithm>
#include <filesystem>

#include "paper/Panel.h"
#include "reflyze/text.h"

namespace reflyze::paper {
namespace {

// Reflectance as the receiver could tell it.
std::string Reflectance(std::optional<double> db, bool atLeast, const Texts& texts) {
  const std::string number = texts.Number(db, kReflectanceDecimals);
  return atLeast && number != "-" ? "> " + number : number;
}

// Of a group that can't be told apart, the sum stands once for all.
Cell LossCell(const EventLine& line, const Texts& texts) {
  return {texts.Number(line.lossDb, kLossDecimals), line.verdict.loss};
}

void AddPlaceColumns(Table& table, const Texts& texts) {
  table.columns.push_back({texts["no"], "", 19.0});
  table.columns.push_back({"", "", 15.0, Align::kCentre});
  table.columns.push_back({texts["type"], "", 70.0, Align::kLeft});
  table.columns.push_back({texts["distance"], "km", 50.0});
}

Row PlaceCells(const EventLine& line, const Texts& texts) {
  return {{std::to_string(line.number), Verdict::kNone, "", true},
          {"", Verdict::kNone, line.kind},
          {texts[line.kind]},
          {texts.Number(line.km, kLengthDecimals)}};
}

void AddNumber(Table& table, const std::string& heading, const std::string& unit, double width,
               double sdWidth) {
  table.columns.push_back({heading, unit, width});
  if (sdWidth > 0.0) table.columns.push_back({"±", "", sdWidth, Align::kLeft, true});
}

Table OneWayTable(const Wave& wave, const Texts& texts) {
  Table table;
  AddPlaceColumns(table, texts);
  table.columns.push_back({"±", "m", 27.0, Align::kLeft, true});
  AddNumber(table, texts["loss"], "dB", 40.0, 30.0);
  AddNumber(table, texts["reflectance"], "dB", 48.0, 27.0);
  AddNumber(table, texts["section"], "dB/km", 44.0, 30.0);
  AddNumber(table, texts["cumulated"], "dB", 46.0, 0.0);
  if (wave.verdict) table.columns.push_back({texts["verdict"], "", 56.0, Align::kCentre});
  for (const EventLine& line : wave.lines) {
    Row row = PlaceCells(line, texts);
    row.push_back({texts.Deviation(line.sdM, kMetresDecimals)});
    row.push_back(LossCell(line, texts));
    row.push_back({texts.Deviation(line.lossSdDb, kLossDecimals)});
    row.push_back(
        {Reflectance(line.reflectanceDb, line.reflectanceAtLeast, texts), line.verdict.reflectance});
    row.push_back({texts.Deviation(line.reflectanceSdDb, kReflectanceDecimals)});
    row.push_back({texts.Number(line.attenuationDbPerKm, kLossDecimals), line.verdict.attenuation});
    row.push_back({texts.Deviation(line.attenuationSdDbPerKm, kLossDecimals)});
    row.push_back({texts.Number(line.cumulatedDb, kLossDecimals)});
    const Verdict worst = WorstOf(line.verdict);
    if (wave.verdict) row.push_back({texts.WordFor(worst), worst});
    table.rows.push_back(std::move(row));
  }
  return table;
}

Table BothWaysTable(const Wave& wave, const Texts& texts) {
  Table table;
  AddPlaceColumns(table, texts);
  AddNumber(table, texts["loss-short"] + " A", "dB", 38.0, 26.0);
  AddNumber(table, texts["loss-short"] + " B", "dB", 38.0, 26.0);
  AddNumber(table, texts["mean"], "dB", 38.0, 26.0);
  AddNumber(table, texts["reflectance-short"] + " A", "dB", 40.0, 0.0);
  AddNumber(table, texts["reflectance-short"] + " B", "dB", 40.0, 0.0);
  AddNumber(table, texts["section"], "dB/km", 40.0, 26.0);
  if (wave.verdict) table.columns.push_back({texts["verdict"], "", 56.0, Align::kCentre});
  for (const EventLine& line : wave.lines) {
    Row row = PlaceCells(line, texts);
    // What one direction alone has seen is judged by itself.
    const Verdict mean = line.lossDb ? line.verdict.loss : Verdict::kNone;
    const Verdict alone = line.lossDb ? Verdict::kNone : line.verdict.loss;
    row.push_back({texts.Number(line.lossADb, kLossDecimals), line.lossADb ? alone : Verdict::kNone});
    row.push_back({texts.Deviation(line.lossASdDb, kLossDecimals)});
    row.push_back({texts.Number(line.lossBDb, kLossDecimals), line.lossADb ? Verdict::kNone : alone});
    row.push_back({texts.Deviation(line.lossBSdDb, kLossDecimals)});
    row.push_back({texts.Number(line.lossDb, kLossDecimals), mean, "", true});
    row.push_back({texts.Deviation(line.lossSdDb, kLossDecimals)});
    // The higher reflectance of the two is what was judged.
    const bool byB =
        line.reflectanceBDb && (!line.reflectanceDb || *line.reflectanceBDb > *line.reflectanceDb);
    row.push_back({Reflectance(line.reflectanceDb, line.reflectanceAtLeast, texts),
                   byB ? Verdict::kNone : line.verdict.reflectance});
    row.push_back({Reflectance(line.reflectanceBDb, line.reflectanceBAtLeast, texts),
                   byB ? line.verdict.reflectance : Verdict::kNone});
    row.push_back({texts.Number(line.attenuationDbPerKm, kLossDecimals), line.verdict.attenuation});
    row.push_back({texts.Deviation(line.attenuationSdDbPerKm, kLossDecimals)});
    const Verdict worst = WorstOf(line.verdict);
    if (wave.verdict) row.push_back({texts.WordFor(worst), worst});
    table.rows.push_back(std::move(row));
  }
  return table;
}

}  // namespace

std::string FileNameOf(const std::string& file) {
  return file == "-" ? ShownName(file) : std::filesystem::path(file).filename().string();
}

Table TotalsTable(const Fibre& fibre, const Texts& texts, double width) {
  Table table;
  table.columns = {{texts["wavelength"], "nm", 56.0, Align::kLeft},
                   {texts["directions"], "", 78.0, Align::kLeft},
                   {texts["length"], "km", 56.0},
                   {texts["total-loss"], "dB", 60.0},
                   {"±", "", 34.0, Align::kLeft, true},
                   {texts["link-attenuation"], "dB/km", 70.0},
                   {texts["return-loss"], "dB", 66.0},
                   {texts["events"], "", 48.0}};
  if (fibre.verdict != Verdict::kNone ||
      std::any_of(fibre.waves.begin(), fibre.waves.end(),
                  [](const Wave& wave) { return wave.verdict.has_value(); }))
    table.columns.push_back({texts["verdict"], "", 56.0, Align::kCentre});
  for (const Wave& wave : fibre.waves) {
    const bool both = wave.merged;
    const char* from = both                                                  ? "both"
                       : wave.a != nullptr && wave.a->trace.direction != "B" ? "from-a"
                                                                             : "from-b";
    const LinkVerdict none, &verdict = wave.verdict ? *wave.verdict : none;
    std::optional<double> perKm;
    if (wave.lossDb && wave.lengthKm && *wave.lengthKm > 0.0) perKm = *wave.lossDb / *wave.lengthKm;
    table.rows.push_back({{texts.Number(wave.nm, 0), Verdict::kNone, "", true},
                          {texts[from]},
                          {texts.Number(wave.lengthKm, kLengthDecimals), verdict.length},
                          {texts.Number(wave.lossDb, kLossDecimals), verdict.spanLoss},
                          {texts.Deviation(wave.lossSdDb, kLossDecimals)},
                          {texts.Number(perKm, kLossDecimals), verdict.linkAttenuation},
                          {(wave.returnLossAtMost && wave.returnLossDb ? "< " : "") +
                               texts.Number(wave.returnLossDb, kReflectanceDecimals),
                           verdict.returnLoss},
                          {std::to_string(wave.lines.size())},
                          {texts.WordFor(verdict.verdict), verdict.verdict, "", true}});
  }
  table.Stretch(width);
  return table;
}

Table EventsTable(const Wave& wave, const Texts& texts, double width) {
  Table table = wave.merged ? BothWaysTable(wave, texts) : OneWayTable(wave, texts);
  table.Stretch(width);
  return table;
}

TableHeading EventsHeading(const Wave& wave, const Texts& texts) {
  TableHeading heading;
  heading.text = texts.With("events-at", texts.Number(wave.nm, 0));
  heading.beside = Harmless(FileNameOf(wave.First().trace.file));
  if (wave.merged)
    heading.beside = "A " + heading.beside + ",  B " + Harmless(FileNameOf(wave.b->trace.file));
  return heading;
}

}  // namespace reflyze::paper
