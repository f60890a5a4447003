// SPDX-License-Identifier: Apache-2.0

// Crossings and extremes against brute-force twins, on random traces whose levels stand on a coarse raster,
// so that plateaus and ties are the rule.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "ref/search/refAutoSearch.h"
#include "tests/support/trace.h"

namespace {

constexpr float kOutsideDb = -65.5f;

class Searches : public ::testing::Test {
 protected:
  // Levels between -20 and -16 dB in steps of a half, and a record that holds them.
  void Build(long points) {
    levels_.clear();
    for (long i = 0; i < points; ++i)
      levels_.push_back(-20.0f + 0.5f * static_cast<float>(noise_.Integer(0, 8)));
    sor_ = support::BuildTrace(std::vector<double>(levels_.begin(), levels_.end()));
  }
  float LevelAt(long i) const { return i < 0 || i >= Size() ? kOutsideDb : levels_[static_cast<size_t>(i)]; }
  long Size() const { return static_cast<long>(levels_.size()); }
  // A place in the trace or a little outside of it, and a level on or between the steps of the raster.
  long SomePoint() { return noise_.Integer(-5, Size() + 5); }
  float SomeLevel() { return -20.5f + 0.25f * static_cast<float>(noise_.Integer(0, 20)); }

  // First of the points `from`, `from` + 1, ... `last` (or downwards) that passes, else `otherwise`.
  template <class Test>
  long First(long from, long last, Test passes, long otherwise) const {
    std::vector<long> order(static_cast<size_t>(std::labs(last - from)) + 1);
    std::iota(order.begin(), order.end(), std::min(from, last));
    if (last < from) std::reverse(order.begin(), order.end());
    const auto found = std::find_if(order.begin(), order.end(), passes);
    return found == order.end() ? otherwise : *found;
  }

