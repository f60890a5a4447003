// SPDX-License-Identifier: Apache-2.0

// What the noise of a trace is, and how uncertain it makes levels and losses.
//
// Noise is measured as the root mean square of differences, on the linear trace, behind the last event,
// and clear of the places to which strong reflections repeat: light that goes to and fro between a strong
// reflection and the instrument comes back from twice and three times the distance.

#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "sor/sorData.h"
#include "src/filter/Filter.h"
#include "src/filter/Optics.h"
#include "util/convert.h"

using reflyze::kNearMeanPoints;
using reflyze::TruncToLong;

namespace {

double Square(double x) { return x * x; }
bool IsInside(double difference, double limit) { return std::fabs(difference) <= limit; }

// How far samples stray from the running mean that lies `lag` points ahead, which is centred on them. For the
// last samples in front of `b` there is no such mean: their own counts, and they add to the sum without being
// counted, so that the figure is rather too large than too small.
double DeviationFromMean(const reflyze::HeldSamples& lin, const reflyze::HeldSamples& mean, long a, long b,
                         double limit) {
  constexpr long kHalfMean = kNearMeanPoints / 2;  // points
  const long lag = b - a < 2 * kHalfMean ? 0 : kHalfMean;
  double sum = 0.0;
  long count = 0;
  long i = a;
  for (; i < b - lag; ++i) {
    const double d = static_cast<double>(lin[i]) - mean[i + lag];
    if (!IsInside(d, limit)) continue;
    sum += Square(d);
    ++count;
  }
  for (; i < b; ++i) {
    const double d = static_cast<double>(lin[i]) - mean[i];
    if (IsInside(d, limit)) sum += Square(d);
  }
  return count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
}

}  // namespace

// A steady slope makes all differences of one sign: the imbalance between both is taken off.
int TSorFilter::CalcLinfNoise(long a, long b, long step, float limit, float* p, float& out) const {
  step = std::max(step, 1L);
  double plus = 0.0, minus = 0.0;
  long count = 0;
  for (long i = a; i <= b - step; i += step) {
    const double d = static_cast<double>(p[i]) - p[i + step];
    if (limit > 0.0F && !IsInside(d, limit)) continue;
    (d > 0.0 ? plus : minus) += Square(d);
    ++count;
  }
  const double balanced = (plus + minus) / 2.0 - std::fabs(plus - minus);
  const double variance = count == 0 ? 0.0 : balanced / static_cast<double>(count);
  out = variance > 0.0 ? static_cast<float>(std::sqrt(variance)) : 0.0F;
  return 1;
}

int TSorFilter::CalcLinfNoise(long a, long b, float& fast, float& slow) {
  constexpr float kGate = 4.0F;                            // times the noise: what differs more is an event
  constexpr float kFastPeakDb = 2.5F, kSlowPeakDb = 2.4F;  // from the mean square of noise to its peaks
  const reflyze::HeldSamples lin = HeldLinf(), mean = HeldLinfAvg();
  if (lin.empty() || mean.empty()) return 0;
  const long last = std::min(lin.count(), mean.count()) - 1;
  a = std::clamp(a, 0L, last);
  b = std::clamp(b, 0L, last);

  float all = 0.0F, single = 0.0F, averaged = 0.0F;
  CalcLinfNoise(a, b, 1, -1.0F, Linf, all);
  const float gate = kGate * all;
  const float deviation = static_cast<float>(DeviationFromMean(lin, mean, a, b, gate));
  CalcLinfNoise(a, b, 1, gate, Linf, single);
  CalcLinfNoise(a, b, kNearMeanPoints, gate / 3, LinfAvg.data(), averaged);
  fast = pSorData->QRTParams->LinToLog5((single + deviation) / 2) + kFastPeakDb;
  slow = pSorData->QRTParams->LinToLog5(averaged) + kSlowPeakDb;
  return 1;
}

// --- Where to measure it ---

namespace {

constexpr float kNotMeasuredDb = -100.0F;

// Where the strongest repetition of a reflection falls that lies behind the last event.
struct RepeatedReflection {
  long point = 0;
  double levelDb = kNotMeasuredDb;

