// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/math/traceWalk.h"
#include "sor/scale/sorMath.h"
#include "sor/sorData.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;

// Closed-form models of what a pulse makes of the fibre.
//
// A splice under a rectangular pulse is not a step: while the pulse lies across it, the backscatter comes
// partly from the fibre before it and partly, already weakened, from the fibre behind it. Each part is the
// integral of an exponential over the share of the pulse that lies on its side.

double RefMathAmplitudePulse(double pulse, double dbPerUnit, double spacing) {
  // The receiver rises towards the peak as it falls behind it, and has a pulse's length to do so.
  const double rise = 1.0 - SorMathPow5(-pulse * dbPerUnit);
  // The sample that shows the peak is a mean over a part of the spacing.
  constexpr double kSpacingOverWindow = 1.2;
  const double window = std::min(spacing, pulse) / kSpacingOverWindow;
  return rise * ((pulse / window) * (1.0 - elementary::Exp(-window / pulse)));
}

double RefMathLinearFactor(double a, double b, double c) {
  if (b * a <= 0.0) return 0.0;
  return 5.0 * elementary::Log10(1.0 + a * b - a * a * c);
}

namespace {

constexpr double kFlatFibreDb = 1e-06;  // a fibre that loses less over the pulse is taken as lossless

// Single precision throughout, but for the power itself.
float Pow5f(float x) { return static_cast<float>(SorMathPow5(x)); }

}  // namespace

double RefMathSplicePower(double A, double s1, double s2, double width, double x) {
  if (x > width) return x * s2 + A;
  if (x < 0.0) return x * s1;
  double before = 1.0 - x / width;
  if (!(s1 * width < kFlatFibreDb)) {
    const double whole = SorMathPow5(-width * s1);
    before = (SorMathPow5(-x * s1) - whole) / (1.0 - whole);
  }
  double behind = x / width;
  if (!(s2 * width < kFlatFibreDb)) behind = (1.0 - SorMathPow5(-x * s2)) / (1.0 - SorMathPow5(-width * s2));
  return -SorMathLog5(before + behind * SorMathPow5(-A - width * s2));
}

float RefMathSpliceLinPower(float A, float s1, float s2, int width, int x) {
  const float w = static_cast<float>(width);
  const float at = static_cast<float>(x);
  if (x > width) return at * s2 + A;
  if (x < 0) return at * s1;
  float before = 1.0f - at / w;
  if (!(s1 * w < kFlatFibreDb)) {
    const float whole = Pow5f(-w * s1);
    before = (Pow5f(-at * s1) - whole) / (1.0f - whole);
  }
  float behind = at / w;
  if (!(s2 * w < kFlatFibreDb)) behind = (1.0f - Pow5f(-at * s2)) / (1.0f - Pow5f(-w * s2));
  return before + behind * Pow5f(-A - w * s2);
}

float RefMathSplicePower(float A, float s1, float s2, int width, int x) {
  return static_cast<float>(-SorMathLog5(RefMathSpliceLinPower(A, s1, s2, width, x)));
}

float RefMathCalcPower0(TSorData* sor, float len1, float len2) {
  const auto pointAt = [sor](double km) { return reflyze::PointAtOwt(*sor, sor->LenToOwt(km)); };
  const long start = pointAt(0.0);
  const long first = pointAt(len1);
  const long last = pointAt(len2);
  float slope, intercept;
  RefMathLSLf(sor, first, last, slope, intercept);
  if (slope < 0.0f) return intercept;  // a trace that rises says nothing about its beginning
  return static_cast<float>(last - start) * slope + intercept;
}

float RefMathCalcPower1uS(TSorData* sor, float len1, float len2, float att) {
  constexpr double kNoAttenuatorDb = 0.001;
  constexpr double kShortPulseNs = 30.0, kReferencePulseNs = 1000.0;
  constexpr double kLeastMissingDb = 1.0;  // a smaller difference is that of rounding, or of the power offset
  constexpr short kShortPulseForce = 700;  // 0.001 dB by which the instrument lifts its short pulses
  const double power0Db = RefMathCalcPower0(sor, len1, len2);
  TSorBlockQRTParameters& params = *sor->QRTParams;
  double pulseNs = sor->FxdParams->GetNsPulse(0);
  if (pulseNs <= 0.0) pulseNs = 1.0;
  double pulseDb = 5.0 * elementary::Log10(pulseNs / kReferencePulseNs);

  const double offsetDb = sor->FxdParams->GetPO();
  double attenuatorDb;
  if (params.GetSW(0) <= kNoAttenuatorDb) {
    attenuatorDb = offsetDb;
    params.Force = pulseNs < kShortPulseNs ? kShortPulseForce : 0;
  } else {
    attenuatorDb = att > kNoAttenuatorDb ? att : params.GetSW(1);
  }
  double missingDb = offsetDb - attenuatorDb;
  if (missingDb < kLeastMissingDb) missingDb = 0.0;
  // Both fields count in 0.001 dB.
  pulseDb += params.Force * 0.001 + params.LaserAtt * -0.001;
  return static_cast<float>((power0Db + missingDb) - pulseDb);
}

float RefMathAddNoise(TSorData* sor, long point, long averages, int shift) {
  constexpr float kSwallowedDb = -100.0f;
  if (shift == 0) {
    return (RefMathAddNoise(sor, point, averages, 1) - RefMathAddNoise(sor, point, averages, -1)) / 2.0f;
  }
  using Scale = TSorBlockQRTParameters;
  const float aboveNoiseDb = static_cast<float>(sor->NumToLevel(point) - sor->FxdParams->GetNF());
  const float unit = static_cast<float>(shift);
  float signal = static_cast<float>(Scale::poww(aboveNoiseDb));
  const long n = averages < 1 ? 0 : averages;
  if (n == 1 && signal > -unit) return Scale::flog5t(unit + signal) - aboveNoiseDb;
  // Averaging lifts the signal against the noise by the square root of the number of averages.
  if (n > 1) signal = static_cast<float>(signal * std::sqrt(static_cast<double>(n)));
  if (signal > -unit) return Scale::flog5t(unit + signal) - Scale::flog5t(signal);
  return kSwallowedDb;
}
