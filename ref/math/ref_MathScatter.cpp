// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "sor/sorData.h"
#include "util/convert.h"

// Scatter about a line: how unquiet a stretch is, as a root mean square.

namespace {

constexpr long kFewestSteps = 3;      // for a scatter about a fitted line
constexpr long kFewestScattered = 4;  // points, for a scatter in linear power

float RootMean(double sumOfSquares, long count) {
  return static_cast<float>(std::sqrt(sumOfSquares / static_cast<double>(count)));
}

}  // namespace

int RefMathSQO(TSorData* sor, long first, long last, float& sqo, float& yFirst, float& yLast) {
  if (last - first < kFewestSteps || last > static_cast<long>(sor->DataPts->GetPointsNum())) return 0;
  RefMathLSL2f(sor, first, last, yFirst, yLast);
  const double stepDb = (yFirst - yLast) / static_cast<float>(last - first);
  double lineDb = yFirst;
  double sum = 0.0;
  for (long i = first; i < last; ++i) {
    const double offDb = sor->NumTofLevel(i) - lineDb;
    sum += offDb * offDb;
    lineDb -= stepDb;
  }
  sqo = RootMean(sum, last - first);
  return 1;
}

float RefMathLinSQO(TSorData* sor, float from, float to, float mean) {
  const long points = sor->DataPts->GetPointsNum();
  const long first = std::clamp(reflyze::TruncToLong(static_cast<float>(points) * from), 0L, points);
  const long last = std::clamp(reflyze::TruncToLong(static_cast<float>(points) * to), 0L, points);
  if (last - first < kFewestScattered) return 0.0f;
  const TSorBlockQRTParameters& scale = *sor->QRTParams;
  if (float* lin = RefEmbGetLinf(sor)) return scale.LinToLog5(RefMathLinSQO(lin, first, last));
  double sum = 0.0;
  for (long i = first; i < last; ++i) {
    const double off = scale.Log5ToLin(sor->NumTofLevel(i), 0) - mean;
    sum += off * off;
  }
  return scale.LinToLog5(RootMean(sum, last - first));
}

float RefMathLinSQO(float* lin, long first, long last) {
  if (last - first < kFewestScattered) return 0.0f;
  double sum = 0.0;
  for (long i = first; i < last; ++i) {
    const double value = lin[i];
    sum += value * value;
  }
  return RootMean(sum, last - first);
}

// The mean square of a - d t over t from 0 to 1.
double RefMathLinesSQO(double a, double b, double c) {
  const double d = c * b;
  return std::sqrt(a * a + d * d / 3.0 - a * d);
}
