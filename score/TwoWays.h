#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "score/RandomLinks.h"
#include "sim/Simulate.h"

namespace reflyze::bench {

// One fibre measured from both ends, with the truth of either direction. Joint i of the first is joint
// (last - i) of the second.
struct TwoWays {
  sim::Link link;  // as seen from the first end
  sim::SimulatedTrace a, b;
  double pulseKm = 0.0;
  double spacingKm = 0.0;

  // How far a found event may stand from a true one to be that.
  double ToleranceKm() const;
  const sim::TrueEvent& FromA(size_t joint) const { return a.truth.events[joint]; }
  const sim::TrueEvent& FromB(size_t joint) const {
    return b.truth.events[b.truth.events.size() - 1 - joint];
  }
};

TwoWays MeasureBothWays(const sim::Link& link, std::uint64_t seed);

// A link of a class at 1310, 1550 or 1625 nm: what 1550 nm draws, half of the links measure at 1625 nm.
sim::Link RandomLinkOfThreeWavelengths(LinkClass linkClass, Random& random);

// Loss of an event by straight lines through its two sections, at its place: what its markers can tell of it
// without any assumption on fibre. None where a section has fewer than a few points.
std::optional<double> LossByLines(TSorData& record, const TSorBlockKeyEvents1E& event);

// Replaces the event table by the truth: every joint at its place, sections clear of pulse and receiver where
// there is room, losses by lines, reflectances as measured there. Joints marked in `leaveOut`, counted from
// the launch of this trace, are overlooked; launch and end never.
void ListTruth(sim::SimulatedTrace& trace, const sim::Link& link, const std::vector<bool>& leaveOut);

// Moves each event but launch and end by up to the interval that its place is trusted within.
void MovePlaces(TSorData& record, Random& random);

}  // namespace reflyze::bench