  support::Noise noise_{7};
  std::vector<float> levels_;
  std::unique_ptr<TSorData> sor_;
};

TEST_F(Searches, CrossingsEqualTheirDefinition) {
  for (int round = 0; round < 300; ++round) {
    Build(noise_.Integer(2, 40));
    const long from = SomePoint(), limit = SomePoint(), n = Size();
    const float level = SomeLevel(), step = 0.25f * static_cast<float>(noise_.Integer(0, 2));
    const auto above = [&](long i) { return LevelAt(i) > level; };
    const auto below = [&](long i) { return LevelAt(i) < level; };
    const auto belowLine = [&](long i) { return LevelAt(i) < level - step * static_cast<float>(i - from); };
    SCOPED_TRACE(::testing::Message() << "round " << round << ", " << n << " points, from " << from);

    EXPECT_EQ(RefAutoSearchStraightGreather(sor_.get(), from, level),
              from >= n ? n : First(from, n - 1, above, n));
    EXPECT_EQ(RefAutoSearchBackGreather(sor_.get(), from, level), from < 0 ? -1 : First(from, 0, above, -1));
    EXPECT_EQ(RefAutoSearchStraightLess(sor_.get(), from, level),
              from >= n - 1 ? n - 1 : First(from, n - 2, below, n - 1));
    EXPECT_EQ(RefAutoSearchStraightLess(sor_.get(), from, level, step),
              from >= n ? n : First(from, n - 1, belowLine, n));
    const long backLess = from < limit ? limit - 1 : First(from, limit, below, limit - 1);
    EXPECT_EQ(RefAutoSearchBackLess(sor_.get(), from, level, limit), backLess);
    if (from >= 0 && from < n && limit >= 0) {
      EXPECT_EQ(RefAutoSearchBackLess(levels_.data(), from, level, limit), backLess);
    }
  }
}

TEST_F(Searches, BackwardMeanEqualsItsDefinition) {
  int found = 0;
  for (int round = 0; round < 300; ++round) {
    Build(noise_.Integer(5, 40));
    const long from = noise_.Integer(0, Size()), width = noise_.Integer(1, 6);
    const float level = -19.0f + 0.125f * static_cast<float>(noise_.Integer(0, 16));
    const auto meanAbove = [&](long i) {
      double sum = 0;
      for (long k = i; k < i + width; ++k) sum += LevelAt(k);
      return sum > static_cast<double>(level) * static_cast<double>(width);
    };
    const long expected = from - width < 0 ? -1 : First(from - width, 0, meanAbove, -1);
    found += expected >= 0;
    EXPECT_EQ(RefAutoSearchBackGreather(levels_.data(), from, width, level), expected) << "round " << round;
  }
  EXPECT_GT(found, 60);
}

// Places of the extreme values among the points of a range, by sorting out all that equal the extreme.
struct Places {
  float value;
  long first, last;
  long At(int side) const { return side > 0 ? last : side < 0 ? first : (first + last) / 2; }
};

template <class LevelAt>
Places Extreme(LevelAt levelAt, long a, long b, bool highest) {
  Places places{levelAt(a), a, a};
  for (long i = a; i <= b; ++i)
    places.value = highest ? std::max(places.value, levelAt(i)) : std::min(places.value, levelAt(i));
  const auto isExtreme = [&](long i) { return levelAt(i) == places.value; };
  while (!isExtreme(places.first)) ++places.first;
  if (b > a) places.last = b;
  while (!isExtreme(places.last)) --places.last;
  return places;
}

TEST_F(Searches, ExtremesEqualTheirDefinition) {
  for (int round = 0; round < 400; ++round) {
    Build(noise_.Integer(1, 40));
    const long a = SomePoint(), b = SomePoint();  // reversed in half of the rounds
    const int side = static_cast<int>(noise_.Integer(-1, 1));
    const auto levelAt = [&](long i) { return LevelAt(i); };
    SCOPED_TRACE(::testing::Message() << "round " << round << ", " << a << " to " << b << ", side " << side);
    float value = 0;

    const Places lowest = Extreme(levelAt, a, b - 1, false);
    EXPECT_EQ(RefAutoGetMin(sor_.get(), a, b, value), lowest.first);
    EXPECT_EQ(value, lowest.value);
    const Places highest = Extreme(levelAt, std::max(a, 0L), b, true);
    EXPECT_EQ(RefAutoGetMax(sor_.get(), a, b, value, side), highest.At(side));
    EXPECT_EQ(value, highest.value);

    const long first = noise_.Integer(0, Size() - 1), last = noise_.Integer(0, Size() - 1);
    const Places low = Extreme(levelAt, first, last, false), high = Extreme(levelAt, first, last, true);
    EXPECT_EQ(RefAutoGetMin(levels_.data(), first, last, value, side), low.At(side));
    EXPECT_EQ(value, low.value);
    EXPECT_EQ(RefAutoGetMax(levels_.data(), first, last, value, side), high.At(side));
    EXPECT_EQ(value, high.value);
  }
}

TEST_F(Searches, ExtremeMeansEqualTheirDefinition) {
  for (int round = 0; round < 300; ++round) {
    std::vector<float> samples;
    const long n = noise_.Integer(8, 40);
    for (long i = 0; i < n; ++i) samples.push_back(static_cast<float>(noise_.Integer(1, 4)));
    const int width = static_cast<int>(noise_.Integer(1, 4));
    const long a = noise_.Integer(0, n - 8), b = noise_.Integer(a + width, n);
    const float dec = round % 2 == 0 ? 0.0f : 0.05f;
    // Sum and weighted sum of every window, each from scratch; of equal ones the last counts. For the
    // maximum, the first sample is what the later windows are held against.
    long bestMax = a, bestMin = a;
    double max = -1, min = 1e9, maxSum = 0, minSum = 0;
    for (long i = a; i + width <= b; ++i) {
      const double sum = std::accumulate(samples.begin() + i, samples.begin() + i + width, 0.0);
      const double weighted = sum * std::pow(10.0, static_cast<double>(i - a) * dec / 5);
      if (weighted >= max * (1 - 1e-12))
        bestMax = i, max = i == a ? samples[static_cast<size_t>(a)] : weighted, maxSum = sum;
      if (weighted <= min * (1 + 1e-12)) bestMin = i, min = weighted, minSum = sum;
    }
    SCOPED_TRACE(::testing::Message()
                 << "round " << round << ", " << a << " to " << b << ", width " << width);
    float mean = 0;
    EXPECT_EQ(RefAutoGetAvrMax(samples.data(), a, b, mean, width, dec), bestMax);
    EXPECT_FLOAT_EQ(mean, static_cast<float>(maxSum / width));
    EXPECT_EQ(RefAutoGetAvrMin(samples.data(), a, b, mean, width, dec), bestMin);
    EXPECT_FLOAT_EQ(mean, static_cast<float>(minSum / width));
  }
}

TEST_F(Searches, ExtremeMeansAtTheirLimits) {
  float mean = 7;
  EXPECT_EQ(RefAutoGetAvrMax(nullptr, 0, 10, mean, 2), -1);
  EXPECT_EQ(RefAutoGetAvrMin(nullptr, 0, 10, mean, 2, 0.0f), -1);
  // Below zero the sum of the first window is less than its first sample, and the window doesn't hold.
  std::vector<float> dark = {-1, -3, -4, -4, -4, -4};
  EXPECT_EQ(RefAutoGetAvrMax(dark.data(), 0, 6, mean, 2), 0);
  EXPECT_EQ(mean, -2.0f);
  dark = {1, -3, 0, -1, -3, -3};
  EXPECT_EQ(RefAutoGetAvrMax(dark.data(), 0, 6, mean, 2), 0);  // -1 at the second window is not 1
  // A range before the array starts with it.
  std::vector<float> light = {5, 1, 1, 1};
  EXPECT_EQ(RefAutoGetAvrMax(light.data(), -3, 4, mean, 2), 0);
  EXPECT_EQ(mean, 3.0f);
}

TEST_F(Searches, HalfHeightOfARise) {
  sor_ = support::BuildTrace(std::vector<double>{-20, -20, -18, -14, -10, -10});
  EXPECT_EQ(RefAutoSearchRef(sor_.get(), 0, 5), 2);   // last point below -15 dB
  EXPECT_EQ(RefAutoSearchRef(sor_.get(), 5, 0), 5);   // a fall: its upper end
  EXPECT_EQ(RefAutoSearchRef(sor_.get(), 4, 5), 3);   // level: back to below that level
  EXPECT_EQ(RefAutoSearchRef(sor_.get(), 0, 1), -1);  // level from the start: nothing is below
}

// Ranges as a broken record gives them: the searches end soon, at most a little outside the trace.
TEST_F(Searches, EndlessRangesEnd) {
  Build(50);
  constexpr long kFar = 1L << 60;
  float value, other;
  long at, otherAt;
  EXPECT_EQ(RefAutoSearchBackGreather(sor_.get(), kFar, 0.0f), -1);
  EXPECT_EQ(RefAutoSearchStraightGreather(sor_.get(), -kFar, 0.0f), 50);
  RefAutoSearchBackLess(sor_.get(), kFar, -70.0f, -kFar);
  RefAutoGetMin(sor_.get(), -kFar, kFar, value);
  EXPECT_EQ(value, kOutsideDb);
  RefAutoGetMax(sor_.get(), -kFar, kFar, value, 0);
  EXPECT_GE(value, -20.0f);
  RefAutoSearchMaxdbRiseFall(sor_.get(), -kFar, kFar, kFar, value, at, other, otherAt, 0.0f);
  RefAutoSearchMaxdbRiseFall(sor_.get(), -kFar, kFar, 3, 0.0f);
  RefAutoSearchRefdbFall(sor_.get(), -kFar, kFar, 1, 0.0f, 100.0f, at);
  RefAutoSearchMaxFall(sor_.get(), -kFar, kFar, 2, at);
  RefAutoSearchMaxSplice(sor_.get(), -kFar, kFar, 2, at, 0.0f, 0.0f);
  RefAutoSearchAcCeleration(sor_.get(), -kFar, kFar, 2, at, otherAt);
  EXPECT_EQ(RefAutoSearchStraightLoss(sor_.get(), -kFar, kFar, 4, 99.0f, 1.1f), -1);
  EXPECT_EQ(RefAutoSearchStraightLoss2(sor_.get(), -kFar, kFar, 4, 99.0f, 98.0f, 1), -1);
  RefautoSearchBeginOfSplice(sor_.get(), -kFar, kFar, 0, kFar, -1.0f);
  RefAutoOtkatEnd(sor_.get(), kFar, -kFar, 0.1);
  RefAutoGetProvalAT(sor_.get(), -kFar, kFar, 0.0f, value, other);
  CalcLossPin(sor_.get(), -kFar, kFar, 0.0f);
}

}  // namespace
