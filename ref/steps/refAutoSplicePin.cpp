// SPDX-License-Identifier: Apache-2.0

// Where exactly a step begins.
//
// A splice does not show as an edge: the pulse takes its own width to pass it, and over that width the level
// slides from the fibre before to the fibre behind. So the model has three pieces: a line along the fibre
// from the mean level before, the slide of a splice under a rectangular pulse, and a line again. The model is
// moved along the trace, and the place where the squared error is least is the begin of the step. A first
// crossing of about half the step gives the place to start from, a coarse grid leads near the minimum, and
// single points settle it.

#include <cmath>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/steps/refAutoSplice.h"
#include "util/convert.h"

using reflyze::TraceLevels;

namespace {

class SplicePin {
 public:
  SplicePin(TSorData* sor, long start, long w, long n, float slopeDb)
      : sor_(sor),
        levelDb_(sor),
        start_(levelDb_.Near(start)),
        width_(std::max(levelDb_.Near(w), 1L)),
        meanPoints_(std::max(levelDb_.Near(n), 1L)),
        slopeDb_(slopeDb) {}

  long Run() {
    MeasureStep();
    BuildModel();
    FindFirstCrossing();
    ChooseGrid();
    for (long t = firstTry_; t < triesEnd_ && samplesLeft_ > 0; t += step_) {
      const double costDb2 = Cost(t);
      if (t == firstTry_ || acceptDb2_ < 0 || costDb2 <= acceptDb2_) {
        Accept(t, costDb2);
      } else if (costDb2 > giveUpDb2_) {
        if (step_ == 1) break;
        t = RefineAround();
      }
    }
    return best_ + start_;
  }

 private:
  // The level under which the middle of the slide lies, tuned. Of a straight slide it is a little less than
  // half of the drop, of a modelled one a little above the model.
  static constexpr float kMiddleShare = 0.45f, kMiddleDb = 0.002f, kAboveModelShare = 0.05f;
  // Below this height the slide of a splice is straight within the resolution of the levels.
  static constexpr float kModelledStepDb = 0.02f;
  // Behind a fall this deep the trace is noise and says nothing about the place of the step.
  static constexpr double kDeepestDb = 10.0;
  // Several times what the widest pulse on the longest trace needs. Only a record whose spacing does not fit
  // its pulse comes here, and it gets the best place so far.
  static constexpr long kMostSamples = 1L << 28;

  float MeanDb(long first) const { return RefMathPower(sor_, nullptr, first, meanPoints_, 0); }

  // Height of the step from the means before and behind. Where the trace has fallen further one mean later,
  // the step lies further out, and the search reaches further.
  void MeasureStep() {
    const long from = start_ - meanPoints_ / 2;
    const long to = start_ + meanPoints_ + width_;
    const float lowest = static_cast<float>(sor_->GetMinLevel());
    beforeDb_ = MeanDb(from) - static_cast<float>((meanPoints_ + 1) % 2) * slopeDb_ / 2;
    const float behindDb = std::max(MeanDb(to), lowest);
    const float furtherDb = std::max(MeanDb(to + meanPoints_), lowest);
    dropDb_ = beforeDb_ - behindDb - static_cast<float>(to - from) * slopeDb_;
    const float furtherDropDb =
        beforeDb_ - furtherDb - static_cast<float>(to + meanPoints_ - from) * slopeDb_;
    reach_ = meanPoints_;
    if (furtherDropDb > dropDb_) {
      reach_ += (width_ + 1) / 2 + meanPoints_;
      dropDb_ = furtherDropDb;
    }
  }

  bool IsModelled() const { return dropDb_ > kModelledStepDb; }

  // The slide of the splice, point by point below the line, and the level that its middle has to pass.
  void BuildModel() {
    const long half = width_ / 2;
    fallPerPointDb_ = dropDb_ / static_cast<float>(width_) + slopeDb_;
    guideDb_ = beforeDb_ - kMiddleShare * dropDb_ + kMiddleDb - static_cast<float>(half) * slopeDb_;
    if (!IsModelled()) return;
    slideDb_.reserve(static_cast<size_t>(width_));
    for (long i = 0; i < width_; ++i) {
      slideDb_.push_back(
          -RefMathSplicePower(dropDb_, slopeDb_, slopeDb_, static_cast<int>(width_), static_cast<int>(i)));
    }
    guideDb_ = slideDb_[static_cast<size_t>(half)] + beforeDb_ + kAboveModelShare * dropDb_;
  }

  // First place from which on the middle of the slide stays under its level; a few points more are asked for
  // where means are long, that is, on noisy traces.
  void FindFirstCrossing() {
    const long wanted = meanPoints_ / 100 + 3;
    long below = 0, k = 0;
    double guideDb = guideDb_;
    for (; k < reach_; ++k, guideDb -= slopeDb_) {
      below = levelDb_[start_ + width_ / 2 + k] < guideDb ? below + 1 : 0;
      if (below == wanted) break;
    }
    firstTry_ = best_ = std::clamp(k - below, 0L, reach_ - 1);
  }

