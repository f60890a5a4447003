// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <vector>

#include "sor/sorData.h"

namespace reflyze {

// Sums of a least-squares line through points (x, y).
struct LineSums {
  long n = 0;
  double x = 0.0, xx = 0.0, y = 0.0, xy = 0.0;

  // Adds the levels of the points from `first` up to but not including `end`, times `scale`, over their
  // one-way times.
  void AddPoints(const TSorData& sor, long first, long end, double scale);
  // Points that all have the same x give a slope of 1 through 0.
  void Solve(double& slope, double& intercept) const;
};

// Lines of level against one-way time through many sections of one trace, as RefMathLSL gives them. Levels
// and time base of the trace must not change meanwhile.
//
// Many sections begin at the same point and end close to each other: the one in front of an event and the one
// behind the event before it, those of the key events and of the instrument's own. So the sums from a point
// on are noted every 256 points, and a section is only summed from the last note before its end.
class SectionFits {
 public:
  explicit SectionFits(TSorData& sor) : sor_(sor) {}

  struct Line {
    double slope;      // dB per 100 ps
    double intercept;  // dB at time 0
    double LevelAt(double owt) const { return slope * owt + intercept; }
  };
  Line Of(double fromOwt, double toOwt);

  TSorData& trace() const { return sor_; }

 private:
  static constexpr long kPointsPerNote = 256;

  LineSums SumsOver(long first, long end);

  TSorData& sor_;
  // By first point: what the first 256, 512, ... points from there on add up to.
  std::map<long, std::vector<LineSums>> notes_;
  long count_ = 0;  // of all notes
};

}  // namespace reflyze
