// Weak splices on a long quiet stretch.
//
// A splice near the resolution of the trace shows as a small step between two straight pieces, smeared over
// the pulse, the receiver's recovery and the mean that smoothed the trace. It is mistaken for two things:
// noise, which steps too but by chance, and slow bends of the slope (polarisation, recovery behind a
// reflection), which have no edge.
//
// Against noise: the difference of two windowed means, `recoverPts` apart, is compared with thresholds that
// are not below the swing that the stretch itself shows (see RefAutoCalcPolar). That swing is the largest of
// some twenty cells that look at differences of the same kind; for white noise the largest of n independent
// differences lies near sqrt(2 ln n) standard deviations. A stretch of m independent windows (its length over
// W) then passes by chance with a probability of about m * exp(-k^2 / 2) with k the threshold in standard
// deviations: at the swing itself, k near 2.5 for twenty cells, one window in twenty would. The step itself,
// which looks at a single difference where the windows look at three, has to reach 1.5 swings and 0.02 dB
// more: that brings k to 3.7 on a noisy trace, or one window in a thousand, and higher on a quiet one, where
// the 0.02 dB count; the ripple on both sides, which the step has to exceed as well, takes the most of what
// is left.
//
// Against bends: the step must stand out from the slope around it and from the ripple on both sides, and its
// height measured close by must agree with that measured from afar.

#include <algorithm>
#include <cmath>

#include "ref/refAutoNoise.h"
#include "ref/refAutoPolar.h"
#include "ref/refAutoSearch.h"
#include "ref/refAutoSplice.h"
#include "ref/traceLevels.h"
#include "util/convert.h"

using namespace reflyze;

namespace {

constexpr float kNearNoiseDb = 3.0F;  // this close to the noise floor thresholds are tripled
// Of the limit for a step, which is set up from the swing of sums of three levels. Tuned: with less, steps
// are invented; with more, real traces lose splices of 0.05 dB that their makers list.
constexpr float kConfirmShare = 0.7F;

class SpliceEventSearch {
 public:
  SpliceEventSearch(TSorData* sor, long s, long z, float spanOwt, float lossThrDb, float gainThrDb,
                    float slopeDb, const short* widths)
      : sor_(sor),
        levelDb_(sor),
        widths_(widths),
        s_(std::clamp(s, 0L, levelDb_.points())),
        z_(std::clamp(z, 0L, levelDb_.points())),
        lossThrDb_(lossThrDb),
        gainThrDb_(gainThrDb),
        slopeDb_(slopeDb),
        nfDb_(static_cast<float>(sor->FxdParams->GetNF())) {
    const auto ds = static_cast<float>(sor->FxdParams->GetOwtDS(0));
    const auto pulseOwt = static_cast<float>(sor->FxdParams->GetOwtPulse(sor->NumToOwt(s_)));
    const float dbPerPoint = static_cast<float>(RefAutoGetDbOnOwt(sor)) * ds;
    pulsePts_ = Held(pulseOwt / ds) + 1;
    recoverPts_ = Held(3.0F / dbPerPoint + pulseOwt / ds + 0.5F) + 2;
    window_ = Held(2.5F / dbPerPoint + pulseOwt / ds / 4 + spanOwt / ds + 8.0F);
    stopAt_ = z_ - 2 * window_ - recoverPts_;
    slopeSumDb_ = 3 * slopeDb_ * static_cast<float>(recoverPts_ + window_);
    floorSumDb_ = 3 * sor->QRTParams->GetfMAX();
  }

  // The point of a splice, or 0. `after` gets the begin of the straight run at s, -1 for none, `bestDb` the
  // largest difference seen, `carry` the end of the find.
  long Run(float& bestDb, long& after, long& carry) {
    if (IsNoise()) return 0;
    SetThresholds();
    const long straight = FindStraightRun();
    after = straight;
    long found = 0;
    long p = std::max({straight, s_, std::min(carry, stopAt_)});
    while (p < stopAt_ && found == 0) {
      const float sumDb = DifferenceAt(p);
      if (std::fabs(sumDb) > std::fabs(bestSumDb_)) bestSumDb_ = sumDb;
      if (!Passes(sumDb)) {
        ++p;
        continue;
      }
      const long crest = CrestFrom(p);
      found = Confirm(crest);
      p = crest + std::max(recoverPts_, 1L);
    }
    bestDb = bestSumDb_ / 3;
    if (found != 0) carry = found + recoverPts_;
    return found;
  }

