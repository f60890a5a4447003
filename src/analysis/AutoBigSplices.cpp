// SPDX-License-Identifier: Apache-2.0

// Steps that stand out from the noise.
//
// A splice with loss lowers the level within a pulse, and the level stays low behind it. A ripple of the
// backscatter lowers the level too, but the level comes back. So the limit is twice the swing that the
// filter has measured, with what noise adds at the level of the stretch, and a fall counts only if the
// levels on both sides confirm at least half of it. Levels are read point by point: a step larger than
// this limit shows in single points.

#include "src/analysis/SpliceScan.h"

namespace reflyze {

namespace {

class BigSpliceScan final : public StepScan {
 public:
  explicit BigSpliceScan(const SpliceTask& task) : StepScan(task, kRules) {}

 private:
  static constexpr Rules kRules{/*pulseOfEdgePoint=*/100, /*belowNoiseDb=*/3.0, /*deeperLevelDb=*/1.5,
                                /*readsMeans=*/false};

  // A fall of twice the swing, however quiet the trace is.
  double LeastLossDb() const override {
    constexpr double kLeastDb = 0.2;
    return std::max(2.0 * filter_.polarEnd, kLeastDb);
  }
  long LeastMeanWindow() const override { return sidePoints_; }
  long FineWindow() const override { return winDead_ / 3; }
  double FrontDb(long point) const override { return LevelDb(point); }
  double BehindDb(long point) const override { return LevelDb(point); }
  Faults FaultsAt(double levelDb, long point) const override {
    return {GetFault(scale_, noise_, levelDb, MeanPoints(point)),
            GetFault(scale_, noise_, levelDb, windows_.limit)};
  }

  // A short side has to confirm a little more.
  bool IsConfirmed(const Step& step) const override {
    constexpr double kShare = 0.5, kShareOfShortSide = 0.6;
    const double share = windows_.side < windows_.fall / 2 ? kShareOfShortSide : kShare;
    return LossAt(step.end, windows_.side) >= share * limits_.eventDb;
  }
};

}  // namespace

long SearchBigSplices(const SpliceTask& task) { return BigSpliceScan(task).Run(); }

}  // namespace reflyze
