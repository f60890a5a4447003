// SPDX-License-Identifier: Apache-2.0

// How far the backscatter swings around the fibre's slope.
//
// The stretch is cut into cells. In each, the largest rise and the largest fall over a base are taken, with
// the slope removed. Where both are about equal the trace swings; where one is twice the other, an event
// stands in the cell, and the cell is measured again behind it. The figure is the swing of the quietest cell,
// held against the mean of all swings that are about as small, and against what noise alone would do.

#include "ref/figures/refAutoPolar.h"

#include <cmath>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::TraceLevels;
using reflyze::TruncToLong;

namespace {

class PolarRipple {
 public:
  PolarRipple(TSorData* sor, long a, float slopeDb)
      : sor_(*sor), levelDb_(sor), slopeDb_(slopeDb), noiseFloorDb_(sor->FxdParams->GetNF()) {
    // A coherent laser speckles: twice the swing is still ripple. The wide cores of multimode fibre average
    // it out.
    limitDb_ = sor_.QRTParams->LaserFreq != 0 ? kCoherentLimitDb : kLimitDb;
    if (sor_.GenParams->FT == TSorBlockGeneralParameters::kMultimodeFibre) limitDb_ /= 2;
    const double fibreStart = sor_.LenToNum(0.0);
    start_ = static_cast<double>(a) < fibreStart ? TruncToLong(fibreStart) + 1 : a;
    start_ = levelDb_.Near(start_);
  }

  float Run(long b, long w, long& at) {
    b = levelDb_.Near(b);
    w = levelDb_.Near(w);
    // Each round ends before the one before, so the stretch soon gets too short to measure.
    while (true) {
      at_ = start_;
      if (b - start_ < kShortestStretchPoints) break;
      MeasureCells(b, w);
      if (IsTooShort() || !EndedEarly()) break;
      b = atFall_;
    }
    at = at_;
    if (b - start_ < kShortestStretchPoints) return NoiseSwingDb(start_, w);
    return IsTooShort() ? kShortStretchDb : Judge();
  }

 private:
  // Tuned, without derivation.
  static constexpr float kLimitDb = 0.45f, kCoherentLimitDb = 0.9f;  // a swing above is no ripple
  static constexpr long kShortestStretchPoints = 16;
  static constexpr long kMostCells = 20;
  static constexpr double kShortestKm = 0.1;          // a stretch that ends within is not measured ...
  static constexpr float kShortStretchDb = 0.1f;      // ... but gets this figure
  static constexpr float kSignalAboveNoiseDb = 3.0f;  // nearer to the noise floor the trace is noise
  static constexpr double kCoverAboveNoiseDb = 5.0;   // a large figure has to come from this far above it
  static constexpr double kNoiseSwingDb = 0.22;       // of a single point at the noise floor
  static constexpr float kCentredShare = 1.9f;        // of the swing to one side, for the swing to both
  static constexpr float kCloseToBest = 1.5f;         // swings below this many times the best one are like it
  static constexpr float kSmallSwingDb = 0.05f;  // a mean up to this counts even where swings differ much
  static constexpr float kLargeSwingDb = 0.2f;   // a mean above this needs more than a few swings
  static constexpr float kUnitDb = 0.001f;  // of the samples; a mean of two swings is lifted by half of it

  // One measurement of a stretch: the extremes over the base, the larger of both and the smaller.
  struct Swing {
    float fallDb = 0, riseDb = 0, largerDb = 0;
    long atFall = 0, atRise = 0;
    float SmallerDb() const { return std::min(riseDb, -fallDb); }
    long AtLarger() const { return riseDb > -fallDb ? atRise : atFall; }
  };

  Swing Measure(long from, long to) const {
    Swing swing;
    swing.largerDb = RefAutoSearchMaxdbRiseFall(&sor_, from, to, base_, swing.fallDb, swing.atFall,
                                                swing.riseDb, swing.atRise, slopeDb_);
    return swing;
  }

  // What noise would swing by at a point. Averaging over `points` lowers it by 2.5 log10(points) dB.
  float NoiseSwingDb(long point, long points) const {
    return static_cast<float>(
        TSorBlockQRTParameters::poww(noiseFloorDb_ - levelDb_[point] -
                                     2.5 * elementary::Log10(static_cast<double>(points))) *
        kNoiseSwingDb);
  }

