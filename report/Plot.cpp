// SPDX-License-Identifier: Apache-2.0

// The curve of a trace in a terminal. Both ways of drawing share the frame, its ticks and where numbers
// stand; they differ in what a point is: one of eight of a braille letter, or a pixel.

#include "reflyze/plot.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "lib/Text.h"
#include "report/Sixel.h"
#include "util/convert.h"

namespace reflyze {
namespace {

constexpr int kLeftColumns = 8;  // of the dB axis
constexpr int kHeadRows = 2;     // what trace it is, and numbers of events
constexpr int kFootRows = 2;     // of the km axis
constexpr int kLeastColumns = 30, kLeastRows = 10;
constexpr int kDotsWide = 2, kDotsHigh = 4;  // of a braille letter

// From a number to a place in points.
struct Axis {
  double from = 0.0, to = 1.0;
  int points = 1;

  int At(double value) const {
    return TruncToInt(std::floor((value - from) / (to - from) * (points - 1) + 0.5));
  }
  double Step(int most) const {
    double step = 1e-4;
    for (int i = 0; i < 40 && (to - from) / step > most; ++i) step *= i % 3 == 1 ? 2.5 : 2.0;
    return step;
  }
  std::vector<double> Ticks(int most) const {
    const double step = Step(most);
    std::vector<double> ticks;
    for (double i = std::ceil(from / step - 1e-9); i * step <= to + 1e-9 && ticks.size() < 100; ++i)
      ticks.push_back(i * step);
    return ticks;
  }
  std::string Label(double value, int most) const {
    const double step = Step(most);
    return Format("%.*f", step < 0.01 ? 3 : step < 0.1 ? 2 : step < 1.0 ? 1 : 0, NoMinusZero(value, 3));
  }
};

// Fibre and a little of the noise below it.
Axis LevelsOf(const Curve& curve, int points) {
  std::vector<float> levels = curve.db;
  std::sort(levels.begin(), levels.end());
  const double low = static_cast<double>(levels[levels.size() * 4 / 100]),
               high = static_cast<double>(levels.back());
  const double room = std::max(0.04 * (high - low), 0.1);
  return {low - room, high + room, points};
}

// The points that the curve goes through, column by column of points: from its lowest to its highest there,
// and on to the next.
template <class Set>
void DrawCurve(const Curve& curve, const Axis& x, const Axis& y, const Set& set) {
  int before = -1, beforeRow = 0;
  for (size_t i = 0; i < curve.km.size(); ++i) {
    const int column = x.At(static_cast<double>(curve.km[i]));
    const int row = std::clamp(y.points - 1 - y.At(static_cast<double>(curve.db[i])), 0, y.points - 1);
    if (column < 0 || column >= x.points) continue;
    if (before < 0) before = column, beforeRow = row;
    // A line between both points; upright within a column.
    const int steps = std::max({column - before, std::abs(row - beforeRow), 1});
    for (int s = 0; s <= steps; ++s)
      set(before + (column - before) * s / steps, beforeRow + (row - beforeRow) * s / steps);
    before = column;
    beforeRow = row;
  }
}

struct EventMark {
  int at;  // in points
  int number;
};

std::vector<EventMark> MarksOf(const PicturedTrace& picture, const Axis& x) {
  std::vector<EventMark> marks;
  for (const Event& event : picture.trace.table.events) {
    const int at = x.At(event.distanceKm);
    if (at >= 0 && at < x.points) marks.push_back({at, event.number});
  }
  return marks;
}

std::string TitleOf(const PicturedTrace& picture, int columns) {
  const EventTable& table = picture.trace.table;
  std::string title = OneLine(ShownName(picture.trace.file)) +
                      Format("  %.0f nm  %.0f ns", table.wavelengthNm, table.pulseNs);
  if (table.lengthKm) title += Format("  %.4f km", *table.lengthKm);
  if (table.totalLossDb) title += Format("  %.3f dB", *table.totalLossDb);
  // A name may have letters of several bytes; a whole one is kept at the end.
  size_t letters = 0, at = 0;
  for (; at < title.size() && letters < static_cast<size_t>(columns); ++letters) {
    do ++at;
    while (at < title.size() && (static_cast<unsigned char>(title[at]) & 0xC0) == 0x80);
  }
  return title.substr(0, at);
}

// A text of letters at places of a line; a place that is taken stays as it is.
void Write(std::string& line, int at, const std::string& text) {
  if (at < 0 || at + text.size() > line.size()) return;
  const size_t place = static_cast<size_t>(at);
  const size_t from = place > 0 ? place - 1 : 0, to = std::min(line.size(), place + text.size() + 1);
  if (line.substr(from, to - from).find_first_not_of(' ') != std::string::npos) return;
  line.replace(place, text.size(), text);
}

std::string Braille(unsigned dots) {
  if (dots == 0) return " ";
  const unsigned letter = 0x2800 + dots;
  return {static_cast<char>(0xE0 | letter >> 12), static_cast<char>(0x80 | (letter >> 6 & 0x3F)),
          static_cast<char>(0x80 | (letter & 0x3F))};
}

std::string LettersOf(const PicturedTrace& picture, const PlotOptions& options) {
  const int wide = options.columns - kLeftColumns, high = options.rows - kHeadRows - kFootRows;
  Axis x = {static_cast<double>(picture.whole.km.front()), static_cast<double>(picture.whole.km.back()),
            wide * kDotsWide};
  if (!(x.to > x.from)) x.to = x.from + 1.0;
  const Axis y = LevelsOf(picture.whole, high * kDotsHigh);
  std::vector<unsigned> cells(static_cast<size_t>(wide * high), 0);
  DrawCurve(picture.whole, x, y, [&](int column, int row) {
    constexpr unsigned kBits[kDotsHigh][kDotsWide] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
    cells[static_cast<size_t>(row / kDotsHigh * wide + column / kDotsWide)] |=
        kBits[row % kDotsHigh][column % kDotsWide];
  });
  std::string numbers(static_cast<size_t>(wide), ' ');
  for (const EventMark& mark : MarksOf(picture, x)) {
    const std::string text = std::to_string(mark.number);
    Write(numbers, std::min(mark.at / kDotsWide, wide - static_cast<int>(text.size())), text);
  }
  std::string text =
      TitleOf(picture, options.columns) + "\n" + std::string(kLeftColumns, ' ') + numbers + "\n";
  std::vector<std::string> labels(static_cast<size_t>(high));
  const int ticks = std::max(high / 3, 2);
  for (const double tick : y.Ticks(ticks))
    labels[static_cast<size_t>(std::clamp((y.points - 1 - y.At(tick)) / kDotsHigh, 0, high - 1))] =
        y.Label(tick, ticks);
  for (int row = 0; row < high; ++row) {
    const std::string& label = labels[static_cast<size_t>(row)];
    text += Format("%6s ", label.c_str()) + (label.empty() ? "│" : "┤");
    for (int column = 0; column < wide; ++column)
      text += Braille(cells[static_cast<size_t>(row * wide + column)]);
    text.erase(text.find_last_not_of(' ') + 1);
    text += "\n";
  }
  std::string scale(static_cast<size_t>(wide), ' ');
  std::string axis = "    dB └";
  std::vector<bool> ticked(static_cast<size_t>(wide), false);
  const int across = std::max(wide / 12, 2);
  Write(scale, wide - 2, "km");
  for (const double tick : x.Ticks(across)) {
    const int at = x.At(tick) / kDotsWide;
    if (at < 0 || at >= wide) continue;
    ticked[static_cast<size_t>(at)] = true;
    const std::string label = x.Label(tick, across);
    Write(scale, at - static_cast<int>(label.size()) / 2, label);
  }
  for (const bool tick : ticked) axis += tick ? "┬" : "─";
  scale.erase(scale.find_last_not_of(' ') + 1);
  return text + axis + "\n" + std::string(kLeftColumns, ' ') + scale + "\n";
}

std::string PictureText(const PicturedTrace& picture, const PlotOptions& options) {
  // Terminals don't tell how large a letter is; most are about so.
  constexpr int kLetterWide = 9, kLetterHigh = 18, kLeft = 48, kTop = 14, kBottom = 26;
  Raster raster(options.columns * kLetterWide, (options.rows - 2) * kLetterHigh);
  const int wide = raster.width() - kLeft - 4, high = raster.height() - kTop - kBottom;
  Axis x = {static_cast<double>(picture.whole.km.front()), static_cast<double>(picture.whole.km.back()),
            wide};
  if (!(x.to > x.from)) x.to = x.from + 1.0;
  const Axis y = LevelsOf(picture.whole, high);
  raster.Frame(kLeft, kTop, wide, high, Ink::kAxis);
  const int across = wide / 100, up = std::max(high / 40, 2);
  for (const double tick : y.Ticks(up)) {
    const int row = kTop + y.points - 1 - y.At(tick);
    raster.Row(kLeft, row, wide, Ink::kGrid);
    raster.Text(2, row - 3, Format("%7s", y.Label(tick, up).c_str()), Ink::kAxis);
  }
  for (const double tick : x.Ticks(std::max(across, 2))) {
    const std::string label = x.Label(tick, std::max(across, 2));
    raster.Column(kLeft + x.At(tick), kTop, high, Ink::kGrid);
    raster.Text(kLeft + x.At(tick) - 3 * static_cast<int>(label.size()), kTop + high + 6, label, Ink::kAxis);
  }
  raster.Text(raster.width() - 16, raster.height() - 9, "km", Ink::kAxis);
  raster.Text(2, kTop - 10, "dB", Ink::kAxis);
  int free = 0;
  for (const EventMark& mark : MarksOf(picture, x)) {
    raster.Column(kLeft + mark.at, kTop, high, Ink::kGrid);
    const std::string number = std::to_string(mark.number);
    const int at = kLeft + mark.at - 3 * static_cast<int>(number.size());
    if (at < free) continue;
    raster.Text(at, 2, number, Ink::kNumber);
    free = at + 6 * static_cast<int>(number.size()) + 3;
  }
  DrawCurve(picture.whole, x, y,
            [&](int column, int row) { raster.Set(kLeft + column, kTop + row, Ink::kCurve); });
  return TitleOf(picture, options.columns) + "\n" + SixelOf(raster) + "\n";
}

}  // namespace

std::string PlotOf(const PicturedTrace& picture, const PlotOptions& options) {
  if (options.columns < kLeastColumns || options.rows < kLeastRows)
    throw Error(ErrorKind::kUsage, "",
                Format("a curve needs %d columns and %d rows", kLeastColumns, kLeastRows));
  PlotOptions held = options;
  held.columns = std::min(held.columns, kMostPlotColumns);
  held.rows = std::min(held.rows, kMostPlotRows);
  if (picture.whole.km.empty()) return TitleOf(picture, held.columns) + "\n";
  return held.sixel ? PictureText(picture, held) : LettersOf(picture, held);
}

}  // namespace reflyze
