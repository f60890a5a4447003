// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "ref/math/levelMean.h"
#include "ref/math/ref_Math.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::Noise;
using support::TraceSpec;

// --- Mean power ---

TEST(RefMathPower, AveragesDbOrLinearPower) {
  // Half of the points at -10 dB, half at -15 dB, which is a tenth of the power.
  auto sor = BuildTrace(100, [](long i) { return i % 2 == 0 ? -10.0 : -15.0; });
  float* lin = RefEmbGetLinf(sor.get());
  ASSERT_NE(lin, nullptr);
  const double linearMeanDb = -10.0 + 5.0 * std::log10(1.1 / 2.0);
  const struct {
    long first, count;
    int mode;
    double wantedDb, tolerance;
  } kCases[] = {
      {0, 100, 0, -12.5, 1e-5}, {10, 1, 0, -10.0, 1e-5}, {0, 100, 1, linearMeanDb, 1e-3},
      {0, 0, 0, 0.0, 0.0},      {0, -5, 1, 0.0, 0.0},
  };
  for (const auto& c : kCases) {
    EXPECT_NEAR(RefMathPower(sor.get(), c.first, c.count, c.mode), c.wantedDb, c.tolerance);
    EXPECT_NEAR(RefMathPower(sor.get(), lin, c.first, c.count, c.mode), c.wantedDb, c.tolerance);
    EXPECT_NEAR(RefMathPower(sor.get(), nullptr, c.first, c.count, c.mode), c.wantedDb, c.tolerance);
  }
  // Mode 2 stays in linear power, counted from the level floor of -60 dB.
  const double meanLin = std::pow(10.0, (linearMeanDb + 60.0) / 5.0);
  EXPECT_NEAR(RefMathPower(sor.get(), lin, 0L, 100L, 2) / meanLin, 1.0, 1e-3);
  // By time: 20 points from the one before the time.
  const double spacing = sor->FxdParams->GetOwtDS(0);
  EXPECT_NEAR(RefMathPower(sor.get(), 10.25 * spacing, 20 * spacing, 0), -12.5, 1e-5);
}

TEST(RefMathPower, EndsOfTheTrace) {
  auto sor = BuildTrace(100, [](long) { return -10.0; });
  float* lin = RefEmbGetLinf(sor.get());
  // A window counts the points that it has outside, at -65.5 dB or their power, even where there are more
  // than anybody could walk over. The array form is cut at the end of the trace and not at its beginning.
  constexpr long kMost = std::numeric_limits<long>::max();
  const struct {
    long first, count;
    double shareOnTrace, shareUpToTheEnd;
  } kCases[] = {{90, 20, 0.5, 1.0},        {-10, 20, 0.5, 0.5},     {-10, 120, 100.0 / 120, 100.0 / 110},
                {50, 500, 0.1, 1.0},       {0, 1000000, 1e-4, 1.0}, {-900, 1000, 0.1, 0.1},
                {-kMost, kMost, 0.0, 0.0}, {50, kMost, 0.0, 1.0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.first << " " << c.count);
    const auto meanDb = [](double share) { return -65.5 + share * 55.5; };
    EXPECT_NEAR(RefMathPower(sor.get(), c.first, c.count, 0), meanDb(c.shareOnTrace), 1e-5);
    EXPECT_NEAR(RefMathPower(sor.get(), lin, c.first, c.count, 0), meanDb(c.shareUpToTheEnd), 1e-4);
    // Linear power counts from the floor of -60 dB: -65.5 dB are -12.6 of it.
    const auto meanLin = [](double share) { return -12.589 + share * (1e10 + 12.589); };
    const double power = RefMathPower(sor.get(), lin, c.first, c.count, 2);
    EXPECT_NEAR(power / meanLin(c.shareUpToTheEnd), 1.0, 1e-3);
    EXPECT_NEAR(RefMathPower(sor.get(), c.first, c.count, 1),
                sor->QRTParams->LinToLog5(meanLin(c.shareOnTrace)), 1e-3);
    EXPECT_EQ(RefMathPower(sor.get(), nullptr, c.first, c.count, 0),
              RefMathPower(sor.get(), lin, c.first, c.count, 0));
  }
  for (long first : {100L, 5000L, kMost}) {
    EXPECT_EQ(RefMathPower(sor.get(), lin, first, 20L, 1), 0.0f);
    EXPECT_EQ(RefMathPower(sor.get(), first, 20L, 0), -65.5);
  }
}

