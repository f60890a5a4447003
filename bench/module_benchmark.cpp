// SPDX-License-Identifier: Apache-2.0

// The commands of the module on a simulated metro link: the time for each point, and the memory that they
// hold on the heap.

#include <benchmark/benchmark.h>

#include "bench/BenchSizes.h"
#include "bench/BenchTraces.h"
#include "bench/HeapPeak.h"
#include "src/module/Module.h"

namespace {

using namespace reflyze;
using namespace reflyze::bench;

// Times `work(given)`. `prepare` makes what it is given anew each time, outside of the time.
template <class Prepare, class Work>
void Time(benchmark::State& state, Prepare prepare, Work work) {
  long heapBytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto given = prepare();
    HeapPeak::Restart();
    state.ResumeTiming();
    work(given);
    state.PauseTiming();
    heapBytes = HeapPeak::Bytes();
    given = {};
    state.ResumeTiming();
  }
  using benchmark::Counter;
  const auto points = static_cast<double>(state.range(0));
  state.counters["s_per_point"] = Counter(points, Counter::kIsIterationInvariantRate | Counter::kInvert);
  state.counters["bytes_per_point"] = static_cast<double>(heapBytes) / points;
}

void Analyse(benchmark::State& state, bool direct) {
  const std::unique_ptr<TSorData> trace = MetroTrace(state.range(0));
  Time(
      state, [&] { return CopyOf(*trace); },
      [&](std::unique_ptr<TSorData>& record) {
        TTH thresholds = BenchThresholds();
        thresholds.noShortAnalysis = direct ? 1 : 0;
        void* parameters[11] = {record.get(), &thresholds};
        long value = 0;
        ServiceFunction(cmdAnalyse, value, parameters);
        state.counters["events"] = record->KeyEvents->TNKE;
      });
}

struct Pair {
  std::unique_ptr<TSorData> baseline, current;
};

void Compare(benchmark::State& state, Change change) {
  const Pair pair{MetroBaseline(state.range(0)), LaterTrace(state.range(0), change)};
  Time(
      state,
      [&] {
        return Pair{CopyOf(*pair.baseline), CopyOf(*pair.current)};
      },
      [&](Pair& given) {
        void* parameters[11] = {given.current.get()};
        parameters[10] = given.baseline.get();
        long value = 0;
        state.counters["result"] = ServiceFunction(cmdCompare, value, parameters);
      });
}

void ModuleAnalyses(benchmark::State& state) { Analyse(state, false); }
void ModuleAnalysesDirectly(benchmark::State& state) { Analyse(state, true); }
void ModuleComparesUnchanged(benchmark::State& state) { Compare(state, Change::kNothing); }
void ModuleComparesBroken(benchmark::State& state) { Compare(state, Change::kBreak); }

BENCHMARK(ModuleAnalyses)->Apply(Sizes);
BENCHMARK(ModuleAnalysesDirectly)->Apply(Sizes);
BENCHMARK(ModuleComparesUnchanged)->Apply(Sizes);
BENCHMARK(ModuleComparesBroken)->Apply(Sizes);

}  // namespace
