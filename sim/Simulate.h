#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "sim/Link.h"
#include "sor/sorData.h"

namespace reflyze::sim {

// What stands on a simulated fibre, as an ideal analysis would report it.
struct TrueEvent {
  int number = 0;
  double distanceKm = 0.0;
  std::string code;     // SR-4731
  double lossDb = 0.0;  // as seen from this end: insertion loss and change of backscatter coefficient
  double insertionLossDb = 0.0;
  std::optional<double> reflectanceDb;
  double backscatterOffDb = 0.0;    // backscatter coefficient of the section before, over that of the record
  double peakDb = 0.0;              // height of the reflection above the backscatter before it, 0 for none
  double attenuationDbPerKm = 0.0;  // of the section before
  double snrDb = 0.0;               // lower one of the levels on both sides above the noise
  bool saturated = false;
};

struct Truth {
  std::vector<TrueEvent> events;
  std::vector<double> ghostsKm;  // echoes that look like events and are none
  double noiseDb = 0.0;          // root mean square noise of the averaged trace, 5 log10
  double lengthKm = 0.0;
  double totalLossDb = 0.0;  // from the launch to before the end, as seen from this end
  bool endInRange = true;
};

struct SimulatedTrace {
  std::unique_ptr<TSorData> record;
  Truth truth;
  std::vector<float> cleanDb;  // the levels that the trace would have without noise, one a point
};

// The trace of a link. The same description and seed give the same record on every machine: the noise comes
// from the 64-bit Mersenne twister, twelve uniform numbers added for one normal one, and levels are rounded
// to 0.001 dB.
SimulatedTrace Simulate(const Link& link, std::uint64_t seed);

// The truth in the shape of an analysis listing, with the signal-to-noise ratio of each event.
nlohmann::ordered_json JsonOfTruth(const std::string& file, const SimulatedTrace& trace);

}  // namespace reflyze::sim
