// SPDX-License-Identifier: Apache-2.0
#pragma once

// What can be told from noise at a given level, mean levels, and straight lines through a stretch. Levels are
// in dB on the one-way scale (5 log10 of power), places and windows in points.

#include "src/analysis/EventLine.h"
#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"

namespace reflyze {

class SectionFits;

// Power ratio of `x` dB; `x` counts as 65.535 at most.
double powDb(double x);
// Level in dB that stands to noise of 0 dB as `level` to a step of `fault` dB.
double DbFault(double level, double fault);
// Height above the noise, in dB, at which a step of `fault` dB shows after averaging `pts` points.
double RequirePower(double fault, long pts);
// Points to average so that a step of `fault` dB shows `level` dB above the noise; 32767 at most.
long RequireAvgPin(double level, double fault);
// Smallest step in dB that is credible `level` dB above the noise with `pts` points averaged.
double RequireFault(double level, long pts);
// The same at `level` on the scale of the trace, with the working noise amplitude added.
double GetFault(const TraceScale& scale, const NoiseSeen& noise, double level, long pts);
// Window in points for a step of `fault` dB at `level` on the scale of the trace.
long SetAvgPin(const TraceScale& scale, double level, double fault, long minPin, long maxPin);

// Mean level of `count` points from `first`, in dB (mode 0) or in linear power (mode 1).
double AveragePower(const TraceScale& scale, long first, long count, int mode);
// The same from one-way time `owt` over `dOwt`.
double AveragePower(TSorData* s, double owt, double dOwt, int mode);
// The mean of the window that starts at `first`, from the mean `prev` of the window one point before it.
double dAveragePower(const TraceScale& scale, long first, long count, int mode, double prev);
float dAveragePower(const TraceScale& scale, float* lin, long first, long count, int mode, float prev);
// Slope in dB per point between the first and the last `pin` points of a section; 0 if they overlap.
double LossPin(const TraceScale& scale, long a, long b, long pin, int mode);

// Levels at both ends of the line by least squares, against time or against points.
void LossSquare(TSorData* s, TEventLine& line);
void LossfSquare(TSorData* s, TEventLine& line);
// Against time, for many lines of one trace.
void LossSquare(SectionFits& fits, TEventLine& line);
// Fits the line and finds the window of `width` points that stands highest above it: its first point, with
// its height in dB in `peakLevel`; 0 when none stands above. `margin` points at both ends are left out.
long LossSquareTest(TSorData* s, TEventLine& line, long width, long margin);

}  // namespace reflyze
