// SPDX-License-Identifier: Apache-2.0

// Steps that only show in means.
//
// On a quiet stretch a splice of a few hundredths of a dB is real, and still less than what neighbouring
// points differ by. Averaged over a window on each side it stands out. The scan is the one for large
// steps. The level in front of a step is the mean of the fibre before it, the level behind it the mean of
// the fibre that follows, each brought to the end of the step along the fibre's slope. The price is that
// two steps closer than a window become one.

#include <vector>

#include "src/analysis/SpliceScan.h"
#include "util/convert.h"

namespace reflyze {

namespace {

// Means of the level over any points of the trace between two bounds, each for the price of two look-ups.
class RunningSums {
 public:
  RunningSums(const TSorData& sor, long first, long end) : first_(first) {
    sumsDb_.push_back(0.0);
    for (long i = first; i < end; ++i) sumsDb_.push_back(sumsDb_.back() + sor.NumToLevel(i));
  }
  double MeanDb(long first, long count) const {
    return (SumBefore(first + count) - SumBefore(first)) / static_cast<double>(count);
  }

 private:
  double SumBefore(long point) const { return sumsDb_[static_cast<std::size_t>(point - first_)]; }

  const long first_;
  std::vector<double> sumsDb_;
};

class WeakSpliceScan final : public StepScan {
 public:
  explicit WeakSpliceScan(const SpliceTask& task)
      : StepScan(task, kRules), sums_(*sor_, first_, std::max(end_, first_)) {}

 private:
  static constexpr Rules kRules{/*pulseOfEdgePoint=*/10, /*belowNoiseDb=*/5.0, /*deeperLevelDb=*/1.0,
                                /*readsMeans=*/true};

  // The swing of the backscatter where ripples have shown it, else the working noise.
  double LeastLossDb() const override {
    constexpr int kFewRipples = 6;
    constexpr double kLeastSwingDb = 0.02;
    const double swingDb = noise_.peakCount < kFewRipples
                               ? noise_.noiseAmp
                               : -static_cast<double>(noise_.peakFallSum) / noise_.peakCount;
    return std::max(swingDb, kLeastSwingDb);
  }
  // A window has to average over several ripples.
  long LeastMeanWindow() const override {
    return std::max(sidePoints_, levels_.Near(TruncToLong(3 * noise_.spliceWidth)));
  }
  long FineWindow() const override { return windows_.fall / 2; }

  long MeanWindow(long point) const { return std::max(MeanPoints(point), windows_.mean); }

  // The means end at the bounds of what is known to be fibre: the tail in front, the event behind.
  double FrontDb(long point) const override {
    const long count = std::min(MeanWindow(point), point - start_ + 1);
    if (count < 2 || point >= end_) return LevelDb(point);
    return sums_.MeanDb(point - count + 1, count) - static_cast<double>(count - 1) / 2 * fibreDb_;
  }
  double BehindDb(long point) const override {
    const long count = std::min(MeanWindow(point), end_ - point);
    if (count < 2 || point < start_) return LevelDb(point);
    return sums_.MeanDb(point, count) + static_cast<double>(count - 1) / 2 * fibreDb_;
  }

  Faults FaultsAt(double levelDb, long point) const override {
    const double faultDb = GetFault(scale_, noise_, levelDb, MeanWindow(point));
    return {faultDb, 0.5 * faultDb};
  }

  // A loss that is only about as large as the limit is measured again over twice the length.
  bool IsConfirmed(const Step& step) const override {
    const double lossDb = LossAt(step.end, windows_.side);
    if (lossDb < 0.6 * limits_.eventDb) return false;
    if (lossDb >= 1.2 * limits_.eventDb) return true;
    return LossAt(step.end, 2 * windows_.side) >= 0.8 * limits_.eventDb;
  }

  const RunningSums sums_;
};

}  // namespace

long SearchWeakSplices(const SpliceTask& task) { return WeakSpliceScan(task).Run(); }

}  // namespace reflyze
