// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "reflyze/trace.h"
#include "sim/Simulate.h"
#include "sor/sorData.h"

namespace reflyze::support {

// A metro link of 12 km with a connector of 0.3 dB at 4 km and a splice of 0.3 dB at 8 km.
inline sim::Link MetroLink() {
  sim::Link link;
  link.rangeKm = 18.0;
  link.points = 9000;
  link.spacingM = 2.0;
  link.pulseNs = 100.0;
  link.receiver.bandwidthMhz = 20.0;
  link.receiver.noiseDb = -28.0;
  link.launch = {0.2, -48.0};
  link.sections = {{4.0, 0.2, -81.9}, {4.0, 0.2, -81.9}, {4.0, 0.2, -81.9}};
  link.joints = {{0.3, -50.0}, {0.3, {}}};
  link.end = {0.0, -30.0};
  return link;
}

// A record as its file.
inline std::string BytesOf(TSorData& record) {
  TSorFile memory(nullptr, "m");
  record.Write(&memory);
  const TSorFile& written = memory;
  return {written.GetData(), written.GetDataSize()};
}

// A record as the library opens its file.
inline Trace TraceOf(TSorData& record, const std::string& name = "t.sor") {
  const std::string bytes = BytesOf(record);
  return Trace::FromBytes(name, {bytes.begin(), bytes.end()});
}

}  // namespace reflyze::support
