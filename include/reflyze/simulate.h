// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/trace.h"

namespace reflyze {

// What stands on a simulated fibre, as an ideal analysis would report it.
struct TrueEvent {
  int number = 0;           // from 1, along the fibre
  double distanceKm = 0.0;  // km from the launch
  std::string code;         // SR-4731
  double lossDb = 0.0;      // as seen from this end: insertion loss and change of backscatter coefficient
  double insertionLossDb = 0.0;         // dB
  std::optional<double> reflectanceDb;  // dB, negative
  double backscatterOffDb = 0.0;    // backscatter coefficient of the section before, over that of the record
  double peakDb = 0.0;              // height of the reflection above the backscatter before it, 0 for none
  double attenuationDbPerKm = 0.0;  // of the section before
  double snrDb = 0.0;               // lower one of the levels on both sides above the noise
  bool saturated = false;           // the receiver is
};

// What stands on a simulated fibre as a whole.
struct Truth {
  std::vector<TrueEvent> events;  // along the fibre
  std::vector<double> ghostsKm;   // echoes that look like events and are none
  double noiseDb = 0.0;           // root mean square noise of the averaged trace, 5 log10
  double lengthKm = 0.0;          // km
  double totalLossDb = 0.0;       // from the launch to before the end, as seen from this end
  bool endInRange = true;         // the trace reaches the end
};

// A simulated trace.
struct Simulation {
  Trace trace;  // as an instrument would take it
  Truth truth;  // that no instrument knows
};

// The trace that a described link would give, and what stands on it. `link` is a JSON document
// (docs/simulate.md); `name` is that of the trace. The same description and seed give the same bytes on every
// machine. Throws Error kUnreadable, which names the field, for what can't be a link; `source` names the
// document in it.
REFLYZE_API Simulation Simulate(const std::string& link, std::uint64_t seed = 1,
                                const std::string& name = "simulated", const std::string& source = "link");

}  // namespace reflyze
