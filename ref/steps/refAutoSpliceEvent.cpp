// SPDX-License-Identifier: Apache-2.0

// Weak splices on a long quiet stretch.
//
// A splice near the resolution of the trace shows as a small step between two straight pieces, smeared over
// the pulse, the receiver's recovery and the mean that smoothed the trace. It is mistaken for two things:
// noise, which steps too but by chance, and slow bends of the slope (polarisation, recovery behind a
// reflection), which have no edge.
//
// Against noise: a candidate is where two sums of three levels, `recoverPts` apart, differ by more than the
// thresholds, which are not below the swing that the stretch itself shows (see RefAutoCalcPolar). Three
// levels out of a window are quick to add, but few: noise alone passes now and then. So every candidate is
// measured again between the full means of both windows, and has to exceed three times what noise of the
// height of the floor adds to such a mean. The floor stands 2.05 times above the root mean square of the
// noise; a difference of two means scatters by the square root of 2 times one; so three times the floor's
// share are 4.4 standard deviations, which normal noise exceeds in one window of 80,000. A mean over four
// times the points sees a step of half the size as surely: where there is straight fibre on both sides,
// and the longer means agree with the shorter ones, they are asked too. In 6,000 simulated stretches of plain
// fibre up to 7 dB above the floor, smoothed over 16 points, nothing was found.
//
// Against bends: the slope is that of the stretch, as most of its points show it, not that of the whole
// trace, which every splice and every gain has a part in; the height of the step measured close by and from
// the means must have one sign; and it must stand out from the ripple on both sides.

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "ref/figures/refAutoNoise.h"
#include "ref/figures/refAutoPolar.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "ref/steps/refAutoSplice.h"
#include "util/blockSearch.h"
#include "util/convert.h"
#include "util/elementary.h"

using namespace reflyze;

namespace {

constexpr float kNearNoiseDb = 3.0F;  // this close to the noise floor thresholds are tripled
constexpr float kSureNoise = 3.0F;  // times the share of the noise floor in a mean that a step has to exceed
constexpr long kLongestMeans = 4;   // in windows

// What a search works with beside the pulse; tuned.
constexpr float kRecoveredDb = 3.0F;    // fall after which the receiver has recovered
constexpr float kHalfPoint = 0.5F;      // rounds
constexpr float kWindowFallDb = 2.5F;   // a window lasts while the receiver falls by this ...
constexpr float kWindowPoints = 8.0F;   // ... and this many points longer, at any spacing
constexpr float kLongStretch = 200.0F;  // pulses and widths: the pulse counts in full for a swing
// A step that exceeds the threshold by this share of the swing and this many dB is pinned down where it is
// met.
constexpr float kPinnedShare = 0.7F, kPinnedDb = 0.01F;
constexpr float kAnyFallDb = 100.0F;  // no trace falls so far

// How a step shows: it slides over the pulse, the receiver follows, the filter has averaged. As a share of
// the step, by points from its begin.
struct Edge {
  // `lag` is the time constant of the receiver as a share of the pulse.
  Edge(long pulsePoints, double lag, long meanPoints, long points)
      : share(static_cast<size_t>(points)), sum(share.size() + 1), squares(share.size() + 1) {
    const double pulse = static_cast<double>(std::max(pulsePoints, 1L));
    const double keep = lag > 0 ? elementary::Exp(-1.0 / (lag * pulse)) : 0.0;
    std::vector<double> received(share.size());
    double last = 0, inWindow = 0;
    const auto window = static_cast<size_t>(std::max(meanPoints, 1L));
    for (size_t i = 0; i < share.size(); ++i) {
      last += (1 - keep) * (std::min(static_cast<double>(i) / pulse, 1.0) - last);
      received[i] = last;
      inWindow += last - (i >= window ? received[i - window] : 0.0);
      share[i] = inWindow / static_cast<double>(window);
      sum[i + 1] = sum[i] + share[i];
      squares[i + 1] = squares[i] + share[i] * share[i];
    }
  }

