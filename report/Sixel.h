// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace reflyze {

// The few colours of a plot.
enum class Ink : unsigned char { kNone, kGrid, kAxis, kCurve, kNumber };

// A picture of pixels; what lies outside of it is not drawn.
class Raster {
 public:
  Raster(int width, int height)
      : width_(width),
        height_(height),
        inks_(static_cast<size_t>(width) * static_cast<size_t>(height), Ink::kNone) {}

  int width() const { return width_; }
  int height() const { return height_; }
  Ink At(int x, int y) const {
    return inks_[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)];
  }
  void Set(int x, int y, Ink ink) {
    if (x >= 0 && y >= 0 && x < width_ && y < height_)
      inks_[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)] = ink;
  }
  void Row(int x, int y, int length, Ink ink) {
    for (int i = 0; i < length; ++i) Set(x + i, y, ink);
  }
  void Column(int x, int y, int length, Ink ink) {
    for (int i = 0; i < length; ++i) Set(x, y + i, ink);
  }
  void Frame(int x, int y, int wide, int high, Ink ink) {
    Row(x, y, wide, ink), Row(x, y + high - 1, wide, ink), Column(x, y, high, ink),
        Column(x + wide - 1, y, high, ink);
  }
  // Figures and the letters of units, five by seven pixels each; others are blanks.
  void Text(int x, int y, const std::string& text, Ink ink);

 private:
  int width_, height_;
  std::vector<Ink> inks_;
};

// A picture as terminals take it: bands of six rows, each colour by itself, runs counted.
std::string SixelOf(const Raster& raster);

}  // namespace reflyze
