// SPDX-License-Identifier: Apache-2.0
#include "paper/Table.h"

#include <algorithm>

#include "paper/Panel.h"

namespace reflyze::paper {
namespace {

constexpr double kLetters = 7.8, kSmallLetters = 6.4;
constexpr double kPad = 3.0;       // between a text and the edge of its cell
constexpr double kBaseline = 8.2;  // of a row, below its top

// Where the text of a column hangs, whose left edge is at x.
double TextPlace(double x, const Column& column) {
  if (column.align == Align::kRight) return x + column.width - kPad * (column.deviation ? 0.5 : 1.0);
  return column.align == Align::kCentre ? x + column.width / 2.0 : x + kPad;
}

}  // namespace

double Table::Width() const {
  double width = 0.0;
  for (const Column& column : columns) width += column.width;
  return width;
}

void Table::Stretch(double width) {
  const double factor = width / Width();
  for (Column& column : columns) column.width *= factor;
}

void Table::DrawHead(Canvas& canvas, double x, double y) const {
  const double width = Width();
  canvas.Fill(x, y, width, kHeadHeight, kFaintGrey);
  for (size_t i = 0; i < columns.size(); ++i) {
    const Column& column = columns[i];
    const double at = TextPlace(x, column), most = column.width - 2.0 * kPad;
    Style style = {column.deviation ? kSmallLetters : 7.2, true, kBlack, column.align};
    style.most = column.deviation ? column.width : most;
    canvas.FittingText(at, y + 9.0, column.heading, style);
    canvas.Text(at, y + 18.0, column.unit, {kSmallLetters, false, kGrey, column.align, 0.0});
    x += column.width;
  }
}

void Table::DrawCell(Canvas& canvas, double x, double y, const Column& column, const Cell& cell,
                     double room) const {
  if (const Colour* ground = GroundOf(cell.verdict))
    canvas.RoundFill(x + 0.8, y + 0.6, column.width - 1.6, kRowHeight - 1.2, 1.5, *ground);
  if (!cell.symbol.empty())
    DrawSymbol(canvas, x + column.width / 2.0, y + kRowHeight / 2.0, 6.5, cell.symbol);
  Style style = {column.deviation ? kSmallLetters : kLetters, cell.bold, LettersOn(cell.verdict),
                 column.align, (cell.spans ? room : column.width) - kPad};
  if (column.deviation && cell.verdict == Verdict::kNone) style.colour = kGrey;
  const double at = cell.spans ? x + kPad : TextPlace(x, column);
  if (cell.spans) style.align = Align::kLeft, style.colour = kFailRed;
  canvas.FittingText(at, y + kBaseline, cell.text, style);
}

void Table::Draw(Canvas& canvas, double x, double y, size_t from, size_t to) const {
  const double width = Width();
  DrawHead(canvas, x, y);
  y += kHeadHeight;
  for (size_t i = from; i < to && i < rows.size(); ++i) {
    double at = x;
    for (size_t c = 0; c < columns.size() && c < rows[i].size(); ++c) {
      DrawCell(canvas, at, y, columns[c], rows[i][c], x + width - at);
      at += columns[c].width;
    }
    y += kRowHeight;
    // What is said of a row belongs to it.
    const bool goesOn = i + 1 < rows.size() && rows[i + 1].size() > 1 && rows[i + 1][1].spans;
    if (!goesOn) canvas.Line(x, y, x + width, y, kPaleGrey, 0.3);
  }
}

}  // namespace reflyze::paper
