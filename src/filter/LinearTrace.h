// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <limits>

#include "ref/search/refAutoSearch.h"
#include "src/filter/HeldSamples.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {

// A linear trace (linear power, one sample a point) as the measures of single events read it: every sample,
// every range and every mean is held inside the trace, so that near its ends, or with the widths of a broken
// record, a measure sees the samples that there are. An empty trace is dark.
class LinearTrace {
 public:
  // A place with what was found there, in linear power.
  struct Found {
    long at = 0;
    double lin = 0.0;
  };

  LinearTrace(float* samples, long count) : samples_(samples), held_(samples, count) {}

  double operator[](long point) const { return held_[point]; }
  long count() const { return held_.count(); }
  bool empty() const { return held_.empty(); }

  // A width in points that makes sense on this trace.
  long Width(long points) const { return std::clamp(points, 0L, count()); }

  // Mean of `count` samples from `first`; 0 of none.
  double Mean(long first, long count) const {
    double sum = 0.0;
    for (long i = first; i < first + count; ++i) sum += held_[i];
    return count > 0 ? sum / static_cast<double>(count) : 0.0;
  }
  double MeanOfTwo(long first) const { return (held_[first] + static_cast<double>(held_[first + 1])) / 2; }

  // Extremes from `a` to `b`, both included. `side` picks among equal ones: above 0 the last, below 0 the
  // first, 0 the middle of both.
  Found Highest(long a, long b, int side) const {
    return Extreme(static_cast<ArraySearch>(RefAutoGetMax), a, b, side);
  }
  Found Lowest(long a, long b, int side) const {
    return Extreme(static_cast<ArraySearch>(RefAutoGetMin), a, b, side);
  }

  // First sample and mean of the extreme window of `width` samples from `a` to before `b`, with the fibre's
  // loss of `lossDb` a point made up.
  Found HighestMean(long a, long b, long width, double lossDb = 0.0) const {
    return ExtremeMean(static_cast<WindowSearch>(RefAutoGetAvrMax), a, b, width, lossDb);
  }
  Found LowestMean(long a, long b, long width, double lossDb = 0.0) const {
    return ExtremeMean(static_cast<WindowSearch>(RefAutoGetAvrMin), a, b, width, lossDb);
  }

 private:
  using ArraySearch = long (*)(float*, long, long, float&, int);
  using WindowSearch = long (*)(float*, long, long, float&, int, float);

  Found Extreme(ArraySearch search, long a, long b, int side) const {
    if (empty()) return {};
    float lin = 0.0F;
    const long at = search(samples_, held_.Held(a), held_.Held(b), lin, side);
    return {at, lin};
  }

  Found ExtremeMean(WindowSearch search, long a, long b, long width, double lossDb) const {
    if (empty()) return {};
    width = std::clamp(width, 1L, count());
    float lin = 0.0F;
    const long at = search(samples_, std::clamp(a, 0L, count() - width), std::min(b, count()), lin,
                           static_cast<int>(width), static_cast<float>(lossDb));
    return {at, lin};
  }

  float* samples_;
  HeldSamples held_;
};

// log2 of a ratio of heights. A ratio that has no logarithm counts as the smallest there is.
inline double Log2OfRatio(double ratio) {
  return elementary::Log2(ratio > 0.0 ? ratio : std::numeric_limits<double>::min());
}

// The grade of a height over a limit, both in linear power: the whole part of log2(height / limit + 1). A
// limit of 0 grades everything alike, as high as any two floats can.
inline long GradeOfHeight(double heightLin, double limitLin) {
  constexpr long kHighestGrade = 277;  // 2^128 over the smallest float, 2^-149
  return std::clamp(TruncToLong(Log2OfRatio(heightLin / limitLin + 1.0)), -kHighestGrade, kHighestGrade);
}

}  // namespace reflyze
