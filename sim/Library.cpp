// SPDX-License-Identifier: Apache-2.0

// The simulator as the library shows it.

#include "lib/LoadedRecord.h"
#include "reflyze/record.h"
#include "reflyze/report.h"
#include "report/JsonText.h"
#include "sim/Simulate.h"

namespace reflyze {

Simulation Simulate(const std::string& link, std::uint64_t seed, const std::string& name,
                    const std::string& source) {
  try {
    sim::SimulatedTrace simulated = sim::Simulate(sim::LinkFromText(link), seed);
    const std::string bytes = RecordBytes(*simulated.record, name);
    return {Trace::FromBytes(name, {bytes.begin(), bytes.end()}), std::move(simulated.truth)};
  } catch (const sim::LinkError& error) {
    throw Error(ErrorKind::kUnreadable, source, error.what());
  }
}

std::string JsonOf(const Simulation& simulation, int indent) {
  const Trace& trace = simulation.trace;
  return JsonText(sim::JsonOfTruth(trace.Name(), RecordOf(trace), simulation.truth), indent) + "\n";
}

}  // namespace reflyze
