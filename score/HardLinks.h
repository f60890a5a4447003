// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "score/RandomLinks.h"

namespace reflyze::score {

// Links as they are found in the field and at their limits: short sections, rows of connectors, reels,
// splitters, fibres of every wavelength, and instruments that smooth, swing, drift and leave out what a
// record should state.
enum class HardClass {
  kAccess,            // launch and receive reels about a few short sections
  kPatchPanel,        // rows of three and more connectors, 1.1 to 5 pulse lengths apart
  kSplitter,          // a splitter and the ends of its branches
  kMetro,             // sections from 30 m to 25 km, spliced from different fibres
  kLongHaul,          // the same up to 120 km, long pulses
  kNoisy,             // the last third near the noise
  kBroken,            // ends without a reflection
  kNothingConnected,  // no fibre behind the launch
};

const std::vector<HardClass>& AllHardClasses();
const char* NameOf(HardClass hardClass);
sim::Link HardLink(HardClass hardClass, Random& random);

// One of the equal fibres behind a splitter.
struct Branch {
  double lengthKm = 0.0;
  std::optional<double> endReflectanceDb;
};

// Ends a link, whose last section leads to it, with a splitter and its branches of different lengths, as they
// are seen together from the trunk. The fibre of the branches is that of the last section.
void EndInSplitter(sim::Link& link, double excessLossDb, std::vector<Branch> branches);

}  // namespace reflyze::score
