// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "sim/Link.h"

namespace reflyze::score {

// Random numbers that are scaled here, so that one seed draws the same links on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : bits_(seed) {}

  double Uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(bits_() >> 11) / 9007199254740992.0;
  }
  long Integer(long low, long high) {  // both included
    return low + static_cast<long>(Uniform(0.0, 1.0) * static_cast<double>(high - low + 1));
  }
  bool Chance(double share) { return Uniform(0.0, 1.0) < share; }
  std::uint64_t Bits() { return bits_(); }

 private:
  std::mt19937_64 bits_;
};

// Kinds of links that a scorecard draws.
enum class LinkClass {
  kAccess,            // up to 5 km, short pulses, close connectors
  kMetro,             // 20 to 60 km, splices and gainers, some connectors
  kLongHaul,          // 60 to 120 km, long pulses
  kNoisy,             // the last third near the noise
  kCloseEvents,       // pairs two to four pulse lengths apart
  kBroken,            // ends without a reflection
  kNothingConnected,  // no fibre behind the launch
};

const std::vector<LinkClass>& AllLinkClasses();
const char* NameOf(LinkClass linkClass);

sim::Link RandomLink(LinkClass linkClass, Random& random);

// Sets the noise so that the far end of the fibre stands `marginDb` above it.
void SettleNoise(sim::Link& link, double marginDb);

// The same fibre from its other end: sections and joints reversed.
sim::Link Reversed(const sim::Link& link);

}  // namespace reflyze::score
