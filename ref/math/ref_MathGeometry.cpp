// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "ref/math/ref_Math.h"

// Straight lines in the plane, as a display of the trace needs them.

void RefMathSwap(double& a, double& b) { std::swap(a, b); }

void RefMathLine(double x1, double y1, double x2, double y2, double& slope, double& intercept) {
  if (y1 == y2 || x1 == x2) {
    slope = 0.0;
    intercept = y1;
    return;
  }
  slope = (y1 - y2) / (x1 - x2);
  intercept = (x2 * y1 - x1 * y2) / (x2 - x1);
}

int RefMathClipLine(double& x1, double& y1, double& x2, double& y2, double xMin, double yMin, double xMax,
                    double yMax) {
  double slope, intercept;
  RefMathLine(x1, y1, x2, y2, slope, intercept);
  // The levels are put in order for the test against the rectangle alone: they come anew from the line at the
  // end, so each end gets its own back.
  if (y1 > y2) RefMathSwap(y1, y2);
  if (y1 > yMax || y2 < yMin) return 0;
  x1 = std::max(xMin, x1);
  x2 = std::min(xMax, x2);
  y1 = std::max(yMin, y1);
  y2 = std::min(yMax, y2);
  if (slope != 0.0) {
    double t1 = (y1 - intercept) / slope;
    double t2 = (y2 - intercept) / slope;
    if (t1 > t2) RefMathSwap(t1, t2);
    x1 = std::max(x1, t1);
    x2 = std::min(x2, t2);
  }
  if (x1 > xMax || x2 < xMin || x1 > x2) return 0;
  y1 = x1 * slope + intercept;
  y2 = x2 * slope + intercept;
  return 1;
}
