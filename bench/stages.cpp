// SPDX-License-Identifier: Apache-2.0

// Runs one piece of the engine's work on a simulated trace, and nothing else, inside `MeasuredWork`. A
// profiler counts from that function on (bench/run).

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/BenchTraces.h"
#include "src/module/Auto.h"

namespace {

using namespace reflyze;
using namespace reflyze::bench;

__attribute__((noinline)) void MeasuredWork(TSorData& trace, bool direct) {
  TTH thresholds = BenchThresholds();
  thresholds.noShortAnalysis = direct ? 1 : 0;
  TAuto().AnalysisSorData(&trace, &thresholds);
}

__attribute__((noinline)) void MeasuredWork(TSorData& baseline, TSorData& current) {
  TAuto().Compare(&baseline, &current, false);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string work = argc > 1 ? argv[1] : "";
  const long points = argc > 2 ? std::atol(argv[2]) : 0;
  if (points < 1000 || points > 1000000) {
    std::fprintf(stderr, "usage: stages analyse|directly|unchanged|broken POINTS\n");
    return 2;
  }
  if (work == "analyse" || work == "directly") {
    MeasuredWork(*MetroTrace(points), work == "directly");
  } else {
    const std::unique_ptr<TSorData> baseline = MetroBaseline(points);
    MeasuredWork(*baseline, *LaterTrace(points, work == "broken" ? Change::kBreak : Change::kNothing));
  }
  return 0;
}
