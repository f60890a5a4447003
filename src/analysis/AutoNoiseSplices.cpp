// SPDX-License-Identifier: Apache-2.0

// Steps on stretches that touch the noise.
//
// Where the fibre sinks into the noise, a single point tells nothing of a step, and a fall over a window
// is only a hint. A step is believed where the means in front of it and behind it, over hundreds of
// points, agree with the fall, and where the fibre is not simply steeper. The more fibre there is behind
// the event in front, the longer the window and the smaller the step that can be believed. A candidate is
// held until the next one, or the end of the stretch, shows how much fibre lies behind it.

#include <cmath>

#include "src/analysis/FibreLimits.h"
#include "src/analysis/SpliceScan.h"
#include "util/convert.h"

namespace reflyze {

namespace {

class NoiseSpliceScan : private SpliceSearch {
 public:
  explicit NoiseSpliceScan(const SpliceTask& task) : SpliceSearch(task) {}

  // First point of the find, 0 for none.
  long Run() {
    if (!SetWindows()) return 0;
    SetFirstLimit();
    PassStrongSignal();
    if (!Walk() || !candidate_.IsSet()) return 0;
    // The scan has reached the end of the stretch: the candidate is measured against all the fibre behind
    // it.
    if (!stands_ && at_ + fall_ >= end_ - window_ - stride_) {
      candidate_.lossDb = LossUpTo(end_);
      if (std::fabs(candidate_.lossDb) < limitDb_) return 0;
    }
    return Report();
  }

 private:
  // The level of the fibre on one side of a step, and the points that it is the mean of: at least one.
  struct Side {
    double levelDb;
    double points;
  };
  struct Candidate {
    long at = -1;
    Side front{0.0, 1.0};
    double lossDb = 0;
    bool IsSet() const { return at >= 0; }
  };

  static constexpr double kInNoiseDb = 6.0;         // the search ends this far below the noise
  static constexpr double kLongestOwnFallDb = 0.5;  // a longer window sees more of the slope than of a step
  static constexpr double kTallDb = 5.0;      // behind an event that falls by more, the receiver still drifts
  static constexpr double kSteepFibre = 1.5;  // slopes of the fibre; above, the fibre itself is steeper

  bool SetWindows() {
    if (end_ <= first_) return false;
    start_ = std::max<long>(first_, frontEvent_.tail);
    fall_ = std::max(winDead_, MeanPoints(start_));
    window_ = std::max(sidePoints_, MeanPoints(end_ - winDead_));
    stride_ = winDead_ < 5 ? 1 : fall_ / 4;
    ownFallDb_ = fibreDb_ * static_cast<double>(fall_);
    frontFallDb_ = PointFallDb(frontEvent_.begin, frontEvent_.end);
    at_ = start_ + window_;
    scanEnd_ = end_ - fall_ - window_;
    tailEnd_ = 2L * frontEvent_.end - frontEvent_.rise;
    longest_ = std::min((scanEnd_ - tailEnd_) / 2, TruncToLong(kLongestOwnFallDb / fibreDb_));
    return longest_ >= window_;
  }

  void SetFirstLimit() {
    limitDb_ = GetFault(scale_, noise_, LevelDb(at_), window_);
    if (frontFallDb_ > kTallDb) limitDb_ *= DriftFactor();
    sideLimitDb_ = limitDb_ / 2;
  }

  // How much less sure a short window is behind a tall event.
  double DriftFactor() const {
    return std::sqrt(static_cast<double>(longest_) / static_cast<double>(window_) * frontFallDb_ / kTallDb);
  }

  void PassStrongSignal() {
    while (at_ < scanEnd_ && LevelDb(at_) > scale_.nf + kOverNoiseDb) at_ += stride_;
  }

  // False where the noise swallows every step that could be believed.
  bool Walk() {
    for (; at_ < scanEnd_; at_ += stride_) {
      if (LevelDb(at_) < scale_.nf - kInNoiseDb) break;
      if (NeedsLimit() && !SetLimit()) return false;
      const double fallDb = PointFallDb(at_, at_ + fall_);
      if (std::fabs(fallDb - ownFallDb_) < sideLimitDb_ || IsSlope(fallDb)) continue;
      const Candidate next = Measure();
      if (IsStep(next) && !Keep(next)) {
        stands_ = true;
        break;
      }
    }
    return true;
  }

