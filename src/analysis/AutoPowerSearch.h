// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

namespace reflyze {

// Looks for events inside every line by direct tests of power differences, and splits the lines at them: the
// alternative to SearchInsideLines, kept for comparison. The noise that it measures on the way is noted.
void SearchInsideByPower(const AnalysisSettings& settings, const TraceScale& scale, NoiseSeen& noise,
                         LineTable& table);

}  // namespace reflyze
