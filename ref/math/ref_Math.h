// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numeric floor of the analysis: mean powers, straight lines through stretches of a trace, the scatter
// about them, and closed-form models of a pulse and of a splice. Free functions without state. They read the
// record through its accessors and write nothing to it. RefMathCalcPower1uS alone does, and says what.
//
// Quantities. A point is named by its index. One-way times (OWT) are in units of 100 ps, lengths in km.
// Levels are in dB on the one-way scale, 5 log10 of power; a trace falls with distance, and a point outside
// it reads as -65.5 dB. "Linear power" is a level through the record's level scale (Log5ToLin).
//
// Lines. Two conventions exist and must not be mixed:
// - the double family (LSL, LSL_Simple, LSL2, LSL_AndDeviation, LeastSquareLoss) fits levels against one-way
//   time, so a fibre that loses light has a negative slope, in dB per OWT;
// - the float family (LSLf, LSL2f, GetPinWithLsp) fits levels against a count of points that runs backwards
//   from the last point, so a fibre that loses light has a positive slope, in dB per point, and the intercept
//   is the level of the line at the last point.
//
// None of these functions fails. Where something can't be computed, each says what it gives instead; callers
// rely on it. Points may lie outside the trace. A mean counts them at their level and takes no longer for
// many of them. A fit visits each, so a caller that computes a point from data has to hold it near the trace.
// Fits that take one-way times do so themselves.

class TSorData;

// Linear trace of the record, one float per point in linear power; null when the record has none. A file may
// bring one that is shorter than its trace: that is none, so every point of the trace is in the array.
float* RefEmbGetLinf(TSorData* sor);

// --- Mean power of a stretch of points, in dB. A count below 1 gives 0. ---

// Mode 0 averages levels in dB, any other mode averages linear power. Points outside the trace count with
// their -65.5 dB.
double RefMathPower(TSorData* sor, long first, long count, int mode);
// The same in single precision, cut to the end of the trace. Modes other than 0 take linear power from `lin`
// (one float per point), or from the levels when it is null; mode 2 returns the mean in linear power instead
// of dB.
float RefMathPower(TSorData* sor, float* lin, long first, long count, int mode);
// The first form over the one-way times `owt` to `owt` + `width`. Pass doubles: with two ints the call would
// be ambiguous.
double RefMathPower(TSorData* sor, double owt, double width, int mode);
// Mean of level times `scale` over the points at the one-way times `owt1` to `owt2`, both included.
double RefMathAveragePointInSection(TSorData* sor, double owt1, double owt2, double scale);

// --- Scatter about a line ---

// Root mean square of the deviation from the straight line through `first` to `last`, in dB, and the line's
// levels at both ends. Returns 1, or 0 with the outputs untouched when the stretch has fewer than 3 steps or
// passes the end of the trace.
int RefMathSQO(TSorData* sor, long first, long last, float& sqo, float& yFirst, float& yLast);
// Root mean square in linear power over a stretch whose bounds are fractions of the trace, as a level in dB
// of the record's scale: of the linear trace itself where there is one, else of the deviation from `mean`
// (linear power). 0 for fewer than 4 points.
float RefMathLinSQO(TSorData* sor, float from, float to, float mean);
// Root mean square of lin[first] up to but not including lin[last]; 0 for fewer than 4 points.
float RefMathLinSQO(float* lin, long first, long last);
// Root mean square of a straight line that falls from `a` to `a` - `b` * `c`.
double RefMathLinesSQO(double a, double b, double c);

// --- Lines against one-way time. Bounds are one-way times; the points at both ends are included. ---

// Least-squares line through level times `scale`: slope in dB per OWT, intercept in dB at time 0. When both
// times lie on one point: slope 0 and its scaled level. Without a solution (all points at one time): slope
// 1.0, intercept 0.
void RefMathLSL(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                double scale = 1.0);
void RefMathLSL_Simple(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                       double scale);
// The line together with the largest deviation of a level from it, in dB. Levels are not scaled in the
// deviation even where the line was fitted to scaled ones.
void RefMathLSL_AndDeviation(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                             double& deviation, double scale = 1.0);
// Largest deviation of a level from the line given, in dB; 0 when both times lie on one point. The last
// argument is accepted for callers that fit with a scale and has no effect.
void RefMathDeviationFromLSL(TSorData* sor, double owt1, double owt2, double& slope, double& intercept,
                             double& deviation, double scale);
