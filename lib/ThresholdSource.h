// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reflyze/events.h"
#include "src/analysis/th.h"
#include "util/tinifile.h"

namespace reflyze {

// A section of a document that holds usable thresholds.
struct ThresholdDocument::Section {
  explicit Section(TIniSection* section) : keys(section) {}
  mutable TIniSection keys;  // mutable, since its reading functions are not const
};

// The thresholds of an analysis of that record. Instruments of other makers store 0 for a threshold that was
// never set; usual limits take its place.
TTH ThresholdsFor(const TSorData& record, const AnalyseOptions& options);

}  // namespace reflyze
