// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "sor/blocks/sorIParm.h"

namespace {

using Steps = std::vector<signed char>;

struct State {
  unsigned short level = 0;
  long averages = 0;
  int bad = 0;
};

State StateOf(const TSorBlockQRTParameters& block, unsigned short n) {
  State state;
  state.bad = block.GetNL(n, state.level, state.averages);
  return state;
}

// Differences wider than a byte are spread over entries. The two signs differ: rises go in steps of 127,
// falls in steps of 128, and the rest of each belongs to its own step.
TEST(NoiseLog, WideStepsAreSpread) {
  const struct {
    int ratioSteps;
    long averageSteps;
    Steps navr, snr;
  } kCases[] = {
      {0, 0, {0}, {0}},
      {5, 3, {3}, {5}},
      {-5, 0, {0}, {-5}},
      {127, 126, {126}, {0}},  // a full last step of the ratio comes out as nothing
      {128, 127, {127, 0}, {127, 1}},
      {-128, 0, {0}, {0}},
      {-129, 0, {0, 0}, {-128, -1}},
      {300, 0, {0, 0, 0}, {127, 127, 46}},
      {-300, 0, {0, 0, 0}, {-128, -128, -44}},
      {2, 300, {127, 127, 46}, {0, 0, 2}},
      {300, 130, {127, 0, 3}, {127, 127, 46}},
      {0, -130, {-3}, {0}},  // a log cannot lose averages in full steps
  };
  for (const auto& c : kCases) {
    TSorBlockQRTParameters block;
    block.SNL = 30000;
    block.NLSF = 10;
    block.NASF = 4;
    block.AddNL(static_cast<unsigned short>(30000 + 10 * c.ratioSteps), 4 * c.averageSteps);
    EXPECT_EQ(block.NAVR, c.navr) << c.ratioSteps << " " << c.averageSteps;
    EXPECT_EQ(block.SNR, c.snr) << c.ratioSteps << " " << c.averageSteps;
    EXPECT_EQ(block.TNL, c.snr.size());
  }
}

// Whatever a measurement logs comes back: exactly where the differences are whole steps, apart from the full
// last step above, and never further off than the next entry makes good.
TEST(NoiseLog, AMeasurementComesBack) {
  std::mt19937 random(7);
  int compared = 0;
  for (int run = 0; run < 50; ++run) {
    TSorBlockQRTParameters block;
    block.SNL = 10000;
    block.NASF = static_cast<unsigned short>(1 + random() % 100);
    long averages = 0, level = block.SNL;
    for (int i = 0; i < 40; ++i) {
      averages += block.NASF * static_cast<long>(random() % 1000);
      const long steps = static_cast<long>(random() % 12) - 2;
      level += block.NLSF * steps;
      block.AddNL(static_cast<unsigned short>(level), averages);
      const State end = StateOf(block, block.TNL);
      EXPECT_EQ(end.averages, averages);
      if (end.bad == 0) {
        ASSERT_EQ(end.level, level) << "run " << run << " entry " << i;
        ++compared;
      }
    }
    EXPECT_EQ(block.GetSNR(), StateOf(block, 0xFFFF).level / 1000.0);
    EXPECT_EQ(block.GetNoisePeak(), 2.4 - block.GetSNR());
  }
  EXPECT_GT(compared, 1000);
}

TEST(NoiseLog, PrefixesAddUpWithSign) {
  TSorBlockQRTParameters block;
  block.SNL = 20000;
  block.NASF = 16;
  block.NAVR = {100, -1, 127};
  block.SNR = {20, -30, 5};
  block.TNL = 3;
  const struct {
    unsigned short n, level;
    long averages;
  } kCases[] = {{0, 20000, 0}, {1, 21000, 1600}, {2, 19500, 1584}, {3, 19750, 3616}, {999, 19750, 3616}};
  for (const auto& c : kCases) {
    const State state = StateOf(block, c.n);
    EXPECT_EQ(state.level, c.level) << c.n;
    EXPECT_EQ(state.averages, c.averages) << c.n;
    EXPECT_EQ(state.bad, 0) << c.n;
  }
}

// The ratio may grow by 0.75 dB times the root of the averages and 5 dB more, and fall by less than 5 dB.
TEST(NoiseLog, ImplausibleGrowthFallsBackToTheStart) {
  const struct {
    signed char navr, snr;
    unsigned short nlsf;
    int bad;
  } kCases[] = {
      {0, 115, 50, 1},                                         // 5750 is not below sqrt(1) * 750 + 5000
      {0, 114, 50, 0},                                         // 5700
      {3, 127, 50, 0},                                         // 6350 < sqrt(4) * 750 + 5000
      {3, 13, 500, 1},                                         // 6500 is not
      {99, 125, 100, 1}, {99, 124, 100, 0}, {0, -100, 50, 1},  // -5000
      {0, -99, 50, 0},   {-50, 90, 50, 0},                     // a root of nothing: 4500 < 5000
      {-50, 100, 50, 1},
  };
  for (const auto& c : kCases) {
    TSorBlockQRTParameters block;
    block.SNL = 7000;
    block.NLSF = c.nlsf;
    block.NAVR = {c.navr};
    block.SNR = {c.snr};
    block.TNL = 1;
    const State state = StateOf(block, 1);
    EXPECT_EQ(state.bad, c.bad) << +c.navr << " " << +c.snr;
    EXPECT_EQ(state.level, c.bad ? 7000 : static_cast<unsigned short>(7000 + c.snr * c.nlsf));
  }
}

TEST(NoiseLog, BrokenLogs) {
  TSorBlockQRTParameters stepless;  // neither division has a divisor
  stepless.NLSF = stepless.NASF = 0;
  stepless.AddNL(5000, 1000);
  EXPECT_EQ(stepless.TNL, 1);
  EXPECT_EQ(StateOf(stepless, 1).level, stepless.SNL);

  TSorBlockQRTParameters full;
  full.SetTNL(65535);
  std::fill(full.NAVR.begin(), full.NAVR.end(), 127);
  std::fill(full.SNR.begin(), full.SNR.end(), -128);
  full.NLSF = full.NASF = 65535;
  const State end = StateOf(full, 65535);
  EXPECT_EQ(end.bad, 1);
  EXPECT_EQ(end.averages, 127L * 65535 * 65535);
  full.AddNL(100, 5);  // no room
  EXPECT_EQ(full.TNL, 65535);
  EXPECT_EQ(full.NAVR.size(), 65535u);

  TSorBlockQRTParameters promised;  // a count that a host set without the arrays
  promised.TNL = 10;
  EXPECT_EQ(StateOf(promised, 10).bad, 0);
  promised.AddNL(50, std::numeric_limits<long>::max());
  EXPECT_EQ(promised.NAVR.size(), promised.TNL);
}

}  // namespace
