// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "sor/scale/sorMath.h"
#include "tests/src/analyser.h"

namespace {

using support::Analyser;

TEST(AnalysisNumerics, PowerRatioIsBoundedAboveOnly) {
  TAuto a;
  EXPECT_DOUBLE_EQ(a.powDb(5.0), 10.0);
  EXPECT_EQ(a.powDb(70.0), a.powDb(65.535));
  EXPECT_GT(a.powDb(65.535), a.powDb(65.5));
  EXPECT_NEAR(a.powDb(-100.0), 1e-20, 1e-30);
}

// Three questions about one relation: how high above the noise must a step of f dB stand when n points are
// averaged.
TEST(AnalysisNumerics, FaultHeightAndWindowAreInverseToEachOther) {
  TAuto a;
  for (const double faultDb : {0.01, 0.05, 0.3, 2.0}) {
    for (const long points : {1L, 4L, 16L, 1000L}) {
      const double heightDb = a.RequirePower(faultDb, points);
      EXPECT_NEAR(a.RequireFault(heightDb, points), faultDb + 0.002, 1e-9);
      EXPECT_NEAR(a.RequireAvgPin(heightDb, faultDb), static_cast<double>(points), 1.0);
      EXPECT_GE(a.RequireAvgPin(heightDb - 0.01, faultDb), points);
    }
  }
  EXPECT_NEAR(a.DbFault(7.0, 5.0 * std::log10(2.0)), 7.0, 1e-12);  // a step as high as the noise
}

TEST(AnalysisNumerics, DegenerateQuestionsHaveFixedAnswers) {
  TAuto a;
  EXPECT_EQ(a.RequireFault(500.0, 1), 0.002);
  EXPECT_EQ(a.RequireFault(10.0, 0), a.RequireFault(10.0, 1));
  EXPECT_EQ(a.RequireFault(10.0, -5), a.RequireFault(10.0, 1));
  EXPECT_EQ(a.RequirePower(0.0, 3), a.RequirePower(0.001, 3));
  EXPECT_EQ(a.RequirePower(-1.0, 3), a.RequirePower(0.001, 3));
  EXPECT_EQ(a.DbFault(3.0, -1.0), a.DbFault(3.0, 0.001));
  EXPECT_EQ(a.RequireAvgPin(-100.0, 0.01), 32767);
  EXPECT_EQ(a.RequireAvgPin(100.0, 0.5), 0);
}

TEST(AnalysisNumerics, WindowGrowsHalfAsFastBeyondTwentyPoints) {
  TAuto a;
  a.nf = -40.0;
  const double faultDb = 0.05;
  const struct {
    double demanded;  // points by the noise alone
    long minPin, maxPin, window;
  } kCases[] = {
      {12.0, 1, 1000, 12}, {20.0, 1, 1000, 20},  {21.0, 1, 1000, 20},
      {22.0, 1, 1000, 21}, {120.0, 1, 1000, 70}, {12.0, 50, 1000, 50},
      {120.0, 1, 30, 30},  {12.0, 50, 40, 40},   {1e9, 1, 100000, 16393},
  };
  for (const auto& c : kCases) {
    // Half a point less, since windows are rounded up.
    const double level = a.nf + a.RequirePower(faultDb, 1) - 2.5 * std::log10(c.demanded - 0.5);
    EXPECT_EQ(a.SetAvgPin(level, faultDb, c.minPin, c.maxPin), c.window) << c.demanded;
  }
}

// A mean moved on by a point is the mean of the next window, in and outside the trace. Linear power goes
// through the tables of the level scale, a few 1e-4 dB at each move.
TEST(AnalysisNumerics, MovedMeansAreFreshOnes) {
  support::TraceSpec spec;
  spec.points = 600;
  spec.slopeDbPerPoint = 0.01;
  spec.noiseDb = 0.4;
  Analyser bench(spec);
  TAuto& a = bench.analysis;
  for (const long count : {1L, 5L, 40L}) {
    double moved = a.AveragePower(-60, count, 0);
    for (long first = -59; first < 620; ++first) {
      moved = a.dAveragePower(first, count, 0, moved);
      ASSERT_NEAR(moved, a.AveragePower(first, count, 0), 1e-9) << first << " " << count;
      for (const int mode : {0, 1}) {
        // Beside the trace, nothing is left of the precision of linear power.
        if (mode == 1 && (first < 1 || first + count > spec.points)) continue;
        const double before = a.AveragePower(first - 1, count, mode),
                     after = a.AveragePower(first, count, mode);
        const float beforeInFloat = static_cast<float>(before);
        ASSERT_NEAR(a.dAveragePower(first, count, mode, before), after, 2e-3) << first << " " << count;
        ASSERT_NEAR(a.dAveragePower(a.linf, first, count, mode, beforeInFloat), after, 2e-3) << first;
        ASSERT_NEAR(a.dAveragePower(nullptr, first, count, mode, beforeInFloat), after, 2e-3) << first;
      }
    }
  }
}

TEST(AnalysisNumerics, SlopeBetweenWindowsOfASection) {
  support::TraceSpec spec;
  spec.points = 400;
  spec.slopeDbPerPoint = 0.02;
  Analyser bench(spec);
  const struct {
    long a, b, pin;
    double slope;
  } kCases[] = {
      {50, 250, 20, 0.02}, {50, 90, 19, 0.02}, {50, 90, 20, 0.0}, {50, 90, 200, 0.0}, {90, 50, 5, 0.0}};
  for (const auto& c : kCases) EXPECT_NEAR(bench.analysis.LossPin(c.a, c.b, c.pin, 0), c.slope, 2e-4);
}

// Least squares by the textbook, over the points of a section: levels of the line at both ends.
std::pair<double, double> FittedEnds(const TSorData& trace, long first, long last) {
  double n = 0, x = 0, xx = 0, y = 0, xy = 0;
  for (long i = first; i <= last; ++i) {
    const double xi = static_cast<double>(i - first), yi = trace.NumToLevel(i);
    n += 1, x += xi, xx += xi * xi, y += yi, xy += xi * yi;
  }
  const double slope = (n * xy - x * y) / (n * xx - x * x);
  const double start = (y - slope * x) / n;
  return {start, start + slope * static_cast<double>(last - first)};
}

TEST(AnalysisNumerics, LinesAreFittedByLeastSquares) {
  support::TraceSpec spec;
  spec.points = 1000;
  spec.slopeDbPerPoint = 0.01;
  spec.noiseDb = 0.2;
  Analyser bench(spec);
  for (const long window : {1L, 7L, 10000L}) {
    TEventLine owtLine, pointLine;
    owtLine.L[0] = pointLine.L[0] = bench.Km(120) + 1e-7;
    owtLine.L[1] = pointLine.L[1] = bench.Km(700) + 1e-7;
    bench.analysis.LossSquare(bench.trace.get(), owtLine, window);
    bench.analysis.LossfSquare(bench.trace.get(), pointLine);
    const auto [start, end] = FittedEnds(*bench.trace, 120, 700);
    EXPECT_NEAR(owtLine.P[0], start, 1e-6);
    EXPECT_NEAR(owtLine.P[1], end, 1e-6);
    EXPECT_NEAR(pointLine.P[0], start, 1e-3);
    EXPECT_NEAR(pointLine.P[1], end, 1e-3);
  }
}

TEST(AnalysisNumerics, SectionsWithoutExtentKeepTheirLevels) {
  support::TraceSpec spec;
  spec.points = 300;
  Analyser bench(spec);
  const double huge = 1e300, nan = std::nan("");
  const double kSections[][2] = {{bench.Km(50), bench.Km(50)},
                                 {bench.Km(60), bench.Km(50)},
                                 {huge, huge},
                                 {-huge, -huge},
                                 {nan, nan},
                                 {nan, -1.0}};
  for (const auto& section : kSections) {
    for (const bool byPoints : {false, true}) {
      TEventLine line;
      line.L[0] = section[0];
      line.L[1] = section[1];
      line.P[0] = 1.0;
      line.P[1] = 2.0;
      byPoints ? bench.analysis.LossfSquare(bench.trace.get(), line)
               : bench.analysis.LossSquare(bench.trace.get(), line, 1);
      EXPECT_EQ(line.P[0], 1.0);
      EXPECT_EQ(line.P[1], 2.0);
    }
  }
}

}  // namespace
