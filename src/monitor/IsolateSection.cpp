// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "sor/sorData.h"
#include "src/filter/Filter.h"
#include "src/monitor/TraceComparison.h"
#include "util/convert.h"

using reflyze::TraceComparison;

// One section of a trace by itself: outside it stands a fibre of a slope that is given, drawn up to the
// launch and down into the noise.

namespace {

using reflyze::TruncToLong;

class SectionAlone {
 public:
  SectionAlone(TSorData& trace, double slopeDbPerKm)
      : trace_(trace),
        points_(trace.DataPts->GetPointsNum()),
        dropDb_((trace.NumToALen(1) - trace.NumToALen(0)) * slopeDbPerKm),
        slopeDbPerKm_(slopeDbPerKm) {}

  void Draw(double fromOwt, double toOwt) {
    if (points_ <= 0) return;
    const long first = Held(TruncToLong(trace_.OwtTofNum(fromOwt)));
    const long last = Held(TruncToLong(trace_.OwtTofNum(toOwt)));
    // Where the section begins and ends is read off the smoothed trace.
    TSorFilter filter(&trace_);
    filter.SetFilter(TSorFilter::kFTTFilter);
    const double firstDb = trace_.NumToLevel(first), lastDb = trace_.NumToLevel(last);
    filter.SetFilter(TSorFilter::kUnfiltered);
    DrawBefore(first, firstDb);
    DrawBehind(last, lastDb);
    trace_.SetLinf();
  }

 private:
  // A section that leaves the trace ends with it.
  long Held(long point) const { return std::clamp(point, 0L, points_ - 1); }

  void DrawBefore(long first, double firstDb) {
    double levelDb = (trace_.NumToALen(first) - trace_.NumToALen(0)) * slopeDbPerKm_ + firstDb;
    trace_.DataPts->SetLevel(0, levelDb);
    for (long i = 0; i < first; ++i) {
      levelDb -= dropDb_;
      trace_.DataPts->SetLevel(i, std::min(levelDb, trace_.GetMaxLevel()));
    }
  }

  void DrawBehind(long last, double lastDb) {
    constexpr double kAboveEndDb = 0.5;
    constexpr long kLastPoints = 20;  // stay at the floor whatever the slope
    const double floorDb = trace_.GetMinLevel();
    const double endDb = trace_.FxdParams->GetET() + kAboveEndDb;
    trace_.DataPts->SetLevel(last, floorDb);
    double levelDb = lastDb;
    long i = last;
    for (; levelDb - floorDb > endDb && i < points_ - kLastPoints; ++i) {
      levelDb -= dropDb_;
      trace_.DataPts->SetLevel(i, levelDb);
    }
    for (; i < points_; ++i) trace_.DataPts->SetLevel(i, floorDb);
  }

  TSorData& trace_;
  const long points_;
  const double dropDb_;  // over one point
  const double slopeDbPerKm_;
};

}  // namespace

void TraceComparison::IsolateSection(TSorData* trace, double fromOwt, double toOwt, double slope) const {
  SectionAlone(*trace, slope).Draw(fromOwt, toOwt);
}
