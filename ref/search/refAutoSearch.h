// SPDX-License-Identifier: Apache-2.0
#pragma once

// Searches along a trace: where a level is crossed, where the extremes lie, how far the trace falls and rises
// over a given distance, how it dips behind a peak. Everything that finds events is built from these. Nothing
// here keeps state or writes to the record.
//
// Points are named by their index. The forms on a record read levels in dB on the one-way scale (5 log10 of
// power), where the trace falls with distance; a point outside the trace reads as -65.5 dB. The forms on an
// array read whatever the caller put there, linear or logarithmic; they know no length, so the caller vouches
// for every point of the range, and only points before the array are left out. A slope is positive for a
// fibre that loses light, in dB per point. A base `w` is the distance in points over which a difference is
// taken.
//
// The record must exist and have its data points. None of these functions fails: each says what it returns
// when it finds nothing.

class TSorData;

// --- Where a level is crossed. All start at `from`, which is tested first. ---

// First point at or after `from` above `level` (dB); the number of points when there is none.
long RefAutoSearchStraightGreather(TSorData* sor, long from, float level);
// First point at or before `from` above `level` (dB); -1 when there is none.
long RefAutoSearchBackGreather(TSorData* sor, long from, float level);
// First point at or after `from` below `level` (dB); the last point, which is never tested, when there is
// none.
long RefAutoSearchStraightLess(TSorData* sor, long from, float level);
// The same against a threshold that starts at `level` and falls by `step` dB a point, as the fibre itself
// does; the number of points when there is none.
long RefAutoSearchStraightLess(TSorData* sor, long from, float level, float step);
// First point below `level` going back from `from` to `limit`, which is included; `limit` - 1 when there is
// none.
long RefAutoSearchBackLess(TSorData* sor, long from, float level, long limit);
long RefAutoSearchBackLess(float* samples, long from, float level, long limit);
// Going back, the first point from which on the mean of `width` samples is above `level`, starting with the
// window that ends before `from`; -1 when there is none.
long RefAutoSearchBackGreather(float* samples, long from, long width, float level);

// --- Extremes. `side` picks among equal ones: above 0 the last, below 0 the first, 0 the middle of both. ---

// Lowest level from `a` up to but not including `b`: its first point is returned, its level goes to `min`
// (dB). An empty range gives `a`.
long RefAutoGetMin(TSorData* sor, long a, long b, float& min);
// Highest level from `a` to `b`, both included; a negative `a` counts as 0.
long RefAutoGetMax(TSorData* sor, long a, long b, float& max, int side);
// Extremes of an array from `a` to `b`, both included.
long RefAutoGetMin(float* samples, long a, long b, float& min, int side);
long RefAutoGetMax(float* samples, long a, long b, float& max, int side);

// First point of the window of `width` samples with the highest or lowest mean between `a` and `b`; the mean
// goes to `out`. Windows further out are weighted by 10^(dec / 5) a point, which lifts them by the fibre's
// loss of `dec` dB a point; of equal windows the last wins. -1 without an array.
long RefAutoGetAvrMax(float* samples, long a, long b, float& out, int width, float dec);
long RefAutoGetAvrMax(float* samples, long a, long b, float& out, int width);
long RefAutoGetAvrMin(float* samples, long a, long b, float& out, int width, float dec);

// --- Falls and rises ---

// Largest fall of the mean between two windows of `width` samples, `gap` samples apart, from `a` to `b`, in
// the units of the array; what a fibre of `dec` dB a point loses by itself is taken off. `at` is the last
// sample of the first window. A range too short for both windows gives 0 and `at` = `a` + `width` - 1.
float RefAutoSearchMaxLinFall(float* samples, long a, long b, long gap, long width, float dec, long& at);

// Largest fall (negative) and largest rise over `w` points between `a` and `b`, in dB, with the fibre's slope
// taken out and the edges followed for up to half a base; `atFall` and `atRise` are the points where they
// start. Returns the larger of `rise` and -`fall`. Fall comes first, whatever a caller names its variables.
float RefAutoSearchMaxdbRiseFall(TSorData* sor, long a, long b, long w, float& fall, long& atFall,
                                 float& rise, long& atRise, float slope);