  std::vector<double> share;
  std::vector<double> sum, squares;  // of the first 0, 1, 2 ... shares
};

// Where a step of a stretch begins, by least squares of edges against its levels, less the slope.
class EdgeFit {
 public:
  // The points of the stretch, and the begins among them that are tried.
  struct Span {
    long first, end, lowest, highest;
  };
  // `loss` is whether the level falls; an edge that goes the other way is none.
  EdgeFit(const TraceLevels& levelDb, const Span& span, float slopeDb, bool loss, long begin)
      : span_(span), loss_(loss), begin_(begin) {
    for (long i = span.first; i < span.end; ++i) {
      const double offDb = levelDb[i] - levelDb[span.first] + static_cast<double>(i - span.first) * slopeDb;
      offDb_.push_back(offDb);
      sumDb_ += offDb;
      squaresDb2_ += offDb * offDb;
    }
  }

  // The error has one valley: a coarse grid finds it, halving steps its bottom.
  void Try(const Edge& edge) {
    long grid = std::max((span_.highest - span_.lowest) / 32, 1L);
    for (long t = span_.lowest; t <= span_.highest; t += kAtOnce * grid) TryGroup(edge, t, grid);
    while (grid > 1) {
      grid = (grid + 1) / 2;
      const long best = begin_;
      TryGroup(edge, best - grid, 2 * grid, 2);
    }
  }

  // The best begin so far, at first the one that was given.
  long begin() const { return begin_; }

 private:
  static constexpr long kAtOnce = 4;

  // Those of `count` begins, `step` points apart, that are to be tried.
  void TryGroup(const Edge& edge, long t, long step, long count = kAtOnce) {
    if (t < span_.lowest) {
      t += step;
      --count;
    }
    while (count > 0 && t + (count - 1) * step > span_.highest) --count;
    double productsDb[kAtOnce];
    SumProducts(edge, t, step, count, productsDb);
    for (long k = 0; k < count; ++k) {
      const double errorDb2 = ErrorDb2(edge, t + k * step, productsDb[k]);
      if (!(errorDb2 < leastDb2_)) continue;
      leastDb2_ = errorDb2;
      begin_ = t + k * step;
    }
  }

  // For each of these begins, what the edge and the levels behind it have in common. The sums are made side
  // by side, each in the order of its points: one by itself would wait for each of its additions.
  void SumProducts(const Edge& edge, long t, long step, long count, double* sums) const {
    const double* share = edge.share.data();
    const double* offDb = offDb_.data() + (t - span_.first);
    const long points = span_.end - t;
    long together = 0;
    std::fill(sums, sums + kAtOnce, 0.0);
    if (count == kAtOnce) {
      for (; together < points - (kAtOnce - 1) * step; ++together) {
        for (long k = 0; k < kAtOnce; ++k) sums[k] += share[together] * offDb[k * step + together];
      }
    }
    for (long k = 0; k < count; ++k) {
      for (long i = together; i < points - k * step; ++i) sums[k] += share[i] * offDb[k * step + i];
    }
  }

  // Squared error of the edge at a point, with those levels on both sides that fit best. Infinite where they
  // make a step the other way.
  double ErrorDb2(const Edge& edge, long t, double productsDb) const {
    constexpr double kNoFit = std::numeric_limits<double>::infinity();
    const auto behind = static_cast<size_t>(span_.end - t);
    const double n = static_cast<double>(offDb_.size()), x = edge.sum[behind], xx = edge.squares[behind];
    const double determinant = n * xx - x * x;
    if (determinant < 1e-9) return kNoFit;
    const double riseDb = (n * productsDb - x * sumDb_) / determinant;
    if ((riseDb < 0) != loss_) return kNoFit;
    return std::max(squaresDb2_ - (sumDb_ - riseDb * x) / n * sumDb_ - riseDb * productsDb, 0.0);
  }

  const Span span_;
  const bool loss_;
  std::vector<double> offDb_;  // levels of the stretch less the slope, over the first
  double sumDb_ = 0.0, squaresDb2_ = 0.0;
  double leastDb2_ = std::numeric_limits<double>::infinity();
  long begin_;
};

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
        slopeDb_(slopeDb) {
    // Stores the rate in the record. A receiver whose rate is not on record is measured on the launch, and
    // that settles both the noise floor and the floor of the scale: so they are asked for only behind it.
    const auto dbPerOwt = static_cast<float>(RefAutoGetDbOnOwt(sor));
    const auto ds = static_cast<float>(sor->FxdParams->GetOwtDS(0));
    const auto pulseOwt = static_cast<float>(sor->FxdParams->GetOwtPulse(sor->NumToOwt(s_)));
    const float dbPerPoint = dbPerOwt * ds;
    pulsePts_ = Held(pulseOwt / ds) + 1;
    recoverPts_ = Held(kRecoveredDb / dbPerPoint + pulseOwt / ds + kHalfPoint) + 2;
    window_ = Held(kWindowFallDb / dbPerPoint + pulseOwt / ds / 4 + spanOwt / ds + kWindowPoints);
    stopAt_ = z_ - 2 * window_ - recoverPts_;
    nfDb_ = static_cast<float>(sor->FxdParams->GetNF());
    slopeSumDb_ = 3 * slopeDb_ * static_cast<float>(recoverPts_ + window_);
    floorSumDb_ = 3 * sor->QRTParams->GetfMAX();
  }