  bool NeedsLimit() const {
    const bool canGrow = at_ - start_ > 2 * window_ && window_ < longest_;
    return !hasLimit_ || canGrow || at_ + fall_ + window_ > end_;
  }

  // The smallest credible step here, from as much fibre in front as there is. False where the noise swallows
  // it.
  bool SetLimit() {
    hasLimit_ = true;
    window_ = std::max(std::min(at_ - start_, longest_), 1L);
    const long behind = candidate_.IsSet() ? std::max(at_ - candidate_.at, 1L) : window_;
    const double levelDb = LevelDb(at_);
    const double points = std::sqrt(static_cast<double>(window_) * static_cast<double>(behind));
    limitDb_ = GetFault(scale_, noise_, levelDb, TruncToLong(points + 0.5));
    if (static_cast<double>(fall_) < 2 * noise_.spliceWidth) {
      limitDb_ += noise_.noiseAmp * noise_.spliceWidth / (static_cast<double>(fall_) + noise_.spliceWidth);
    }
    const bool drifts = at_ - frontEvent_.end < 3L * (static_cast<long>(frontEvent_.end) - frontEvent_.peak);
    if (frontFallDb_ > kTallDb && drifts) limitDb_ *= DriftFactor();
    sideLimitDb_ = 2 * limitDb_ / 3;
    constexpr double kRoomDb = 0.2;
    return levelDb - limitDb_ / 2 - kRoomDb >= scale_.nf - kInNoiseDb;
  }

  // Whether the trace falls alike elsewhere: in front and behind, over half a window and a whole one, or far
  // in front. All are brought to the length of the window.
  bool IsSlope(double fallDb) const {
    const auto fallsAlike = [&](long from, long to) {
      from = std::max(from, start_);
      to = std::min(to, end_);
      if (to <= from) return false;
      return std::fabs(fallDb - SlopeDb(from, to) * static_cast<double>(fall_)) < sideLimitDb_;
    };
    const long behind = at_ + fall_;
    const long far = start_ + (at_ - start_) / 3;
    return fallsAlike(at_ - fall_ / 2, at_) || fallsAlike(at_ - fall_, at_) ||
           fallsAlike(behind, behind + fall_ / 2) || fallsAlike(behind, behind + fall_) ||
           fallsAlike(far, std::min(far + fall_, at_));
  }

  // Averaged over linear power, as levels of single points in the noise have no meaningful mean.
  Side MeanOf(long first, long end) const {
    first = std::max(first, start_);
    end = std::min(end, end_);
    if (end <= first) return {LevelDb(first), 1.0};
    return {RefMathPower(sor_, scale_.linf, first, end - first, 1), static_cast<double>(end - first)};
  }

  // The largest step around the point: half from the fall itself, half from the means on both sides, and
  // without what a steeper fibre adds.
  Candidate Measure() const {
    float fallDb = 0, riseDb = 0;
    long atFall = at_, atRise = at_;
    RefAutoSearchMaxdbRiseFall(sor_, std::max(at_ - stride_ + 1, start_),
                               std::min(at_ + fall_ + window_, end_), fall_, fallDb, atFall, riseDb, atRise,
                               static_cast<float>(fibreDb_));
    Candidate step;
    step.at = std::fabs(riseDb) > std::fabs(fallDb) ? atRise : atFall;
    const long behind = step.at + fall_;
    const Side after = MeanOf(behind, behind + window_);
    step.front = MeanOf(step.at - window_, step.at);
    // Both means, brought along the fibre to the ends of the step.
    const double beforeDb = step.front.levelDb - step.front.points / 2 * fibreDb_;
    const double afterDb = after.levelDb + after.points / 2 * fibreDb_;
    step.lossDb = (beforeDb + PointFallDb(step.at, behind) - afterDb) / 2 - ownFallDb_;

    // The mean behind stands for the middle of its points, as it is.
    const double slopeDb = (PointFallDb(step.at - window_, step.at) + LevelDb(behind) - after.levelDb) /
                           (static_cast<double>(window_) + after.points / 2);
    const double sureDb = step.at > tailEnd_ ? 2 * sideLimitDb_ : sideLimitDb_;
    if (std::fabs(slopeDb - fibreDb_) * static_cast<double>(winDead_) > sureDb &&
        slopeDb > kSteepFibre * fibreDb_) {
      step.lossDb -= (slopeDb - fibreDb_) * static_cast<double>(fall_);
      if (std::fabs(step.lossDb) < 1.5 * limitDb_) step.lossDb = 0;
    }
    return step;
  }

