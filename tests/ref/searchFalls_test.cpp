// SPDX-License-Identifier: Apache-2.0

// Falls and rises over a base: brute-force twins, and traces whose answer is known by how they are built.

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

#include "ref/search/refAutoSearch.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;

constexpr float kRoundingDb = 2e-5f;  // of float levels around -20 dB

// A trace that falls by `slopeDb` a point from -10 dB.
double Fibre(long i, double slopeDb) { return -10.0 - slopeDb * static_cast<double>(i); }

// Part of a transition of `width` points that begins behind `begin`: 0 before, 1 from its end on.
double Ramp(long i, long begin, long width) {
  return std::clamp(static_cast<double>(i - begin) / static_cast<double>(width), 0.0, 1.0);
}

struct RiseFall {
  float fallDb = 0, riseDb = 0, largerDb = 0;
  long atFall = -1, atRise = -1;
};

RiseFall Measure(TSorData& sor, long a, long b, long w, float slope) {
  RiseFall r;
  r.largerDb = RefAutoSearchMaxdbRiseFall(&sor, a, b, w, r.fallDb, r.atFall, r.riseDb, r.atRise, slope);
  return r;
}

TEST(RiseAndFall, BareDifferencesEqualTheirDefinition) {
  support::Noise noise(3);
  for (int round = 0; round < 200; ++round) {
    std::vector<double> levels;
    const long n = noise.Integer(1, 30);
    for (long i = 0; i < n; ++i) levels.push_back(-20.0 + 0.5 * static_cast<double>(noise.Integer(0, 6)));
    const auto sor = BuildTrace(levels);
    const long a = noise.Integer(0, n - 1), b = noise.Integer(0, n - 1);
    const long w = noise.Integer(0, 3);  // below 4 points no edge is followed
    const long end = std::max(a, b), base = std::min(w, end - a);
    RiseFall expected;
    expected.fallDb = 99;
    expected.riseDb = -99;
    for (long i = a; i <= end - base; ++i) {
      const float step =
          static_cast<float>(levels[static_cast<size_t>(i + base)] - levels[static_cast<size_t>(i)]);
      if (step < expected.fallDb) expected.fallDb = step, expected.atFall = i;
      if (step > expected.riseDb) expected.riseDb = step, expected.atRise = i;
    }
    const float dropDb = 0.25f * static_cast<float>(base);
    const RiseFall measured = Measure(*sor, a, b, w, 0.25f);
    SCOPED_TRACE(::testing::Message() << "round " << round << ", " << a << " to " << b << ", base " << w);
    EXPECT_EQ(measured.atFall, expected.atFall);
    EXPECT_EQ(measured.atRise, expected.atRise);
    EXPECT_EQ(measured.fallDb, expected.fallDb + dropDb);
    EXPECT_EQ(measured.riseDb, expected.riseDb + dropDb);
    EXPECT_EQ(measured.largerDb, std::max(measured.riseDb, -measured.fallDb));
  }
}

TEST(RiseAndFall, SlopeIsTakenOutAndEdgesAreFollowed) {
  // Ten points of 1 dB each, seen over a base of 8: a rise gains half a base less one of its last points, a
  // fall is refined at the end of the largest rise, where nothing falls.
  const auto up = BuildTrace(200, [](long i) { return -20.0 + 10.0 * Ramp(i, 50, 10); });
  const RiseFall rise = Measure(*up, 0, 199, 8, 0.0f);
  EXPECT_EQ(rise.atRise, 50);
  EXPECT_FLOAT_EQ(rise.riseDb, 8.0f + 3.0f);
  EXPECT_EQ(rise.fallDb, 0.0f);
  const auto down = BuildTrace(200, [](long i) { return -10.0 - 10.0 * Ramp(i, 50, 10); });
  const RiseFall fall = Measure(*down, 0, 199, 8, 0.0f);
  EXPECT_EQ(fall.atFall, 50);
  EXPECT_FLOAT_EQ(fall.fallDb, -8.0f);
  // Behind a rise, a point that falls faster than the fall's mean adds to the fall.
  const auto both =
      BuildTrace({-20, -20, -20, -20, -16, -16, -16, -15, -19, -19, -19, -19, -20, -20, -20, -20, -20, -20});
  const RiseFall refined = Measure(*both, 0, 17, 4, 0.0f);
  EXPECT_EQ(refined.atRise, 3);
  EXPECT_EQ(refined.riseDb, 5.0f + 1.0f);
  EXPECT_EQ(refined.fallDb, -4.0f);
  // Plain fibre reads as nothing.
  const auto fibre = BuildTrace(500, [](long i) { return Fibre(i, 0.01); });
  EXPECT_NEAR(Measure(*fibre, 0, 499, 40, 0.01f).largerDb, 0.0f, 20 * kRoundingDb);
}

