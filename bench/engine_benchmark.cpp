// SPDX-License-Identifier: Apache-2.0

// What the engine costs for each point. The counter `passes` compares it with a plain pass that sums the
// levels of the same trace in the same run; it is the one to look at, since it does not depend on the
// machine. The counter of a comparison is `analyses`. `bytes_kept` is what it leaves in use when its records
// are gone.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "bench/BenchSizes.h"
#include "bench/BenchTraces.h"
#include "lib/Baseline.h"
#include "measure/PlausibleComparison.h"
#include "src/filter/Filter.h"
#include "src/module/Module.h"

namespace {

using namespace reflyze;

const TSorData& TraceOf(long points) {
  static std::map<long, std::unique_ptr<TSorData>> traces;
  std::unique_ptr<TSorData>& trace = traces[points];
  if (!trace) trace = bench::MetroTrace(points);
  return *trace;
}

// Seconds of the plain pass over all levels, the best of several.
double PlainPassSeconds(const TSorData& trace) {
  using Clock = std::chrono::steady_clock;
  const long points = trace.DataPts->GetPointsNum();
  double best = std::numeric_limits<double>::max();
  const long rounds = std::max(3L, 2000000L / points);
  for (int attempt = 0; attempt < 5; ++attempt) {
    const auto begin = Clock::now();
    for (long round = 0; round < rounds; ++round) {
      double sum = 0.0;
      for (long i = 0; i < points; ++i) sum += trace.NumTofLevel(i);
      benchmark::DoNotOptimize(sum);
    }
    const double seconds =
        std::chrono::duration<double>(Clock::now() - begin).count() / static_cast<double>(rounds);
    best = std::min(best, seconds);
  }
  return best;
}

void AnalyseByModule(TSorData& trace) {
  TTH thresholds = bench::BenchThresholds();
  void* parameters[11] = {&trace, &thresholds};
  long value = 0;
  ServiceFunction(cmdAnalyse, value, parameters);
}

// Seconds of the processor for an analysis, the best of several.
double AnalysisSeconds(const TSorData& trace) {
  double best = std::numeric_limits<double>::max();
  for (int attempt = 0; attempt < 5; ++attempt) {
    TSorData copy;
    copy.Assign(trace);
    const std::clock_t begin = std::clock();
    AnalyseByModule(copy);
    best = std::min(best, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
  }
  return best;
}

// Counters: `passes` is the time of one iteration over that of the plain pass, `ns_per_point` the time for
// each point.
void Report(benchmark::State& state, const TSorData& trace) {
  const auto points = static_cast<double>(trace.DataPts->GetPointsNum());
  using benchmark::Counter;
  state.counters["passes"] =
      Counter(PlainPassSeconds(trace), Counter::kIsIterationInvariantRate | Counter::kInvert);
  state.counters["s_per_point"] = Counter(points, Counter::kIsIterationInvariantRate | Counter::kInvert);
}

std::vector<char> BytesOf(TSorData& trace) {
  TSorFile memory(nullptr, "m");
  trace.Write(&memory);
  return std::vector<char>(memory.GetData(), memory.GetData() + memory.GetDataSize());
}

void PlainPass(benchmark::State& state) {
  const TSorData& trace = TraceOf(state.range(0));
  for (auto _ : state) {
    double sum = 0.0;
    for (long i = 0; i < trace.DataPts->GetPointsNum(); ++i) sum += trace.NumTofLevel(i);
    benchmark::DoNotOptimize(sum);
  }
  Report(state, trace);
}

void ReadFromMemory(benchmark::State& state) {
  TSorData copy;
  copy.Assign(TraceOf(state.range(0)));
  const std::vector<char> bytes = BytesOf(copy);
  for (auto _ : state) {
    TSorFile file(bytes.data(), bytes.size());
    TSorData record;
    record.Read(&file);
    benchmark::DoNotOptimize(record.DataPts);
  }
  Report(state, copy);
}

void WriteToMemory(benchmark::State& state) {
  TSorData copy;
  copy.Assign(TraceOf(state.range(0)));
  for (auto _ : state) {
    TSorFile memory(nullptr, "m");
    copy.Write(&memory);
    benchmark::DoNotOptimize(memory.GetData());
  }
  Report(state, copy);
}

void LinearTrace(benchmark::State& state) {
  TSorData copy;
  copy.Assign(TraceOf(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(copy.SetLinf());
  Report(state, copy);
}

void Analyse(benchmark::State& state) {
  const TSorData& trace = TraceOf(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    auto copy = std::make_unique<TSorData>();
    copy->Assign(trace);
    state.ResumeTiming();
    AnalyseByModule(*copy);
    state.PauseTiming();
    state.counters["events"] = copy->KeyEvents->TNKE;
    copy.reset();
    state.ResumeTiming();
  }
  Report(state, trace);
}

// Compares a fibre on which nothing has changed, as the program does: with a search for new events in every
// section, and with the answer held against the levels.
void CompareUnchanged(benchmark::State& state) {
  const std::unique_ptr<TSorData> baseline = bench::MetroBaseline(state.range(0));
  const std::unique_ptr<TSorData> trace = bench::LaterTrace(state.range(0), bench::Change::kNothing);
  const auto compare = [](TSorData& base, TSorData& current) {
    void* parameters[11] = {&current};
    parameters[10] = &base;
    long recheck = 0;
    return ServiceFunction(cmdCompare, recheck, parameters);
  };
  const size_t before = mallinfo2().uordblks;
  for (auto _ : state) {
    state.PauseTiming();
    auto copy = std::make_unique<TSorData>();
    copy->Assign(*trace);
    state.ResumeTiming();
    MakeComparable(*baseline, *copy);
    ComparePlausibly(*baseline, *copy, compare);
    state.PauseTiming();
    state.counters["changed"] = copy->RFTSEvents->IsFail() ? 1.0 : 0.0;
    copy.reset();
    state.ResumeTiming();
  }
  state.counters["bytes_kept"] = static_cast<double>(mallinfo2().uordblks) - static_cast<double>(before);
  using benchmark::Counter;
  state.counters["analyses"] =
      Counter(AnalysisSeconds(*trace), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

void AutomaticFilter(benchmark::State& state) {
  const TSorData& trace = TraceOf(state.range(0));
  const auto points = static_cast<size_t>(trace.DataPts->GetPointsNum());
  for (auto _ : state) {
    state.PauseTiming();
    auto copy = std::make_unique<TSorData>();
    copy->Assign(trace);
    copy->SetLinf();
    std::vector<short> widths(points, 1);
    TFEvent events[100];
    TSorFilter filter(copy.get());
    filter.result.events = events;
    filter.result.pointMap = widths.data();
    state.ResumeTiming();
    filter.SetFilter(7);
    state.PauseTiming();
    state.counters["events"] = static_cast<double>(filter.result.count);
    copy.reset();
    state.ResumeTiming();
  }
  Report(state, trace);
}

BENCHMARK(PlainPass)->Apply(bench::Sizes);
BENCHMARK(ReadFromMemory)->Apply(bench::Sizes);
BENCHMARK(WriteToMemory)->Apply(bench::Sizes);
BENCHMARK(LinearTrace)->Apply(bench::Sizes);
BENCHMARK(AutomaticFilter)->Apply(bench::Sizes);
BENCHMARK(Analyse)->Apply(bench::Sizes);
BENCHMARK(CompareUnchanged)->Apply(bench::Sizes);

}  // namespace
