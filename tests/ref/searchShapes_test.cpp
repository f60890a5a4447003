// SPDX-License-Identifier: Apache-2.0

// Straight stretches, losses corrected for the slope, begins and ends of falls, and the dip behind a peak.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ref/search/refAutoSearch.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;

// Falls by 0.1 dB a point up to 100, by 0.01 up to 300, by 0.05 from there on.
std::unique_ptr<TSorData> ThreeSlopes() {
  return BuildTrace(500, [](long i) {
    const double first = std::min(i, 100L), second = std::clamp(i - 100, 0L, 200L),
                 third = std::max(i - 300, 0L);
    return -5.0 - 0.1 * first - 0.01 * second - 0.05 * third;
  });
}

TEST(StraightStretch, FoundWhereTheRateBegins) {
  const auto sor = ThreeSlopes();
  const struct {
    long a, b, w;
    float lossDb;
    long at;
  } kCases[] = {
      {0, 500, 20, 0.010f, 99},   // within a tenth of the rate one point of the steeper slope is already too
                                  // much
      {0, 500, 6, 0.010f, 100},   // short bases too
      {0, 500, 20, 0.050f, 299},  // a mixture of two slopes can't pass for a third
      {120, 500, 20, 0.050f, 299},
      {0, 500, 20, 0.500f, -1},
      {0, 500, 1, 0.010f, -1},
      {400, 300, 20, 0.05f, -1},
  };
  for (const auto& c : kCases) {
    const long at = RefAutoSearchStraightLoss(sor.get(), c.a, c.b, c.w, c.lossDb, 1.1f);
    EXPECT_NEAR(static_cast<double>(at), static_cast<double>(c.at), 2.0)
        << "rate " << c.lossDb << ", base " << c.w;
  }
}

TEST(StraightStretch, BandOfRatesGivesEitherEnd) {
  const auto sor = ThreeSlopes();
  for (const long w : {4L, 12L, 40L}) {
    const long begin = RefAutoSearchStraightLoss2(sor.get(), 0, 500, w, 0.012f, 0.008f, 0);
    const long end = RefAutoSearchStraightLoss2(sor.get(), 0, 500, w, 0.012f, 0.008f, 1);
    EXPECT_NEAR(static_cast<double>(begin), 100.0, 2.0) << "base " << w;
    EXPECT_EQ(end - begin, w) << "base " << w;
  }
  EXPECT_EQ(RefAutoSearchStraightLoss2(sor.get(), 0, 500, 1, 0.2f, 0.0f, 0), -1);
  EXPECT_EQ(RefAutoSearchStraightLoss2(sor.get(), 0, 500, 10, 0.9f, 0.8f, 0), -1);
  EXPECT_EQ(RefAutoSearchStraightLoss2(sor.get(), 300, 200, 10, 0.2f, 0.0f, 0), -1);
  // Steps of 0.3 dB every three points: no base of two points falls at the rate, but three of them, fitted,
  // do.
  const auto stairs = BuildTrace(200, [](long i) { return -10.0 - 0.3 * static_cast<double>(i / 3); });
  EXPECT_EQ(RefAutoSearchStraightLoss2(stairs.get(), 10, 200, 2, 0.125f, 0.08f, 0), 10);
  EXPECT_EQ(RefAutoSearchStraightLoss2(stairs.get(), 10, 200, 2, 0.125f, 0.08f, 1), 13);
}

TEST(SlopeCorrection, TakesOffWhatTheFibreLosesBeyondNominal) {
  // Slope 0.012 around an event from 200 to 240, against a nominal 0.010: 40 points lose 0.08 dB too much.
  const auto sor = BuildTrace(500, [](long i) { return -10.0 - 0.012 * static_cast<double>(i); });
  const struct {
    float lossDb, noiseDb, expectedDb;
  } kCases[] = {
      {0.50f, 0.0f, 0.42f},                          // taken off
      {0.05f, 0.0f, 0.00f},                          // nothing is left
      {-0.50f, 0.0f, -0.50f},                        // a gain is not made by a steep fibre
      {0.00f, 0.0f, 0.00f},   {0.50f, 9.0f, 0.40f},  // the slope counts for a quarter above nominal at most
      {-0.50f, 9.0f, -0.42f},                        // and for a fifth below; noise counts against a gain
  };
  for (const auto& c : kCases) {
    EXPECT_NEAR(RefAutoDopuskLosPin(sor.get(), 100, 200, 240, 340, c.lossDb, 0.010f, c.noiseDb), c.expectedDb,
                2e-4f)
        << "loss " << c.lossDb << ", noise " << c.noiseDb;
  }
  // No distance to measure a slope over.
  EXPECT_EQ(RefAutoDopuskLosPin(sor.get(), 200, 200, 200, 200, 0.3f, 0.01f, 0.0f), 0.3f);
}

