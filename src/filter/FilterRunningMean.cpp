// SPDX-License-Identifier: Apache-2.0

// The means of the linear trace on which the automatic filter rests: one of fixed width, worked out once, by
// which an edge is compared with what surrounds it; and the running sum of the scan, whose width changes as
// it goes.

#include <algorithm>

#include "src/filter/Filter.h"

// Dropping samples and summing anew give the same mean; whichever touches fewer samples is taken.
long TSorFilter::ReCalcSum(long i, long W, long n, float& sum) const {
  const reflyze::HeldSamples lin = HeldLinf();
  const long dropped = W - n;
  if (2 * dropped < W) {
    for (long k = i - W; k < i - n; ++k) sum -= lin[k];
  } else {
    sum = 0.0F;
    for (long k = i - n; k < i; ++k) sum += lin[k];
  }
  return n;
}

// The window grows over the first `w` points, slides, and over the last `w` points loses a sample at each and
// takes up none. On a trace too short to slide over, the last `w` points come first: they take the samples of
// the full window. Each entry is the mean of what its window holds.
void TSorFilter::SetLinfAvg(long N, long w) {
  const reflyze::HeldSamples lin = HeldLinf();
  const long points = std::max(N, 0L), window = std::clamp(w, 1L, std::max(points, 1L));
  LinfAvg.resize(static_cast<size_t>(points));
  lin.Over(0, points, [&](auto samples) {
    float* means = LinfAvg.data();
    double sum = 0.0;
    const auto store = [&](long i, long held) {
      means[i] = static_cast<float>(sum / static_cast<double>(held));
    };
    for (long i = 0; i < std::min(window, points); ++i) {
      sum += samples[i];
      store(i, i + 1);
    }
    long first = 0;  // of the window
    for (long i = window; i < points - window; ++i) {
      sum += samples[i];
      sum -= samples[first++];
      store(i, window);
    }
    for (long i = std::max(points - window, 0L); i < points; ++i) {
      store(i, points - i);
      sum -= samples[first++];
    }
  });
}
