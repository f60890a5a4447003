// SPDX-License-Identifier: Apache-2.0

// The dip behind a saturated peak.
//
// A strong reflection drives the receiver into its limit. Behind it the receiver swings through: the trace
// dives below the fibre, comes back on an exponential and then follows the fibre again. Depth and time
// constant of that swing are what it takes to lift the trace back to where the fibre is.

#include <cmath>

#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::TraceLevels;
using reflyze::TruncToLong;

namespace {

class DipMeasure {
 public:
  DipMeasure(TSorData* sor, long a, long b, float slopeDb)
      : sor_(*sor), levelDb_(sor), first_(levelDb_.Near(a)), end_(levelDb_.Near(b)), slopeDb_(slopeDb) {}

  // The point where the fibre shows again, or 0.
  long Run(float& ratio, float& width) {
    if (end_ - first_ < kShortestDipPoints) return 0;
    if (!FindBottom()) return 0;
    FindRecovery();
    if (halfDb_ < kShallowestDb) return 0;
    const long peakEnd = RefAutoSearchBackGreather(&sor_, bottomAt_, kSaturatedDb);
    const long halfAt = HalfRecovered();
    if (halfAt <= bottomAt_) return 0;
    width = static_cast<float>(static_cast<double>(halfAt - bottomAt_) / kHalfOfWidth);
    const float constantsToPeak = static_cast<float>(bottomAt_ - peakEnd) / width;
    if (constantsToPeak > 1.0f) return 0;
    ratio = static_cast<float>(DepthAtBottom() * elementary::Exp(static_cast<double>(constantsToPeak)));
    return recoveredAt_;
  }

 private:
  static constexpr long kShortestDipPoints = 16;
  static constexpr float kShallowestDb = 0.01f;  // half depth below which a dip is ripple
  static constexpr float kSaturatedDb = -0.1f;   // above, the receiver clips
  // Half is recovered after this share of the width: 1 / 1.4.
  static constexpr double kHalfOfWidth = 0.714285714286;
  static constexpr double kBaseFactor = 1.2;  // base of the search: root of this times the stretch; tuned

  // The dip ends in the largest rise of the first half; its bottom lies before.
  bool FindBottom() {
    const long base = TruncToLong(std::sqrt(kBaseFactor * static_cast<double>(end_ - first_)));
    float fallDb, riseDb;
    long atFall, atRise;
    RefAutoSearchMaxdbRiseFall(&sor_, first_, first_ + (end_ - first_) / 2 + base, base, fallDb, atFall,
                               riseDb, atRise, 0.0f);
    if (riseDb < 0) return false;
    bottomAt_ = RefAutoGetMin(&sor_, first_, atRise, lowDb_);
    return true;
  }

  // Recovered is the trace as far behind its highest point as that lies behind the bottom.
  void FindRecovery() {
    float highestDb;
    const long highestAt = RefAutoGetMax(&sor_, bottomAt_, end_, highestDb, -1);
    recoveredAt_ = std::min(2 * highestAt - bottomAt_, (first_ + end_) / 2);
    highDb_ = levelDb_[recoveredAt_] + static_cast<float>(recoveredAt_ - bottomAt_) * slopeDb_;
    halfDb_ = (highDb_ - lowDb_) / 2;
  }

  // First point at which the trace is half way back to the fibre.
  long HalfRecovered() const {
    long i = bottomAt_;
    while (i < end_ && !(levelDb_[i] > lowDb_ + halfDb_ - static_cast<float>(i - bottomAt_) * slopeDb_)) ++i;
    return i;
  }

  // In linear power, against what is left up to the top of the scale.
  float DepthAtBottom() const {
    const auto lin = [this](float levelDb) { return sor_.QRTParams->Log5ToLin(levelDb, 0); };
    return (lin(highDb_) - lin(lowDb_)) / (lin(0.0f) - lin(highDb_));
  }

  TSorData& sor_;
  const TraceLevels levelDb_;
  const long first_, end_;
  const float slopeDb_;
  long bottomAt_ = 0, recoveredAt_ = 0;
  float lowDb_ = 0, highDb_ = 0, halfDb_ = 0;
};

}  // namespace

long RefAutoGetProvalAT(TSorData* sor, long a, long b, float slope, float& ratio, float& width) {
  return DipMeasure(sor, a, b, slope).Run(ratio, width);
}
