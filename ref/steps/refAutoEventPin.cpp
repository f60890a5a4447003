// SPDX-License-Identifier: Apache-2.0

// Where the trace leaves its line.
//
// A mean over `n` points moves along the fibre, and its line is carried on to the point right behind it.
// Where that point lies off the line, one of three things is the matter. Noise: the departure is gone after a
// few points, and the mean goes on from where it stood. A loss: it stays, first for a point, then for half a
// mean, or the mean behind the step shows it. A gain: the begin of a reflection, if the rise is as wide as a
// pulse makes it; a narrower one is a spike. While a departure lasts, the mean and its line are held, so that
// the event can't pull them along.

#include <cmath>
#include <limits>
#include <vector>

#include "ref/figures/refAutoNoise.h"
#include "ref/math/levelMean.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/steps/refAutoSplice.h"
#include "util/convert.h"

using reflyze::TraceLevels;
using reflyze::TruncToLong;

namespace {

// Mean over a fixed number of points that moves along the trace one point at a time.
class MovingMean {
 public:
  MovingMean(TSorData* sor, float* lin, long points) : sor_(sor), lin_(lin), means_(*sor), points_(points) {}

  float Db() const { return static_cast<float>(meanDb_); }
  long first() const { return first_; }

  // Takes the mean anew from `first` on, over levels (mode 0) or linear power (mode 1).
  void Take(long first, int mode) {
    first_ = first;
    meanDb_ = RefMathPower(sor_, lin_, first, points_, mode);
  }
  // Moves on by one point; a mean that stands elsewhere is taken anew.
  void SlideTo(long first) {
    if (first != first_ + 1) return Take(first, 0);
    meanDb_ += (LevelDb(first_ + points_) - LevelDb(first_)) / static_cast<double>(points_);
    first_ = first;
  }

 private:
  double LevelDb(long point) const { return means_.LevelOf(point); }

  TSorData* const sor_;
  float* const lin_;
  const reflyze::LevelMean<float> means_;
  const long points_;
  long first_ = 0;
  double meanDb_ = 0;
};

class EventPin {
 public:
  EventPin(TSorData* sor, long start, long stop, long n, float down, float up, float guard, float slopeDb,
           double receiverDbPerOwt)
      : sor_(sor),
        lin_(RefEmbGetLinf(sor)),
        levelDb_(sor),
        start_(levelDb_.Near(start)),
        stop_(levelDb_.Near(stop)),
        meanPoints_(std::max(levelDb_.Near(n), 1L)),
        downDb_(down),
        upDb_(up),
        guardDb_(guard),
        slopeDb_(slopeDb),
        receiverDbPerPoint_(receiverDbPerOwt * sor->FxdParams->GetOwtDS(0)),
        near_(sor, lin_, meanPoints_),
        far_(sor, lin_, meanPoints_) {
    const double spacingOwt = sor->FxdParams->GetOwtDS(0);
    const double pulseOwt = sor->FxdParams->GetOwtPulse(sor->NumToOwt(start_));
    recoverPoints_ = TruncToLong(2 * downDb_ / receiverDbPerPoint_);
    width_ = std::max(levelDb_.Near(TruncToLong(std::ceil(pulseOwt / spacingOwt))), 0L);
    centre_ = static_cast<float>((static_cast<double>(meanPoints_) + 1) / 2.0);
  }

  // The point of the event; false when nothing departs before the stop.
  bool Run() {
    near_.Take(start_, 0);
    anchor_ = start_;
    farFirst_ = start_ + meanPoints_ + width_ + 1;
    if (farFirst_ + meanPoints_ + 1 >= stop_) return false;
    for (p_ = start_ + 1; p_ < stop_ - meanPoints_ - 1; ++p_, ++farFirst_) {
      if (run_ == 0) MoveMeans();
      MeasureDeparture();
      if (IsStepBehind()) return true;
      FollowDeparture();
      if (run_ > 1 && valueDb < 0 && IsGain()) return Report();
      if (run_ > kShortestLossPoints && run_ > meanPoints_ / 2 && valueDb > 0) return Report();
    }
    return false;
  }

  long point = 0;
  float valueDb = 0;  // the departure: positive for a loss