  void Take(long at, double atDb, long behind, long before) {
    if (at <= behind || at >= before || atDb <= levelDb) return;
    point = at;
    levelDb = atDb;
  }
};

class NoiseStretches {
 public:
  explicit NoiseStretches(TSorFilter& filter)
      : filter_(filter),
        sor_(*filter.pSorData),
        endPoint_(filter.result.events[filter.result.count - 1].end),
        lastPoint_(sor_.DataPts->GetPointsNum() - 1),
        lastQuarter_(3 * lastPoint_ / 4) {}

  long Run() {
    FindEcho();
    filter_.result.noiseLow = filter_.result.noiseHigh = kNotMeasuredDb;
    const double kClearOfEchoDb = 14.0;  // above the noise floor
    const bool echoIsWeak =
        echo_.point < lastQuarter_ || echo_.levelDb < sor_.FxdParams->GetNF() + kClearOfEchoDb;
    if (echoIsWeak && endPoint_ < lastQuarter_) return 1;
    if (echo_.point > lastQuarter_ && endPoint_ > lastQuarter_) {
      if (endPoint_ < echo_.point) {
        MeasureAroundEcho(endPoint_);
      } else {
        Measure(endPoint_, lastPoint_);
      }
      return 2;
    }
    if (endPoint_ > lastQuarter_) {
      Measure(endPoint_, lastPoint_);
      return 3;
    }
    if (echo_.point > lastQuarter_ && endPoint_ < lastQuarter_) {
      MeasureAroundEcho(lastQuarter_);
      return 4;
    }
    return 0;
  }

 private:
  static constexpr int kEchoGrade = 9;         // stronger reflections repeat at twice their distance
  static constexpr int kSecondEchoGrade = 14;  // and these at three times
  static constexpr double kAboveSaturationDb = 3.0;
  static constexpr double kSecondEchoDb = 7.0;  // by which the second echo lies below the first

  void FindEcho() {
    RepeatedReflection second;
    for (long i = 0; i < filter_.result.count; ++i) {
      const TFEvent& event = filter_.result.events[i];
      if (event.Am() <= kEchoGrade) continue;
      const long twice = 2L * event.peak, thrice = 3L * event.peak;
      double levelDb = sor_.NumToLevel(event.peak);
      if (levelDb > reflyze::kClipsLevelDb) levelDb += kAboveSaturationDb;
      levelDb -= FibreDb(twice, lastQuarter_);
      echo_.Take(twice, levelDb, endPoint_, lastPoint_);
      if (event.Am() <= kSecondEchoGrade) continue;
      second.Take(thrice, levelDb - FibreDb(twice, thrice), endPoint_, lastPoint_);
    }
    if (second.point > 0 && second.levelDb - kSecondEchoDb > echo_.levelDb) {
      echo_ = {second.point, second.levelDb - kSecondEchoDb};
    }
  }

  double FibreDb(long from, long to) const { return static_cast<double>(to - from) * filter_.dbOnDS; }

  void MeasureAroundEcho(long from) {
    Measure(from, echo_.point - filter_.pulsePoints);
    Measure(echo_.point + filter_.pulsePoints, lastPoint_);
  }

  // Of two stretches the noisier one counts.
  void Measure(long from, long to) {
    float fast = kNotMeasuredDb, slow = kNotMeasuredDb;
    filter_.CalcLinfNoise(from, to, fast, slow);
    filter_.result.noiseLow = std::max(filter_.result.noiseLow, fast);
    filter_.result.noiseHigh = std::max(filter_.result.noiseHigh, slow);
  }

  TSorFilter& filter_;
  TSorData& sor_;
  const long endPoint_;  // of the last event
  const long lastPoint_;
  const long lastQuarter_;  // its first point
  RepeatedReflection echo_;
};

}  // namespace

long TSorFilter::AutoFilterCalcNoise() {
  if (pSorData == nullptr || result.events == nullptr || result.count <= 0) return 0;
  return NoiseStretches(*this).Run();
}

// --- What it costs ---