TEST(RefMathPower, ExpandsLevelsBelowTheFloor) {
  TraceSpec spec;
  spec.points = 10;
  spec.floorDb = -40.0;
  spec.level = [](long) { return -42.0; };
  auto sor = BuildTrace(spec);
  sor->QRTParams->SetNegScale(1);  // compressed by two
  EXPECT_NEAR(RefMathPower(sor.get(), 0L, 10L, 0), -44.0, 1e-4);
  EXPECT_NEAR(RefMathPower(sor.get(), nullptr, 0L, 10L, 0), -44.0, 1e-4);
  EXPECT_NEAR(RefMathPower(sor.get(), 0L, 10L, 1), -44.0, 1e-3);
}

// Wherever the windows begin, forwards and back, and with a third of the levels compressed.
TEST(RefMathPower, MeansInARowAreThoseOfEachWindow) {
  auto sor =
      BuildTrace(60, [](long i) { return -20.0 - 30.0 * std::fabs(std::sin(1.7 * static_cast<double>(i))); });
  sor->QRTParams->SetMAX(-45.0);
  sor->QRTParams->SetNegScale(2);
  for (long count : {1L, 4L, 7L, 14L, reflyze::MeansInARow<float>::kLongestWindow}) {
    reflyze::MeansInARow<float> single(*sor, count);
    reflyze::MeansInARow<double> twice(*sor, count);
    EXPECT_FALSE(single.Reach(-1)) << count;
    EXPECT_FALSE(single.Reach(61 - count)) << count;
    for (long first : {0L, 1L, 2L, 7L, 8L, 9L, 30L, 29L, 20L, 35L}) {
      ASSERT_TRUE(single.Reach(first));
      EXPECT_EQ(single.Over(first), RefMathPower(sor.get(), nullptr, first, count, 0))
          << first << " " << count;
      EXPECT_EQ(twice.Over(first), RefMathPower(sor.get(), first, count, 0)) << first << " " << count;
    }
  }
}

TEST(RefMathAveragePointInSection, IncludesBothEnds) {
  auto sor = BuildTrace(20, [](long i) { return -10.0 - static_cast<double>(i); });
  const double spacing = sor->FxdParams->GetOwtDS(0);
  EXPECT_NEAR(RefMathAveragePointInSection(sor.get(), 2 * spacing, 4 * spacing, 1.0), -13.0, 1e-6);
  EXPECT_NEAR(RefMathAveragePointInSection(sor.get(), 2 * spacing, 2.9 * spacing, 2.0), -24.0, 1e-6);
  EXPECT_EQ(RefMathAveragePointInSection(sor.get(), 4 * spacing, 2 * spacing, 1.0), 0.0);
  // A time base that promises more points than there are: the mean counts them too.
  sor->FxdParams->NPPW[0] = 2000000000;
  const double tenDb = 10 * -24.5, promised = 1.9e9;
  EXPECT_NEAR(RefMathAveragePointInSection(sor.get(), 10 * spacing, 39 * spacing, 2.0),
              2.0 * (tenDb + 20 * -65.5) / 30, 1e-5);
  EXPECT_NEAR(RefMathAveragePointInSection(sor.get(), 0.0, promised * spacing, 1.0), -65.5, 1e-5);
  EXPECT_NEAR(RefMathPower(sor.get(), 10 * spacing, 30 * spacing, 0), (tenDb + 20 * -65.5) / 30, 1e-5);
  EXPECT_NEAR(RefMathPower(sor.get(), 50 * spacing, 30 * spacing, 0), -65.5, 1e-5);
}

// --- Scatter ---

TEST(RefMathSQO, IsTheScatterAboutTheLine) {
  auto sor = BuildTrace(
      1000, [](long i) { return -10.0 - 0.01 * static_cast<double>(i) + (i % 2 == 0 ? 0.05 : -0.05); });
  float sqo, y1, y2;
  ASSERT_EQ(RefMathSQO(sor.get(), 100, 900, sqo, y1, y2), 1);
  EXPECT_NEAR(sqo, 0.05, 1e-3);
  EXPECT_NEAR(y1, -11.0, 0.01);
  EXPECT_NEAR(y2, -19.0, 0.01);
  const struct {
    long first, last;
    int answer;
  } kCases[] = {{10, 13, 1}, {10, 12, 0}, {900, 1000, 1}, {900, 1001, 0}, {900, 100, 0}};
  for (const auto& c : kCases) {
    sqo = y1 = y2 = 42.0f;
    EXPECT_EQ(RefMathSQO(sor.get(), c.first, c.last, sqo, y1, y2), c.answer) << c.first;
    EXPECT_EQ(sqo == 42.0f && y1 == 42.0f && y2 == 42.0f, c.answer == 0) << c.first;
  }
}

