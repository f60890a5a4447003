// SPDX-License-Identifier: Apache-2.0
#pragma once

// Polarisation ripple: with some lasers and fibres the backscatter swings around the fibre's slope, and an
// event has to swing further than that. Levels are in dB on the one-way scale (5 log10 of power), slopes in
// dB per point, points are named by index. Nothing here writes to the record.

class TSorData;

// How far the backscatter swings around `slope` between the points `a` and `b` over a base of `w` points, in
// dB: the least swing that a real event has to exceed. 0 when the figure can't be trusted. `at` is the first
// point behind the cell in which it was found. Never above 0.45 dB, or 0.9 dB for a coherent laser, or half
// that on multimode fibre; the one exception is a stretch of fewer than 16 points, which gives what noise
// alone would swing by.
float RefAutoCalcPolar(TSorData* sor, long a, long b, long w, float slope, long& at);

// The same kind of figure from the deviations around a straight line through the stretch, in dB; 0 when the
// stretch is shorter than three bases. `map` is accepted for callers that keep a map of averaging widths and
// has no effect.
float RefAutoCalcPolar2(TSorData* sor, long a, long b, long w, float slope, short* map);

// Width in points, at half height, of the reflection or crest that begins at `begin` and peaks near `p`, on a
// trace that ripples by `T` dB; the search stays before `lim`, `w` is the averaging length in points. `begin`
// is moved to the foot of the rise, `top` gets the highest point and `height` its level in dB above half
// height. -2: two reflections overlap; -1: the fall is too steep for a reflection of that height; 0: no
// measure, as without the linear trace. What was not reached is left as it was.
long RefAutoGetWidthPlr(TSorData* sor, long& begin, long p, long lim, long w, float slope, float T, long& top,
                        float& height);