namespace {

// The uncertainty of a level that was averaged over so many points, from the noise below it.
class LevelError {
 public:
  LevelError(const TSorFilter& filter, long a, long b, bool atEnd)
      : filter_(filter), sor_(*filter.pSorData), a_(a), b_(b), count_(std::max(b - a, 1L)), atEnd_(atEnd) {
    floorDb_ = sor_.FxdParams->GetNF();
    levelDb_ = sor_.NumToLevel(atEnd ? b : a);
    mode_ = floorDb_ + kAveragedInDb < levelDb_ ? 0 : 1;
    averaged_ = AveragedPoints();
  }

  float Run() {
    if (averaged_ < kNearMeanPoints) {
      TakeShortMean();
    } else {
      TakeLongMean();
    }
    const double height = TSorBlockQRTParameters::poww(levelDb_ - floorDb_);
    const double ratio = height * std::sqrt(static_cast<double>(averaged_) / floorPoints_);
    return std::max(UncertaintyDb(static_cast<float>(ratio)), filter_.result.polar);
  }

 private:
  static constexpr double kAveragedInDb = 5.0;  // from there on levels are averaged in dB
  static constexpr long kMostAveraged = 128;    // that are averaged where no map says how many
  static constexpr long kFewPoints = 7;         // above, the slow figure of the noise is the nearer one
  static constexpr float kNoSignalDb = 65.5F;   // uncertainty of what is not above the noise

  long AveragedPoints() const {
    if (filter_.result.pointMap == nullptr) return std::min(count_, kMostAveraged);
    const long points = sor_.DataPts->GetPointsNum();
    if (points == 0) return 1;
    const long at = atEnd_ && count_ >= kMostAveraged ? a_ + kMostAveraged : b_;
    return std::max<long>(filter_.result.pointMap[std::clamp(at, 0L, points - 1)], 1);
  }

  void TakeShortMean() {
    if (averaged_ > kFewPoints) TakeSlowNoise();
    if (b_ - a_ <= 1) return;
    levelDb_ = atEnd_ ? sor_.NumToLevel(b_) : MeanBeforeEnd() + FibreDb(count_);
  }

  void TakeLongMean() {
    if (!TakeSlowNoise() && filter_.result.noiseLow < 0.0F) floorDb_ = filter_.result.noiseLow;
    levelDb_ = atEnd_ ? MeanBeforeEnd() : sor_.NumToLevel(a_ + averaged_) + FibreDb(averaged_);
  }

  // Whether it was measured: a level of 0 says that it was not.
  bool TakeSlowNoise() {
    if (!(filter_.result.noiseHigh < 0.0F)) return false;
    floorDb_ = filter_.result.noiseHigh;
    floorPoints_ = kNearMeanPoints;
    return true;
  }

  double MeanBeforeEnd() const { return RefMathPower(&sor_, b_ - averaged_, averaged_, mode_); }
  double FibreDb(long points) const { return static_cast<double>(points) * filter_.dbOnDS; }

  // From a level to the same level less one unit of noise.
  static float UncertaintyDb(float ratio) {
    if (!(ratio > 1.0F)) return kNoSignalDb;
    return TSorBlockQRTParameters::flog5t(ratio) - TSorBlockQRTParameters::flog5t(ratio - 1.0F);
  }

  const TSorFilter& filter_;
  TSorData& sor_;
  const long a_, b_;
  const long count_;  // points from one to the other
  const bool atEnd_;
  double floorDb_;          // of the noise
  double floorPoints_ = 1;  // points averaged in that figure
  double levelDb_;          // of the signal
  int mode_;                // of a mean: 0 in dB, 1 in linear power
  long averaged_;           // points averaged in the signal
};

}  // namespace

float TSorFilter::GetNoiseError(float owtA, float owtB, int atEnd) const {
  if (pSorData == nullptr) return 0.0F;
  const long a = TruncToLong(pSorData->OwtTofNum(owtA));
  const long b = TruncToLong(pSorData->OwtTofNum(owtB));
  return LevelError(*this, a, b, atEnd != 0).Run();
}

float TSorFilter::GetKeyEventNoiseError(TSorBlockKeyEvents1E* event) const {
  if (event == nullptr) return 0.0F;
  return GetNoiseError(static_cast<float>(event->ML0), static_cast<float>(event->ML1), 1) +
         GetNoiseError(static_cast<float>(event->ML2), static_cast<float>(event->ML3), 0);
}
