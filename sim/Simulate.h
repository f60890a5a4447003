// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "reflyze/simulate.h"
#include "sim/Link.h"
#include "sor/sorData.h"

namespace reflyze::sim {

using reflyze::TrueEvent;
using reflyze::Truth;

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
nlohmann::ordered_json JsonOfTruth(const std::string& file, const TSorData& record, const Truth& truth);

}  // namespace reflyze::sim
