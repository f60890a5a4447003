// SPDX-License-Identifier: Apache-2.0
#pragma once

// The point-level tools of the searches: how noisy a stretch is, where a fall begins and where it is over,
// the extremes of a stretch, and where the trace passes a level. Levels and noise are in dB, places and
// windows in points, slopes in dB per point unless said otherwise.

#include "src/analysis/EventLine.h"
#include "src/analysis/Scale.h"

namespace reflyze {

// Noise amplitude in dB that a pulse of this length usually shows.
double GetTypPol(const TraceScale& scale);
// Noise amplitude `pol` (dB) and slope (dB per point) of the points `a` to `b`. 0 when the stretch is too
// short to tell.
int GetPol(const TraceScale& scale, long a, long b, double& pol, double& slope);
// The same of the `n` points behind `a` and what lies in front of them, not before `limit`. `minPin` is the
// shortest averaging window.
int GetPol(const TraceScale& scale, int minPin, long a, long n, long limit, double& pol, double& slope);

// Where a fall that ended at `end` began, not before `begin`; `noise` in dB.
long OtkatEnd(const TraceScale& scale, long end, long begin, double noise);
// Foot of a peak, going back from `from`.
long OtkatMax(const TraceScale& scale, long from, long begin, double slope);
// Top of a peak, going forward.
long NakatMax(const TraceScale& scale, long from, long to);
// First point from which the trace falls by `min` to `max` dB/km over `width` points.
long NakatDZ(const TraceScale& scale, long from, long width, long to, double max, double min);

// Highest and lowest level of the points `from` to `from` + `count`, both included.
double GetMax(const TraceScale& scale, long from, long count);
double GetMax(const TraceScale& scale, long from, long count, long& pos);
double GetMin(const TraceScale& scale, long from, long count, long& pos);
// Stores the highest level and its place in the line.
void GetMaxRef(const TraceScale& scale, long from, long count, TEventLine& line);
// Point of a dip of at least `h` dB between a maximum in the `w` points behind `a` and one in the `w`
// points before `b`; 0 when there is none. `avg` points are averaged where the level is near the noise.
long GetLocalMinMax(const TraceScale& scale, long a, long b, long w, long avg, float h);

// Searches for a level in dB, as the RefAuto functions of the same names.
long SearchStraightGreather(const TraceScale& scale, long from, double level);
long SearchBackGreather(const TraceScale& scale, long from, double level);
long SearchBackLess(const TraceScale& scale, long from, double level, long limit);
// First point whose mean over `pin` points is below `level` or `guard`, the end of the trace if there is
// none. A `guard` of 0 or more stands for a level in the noise.
long SearchStraightLess(const TraceScale& scale, long from, float level, long pin, float guard);
// Middle of the first window of `w` points between `a` and `b` that rises above a line which starts at
// `level` and falls by `slope` dB/km.
long StraightGreatherLine(const TraceScale& scale, long a, long b, double level, double slope, long w);

}  // namespace reflyze
