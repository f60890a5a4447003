// SPDX-License-Identifier: Apache-2.0

// Searches in blocks find what a walk place by place does, and ask about no place outside their range.

#include "util/blockSearch.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using reflyze::FirstThatPasses;
using reflyze::LastThatPasses;

TEST(BlockSearch, EqualsAWalkAndStaysInside) {
  const std::set<long> kHits[] = {{}, {5}, {20}, {5, 21}, {36, 37}, {20, 27, 34}, {52}, {5, 52}, {-4, 60}};
  for (const std::set<long>& hits : kHits) {
    for (long from = 5; from <= 53; ++from) {
      for (long end = from; end <= 53; ++end) {
        const auto passes = [&](long i) {
          EXPECT_TRUE(i >= from && i < end) << i << " in " << from << ".." << end;
          return hits.count(i) != 0;
        };
        long first = from, last = end - 1;
        while (first < end && hits.count(first) == 0) ++first;
        while (last >= from && hits.count(last) == 0) --last;
        ASSERT_EQ(FirstThatPasses(from, end, passes), first) << from << ".." << end;
        ASSERT_EQ(LastThatPasses(end - 1, from, passes), last) << from << ".." << end;
      }
    }
  }
  const auto never = [](long) { return ADD_FAILURE(), true; };
  EXPECT_EQ(FirstThatPasses(9, 3, never), 9);
  EXPECT_EQ(LastThatPasses(3, 9, never), 8);
}

}  // namespace
