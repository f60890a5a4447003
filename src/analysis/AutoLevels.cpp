// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoLevels.h"

#include <algorithm>
#include <cmath>

#include "ref/math/levelMean.h"
#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/scale/sorMath.h"
#include "sor/sorData.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/AutoLimits.h"

// The point-level tools of the direct search: how noisy a stretch is, where a fall begins and where it is
// over, the extremes of a stretch, and where the trace or its running mean passes a level.

namespace reflyze {

// --- Noise and slope ---

double GetTypPol(const TraceScale& scale) {
  // Backscatter of a source swings the less the longer the pulse is, over which it is averaged.
  constexpr double kSwingDb = 0.5;  // of a pulse of 1 ns
  return kSwingDb / std::sqrt(scale.sor->FxdParams->GetNsPulse(0.0)) + kResolutionDb;
}

int GetPol(const TraceScale& scale, long a, long b, double& pol, double& slope) {
  constexpr double kLeastPolDb = 0.002;
  constexpr double kMostPolDb = 0.25;
  pol = 0.0;
  slope = 0.0;
  float sigmaDb = 0.0F;
  float levelAtStart = 0.0F;
  float levelAtEnd = 0.0F;
  if (RefMathSQO(scale.sor, a, b, sigmaDb, levelAtStart, levelAtEnd) == 0) return 0;

  const double level = levelAtEnd;
  slope = (static_cast<double>(levelAtStart) - level) / static_cast<double>(b - a);
  if (level - sigmaDb < scale.nf + kOverNoiseDb)
    return 1;  // the stretch sinks into the noise: its scatter tells nothing
  // Two sigma up and down, with the receiver's own noise taken off above and added below.
  const double swingDb = 2.0 * sigmaDb;
  const double receiverNoise = 2.0 * SorMathPow5(scale.nf - kNoiseMeanDb);
  const double swing = SorMathLog5(SorMathPow5(level + swingDb) - receiverNoise) -
                       SorMathLog5(SorMathPow5(level - swingDb) + receiverNoise);
  pol = std::clamp(swing, kLeastPolDb, kMostPolDb);
  return 1;
}

int GetPol(const TraceScale& scale, int minPin, long a, long n, long limit, double& pol, double& slope) {
  const long from = std::min(std::max(a - 4 * n, limit), (a + limit) / 2);
  const int measured = GetPol(scale, from, a + n, pol, slope);
  // A stretch noisier than its pulse should be may hold an event: then the part behind `a` tells more.
  if (pol > GetTypPol(scale) && n >= minPin) {
    double shorterPol = 0.0;
    double shorterSlope = 0.0;
    if (GetPol(scale, a, a + n, shorterPol, shorterSlope) != 0) pol = std::min(pol, shorterPol);
  }
  return measured;
}

// --- Rolling back from an event and forward behind it ---

long OtkatEnd(const TraceScale& scale, long end, long begin, double noise) {
  constexpr double kStrongNoiseDb = 0.75;
  long reach = scale.winEvent - scale.winPulse + 1;
  if (noise > kStrongNoiseDb) reach *= 2;
  return RefAutoOtkatEnd(scale.sor, end, std::max(begin, end - reach), noise);
}

long OtkatMax(const TraceScale& scale, long from, long begin, double slope) {
  long p = from;
  for (; p > begin + 1; --p) {
    // Going back up a fall, the level grows by more than the fibre's slope until the fall's beginning is
    // reached.
    const float ref = static_cast<float>(scale.sor->NumToLevel(p) + 1.5 * slope);
    if (scale.sor->NumTofLevel(p - 1) >= ref) continue;
    if (p <= begin + 2 || scale.sor->NumTofLevel(p - 2) < static_cast<float>(ref + 3.0 * slope)) return p;
  }
  return p;
}

long NakatMax(const TraceScale& scale, long from, long to) {
  const float start = scale.sor->NumTofLevel(from);
  for (long p = from; p < to - 2; ++p) {
    if (scale.sor->NumTofLevel(p + 1) < start && scale.sor->NumTofLevel(p + 2) < start) return p;
  }
  return to - 2;
}

long NakatDZ(const TraceScale& scale, long from, long width, long to, double max, double min) {
  const double lengthKm = scale.sor->NumToALen(from + width) - scale.sor->NumToALen(from);
  const double steepestDb = max * lengthKm;
  const double flattestDb = min * lengthKm;
  const long averaged = width / 10 + 1;
  // One point past the end of the trace is as far as any caller looks.
  to = std::min(to, scale.sor->DataPts->GetPointsNum() + width + averaged + 1);
  double near = AveragePower(scale, from, averaged, 0);
  double far = AveragePower(scale, from + width, averaged, 0);
  const auto moveOn = [&scale, averaged](double mean, long p) {
    return mean +
           (scale.sor->NumToLevel(p + averaged) - scale.sor->NumToLevel(p)) / static_cast<double>(averaged);
  };
  long p = from;
  for (; p < to - width - averaged; ++p) {
    const double fallDb = near - far;
    if (fallDb < steepestDb && fallDb > flattestDb) return p;
    near = moveOn(near, p);
    far = moveOn(far, p + width);
  }
  return p;
}

// --- Extremes ---

namespace {

// The first extreme level of `from` to `from` + `count`. Points outside the trace all read alike, so that one
// on each side stands for them.
template <class Better>
double ExtremeLevel(const TSorData* sor, long from, long count, long& pos, Better better) {
  double extreme = sor->NumToLevel(from);
  pos = from;
  const long last = std::min(from + count, sor->DataPts->GetPointsNum());
  for (long p = std::max(from + 1, 0L); p <= last; ++p) {
    const double level = sor->NumToLevel(p);
    if (better(level, extreme)) {
      extreme = level;
      pos = p;
    }
  }
  return extreme;
}

}  // namespace

double GetMax(const TraceScale& scale, long from, long count) {
  long pos = 0;
  return GetMax(scale, from, count, pos);
}

double GetMax(const TraceScale& scale, long from, long count, long& pos) {
  return ExtremeLevel(scale.sor, from, count, pos, [](double a, double b) { return a > b; });
}

double GetMin(const TraceScale& scale, long from, long count, long& pos) {
  return ExtremeLevel(scale.sor, from, count, pos, [](double a, double b) { return a < b; });
}

void GetMaxRef(const TraceScale& scale, long from, long count, TEventLine& line) {
  long peak = 0;
  line.peakLevel = GetMax(scale, from, count, peak);
  line.peakLen = scale.sor->NumToALen(peak);
}

long GetLocalMinMax(const TraceScale& scale, long a, long b, long w, long avg, float h) {
  if (b - a < 2 * w || b - a < 3 * avg) return 0;
  long firstTop = 0;
  long secondTop = 0;
  long dip = 0;
  double first = GetMax(scale, a, w, firstTop);
  double second = GetMax(scale, b - w - 1, w, secondTop);
  double low = GetMin(scale, firstTop, secondTop - firstTop, dip);
  const auto isDip = [&] { return first - low > h && second - low > h && dip < secondTop; };
  if (!isDip()) return 0;
  if (avg > 1) {
    // Single points near the noise jump by more than any dip: means have to show it as well.
    const auto steady = [&](double& level, long point) {
      if (level < scale.nf + kPointsTellDb) level = AveragePower(scale, point, avg, 1);
    };
    steady(first, firstTop);
    steady(second, secondTop);
    steady(low, dip);
    if (!isDip()) return 0;
  }
  return dip;
}

// --- Where a level is passed ---

long SearchStraightGreather(const TraceScale& scale, long from, double level) {
  return RefAutoSearchStraightGreather(scale.sor, from, static_cast<float>(level));
}

long SearchBackGreather(const TraceScale& scale, long from, double level) {
  return RefAutoSearchBackGreather(scale.sor, from, static_cast<float>(level));
}

long SearchBackLess(const TraceScale& scale, long from, double level, long limit) {
  return RefAutoSearchBackLess(scale.sor, from, static_cast<float>(level), limit);
}

long SearchStraightLess(const TraceScale& scale, long from, float level, long pin, float guard) {
  if (guard >= 0.0F) guard = static_cast<float>(scale.nf - kNoiseMeanDb);
  pin = std::max(pin, 1L);
  if (pin == 1) {
    long p = from;
    for (; p < scale.nPoints - 1; ++p) {
      const float here = scale.sor->NumTofLevel(p);
      if (here < level || here < guard) break;
    }
    return p;
  }
  // Near the guard the mean of levels in dB is drawn down by the noise, and only linear power averages truly.
  // Once the trace has come that close, it stays with linear power.
  const LevelMean<double> means(*scale.sor);
  bool linear = false;
  double mean = AveragePower(scale, from, pin, 0);
  long p = from;
  while (p < scale.nPoints - pin) {
    if (!linear && mean < guard + static_cast<float>(kOverNoiseDb)) {
      linear = true;
      mean = AveragePower(scale, p, pin, 1);
    }
    if (mean < level || mean < guard) break;
    ++p;
    mean = linear ? dAveragePower(scale, p, pin, 1, mean) : means.Moved(mean, p, pin);
  }
  return p;
}

long StraightGreatherLine(const TraceScale& scale, long a, long b, double level, double slope, long w) {
  const TSorBlockFixedParameters& base = *scale.sor->FxdParams;
  const double stepDb = slope * base.OwtToLen(base.GetOwtDS(base.NumToNPW(a)));
  double dropDb = static_cast<double>(w / 2) * stepDb;
  b = std::min(b, scale.nPoints);
  double mean = AveragePower(scale, a, w, 1);
  for (long p = a; p < b - w; ++p) {
    if (mean > level - dropDb) return p + w / 2;
    dropDb += stepDb;
    mean = dAveragePower(scale, p + 1, w, 1, mean);
  }
  return b - w;
}

}  // namespace reflyze
