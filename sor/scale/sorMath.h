// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/export.h"

// The units in which a trace is measured. One-way time (OWT) counts 100 ps from the launch to a place on the
// fibre; lengths are in kilometres. A pulse width is given as the duration of the light, in nanoseconds, of
// which half is seen one way: a nanosecond of pulse is 5 units of one-way time. Levels stand on the scale of
// 5 log10, which takes the light's way there and back out of a loss.

namespace reflyze {

// Vacuum speed of light, in km/s (exact by the definition of the metre).
constexpr double kLightSpeedKmPerS = 299792.458;
// Nanoseconds of pulse in one unit of one-way time.
constexpr double kPulseNsPerOwt = 0.2;

}  // namespace reflyze

// Length in km of a one-way time in a fibre of group index `ri`. An index of 0 gives an infinite length.
inline double SorMathOwtToLen(double owt, double ri) {
  return (reflyze::kLightSpeedKmPerS / ri) * owt * 1e-10;
}
// One-way time of a length in km.
inline double SorMathLenToOwt(double len, double ri) { return len / SorMathOwtToLen(1.0, ri); }

// Pulse width in ns, as one-way time and back.
inline double SorMathNsToOwt(double ns) { return ns / reflyze::kPulseNsPerOwt; }
inline double SorMathOwtToNs(double owt) { return owt * reflyze::kPulseNsPerOwt; }
// Length in km of fibre that a pulse of so many ns covers at one moment of the trace.
inline double SorMathNsToLen(double ns, double ri) { return SorMathOwtToLen(SorMathNsToOwt(ns), ri); }

// Linear power of a level in dB of the 5 log10 scale.
REFLYZE_API double SorMathPow5(double x);
// Level in dB of a linear power. There is no level for no light: 0 for a power of 0 or less, and for a NaN.
REFLYZE_API double SorMathLog5(double x);
