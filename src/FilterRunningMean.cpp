// The running mean of the linear trace: a look-ahead of fixed width, and the running sum of the scan.

#include <algorithm>

#include "src/Filter.h"

long TSorFilter::ReCalcSum(long i, long W, long n, float& sum) {
  const reflyze::HeldSamples lin = HeldLinf();
  if (2 * (W - n) < W) {
    for (long k = i - W; k < i - n; ++k) sum -= lin[k];
  } else {
    sum = 0.0F;
    for (long k = i - n; k < i; ++k) sum += lin[k];
  }
  return n;
}

void TSorFilter::SetLinfAvg(long N, long w) {
  const long points = std::max(N, 0L), window = std::max(w, 1L);
  if (LinfAvg.empty()) LinfAvg.resize(static_cast<size_t>(points));
  const long count = std::min(points, static_cast<long>(LinfAvg.size()));
  const reflyze::HeldSamples lin = HeldLinf();
  double sum = 0.0;
  long held = 0;
  for (long i = 0; i < count; ++i) {
    sum += lin[i];
    if (++held > window) {
      sum -= lin[i - window];
      held = window;
    }
    LinfAvg[static_cast<size_t>(i)] = static_cast<float>(sum / static_cast<double>(held));
  }
}
