// SPDX-License-Identifier: Apache-2.0

// Stretches that fall at a given rate, and losses corrected for the slope around them.

#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"

using reflyze::TraceLevels;

namespace {

struct BandDb {
  float bottom, top;
  bool Holds(float value) const { return value >= bottom && value <= top; }
};

}  // namespace

float RefAutoDopuskLosPin(TSorData* sor, long p1, long p2, long p3, long p4, float loss, float slope,
                          float noise) {
  const TraceLevels levelDb(sor);
  constexpr float kLeastSlope = 0.8f, kMostSlope = 1.25f;  // times the nominal one
  p1 = levelDb.Near(p1), p2 = levelDb.Near(p2), p3 = levelDb.Near(p3), p4 = levelDb.Near(p4);
  if (!(loss > 0)) noise = -noise;
  float aroundDb =
      (levelDb[p3] + levelDb[p1] - levelDb[p4] - levelDb[p2] + noise) / static_cast<float>(p2 + p4 - p3 - p1);
  if (aroundDb < kLeastSlope * slope) aroundDb = kLeastSlope * slope;
  if (aroundDb > kMostSlope * slope) aroundDb = kMostSlope * slope;
  const float excessDb = (aroundDb - slope) * static_cast<float>(p3 - p2);
  const bool sameSign = (loss > 0 && excessDb > 0) || (loss < 0 && excessDb < 0);
  if (!sameSign) return loss;
  return std::fabs(loss) > std::fabs(excessDb) ? loss - excessDb : 0;
}

float CalcLossPin(TSorData* sor, long a, long b, float slope) {
  const TraceLevels levelDb(sor);
  const long end = levelDb.Near(b), third = (end - levelDb.Near(a)) / 3;
  float middleSlope, lastSlope, intercept;
  RefMathLSLf(sor, end - 2 * third, end - third, middleSlope, intercept);
  RefMathLSLf(sor, end - third, end, lastSlope, intercept);
  if (!(lastSlope > slope)) return slope;
  // A slope that is about the same in both thirds is the fibre's; one that falls off is trusted half.
  constexpr float kSameSlope = 0.95f, kNearlySameSlope = 0.9f;
  const float mean = (middleSlope + lastSlope) / 2;
  if (lastSlope > kSameSlope * middleSlope) return mean;
  if (lastSlope > kNearlySameSlope * middleSlope) return (mean + slope) / 2;
  return slope;
}

// Two bases half a base apart have to fall at the rate, so that a step in one of them can't pass for a slope.
// Where the half base is long enough for a spike to stand in it, two more bases are asked.
long RefAutoSearchStraightLoss(TSorData* sor, long a, long b, long w, float loss, float k) {
  if (w <= 1) return -1;
  const TraceLevels levelDb(sor);
  const long base = levelDb.Near(w), half = base / 2, end = levelDb.Near(b) - base - half;
  const float nominalDb = static_cast<float>(base) * loss;
  const BandDb band{nominalDb / k, nominalDb * k};
  for (long i = levelDb.Near(a); i < end; ++i) {
    if (!band.Holds(levelDb.FallDb(i, i + base))) continue;
    if (!band.Holds(levelDb.FallDb(i + half, i + half + base))) continue;
    if (half < 4) return i;
    if (band.Holds((levelDb.FallDb(i + 1, i + 1 + base) + levelDb.FallDb(i + 2, i + 2 + base)) / 2)) return i;
  }
  return -1;
}

namespace {

// Looks for the first stretch of `base` points that falls at a rate within a band.
class StraightStretch {
 public:
  StraightStretch(TSorData* sor, long a, long b, long w, float hiDb, float loDb)
      : sor_(sor),
        levelDb_(sor),
        first_(levelDb_.Near(a)),
        end_(levelDb_.Near(b)),
        base_(levelDb_.Near(w)),
        bandDb_{static_cast<float>(base_) * loDb, static_cast<float>(base_) * hiDb},
        rateDb_{loDb, hiDb} {}

  bool Find() {
    for (begin = first_; begin < end_ - base_; ++begin) {
      end = begin + base_;
      if (BaseFits() || ShortRunFits()) return true;
    }
    return false;
  }

  long begin = 0, end = 0;

 private:
  static constexpr long kShortBasePoints = 8;    // below, a fit has nothing to average over
  static constexpr long kSmoothBasePoints = 16;  // above, two neighbouring falls may be averaged

  bool BaseFits() {
    const float beforeDb = fallDb_;
    fallDb_ = base_ < kShortBasePoints ? levelDb_.FallDb(begin, end) : RefMathLSL4f(sor_, begin, end);
    if (bandDb_.Holds(fallDb_)) return true;
    return begin != first_ && base_ > kSmoothBasePoints && bandDb_.Holds((fallDb_ + beforeDb) / 2);
  }

  // A short base is all noise. The last few points before its end, fitted, may show the rate nevertheless.
  bool ShortRunFits() {
    const long run = end - first_;
    if (base_ >= kShortBasePoints || run <= 2) return false;
    const long n = run < 7 ? 3 : 7;
    if (!rateDb_.Holds(RefMathLSL4f(sor_, end - n, end) / static_cast<float>(n))) return false;
    begin = end - n;
    return true;
  }

  TSorData* const sor_;
  const TraceLevels levelDb_;
  const long first_, end_, base_;
  const BandDb bandDb_, rateDb_;  // over the base, and per point
  float fallDb_ = 0;              // of the base looked at last
};

}  // namespace

long RefAutoSearchStraightLoss2(TSorData* sor, long a, long b, long w, float hi, float lo, int side) {
  if (w <= 1) return -1;
  StraightStretch stretch(sor, a, b, w, hi, lo);
  if (!stretch.Find()) return -1;
  return side != 0 ? stretch.end : stretch.begin;
}
