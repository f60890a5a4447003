// SPDX-License-Identifier: Apache-2.0

// Measuring a link on its trace, behind the engine's analysis. The counter `analyses` is its time in analyses
// of the same trace, taken in the same run: 1 is wanted, at most. The link stays the same while points grow.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <memory>

#include "bench/BenchSizes.h"
#include "bench/BenchTraces.h"
#include "bench/HeapPeak.h"
#include "measure/MeasuredLink.h"
#include "src/module/Auto.h"

namespace {

using namespace reflyze;
using namespace reflyze::bench;

void Analyse(TSorData& record) {
  TTH thresholds = BenchThresholds();
  TAuto().AnalysisSorData(&record, &thresholds);
}

// Seconds of the processor for an analysis, the best of several.
double AnalysisSeconds(const TSorData& trace) {
  double best = std::numeric_limits<double>::max();
  for (int attempt = 0; attempt < 5; ++attempt) {
    const std::unique_ptr<TSorData> copy = CopyOf(trace);
    const std::clock_t begin = std::clock();
    Analyse(*copy);
    best = std::min(best, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
  }
  return best;
}

void MeasuresLink(benchmark::State& state) {
  const std::unique_ptr<TSorData> trace = MetroTrace(state.range(0)), analysed = CopyOf(*trace);
  Analyse(*analysed);
  MeasureOptions asked;
  asked.leastLossDb = BenchThresholds().THLoss;
  for (auto _ : state) {
    HeapPeak::Restart();
    const std::optional<MeasuredLink> link = MeasureLink(*analysed, asked);
    state.counters["events"] = link ? static_cast<double>(link->events.size()) : 0.0;
  }
  using benchmark::Counter;
  const auto points = static_cast<double>(state.range(0));
  state.counters["s_per_point"] = Counter(points, Counter::kIsIterationInvariantRate | Counter::kInvert);
  state.counters["bytes_per_point"] = static_cast<double>(HeapPeak::Bytes()) / points;
  state.counters["analyses"] =
      Counter(AnalysisSeconds(*trace), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

BENCHMARK(MeasuresLink)->Apply(Sizes);

}  // namespace
