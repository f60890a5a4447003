// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

#include "reflyze/cable.h"

namespace reflyze {

// A trace that has its place among the fibres of a job.
struct PlacedTrace {
  const CableTrace* trace;
  bool fromB;
};

// What tells a fibre from its neighbours: lengths differ by metres, and so do the places of its joints.
struct FibreSeen {
  bool usable = false;           // shows a link
  bool early = false;            // ends before the others; set by whoever knows
  Reels reels;                   // that this trace has
  double lengthKm = 0.0;         // between the connectors
  std::vector<double> jointsKm;  // from the end A
};

// Which traces show the same fibre.
class CableMatches {
 public:
  CableMatches(const std::vector<PlacedTrace>& traces, const Reels& reels);

  std::vector<FibreSeen>& Seen() { return seen_; }
  const std::vector<FibreSeen>& Seen() const { return seen_; }
  size_t IndexOf(const CableTrace& trace) const { return index_.at(&trace); }
  // The fibre of another name that a trace shows; "" where it shows its own, or nothing can be told. Traces
  // of its own fibre from the same end are no witnesses where they were mixed up together with it.
  std::string OtherFibreOf(size_t i) const;

 private:
  // How far two traces are from showing the same fibre; 1 and less is the same.
  double Apart(size_t i, size_t k) const;

  const std::vector<PlacedTrace>& traces_;
  std::vector<FibreSeen> seen_;
  std::map<const CableTrace*, size_t> index_;
};

}  // namespace reflyze
