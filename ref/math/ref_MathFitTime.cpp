// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "ref/math/traceWalk.h"
#include "sor/sorData.h"

// Lines of level against one-way time, in double precision: what losses and attenuations of the event table
// rest on.

using reflyze::OwtWalk;
using reflyze::PointAtOwt;

namespace {

constexpr double kScaleIsOne = 1e-05;  // a scale within this of 1 is not applied at all

}  // namespace

void RefMathLSL_Simple(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                       double scale) {
  const long first = PointAtOwt(*sor, owt1);
  const long last = PointAtOwt(*sor, owt2);
  if (first == last) {
    intercept = sor->NumToLevel(first) * scale;
    slope = 0.0;
    return;
  }
  reflyze::LineSums sums;
  sums.AddPoints(*sor, first, last + 1, std::fabs(scale - 1.0) > kScaleIsOne ? scale : 1.0);
  sums.Solve(slope, intercept);
}

void RefMathLSL(TSorData* sor, double owt1, double owt2, double& slope, double& intercept, double scale) {
  RefMathLSL_Simple(sor, owt1, owt2, slope, intercept, scale);
}

void RefMathDeviationFromLSL(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                             double& deviation, double) {
  deviation = 0.0;
  const long first = PointAtOwt(*sor, owt1);
  const long last = PointAtOwt(*sor, owt2);
  if (first == last) return;
  OwtWalk time(*sor);
  for (long i = first; i <= last; ++i) {
    deviation = std::max(deviation, std::fabs(sor->NumToLevel(i) - (slope * time.OwtOf(i) + intercept)));
  }
}

void RefMathLSL_AndDeviation(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                             double& deviation, double scale) {
  RefMathLSL_Simple(sor, owt1, owt2, slope, intercept, scale);
  RefMathDeviationFromLSL(sor, owt1, owt2, slope, intercept, deviation, scale);
}

void RefMathLSL2(TSorData* sor, double owt1, double owt2, double& y1, double& y2) {
  double slope, intercept;
  RefMathLSL_Simple(sor, owt1, owt2, slope, intercept, 1.0);
  y1 = slope * owt1 + intercept;
  y2 = slope * owt2 + intercept;
}

// The trace is taken as a staircase: a point's level holds until the next point. `sum` is the integral of the
// staircase. `moment` is that integral with each step times its beginning, counted from owt1. The line wanted
// has the same two integrals, which gives the formulas at the end.
void RefMathLeastSquareLoss(TSorData* sor, double owt1, double owt2, double& slope, double& intercept) {
  const double f1 = std::max(sor->OwtTofNum(owt1), 0.0);
  const double f2 = std::max(sor->OwtTofNum(owt2), 0.0);
  const long points = sor->DataPts->GetPointsNum();
  const long first = std::min(reflyze::TruncToLong(f1), points);
  const long last = std::min(reflyze::TruncToLong(f2), points);
  if (f2 - f1 < 1.0) {
    intercept = sor->NumToLevel(last);
    slope = 0.0;
    return;
  }
  const double length = owt2 - owt1;
  OwtWalk time(*sor);
  double stepBegin = time.OwtOf(first + 1);
  double step = stepBegin - owt1;
  double sum = sor->NumToLevel(first) * step;
  double moment = 0.0;
  for (long i = first + 1; i < last; ++i) {
    const double stepEnd = time.OwtOf(i + 1);
    step = stepEnd - stepBegin;
    const double area = sor->NumToLevel(i) * step;
    sum += area;
    moment += (stepBegin - owt1) * area;
    stepBegin = stepEnd;
  }
  // The piece up to owt2 is no full step, and the correction for the steps' width goes by a full one.
  const double area = sor->NumToLevel(last) * (owt2 - stepBegin);
  sum += area;
  moment += (stepBegin - owt1) * area;

  const double base = (length + step) * length;
  intercept = (((2.0 * length - step) * sum / 3.0) - moment) * 6.0 / base;
  slope = (((length - step) * sum / -2.0) + moment) * 12.0 / base / length;
}
