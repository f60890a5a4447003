// SPDX-License-Identifier: Apache-2.0
#include "report/Sixel.h"

#include <cstring>

namespace reflyze {
namespace {

constexpr int kGlyphWide = 5, kGlyphHigh = 7, kAdvance = 6;

// Each row of a letter is five bits, the left pixel first.
struct Glyph {
  char letter;
  unsigned char rows[kGlyphHigh];
};
constexpr Glyph kGlyphs[] = {{'0', {14, 17, 19, 21, 25, 17, 14}}, {'1', {4, 12, 4, 4, 4, 4, 14}},
                             {'2', {14, 17, 1, 2, 4, 8, 31}},     {'3', {31, 2, 4, 2, 1, 17, 14}},
                             {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},
                             {'6', {6, 8, 16, 30, 17, 17, 14}},   {'7', {31, 1, 2, 4, 8, 8, 8}},
                             {'8', {14, 17, 17, 14, 17, 17, 14}}, {'9', {14, 17, 17, 15, 1, 2, 12}},
                             {'-', {0, 0, 0, 31, 0, 0, 0}},       {'.', {0, 0, 0, 0, 0, 12, 12}},
                             {'k', {16, 16, 18, 20, 24, 20, 18}}, {'m', {0, 0, 26, 21, 21, 17, 17}},
                             {'d', {1, 1, 13, 19, 17, 17, 15}},   {'B', {30, 17, 17, 30, 17, 17, 30}}};

constexpr Ink kInks[] = {Ink::kGrid, Ink::kAxis, Ink::kCurve, Ink::kNumber};
// Red, green and blue in hundredths; they can be seen on light and on dark.
constexpr const char* kColours[] = {"#1;2;70;70;72", "#2;2;50;50;54", "#3;2;85;40;5", "#4;2;10;45;80"};

// A band of one colour: the same six pixels that follow each other are counted.
std::string Band(const Raster& raster, int top, Ink ink) {
  std::string band;
  char last = 0;
  int count = 0;
  const auto flush = [&] {
    if (count > 3) {
      band += "!" + std::to_string(count) + last;
    } else {
      band.append(static_cast<size_t>(count), last);
    }
  };
  bool any = false;
  for (int x = 0; x < raster.width(); ++x) {
    int bits = 0;
    for (int i = 0; i < 6 && top + i < raster.height(); ++i)
      bits |= raster.At(x, top + i) == ink ? 1 << i : 0;
    any = any || bits != 0;
    const char letter = static_cast<char>('?' + bits);
    if (letter != last) flush(), last = letter, count = 0;
    ++count;
  }
  flush();
  return any ? band : "";
}

}  // namespace

void Raster::Text(int x, int y, const std::string& text, Ink ink) {
  for (const char letter : text) {
    for (const Glyph& glyph : kGlyphs) {
      if (glyph.letter != letter) continue;
      for (int row = 0; row < kGlyphHigh; ++row) {
        for (int column = 0; column < kGlyphWide; ++column) {
          if ((glyph.rows[row] >> (kGlyphWide - 1 - column) & 1) != 0) Set(x + column, y + row, ink);
        }
      }
    }
    x += kAdvance;
  }
}

std::string SixelOf(const Raster& raster) {
  std::string text =
      "\x1bP0;1;0q\"1;1;" + std::to_string(raster.width()) + ";" + std::to_string(raster.height());
  for (const char* colour : kColours) text += colour;
  for (int top = 0; top < raster.height(); top += 6) {
    for (const Ink ink : kInks) {
      const std::string band = Band(raster, top, ink);
      if (!band.empty()) text += "#" + std::to_string(static_cast<int>(ink)) + band + "$";
    }
    text += "-";
  }
  return text + "\x1b\\";
}

}  // namespace reflyze
