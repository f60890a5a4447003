// SPDX-License-Identifier: Apache-2.0

// What an event costs, how wide it is and where it has settled.

#include "ref/steps/refAutoSplice.h"

#include <cmath>

#include "ref/figures/refAutoNoise.h"
#include "ref/math/refAutoAverage.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/convert.h"

using reflyze::TraceLevels;
using reflyze::TruncToInt;
using reflyze::TruncToLong;

namespace {

// Loss between two edges. The difference of the means on both sides is good enough for most events. It is
// improved where the sides themselves say that it is not: on a rippling trace one bad sample shifts a mean,
// and where the sides are steeper than the nominal slope, lines fitted to them measure better than the
// nominal slope can.
class EdgeLoss {
 public:
  EdgeLoss(TSorData* sor, long a, long low, long b, long high, long nL, long nR, float slopeDb)
      : sor_(sor),
        levelDb_(sor),
        a_(levelDb_.Near(a)),
        low_(levelDb_.Near(low)),
        b_(levelDb_.Near(b)),
        high_(levelDb_.Near(high)),
        nL_(levelDb_.Near(nL)),
        nR_(levelDb_.Near(nR)),
        slopeDb_(slopeDb) {}

  float Run() {
    if (!Confine()) return 0;
    MeasureMeans();
    MeasureRipple();
    if (flagged_ && OneSampleSticksOut()) return LossWithoutPeaks();
    // The right side is held against the length of the left one: both fits need room, and the left one is the
    // yardstick.
    if (a_ - 2 * nL_ < low_ || b_ + 2 * nL_ >= high_) return lossDb_;
    if (IsOnSteepSides()) return FittedLoss(false);
    if (std::fabs(lossDb_) < ownFallDb_ && ownFallDb_ > kLongSlopeDb && distance_ > kLongSlopePoints) {
      return FittedLoss(true);
    }
    return lossDb_;
  }

 private:
  static constexpr double kRippleAboveNoiseDb = 3.0;  // nearer to the noise floor ripple looks like noise
  static constexpr float kSmallestPeakedDb = 0.01f;   // a smaller loss keeps samples that stick out
  static constexpr float kSteepLean = 1.5f;  // times the sides' slope: a step that is steeper is an edge
  static constexpr float kSmallestLossDb = 0.02f;  // below, fits would only fit noise
  static constexpr float kLongSlopeDb = 0.05f;     // own fall of the fibre that hides a small step ...
  static constexpr long kLongSlopePoints = 20;     // ... over at least this distance

  bool Confine() {
    if (a_ - nL_ < low_) nL_ = a_ - low_;
    nL_ = std::max(nL_, 1L);
    if (high_ <= b_) b_ = high_ - 1;
    nR_ = std::min(nR_, high_ - b_);
    return a_ != b_ && nR_ >= 1;
  }

  void MeasureMeans() {
    distance_ = nR_ / 2 + b_ + nL_ / 2 - a_;
    ownFallDb_ = static_cast<float>(distance_) * slopeDb_;
    leftDb_ = RefMathPower(sor_, nullptr, a_ - nL_, nL_, 0);
    rightDb_ = RefMathPower(sor_, nullptr, b_, nR_, 0);
    lossDb_ = leftDb_ - rightDb_ - ownFallDb_;
    leftFallDb_ = levelDb_.FallDb(a_ - nL_, a_);
    rightFallDb_ = levelDb_.FallDb(b_, b_ + nR_);
    sideSlopeDb_ = (leftFallDb_ + rightFallDb_) / static_cast<float>(nL_ + nR_);
    noiseDb_ = sor_->QRTParams->GetNoisePeak();
  }

  // Sides whose slope is nothing like the fibre's, above the noise: do they swing as far as the loss itself?
  void MeasureRipple() {
    if (!(std::fabs(sideSlopeDb_ - slopeDb_) > slopeDb_ && rightDb_ > noiseDb_ + kRippleAboveNoiseDb)) return;
    long minAt, maxAt;
    sor_->DataPts->GetMinMax(&leftMinDb_, &leftMaxDb_, a_ - nL_, a_, minAt, maxAt);
    sor_->DataPts->GetMinMax(&rightMinDb_, &rightMaxDb_, b_, b_ + nR_, minAt, maxAt);
    const float swingDb = leftMaxDb_ - leftMinDb_ + rightMaxDb_ - rightMinDb_;
    flagged_ = TruncToInt(swingDb / (lossDb_ * std::sqrt(static_cast<double>(nL_ + nR_)))) != 0;
  }

