// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "ref/math/ref_Math.h"
#include "src/module/Auto.h"
#include "tests/support/trace.h"

namespace support {

// A trace with these levels, one a point.
inline TraceSpec SpecOfLevels(long points, std::function<double(long)> level) {
  TraceSpec spec;
  spec.points = points;
  spec.level = std::move(level);
  return spec;
}

// An analysis that stands where its driver leaves it once the scale of the trace is settled. Single stages
// start from here.
struct Analyser {
  std::unique_ptr<TSorData> trace;
  TAuto analysis;

  explicit Analyser(const TraceSpec& spec) : trace(BuildTrace(spec)) {
    TAuto& a = analysis;
    a.sor = trace.get();
    a.nPoints = trace->DataPts->GetPointsNum();
    a.linf = RefEmbGetLinf(a.sor);
    a.owtDS = trace->FxdParams->GetOwtDS(0);
    a.lenDS = static_cast<float>(trace->dOwtToLen(a.owtDS));
    a.aciNominal = 0.2;
    a.lossDS = static_cast<float>(a.aciNominal * a.lenDS);
    a.dbOnOwt = spec.receiverDbPerPoint / a.owtDS;
    a.owtRecover = 1.5 / a.dbOnOwt;
    const long pulse = static_cast<long>(spec.PulsePoints());
    const long recovery = static_cast<long>(1.5 / spec.receiverDbPerPoint);
    a.winPulse = pulse + 1;
    a.winEvent = pulse + recovery + 1;
    a.winDead = pulse + 3 * recovery + 1;
    a.nf = spec.noiseFloorDb;
    a.noiseAmp = a.th.polar;
  }

  double Km(long point) const { return trace->NumToALen(point); }
};

}  // namespace support
