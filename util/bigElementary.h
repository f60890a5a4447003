// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/bigFixed.h"

// The slow way of the elementary functions: computed in whole numbers of 256 bits and rounded once. Only for
// arguments whose result is finite and not 0.
namespace reflyze::elementary {

double SlowExp(double x);
double SlowExp10(double x);

// log(x) * `unit`; `log` is log(x) to about a double's digits.
double SlowLog(double x, double log, const BigFixed& unit);

// base^x, where x * log(base) is below 746 and no less than 2^-60; `log` is log(base) to about a double's
// digits.
double SlowPower(double base, double log, double x);

// Sine, or cosine, of an angle below 2^30.
double SlowSine(double x, bool isCosine);

}  // namespace reflyze::elementary
