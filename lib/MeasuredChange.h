// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reflyze/monitor.h"

class TSorData;

namespace reflyze {

// Measures the events of a comparison on both traces and tells each change with its deviation. An alarm whose
// measured change lies under its limit by more than three deviations does not stand: its flags go from the
// rows and from the current record, and with the last one the failure of the whole. `memory` may be null.
void HoldAgainstMeasured(const TSorData& baseline, TSorData& current, Comparison& table,
                         MeasuredBaselines* memory);

}  // namespace reflyze
