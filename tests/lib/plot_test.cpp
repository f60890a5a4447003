// SPDX-License-Identifier: Apache-2.0

// Curves in a terminal, held against the samples that they show.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "reflyze/error.h"
#include "reflyze/plot.h"

namespace reflyze {
namespace {

const std::string kMetro = std::string(REFLYZE_SOURCE_DIR) + "/examples/metro-40km.sor";

std::vector<std::string> LinesOf(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

size_t LettersOf(const std::string& line) {
  return static_cast<size_t>(std::count_if(
      line.begin(), line.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

TEST(PlotTest, FillsTheTerminalAndNothingMore) {
  const PicturedTrace picture = PictureOf(Trace::Open(kMetro));
  for (const auto& [columns, rows] : {std::pair(30, 10), {80, 24}, {200, 60}, {1000, 500}}) {
    const std::vector<std::string> lines = LinesOf(PlotOf(picture, {columns, rows, false}));
    EXPECT_EQ(lines.size(), static_cast<size_t>(rows));
    size_t widest = 0;
    for (const std::string& line : lines) widest = std::max(widest, LettersOf(line));
    EXPECT_LE(widest, static_cast<size_t>(columns));
    EXPECT_GE(widest + 12, static_cast<size_t>(columns));
  }
  EXPECT_THROW(PlotOf(picture, {29, 24, false}), Error);
  EXPECT_THROW(PlotOf(picture, {80, 9, false}), Error);
}

TEST(PlotTest, EventsStandWhereTheyAreAndAreNumbered) {
  const PicturedTrace picture = PictureOf(Trace::Open(kMetro));
  const std::string numbers = LinesOf(PlotOf(picture, {208, 24, false}))[1].substr(8);
  const double from = static_cast<double>(picture.whole.km.front()),
               to = static_cast<double>(picture.whole.km.back());
  for (const Event& event : picture.trace.table.events) {
    const size_t at = numbers.find(std::to_string(event.number));
    if (event.number == 2) continue;  // too near to the launch for a number of its own at some widths
    ASSERT_NE(at, std::string::npos) << numbers;
    EXPECT_NEAR(static_cast<double>(at) / 200.0, (event.distanceKm - from) / (to - from), 0.01);
  }
}

// A level that falls to the right fills its columns so: a line from the upper left to the lower right.
TEST(PlotTest, ALineIsALine) {
  PicturedTrace picture;
  for (int i = 0; i <= 1000; ++i) {
    picture.whole.km.push_back(static_cast<float>(i) * 0.01f);
    picture.whole.db.push_back(-static_cast<float>(i) * 0.02f);
  }
  const std::vector<std::string> lines = LinesOf(PlotOf(picture, {48, 24, false}));
  std::vector<size_t> first;
  for (size_t row = 2; row < 22; ++row) {
    const size_t at = lines[row].find("\xE2\xA0"), other = lines[row].find("\xE2\xA1");
    if (std::min(at, other) != std::string::npos)
      first.push_back(LettersOf(lines[row].substr(0, std::min(at, other))));
  }
  ASSERT_GT(first.size(), 16u);
  EXPECT_TRUE(std::is_sorted(first.begin(), first.end()));
  EXPECT_LT(first.front(), 12u);
  EXPECT_GT(first.back(), 40u);
}

// The bands of a sixel picture, added up, are as wide as it says, and the numbers in it are in its height.
TEST(PlotTest, ASixelPictureIsWhole) {
  const std::string text = PlotOf(PictureOf(Trace::Open(kMetro)), {80, 24, true});
  const size_t begin = text.find("\x1bP0;1;0q\"1;1;720;396"), end = text.rfind("\x1b\\");
  ASSERT_NE(begin, std::string::npos);
  ASSERT_NE(end, std::string::npos);
  int width = 0, bands = 0, repeat = 1;
  bool inColour = false;
  for (size_t i = text.find("#4;2", begin) + 13; i < end; ++i) {
    const char c = text[i];
    if (c == '#')
      inColour = true, width = 0, i += 1;
    else if (c == '!')
      repeat = std::atoi(&text[i + 1]), i = text.find_first_not_of("0123456789", i + 1) - 1;
    else if (c == '$')
      EXPECT_EQ(width, 720);
    else if (c == '-')
      ++bands;
    else if (inColour && c >= '?' && c <= '~')
      width += repeat, repeat = 1;
  }
  EXPECT_EQ(bands, 66);
}

}  // namespace
}  // namespace reflyze
