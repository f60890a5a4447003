// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "ref/math/traceWalk.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::Noise;

// Two stretches of different spacing, as an instrument takes them that looks closer at the beginning.
std::unique_ptr<TSorData> TwoStretches(long points, const std::function<double(double)>& levelOfOwt) {
  auto sor = BuildTrace(points, [](long) { return 0.0; });
  TSorBlockFixedParameters& fixed = *sor->FxdParams;
  fixed.SetTPW(2);
  const int first = static_cast<int>(points / 3);
  for (int i : {0, 1}) {
    fixed.PWU[i] = 100;
    fixed.DS[i] = i == 0 ? 20000 : 50000;
    fixed.NPPW[i] = i == 0 ? first : static_cast<int>(points) - first;
  }
  fixed.AO = 250;
  for (long i = 0; i < points; ++i) sor->DataPts->SetLevel(i, levelOfOwt(sor->NumToOwt(i)));
  return sor;
}

TEST(OwtWalk, EqualsTheConversionOfTheRecord) {
  Noise random(7);
  for (int round = 0; round < 200; ++round) {
    TSorData sor;
    TSorBlockFixedParameters& fixed = *sor.FxdParams;
    fixed.SetTPW(static_cast<short>(random.Integer(0, 6)));
    for (int i = 0; i < fixed.TPW; ++i) {
      fixed.DS[i] = static_cast<int>(random.Integer(-1000, 70000));
      fixed.NPPW[i] = static_cast<int>(random.Integer(round % 4 == 0 ? -5 : 0, 20));
    }
    fixed.AO = static_cast<int>(random.Integer(-100, 100));
    fixed.FPO = static_cast<int>(random.Integer(-100, 100));
    const long start = random.Integer(-3, 30);
    reflyze::OwtWalk walk(sor);
    for (long i = start; i < 130; i += random.Integer(0, 4)) ASSERT_EQ(walk.OwtOf(i), sor.NumToOwt(i));
    long next = start;
    reflyze::OwtWalk(sor).ForEachStretch(start, 130, [&](const auto& times, long from, long to) {
      EXPECT_TRUE(from == next && to > from);
      for (long i = from; i < to; ++i) EXPECT_EQ(times.OwtOf(i), sor.NumToOwt(i));
      next = to;
    });
    ASSERT_EQ(next, 130);
  }
}

// Sections that grow, shrink and come again, over stretches of the time base and over both ends of the trace.
TEST(SectionFits, AreTheLinesOfEachSection) {
  Noise random(11);
  auto sor = TwoStretches(3000, [&](double owt) { return -11.0 - 3.5e-4 * owt + random.Uniform(-0.3, 0.3); });
  const double begins[] = {-500.0, 400.0, 10000.0, 50000.0, 120000.0};
  for (int round = 0; round < 20; ++round) {
    reflyze::SectionFits fits(*sor);
    for (int i = 0; i < 60; ++i) {
      const double from = begins[random.Integer(0, 4)];
      const double to = i % 9 == 0 ? from : random.Uniform(i % 7 == 0 ? -1000.0 : from, 130000.0);
      double slope = 0.0, intercept = 0.0;
      RefMathLSL(sor.get(), from, to, slope, intercept, 1.0);
      const reflyze::SectionFits::Line line = fits.Of(from, to);
      ASSERT_EQ(line.slope, slope) << from << " " << to;
      ASSERT_EQ(line.intercept, intercept) << from << " " << to;
    }
  }
}

