// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "util/convert.h"

// Bounds that keep the analysis of a broken record finite. Windows and places are worked out from pulse
// width, point spacing and recovery rate, and a record from a damaged file can make those anything. A trace
// that an instrument took never meets these bounds: its windows are shorter than itself, and every point
// beyond its end reads alike.

namespace reflyze {

// Longest window, and farthest way from a point, that can still tell one part of a trace from another.
inline long LongestWindow(long tracePoints) { return tracePoints + 1000; }

// A window in points, of at least one.
inline long HeldWindow(double points, long tracePoints) {
  return std::clamp(TruncToLong(points), 1L, LongestWindow(tracePoints));
}

// A way from one point to another, in points.
inline long HeldShift(double points, long tracePoints) {
  return std::clamp(TruncToLong(points), -LongestWindow(tracePoints), LongestWindow(tracePoints));
}

// A place on the trace as a point, truncated: -1 in front of it, the number of points behind it.
inline long HeldPoint(double point, long tracePoints) {
  return std::clamp(TruncToLong(point), -1L, tracePoints);
}

// A fibre has a few dozen events. More lines than this come from a trace that is noise all over, where
// splitting lines would go on for as long as there are points.
constexpr int kMostLines = 2000;

}  // namespace reflyze
