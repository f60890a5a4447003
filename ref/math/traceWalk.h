// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <limits>

#include "sor/sorData.h"
#include "util/convert.h"

// How the fits go from times to points and back.
namespace reflyze {

// The point at or before a one-way time: -1 for a time before the trace, the number of points for one behind
// it. The time base of a broken record may promise any number of points. Those that the trace lacks all have
// the same level, so the first of them stands for all.
inline long PointAtOwt(const TSorData& sor, double owt) {
  return std::clamp(TruncToLong(sor.OwtTofNum(owt)), -1L, static_cast<long>(sor.DataPts->GetPointsNum()));
}

// One-way times of points in rising order, equal to TSorData::NumToOwt to the last bit. That walks all
// stretches for each point; this remembers the stretch in which it stands.
class OwtWalk {
 public:
  explicit OwtWalk(const TSorData& sor) : params_(*sor.FxdParams), startOwt_(params_.GetOwtDataOffset()) {
    EnterStretch();
  }

  // `point` must not be below that of an earlier call.
  double OwtOf(long point) {
    if (point >= end_) WalkTo(point);
    return Stretch().OwtOf(point);
  }

  // The times of one stretch, for loops that leave the walk at its end.
  struct StretchTimes {
    double startOwt;    // of its first point
    double spacingOwt;  // of its points
    long first;         // its first point
    double OwtOf(long point) const { return startOwt + spacingOwt * static_cast<double>(point - first); }
  };

  // Calls `run(times, from, to)` for each piece, up to but not including `to`, of the points from `first` up
  // to but not including `end` that lies in one stretch.
  template <class Run>
  void ForEachStretch(long first, long end, Run run) {
    while (first < end) {
      if (first >= end_) WalkTo(first);
      const long to = std::min(end, end_);
      run(Stretch(), first, to);
      first = to;
    }
  }

 private:
  static constexpr long kNowhere = std::numeric_limits<long>::max();

  StretchTimes Stretch() const { return {startOwt_, spacingOwt_, first_}; }

  void WalkTo(long point) {
    while (point >= end_) {
      startOwt_ += spacingOwt_ * static_cast<double>(end_ - first_);
      first_ = end_;
      ++stretch_;
      EnterStretch();
    }
  }

  // Behind the last stretch the time stands still.
  void EnterStretch() {
    const bool isStretch = stretch_ < params_.TPW;
    spacingOwt_ = isStretch ? params_.GetOwtDS(stretch_) : 0.0;
    end_ = isStretch ? first_ + params_.NPPW[stretch_] : kNowhere;
  }

  const TSorBlockFixedParameters& params_;
  double startOwt_;          // time of the stretch's first point
  double spacingOwt_ = 0.0;  // of its points
  long first_ = 0;           // its first point
  long end_ = 0;             // and the one behind its last, `kNowhere` behind all stretches
  int stretch_ = 0;
};

}  // namespace reflyze
