#pragma once

#include <cfloat>

// Logarithms, powers and waves, each the double next to the exact value, on every machine alike: only
// operations whose result is settled to the last digit enter. The C library's own differ in the last digits
// from one to the next, and a table of events must not depend on where it was made. Special values are those
// of the C library.
namespace reflyze::elementary {

// Sums and products that are wider in the registers than in memory would be rounded twice.
static_assert(FLT_EVAL_METHOD == 0, "doubles have to be computed as doubles");

double Exp(double x);
double Exp10(double x);
double Log(double x);
double Log2(double x);
double Log10(double x);

// base^x for a base that is no less than 0. One below has no power but the first.
double Power(double base, double x);

// Of an angle in radians. From 2^30 on, where doubles are too far apart for the angle to mean much, it is
// first brought within a turn of 2 pi as a double: the same everywhere, but no longer rounded as the others
// are.
double Sin(double x);
double Cos(double x);

}  // namespace reflyze::elementary