  bool IsStep(const Candidate& step) const { return std::fabs(step.lossDb) >= limitDb_; }

  // Takes `next` as the candidate, or keeps the present one. False where the present one is confirmed: the
  // next step shows where the fibre behind it ends. Only a loss is confirmed so. A gain in front of
  // another step may be the noise between two steps.
  bool Keep(const Candidate& next) {
    if (candidate_.IsSet()) {
      if (std::labs(next.at - candidate_.at) < fall_) {
        if (std::fabs(next.lossDb) > std::fabs(candidate_.lossDb)) candidate_ = next;
        return true;
      }
      const double lossDb = LossUpTo(next.at);
      if (lossDb >= limitDb_) {
        candidate_.lossDb = lossDb;
        return false;
      }
    } else if (next.at >= scanEnd_ - stride_) {
      return true;
    }
    candidate_ = next;
    at_ = std::max(at_, next.at + winDead_ - stride_);
    return true;
  }

  // Loss of the candidate, measured against the fibre between it and point `next`. Over a short way the means
  // tell, held against a slope that may be steeper than nominal; over a long one lines have to be fitted.
  double LossUpTo(long next) const {
    const long behind = candidate_.at + fall_;
    const long gap = std::max(next - behind, 1L);
    const Side& front = candidate_.front;
    const double points = static_cast<double>(gap) + front.points;
    if (points > 2 * limitDb_ / fibreDb_) {
      return LossBetween(candidate_.at, behind, start_, TruncToLong(front.points), gap);
    }
    const double behindDb = MeanOf(behind, behind + gap).levelDb;
    double lossDb = front.levelDb - behindDb - fibreDb_ * (points / 2 + static_cast<double>(fall_));
    const double slopeDb = 2 * (front.levelDb - LevelDb(candidate_.at) + LevelDb(behind) - behindDb) / points;
    if (slopeDb > kSteepFibre * fibreDb_ && static_cast<double>(fall_) * slopeDb > sideLimitDb_) {
      lossDb -= (slopeDb - fibreDb_) * static_cast<double>(fall_) + std::copysign(sideLimitDb_, lossDb);
    }
    return lossDb;
  }

  long Report() {
    long begin = candidate_.at;
    while (scale_.linf != nullptr && begin > start_ && scale_.linf[begin - 1] > scale_.linf[begin]) --begin;
    lossDb_ = static_cast<float>(candidate_.lossDb);
    find_.begin = find_.peak = Held(begin);
    find_.rise = find_.end = Held(begin + fall_);
    find_.tail = 0;
    find_.gradeUp = 1;
    find_.gradeDown = Grade(lossDb_ / sideLimitDb_ + 0.5);
    find_.type = lossDb_ > 0 ? 's' : 'n';
    return find_.begin;
  }

  long start_ = 0;          // behind the event in front and its tail
  long at_ = 0;             // current point
  long scanEnd_ = 0;        // the windows no longer fit from here on
  long tailEnd_ = 0;        // the event in front may be felt up to here
  long fall_ = 1;           // points over which the fall is taken
  long window_ = 1;         // points of a mean
  long longest_ = 1;        // that it may grow to
  long stride_ = 1;         // from one point looked at to the next
  double ownFallDb_ = 0;    // of the fibre over the fall's window
  double frontFallDb_ = 0;  // of the event in front
  double limitDb_ = 0;      // smallest step that counts
  double sideLimitDb_ = 0;  // smallest fall worth measuring
  bool hasLimit_ = false;
  bool stands_ = false;  // the candidate has been confirmed
  Candidate candidate_;
};

}  // namespace

long SearchNoiseSplices(const SpliceTask& task) { return NoiseSpliceScan(task).Run(); }

}  // namespace reflyze
