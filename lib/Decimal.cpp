// SPDX-License-Identifier: Apache-2.0
#include "lib/Decimal.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "lib/Text.h"

namespace reflyze {
namespace {

double Parsed(const std::string& text, double) { return std::strtod(text.c_str(), nullptr); }
float Parsed(const std::string& text, float) { return std::strtof(text.c_str(), nullptr); }

template <class Floating>
std::string Shortest(Floating value) {
  constexpr int kAlwaysKept = std::numeric_limits<Floating>::digits10;
  constexpr int kAlwaysEnough = std::numeric_limits<Floating>::max_digits10;
  std::string text;
  for (int digits = kAlwaysKept; digits <= kAlwaysEnough; ++digits) {
    text = Format("%.*g", digits, static_cast<double>(value));
    if (Parsed(text, value) == value) break;
  }
  return text;
}

}  // namespace

std::string ShortestText(double value) { return Shortest(value); }
std::string ShortestText(float value) { return Shortest(value); }

double NearestDecimal(double value, double steps) { return std::round(value * steps) / steps; }

double Millionths(double value) { return NearestDecimal(value, 1e6); }

double NearestDecimal(float value) {
  if (!std::isfinite(value)) return value;
  return Parsed(ShortestText(value), 0.0);
}

}  // namespace reflyze
