// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

namespace reflyze::bench {

// The lengths of traces, in points, over which all costs are measured.
inline void Sizes(benchmark::internal::Benchmark* benchmark) {
  for (const long points : {4096L, 16384L, 65536L, 262144L, 1000000L}) benchmark->Arg(points);
  benchmark->Unit(benchmark::kMicrosecond);
}

}  // namespace reflyze::bench
