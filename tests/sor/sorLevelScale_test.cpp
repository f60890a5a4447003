// SPDX-License-Identifier: Apache-2.0
#include "sor/scale/sorLevelScale.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "sor/blocks/sorIParm.h"
#include "sor/stream/sorFile.h"
#include "tests/sor/blockBytes.h"
#include "tests/support/assertions.h"

namespace {

using Scale = TSorBlockQRTParameters;

constexpr double kTableErrorDb = 8e-4;  // largest error of the logarithm, see below
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

template <class T>
std::string BitsOf(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// Values that are spread evenly over decades.
std::vector<double> Spread(double fromDecade, double toDecade, int count) {
  std::mt19937 random(12);
  std::uniform_real_distribution<double> decade(fromDecade, toDecade);
  std::vector<double> values;
  for (int i = 0; i < count; ++i) values.push_back(std::pow(10.0, decade(random)));
  return values;
}

Scale ScaleOf(unsigned short max, int negScale, short unit = 1000) {
  Scale scale;
  scale.MAX = max;
  scale.Scale = unit;
  scale.SetNegScale(negScale - 1);
  return scale;
}

// The largest error of the logarithm: the argument keeps 15 bits, the curve bends between two entries of the
// table, and results are rounded to units of 1e-5.
double LossDb(double x, bool finer) {
  if (x > 2e9) x /= 1e4;
  if (finer && x < 4000.0) x *= 1e4;
  const double bend = 5.0 * std::log10(std::exp(1.0)) / 8.0 / (64.0 * 64.0);
  return 5.0 * std::log10(x / std::max(1.0, x - 1.0)) + 5.0 * std::log10(1.0 + std::pow(2.0, -14)) + bend +
         3e-5;
}

TEST(LevelScale, LogarithmWithinItsTable) {
  for (double wide : Spread(0.0, 13.3, 20000)) {
    const float x = static_cast<float>(wide);
    const double exact = 5.0 * std::log10(static_cast<double>(x));
    for (double quick : {Scale::log5t(x), static_cast<double>(Scale::flog5t(x))}) {
      EXPECT_LT(quick, exact + 2e-5) << x;
      EXPECT_GT(quick, exact - LossDb(x, true)) << x;
      EXPECT_NEAR(quick, exact, kTableErrorDb) << x;
    }
    const double integer = Scale::log500k(x) * 1e-05;
    EXPECT_LT(integer, exact + 2e-5) << x;
    EXPECT_GT(integer, exact - LossDb(x, false)) << x;
  }
}

TEST(LevelScale, LogarithmOfGivenValues) {
  const struct {
    float x;
    int units;
  } kCases[] = {
      {1.0f, 0},           {1.9f, 0},
      {2.0f, 150515},      {1000.0f, 1500000},
      {65536.0f, 2408240}, {2e9f, 4650515},
      {2.1e9f, 4661110},   {0.0f, 0},
      {-5.0f, 0},          {static_cast<float>(kNotANumber), 0},
      {3e38f, 6665954},    {static_cast<float>(kInfinity), 6665954},  // held at the largest argument
  };
  for (const auto& c : kCases) EXPECT_NEAR(Scale::log500k(c.x), c.units, 12) << c.x;
  EXPECT_EQ(Scale::log500k(2.0f), 150515);
  EXPECT_EQ(Scale::log500k(1000.0f), 1500000);
  for (double x : {0.0, -1.0, -1e30, kNotANumber}) EXPECT_TRUE(std::isfinite(Scale::log5t(x))) << x;
  EXPECT_NEAR(Scale::log5t(kInfinity), 66.65954, 1e-4);
}

TEST(LevelScale, StraightThroughZero) {
  EXPECT_EQ(BitsOf(reflyze::kStraightDbF), BitsOf(0x3F40A8C1u));
  EXPECT_EQ(BitsOf(reflyze::kStraightLinF), BitsOf(0x3FAA152Du));
  EXPECT_EQ(Scale::Log5(0.0, 1.0), 0.0);
  EXPECT_NEAR(Scale::Log5(2.0, 1.0), 1.50515, 1e-5);
  EXPECT_EQ(Scale::Log5(2.0, -3.0), -3.0 * Scale::Log5(2.0, 1.0));
  for (double x : {1e-9, 0.3, 1.0, 1.999, 2.0, 2.0001, 17.0, 1e6, 3e10}) {
    EXPECT_EQ(Scale::Log5(-x, 1.0), -Scale::Log5(x, 1.0)) << x;
    const float narrow = static_cast<float>(x);
    EXPECT_EQ(Scale::Log5(-narrow, 2.0f), -Scale::Log5(narrow, 2.0f)) << x;
    EXPECT_NEAR(Scale::Log5(narrow, 1.0f), Scale::Log5(static_cast<double>(narrow), 1.0), kTableErrorDb) << x;
  }
  // Both parts meet at 2.
  EXPECT_NEAR(Scale::Log5(2.0, 1.0), Scale::Log5(2.0 + 1e-9, 1.0), 2 * kTableErrorDb);
}

// The power as it is defined: factors of 10 and 2 taken out one by one, the rest from the table.
double PowerStepByStep(double x) {
  if (x > 40.0) return PowerStepByStep(x - 40.0) * 100000000.0;
  int n = static_cast<int>(x * 20000.0);
  int k = 1;
  while (n >= 100000) {
    k *= 10;
    n -= 100000;
  }
  while (n > 30102) {
    k *= 2;
    n -= 30103;
  }
  return static_cast<float>(k) * static_cast<float>(std::pow(10.0, (n >> 1) / 50000.0));
}

TEST(LevelScale, PowerToTheLastBit) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> level(0.0, 200.0);
  std::vector<double> levels = {0.0,      1.50514, 1.50515,  3.0102, 4.99995, 5.0,
                                39.99999, 40.0,    40.00001, 80.0,   400.0};
  for (int i = 0; i < 20000; ++i) levels.push_back(level(random));
  for (double x : levels) {
    ASSERT_EQ(BitsOf(Scale::poww(x)), BitsOf(PowerStepByStep(x))) << x;
    ASSERT_NEAR(Scale::poww(x) / std::pow(10.0, x / 5.0), 1.0, 5e-5) << x;
  }
  EXPECT_EQ(Scale::poww(5.0), 10.0f);
  EXPECT_EQ(Scale::poww(45.0), Scale::poww(5.0) * 1e8);
  EXPECT_DOUBLE_EQ(Scale::poww(-5.0), 0.1);
  EXPECT_NEAR(Scale::poww(1530.0), 1e306, 1e302);
  for (double x : {1600.0, 1e18, 1e300, kInfinity}) EXPECT_EQ(Scale::poww(x), kInfinity) << x;
  EXPECT_EQ(Scale::poww(-kInfinity), 0.0);
  EXPECT_EQ(Scale::poww(kNotANumber), Scale::poww(0.0));
}

// Up and down across the ends of all octaves and of both tables, and over values that have no place in them.
TEST(LevelScale, PowersInARunAreThoseOfEachValue) {
  std::vector<double> levels = {-5.0, kNotANumber, 12.0, kInfinity, 12.0, 1e-6};
  for (double tableDb : {0.0, 40.0, 80.0}) {
    for (int units : {0, 30103, 60206, 90309, 100000, 130103, 400000, 690309, 700000, 790309, 800000}) {
      for (double offUnits : {-9000.0, -0.6, -0.4, -1e-7, 0.0, 1e-7, 0.4, 0.6, 9000.0, 0.1, -0.1}) {
        levels.push_back(tableDb + (units + offUnits) / 20000.0);
      }
    }
  }
  reflyze::Pow5Run run;
  for (double x : levels) ASSERT_EQ(BitsOf(run(x)), BitsOf(reflyze::Pow5(x))) << x;
}

TEST(LevelScale, ScaleEndAndItsUnits) {
  const struct {
    double set;
    short unitBefore, unit;
    int max;
  } kCases[] = {{-60.0, 1000, 1000, 60000}, {-65.535, 1000, 1000, 65534}, {-70.0, 1000, 2000, 35000},
                {-60.0, 2000, 2000, 30000}, {-1e9, 1000, 2000, 65535},    {5.0, 1000, 1000, 0},
                {-60.0, 0, 0, 65535}};
  for (const auto& c : kCases) {
    Scale scale;
    scale.Scale = c.unitBefore;
    scale.SetMAX(c.set);
    EXPECT_EQ(scale.Scale, c.unit) << c.set;
    EXPECT_EQ(scale.MAX, c.max) << c.set;
  }
  EXPECT_DOUBLE_EQ(ScaleOf(65535, 1, -32768).GetMAX(), 2147.45088);
  EXPECT_EQ(ScaleOf(60000, 1).GetfMAX(), -60000000.0f * 1e-06f);
}

TEST(LevelScale, CompressionIsStoredLessOne) {
  for (int before : {0, 0xFFFF}) {
    for (int n : {0, 1, 2, 3, 9}) {
      Scale scale;
      scale.Flags = static_cast<short>(before);
      scale.SetNegScale(n);
      EXPECT_EQ(scale.GetNegScale(), std::min(n, 3) + 1);
      EXPECT_EQ(scale.Flags & 0xCFFF, before & 0xCFFF);
    }
  }
}

TEST(LevelScale, LevelsAndLinearValues) {
  const Scale scale = ScaleOf(60000, 2);
  EXPECT_EQ(scale.Log5ToLin(-60.0), 0.0);
  EXPECT_DOUBLE_EQ(scale.Log5ToLin(-50.0), 100.0f);
  EXPECT_NEAR(scale.Log5ToLin(-70.0, 0), -1e4, 1.0);  // -20 dB once expanded
  EXPECT_NEAR(scale.Log5ToLin(-70.0, 1), -100.0, 0.01);
  EXPECT_NEAR(scale.Log5ToLin(-59.0), 1.328771, 1e-6);  // on the straight part
  EXPECT_TRUE(std::isnan(scale.Log5ToLin(kNotANumber)));
  for (double level : {-50.0, -60.0}) EXPECT_EQ(scale.NLogToLog(level), level);
  EXPECT_EQ(scale.NLogToLog(-65.0), -70.0);  // expanded
  EXPECT_EQ(scale.NLogToLog(-65.0f), -70.0f);
  EXPECT_EQ(scale.NLogToPLog(-65.0f), -50.0f);  // and mirrored
  EXPECT_EQ(scale.LinToLog5(1e30), 0.0);
  EXPECT_EQ(scale.LinToLog5(1e30f), 0.0f);
}

// Linear values go to levels and back within the error of the tables, above the end of the scale and,
// compressed, below it.
TEST(LevelScale, RoundTrips) {
  for (int negScale = 1; negScale <= 4; ++negScale) {
    for (unsigned short max : {0, 40000, 60000}) {
      const Scale scale = ScaleOf(max, negScale);
      for (double lin : Spread(-3.0, 7.9, 500)) {
        for (double v : {lin, -lin}) {
          if (Scale::Log5(v, 1.0) + scale.GetMAX() > -0.1) continue;  // no level above 0 dB
          const double tolerance = std::max(1e-5, 5e-4 * lin);
          EXPECT_NEAR(scale.Log5ToLin(scale.LinToLog5(v)), v, tolerance) << v << " " << max;
          const float narrow = static_cast<float>(v);
          const float level = scale.LinToLog5(narrow);
          EXPECT_NEAR(level, scale.LinToLog5(v), 1e-4) << v << " " << max;
          EXPECT_NEAR(scale.Log5ToLin(level), scale.Log5ToLin(static_cast<double>(level)), tolerance) << v;
        }
      }
    }
  }
}

TEST(LevelScale, ZeroOffsetOfTheInstrument) {
  Scale scale = ScaleOf(60000, 1);
  scale.ZERO = 6553;
  const double zero = 6553 / 65535.0;
  EXPECT_NEAR(scale.fPow5(0.0), 1.0, 1e-5);
  EXPECT_NEAR(scale.fPow5(-5.0), 0.1 * (1.0 - zero) + zero, 1e-5);
  EXPECT_EQ(scale.fPow5(static_cast<unsigned short>(60000)), zero);
  EXPECT_EQ(scale.fPow5(static_cast<unsigned short>(5000)), scale.fPow5(-5.0));
}

// Raw samples of linear values for a scale of 30 dB, in units of 0.001 dB unless told otherwise.
std::vector<unsigned short> RawOf(const std::vector<float>& lin, short factor, int negScale,
                                  unsigned short max = 30000) {
  TSorBlockDataPoints points;
  points.SetPointsNum(static_cast<long>(lin.size()));
  points.SetPointsSubBlockScaleFactor(0, factor);
  std::vector<float> values = lin;
  ScaleOf(max, negScale).LinfToLog(values.data(), points);
  std::vector<unsigned short> raw;
  for (long i = 0; i < points.GetPointsNum(); ++i) raw.push_back(points.GetSubBlock()->GetValue(i));
  return raw;
}

TEST(LevelScale, LinearValuesBecomeSamples) {
  const struct {
    float lin;
    short factor;
    int negScale, raw;
  } kCases[] = {
      {1.0f, 1000, 1, 30000},     {2.0f, 1000, 1, 28495},  // 1505.15 units above, rounded
      {1e5f, 1000, 1, 5000},      {1e7f, 1000, 1, 0},      // above the top
      {-2.0f, 1000, 1, 31505},                             // below, cut
      {-2.0f, 1000, 2, 30752},    {-1000.0f, 1000, 2, 37500}, {-1e30f, 1000, 1, 65535},
      {0.0f, 1000, 1, 30000},     {0.5f, 1000, 1, 29247},  // 30000 - 752.5, cut
      {-0.5f, 1000, 1, 30752},    {-0.5f, 1000, 2, 30376},    {100.0f, 2000, 1, 10000},
      {1e5f, 0, 1, 5000},                                // as the usual factor
      {1000.0f, -1000, 1, 44999}, {-2.0f, 6, 4, 30133},  // a step of 66664 wraps to 1128
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(RawOf({c.lin}, c.factor, c.negScale)[0], c.raw)
        << c.lin << " " << c.factor << " " << c.negScale;
  }
  EXPECT_EQ(RawOf({-1e9f}, 1000, 1, 65000)[0], 65535);  // below the bottom
}

// What is stored is what is read, to within a unit, away from zero where the straight parts differ.
TEST(LevelScale, SamplesReadBackAsTheLinearValues) {
  const Scale scale = ScaleOf(30000, 2);
  for (double lin : Spread(0.6, 5.9, 1000)) {
    const std::vector<unsigned short> raw =
        RawOf({static_cast<float>(lin), static_cast<float>(-lin)}, 1000, 2);
    // The logarithm here truncates its argument: up to 5 log10(1 + 1 / lin) dB, and a unit.
    const double tolerance = lin * (1.0 / lin + 0.001);
    EXPECT_NEAR(scale.Log5ToLin(raw[0] / -1000.0), lin, tolerance);
    EXPECT_NEAR(scale.Log5ToLin(raw[1] / -1000.0), -lin, 2 * tolerance);
  }
}

TEST(LevelScale, SeveralScaleFactorsAreAnAssertion) {
  using blocktest::Layout;
  const blocktest::Bytes two =
      Layout().Long(2).Short(2).Long(1).Short(1000).Short(1).Long(1).Short(1000).Short(2).bytes();
  TSorBlockDataPoints points;
  reflyze::test::AssertionOf([&] { blocktest::ReadFrom(points, two, 100); });
  ASSERT_EQ(points.GetSubBlocksNum(), 2);
  float lin[2] = {1.0f, 1.0f};
  EXPECT_EQ(reflyze::test::AssertionOf([&] { Scale().LinfToLog(lin, points); }),
            "points.GetSubBlocksNum() == 1");
}

}  // namespace