  void ChooseGrid() {
    const long quarter = (meanPoints_ - firstTry_) / 4;
    step_ = quarter < 1 ? 1 : reflyze::TruncToLong(std::sqrt(static_cast<double>(quarter)));
    triesEnd_ = reach_;
    tail_ = meanPoints_;
  }

  double SquaredErrorAt(long point, double lineDb) const {
    const double errorDb = levelDb_[point] - lineDb;
    return errorDb * errorDb;
  }

  // Squared error of the model whose slide begins `t` points behind the start.
  double Cost(long t) {
    FollowFibre(t);
    double costDb2 = fibreDb2_, lineDb = fibreEndDb_;
    for (long i = 0; i < width_; ++i, --samplesLeft_) {
      lineDb = IsModelled() ? slideDb_[static_cast<size_t>(i)] + fibreEndDb_ : lineDb - fallPerPointDb_;
      if (IsInSignal(lineDb)) costDb2 += SquaredErrorAt(start_ + t + i, lineDb);
      if (t > firstTry_ && costDb2 >= bestDb2_) break;
    }
    if (t == firstTry_ || (costDb2 <= bestDb2_ && IsInSignal(lineDb))) FollowTail(t, lineDb);
    return costDb2 + tailDb2_;
  }

  bool IsInSignal(double lineDb) const { return beforeDb_ - lineDb < kDeepestDb; }

  // The fibre before the slide. From one try to the next it only grows, so its error is carried on.
  void FollowFibre(long t) {
    if (t < fibrePoints_) {
      fibrePoints_ = 0;
      fibreDb2_ = 0;
    }
    if (fibrePoints_ == 0) fibreEndDb_ = beforeDb_;
    for (; fibrePoints_ < t; ++fibrePoints_, --samplesLeft_, fibreEndDb_ -= slopeDb_) {
      fibreDb2_ += SquaredErrorAt(start_ + fibrePoints_, fibreEndDb_);
    }
  }

  // The fibre behind the slide. A try that is not worth it keeps the error of the one before.
  void FollowTail(long t, double lineDb) {
    tailDb2_ = 0;
    for (long i = 0; i < tail_ - t; ++i, --samplesLeft_) {
      lineDb -= slopeDb_;
      if (!IsInSignal(lineDb)) break;
      tailDb2_ += SquaredErrorAt(start_ + t + width_ + i, lineDb);
    }
  }

  // Takes a place that is better, or no worse than by rounding. A clear step has a sharper minimum, so that
  // the search can climb further out of a side valley before it gives up.
  void Accept(long t, double costDb2) {
    constexpr float kClearStepDb = 0.1f;
    constexpr double kRounding = 1.001, kClearClimb = 1.2, kUnclearClimb = 1.03;  // times the error
    acceptDb2_ = kRounding * costDb2;
    giveUpDb2_ = costDb2 * (dropDb_ > kClearStepDb ? kClearClimb : kUnclearClimb);
    best_ = t;
    bestDb2_ = costDb2;
    if (t == tail_ - 1) ++tail_;
  }

  // Goes back to look at every point around the best place of the grid. Returns the point before the first of
  // them.
  long RefineAround() {
    const long before = std::max(best_ - step_, 0L);
    triesEnd_ = std::min(best_ + step_, tail_);
    step_ = 1;
    return before;
  }

  TSorData* const sor_;
  const TraceLevels levelDb_;
  const long start_, width_, meanPoints_;
  const float slopeDb_;

  float beforeDb_ = 0;        // mean level before the step
  float dropDb_ = 0;          // height of the step
  float fallPerPointDb_ = 0;  // of a straight slide
  float guideDb_ = 0;         // level under which the middle of the slide lies, at the first place
  long reach_ = 0;            // points within which the step may begin
  std::vector<float> slideDb_;

  long firstTry_ = 0, triesEnd_ = 0, step_ = 1, tail_ = 0;  // the grid, and where the model ends
  long fibrePoints_ = 0;                                    // points of fibre summed so far
  double fibreDb2_ = 0, fibreEndDb_ = 0;                    // their squared error, and the line behind them
  double tailDb2_ = 0;  // squared error behind the slide, of the last try that asked
  long best_ = 0;
  double bestDb2_ = 0, acceptDb2_ = -1.0, giveUpDb2_ = 0;
  long samplesLeft_ = kMostSamples;
};

}  // namespace

long RefAutoSearchSplicePin(TSorData* sor, long start, long w, long n, float slope) {
  return SplicePin(sor, start, w, n, slope).Run();
}