TEST(RefMathLSL, FindsTheLineAcrossStretches) {
  const double slope = -3.5e-4, intercept = -11.0;
  auto sor = TwoStretches(3000, [&](double owt) { return intercept + slope * owt; });
  const double owt1 = sor->NumToOwt(400), owt2 = sor->NumToOwt(2500) + 0.3;
  double a, b, deviation;
  RefMathLSL(sor.get(), owt1, owt2, a, b);
  EXPECT_NEAR(a, slope, 1e-9);
  EXPECT_NEAR(b, intercept, 1e-5);

  RefMathLSL(sor.get(), owt1, owt2, a, b, 2.0);
  EXPECT_NEAR(a, 2 * slope, 2e-9);
  EXPECT_NEAR(b, 2 * intercept, 2e-5);
  double unscaled;
  RefMathLSL(sor.get(), owt1, owt2, a, b, 1.000009);
  RefMathLSL(sor.get(), owt1, owt2, unscaled, b, 1.0);
  EXPECT_EQ(a, unscaled) << "a scale this close to 1 is none";

  sor->DataPts->SetLevel(1700, sor->NumToLevel(1700) - 0.5);
  RefMathLSL_AndDeviation(sor.get(), owt1, owt2, a, b, deviation);
  EXPECT_NEAR(deviation, 0.5, 0.002);
  double y1, y2;
  RefMathLSL2(sor.get(), owt1, owt2, y1, y2);
  EXPECT_NEAR(y1, intercept + slope * owt1, 0.002);
  EXPECT_NEAR(y2, intercept + slope * owt2, 0.002);
}

TEST(RefMathLSL, DegenerateSectionsHaveFixedAnswers) {
  auto sor = BuildTrace(100, [](long i) { return -10.0 - 0.125 * static_cast<double>(i); });
  const double spacing = sor->FxdParams->GetOwtDS(0);
  const double nan = std::numeric_limits<double>::quiet_NaN(), huge = 1e300;
  const struct {
    double owt1, owt2, slope, intercept;
  } kCases[] = {
      {10.2 * spacing, 10.8 * spacing, 0.0, -11.25 * 3.0},  // one point, scaled
      {50 * spacing, 20 * spacing, 1.0, 0.0},               // reversed: no points, no solution
      {-500.0, -400.0, 0.0, -65.5 * 3.0},                   // before the trace
      {huge, huge, 0.0, -65.5 * 3.0},                       // behind it
      {nan, nan, 0.0, -65.5 * 3.0},
  };
  for (const auto& c : kCases) {
    double slope = 7, intercept = 7, deviation = 7;
    RefMathLSL_AndDeviation(sor.get(), c.owt1, c.owt2, slope, intercept, deviation, 3.0);
    EXPECT_EQ(slope, c.slope) << c.owt1;
    EXPECT_EQ(intercept, c.intercept) << c.owt1;
    EXPECT_EQ(deviation, 0.0) << c.owt1;
  }
}

// A time base that promises far more points than there are must not cost time.
TEST(RefMathLSL, WalksNoFurtherThanTheTrace) {
  auto sor = BuildTrace(100, [](long) { return -10.0; });
  sor->FxdParams->NPPW[0] = std::numeric_limits<int>::max();
  double slope, intercept, y1, y2;
  for (int i = 0; i < 20; ++i) {
    RefMathLSL(sor.get(), 0.0, 1e12, slope, intercept);
    RefMathLeastSquareLoss(sor.get(), 0.0, 1e12, slope, intercept);
    RefMathLSL2(sor.get(), 0.0, 1e12, y1, y2);
    EXPECT_GT(RefMathPower(sor.get(), 0.0, 1e12, 0), -66.0);
    EXPECT_GT(RefMathPower(sor.get(), -(1L << 60), std::numeric_limits<long>::max(), 1), -66.0);
  }
}

