// SPDX-License-Identifier: Apache-2.0

// The zero of the receiver.
//
// Where no light comes back a receiver should read zero. With long pulses over long ranges a trace is
// averaged so often that the noise sinks below what the receiver is off: the level runs out into a shelf, or
// dives below the floor of the scale, and the running means of the filter bring out nothing but that offset.
// Behind the end of the signal it can be measured: there the trace is level, where a fibre would go on
// falling. A fibre that is longer than the range leaves no such place, and its trace stays as it is.

#include <algorithm>
#include <cmath>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/Filter.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;

namespace {

// Finds the end of a trace, in linear power, that is level.
class LevelEnd {
 public:
  LevelEnd(TSorData& sor, const TSorFilter& filter, std::vector<float>& power)
      : filter_(filter),
        power_(power),
        points_(static_cast<long>(power.size())),
        fibreDbPerPoint_(RefAutoGetLoss(&sor) * sor.FxdParams->LenDS()) {}

  // Its points; the more, the better known is their mean. 0 when the trace has no level end.
  long Find() const {
    const long fewest = std::max(points_ / kShortestPart, kFewestLevelPoints);
    for (long count = points_ / kLongestPart; count >= fewest; count /= 2) {
      if (IsLevel(count)) return count;
    }
    return 0;
  }

 private:
  static constexpr long kLongestPart = 4;    // of the trace: more of it is hardly ever free of signal
  static constexpr long kShortestPart = 80;  // less of it does not tell a fibre from an offset
  static constexpr long kFewestLevelPoints = 100;
  // Standard errors of the difference between both halves by which a fibre of that level would have to
  // differ.
  static constexpr double kErrorsToTell = 4.0;
  static constexpr double kLevelShare = 0.5;  // of that fibre's fall: what falls less is no fibre

  bool IsLevel(long count) const {
    const long first = points_ - count, half = count / 2;
    const double frontLin = RefAutoGetAverage(power_.data(), first, half);
    const double behindLin = RefAutoGetAverage(power_.data(), first + half, half);
    float noiseLin = 0.0F;
    filter_.CalcLinfNoise(first, points_ - 1, 1, -1.0F, power_.data(), noiseLin);
    const double errorLin = noiseLin * std::sqrt(2.0 / static_cast<double>(half));
    const double fibreLin = std::fabs(frontLin + behindLin) / 2.0 *
                            (1.0 - elementary::Exp10(-fibreDbPerPoint_ * static_cast<double>(half) / 5.0));
    return fibreLin > kErrorsToTell * errorLin && std::fabs(frontLin - behindLin) < kLevelShare * fibreLin;
  }

  const TSorFilter& filter_;
  std::vector<float>& power_;
  const long points_;
  const double fibreDbPerPoint_;
};

std::vector<float> Power(const TSorBlockQRTParameters& scale, const TSorBlockDataPoints& points) {
  std::vector<float> power;
  power.reserve(static_cast<size_t>(points.GetPointsNum()));
  for (long i = 0; i < points.GetPointsNum(); ++i) {
    power.push_back(static_cast<float>(scale.Log5ToLin(points.numToLevel(i))));
  }
  return power;
}

// High above the offset, where it would not move a level by half a unit of the samples, the levels stay as
// they are: the way to linear power and back costs as much.
void TakeOut(double offsetLin, const TSorBlockQRTParameters& scale, TSorBlockDataPoints& points) {
  constexpr double kLeastShare = 0.0002;  // about 0.0005 dB
  for (long i = 0; i < points.GetPointsNum(); ++i) {
    const double lin = scale.Log5ToLin(points.numToLevel(i));
    if (std::fabs(offsetLin) < kLeastShare * lin) continue;
    points.SetLevel(i, scale.LinToLog5(lin - offsetLin));
  }
}

}  // namespace

// The levels are corrected twice where they stand twice, filtered and unfiltered: the record notes the
// correction, and must not come back without it when the filter is undone. What is taken out of the linear
// trace is its own mean: the noise estimate may have lifted it already.
void TSorFilter::ZeroCorrect(TSorData* sor) {
  if (sor == nullptr) return;
  float* lin = RefEmbGetLinf(sor);
  const TSorBlockDataPoints& raw = sor->DataPtsBackup != nullptr ? *sor->DataPtsBackup : *sor->DataPts;
  const long points = raw.GetPointsNum();
  if (lin == nullptr || points != sor->DataPts->GetPointsNum()) return;
  std::vector<float> power = Power(*sor->QRTParams, raw);
  const long level = LevelEnd(*sor, *this, power).Find();
  if (level == 0) return;

  const double offsetLin = RefAutoGetAverage(power.data(), points - level, level);
  TakeOut(offsetLin, *sor->QRTParams, *sor->DataPts);
  if (sor->DataPtsBackup != nullptr) TakeOut(offsetLin, *sor->QRTParams, *sor->DataPtsBackup);
  const double ownOffsetLin = RefAutoGetAverage(lin, points - level, level);
  for (long i = 0; i < points; ++i) lin[i] = static_cast<float>(lin[i] - ownOffsetLin);
}