  void MeasureCells(long b, long w) {
    swingsDb_.clear();
    bestDb_ = 1.0f;
    cells_ = std::min(TruncToLong(std::sqrt(static_cast<double>(b - start_)) / 2), kMostCells);
    cellPoints_ = (b - start_) / cells_;
    base_ = cellPoints_ < 3 * w ? cellPoints_ / 3 : w;
    if (30 * base_ < cellPoints_) base_ = cellPoints_ / 30;
    from_ = secondEnd_ = start_;
    long to = start_ + cellPoints_ + base_ - 1;
    for (long cell = 0; cell < cells_; ++cell) {
      const Swing swing = Measure(from_, std::min(to, b));
      from_ += cellPoints_;
      to += cellPoints_;
      if (to > b) {
        from_ = b - cellPoints_;
        to = b;
      }
      atFall_ = swing.atFall;
      if (swing.largerDb < 0) continue;
      if (levelDb_[swing.atRise] > noiseFloorDb_ + kSignalAboveNoiseDb) swingsDb_.push_back(swing.riseDb);
      if (levelDb_[swing.atFall + base_] < noiseFloorDb_ + kSignalAboveNoiseDb) return;
      swingsDb_.push_back(-swing.fallDb);
      TakeCell(swing, to - from_, b);
    }
  }

  // Takes the swing of a cell for the figure if it is the smallest so far and no event stands in it.
  void TakeCell(const Swing& swing, long secondPoints, long b) {
    float largerDb = swing.largerDb, smallerDb = swing.SmallerDb();
    const long second = (base_ + 1) / 2 + swing.AtLarger();
    secondEnd_ = second + secondPoints;
    if (2 * smallerDb <= largerDb && secondEnd_ < b) {
      Swing behind = Measure(second, secondEnd_);
      if (behind.largerDb > 0) {
        swingsDb_.push_back(behind.riseDb);
        swingsDb_.push_back(-behind.fallDb);
      }
      if (behind.riseDb < 0 || behind.fallDb > 0) Centre(behind);
      if (behind.largerDb > 0 && behind.largerDb < largerDb) {
        largerDb = behind.largerDb;
        smallerDb = std::min(smallerDb, behind.SmallerDb());
      }
    }
    if (2 * smallerDb > largerDb && (smallerDb + largerDb) / 2 < bestDb_) {
      bestDb_ = (smallerDb + largerDb + kUnitDb) / 2;
      at_ = from_;
    }
  }

  // Everything rises or everything falls: the slope behind the event is not the fibre's. The swing about that
  // slope counts, a little less than in full.
  static void Centre(Swing& swing) {
    const float meanDb = (swing.riseDb + swing.fallDb) / 2;
    swing.riseDb -= meanDb;
    swing.fallDb -= meanDb;
    swing.largerDb = kCentredShare * swing.riseDb;
  }

  bool IsTooShort() const { return sor_.NumToLen(from_) - sor_.NumToLen(start_) < kShortestKm; }

  // The trace fell into the noise in its first half: cells cut from what is left are shorter and say more.
  bool EndedEarly() const {
    return secondEnd_ < cells_ * cellPoints_ / 2 + start_ && base_ < cellPoints_ &&
           20 * base_ < atFall_ - start_;
  }

  float Judge() {
    if (kCloseToBest * bestDb_ > limitDb_ && !IsWellCovered()) return 0;
    const long listed = static_cast<long>(swingsDb_.size());
    Count similar = CountSimilar();
    if (2 * similar.close - similar.far < listed && from_ - start_ < 50 * base_) {
      if (similar.meanDb > kSmallSwingDb || 3 * similar.close - 2 * similar.far < listed) return 0;
    }
    float ripple = std::max(bestDb_, NoiseSwingDb(at_, base_));
    if (similar.meanDb > ripple && similar.meanDb < limitDb_) ripple = similar.meanDb;
    const bool fewAndLarge = similar.close < kFewSwings && limitDb_ / 3 < ripple;
    return fewAndLarge || ripple > limitDb_ ? 0 : ripple;
  }