 private:
  static constexpr long kShortestLossPoints = 8;  // a loss that lasts less is left to its noise
  static constexpr long kSlidingMeanPoints = 4;   // shorter means are cheaper to take than to slide
  static constexpr long kShortestJudgedRise = 2;  // points; as few have no middle that could be looked at
  // A rise of more points than this, and of this share of a pulse, is judged by the first half of the pulse.
  static constexpr double kManyPoints = 10.0, kNearlyPulse = 0.9;

  float MeanDb(long first, long points, int mode) const {
    return RefMathPower(sor_, lin_, first, points, mode);
  }

  // The point at which the departure began.
  long RunBegin() const { return p_ + meanPoints_ - run_; }

  bool Report() {
    point = RunBegin();
    return true;
  }

  // Brings both means to the present point, and the line's slope up to date: low on the trace noise is not
  // symmetric in dB, and means are taken over power.
  void MoveMeans() {
    mode_ = near_.Db() > guardDb_ ? 0 : 1;
    if (meanPoints_ < kSlidingMeanPoints || mode_ == 1) {
      near_.Take(p_, mode_);
      if (farActive_) far_.Take(farFirst_, mode_);
    } else {
      near_.SlideTo(p_);
      if (farActive_) far_.SlideTo(farFirst_);
    }
    if (p_ - anchor_ > 5 * meanPoints_) {
      anchor_ = p_ - 4 * meanPoints_;
      slopeDb_ = (MeanDb(anchor_, meanPoints_, mode_) - near_.Db()) / static_cast<float>(p_ - anchor_);
    }
  }

  // How far the point behind the mean lies under the line; where it matters, a few points around it are
  // asked.
  void MeasureDeparture() {
    lineDb_ = near_.Db() - (static_cast<float>(run_) + centre_) * slopeDb_;
    departureDb_ = lineDb_ - levelDb_[p_ + meanPoints_];
    const long around = meanPoints_ / 100;
    if (departureDb_ > upDb_ / 2 && around > 0)
      departureDb_ = lineDb_ - LocalMeanDb(p_ + meanPoints_ - around);
  }

  // A departure that ends sends the search back to where it began, so the same places are asked again and
  // again. The answers for the last stretch of that length are kept.
  float LocalMeanDb(long first) {
    if (localMeans_.empty()) {
      localMeans_.resize(static_cast<size_t>(meanPoints_ / 2 + kShortestLossPoints + 2));
    }
    LocalMean& kept = localMeans_[static_cast<size_t>(first) % localMeans_.size()];
    if (kept.first != first) kept = {first, MeanDb(first, 2 * (meanPoints_ / 100), 0)};
    return kept.meanDb;
  }

  // One pulse further on the trace lies lower by more than the limit: a loss, and its place is worth the
  // exact search.
  bool IsStepBehind() {
    if (!(departureDb_ > upDb_ / 2) || farFirst_ + meanPoints_ > stop_ || p_ < start_ + meanPoints_ / 2)
      return false;
    if (!farActive_) {
      farActive_ = true;
      far_.Take(farFirst_, mode_);
    }
    const float liftDb = static_cast<float>(width_ + meanPoints_) * slopeDb_ / 2;
    const float stepDb = near_.Db() - far_.Db() - 2 * liftDb;
    if (!(stepDb > upDb_)) return false;
    valueDb = stepDb;
    point = RefAutoSearchSplicePin(sor_, p_, width_, meanPoints_, slopeDb_);
    return true;
  }

  // Counts the points for which the trace is off its line on the average. When it is back, the search goes on
  // from where it left.
  void FollowDeparture() {
    valueDb = run_ > 0 ? static_cast<float>((runSumDb_ + departureDb_) / static_cast<double>(run_ + 1))
                       : departureDb_;
    if (valueDb >= -downDb_ && valueDb <= upDb_) {
      p_ -= run_;
      farFirst_ -= run_;
      run_ = 0;
      return;
    }
    ++run_;
    runSumDb_ = run_ == 1 ? departureDb_ : runSumDb_ + departureDb_;
  }

