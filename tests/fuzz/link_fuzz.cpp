// SPDX-License-Identifier: Apache-2.0

// Link descriptions from any text. A description is refused with one line, or is the same after writing and
// reading, and a short one gives a trace that can be stored.

#include "sim/Simulate.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  reflyze::sim::Link link;
  try {
    link = reflyze::sim::LinkFromText(text);
  } catch (const reflyze::sim::LinkError& error) {
    Check(error.what()[0] != '\0');
    return 0;
  }
  const std::string written = JsonOfLink(link).dump();
  const reflyze::sim::Link back = reflyze::sim::LinkFromText(written);
  Check(JsonOfLink(back).dump() == written);
  if (link.points > 20000) return 0;
  reflyze::sim::SimulatedTrace trace = Simulate(link, size);
  Check(trace.record->DataPts->GetPointsNum() == link.points);
  fuzzing::CheckStorable(*trace.record);
  Check(!reflyze::sim::JsonOfTruth("trace", *trace.record, trace.truth).dump().empty());
  return 0;
}