 private:
  // A length in points that a broken record cannot make longer than the trace.
  long Held(float points) const { return std::clamp(TruncToLong(points), 0L, levelDb_.points()); }
  long WidthAt(long point) const {
    return widths_ == nullptr ? 1 : widths_[std::clamp(point, 0L, levelDb_.points() - 1)];
  }

  // The stretch lies in the noise: at its end, or where averaging is as wide as the stretch allows, at both
  // ends.
  bool IsNoise() const {
    const float endDb = levelDb_[z_ - 1];
    if (WidthAt(z_) < z_ - s_) {
      return levelDb_[s_ + WidthAt(z_) / 2] < nfDb_ && endDb < nfDb_ - kNearNoiseDb;
    }
    return endDb < nfDb_;
  }

  void SetThresholds() {
    if (z_ - s_ < 3 * window_ + recoverPts_) {
      lossThrDb_ *= 3;
      gainThrDb_ *= 3;
    }
    noiseDb_ = NoiseOfStretch();
    if (levelDb_[(s_ + z_) / 2] < nfDb_ + kNearNoiseDb) lossThrDb_ *= 3;
    confirmDb_ = 0.7F * noiseDb_ + lossThrDb_ + 0.01F;
    // From here on they meet sums of three levels.
    lossThrDb_ *= 3;
    gainThrDb_ *= 3;
    lossThrDb_ = std::max(lossThrDb_, noiseDb_);
    if (-gainThrDb_ < noiseDb_) gainThrDb_ = -noiseDb_;
  }

  // Three times the swing of the stretch. A long one may be quieter in one half than in the other.
  float NoiseOfStretch() const {
    long at = 0;
    if (z_ - s_ > 50 * (window_ + pulsePts_)) {
      const long middle = (s_ + z_) / 2;
      const float first = RefAutoCalcPolar(sor_, s_, middle, WidthAt((s_ + middle) / 2), slopeDb_, at);
      const float second = RefAutoCalcPolar(sor_, middle, z_, WidthAt((middle + z_) / 2), slopeDb_, at);
      return 3 * std::max(first, second);
    }
    // The longer the stretch, the more of the pulse belongs to the width over which a swing counts.
    const float share = static_cast<float>(z_ - s_) / (200.0F * static_cast<float>(WidthAt(s_) + pulsePts_));
    const long width = WidthAt(s_) + Held(static_cast<float>(pulsePts_) * std::min(share, 1.0F));
    return 3 * RefAutoCalcPolar(sor_, s_, z_, width, slopeDb_, at);
  }

  // Where the trace has settled on its slope behind s, within a factor that grows near the noise.
  long FindStraightRun() const {
    const float overNoiseDb = levelDb_[s_] - nfDb_;
    float factor = overNoiseDb < 3.0F ? 1.6F : overNoiseDb < 5.0F ? 1.4F : 1.2F;
    if (2 * static_cast<float>(window_ + pulsePts_) * slopeDb_ < noiseDb_) factor *= 2;
    return RefAutoSearchStraightLoss(sor_, s_, z_, window_ + pulsePts_, slopeDb_, factor);
  }

  // Three levels spread over the window that begins at a point, the floor of the scale at the lowest.
  float SumAt(long p) const {
    return std::max(levelDb_[p] + levelDb_[p + window_ / 2] + levelDb_[p + window_], floorSumDb_);
  }
  // How much more the trace falls from one window to the next than the fibre does; three times dB.
  float DifferenceAt(long p) const { return SumAt(p) - SumAt(p + window_ + recoverPts_) - slopeSumDb_; }
  bool Passes(float sumDb) const { return sumDb > lossThrDb_ || sumDb < gainThrDb_; }