// How unquiet a stretch is, in dB: the swing of differences over `w` points, without the one event that may
// stand in it.
float RefAutoSearchMaxdbRiseFall(TSorData* sor, long a, long b, long w, float slope);

// First difference over `w` points, in dB and positive for a fall, that leaves the band of `tol` dB around
// the fibre's own fall; `at` is its first point. When all stay inside: the largest difference, and `at` is 0.
float RefAutoSearchRefdbFall(TSorData* sor, long a, long b, long w, float slope, float tol, long& at);

// Largest fall over `w` points between `a` and `b` in dB, 0 when the stretch nowhere falls; `at` is its first
// point. The search ends at the first fall of at least `limit` dB that is larger than those before it.
float RefAutoSearchMaxdbFall(TSorData* sor, long a, long b, long w, long& at, float limit);
// The same as a rate in dB per km.
float RefAutoSearchMaxFall(TSorData* sor, long a, long b, long w, long& at);

// Largest step of the level over `w` points between `a` and `b` in dB beyond the fibre's slope, positive for
// a loss and negative for a gain, judged from the levels on both sides; `at` is its first point. A step of at
// least `limit` dB ends the search and is pinned down in its own neighbourhood.
float RefAutoSearchMaxSplice(TSorData* sor, long a, long b, long w, long& at, float slope, float limit);

// Spread of the second difference over `w` points between `a` and `b`, in dB; `atMin` and `atMax` are the
// middle points of the strongest bend down and up. Positive when the trace bends up within two bases of `a`
// and down later, negative otherwise; 0 for a straight trace.
float RefAutoSearchAcCeleration(TSorData* sor, long a, long b, long w, long& atMin, long& atMax);

// --- Losses corrected for the local slope ---

// `loss` (dB) of an event between `p2` and `p3`, less what the fibre loses there when the slope measured from
// `p1` to `p2` and from `p3` to `p4` strays from the nominal `slope`. `noise` (dB) counts towards the
// measured fall.
float RefAutoDopuskLosPin(TSorData* sor, long p1, long p2, long p3, long p4, float loss, float slope,
                          float noise);
// `slope` (dB per point), raised to what the last two thirds of the stretch `a` to `b` show where they
// steepen.
float CalcLossPin(TSorData* sor, long a, long b, float slope);

// --- Shapes ---

// Measures the dip that a saturated receiver leaves behind a peak, between `a` and `b`: `ratio` is its depth
// in linear power, extrapolated to the peak, `width` its time constant in points. Returns the point where the
// fibre shows again, or 0 when there is no dip to measure (`ratio` and `width` may then be written or not).
long RefAutoGetProvalAT(TSorData* sor, long a, long b, float slope, float& ratio, float& width);

// First point between `a` and `b` from which the trace falls by `loss` dB a point, within a factor `k`, over
// `w` points; -1 when there is none.
long RefAutoSearchStraightLoss(TSorData* sor, long a, long b, long w, float loss, float k);
// First stretch of `w` points between `a` and `b` that falls by `lo` to `hi` dB a point: its first point, or
// its last if `side` is not 0; -1 when there is none.
long RefAutoSearchStraightLoss2(TSorData* sor, long a, long b, long w, float hi, float lo, int side);

// The point between `a` and `b` where the trace leaves its slope for a splice; `width` is the averaging
// length in points. `p` is not used.
long RefautoSearchBeginOfSplice(TSorData* sor, long a, long b, long p, long width, float slope);

// Goes back from the end of a fall while the trace does nothing but jitter by `noise` dB, and returns the
// point where the fall really ended, between `begin` and `end`; `begin` when that lies beyond `end`.
long RefAutoOtkatEnd(TSorData* sor, long end, long begin, double noise);

// The point where a rise from `a` to `b` passes half its height: going back from `b`, the first point below
// the mean of both levels, -1 when there is none; `a` itself when it is the higher one.
long RefAutoSearchRef(TSorData* sor, long a, long b);
