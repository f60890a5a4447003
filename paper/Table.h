// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "paper/Canvas.h"
#include "reflyze/limits.h"

namespace reflyze::paper {

struct Column {
  std::string heading = {}, unit = {};  // above each other
  double width = 40.0;                  // points
  Align align = Align::kRight;
  bool deviation = false;  // of the column before: smaller and grey, close behind it
};

struct Cell {
  std::string text = {};
  Verdict verdict = Verdict::kNone;  // colours the cell
  std::string symbol = {};           // a kind of event, drawn instead of a text
  bool bold = false;
  bool spans = false;  // reaches over the columns behind it
};

using Row = std::vector<Cell>;

// A table on a page. Its rows have one height, so that a page knows how many it has room for.
struct Table {
  std::vector<Column> columns;
  std::vector<Row> rows;

  static constexpr double kHeadHeight = 22.0;
  static constexpr double kRowHeight = 11.0;

  double Width() const;
  static double HeightOf(size_t rows) { return kHeadHeight + static_cast<double>(rows) * kRowHeight; }
  // Draws the heading and the rows from `from` up to `to`.
  void Draw(Canvas& canvas, double x, double y, size_t from, size_t to) const;
  // Makes its columns wider by one factor, up to a width.
  void Stretch(double width);

 private:
  void DrawHead(Canvas& canvas, double x, double y) const;
  void DrawCell(Canvas& canvas, double x, double y, const Column& column, const Cell& cell,
                double room) const;
};

}  // namespace reflyze::paper