  // The sides reach further up from their means than down.
  bool OneSampleSticksOut() const {
    return lossDb_ > kSmallestPeakedDb && leftMaxDb_ - leftDb_ + rightMaxDb_ - rightDb_ >
                                              2 * (leftDb_ - leftMinDb_ + rightDb_ - rightMinDb_);
  }

  float LossWithoutPeaks() const {
    const float lossDb = (leftMinDb_ + leftDb_ - rightDb_ - rightMinDb_) / 2 - ownFallDb_;
    return lossDb > 0 ? lossDb : 0;
  }

  bool IsOnSteepSides() const {
    const bool bothSteep =
        leftFallDb_ / static_cast<float>(nL_) > slopeDb_ && rightFallDb_ / static_cast<float>(nR_) > slopeDb_;
    // What the step loses a point beyond the sides' own slope.
    const float leanDb = (leftDb_ - rightDb_ - static_cast<float>((nL_ + nR_) / 2) * sideSlopeDb_) /
                         static_cast<float>(b_ - a_);
    return rightDb_ > noiseDb_ && (bothSteep || sideSlopeDb_ > 2 * slopeDb_ || flagged_) &&
           lossDb_ > kSmallestLossDb && (leanDb < kSteepLean * sideSlopeDb_ || flagged_);
  }

  // Loss between lines fitted to twice the sides, freed of their mean slope: between the middles of the
  // lines, where they are known best, or between the edges, where a right side that is steep itself would add
  // its own fall.
  float FittedLoss(bool evenIfRightIsSteep) const {
    float leftSlopeDb, leftEndDb, rightSlopeDb, rightEndDb;
    RefMathLSLf(sor_, a_ - 2 * nL_, a_, leftSlopeDb, leftEndDb);
    RefMathLSLf(sor_, b_, b_ + 2 * nR_, rightSlopeDb, rightEndDb);
    const float slopesDb = leftSlopeDb + rightSlopeDb;
    const float left = static_cast<float>(nL_), right = static_cast<float>(nR_);
    if (evenIfRightIsSteep || rightSlopeDb <= 2 * slopeDb_) {
      return left * leftSlopeDb + leftEndDb - (right * rightSlopeDb + rightEndDb) -
             static_cast<float>(b_ + nR_ - a_ + nL_) * slopesDb / 2;
    }
    return leftEndDb - (2 * right * rightSlopeDb + rightEndDb) - static_cast<float>(b_ - a_) * slopesDb / 2;
  }

  TSorData* const sor_;
  const TraceLevels levelDb_;
  const long a_, low_;
  long b_;
  const long high_;
  long nL_, nR_;  // points of the left and of the right side
  const float slopeDb_;

  long distance_ = 0;    // between the middles of both sides, points
  float ownFallDb_ = 0;  // of the fibre over that distance
  float leftDb_ = 0, rightDb_ = 0;
  float leftFallDb_ = 0, rightFallDb_ = 0, sideSlopeDb_ = 0;
  float leftMinDb_ = 0, leftMaxDb_ = 0, rightMinDb_ = 0, rightMaxDb_ = 0;
  double noiseDb_ = 0;
  bool flagged_ = false;  // the sides swing as far as the loss
  float lossDb_ = 0;
};

// Fraction of a point by which the trace passes `levelDb` before it reaches `at`, coming from the neighbour
// on the inner side.
double FractionBeyond(const TraceLevels& levels, float levelDb, long at, long inner) {
  const float stepDb = levels[inner] - levels[at];
  return stepDb == 0 ? 0.0 : (levelDb - levels[at]) / stepDb;
}

// Walks along an event until it has settled: through the rise and the peak of a reflection and down its tail,
// or, where no reflection comes, until the trace is flat behind the pulse.
class SettledFibre {
 public:
  SettledFibre(TSorData* sor, long owtStart, long owtLimit) : sor_(sor) {
    const long points = sor->DataPts->GetPointsNum();
    const double start = static_cast<double>(owtStart);
    last_ = owtLimit > 0 ? TruncToLong(sor->OwtTofNum(static_cast<double>(owtLimit))) : points;
    if (last_ < 1 || last_ > points) last_ = points;
    first_ = TruncToLong(sor->OwtTofNum(start));
    pulseEnd_ = TruncToLong(sor->OwtTofNum(start + sor->FxdParams->GetOwtPulse(start) / 2));
    const double owtPerKm = SorMathLenToOwt(1.0, sor->FxdParams->GetRI());
    const double spacingOwt = sor->FxdParams->GetOwtDS(0);
    flatLowDb_ = kFlatLowDbPerKm / owtPerKm * spacingOwt;
    flatHighDb_ = kFlatHighDbPerKm / owtPerKm * spacingOwt;
    riseDb_ = kRiseDbPerKm / owtPerKm * spacingOwt;
    plungeDb_ = kPlungeDbPerKm / owtPerKm * spacingOwt;
  }

