#pragma once

namespace reflyze {

// Searches for the few places that matter among many. Where a test can be made of any place at no risk, it
// is made for a block of places at once, without a branch, which compilers turn into a few instructions; only
// a block in which something passes is looked at place by place.
constexpr long kSearchBlock = 16;

template <class Passes>
inline bool AnyInBlock(long first, Passes passes) {
  unsigned int any = 0;
  for (long k = 0; k < kSearchBlock; ++k) any |= passes(first + k) ? 1U : 0U;
  return any != 0;
}

// First place from `from` up to but not including `end` that passes; `end`, or `from` behind it, for none.
template <class Passes>
inline long FirstThatPasses(long from, long end, Passes passes) {
  while (from <= end - kSearchBlock && !AnyInBlock(from, passes)) from += kSearchBlock;
  while (from < end && !passes(from)) ++from;
  return from;
}

// Going back from a place to `limit`, the first that passes; `limit` - 1 for none.
template <class Passes>
inline long LastThatPasses(long from, long limit, Passes passes) {
  if (from < limit) return limit - 1;
  while (from - limit >= kSearchBlock && !AnyInBlock(from - kSearchBlock + 1, passes)) from -= kSearchBlock;
  while (from >= limit && !passes(from)) --from;
  return from;
}

}  // namespace reflyze