TEST(SlopeCorrection, SteeperEndRaisesTheSlope) {
  const struct {
    double middle, last, expected;
  } kCases[] = {
      {0.020, 0.020, 0.0200},
      {0.020, 0.030, 0.0250},                    // steepens: the mean of both
      {0.020, 0.0185, 0.5 * (0.01925 + 0.010)},  // falls off a little: half trusted
      {0.020, 0.0150, 0.010},                    // falls off: not at all
      {0.020, 0.0050, 0.010},                    // less than nominal
  };
  for (const auto& c : kCases) {
    const auto sor = BuildTrace(301, [&c](long i) {
      return -5.0 - c.middle * static_cast<double>(std::min(i, 200L)) -
             c.last * static_cast<double>(std::max(i - 200, 0L));
    });
    EXPECT_NEAR(CalcLossPin(sor.get(), 0, 300, 0.010f), c.expected, 1e-5) << c.middle << " then " << c.last;
  }
}

// The walk as it is told, looking back anew from every point.
long RollBackPlainly(const std::vector<float>& levels, long end, long begin, double noise) {
  const auto at = [&](long i) {
    return i < 0 || i >= static_cast<long>(levels.size()) ? -65.5f : levels[static_cast<size_t>(i)];
  };
  if (begin > end) return begin;
  double before = 0;
  long i = end;
  for (; i > begin + 1; --i) {
    const double d = at(i) - at(i - 1), later = before;
    before = d;
    if (d > 0 && d < noise) {
      bool reached = false;
      for (long k = i - 2; k >= begin; --k) reached = reached || at(k) >= at(i - 1);
      if (!reached) continue;
    }
    if (d <= noise / 2) {
      if (at(i - 2) + noise / 2 > at(i) + d) return i;
      if (at(i - 1) - at(i - 2) <= 2 * noise && at(i + 1) - at(i) > 10 * (d + noise)) return i - 1;
    }
    if (d <= noise && later < 2 * noise) return i;
  }
  return i;
}

TEST(RollBack, EqualsThePlainWalk) {
  support::Noise noise(21);
  long moved = 0;
  for (int round = 0; round < 500; ++round) {
    // Rises and falls of a few steps each, so that every way out of the walk is taken.
    std::vector<double> levels{-30};
    for (long i = 1; i < 40; ++i)
      levels.push_back(levels.back() + 0.01 * static_cast<double>(noise.Integer(-1, 4)));
    const auto sor = BuildTrace(levels);
    const long begin = noise.Integer(-1, 20), end = noise.Integer(0, 40);
    const double noiseDb = 0.005 * static_cast<double>(noise.Integer(0, 8));
    const long expected = RollBackPlainly(support::Levels(*sor), end, begin, noiseDb);
    moved += expected < end && expected > begin + 1;
    EXPECT_EQ(RefAutoOtkatEnd(sor.get(), end, begin, noiseDb), expected) << "round " << round;
  }
  EXPECT_GT(moved, 50);
}

TEST(RollBack, FindsTheBottomOfACleanFall) {
  const auto sor = BuildTrace(300, [](long i) {
    return i <= 100 ? -10.0 : i <= 120 ? -10.0 - (i - 100) * 1.0 : -30.0;
  });
  EXPECT_EQ(RefAutoOtkatEnd(sor.get(), 110, 90, 0.01), 110);  // still in the fall: nothing to roll back
  EXPECT_EQ(RefAutoOtkatEnd(sor.get(), 50, 90, 0.01), 90);
  // A million points that rise too slowly to count: one pass.
  const auto slow = BuildTrace(400000, [](long i) { return -30.0 + 1e-5 * static_cast<double>(i); });
  EXPECT_EQ(RefAutoOtkatEnd(slow.get(), 399999, 0, 0.1), 1);
}

