#pragma once

// The engine as a host of the module sees it: one object that analyses traces and compares them, with every
// figure of its work in reach. The work itself is done by the two that it is made of.

#include "src/analysis/TraceAnalysis.h"
#include "src/monitor/TraceComparison.h"

// What the host can ask for. Only the numbers cross the boundary of the module.
enum TCmdASF : int {
  cmdAnalyse = 0,          // full analysis of the current trace
  cmdAnalyseEndsOnly = 1,  // the same, then only the first and the last event stay
  cmdCompare = 2,          // comparison of the current trace with a baseline
};

class TAuto : public reflyze::TraceAnalysis, public reflyze::TraceComparison {
 public:
  TAuto() : TraceComparison(static_cast<TraceAnalysis&>(*this)) {}

  // Runs one command on `params`: [0] the current trace (TSorData), [1] thresholds (TTH, may be null), [10]
  // the baseline (TSorData, comparison only). The analyses always give 1, and so does an unknown command; the
  // comparison gives its result, and takes a `value` other than 0 for a recheck.
  int ServiceFunction(TCmdASF cmd, long& value, void** params);
};