  // A large figure is believed when many cells stand behind it, well above the noise.
  bool IsWellCovered() const {
    return swingsDb_.size() > 20 &&
           sor_.NumToLen(from_ - cellPoints_) - sor_.NumToLen(start_) >= kShortestKm &&
           levelDb_[(from_ + start_) / 2] - noiseFloorDb_ >= kCoverAboveNoiseDb;
  }

  struct Count {
    float meanDb = 0;  // of the swings close to the best
    long close = 0;
    long far = 0;  // three times the best and more
  };

  Count CountSimilar() {
    Count count;
    if (swingsDb_.size() > 4) {
      double sumDb = 0;
      for (const float swingDb : swingsDb_) {
        if (swingDb < kCloseToBest * bestDb_) {
          sumDb += swingDb;
          ++count.close;
        } else if (swingDb > 3 * bestDb_) {
          ++count.far;
        }
      }
      if (count.close != 0) count.meanDb = static_cast<float>(sumDb / static_cast<double>(count.close));
    }
    if (count.close < kFewSwings && count.meanDb > kLargeSwingDb) {
      const float trust = static_cast<float>(count.close) / static_cast<float>(count.close + 4);
      count.meanDb *= trust;
      bestDb_ *= trust;
    }
    return count;
  }

  static constexpr long kFewSwings = 8;

  TSorData& sor_;
  const TraceLevels levelDb_;
  const float slopeDb_;
  const double noiseFloorDb_;
  float limitDb_ = 0;  // above, it is no ripple
  long start_ = 0;

  long cells_ = 0, cellPoints_ = 0, base_ = 0;
  long from_ = 0;       // begin of the next cell
  long atFall_ = 0;     // largest fall of the last cell
  long secondEnd_ = 0;  // end of the stretch behind an event, in the last cell that was measured in full
  float bestDb_ = 1.0f;
  long at_ = 0;
  std::vector<float> swingsDb_;
};

}  // namespace

float RefAutoCalcPolar(TSorData* sor, long a, long b, long w, float slope, long& at) {
  if (w < 1) return 0;
  return PolarRipple(sor, a, slope).Run(b, w, at);
}

float RefAutoCalcPolar2(TSorData* sor, long a, long b, long w, float slope, short* /*map*/) {
  const TraceLevels levelDb(sor);
  b = levelDb.Near(b);
  w = levelDb.Near(w);
  long i = levelDb.Near(a);
  while (i < b && std::fabs(levelDb.FallDb(i, i + 1) - slope) > 2 * slope) ++i;
  if (w < 1 || b - i < 3 * w) return 0;

  // The line through the means at both ends. Over a long stretch it is the least-squares line through four
  // means at equal distances: its level at the first of them is 0.7, 0.4, 0.1 and -0.2 of the four, and it
  // falls by 0.3 (3 (first - last) + second - third) in all. That fall is taken with the first level as just
  // smoothed.
  const long n = b - i - w, third = n / 3;
  double firstDb = RefMathPower(sor, i, w, 0);
  const double lastDb = RefMathPower(sor, b - w, w, 0);
  double slopeDb = (firstDb - lastDb) / static_cast<double>(n);
  if (3 * w < third) {
    const double secondDb = RefMathPower(sor, i + third, w, 0);
    const double thirdDb = RefMathPower(sor, b - w - third, w, 0);
    firstDb = 0.7 * firstDb + 0.4 * secondDb + 0.1 * thirdDb - 0.2 * lastDb;
    slopeDb = 0.3 * (3 * (firstDb - lastDb) + secondDb - thirdDb) / static_cast<double>(n);
  }

  double aboveDb2 = 0, belowDb2 = 0, lineDb = firstDb;
  long above = 0, below = 0;
  for (long j = i + w / 2; j < b - 3 * w / 2; ++j, lineDb -= slopeDb) {
    const double offDb = levelDb[j] - lineDb;
    (offDb > 0 ? aboveDb2 : belowDb2) += offDb * offDb;
    ++(offDb > 0 ? above : below);
  }
  const auto rootMean = [](double sum, long count) {
    return count > 0 ? std::sqrt(sum / static_cast<double>(count)) : 0.0;
  };
  return static_cast<float>(3 * (rootMean(aboveDb2, above) + rootMean(belowDb2, below)) / 2);
}
