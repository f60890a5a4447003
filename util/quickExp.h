// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstring>

#include "util/elementary.h"
#include "util/elementaryTables.h"

namespace reflyze::elementary {

// e^x for sums over many samples: off by some units of the last digit at most, in a fifth of the time. The
// same double on every machine all the same, since it uses only operations whose result is defined to the
// last digit. Below e^-690 it is 0.
inline double QuickExp(double x) {
  if (!(x < 690.0)) return Exp(x);
  if (x < -690.0) return 0.0;
  // 2^(k / 128) e^r, with |r| at most ln 2 / 256: the first term of the series that is left out is 2^-61.
  constexpr double kPartsPerE = 128 * 0x1.71547652b82fep+0, kNoFraction = 0x1.8p+52;
  const double shifted = x * kPartsPerE + kNoFraction, parts = shifted - kNoFraction;
  const double r = (x - parts * kLn2By128[0]) - parts * kLn2By128[1];
  std::uint64_t k;  // the last bits of what has no room for a fraction
  std::memcpy(&k, &shifted, sizeof k);
  const double series = r + r * r * (0.5 + r * (1.0 / 6 + r * (1.0 / 24 + r * (1.0 / 120))));
  const std::uint64_t bits = ((k >> 7) + 1023) << 52;
  double scale;
  std::memcpy(&scale, &bits, sizeof scale);
  const double* const power = kPowersOfTwo[k & 127];
  return (power[0] + (power[1] + (power[0] + power[1]) * series)) * scale;
}

}  // namespace reflyze::elementary
