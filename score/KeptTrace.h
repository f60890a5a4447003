// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "sim/Link.h"

namespace reflyze::score {

// A simulated trace that a scorecard keeps to be looked at, with the thresholds it was analysed by, dB.
struct KeptTrace {
  std::string name;
  sim::Link link;
  std::uint64_t seed = 0;
  double ltDb = 0.0, rtDb = 0.0, etDb = 0.0;
};

// Writes it into a folder, which is made where it is missing: NAME.sor, its link and its truth. Throws Error
// kUnwritable.
void SaveKept(const std::string& folder, const KeptTrace& kept);

}  // namespace reflyze::score
