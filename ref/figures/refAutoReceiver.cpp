// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "ref/figures/refAutoNoise.h"
#include "ref/math/traceWalk.h"
#include "ref/search/refAutoSearch.h"
#include "sor/sorData.h"
#include "util/convert.h"

// How fast the receiver falls behind a strong reflection. The launch into the fibre is the strongest of all,
// and behind its pulse the level drops to the backscatter at the rate that the receiver's bandwidth allows:
// so the steepest fall behind the launch pulse is that rate. A pulse so long that the fibre fills it, or a
// trace that begins behind it, shows no such fall.

using reflyze::PointAtOwt;
using reflyze::TruncToLong;

namespace {

constexpr double kNoFallDbPerKm = 1000.0;  // taken where the trace shows no fall: as good as at once
constexpr long kFewestFallPoints = 3;

// Rate that two stages in a row make of their bandwidths, in dB per km; not above 0 where none is on record.
double RateOnRecord(const TMeasurementMode& mode) {
  if (mode.BWU2 <= 0) return mode.BWU1;
  return 1.0 / (1.0 / mode.BWU1 + 1.0 / mode.BWU2);
}

class LaunchFall {
 public:
  explicit LaunchFall(TSorData* sor) : sor_(sor), pulseOwt_(sor->FxdParams->GetOwtPulse(0)) {}

  double DbPerKm() {
    if (!ExpectFall()) return kNoFallDbPerKm;
    FindFall();
    noiseFloorDb_ = RefAutoReSetNF(sor_);  // stores it in the record
    return end_ - start_ < kFewestFallPoints ? RateDownToNoise() : RateOfFall();
  }

 private:
  // The depth of the fall to look for: the shorter the pulse, the further its reflection stands out of the
  // backscatter. Tuned: 10 dB below the top of the scale for the shortest pulses, and no fall is looked for
  // where less than 3 dB are left, from 2.4 us on.
  bool ExpectFall() {
    constexpr double kLongestPulseNs = 10000.0, kShortestPulseNs = 100.0;
    constexpr double kShallowestFootDb = -3.0;
    const double pulseNs = sor_->FxdParams->GetNsPulse(0);
    footDb_ = -TSorBlockQRTParameters::Log5(kLongestPulseNs / (pulseNs + kShortestPulseNs), 1.0);
    return !(sor_->FxdParams->GetMinOwt() > pulseOwt_) && !(footDb_ > kShallowestFootDb);
  }

  // From half a dB below the launch peak down to the foot.
  void FindFall() {
    constexpr double kConnectorKm = 0.0075;    // behind the pulse, where the instrument's connector still is
    constexpr double kStartBelowPeakDb = 0.5;  // where the fall begins
    constexpr double kPeakAboveFootDb = 1.0, kLowFootDb = 3.0;  // a peak nearer to the foot moves it down
    const long peakEnd = PointAtOwt(*sor_, pulseOwt_ + sor_->dLenToOwt(kConnectorKm)) + 2;
    pulsePoints_ = PointAtOwt(*sor_, pulseOwt_) + 1;
    float peakDb;
    const long peak = RefAutoGetMax(sor_, 0, peakEnd, peakDb, -1);
    start_ = Below(peak, peakDb - kStartBelowPeakDb);
    if (peakDb - kPeakAboveFootDb < footDb_) footDb_ = peakDb - kLowFootDb;
    end_ = Below(start_, footDb_);
  }

  // No usable fall at that level: whatever falls steepest between the pulse and the noise.
  double RateDownToNoise() {
    constexpr double kOverNoiseDb = 5.0;
    start_ = TruncToLong(sor_->OwtTofNum(pulseOwt_) + 1.0);
    end_ = Below(start_, noiseFloorDb_ + kOverNoiseDb);
    if (end_ - start_ < kFewestFallPoints) return kNoFallDbPerKm;
    long at;
    return RefAutoSearchMaxFall(sor_, start_, end_, 1, at);
  }

  double RateOfFall() {
    constexpr double kSlowDbPerKm = 200.0;  // slower than this, the edge is too ragged for its steepest piece
    constexpr double kSlowestDbPerKm = 10.0;
    long steepest;
    double rate = SteepestDbPerKm(steepest);
    NarrowTo(steepest);
    if (rate < kSlowDbPerKm) {
      rate = (sor_->NumToLevel(start_) - sor_->NumToLevel(end_)) /
             (sor_->NumToALen(end_) - sor_->NumToALen(start_));
      if (!(rate >= kSlowestDbPerKm)) rate = kSlowestDbPerKm;  // also where the fall has no length
    }
    return rate;
  }

  // The base over which the fall is taken: half of the way to a deeper level where the fall goes on steeply
  // behind its foot, else a third of the fall.
  double SteepestDbPerKm(long& steepest) const {
    constexpr double kBelowFootDb = 1.5;
    const long deeper = Below(start_, footDb_ - kBelowFootDb);
    const bool goesOn = 2 * (deeper - end_) < end_ - start_;
    const long base = goesOn ? (deeper - end_ - 1) / 2 : (end_ - start_ - 2) / 3;
    return RefAutoSearchMaxFall(sor_, pulsePoints_, deeper, std::min(base, pulsePoints_ / 3) + 1, steepest);
  }

  // A fall longer than the pulse holds more than the receiver's: only what lies next to its steepest point
  // counts.
  void NarrowTo(long steepest) {
    if (!(pulsePoints_ < end_ - start_)) return;
    if (steepest - start_ < pulsePoints_) end_ = steepest + 1;
    if (steepest < end_ && end_ - steepest < pulsePoints_) start_ = steepest - 1;
  }

  long Below(long from, double levelDb) const {
    return RefAutoSearchStraightLess(sor_, from, static_cast<float>(levelDb));
  }

  TSorData* const sor_;
  const double pulseOwt_;
  double footDb_ = 0.0;  // level at the foot of the fall
  double noiseFloorDb_ = 0.0;
  long pulsePoints_ = 0;      // point behind the launch pulse
  long start_ = 0, end_ = 0;  // the fall
};

}  // namespace

double RefAutoGetDbOnOwt(TSorData* sor) {
  std::vector<TMeasurementMode>& modes = sor->QRTParams->modes;
  double dbPerKm = modes.empty() ? 0.0 : RateOnRecord(modes.front());
  if (!(dbPerKm > 0.0)) {
    dbPerKm = LaunchFall(sor).DbPerKm();
    if (!modes.empty()) modes.front().BWU1 = reflyze::TruncToShort(dbPerKm);
  }
  return dbPerKm / sor->dLenToOwt(1.0);
}

float RefAutoGetOwtBW(TSorData* sor) {
  constexpr double kRecoveryDb = 1.5;
  return static_cast<float>(kRecoveryDb / RefAutoGetDbOnOwt(sor));
}
