// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "score/RandomLinks.h"
#include "sim/Link.h"

namespace reflyze::score {

// What happens to a fibre between a baseline and the current trace.
enum class Happening {
  kNothing,           // only the noise differs
  kOtherAcquisition,  // other spacing and range
  kOtherGroupIndex,   // the instrument is set to another group index
  kMoreLoss,          // at a joint
  kNewSplice,         // 0.3 dB, between joints
  kNewReflection,     // a connector put in between joints
  kWorseReflectance,  // of a connector, by 3 dB
  kBreakBeforeFirst,  // before the first joint
  kBreakInLastSection,
  kBreakAtJoint,
  kBreakAnywhere,
  kDeadFibre,           // nothing behind the launch connector
  kOtherFibre,          // of another level
  kOtherFibreSameLevel  // of the same level: only its joints and its end show it
};

const std::vector<Happening>& AllHappenings();
const char* NameOf(Happening happening);

// A fibre before and after.
struct TracePair {
  sim::Link baseline, current;
  double placeKm = 0.0;   // of what happened
  double changeDb = 0.0;  // of a loss or a reflectance
};

// Whether this happens to a joint. It can then be found only where the baseline lists that joint.
bool IsAtJoint(Happening happening);

// A link as operators watch them: 20 to 80 km of fibre at 1550 nm, spliced every 4 to 10 km, some of its
// joints connectors.
constexpr const char* kMonitored = "monitored";
// The same with slopes within 0.003 of 0.17 or of 0.3 dB/km, at the bounds of what the search believes.
constexpr const char* kEdgeSlopes = "edge-slopes";
// 3 to 10 km with a joint about every half kilometre, the shortest section whose slope the search believes.
constexpr const char* kHalfKilometre = "half-kilometre";

struct PairOptions {
  double marginDb = 6.0;    // by which the far end stands above the noise
  double mostLeadKm = 0.0;  // both are recorded from up to so far before the launch, half of the current ones
                            // with a dark level of up to 3 root mean squares of the noise
};

// Draws a link, of one of these or of one of the scorecard's classes, and changes it. None where the drawn
// link has no room for the change.
std::optional<TracePair> DrawPair(Happening happening, const std::string& links, const PairOptions& options,
                                  Random& random);

}  // namespace reflyze::score
