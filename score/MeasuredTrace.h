// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "measure/MeasuredLink.h"
#include "score/Score.h"

namespace reflyze::score {

// One trace: what is true, what the table of its analysis says, and what was measured from there.
struct MeasuredTrace {
  const sim::Link* link = nullptr;
  const sim::SimulatedTrace* simulated = nullptr;
  const MeasuredLink* measured = nullptr;  // none: no result
  TraceResult table;
  TraceResult shown;  // what was measured, or the table where there is no result
  double analysisS = 0.0, measuringS = 0.0;
};

// Fills in both results; the record of the trace holds its table.
MeasuredTrace Judge(const sim::Link& link, const sim::SimulatedTrace& simulated,
                    const MeasuredLink* measured);
// All that can be said of one trace, a line an event: truth, table, measured values, errors in standard
// deviations.
std::string Account(const MeasuredTrace& trace);
// The same for pictures, with the samples.
nlohmann::ordered_json JsonOf(const std::string& name, const MeasuredTrace& trace);

bool HasFibre(const TraceResult& result);
// How far the nearest other event stands from a true one, in pulses.
double NearestPulses(const TraceResult& result, size_t index);
// Which true event each found one is, or -1. The launch and the end are by their role.
std::vector<int> TruthOf(const TraceResult& result);

}  // namespace reflyze::score