  // The point of a splice, or 0. `after` gets the begin of the straight run at s, -1 for none, `bestDb` the
  // largest difference that passed the thresholds, 0 for none, `carry` the end of the find.
  long Run(float& bestDb, long& after, long& carry) {
    if (IsNoise()) return 0;
    SetThresholds();
    after = straight_ = FindStraightRun();
    // A step near s keeps the trace from being straight until it is over.
    long p = std::max({straight_ - window_ - recoverPts_, s_, std::min(carry, stopAt_)});
    FollowSlope(p);
    long found = 0;
    while (found == 0 && (p = FindDifference(p)) < stopAt_) {
      if (IsInTail(p)) {
        ++p;
      } else {
        found = Confirm(CrestFrom(p));
      }
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
    limitDb_ = kPinnedShare * noiseDb_ + lossThrDb_ + kPinnedDb;
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
    const float share =
        static_cast<float>(z_ - s_) / (kLongStretch * static_cast<float>(WidthAt(s_) + pulsePts_));
    const long width = WidthAt(s_) + Held(static_cast<float>(pulsePts_) * std::min(share, 1.0F));
    return 3 * RefAutoCalcPolar(sor_, s_, z_, width, slopeDb_, at);
  }

  // Where the trace has settled on its slope behind s, within a factor that grows near the noise.
  long FindStraightRun() const {
    constexpr float kLittleDb = 3.0F, kSomeDb = 5.0F;  // over the noise floor
    constexpr float kLooseFactor = 1.6F, kMiddleFactor = 1.4F, kTightFactor = 1.2F;
    const float overNoiseDb = levelDb_[s_] - nfDb_;
    float factor = overNoiseDb < kLittleDb ? kLooseFactor
                   : overNoiseDb < kSomeDb ? kMiddleFactor
                                           : kTightFactor;
    if (2 * static_cast<float>(window_ + pulsePts_) * slopeDb_ < noiseDb_) factor *= 2;
    return RefAutoSearchStraightLoss(sor_, s_, z_, window_ + pulsePts_, slopeDb_, factor);
  }

  // Three levels spread over the window that begins at a point, the floor of the scale at the lowest.
  template <class Levels>
  float SumAt(const Levels& levels, long p) const {
    return std::max(levels[p] + levels[p + window_ / 2] + levels[p + window_], floorSumDb_);
  }
  // How much more the trace falls from one window to the next than the fibre does; three times dB.
  template <class Levels>
  float DifferenceAt(const Levels& levels, long p) const {
    return SumAt(levels, p) - SumAt(levels, p + window_ + recoverPts_) - slopeSumDb_;
  }
  float DifferenceAt(long p) const { return DifferenceAt(levelDb_, p); }
  // First point from p on whose difference passes; none lies at `stopAt_` or behind it. The second window of
  // all others ends in front of z.
  long FindDifference(long p) const {
    return levelDb_.Over(p, z_, [this, p](auto levels) {
      return FirstThatPasses(p, stopAt_, [this, levels](long i) {
        const float sumDb = DifferenceAt(levels, i);
        return (sumDb > lossThrDb_) | (sumDb < gainThrDb_);
      });
    });
  }
  bool Passes(float sumDb) const { return sumDb > lossThrDb_ || sumDb < gainThrDb_; }

  // The slope given is a mean over all the trace with its splices. On a stretch that is long enough for a
  // step to be the exception, the fall that half of the points exceed is the fibre's own.
  void FollowSlope(long from) {
    constexpr float kFlattest = -0.2F, kSteepest = 0.25F;  // shares of the slope by which fibres differ
    constexpr long kMostFalls = 400;
    const long count = z_ - window_ - from;
    if (window_ < 1 || count < 2 * (window_ + pulsePts_)) return;
    std::vector<float> fallsDb;
    for (long p = from; p < from + count; p += std::max(count / kMostFalls, 1L)) {
      fallsDb.push_back(levelDb_.FallDb(p, p + window_));
    }
    const auto middle = fallsDb.begin() + static_cast<long>(fallsDb.size() / 2);
    std::nth_element(fallsDb.begin(), middle, fallsDb.end());
    const float offDb = *middle / static_cast<float>(window_) - slopeDb_;
    const float nominalDb = std::fabs(slopeDb_);
    slopeDb_ += std::clamp(offDb, kFlattest * nominalDb, kSteepest * nominalDb);
    slopeSumDb_ = 3 * slopeDb_ * static_cast<float>(recoverPts_ + window_);
  }

  // In front of the straight run a window may lie in the tail of the event in front.
  bool IsInTail(long p) const {
    if (p >= straight_) return false;
    const float offDb = levelDb_.FallDb(p, p + window_) - static_cast<float>(window_) * slopeDb_;
    return std::fabs(offDb) > lossThrDb_ / 3;
  }

  // The window pair around the same step that shows it best. `p` moves behind what belongs to that step.
  long CrestFrom(long& p) {
    const bool loss = DifferenceAt(p) > 0.0F;
    long crest = p;
    float bestDb = DifferenceAt(p);
    for (++p; p < stopAt_ && p <= crest + window_; ++p) {
      const float sumDb = DifferenceAt(p);
      if (!Passes(sumDb) || (sumDb > 0.0F) != loss) break;
      if (std::fabs(sumDb) > std::fabs(bestDb)) {
        bestDb = sumDb;
        crest = p;
      }
    }
    p = std::max(p, crest + window_ / 4);
    if (std::fabs(bestDb) > std::fabs(bestSumDb_)) bestSumDb_ = bestDb;
    return crest;
  }

  // The step between both windows, or 0. The first one near that reaches the limit is taken, else the
  // largest. With the slope around it taken out it has to pass the thresholds, from close by and from the
  // means; it has to have an edge, and to be above the noise and above the ripple on both sides.
  long Confirm(long crest) const {
    const long expected = crest + window_;
    const long from = std::max(expected - recoverPts_, s_);
    const long to = std::min(expected + 2 * recoverPts_, z_ - 1);
    long at = from;
    const float stepDb = RefAutoSearchMaxSplice(sor_, from, to, recoverPts_, at, slopeDb_, limitDb_);
    if ((stepDb > 0.0F) != (DifferenceAt(crest) > 0.0F)) return 0;
    const long behind = at + recoverPts_;
    const long before = std::max(at - window_, s_), end = std::min(behind + window_, z_ - 1);
    const float closeDb = RefAutoDopuskLosPin(sor_, before, at, behind, end, stepDb, slopeDb_, 0.0F);
    const float lossDb = BetweenMeansDb(at, behind, window_);
    if (!PassesAlone(closeDb) || !PassesAlone(lossDb) || (closeDb > 0.0F) != (lossDb > 0.0F)) return 0;
    if (!StandsOut(at, behind, lossDb)) return 0;
    if (!HasEdge(from, to, closeDb)) return 0;
    if (std::max(RippleDb(before, at), RippleDb(behind, end)) >= std::fabs(closeDb)) return 0;
    return Place(at, lossDb);
  }

  // The thresholds for a single step.
  bool PassesAlone(float stepDb) const { return 3 * stepDb >= lossThrDb_ || 3 * stepDb <= gainThrDb_; }

  // Whether noise can't explain the step. The longer the means, the more an error of the slope counts too.
  bool StandsOut(long at, long behind, float lossDb) const {
    constexpr float kSlopeDoubt = 0.05F;  // of the slope
    constexpr float kAgree = 0.6F;        // of what noise may add to the shortest means
    const float noiseDb = kSureNoise * NoiseOfMeanDb(behind, window_);
    if (std::fabs(lossDb) > noiseDb) return true;
    const long room = std::min({at - std::max(s_, straight_), z_ - behind, kLongestMeans * window_});
    for (long window = 2 * window_; window <= room; window *= 2) {
      const float longDb = BetweenMeansDb(at, behind, window);
      if ((longDb > 0.0F) != (lossDb > 0.0F) || std::fabs(longDb - lossDb) > kAgree * noiseDb) return false;
      const float doubtDb = kSlopeDoubt * std::fabs(slopeDb_) * static_cast<float>(window);
      if (std::fabs(longDb) > kSureNoise * NoiseOfMeanDb(behind, window) + doubtDb)
        return PassesAlone(longDb);
    }
    return false;
  }

  // Loss between the means of a window in front of `at` and one behind `behind`, or of what the stretch has.
  float BetweenMeansDb(long at, long behind, long window) const {
    const long before = std::min(window, at - s_), after = std::min(window, z_ - behind);
    if (before < 1 || after < 1) return 0.0F;
    const double fallDb = RefMathPower(sor_, at - before, before, 0) - RefMathPower(sor_, behind, after, 0);
    return static_cast<float>(fallDb) -
           slopeDb_ * (static_cast<float>(behind - at) + static_cast<float>(before + after) / 2);
  }

  // What noise as high as the floor adds to a mean of a window that begins at a point.
  float NoiseOfMeanDb(long p, long window) const {
    return RefMathAddNoise(sor_, p + window / 2, std::max(window, WidthAt(p)), 0);
  }

  // Largest rise or fall off the slope, over the receiver's recovery.
  float RippleDb(long a, long b) const {
    if (b - a <= recoverPts_) return 0.0F;
    float fallDb = 0.0F, riseDb = 0.0F;
    long atFall = a, atRise = a;
    return RefAutoSearchMaxdbRiseFall(sor_, a, b, recoverPts_, fallDb, atFall, riseDb, atRise, slopeDb_);
  }

  // A step is over within the receiver's recovery; a bend of the slope is not.
  bool HasEdge(long from, long to, float stepDb) const {
    constexpr float kEdgeShare = 0.5F;  // of the step; noise takes its part of the rest
    const float ownDb = static_cast<float>(recoverPts_) * slopeDb_;
    long at = from, atRise = from;
    if (stepDb > 0.0F) {
      return RefAutoSearchMaxdbFall(sor_, from, to, recoverPts_, at, kAnyFallDb) - ownDb >
             kEdgeShare * stepDb;
    }
    float fallDb = 0.0F, riseDb = 0.0F;
    RefAutoSearchMaxdbRiseFall(sor_, from, to, recoverPts_, fallDb, at, riseDb, atRise, slopeDb_);
    return riseDb > -kEdgeShare * stepDb;
  }

  // The begin of the step, by least squares, within a recovery of where it was measured. How slowly the
  // receiver follows is tried too: what it delays would pass for a later begin.
  long Place(long at, float lossDb) const {
    constexpr double kLags[] = {0.0, 1.0 / 16, 1.0 / 8, 1.0 / 4};  // time constants, in pulses
    const long mean = std::max(WidthAt(at + recoverPts_), 1L);
    const long first = std::max(at - recoverPts_, s_);
    const long end = std::min(at + 2 * recoverPts_ + mean, z_);
    const long lowest = std::max(first, s_ + 1), highest = std::min(at + recoverPts_, end - 1);
    const long begin = std::clamp(at, s_ + 1, std::max(z_ - 1, s_ + 1));
    if (lowest > highest) return begin;
    EdgeFit fit(levelDb_, {first, end, lowest, highest}, slopeDb_, lossDb > 0.0F, begin);
    for (const double lag : kLags) fit.Try(Edge(pulsePts_ - 1, lag, mean, end - lowest));
    return fit.begin();
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
  float nfDb_ = 0.0F;            // noise floor
  float slopeSumDb_ = 0.0F;      // fall of the fibre between the two sums
  float floorSumDb_ = 0.0F;      // three times the floor of the scale
  float noiseDb_ = 0.0F;         // three times the swing of the stretch
  float limitDb_ = 0.0F;         // a step as high as this is pinned down where it is met
  float bestSumDb_ = 0.0F;
  long straight_ = -1;  // where the straight run at s begins
};

}  // namespace

long RefAutoSearchSpliceEvent(TSorData* sor, long s, long z, float spanOwt, float lossThr, float gainThr,
                              float& slopeRef, float& result, short* widths, long& after, long& carry) {
  result = 0.0F;
  if (z - s < 1 || sor->DataPts->GetPointsNum() < 1) return 0;
  return SpliceEventSearch(sor, s, z, spanOwt, lossThr, gainThr, slopeRef, widths).Run(result, after, carry);
}