TEST(RefMathLeastSquareLoss, IsTheLineThroughTheStairs) {
  // Over n full steps of a sampled line the intercept is the samples' and the slope falls short by 1 / n.
  const double intercept = -12.0, perPoint = -0.01;
  auto sor = BuildTrace(2000, [&](long i) { return intercept + perPoint * static_cast<double>(i); });
  const double spacing = sor->FxdParams->GetOwtDS(0);
  for (long n : {10L, 100L, 1500L}) {
    double slope, level;
    RefMathLeastSquareLoss(sor.get(), 100 * spacing, static_cast<double>(100 + n) * spacing, slope, level);
    EXPECT_NEAR(level, intercept + 100 * perPoint, 1e-4) << n;
    EXPECT_NEAR(slope * spacing, perPoint * (1.0 - 1.0 / static_cast<double>(n)), 1e-6) << n;
  }
  // Ends between points count as they stand: a level section stays level.
  auto level = BuildTrace(100, [](long) { return -20.0; });
  double slope, at;
  RefMathLeastSquareLoss(level.get(), 10.25 * spacing, 60.75 * spacing, slope, at);
  EXPECT_NEAR(slope, 0.0, 1e-3);
  EXPECT_NEAR(at, -20.0, 0.1);
  RefMathLeastSquareLoss(level.get(), -900.0, -800.0, slope, at);  // both held at the first point
  EXPECT_EQ(slope, 0.0);
  EXPECT_EQ(at, -20.0);
}

TEST(RefMathLSLf, SlopeIsPositiveForALossAndCountsFromTheEnd) {
  auto sor = BuildTrace(500, [](long i) { return -10.0 - 0.0625 * static_cast<double>(i); });
  float slope, intercept, y1, y2;
  RefMathLSLf(sor.get(), 100, 420, slope, intercept);
  EXPECT_NEAR(slope, 0.0625, 1e-5);
  EXPECT_NEAR(intercept, -10.0 - 0.0625 * 420, 1e-3);
  RefMathLSL2f(sor.get(), 100, 420, y1, y2);
  EXPECT_NEAR(y1, -10.0 - 0.0625 * 100, 3e-3);
  EXPECT_EQ(y2, intercept);
  RefMathLSLf(sor.get(), 33, 33, slope, intercept);
  EXPECT_EQ(slope, 0.0f);
  EXPECT_EQ(intercept, sor->NumTofLevel(33));
  RefMathLSLf(sor.get(), 40, 33, slope, intercept);
  EXPECT_EQ(slope, 1.0f);
  EXPECT_EQ(intercept, 0.0f);
}

// Above 30000 steps only every second point counts, from the last one backwards.
TEST(RefMathLSLf, LongSectionsTakeEverySecondPoint) {
  const long last = 30002;
  const auto fit = [&](long first, long spikeAt) {
    auto sor = BuildTrace(last + 1, [&](long i) { return -10.0 - 2e-4 * static_cast<double>(i); });
    if (spikeAt >= 0) sor->DataPts->SetLevel(spikeAt, -60.0);
    float slope, intercept;
    RefMathLSLf(sor.get(), first, last, slope, intercept);
    return intercept;
  };
  const float clean = fit(1, -1);
  EXPECT_EQ(fit(1, last - 1), clean);
  EXPECT_NE(fit(1, last - 2), clean);
  EXPECT_EQ(fit(1, 1), clean) << "the first point itself may be passed over";
  EXPECT_NE(fit(2, last - 1), fit(2, -1)) << "30000 steps are not yet long";
  auto sor = BuildTrace(last + 1, [&](long i) { return -10.0 - 2e-4 * static_cast<double>(i); });
  float slope, intercept;
  RefMathLSLf(sor.get(), 0, last, slope, intercept);
  EXPECT_NEAR(slope, 2e-4, 2e-6) << "still per point";
}

TEST(RefMathLSL4f, WeighsFourPoints) {
  // Which points count, and by how much, shows in the answer to a single bump.
  const struct {
    long span, inner1, inner2;
  } kCases[] = {{3, 1, 2}, {4, 1, 3}, {5, 1, 3}, {7, 2, 5}, {8, 2, 5}, {300, 100, 200}};
  for (const auto& c : kCases) {
    for (long bump = 0; bump <= c.span; ++bump) {
      auto sor = BuildTrace(400, [&](long i) { return i == bump + 20 ? -9.0 : -10.0; });
      double wanted = 0.0;
      if (bump == 0) wanted = 0.9;
      if (bump == c.inner1) wanted = 0.3;
      if (bump == c.inner2) wanted = -0.3;
      if (bump == c.span) wanted = -0.9;
      ASSERT_NEAR(RefMathLSL4f(sor.get(), 20, 20 + c.span), wanted, 1e-5) << c.span << " " << bump;
    }
  }
}

