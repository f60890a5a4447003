// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sim/Simulate.h"
#include "sor/sorData.h"

namespace reflyze::score {

struct FoundEvent {
  double distanceKm = 0.0;
  double lossDb = 0.0;
  double reflectanceDb = 0.0;  // 0 for none
  bool reflective = false;
  bool saturated = false;
  bool end = false;
};

std::vector<FoundEvent> FoundEvents(const TSorData& record);

enum class EventKind { kSplice, kGainer, kReflection };
EventKind KindOf(const sim::TrueEvent& event);
EventKind KindOf(const FoundEvent& event);

// An event counts as missed only if it is at least this large: a step of 0.05 dB, or a reflection 0.5 dB
// high.
constexpr double kSmallestFairLossDb = 0.05;
constexpr double kSmallestFairPeakDb = 0.5;
bool IsFair(const sim::TrueEvent& event);

struct MatchedPair {
  size_t truth, found;
};

// True and found events in pairs, the nearest first, within the tolerance. The launch and the end are matched
// by their role: index 0 and the last index of each list.
struct Matching {
  std::vector<MatchedPair> pairs;  // events between launch and end
  std::vector<size_t> missed;      // of the truth
  std::vector<size_t> invented;    // of the found
  bool endFound = false;           // the found table ends with an end of fibre
  double endErrorKm = 0.0;
};

Matching Match(const sim::Truth& truth, const std::vector<FoundEvent>& found, double toleranceKm);

}  // namespace reflyze::score
