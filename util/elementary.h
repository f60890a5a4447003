// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cfloat>

// Logarithms, powers and waves. Each gives the double next to the exact value, on every machine alike, since
// it uses only operations whose result is defined to the last digit. The functions of C libraries differ in
// the last digits, and a table of events must not depend on where it was made. For arguments without a finite
// value the result is that of the C library.
namespace reflyze::elementary {

// Sums and products that are wider in the registers than in memory would be rounded twice.
static_assert(FLT_EVAL_METHOD == 0, "doubles have to be computed as doubles");

double Exp(double x);
double Exp10(double x);
double Log(double x);
double Log2(double x);
double Log10(double x);

// base^x for a base of 0 or more. For a base below 0 only the powers 0 and 1 are computed; any other gives no
// number.
double Power(double base, double x);

// Sine and cosine of an angle in radians. An angle of 2^30 or more is first brought within one turn of 2 pi,
// rounded to a double. Doubles lie so far apart there that the angle means little: the result is still the
// same on every machine, but not the double next to the exact value.
double Sin(double x);
double Cos(double x);

}  // namespace reflyze::elementary
