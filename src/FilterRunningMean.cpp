// The means of the linear trace on which the automatic filter rests: one of fixed width, worked out once, by
// which an edge is compared with what surrounds it; and the running sum of the scan, whose width changes as
// it goes.

#include <algorithm>

#include "src/Filter.h"

// Dropping samples and summing anew give the same mean; whichever touches fewer samples is taken.
long TSorFilter::ReCalcSum(long i, long W, long n, float& sum) {
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
// takes up none. A trace too short to slide over goes from growing to shrinking. Each entry is the mean of what its
// window holds.
void TSorFilter::SetLinfAvg(long N, long w) {
  const reflyze::HeldSamples lin = HeldLinf();
  const long points = std::max(N, 0L), window = std::clamp(w, 1L, std::max(points, 1L));
  LinfAvg.resize(static_cast<size_t>(points));
  double sum = 0.0;
  long first = 0, held = 0;  // of the window
  const auto drop = [&] {
    sum -= lin[first++];
    --held;
  };
  for (long i = 0; i < points; ++i) {
    const bool shrinks = i >= window && i >= points - window;
    if (!shrinks) {
      sum += lin[i];
      ++held;
      if (i >= window) drop();
    }
    LinfAvg[static_cast<size_t>(i)] = static_cast<float>(sum / static_cast<double>(held));
    if (shrinks) drop();
  }
}
