#include <gtest/gtest.h>

#include <cmath>

#include "tests/src/analyser.h"

namespace {

using support::Analyser;

constexpr double kSlope = 0.0005;  // dB per point

support::TraceSpec Fibre() {
  support::TraceSpec spec;
  spec.points = 3000;
  spec.spacingOwt = 50.0;  // the pulse is 10 points
  spec.slopeDbPerPoint = kSlope;
  return spec;
}

struct StepCase {
  const char* name;
  support::TraceSpec spec;
  long pin, d1, d2;
  long at;        // where the event begins; below 0: none
  double stepDb;  // positive for a loss
};

std::vector<StepCase> StepCases() {
  return {
      {"loss", Fibre().Step(1500, 0.5), 20, 40, 60, 1500, 0.5},
      {"gain", Fibre().Step(1500, -0.5), 20, 40, 60, 1500, -0.5},
      {"loss, window moved in strides", Fibre().Step(1500, 0.5), 100, 40, 200, 1500, 0.5},
      {"reflection", Fibre().Peak(1500, 4.0), 10, 12, 12, 1500, -4.0},
      {"nothing", Fibre(), 20, 40, 60, -1, 0.0},
      {"less than the limit", Fibre().Step(1500, 0.15), 20, 40, 60, -1, 0.15},
  };
}

TEST(AnalysisSteps, FirstStepBeyondALimit) {
  for (const StepCase& c : StepCases()) {
    Analyser bench(c.spec);
    float step = 9.0F;
    const long at = bench.analysis.SearchLoss(0.2, 0.2, 100, 2900, c.pin, c.d1, c.d2, kSlope, step);
    if (c.at < 0) {
      EXPECT_LE(std::abs(step), 0.2) << c.name;
      EXPECT_NEAR(at, 2900 - 2 * c.pin - c.d2, c.pin / 15 + 1) << c.name;
      continue;
    }
    // The hit is the first pair of windows that shows more than the limit: the event lies between them.
    EXPECT_GT(std::abs(step), 0.2) << c.name;
    EXPECT_EQ(step > 0.0F, c.stepDb > 0.0) << c.name;
    EXPECT_NEAR(at, c.at, 2 * c.pin + c.d2) << c.name;
  }
}

TEST(AnalysisSteps, LargestStepOfAStretch) {
  for (const StepCase& c : StepCases()) {
    Analyser bench(c.spec);
    long at = -1;
    const double step = bench.analysis.VarPowerTest(0.2, at, 100, 2900, c.pin, c.d1, c.d2, kSlope);
    EXPECT_NEAR(step, c.stepDb, 0.02 + 0.02 * std::abs(c.stepDb)) << c.name;
    if (c.at >= 0) {
      EXPECT_NEAR(at, c.at, c.d2 + 1) << c.name;
    }
  }
}

// Behind its top a reflection looks like a loss, which may be the larger step of the two: the rise still
// wins.
TEST(AnalysisSteps, AReflectionWithLossIsFoundWhereItRises) {
  Analyser bench(Fibre().Peak(1500, 3.0).Step(1500, 2.0));
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
  Analyser bench(Fibre().Step(1500, 5.0));
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