  // The window pair around the same step that shows it best.
  long CrestFrom(long p) {
    const bool loss = DifferenceAt(p) > 0.0F;
    long crest = p;
    float bestDb = DifferenceAt(p);
    for (long q = p + 1; q < stopAt_ && q <= crest + window_; ++q) {
      const float sumDb = DifferenceAt(q);
      if (!Passes(sumDb) || (sumDb > 0.0F) != loss) break;
      if (std::fabs(sumDb) > std::fabs(bestDb)) {
        bestDb = sumDb;
        crest = q;
      }
    }
    if (std::fabs(bestDb) > std::fabs(bestSumDb_)) bestSumDb_ = bestDb;
    return crest;
  }

  // The step behind the first window, or 0: high enough close by, with the slope around it taken out, and
  // higher than the ripple on both sides.
  long Confirm(long crest) const {
    const long from = crest, to = std::min(crest + 2 * window_ + recoverPts_, z_ - 1);
    long at = from;
    const float stepDb = RefAutoSearchMaxSplice(sor_, from, to, recoverPts_, at, slopeDb_, 100.0F);
    if (std::fabs(stepDb) < kConfirmShare * confirmDb_) return 0;
    const float lossDb = RefAutoDopuskLosPin(sor_, from, at, at + recoverPts_, to, stepDb, slopeDb_, 0.0F);
    if (std::fabs(lossDb) < std::fabs(lossDb > 0.0F ? lossThrDb_ : gainThrDb_) / 3) return 0;
    if (RippleDb(from, at) >= std::fabs(lossDb) || RippleDb(at + recoverPts_, to) >= std::fabs(lossDb))
      return 0;
    return Place(at, lossDb);
  }

  // Largest rise or fall off the slope, over the receiver's recovery.
  float RippleDb(long a, long b) const {
    if (b - a <= recoverPts_) return 0.0F;
    float fallDb = 0.0F, riseDb = 0.0F;
    long atFall = a, atRise = a;
    return RefAutoSearchMaxdbRiseFall(sor_, a, b, recoverPts_, fallDb, atFall, riseDb, atRise, slopeDb_);
  }

  // A loss begins where it falls fastest over a pulse, a gain where it rises fastest; the pulse model settles
  // the point.
  long Place(long at, float lossDb) const {
    long steepest = at;
    const long from = std::max(at - pulsePts_, s_), to = std::min(at + 2 * recoverPts_ + pulsePts_, z_ - 1);
    if (lossDb > 0.0F) {
      RefAutoSearchMaxdbFall(sor_, from, to, pulsePts_, steepest, 100.0F);
    } else {
      float fallDb = 0.0F, riseDb = 0.0F;
      long atFall = from;
      RefAutoSearchMaxdbRiseFall(sor_, from, to, pulsePts_, fallDb, atFall, riseDb, steepest, slopeDb_);
    }
    return std::clamp(steepest, s_ + 1, z_ - 1);
  }

  TSorData* sor_;
  const TraceLevels levelDb_;
  const short* widths_;          // points averaged at each point
  long s_, z_;                   // the stretch
  long pulsePts_ = 0;            // points of the pulse
  long recoverPts_ = 0;          // of the pulse and the receiver's recovery
  long window_ = 0;              // of one mean
  long stopAt_ = 0;              // where the two windows reach the end of the stretch
  float lossThrDb_, gainThrDb_;  // thresholds: of one level, then of three
  float slopeDb_;                // dB per point
  float nfDb_;
  float slopeSumDb_ = 0.0F;  // fall of the fibre between the two sums
  float floorSumDb_ = 0.0F;  // three times the floor of the scale
  float noiseDb_ = 0.0F;     // three times the swing of the stretch
  float confirmDb_ = 0.0F;   // smallest step that is confirmed
  float bestSumDb_ = 0.0F;
};

}  // namespace

long RefAutoSearchSpliceEvent(TSorData* sor, long s, long z, float spanOwt, float lossThr, float gainThr,
                              float& slopeRef, float& result, short* widths, long& after, long& carry) {
  result = 0.0F;
  if (z - s < 1 || sor->DataPts->GetPointsNum() < 1) return 0;
  return SpliceEventSearch(sor, s, z, spanOwt, lossThr, gainThr, slopeRef, widths).Run(result, after, carry);
}
