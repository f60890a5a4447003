#pragma once

#include "sor/sorData.h"

namespace reflyze {

// Means of levels in dB over many windows of a trace, compression of low levels undone: what RefMathPower
// gives for a window inside the trace, and what a window one point further on makes of it. The trace and the
// floor of its scale stay as they are meanwhile.
template <class Real>
class LevelMean {
 public:
  explicit LevelMean(const TSorData& sor)
      : levels_(sor.DataPts->Levels()), expansion_(ExpansionOf(*sor.QRTParams, Real())) {}

  Real LevelOf(long point) const { return expansion_.LevelOf(levels_[point]); }

  // Over the points from `first` up to but not including `end`, one at least.
  Real Over(long first, long end) const {
    return levels_.Over(first, end, [this, first, end](auto levels) {
      Real sum = 0;
      for (long i = first; i < end; ++i) sum += expansion_.LevelOf(levels[i]);
      return sum / static_cast<Real>(end - first);
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

}  // namespace reflyze