TEST(RefMathLinSQO, IsARootMeanSquareOfLinearPower) {
  float samples[] = {100, 3, -4, 3, -4, 3, -4, 3, -4, 100};
  EXPECT_FLOAT_EQ(RefMathLinSQO(samples, 1, 9), std::sqrt(12.5f));
  EXPECT_EQ(RefMathLinSQO(samples, 1, 4), 0.0f);

  // 10 dB above the floor is a linear power of 100: the array gives it as it is, the levels less the mean.
  auto sor = BuildTrace(100, [](long i) { return i < 50 ? -50.0 : -20.0; });
  EXPECT_NEAR(RefMathLinSQO(sor.get(), 0.0f, 0.5f, 64.0f), -50.0, 0.01);
  EXPECT_EQ(RefMathLinSQO(sor.get(), 0.5f, 0.53f, 0.0f), 0.0f) << "three points";
  EXPECT_NEAR(RefMathLinSQO(sor.get(), -7.0f, 0.5f, 64.0f), -50.0, 0.01);
  sor->EmbData->Clear();
  EXPECT_NEAR(RefMathLinSQO(sor.get(), 0.0f, 0.5f, 36.0f), -60.0 + 5.0 * std::log10(64.0), 0.01);
}

// --- Geometry ---

TEST(RefMathClipLine, LeavesWhatLiesInside) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    const char* what;
    double in[4];
    int answer;
    double out[4];
  } kCases[] = {
      // against the rectangle from (0, 0) to (10, 10)
      {"inside", {1, 2, 3, 4}, 1, {1, 2, 3, 4}},
      {"falling through two sides", {-5, 12, 15, 2}, 1, {0, 9.5, 10, 4.5}},
      {"rising out of the top", {0, 0, 20, 40}, 1, {0, 0, 5, 10}},
      {"above", {1, 11, 5, 12}, 0, {nan, nan, nan, nan}},
      {"right of it", {11, 2, 15, 3}, 0, {nan, nan, nan, nan}},
      {"past a corner", {-4, 8, 4, 16.5}, 0, {nan, nan, nan, nan}},
      {"upright: taken as level at its first end", {5, 3, 5, 40}, 1, {5, 3, 5, 3}},
      {"level", {-1, 5, 4, 5}, 1, {0, 5, 4, 5}},
  };
  for (const auto& c : kCases) {
    double p[4] = {c.in[0], c.in[1], c.in[2], c.in[3]};
    ASSERT_EQ(RefMathClipLine(p[0], p[1], p[2], p[3], 0, 0, 10, 10), c.answer) << c.what;
    for (int i = 0; i < 4 && c.answer == 1; ++i) EXPECT_NEAR(p[i], c.out[i], 1e-9) << c.what << i;
  }
}

// --- Models ---

TEST(RefMathSplicePower, GoesFromTheFibreBeforeToTheFibreBehind) {
  const double width = 100.0;
  for (double loss : {-0.5, 0.1, 3.0}) {
    for (double s1 : {0.0, 1e-9, 0.002}) {
      for (double s2 : {0.0, 0.004}) {
        EXPECT_NEAR(RefMathSplicePower(loss, s1, s2, width, 0.0), 0.0, 1e-9);
        EXPECT_NEAR(RefMathSplicePower(loss, s1, s2, width, width), loss + width * s2, 1e-9);
        EXPECT_NEAR(RefMathSplicePower(loss, s1, s2, width, -10.0), -10.0 * s1, 1e-12);
        EXPECT_NEAR(RefMathSplicePower(loss, s1, s2, width, 150.0), 150.0 * s2 + loss, 1e-12);
        for (int x = 0; x <= 100; x += 20) {
          const double fine = RefMathSplicePower(loss, s1, s2, width, static_cast<double>(x));
          const float coarse = RefMathSplicePower(static_cast<float>(loss), static_cast<float>(s1),
                                                  static_cast<float>(s2), 100, x);
          EXPECT_NEAR(coarse, fine, 2e-5) << x;
        }
      }
    }
  }
  // Halfway through a lossless fibre, half of the light is weakened.
  EXPECT_NEAR(RefMathSplicePower(1.0, 0.0, 0.0, width, 50.0), -5 * std::log10((1 + SorMathPow5(-1.0)) / 2),
              1e-9);
  // Outside, the single-precision form takes the fibre's dB for linear power.
  EXPECT_FLOAT_EQ(RefMathSpliceLinPower(2.0f, 0.0f, 0.5f, 100, 120), 62.0f);
  EXPECT_FLOAT_EQ(RefMathSplicePower(2.0f, 0.0f, 0.5f, 100, 120), static_cast<float>(-5 * std::log10(62.0)));
}

