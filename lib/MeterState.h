// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "lib/LoadedRecord.h"
#include "measure/PlaceFigures.h"
#include "reflyze/measure.h"

namespace reflyze {

// A trace made ready to be measured at many places.
struct MeterState {
  LoadedRecord loaded;                  // its times count from the first sample
  std::optional<MeasuredLink> link;     // none where the trace can't be understood as one
  std::optional<PlaceFigures> figures;  // always there
};

// Throws Error kUnreadable for a trace that can't be measured.
std::shared_ptr<const MeterState> MakeMeterState(Trace trace);

}  // namespace reflyze