TEST(RiseAndFall, UnrestLeavesTheOneEventOut) {
  support::TraceSpec spec;
  spec.points = 1000;
  spec.noiseDb = 0.02;
  spec.level = [](long i) { return Fibre(i, 0.002) + (i >= 500 && i < 504 ? 5.0 : 0.0); };
  const auto event = support::BuildTrace(spec);
  spec.level = [](long i) { return Fibre(i, 0.002); };
  const auto plain = support::BuildTrace(spec);
  const float unrestDb = RefAutoSearchMaxdbRiseFall(event.get(), 0, 999, 10, 0.002f);
  EXPECT_LT(unrestDb, 0.15f);
  EXPECT_NEAR(unrestDb, RefAutoSearchMaxdbRiseFall(plain.get(), 0, 999, 10, 0.002f), 0.05f);
  // A second event far from the first is no longer the one event.
  spec.level = [](long i) { return Fibre(i, 0.002) + (i == 200 ? 5.0 : i == 800 ? -5.0 : 0.0); };
  EXPECT_GT(RefAutoSearchMaxdbRiseFall(support::BuildTrace(spec).get(), 0, 999, 10, 0.002f), 2.0f);
}

TEST(Falls, LargestFallEqualsItsDefinition) {
  support::Noise noise(5);
  for (int round = 0; round < 200; ++round) {
    std::vector<double> levels;
    for (long i = 0; i < 30; ++i) levels.push_back(-20.0 + 0.5 * static_cast<double>(noise.Integer(0, 9)));
    const auto sor = BuildTrace(levels);
    const long a = noise.Integer(0, 29), b = noise.Integer(0, 29), w = noise.Integer(0, 5);
    const float limit = 0.5f * static_cast<float>(noise.Integer(1, 9));
    float expected = 0;
    long expectedAt = a;
    for (long i = a; i + w <= b && expected < limit; ++i) {
      const float fall =
          static_cast<float>(levels[static_cast<size_t>(i)] - levels[static_cast<size_t>(i + w)]);
      if (fall > expected) expected = fall, expectedAt = i;
    }
    long at = -1;
    EXPECT_EQ(RefAutoSearchMaxdbFall(sor.get(), a, b, w, at, limit), expected) << "round " << round;
    EXPECT_EQ(at, expectedAt) << "round " << round;
  }
  const auto fibre = BuildTrace(100, [](long i) { return Fibre(i, 0.01); });
  long at = -1;
  const double pointKm = fibre->FxdParams->LenDS();
  EXPECT_NEAR(RefAutoSearchMaxFall(fibre.get(), 10, 90, 20, at) / (0.01 / pointKm), 1.0, 1e-3);
}

// Both windows and their difference from scratch, for every place.
TEST(Falls, LinearFallEqualsItsDefinition) {
  support::Noise noise(11);
  for (int round = 0; round < 200; ++round) {
    std::vector<float> samples;
    for (long i = 0; i < 40; ++i) samples.push_back(static_cast<float>(noise.Integer(0, 20)));
    const long width = noise.Integer(1, 4), gap = noise.Integer(0, 5);
    const long a = noise.Integer(-2, 20), b = noise.Integer(a, 40), first = std::max(a, 0L);
    const float dec = round % 3 == 0 ? 0.1f : 0.0f;
    const double own = std::pow(10.0, static_cast<double>(gap + width) * dec / 5) - 1;
    const auto sum = [&](long i) {
      return std::accumulate(samples.begin() + i, samples.begin() + i + width, 0.0);
    };
    double best = 0;
    long expectedAt = a + width - 1;
    if (b >= 2 * width + first + gap) {
      best = sum(first) - sum(first + width - 1 + gap);
      for (long i = first; i + 2 * width - 1 + gap <= b; ++i) {
        double fall = sum(i) - sum(i + width - 1 + gap);
        if (fall > 0) fall -= own * sum(i);
        if (fall > best + 1e-9) best = fall, expectedAt = i + width - 1;
      }
    }
    long at = -99;
    const float fall = RefAutoSearchMaxLinFall(samples.data(), a, b, gap, width, dec, at);
    EXPECT_FLOAT_EQ(fall, static_cast<float>(best / static_cast<double>(width))) << "round " << round;
    EXPECT_EQ(at, expectedAt) << "round " << round;
  }
}

