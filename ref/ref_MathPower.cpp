#include <algorithm>

#include "ref/levelMean.h"
#include "ref/ref_Math.h"
#include "ref/traceWalk.h"
#include "sor/sorData.h"

// Mean power of a stretch. Averaging in dB follows the eye and is right where the level is well above the
// noise; averaging in linear power is right near the noise floor, where single samples fall to nothing and
// would pull a mean of logarithms down.

float* RefEmbGetLinf(TSorData* sor) { return static_cast<float*>(sor->GetEmbData(TEmbData1E::kLinearTrace)); }

using reflyze::LevelMean;
using reflyze::LevelView;
using reflyze::LinearScale;

namespace {

// Points of a stretch that lie further outside than the trace is long add nothing but work: they all read as
// the same -65.5 dB. A stretch asked for by mistake is cut there.
struct HeldStretch {
  long first;
  long end;

  HeldStretch(const TSorData& sor, long wantedFirst, long count) {
    const long points = sor.DataPts->GetPointsNum();
    const long outermost = 2 * points + 1;
    first = std::clamp(wantedFirst, -points - 1, outermost);
    if (first > wantedFirst) count -= first - wantedFirst;
    end = first + std::clamp(count, 1L, std::max(outermost - first, 1L));
  }
  long count() const { return end - first; }
};

}  // namespace

double RefMathPower(TSorData* sor, long first, long count, int mode) {
  if (count < 1) return 0.0;
  const TSorBlockQRTParameters& scale = *sor->QRTParams;
  const HeldStretch stretch(*sor, first, count);
  const LevelView levels = sor->DataPts->Levels();
  double sum = 0.0;
  if (mode != 0) {
    const LinearScale linear = scale.ToLinear();
    for (long i = stretch.first; i < stretch.end; ++i) sum += linear.LinOf(levels[i]);
    return scale.NLogToLog(scale.LinToLog5(sum / static_cast<double>(stretch.count())));
  }
  return LevelMean<double>(*sor).Over(stretch.first, stretch.end);
}

namespace {

// Each addition is made in double and kept as float. Of two floats that is exactly their sum in single
// precision, so samples of the array are added that way.
float MeanLinearPower(const TSorData& sor, const float* lin, long first, long end) {
  const long inArray = lin != nullptr ? std::clamp(0L, first, end) : end;
  float sum = 0.0f;
  for (long i = first; i < inArray; ++i) sum = static_cast<float>(sum + sor.NumToLinLevel(i));
  for (long i = inArray; i < end; ++i) sum += lin[i];
  return sum / static_cast<float>(end - first);
}

}  // namespace

float RefMathPower(TSorData* sor, float* lin, long first, long count, int mode) {
  const long points = sor->DataPts->GetPointsNum();
  if (first >= points || count < 1) return 0.0f;
  const HeldStretch stretch(*sor, first, count);
  const long end = std::min(stretch.end, points);
  if (mode == 0) return LevelMean<float>(*sor).Over(stretch.first, end);
  const float mean = MeanLinearPower(*sor, lin, stretch.first, end);
  if (mode == 2) return mean;
  return sor->QRTParams->NLogToLog(sor->QRTParams->LinToLog5(mean));
}

double RefMathPower(TSorData* sor, double owt, double width, int mode) {
  const long first = reflyze::PointAtOwt(*sor, owt);
  const double end = sor->OwtTofNum(owt + width);
  const long count = reflyze::TruncToLong(end - static_cast<double>(first) + 0.5);
  return RefMathPower(sor, first, count, mode);
}

double RefMathAveragePointInSection(TSorData* sor, double owt1, double owt2, double scale) {
  const long first = reflyze::PointAtOwt(*sor, owt1);
  const long last = reflyze::PointAtOwt(*sor, owt2);
  if (first == last) return sor->NumToLevel(first) * scale;
  if (last < first) return 0.0;  // an empty section, answered like an empty stretch
  double sum = 0.0;
  for (long i = first; i <= last; ++i) sum += sor->NumToLevel(i) * scale;
  return sum / static_cast<double>(last - first + 1);
}
