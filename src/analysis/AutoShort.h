// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

namespace reflyze {

// What the filter-based search comes to.
struct ShortResult {
  long events = 0;         // of the filter; 0 when the direct search has to do it
  unsigned int detectors;  // those that the noise of this trace leaves in use, DetectorBit
};

// Searches with the events of the automatic filter, and builds the lines from them.
ShortResult ShortAnalysis(const AnalysisSettings& settings, const TraceScale& scale, NoiseSeen& noise,
                          LineTable& table);

}  // namespace reflyze