TEST(Falls, FirstFallOutsideItsBand) {
  // 0.3 dB at 300 and 0.5 dB at 600, on fibre of 0.01 dB a point.
  const auto sor =
      BuildTrace(1000, [](long i) { return Fibre(i, 0.01) - (i >= 300 ? 0.3 : 0) - (i >= 600 ? 0.5 : 0); });
  const struct {
    long a, b, w;
    float tolDb;
    long at;
    float fallDb;
  } kCases[] = {
      {0, 1000, 20, 0.2f, 280, 0.5f},  // the first point whose base reaches over the step
      {0, 1000, 20, 0.4f, 580, 0.7f},  // only the larger step leaves the band
      {310, 1000, 20, 0.2f, 580, 0.7f},
      {0, 1000, 20, 0.6f, 0, 0.7f},   // none does: the largest fall, and no place
      {700, 300, 20, 0.1f, 0, 0.0f},  // reversed
      {0, 1000, 5, 0.2f, 295, 0.35f},
  };
  for (const auto& c : kCases) {
    long at = -1;
    const float fall = RefAutoSearchRefdbFall(sor.get(), c.a, c.b, c.w, 0.01f, c.tolDb, at);
    EXPECT_EQ(at, c.at) << "from " << c.a << ", tolerance " << c.tolDb;
    EXPECT_NEAR(fall, c.fallDb, 2 * kRoundingDb) << "from " << c.a << ", tolerance " << c.tolDb;
  }
  // A gain leaves the band below.
  const auto gain = BuildTrace(200, [](long i) { return Fibre(i, 0.01) + (i >= 100 ? 0.5 : 0); });
  long at = -1;
  EXPECT_NEAR(RefAutoSearchRefdbFall(gain.get(), 0, 200, 5, 0.01f, 0.2f, at), -0.45f, kRoundingDb);
  EXPECT_EQ(at, 95);
}

TEST(Steps, LargestStepIsFreeOfTheSlope) {
  const struct {
    double stepDb;
    long at, width;
    double slopeDb;
    float limitDb;
  } kCases[] = {
      {0.50, 400, 10, 0.000, 100.0f}, {0.50, 400, 10, 0.004, 100.0f}, {-0.30, 700, 10, 0.004, 100.0f},
      {0.05, 500, 20, 0.002, 100.0f}, {0.50, 400, 10, 0.004, 0.30f},  // found at the limit, then pinned down
  };
  for (const auto& c : kCases) {
    const auto sor =
        BuildTrace(1000, [&c](long i) { return Fibre(i, c.slopeDb) - c.stepDb * Ramp(i, c.at, c.width); });
    long at = -1;
    const float slope = static_cast<float>(c.slopeDb);
    EXPECT_NEAR(RefAutoSearchMaxSplice(sor.get(), 0, 999, c.width, at, slope, c.limitDb), c.stepDb, 1e-3)
        << c.at;
    EXPECT_NEAR(static_cast<double>(at), static_cast<double>(c.at), 1.0);
  }
  // Plain fibre has none, and a step of any size ends the search.
  const auto plain = BuildTrace(1000, [](long i) { return Fibre(i, 0.004); });
  const auto cliff = BuildTrace(1000, [](long i) { return i < 500 ? 0.0 : -500.0; });
  long at = -1;
  EXPECT_NEAR(RefAutoSearchMaxSplice(plain.get(), 0, 999, 10, at, 0.004f, 100.0f), 0.0f, 5 * kRoundingDb);
  EXPECT_NEAR(RefAutoSearchMaxSplice(cliff.get(), 0, 999, 10, at, 0.0f, 1.0f), 500.0f, 1e-3f);
}

TEST(Steps, BendsAreToldByTheirOrder) {
  long atMin = -1, atMax = -1;
  const auto straight = BuildTrace(100, [](long i) { return -10.0 - 0.25 * static_cast<double>(i); });
  EXPECT_EQ(RefAutoSearchAcCeleration(straight.get(), 0, 99, 5, atMin, atMax), 0.0f);
  // Falls by 1 dB a point up to point 50, then is level: it bends up by the base there, and nowhere down.
  const auto valley = BuildTrace(100, [](long i) { return -10.0 - static_cast<double>(std::min(i, 50L)); });
  EXPECT_EQ(RefAutoSearchAcCeleration(valley.get(), 0, 99, 5, atMin, atMax), -5.0f);
  EXPECT_EQ(atMax, 50);
  // Bends up within two bases of the start, and down later: the bend down is taken where it reaches a third
  // of the bend up, three points before the corner.
  const auto shelf = BuildTrace(100, [](long i) {
    return i < 8 ? -20.0 : i < 40 ? -20.0 + static_cast<double>(i - 8) : 12.0;
  });
  EXPECT_EQ(RefAutoSearchAcCeleration(shelf.get(), 0, 99, 5, atMin, atMax), 5.0f + 2.0f);
  EXPECT_EQ(atMax, 8);
  EXPECT_EQ(atMin, 37);
  EXPECT_EQ(RefAutoSearchAcCeleration(shelf.get(), 50, 40, 5, atMin, atMax), 0.0f);
}

}  // namespace
