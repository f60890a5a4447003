// SPDX-License-Identifier: Apache-2.0
#include "ref/math/sectionFits.h"

#include <algorithm>

#include "ref/math/traceWalk.h"

namespace reflyze {

namespace {

// The sections of a table cover the trace a few times at most.
constexpr long kMostNotesPerPlace = 16;

}  // namespace

void LineSums::AddPoints(const TSorData& sor, long first, long end, double scale) {
  OwtWalk time(sor);
  sor.DataPts->Levels().Over(first, end, [&](auto levels) {
    time.ForEachStretch(first, end, [&](OwtWalk::StretchTimes times, long from, long to) {
      LineSums sums = *this;
      sums.n += to - from;
      for (long i = from; i < to; ++i) {
        const double owt = times.OwtOf(i), levelDb = levels[i] * scale;
        sums.x += owt;
        sums.xx += owt * owt;
        sums.y += levelDb;
        sums.xy += owt * levelDb;
      }
      *this = sums;
    });
  });
}

void LineSums::Solve(double& slope, double& intercept) const {
  const double count = static_cast<double>(n);
  const double determinant = x * x - count * xx;
  if (determinant == 0.0) {
    slope = 1.0;
    intercept = 0.0;
    return;
  }
  slope = (y * x - xy * count) / determinant;
  intercept = (xy * x - y * xx) / determinant;
}

SectionFits::Line SectionFits::Of(double fromOwt, double toOwt) {
  const long first = PointAtOwt(sor_, fromOwt), last = PointAtOwt(sor_, toOwt);
  if (first == last) return {0.0, sor_.NumToLevel(first)};
  Line line{};
  SumsOver(first, last + 1).Solve(line.slope, line.intercept);
  return line;
}

LineSums SectionFits::SumsOver(long first, long end) {
  // The sections of a broken table may all begin at different points. Notes are of no use then, and go.
  if (count_ > sor_.DataPts->GetPointsNum() / kPointsPerNote * kMostNotesPerPlace) {
    notes_.clear();
    count_ = 0;
  }
  std::vector<LineSums>& notes = notes_[first];
  const long wanted = std::max(end - first, 0L) / kPointsPerNote;
  const long useful = std::min(static_cast<long>(notes.size()), wanted);
  LineSums sums = useful > 0 ? notes[static_cast<size_t>(useful - 1)] : LineSums();
  for (long from = first + useful * kPointsPerNote; from < end; from += kPointsPerNote) {
    const long to = from + kPointsPerNote;
    sums.AddPoints(sor_, from, std::min(to, end), 1.0);
    if (to > end) break;
    notes.push_back(sums);
    ++count_;
  }
  return sums;
}

}  // namespace reflyze