// A fibre at -32 dB over a noise floor of -40 dB. It ends in noise that swings by 1 dB.
TEST(SpliceBegin, LiesWhereTheTraceLeavesItsSlope) {
  const auto fibre = [](long i) { return -32.0 - 0.001 * static_cast<double>(i); };
  for (const long end : {450L, 500L, 700L}) {
    const auto sor = BuildTrace(
        2000, [&](long i) { return i < end ? fibre(i) : -45.0 + std::sin(static_cast<double>(i)); });
    const long begin = RefautoSearchBeginOfSplice(sor.get(), 400, 1000, 0, 40, 0.001f);
    EXPECT_NEAR(static_cast<double>(begin), static_cast<double>(end), 2.0);
  }
  // A peak before the fall: where the rise over half a width begins.
  const auto peak = BuildTrace(2000, [&](long i) {
    return i < 480 ? fibre(i) : i < 500 ? fibre(i) + 3.0 : fibre(i) - 5.0;
  });
  const long begin = RefautoSearchBeginOfSplice(peak.get(), 400, 1000, 0, 40, 0.001f);
  EXPECT_GE(begin, 480 - 21);
  EXPECT_LT(begin, 480);
}

TEST(Dip, DepthAndTimeConstant) {
  // A saturated peak up to 50, then a dip that comes back with a constant of 40 points.
  const auto levelAt = [](double depthDb) {
    return [depthDb](long i) {
      return i < 50 ? 0.0 : -10.0 - depthDb * std::exp(-static_cast<double>(i - 50) / 40.0);
    };
  };
  const auto sor = BuildTrace(600, levelAt(4.0));
  float ratio = 0, width = 0;
  const long recovered = RefAutoGetProvalAT(sor.get(), 50, 450, 0.0f, ratio, width);
  EXPECT_EQ(recovered, 250);  // the middle of the stretch is as far as it goes
  // Half of the depth in dB is recovered after ln 2 constants; the width is 1.4 times that.
  EXPECT_NEAR(width, 1.4 * 40.0 * std::log(2.0), 2.0);
  const double top = std::pow(10.0, -10.0 / 5), bottom = std::pow(10.0, -14.0 / 5);
  EXPECT_NEAR(ratio / ((top - bottom) / (1 - top)), std::exp(1.0 / width), 0.02);

  EXPECT_EQ(RefAutoGetProvalAT(sor.get(), 50, 65, 0.0f, ratio, width), 0);  // too short
  const auto level = BuildTrace(600, levelAt(0.001));
  EXPECT_EQ(RefAutoGetProvalAT(level.get(), 50, 450, 0.0f, ratio, width), 0);  // no dip
  const auto late = BuildTrace(
      600, [](long i) { return i < 50 ? 0.0 : -10.0 - 4.0 * std::exp(-std::pow((i - 200) / 40.0, 2)); });
  EXPECT_EQ(RefAutoGetProvalAT(late.get(), 50, 450, 0.0f, ratio, width),
            0);  // too far behind the peak to be its own
}

// How far a rise may take follows from the stretch, not from where it lies: far out on the trace a sharp dip
// comes before a deeper one that recovers slowly.
TEST(Dip, SharpOneIsTheReceiversWhereverItLies) {
  for (const long first : {50L, 5000L}) {
    const auto sor = BuildTrace(first + 600, [first](long i) {
      const double x = static_cast<double>(i - first);
      if (x < 100) return x < 0 ? 0.0 : -10.0 - 4.0 * std::exp(-x / 8.0);
      return x < 120 ? -10.0 - 0.3 * (x - 100) : std::min(-16.0 + 0.1 * (x - 120), -8.0);
    });
    float ratio = 0, width = 0;
    EXPECT_EQ(RefAutoGetProvalAT(sor.get(), first, first + 400, 0.0f, ratio, width), first + 200);
    EXPECT_FLOAT_EQ(width, 12 * 1.4f) << first;
  }
}

}  // namespace
