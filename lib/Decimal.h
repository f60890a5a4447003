// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace reflyze {

// The shortest decimal that reads back as the same number. Not every machine's standard library has one.
std::string ShortestText(double value);
std::string ShortestText(float value);

// The decimal nearest to a value that is known to so many steps of 1: 1e6 stands for six places.
double NearestDecimal(double value, double steps);
// To a millionth of its unit, as the numbers that are told.
double Millionths(double value);
// The decimal that a single-precision number stands for: 0.1f is 0.1, and not 0.10000000149.
double NearestDecimal(float value);

}  // namespace reflyze
