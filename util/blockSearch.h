// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace reflyze {

// Searches for the few places that matter among many. The test has to be harmless at every place, since it is
// made for a block of places at once: without a branch, compilers turn that into a few instructions. Each
// place has a bit in the answer, so that the one looked for is known without another test.
constexpr int kSearchBlock = 16;

// Which of the kSearchBlock places from `first` on pass, the first as the lowest bit.
template <class Passes>
inline unsigned int PassingInBlock(long first, Passes passes) {
  // (Shifts by a variable would keep compilers from testing several places in one instruction.)
  static constexpr unsigned int kBits[kSearchBlock] = {
      1U << 0, 1U << 1, 1U << 2,  1U << 3,  1U << 4,  1U << 5,  1U << 6,  1U << 7,
      1U << 8, 1U << 9, 1U << 10, 1U << 11, 1U << 12, 1U << 13, 1U << 14, 1U << 15};
  unsigned int passing = 0;
  for (int k = 0; k < kSearchBlock; ++k) passing |= passes(first + k) ? kBits[k] : 0U;
  return passing;
}

// First place from `from` up to but not including `end` that passes. Where none does, `end`, or `from` if
// that lies behind `end`.
template <class Passes>
inline long FirstThatPasses(long from, long end, Passes passes) {
  for (; from <= end - kSearchBlock; from += kSearchBlock) {
    const unsigned int passing = PassingInBlock(from, passes);
    if (passing != 0) return from + __builtin_ctz(passing);
  }
  while (from < end && !passes(from)) ++from;
  return from;
}

// Going back from a place to `limit`, the first that passes; `limit` - 1 for none.
template <class Passes>
inline long LastThatPasses(long from, long limit, Passes passes) {
  constexpr int kHighestBit = 31;
  if (from < limit) return limit - 1;
  for (; from - limit >= kSearchBlock; from -= kSearchBlock) {
    const long first = from - kSearchBlock + 1;
    const unsigned int passing = PassingInBlock(first, passes);
    if (passing != 0) return first + kHighestBit - __builtin_clz(passing);
  }
  while (from >= limit && !passes(from)) --from;
  return from;
}

}  // namespace reflyze