TEST(RefMathLSLpt, FitsBlocks) {
  auto sor = BuildTrace(2000, [&](long i) { return -10.0 - 0.005 * static_cast<double>(i); });
  const struct {
    long first, last, block;
    double tolerance;
  } kCases[] = {
      {100, 1800, 50, 0.002},  // 34 blocks
      {100, 1801, 50, 0.002},  // a short block in front
      {100, 400, 290, 0.002},  // too few blocks: shortened
      {100, 1800, 0, 0.002},   // no block length
  };
  for (const auto& c : kCases) {
    double y1, y2;
    RefMathLSLpt(sor.get(), c.first, c.last, y1, y2, c.block);
    EXPECT_NEAR(y1, sor->NumToLevel(c.first), c.tolerance) << c.last << " " << c.block;
    EXPECT_NEAR(y2, sor->NumToLevel(c.last), c.tolerance) << c.last << " " << c.block;
  }
  double y1, y2;
  RefMathLSLpt(sor.get(), 100, 140, y1, y2, 50);
  EXPECT_EQ(y1, sor->NumToLevel(100));
  EXPECT_EQ(y2, y1);
  RefMathLSLpt(sor.get(), 100, 101, y1, y2, 1);  // one block: a level without a slope
  EXPECT_NEAR(y1, sor->NumToLevel(100), 1e-3);
  EXPECT_EQ(y2, y1);
}

TEST(RefMathGetPinWithLsp, FindsTheStartWithTheWantedSlope) {
  Noise random(11);
  int moved = 0;
  for (int round = 0; round < 20; ++round) {
    // Fibre, and before it the steep tail of a peak: the wanted slope lies between both.
    const long bend = random.Integer(200, 400), last = 900, mid = 700;
    auto sor = BuildTrace(1000, [&](long i) {
      return -20.0 - 0.001 * static_cast<double>(i) +
             (i < bend ? 0.02 * static_cast<double>(bend - i) : 0.0) + random.Gauss(0.002);
    });
    const float wanted = static_cast<float>(random.Uniform(0.0011, 0.003));
    double bestError = 1e9;
    for (long start = 0; start <= mid; ++start) {
      double n = 0, k = 0, kk = 0, y = 0, ky = 0;
      for (long i = last; i >= start; --i, ++n) {
        const double level = sor->NumToLevel(i);
        k += n, kk += n * n, y += level, ky += level * n;
      }
      const double slope = (y * k - ky * n) / (k * k - n * kk);
      bestError = std::min(bestError, std::fabs(slope - wanted));
    }
    float yPin, yLast, error;
    const long pin = RefMathGetPinWithLsp(sor.get(), 0, mid, last, wanted, yPin, yLast, error);
    ASSERT_GE(pin, 0);
    ASSERT_LE(pin, mid);
    EXPECT_LE(std::fabs(error * wanted), bestError + 2e-6);
    EXPECT_NEAR((yPin - yLast) / static_cast<float>(last - pin), wanted * (1.0f + error), 1e-5);
    moved += pin < bend;
  }
  EXPECT_GT(moved, 10) << "the search has to leave the fibre";
}

TEST(RefMathGetPinWithLsp, KeepsTheNearerOfEqualsAndTheErrorOfNone) {
  auto flat = BuildTrace(100, [](long) { return -16.0; });
  float yPin, yLast, error = 42.0f;
  EXPECT_EQ(RefMathGetPinWithLsp(flat.get(), 0, 50, 80, 0.5f, yPin, yLast, error), 50);
  EXPECT_EQ(error, -1.0f);
  error = 42.0f;
  EXPECT_EQ(RefMathGetPinWithLsp(flat.get(), 0, 80, 80, 0.5f, yPin, yLast, error), 80);
  EXPECT_EQ(error, 42.0f);
  EXPECT_EQ(yPin, -16.0f);
  EXPECT_EQ(yLast, -16.0f);
}

}  // namespace
