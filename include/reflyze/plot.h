// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "reflyze/picture.h"

namespace reflyze {

// A terminal is no larger.
constexpr int kMostPlotColumns = 1000;  // letters
constexpr int kMostPlotRows = 500;      // lines

// What a curve in a terminal looks like.
struct PlotOptions {
  int columns = 80;    // letters of a line
  int rows = 24;       // lines, with axes and numbers
  bool sixel = false;  // as a picture, for terminals that show such
};

// A trace as the lines of a terminal: its curve in braille letters, each of two by four points, axes in km
// and dB, and the numbers of its events above it. As a sixel picture the same. Throws Error kUsage for a size
// that has no room for a curve.
REFLYZE_API std::string PlotOf(const PicturedTrace& picture, const PlotOptions& options = {});

}  // namespace reflyze