  long Owt() { return TruncToLong(sor_->NumToOwt(Point())); }

 private:
  // Between the first two rates the trace is flat, above the third it rises to a reflection, below the last
  // it plunges behind one.
  static constexpr double kFlatLowDbPerKm = -0.2, kFlatHighDbPerKm = 0.1;
  static constexpr double kRiseDbPerKm = 1.0, kPlungeDbPerKm = -10.0;
  static constexpr long kFlatPoints = 4;  // flat for more than these: the fibre is back

  long Point() {
    if (first_ + 5 >= last_) return last_;
    first_ = std::max(first_, 0L);
    const double startDb = MeanDb(first_);
    double meanDb = startDb;
    for (long p = first_; p + 6 < last_; ++p) {
      const double nextDb = MeanDb(p + 1), stepDb = nextDb - meanDb;
      if (peaked_ ? IsTailOver(meanDb < startDb, stepDb) : IsFlat(p, stepDb)) return p;
      meanDb = nextDb;
    }
    return last_;
  }

  double MeanDb(long point) const { return RefAutoGetAverage(sor_, point, 1); }

  // Behind a peak: once the trace has plunged, or is down to where it began, the first flat place.
  bool IsTailOver(bool belowStart, double stepDb) {
    if (falling_ && stepDb > flatLowDb_) return true;
    if (stepDb < plungeDb_ || belowStart) falling_ = true;
    return false;
  }

  // Before a peak: two steep rises in a row make one. Behind the pulse, a few flat points mean that none will
  // come.
  bool IsFlat(long p, double stepDb) {
    if (stepDb > riseDb_) {
      peaked_ = rising_;
      rising_ = true;
      count_ = 1;
      return false;
    }
    if (rising_) count_ = 0;
    rising_ = false;
    if (p < pulseEnd_) {
      if (++quiet_ > 1) count_ = 0;
    } else if (stepDb > flatLowDb_ && stepDb < flatHighDb_) {
      quiet_ = 0;
      return ++count_ > kFlatPoints;
    }
    return false;
  }

  TSorData* const sor_;
  long first_ = 0, last_ = 0, pulseEnd_ = 0;
  double flatLowDb_ = 0, flatHighDb_ = 0, riseDb_ = 0, plungeDb_ = 0;  // the same per point
  bool rising_ = false, peaked_ = false, falling_ = false;
  long count_ = 0, quiet_ = 0;
};

}  // namespace

float RefAutoGetSpl(TSorData* sor, long a, long low, long b, long high, long nL, long nR, float slope) {
  return EdgeLoss(sor, a, low, b, high, nL, nR, slope).Run();
}

double RefAutoCalcEDZ(TSorData* sor, long p) {
  constexpr float kDeadZoneDb = 1.5f;
  const TraceLevels levelDb(sor);
  const float edgeDb = levelDb[p] - kDeadZoneDb;
  const long right = RefAutoSearchStraightLess(sor, p, edgeDb);
  const long left = RefAutoSearchBackLess(sor, p, edgeDb, 0);
  return static_cast<double>(right - left) - FractionBeyond(levelDb, edgeDb, right, right - 1) -
         FractionBeyond(levelDb, edgeDb, left, left + 1);
}

long RefAutoSearchEndOfEvent(TSorData* sor, long owtStart, long owtLimit) {
  return sor == nullptr ? 0 : SettledFibre(sor, owtStart, owtLimit).Owt();
}