TEST(RefMathModels, PulseLinearFactorAndFallingLine) {
  EXPECT_NEAR(RefMathLinesSQO(3.0, 0.5, 12.0), std::sqrt(3.0), 1e-12) << "from 3 to -3";
  // A fast receiver, finely sampled, sees the whole peak; a slow one what it can reach within the pulse.
  EXPECT_NEAR(RefMathAmplitudePulse(1000.0, 10.0, 1e-6), 1.0, 1e-6);
  EXPECT_NEAR(RefMathAmplitudePulse(10.0, 0.1, 1e-6), 1.0 - std::pow(10.0, -0.2), 1e-6);
  const double widest = RefMathAmplitudePulse(10.0, 100.0, 10.0);
  EXPECT_NEAR(widest, 1.2 * (1.0 - std::exp(-1.0 / 1.2)), 1e-12);
  EXPECT_EQ(RefMathAmplitudePulse(10.0, 100.0, 999.0), widest) << "no sample is wider than the pulse";
  EXPECT_EQ(RefMathLinearFactor(-1.0, 2.0, 0.0), 0.0);
  EXPECT_NEAR(RefMathLinearFactor(2.0, 3.0, 0.5), 5 * std::log10(5.0), 1e-12);
}

TEST(RefMathCalcPower, ExtrapolatesToTheStartOfTheFibre) {
  TraceSpec spec;
  spec.points = 20000;
  spec.offsetOwt = -1000;  // 200 points before the launch
  spec.pulseNs = 100;
  spec.SlopeDbPerKm(0.35);
  auto sor = BuildTrace(spec);
  const float atStart = static_cast<float>(spec.LevelAt(200));
  EXPECT_NEAR(RefMathCalcPower0(sor.get(), 0.5f, 1.5f), atStart, 0.002);
  auto rising = BuildTrace(2000, [](long i) { return -30.0 + 0.005 * static_cast<double>(i); });
  EXPECT_NEAR(RefMathCalcPower0(rising.get(), 0.05f, 0.1f), rising->LenToLevel(0.1, 0), 0.01);

  const double at1us = atStart + 5.0;  // a tenth of the pulse
  const struct {
    short pulseNs, sw1, force, wantedForce;
    unsigned short powerOffset;
    float att;
    double wantedDb;
  } kCases[] = {
      {100, 0, 300, 0, 0, 0.0f, at1us},  // no attenuator: the field is set anew
      {20, 0, 300, 700, 0, 0.0f, atStart - 5 * std::log10(0.02) - 0.7},
      {100, 4000, 300, 300, 7000, 0.0f, at1us + 3.0 - 0.3},  // attenuator on record
      {100, 4000, 300, 300, 7000, 2.0f, at1us + 5.0 - 0.3},  // told by the caller
      {100, 4000, 300, 300, 4900, 0.0f, at1us - 0.3},        // less than 1 dB is none
      {0, 0, 0, 700, 0, 0.0f, atStart + 15.0 - 0.7},         // no pulse: 1 ns
  };
  for (const auto& c : kCases) {
    sor->FxdParams->PWU[0] = c.pulseNs;
    sor->FxdParams->PO = c.powerOffset;
    sor->QRTParams->SW1 = c.sw1;
    sor->QRTParams->Force = c.force;
    EXPECT_NEAR(RefMathCalcPower1uS(sor.get(), 0.5f, 1.5f, c.att), c.wantedDb, 0.003) << c.wantedDb;
    EXPECT_EQ(sor->QRTParams->Force, c.wantedForce) << c.wantedDb;
  }
}

TEST(RefMathAddNoise, ShrinksWithLevelAndAverages) {
  auto sor = BuildTrace(100, [](long i) { return -41.0 + 0.4 * static_cast<double>(i); });
  sor->FxdParams->SetNF(-40.0);
  double before = 1e9;
  for (long i : {10L, 30L, 60L, 90L}) {
    const double one = RefMathAddNoise(sor.get(), i, 1, 1);
    const double power = std::pow(10.0, (sor->NumToLevel(i) + 40.0) / 5.0);
    EXPECT_NEAR(one, 5 * std::log10((power + 1) / power), 2e-3) << i;
    EXPECT_LT(RefMathAddNoise(sor.get(), i, 100, 1), one + 2e-4) << i;  // rounding of the scale
    const double swing = RefMathAddNoise(sor.get(), i, 4, 0);
    EXPECT_NEAR(swing, (RefMathAddNoise(sor.get(), i, 4, 1) - RefMathAddNoise(sor.get(), i, 4, -1)) / 2,
                1e-6);
    EXPECT_LT(swing, before);
    before = swing;
  }
  EXPECT_EQ(RefMathAddNoise(sor.get(), 0, 1, -1), -100.0f) << "below the noise";
  EXPECT_EQ(RefMathAddNoise(sor.get(), 30, 0, 1), RefMathAddNoise(sor.get(), 30, -7, 1));
}

}  // namespace
