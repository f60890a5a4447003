// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <limits>

#include "ref/math/levelMean.h"
#include "ref/math/ref_Math.h"
#include "sor/sorData.h"
#include "util/convert.h"

// Mean power of a stretch. Averaging in dB follows the eye and is right where the level is well above the
// noise; averaging in linear power is right near the noise floor, where single samples fall to nothing and
// would pull a mean of logarithms down.

float* RefEmbGetLinf(TSorData* sor) { return static_cast<float*>(sor->GetEmbData(TEmbData1E::kLinearTrace)); }

using reflyze::LevelMean;
using reflyze::LevelView;
using reflyze::LinearScale;
using reflyze::TruncToLong;

namespace {

constexpr long kOutside = -1;  // stands for any point outside the trace

// A window of points as the trace sees it: the points that it has, and the number of those outside, which all
// read alike. A broken record can ask for any number of them, so they are counted and never walked over.
struct Window {
  long first, end;      // on the trace
  long before, behind;  // points outside

  Window(long wantedFirst, long wantedCount, long points) {
    // A window may not reach further than the largest number of a long.
    wantedFirst = std::min(wantedFirst, std::numeric_limits<long>::max() - 1);
    const long room = std::numeric_limits<long>::max() - std::max(wantedFirst, 0L);
    const long wantedEnd = wantedFirst + std::min(wantedCount, room);
    first = std::clamp(wantedFirst, 0L, points);
    end = std::clamp(wantedEnd, first, points);
    before = wantedFirst < 0 ? std::min(wantedEnd, 0L) - wantedFirst : 0;
    behind = wantedEnd > points ? wantedEnd - std::max(wantedFirst, points) : 0;
  }
  long count() const { return before + (end - first) + behind; }
};

// What `count` points outside add to a sum. `value` gives that of one, and is only called if there are any.
template <class Value>
auto SumOutside(long count, Value value) {
  using Real = decltype(value());
  return count > 0 ? static_cast<Real>(count) * value() : Real(0);
}

}  // namespace

double RefMathPower(TSorData* sor, long first, long count, int mode) {
  if (count < 1) return 0.0;
  const Window window(first, count, sor->DataPts->GetPointsNum());
  const auto points = static_cast<double>(window.count());
  if (mode == 0) {
    const LevelMean<double> levels(*sor);
    const auto outsideDb = [&levels] { return levels.LevelOf(kOutside); };
    const double sum = levels.SumFrom(SumOutside(window.before, outsideDb), window.first, window.end);
    return (sum + SumOutside(window.behind, outsideDb)) / points;
  }
  const TSorBlockQRTParameters& scale = *sor->QRTParams;
  const LevelView levels = sor->DataPts->Levels();
  const LinearScale linear = scale.ToLinear();
  const auto outsideLin = [&] { return linear.LinOf(levels[kOutside]); };
  double sum = SumOutside(window.before, outsideLin);
  for (long i = window.first; i < window.end; ++i) sum += linear.LinOf(levels[i]);
  sum += SumOutside(window.behind, outsideLin);
  return scale.NLogToLog(scale.LinToLog5(sum / points));
}

namespace {

// The sum of a window without what lies behind the trace. Each addition is made in double and kept as float.
// Of two floats that is exactly their sum in single precision, so samples of the array are added that way.
float LinearPowerOf(const TSorData& sor, const float* lin, const Window& window) {
  float sum = static_cast<float>(SumOutside(window.before, [&sor] { return sor.NumToLinLevel(kOutside); }));
  if (lin == nullptr) {
    for (long i = window.first; i < window.end; ++i) sum = static_cast<float>(sum + sor.NumToLinLevel(i));
  } else {
    for (long i = window.first; i < window.end; ++i) sum += lin[i];
  }
  return sum;
}

}  // namespace

float RefMathPower(TSorData* sor, float* lin, long first, long count, int mode) {
  const long points = sor->DataPts->GetPointsNum();
  if (first >= points || count < 1) return 0.0f;
  const Window window(first, count, points);
  const auto taken = static_cast<float>(window.count() - window.behind);
  if (mode == 0) {
    const LevelMean<float> levels(*sor);
    const float before = SumOutside(window.before, [&levels] { return levels.LevelOf(kOutside); });
    return levels.SumFrom(before, window.first, window.end) / taken;
  }
  const float mean = LinearPowerOf(*sor, lin, window) / taken;
  if (mode == 2) return mean;
  return sor->QRTParams->NLogToLog(sor->QRTParams->LinToLog5(mean));
}

double RefMathPower(TSorData* sor, double owt, double width, int mode) {
  const long first = TruncToLong(sor->OwtTofNum(owt));
  const double end = sor->OwtTofNum(owt + width);
  const long count = TruncToLong(end - static_cast<double>(first) + 0.5);
  return RefMathPower(sor, first, count, mode);
}

double RefMathAveragePointInSection(TSorData* sor, double owt1, double owt2, double scale) {
  const long first = TruncToLong(sor->OwtTofNum(owt1));
  const long last = TruncToLong(sor->OwtTofNum(owt2));
  if (first == last) return sor->NumToLevel(first) * scale;
  if (last < first) return 0.0;  // an empty section, answered like an empty stretch
  // A time before the trace is point -1, so that the number of points may exceed the largest long by one.
  constexpr long kMostCountable = std::numeric_limits<long>::max();
  const long count = last - std::max(first, 0L) >= kMostCountable - 1 ? kMostCountable : last - first + 1;
  const Window window(first, count, sor->DataPts->GetPointsNum());
  const auto outsideDb = [&] { return sor->NumToLevel(kOutside) * scale; };
  double sum = SumOutside(window.before, outsideDb);
  for (long i = window.first; i < window.end; ++i) sum += sor->NumToLevel(i) * scale;
  return (sum + SumOutside(window.behind, outsideDb)) / static_cast<double>(window.count());
}
