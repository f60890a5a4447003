// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

namespace reflyze {

// Walks from point `start` to the end of the fibre. Strong events on the way become lines of the table; the
// last line is left in `line`, which the caller keeps, and what is known of the end in the table.
void SearchEnd(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
               LineTable& table, TEventLine& line, long start);

}  // namespace reflyze
