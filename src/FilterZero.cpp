// The zero of the receiver.
//
// Where no light comes back a receiver should read zero. With long pulses over long ranges a trace is
// averaged so often that the noise sinks below what the receiver is off: the level runs out into a shelf, or
// dives below the floor of the scale, and the running means of the filter bring out nothing but that offset.
// Behind the end of the signal it can be measured: there the linear trace is level, where a fibre would go on
// falling. A fibre that is longer than the range leaves no such place, and its trace stays as it is.

#include <cmath>

#include "ref/refAuto.h"
#include "ref/ref_Math.h"
#include "sor/sorData.h"
#include "src/Filter.h"

namespace {

// The mean of the last samples in linear power, if they are level.
class ReceiverOffset {
 public:
  ReceiverOffset(TSorData& sor, TSorFilter& filter, float* lin)
      : filter_(filter),
        lin_(lin),
        points_(sor.DataPts->GetPointsNum()),
        fibreDbPerPoint_(RefAutoGetLoss(&sor) * sor.FxdParams->LenDS()) {}

  // The longest level stretch at the end of the trace counts: the noise in its mean is the smallest. Whether
  // there was one.
  bool Measure(double& offsetLin) {
    const long fewest = std::max(points_ / kShortestPart, kFewestPoints);
    for (long count = points_ / kLongestPart; count >= fewest; count /= 2) {
      if (IsLevel(points_ - count, count, offsetLin)) return true;
    }
    return false;
  }

 private:
  static constexpr long kLongestPart = 4;    // of the trace: more of it is hardly ever free of signal
  static constexpr long kShortestPart = 80;  // less of it does not tell a fibre from an offset
  static constexpr long kFewestPoints = 100;
  // Standard errors of the difference between both halves by which a fibre of that level would have to
  // differ.
  static constexpr double kErrorsToTell = 4.0;
  static constexpr double kLevelShare = 0.5;  // of that fibre's fall: what falls less is no fibre

  bool IsLevel(long first, long count, double& meanLin) {
    const long half = count / 2;
    const double frontLin = RefAutoGetAverage(lin_, first, half);
    const double behindLin = RefAutoGetAverage(lin_, first + half, half);
    meanLin = (frontLin + behindLin) / 2.0;
    float noiseLin = 0.0F;
    filter_.CalcLinfNoise(first, first + 2 * half - 1, 1, -1.0F, lin_, noiseLin);
    const double errorLin = noiseLin * std::sqrt(2.0 / static_cast<double>(half));
    const double fibreLin =
        std::fabs(meanLin) * (1.0 - std::pow(10.0, -fibreDbPerPoint_ * static_cast<double>(half) / 5.0));
    return fibreLin > kErrorsToTell * errorLin && std::fabs(frontLin - behindLin) < kLevelShare * fibreLin;
  }

  TSorFilter& filter_;
  float* lin_;
  const long points_;
  const double fibreDbPerPoint_;
};

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

// Both traces are corrected, the filtered and the unfiltered one: the record notes the correction, and must
// not come back without it when the filter is undone.
void TSorFilter::ZeroCorrect(TSorData* sor) {
  if (sor == nullptr) return;
  float* lin = RefEmbGetLinf(sor);
  double offsetLin = 0.0;
  if (lin == nullptr || !ReceiverOffset(*sor, *this, lin).Measure(offsetLin)) return;
  for (long i = 0; i < sor->DataPts->GetPointsNum(); ++i) lin[i] = static_cast<float>(lin[i] - offsetLin);
  TakeOut(offsetLin, *sor->QRTParams, *sor->DataPts);
  if (sor->DataPtsBackup != nullptr) TakeOut(offsetLin, *sor->QRTParams, *sor->DataPtsBackup);
}
