// SPDX-License-Identifier: Apache-2.0

// Extreme levels and extreme means.
//
// On a saturated or quantised trace many neighbouring samples are equal, so that "the" maximum is a plateau.
// Which of its points is wanted depends on the question: the beginning for the foot of a fall, the end for
// the width of a peak, the middle for the place of a reflection. The argument `side` says so.

#include <functional>

#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::TraceLevels;

namespace {

// Collects the first and the last place of the extreme value among the values shown to it. `Beats` says
// whether its first argument is more extreme than its second.
template <class Beats>
class Extreme {
 public:
  Extreme(long at, float value) : value_(value), first_(at), last_(at) {}

  void Take(long at, float value) {
    if (Beats()(value, value_)) {
      value_ = value;
      first_ = last_ = at;
    } else if (value == value_) {
      last_ = at;
    }
  }
  float value() const { return value_; }
  long At(int side) const {
    if (side > 0) return last_;
    if (side < 0) return first_;
    return (first_ + last_) / 2;
  }

 private:
  float value_;
  long first_, last_;
};

template <class Beats, class Samples>
long Search(const Samples& samples, long a, long b, float& value, int side) {
  Extreme<Beats> extreme(a, samples[a]);
  for (long i = a + 1; i <= b; ++i) extreme.Take(i, samples[i]);
  value = extreme.value();
  return extreme.At(side);
}

// Weight per point that lifts a falling linear trace back to where it started.
double WeightPerPoint(float lossDb) { return elementary::Exp10(lossDb / 5.0); }

// Slides a window of `width` samples from `a` to `b`. Sum is the precision in which the window is summed.
// Returns the first sample of the best window and leaves its mean in `out`.
template <class Sum, class Reaches>
long SlideWindow(const float* samples, long a, long b, float& out, int width, float dec, double best) {
  const double weightPerPoint = WeightPerPoint(dec);
  double weight = 1.0;
  Sum sum = 0;
  for (long i = a; i < a + width; ++i) sum += samples[i];
  out = static_cast<float>(sum);
  long bestAt = a;
  for (long i = a; i < b - width; ++i) {
    sum += static_cast<Sum>(samples[i + width]) - static_cast<Sum>(samples[i]);
    weight *= weightPerPoint;
    const double weighted = sum * weight;
    if (!Reaches()(weighted, best)) continue;
    out = static_cast<float>(sum);
    best = weighted;
    bestAt = i + 1;
  }
  out /= static_cast<float>(width);
  return bestAt;
}

}  // namespace

// This form alone leaves out the end of the range.
long RefAutoGetMin(TSorData* sor, long a, long b, float& min) {
  const TraceLevels levelDb(sor);
  return Search<std::less<float>>(levelDb, levelDb.Near(a), levelDb.Near(b) - 1, min, -1);
}

long RefAutoGetMax(TSorData* sor, long a, long b, float& max, int side) {
  const TraceLevels levelDb(sor);
  return Search<std::greater<float>>(levelDb, std::max(levelDb.Near(a), 0L), levelDb.Near(b), max, side);
}

long RefAutoGetMin(float* samples, long a, long b, float& min, int side) {
  return Search<std::less<float>>(samples, std::max(a, 0L), b, min, side);
}

long RefAutoGetMax(float* samples, long a, long b, float& max, int side) {
  return Search<std::greater<float>>(samples, std::max(a, 0L), b, max, side);
}

// The sum that a window has to reach is, at first, the first sample and not the sum of the first window.
// Where the samples are positive, the second window nearly always reaches it, and the first one is given up.
// So a peak is not placed at the very edge of its range.
long RefAutoGetAvrMax(float* samples, long a, long b, float& out, int width, float dec) {
  if (samples == nullptr) return -1;
  a = std::max(a, 0L);
  width = std::max(width, 1);
  return SlideWindow<double, std::greater_equal<double>>(samples, a, b, out, width, dec, samples[a]);
}

long RefAutoGetAvrMax(float* samples, long a, long b, float& out, int width) {
  return RefAutoGetAvrMax(samples, a, b, out, width, 0.0f);
}

long RefAutoGetAvrMin(float* samples, long a, long b, float& out, int width, float dec) {
  if (samples == nullptr) return -1;
  a = std::max(a, 0L);
  width = std::max(width, 1);
  float firstSum = 0;
  for (long i = a; i < a + width; ++i) firstSum += samples[i];
  return SlideWindow<float, std::less_equal<double>>(samples, a, b, out, width, dec, firstSum);
}
