// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>

#include "tests/src/analyser.h"

namespace {

using support::Analyser;

constexpr double kSlope = 0.0005;  // dB per point

support::TraceSpec SteppedFibre() {
  support::TraceSpec spec;
  spec.points = 3000;
  spec.spacingOwt = 50.0;  // the pulse is 10 points
  spec.slopeDbPerPoint = kSlope;
  return spec;
}

// Behind its top a reflection looks like a loss, which may be the larger step of the two: the rise still
// wins.
TEST(AnalysisSteps, AReflectionWithLossIsFoundWhereItRises) {
  Analyser bench(SteppedFibre().Peak(1500, 3.0).Step(1500, 2.0));
  long at = -1;
  const double step = bench.analysis.VarPowerTest(0.2, at, 100, 2900, 8, 10, 10, kSlope);
  EXPECT_LT(step, -1.0);
  EXPECT_NEAR(at, 1500, 3);
}

// A point that stands out at the edge of a loss, narrower than any window.
TEST(AnalysisSteps, ASinglePointBeforeALossIsAGain) {
  Analyser bench(support::SpecOfLevels(
      3000, [](long i) { return -10.0 - kSlope * i - (i > 1500 ? 1.0 : 0.0) + (i == 1500 ? 3.0 : 0.0); }));
  float step = 0.0F;
  const long at = bench.analysis.SearchLoss(1.5, 0.5, 100, 2900, 10, 20, 20, kSlope, step);
  EXPECT_NEAR(at, 1500, 2);
  EXPECT_NEAR(step, -3.0, 0.1);
}

TEST(AnalysisSteps, ShortOrReversedStretchesHoldNothing) {
  Analyser bench(SteppedFibre().Step(1500, 5.0));
  const long kStretches[][2] = {{1490, 1510}, {1600, 1400}, {-10, -5}, {2999, 3000}};
  for (const auto& stretch : kStretches) {
    float step = 9.0F;
    long at = -1;
    EXPECT_EQ(bench.analysis.SearchLoss(0.2, 0.2, stretch[0], stretch[1], 20, 40, 60, kSlope, step),
              stretch[0]);
    EXPECT_EQ(step, 0.0F);
    EXPECT_EQ(bench.analysis.VarPowerTest(0.2, at, stretch[0], stretch[1], 20, 40, 60, kSlope), 0.0);
    EXPECT_EQ(at, stretch[0]);
  }
}

}  // namespace
