// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "score/RandomLinks.h"
#include "sim/Simulate.h"

namespace reflyze::score {

// One fibre measured from both ends, with the truth of either direction. Joint i of the first is joint
// (last - i) of the second.
struct TwoWays {
  sim::Link link;  // as seen from the first end
  sim::SimulatedTrace a, b;
  double pulseKm = 0.0;
  double spacingKm = 0.0;

  // How far a found event may stand from a true one and still count as it.
  double ToleranceKm() const;
  const sim::TrueEvent& FromA(size_t joint) const { return a.truth.events[joint]; }
  const sim::TrueEvent& FromB(size_t joint) const {
    return b.truth.events[b.truth.events.size() - 1 - joint];
  }
};

TwoWays MeasureBothWays(const sim::Link& link, std::uint64_t seed);

// A link of a class at 1310, 1550 or 1625 nm. Half of those that are drawn for 1550 nm become links for 1625
// nm.
sim::Link RandomLinkOfThreeWavelengths(LinkClass linkClass, Random& random);

// The loss of an event by straight lines through its two sections, at its place: what its markers tell of it
// without assumptions about the fibre. None where a section has too few points.
std::optional<double> LossByLines(TSorData& record, const TSorBlockKeyEvents1E& event);

// Replaces the event table by the truth: every joint at its place, sections clear of pulse and receiver where
// there is room, losses by lines, reflectances as measured there. Joints marked in `leaveOut`, counted from
// the launch of this trace, are left out; launch and end never are.
void ListTruth(sim::SimulatedTrace& trace, const sim::Link& link, const std::vector<bool>& leaveOut);

// Moves each event, except launch and end, by up to the interval within which its place is trusted.
void MovePlaces(TSorData& record, Random& random);

}  // namespace reflyze::score