  // Whether a rise is a real one. A reflection is as wide as the pulse; with a loss behind it, as wide as it
  // takes a pulse to fill the difference. What is narrower than that is a spike, and the departure is
  // dropped. A rise that needs no more than a point or two has no shape that could be judged, and counts.
  bool IsGain() {
    const long before = std::max(p_ - 1 - run_, 0L), behind = before + meanPoints_ + width_;
    const float lossDb = MeanDb(before, meanPoints_, mode_) - MeanDb(behind, meanPoints_, mode_) -
                         static_cast<float>(behind - before) * slopeDb_;
    if (IsBackWithinPulse(lossDb)) {
      run_ = 0;
    } else {
      const long rise = std::min(RisePoints(lossDb), width_);
      if (rise > kShortestJudgedRise && (!StandsOver(rise) || HasNoEdge())) run_ = 0;
    }
    return run_ > 0;
  }

  // A small rise without a loss behind it, the mean of which over one pulse is back near the line.
  bool IsBackWithinPulse(float lossDb) const {
    if (!(-valueDb < 2 * downDb_ && downDb_ / 2 > lossDb && run_ < width_)) return false;
    const float pulseDb = MeanDb(RunBegin(), width_, 0);
    return pulseDb - (near_.Db() - (static_cast<float>(width_ / 2) + centre_) * slopeDb_) < downDb_;
  }

  long RisePoints(float lossDb) const {
    if (!(lossDb > 0)) return 1;
    return TruncToLong(static_cast<double>(width_) * (SorMathPow5(-valueDb) - 1) /
                       (1 - SorMathPow5(-lossDb)));
  }

  bool StandsOver(long rise) const {
    // On purpose: the rate, in dB a point, is added to a number of points. A fast receiver raises the limit
    // by it.
    if (static_cast<double>(rise) > receiverDbPerPoint_ + kManyPoints &&
        static_cast<double>(rise) >= kNearlyPulse * static_cast<double>(width_)) {
      rise = width_ / 2;
    }
    const float meanDb = MeanDb(RunBegin(), rise, mode_);
    return downDb_ / 2 + lineDb_ - static_cast<float>((rise + 1) / 2) * slopeDb_ < meanDb;
  }

  // A receiver that recovers within a point rises within one as well. Then the begin of a small reflection
  // stands over both points before it; where it does not, noise or a bend has crept over the limit.
  bool HasNoEdge() const {
    if (recoverPoints_ != 0 || !(-valueDb < 2 * downDb_)) return false;
    const long q = RunBegin();
    const float riseDb = levelDb_[q] - downDb_ / 2;
    return riseDb < levelDb_[q - 1] - slopeDb_ && riseDb < levelDb_[q - 2] - 2 * slopeDb_;
  }

  struct LocalMean {
    long first = std::numeric_limits<long>::min();
    float meanDb = 0;
  };

  TSorData* const sor_;
  float* const lin_;
  const TraceLevels levelDb_;
  const long start_, stop_, meanPoints_;
  const float downDb_, upDb_, guardDb_;
  float slopeDb_;  // of the fibre, as measured last

  const double receiverDbPerPoint_;
  long recoverPoints_ = 0;  // points in which the receiver falls by twice the gain limit
  long width_ = 0;          // pulse
  float centre_ = 0;        // points from the middle of the mean to the point behind it

  MovingMean near_, far_;  // before the point, and one pulse behind it
  bool farActive_ = false;
  long p_ = 0;         // first point of the near mean, `run_` points further while a departure lasts
  long farFirst_ = 0;  // first point of the far mean
  long anchor_ = 0;    // where the slope was measured from
  int mode_ = 0;
  float lineDb_ = 0, departureDb_ = 0;
  long run_ = 0;         // points for which the departure lasts
  double runSumDb_ = 0;  // their departures
  std::vector<LocalMean> localMeans_;
};

}  // namespace

long RefAutoSearchEventPin(TSorData* sor, long start, long stop, long n, float down, float up, float guard,
                           float slope, float& value) {
  // Before all else: it stores the rate in the record, and where it has to measure, it settles the floor of
  // the scale, on which all means rest.
  const double receiverDbPerOwt = RefAutoGetDbOnOwt(sor);
  EventPin search(sor, start, stop, n, down, up, guard, slope, receiverDbPerOwt);
  const bool found = search.Run();
  value = search.valueDb;
  return found ? search.point : stop;
}
