// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoNumerics.h"

#include <algorithm>
#include <cmath>

#include "ref/math/levelMean.h"
#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "sor/sorData.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/AutoLimits.h"
#include "util/convert.h"
#include "util/elementary.h"

// What can be told from noise. Levels are on the one-way scale: a step of x dB is a power ratio of 10^(x /
// 5). Noise at a level of 0 dB adds a relative error of 10^(-h / 5) to a signal h dB above it. From that
// follow the smallest credible step at a height, and the number of points to average for a given step:
// every mean over n points makes the noise smaller by the square root of n, which is 2.5 log10(n) dB on
// this scale.

namespace reflyze {

namespace {

constexpr double kStepMarginDb = 2.0;             // a step must clear the noise by this much to count
constexpr double kLeastFaultDb = 0.001;           // a demanded step of 0 or less stands for this one
constexpr double kLeastCredibleDb = 0.002;        // no step below this is credible, however strong the signal
constexpr double kHighestPowerDb = 65.535;        // top of the 16-bit level scale in 0.001 dB
constexpr double kLongestWindowPoints = 32767.0;  // longest window that is ever asked for

double AtLeastFaultDb(double faultDb) { return faultDb <= 0.0 ? kLeastFaultDb : faultDb; }

// One-way time of a place in km, in whole units.
long WholeOwt(const TSorData* sor, double km) { return TruncToInt(sor->dLenToOwt(km)); }

}  // namespace

double powDb(double x) { return elementary::Exp10((x > kHighestPowerDb ? kHighestPowerDb : x) / 5.0); }

double DbFault(double level, double fault) {
  return 5.0 * elementary::Log10(powDb(level) / (powDb(AtLeastFaultDb(fault)) - 1.0));
}

double RequirePower(double fault, long pts) {
  return -5.0 * elementary::Log10(powDb(AtLeastFaultDb(fault)) - 1.0) -
         2.5 * elementary::Log10(static_cast<double>(pts)) + kStepMarginDb;
}

long RequireAvgPin(double level, double fault) {
  double points = elementary::Exp10((RequirePower(fault, 1) - level) / 2.5);
  if (points > kLongestWindowPoints) points = kLongestWindowPoints;
  constexpr double kWholePoint = 0.999;  // a part of a point counts as one, but not a rounding error
  return TruncToLong(points + kWholePoint);
}

double RequireFault(double level, long pts) {
  const double averaged = static_cast<double>(std::max(pts, 1L));
  const double noiseToSignal = powDb(-(level - kStepMarginDb)) / std::sqrt(averaged);
  const double faultDb = 5.0 * elementary::Log10(noiseToSignal + 1.0) + kResolutionDb;
  return faultDb < kLeastCredibleDb ? kLeastCredibleDb : faultDb;
}

double GetFault(const TraceScale& scale, const NoiseSeen& noise, double level, long pts) {
  return noise.noiseAmp + RequireFault(level - scale.nf, pts);
}

long SetAvgPin(const TraceScale& scale, double level, double fault, long minPin, long maxPin) {
  constexpr long kFullGrowthPoints = 20;
  long points = RequireAvgPin(level - scale.nf, fault);
  // Long windows smear the events they look for, so that they grow only half as fast as the noise demands.
  if (points > kFullGrowthPoints) points = (points - kFullGrowthPoints) / 2 + kFullGrowthPoints;
  if (points < minPin) points = minPin;
  if (points > maxPin) points = maxPin;
  return points;
}

double AveragePower(const TraceScale& scale, long first, long count, int mode) {
  return RefMathPower(scale.sor, first, count, mode);
}

double AveragePower(TSorData* s, double owt, double dOwt, int mode) {
  const long first = TruncToInt(s->OwtTofNum(owt));
  const long count = TruncToInt(s->OwtTofNum(owt + dOwt) - static_cast<double>(first) + 0.5);
  return RefMathPower(s, first, count, mode);
}

double dAveragePower(const TraceScale& scale, long first, long count, int mode, double prev) {
  const TSorData& sor = *scale.sor;
  const TSorBlockQRTParameters& units = *sor.QRTParams;
  const long entering = first + count - 1;
  const long leaving = first - 1;
  const double points = static_cast<double>(count);
  if (mode == 0) return LevelMean<double>(sor).Moved(prev, first, count);
  const double change = (sor.NumToLinLevel(entering) - sor.NumToLinLevel(leaving)) / points;
  return units.NLogToLog(units.LinToLog5(change + units.Log5ToLin(prev, 1)));
}

float dAveragePower(const TraceScale& scale, float* lin, long first, long count, int mode, float prev) {
  const TSorData& sor = *scale.sor;
  const TSorBlockQRTParameters& units = *sor.QRTParams;
  const long entering = first + count - 1;
  const long leaving = first - 1;
  const float points = static_cast<float>(count);
  if (mode == 0) return LevelMean<float>(sor).Moved(prev, first, count);
  // The array ends where the trace does; outside it, the levels still have an answer.
  const long traceEnd = sor.DataPts->GetPointsNum();
  const bool inside = std::min(leaving, entering) >= 0 && std::max(leaving, entering) < traceEnd;
  if (lin == nullptr || !inside) return static_cast<float>(dAveragePower(scale, first, count, mode, prev));
  const float change = (lin[entering] - lin[leaving]) / points;
  return units.NLogToLog(units.LinToLog5(change + units.Log5ToLin(prev, 1)));
}

double LossPin(const TraceScale& scale, long a, long b, long pin, int mode) {
  const long distance = b - a - pin;  // from the middle of one window to that of the other
  if (pin >= distance) return 0.0;
  return (AveragePower(scale, a, pin, mode) - AveragePower(scale, b - pin, pin, mode)) /
         static_cast<double>(distance);
}

void LossSquare(TSorData* s, TEventLine& line) {
  SectionFits fits(*s);
  LossSquare(fits, line);
}

void LossSquare(SectionFits& fits, TEventLine& line) {
  const auto a = static_cast<double>(WholeOwt(&fits.trace(), line.L[0]));
  const auto b = static_cast<double>(WholeOwt(&fits.trace(), line.L[1]));
  if (!(b > a + 1.0)) return;
  const SectionFits::Line fit = fits.Of(a, b);
  line.P[0] = fit.LevelAt(a);
  line.P[1] = fit.LevelAt(b);
}

void LossfSquare(TSorData* s, TEventLine& line) {
  const long tracePoints = s->DataPts->GetPointsNum();
  const long a = HeldPoint(s->dLenToNum(line.L[0]), tracePoints);
  const long b = HeldPoint(s->dLenToNum(line.L[1]), tracePoints);
  if (b <= a + 1) return;
  float levelAtStart = 0.0F;
  float levelAtEnd = 0.0F;
  RefMathLSL2f(s, a, b, levelAtStart, levelAtEnd);
  line.P[0] = levelAtStart;
  line.P[1] = levelAtEnd;
}

long LossSquareTest(TSorData* s, TEventLine& line, long width, long margin) {
  const double owt0 = s->dLenToOwt(line.L[0]);
  const double owt1 = s->dLenToOwt(line.L[1]);
  RefMathLSL2(s, owt0, owt1, line.P[0], line.P[1]);
  const double slopeDbPerOwt = (line.P[1] - line.P[0]) / (owt1 - owt0);

  const long traceEnd = s->DataPts->GetPointsNum();
  const long first = TruncToInt(s->OwtTofNum(owt0)) + margin;
  const long end = std::min<long>(TruncToInt(s->OwtTofNum(owt1) + 0.5), traceEnd) - width - margin;
  double highestDb = 0.0;
  long at = 0;
  for (long k = first; k <= end; ++k) {
    const double middleOwt = (s->NumToOwt(k) + s->NumToOwt(k + width)) / 2.0;
    const double heightDb = RefMathPower(s, k, width, 0) - (line.P[0] + slopeDbPerOwt * (middleOwt - owt0));
    if (heightDb > highestDb) {
      highestDb = heightDb;
      at = k;
    }
  }
  line.peakLevel = highestDb;
  return at;
}

}  // namespace reflyze
