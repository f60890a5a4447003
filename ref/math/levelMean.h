// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/sorData.h"

namespace reflyze {

// Means of levels in dB over many windows of a trace, with the compression of low levels undone. A mean is
// what RefMathPower gives for a window inside the trace, or is moved on by one point from the mean before.
// The trace and the floor of its scale must not change meanwhile.
template <class Real>
class LevelMean {
 public:
  explicit LevelMean(const TSorData& sor)
      : levels_(sor.DataPts->Levels()), expansion_(ExpansionOf(*sor.QRTParams, Real())) {}

  Real LevelOf(long point) const { return expansion_.LevelOf(levels_[point]); }

  // Over the points from `first` up to but not including `end`, one at least.
  Real Over(long first, long end) const { return SumFrom(0, first, end) / static_cast<Real>(end - first); }

  // Their sum on top of another one.
  Real SumFrom(Real start, long first, long end) const {
    return levels_.Over(first, end, [=](auto levels) {
      Real sum = start;
      for (long i = first; i < end; ++i) sum += expansion_.LevelOf(levels[i]);
      return sum;
    });
  }

  // Over the `count` points from `first`, where `previous` is the mean from one point before.
  Real Moved(Real previous, long first, long count) const {
    return previous + (LevelOf(first + count - 1) - LevelOf(first - 1)) / static_cast<Real>(count);
  }

 private:
  static Expansion<float> ExpansionOf(const TSorBlockQRTParameters& scale, float) {
    return scale.ExpandedF();
  }
  static Expansion<double> ExpansionOf(const TSorBlockQRTParameters& scale, double) {
    return scale.Expanded();
  }

  LevelView levels_;
  Expansion<Real> expansion_;
};

// Means over short windows of one length that begin at points in a row. Several are added up at once, since
// they share most of their points. Each is added in the order of its own points, so that it equals
// LevelMean::Over to the last bit.
template <class Real>
class MeansInARow {
 public:
  static constexpr long kLongestWindow = 16;

  // Windows of `count` points, 1 to kLongestWindow.
  MeansInARow(const TSorData& sor, long count)
      : mean_(sor), points_(sor.DataPts->GetPointsNum()), count_(count) {}

  // Whether the windows from `first` on can be taken together: they have to lie inside the trace.
  bool Reach(long first) const { return first >= 0 && first + count_ + kAtOnce - 1 <= points_; }
  // Of the window from `first`.
  Real Over(long first) {
    if (first < first_ || first >= first_ + kAtOnce) TakeFrom(first);
    return means_[first - first_];
  }

 private:
  static constexpr long kAtOnce = 8;

  void TakeFrom(long first) {
    Real levelsDb[kLongestWindow + kAtOnce - 1];
    for (long i = 0; i < count_ + kAtOnce - 1; ++i) levelsDb[i] = mean_.LevelOf(first + i);
    Real sums[kAtOnce] = {};
    for (long i = 0; i < count_; ++i) {
      for (long k = 0; k < kAtOnce; ++k) sums[k] += levelsDb[i + k];
    }
    for (long k = 0; k < kAtOnce; ++k) means_[k] = sums[k] / static_cast<Real>(count_);
    first_ = first;
  }

  const LevelMean<Real> mean_;
  const long points_, count_;
  long first_ = -kAtOnce;  // of the first window taken; none yet
  Real means_[kAtOnce] = {};
};

}  // namespace reflyze
