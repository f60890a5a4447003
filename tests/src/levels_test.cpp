// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/src/analyser.h"

namespace {

using support::Analyser;

// Random levels with plateaus and ties.
Analyser RandomBench(long points, std::uint32_t seed) {
  support::Noise noise(seed);
  std::vector<double> levels;
  for (long i = 0; i < points; ++i) levels.push_back(-0.5 * static_cast<double>(noise.Integer(10, 80)));
  return Analyser(
      support::SpecOfLevels(points, [levels](long i) { return levels[static_cast<std::size_t>(i)]; }));
}

// Against a plain walk over every point, beside the trace too.
TEST(AnalysisLevels, ExtremesOfAStretch) {
  Analyser bench = RandomBench(120, 7);
  TAuto& a = bench.analysis;
  support::Noise noise(8);
  for (int round = 0; round < 2000; ++round) {
    const long from = noise.Integer(-30, 150), count = noise.Integer(-5, 60);
    long highest = from, lowest = from;
    for (long p = from; p <= from + count; ++p) {
      if (bench.trace->NumToLevel(p) > bench.trace->NumToLevel(highest)) highest = p;
      if (bench.trace->NumToLevel(p) < bench.trace->NumToLevel(lowest)) lowest = p;
    }
    long pos = -99;
    ASSERT_EQ(a.GetMax(from, count, pos), bench.trace->NumToLevel(highest));
    ASSERT_EQ(pos, highest);
    ASSERT_EQ(a.GetMax(from, count), bench.trace->NumToLevel(highest));
    ASSERT_EQ(a.GetMin(from, count, pos), bench.trace->NumToLevel(lowest));
    ASSERT_EQ(pos, lowest);
    TEventLine line;
    a.GetMaxRef(from, count, &line);
    ASSERT_EQ(line.peakLevel, bench.trace->NumToLevel(highest));
    ASSERT_EQ(line.peakLen, bench.Km(highest));
  }
  EXPECT_EQ(a.GetMax(-(1L << 40), 1L << 41), -5.0);  // in the time that the trace takes, not the range
}

TEST(AnalysisLevels, FirstPointOrWindowUnderALevel) {
  Analyser bench = RandomBench(150, 3);
  TAuto& a = bench.analysis;
  a.nf = -60.0;
  support::Noise noise(4);
  for (int round = 0; round < 1000; ++round) {
    const long from = noise.Integer(0, 149), pin = noise.Integer(1, 12);
    const float level = static_cast<float>(noise.Uniform(-40.0, -10.0)), guard = -55.0F;
    long expected = from;
    while (expected < a.nPoints - pin && a.AveragePower(expected, pin, 0) >= level) ++expected;
    ASSERT_EQ(a.SearchStraightLess(from, level, pin, guard), expected) << from << " " << pin << " " << level;
  }
}

TEST(AnalysisLevels, GuardStopsTheSearchInTheNoise) {
  Analyser bench(support::SpecOfLevels(300, [](long i) { return -20.0 - 0.1 * i; }));
  bench.analysis.nf = -30.0;
  // The trace passes -32.4, the noise floor less 2.4 dB, at point 124.
  EXPECT_NEAR(bench.analysis.SearchStraightLess(0, -45.0F, 1, 0.0F), 125, 1);
  EXPECT_NEAR(bench.analysis.SearchStraightLess(0, -45.0F, 1, -35.0F), 151, 1);
  EXPECT_EQ(bench.analysis.SearchStraightLess(0, -60.0F, 1, -60.0F), 299);
  EXPECT_EQ(bench.analysis.SearchStraightLess(0, -60.0F, 20, -60.0F), 280);
  EXPECT_EQ(bench.analysis.SearchStraightLess(295, -60.0F, 20, -60.0F), 295);
}

// Levels that jump between -10 and -30: their mean in dB is -20, that of their power far above.
TEST(AnalysisLevels, NearTheGuardOnlyLinearPowerCounts) {
  Analyser bench(support::SpecOfLevels(400, [](long i) { return i % 2 == 0 ? -10.0 : -30.0; }));
  TAuto& a = bench.analysis;
  EXPECT_EQ(a.SearchStraightLess(10, -15.0F, 20, -24.0F), 10);
  EXPECT_EQ(a.SearchStraightLess(10, -15.0F, 20, -22.0F), 380);
}

TEST(AnalysisLevels, FirstWindowAboveAFallingLine) {
  const double slope = 0.002;  // dB per point
  const auto level = [slope](long i) { return -10.0 - slope * i - (i < 500 ? 0.01 * (i - 100) : 3.0); };
  Analyser bench(support::SpecOfLevels(1000, level));
  TAuto& a = bench.analysis;
  const double slopeDbPerKm = slope / a.lenDS;
  const long w = 20;
  const double startDb = -10.0 - slope * 100 - 3.2;
  EXPECT_EQ(a.StraightGreatherLine(100, 900, startDb, slopeDbPerKm, w), 100 + w / 2);
  EXPECT_NEAR(a.StraightGreatherLine(440, 900, startDb - slope * 340, slopeDbPerKm, w), 500, 15);
  EXPECT_EQ(a.StraightGreatherLine(550, 900, -5.0, slopeDbPerKm, w), 900 - w);
  EXPECT_EQ(a.StraightGreatherLine(550, 5000, -5.0, slopeDbPerKm, w), 1000 - w);
}

// A tail that flattens out: the first point whose fall over the window is a fibre's, and no point before it.
TEST(AnalysisLevels, NormalFallBehindATail) {
  const auto level = [](long i) { return -15.0 - 0.001 * i + 8.0 * std::exp(-i / 30.0); };
  Analyser bench(support::SpecOfLevels(1000, level));
  TAuto& a = bench.analysis;
  const long width = 20, averaged = width / 10 + 1;
  const double steepest = 0.004 / a.lenDS, flattest = 0.0005 / a.lenDS;
  const long start = a.NakatDZ(10, width, 800, steepest, flattest);
  const auto fall = [&](long p) {
    return a.AveragePower(p, averaged, 0) - a.AveragePower(p + width, averaged, 0);
  };
  EXPECT_LT(fall(start), 0.004 * width);
  EXPECT_GE(fall(start - 1), 0.004 * width);
  EXPECT_GT(start, 100);
  EXPECT_EQ(a.NakatDZ(10, width, 60, steepest, flattest), 60 - width - averaged);
  EXPECT_EQ(a.NakatDZ(50, width, 60, steepest, flattest), 50);
  EXPECT_LE(a.NakatDZ(10, width, 1L << 40, -1.0, -2.0), 1001);  // never found: ends behind the trace
}

TEST(AnalysisLevels, RollsBackUpAFallAndForwardToATop) {
  // A fall of 3 dB from point 200 to point 210 on a sloped fibre.
  const auto fall = [](long i) { return -10.0 - 0.001 * i - 0.3 * std::clamp<long>(i - 200, 0, 10); };
  Analyser bench(support::SpecOfLevels(400, fall));
  TAuto& a = bench.analysis;
  EXPECT_EQ(a.OtkatMax(208, 100, 0.001), 200);
  EXPECT_EQ(a.OtkatMax(208, 204, 0.001), 205);  // no further than behind the beginning
  EXPECT_EQ(a.OtkatMax(150, 100, 0.001), 150);  // nothing falls here
  EXPECT_EQ(a.OtkatMax(90, 100, 0.001), 90);
  EXPECT_EQ(a.NakatMax(203, 210), 203);
  const auto rise = [](long i) { return -10.0 + 0.1 * std::min<long>(i, 50); };
  Analyser rising(support::SpecOfLevels(400, rise));
  EXPECT_EQ(rising.analysis.NakatMax(20, 60), 58);
}

TEST(AnalysisLevels, DipBetweenTwoTops) {
  const struct {
    double dipDb;  // depth of the dip under both tops, at point 50
    long w, avg;
    float h;
    double nf;
    long found;
  } kCases[] = {
      {2.0, 30, 1, 1.0F, -60.0, 50}, {2.0, 30, 1, 3.0F, -60.0, 0},
      {2.0, 60, 1, 1.0F, -60.0, 0},  {2.0, 30, 40, 1.0F, -60.0, 0},  // too short for the averages
      {2.0, 30, 8, 1.0F, -20.0, 50},                                 // near the noise and wide enough
      {2.0, 30, 8, 1.9F, -20.0, 0},                                  // its mean is less deep than its point
  };
  for (const auto& c : kCases) {
    const auto level = [&c](long i) {
      return -17.0 - c.dipDb * std::max(0.0, 1.0 - std::abs(i - 50) / 20.0);
    };
    Analyser bench(support::SpecOfLevels(200, level));
    bench.analysis.nf = c.nf;
    EXPECT_EQ(bench.analysis.GetLocalMinMax(0, 100, c.w, c.avg, c.h), c.found)
        << c.dipDb << " " << c.w << " " << c.nf;
  }
}

TEST(AnalysisLevels, ScatterAndSlopeOfAStretch) {
  const struct {
    double startDb, sigmaDb;
    double polDb;  // two sigma to either side
    double tolerance;
  } kCases[] = {{-10.0, 0.02, 0.08, 0.01},
                {-10.0, 0.0, 0.002, 0.001},
                {-10.0, 1.0, 0.25, 0.0},
                {-38.0, 0.02, 0.0, 0.0}};
  for (const auto& c : kCases) {
    support::TraceSpec spec;
    spec.points = 2000;
    spec.startDb = c.startDb;
    spec.slopeDbPerPoint = 0.001;
    spec.noiseDb = c.sigmaDb;
    Analyser bench(spec);
    double pol = -1.0, slope = -1.0;
    EXPECT_NE(bench.analysis.GetPol(100, 1900, pol, slope), 0);
    EXPECT_NEAR(pol, c.polDb, c.tolerance) << c.startDb << " " << c.sigmaDb;
    EXPECT_NEAR(slope, 0.001, 1e-4);
    EXPECT_EQ(bench.analysis.GetPol(100, 102, pol, slope), 0);
    EXPECT_EQ(pol, 0.0);
    EXPECT_EQ(slope, 0.0);
  }
}

}  // namespace
