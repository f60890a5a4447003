// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "sor/sorData.h"

namespace reflyze {

// The levels of a trace as the searches read them: by point, in dB, -65.5 outside the trace.
class TraceLevels {
 public:
  explicit TraceLevels(const TSorData* sor)
      : levels_(sor->DataPts->Levels()), points_(sor->DataPts->GetPointsNum()) {}

  float operator[](long point) const { return levels_[point]; }
  // See LevelView.
  template <class Work>
  auto Over(long first, long end, Work work) const {
    return levels_.Over(first, end, work);
  }
  long points() const { return points_; }

  // The fall from one point to another, positive where the fibre loses light.
  float FallDb(long from, long to) const { return (*this)[from] - (*this)[to]; }

  // Holds a point or a distance within reach of the trace. Callers work their ranges out from pulse and
  // spacing, and a broken record can make those anything; beyond the trace every level is the same, so that
  // nothing is lost where a walk ends at most one length of the trace (and a little more, for very short
  // ones) outside of it.
  long Near(long point) const {
    const long reach = points_ + kReachPoints;
    return std::clamp(point, -reach, points_ + reach);
  }

 private:
  static constexpr long kReachPoints = 65536;

  const LevelView levels_;
  const long points_;
};

}  // namespace reflyze