// Levels of the fitted line at the two times.
void RefMathLSL2(TSorData* sor, double owt1, double owt2, double& y1, double& y2);
// Continuous fit: every point holds its level until the next, and the exact times count rather than the
// points nearest to them. For sections whose ends don't lie on points. The intercept belongs to the time
// `owt1`. Less than one point between the times gives slope 0 and the level at the second.
void RefMathLeastSquareLoss(TSorData* sor, double owt1, double owt2, double& slope, double& intercept);

// --- Lines against a backward count of points ---

// Least-squares line from `first` to `last` in single precision: slope in dB per point, intercept the line's
// level at `last`. Above 30000 points every second one is visited. One point gives slope 0 and its level; no
// solution gives slope 1.0, intercept 0.
void RefMathLSLf(TSorData* sor, long first, long last, float& slope, float& intercept);
// Levels of that line at both ends.
void RefMathLSL2f(TSorData* sor, long first, long last, float& yFirst, float& yLast);
// Drop of the level from `first` to `last` in dB, by least squares over four points at equal distances.
float RefMathLSL4f(TSorData* sor, long first, long last);
// Line through the mean powers of blocks of `block` points, for noisy traces: its levels at both ends, in
// dB. A section shorter than a block gives the level at `first` for both.
void RefMathLSLpt(TSorData* sor, long first, long last, double& yFirst, double& yLast, long block);
// Extends the section `mid` to `last` backwards, down to `first`, and returns the start point whose fitted
// slope comes closest to `slope` (dB per point, positive for a loss). `yPin` and `yLast` are the line's
// levels at that point and at `last`, `error` the relative error of its slope, with sign. When `mid` equals
// `last`: that point, its level twice, and `error` untouched.
long RefMathGetPinWithLsp(TSorData* sor, long first, long mid, long last, float slope, float& yPin,
                          float& yLast, float& error);

// --- Geometry ---

// Line through two points; slope 0 and intercept `y1` when it is level or upright.
void RefMathLine(double x1, double y1, double x2, double y2, double& slope, double& intercept);
void RefMathSwap(double& a, double& b);
// Clips a segment to a rectangle: 1 when something of it remains, else 0. The four coordinates are written in
// both cases.
int RefMathClipLine(double& x1, double& y1, double& x2, double& y2, double xMin, double yMin, double xMax,
                    double yMax);

// --- Models ---

// Share of its full height that a reflection of a pulse reaches in a receiver that falls by `dbPerUnit` (dB)
// per unit of `pulse` and is sampled every `spacing` units.
double RefMathAmplitudePulse(double pulse, double dbPerUnit, double spacing);
// 5 log10(1 + a b - a^2 c) in dB; 0 when a b is not positive.
double RefMathLinearFactor(double a, double b, double c);
// Level in dB below the line, `x` points into a splice seen with a pulse of `width` points: total loss `A`
// in dB, fibre slopes `s1` before and `s2` behind in dB per point. Outside 0 to `width` it is the fibre.
double RefMathSplicePower(double A, double s1, double s2, double width, double x);
// The same in single precision. Only for `x` from 0 to `width`: outside it takes the fibre's dB for linear
// power.
float RefMathSplicePower(float A, float s1, float s2, int width, int x);
// The splice in linear power relative to the line; outside 0 to `width`, the fibre's fall in dB as it stands.
float RefMathSpliceLinPower(float A, float s1, float s2, int width, int x);
// Level in dB at the start of the fibre, extrapolated along the line through `len1` to `len2` (km). Where
// that line rises with distance, its level at `len2`.
float RefMathCalcPower0(TSorData* sor, float len1, float len2);
// That level brought to a pulse of 1000 ns, and freed of the instrument's attenuators, `att` (dB) being
// preferred to the recorded one. Writes to the record: without switched attenuators on record, `Force` of the
// proprietary parameters is set anew from the pulse width.
float RefMathCalcPower1uS(TSorData* sor, float len1, float len2, float att);
// Change of the level at `point`, in dB, that a noise of `shift` units of the noise floor makes after that
// many averages; -100 where the noise would swallow the signal. A shift of 0 gives half the swing between +1
// and -1.
float RefMathAddNoise(TSorData* sor, long point, long averages, int shift);
