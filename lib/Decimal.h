#pragma once

#include <string>

namespace reflyze {

// The shortest decimal that is read back as the same number. The standard library's own is not there on every
// machine.
std::string ShortestText(double value);
std::string ShortestText(float value);

// The decimal nearest to a value that is known to so many steps of 1 (1e6: to six places).
double NearestDecimal(double value, double steps);
// The decimal that a single-precision number stands for: 0.1f is 0.1, and not 0.10000000149.
double NearestDecimal(float value);

}  // namespace reflyze
