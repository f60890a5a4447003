// SPDX-License-Identifier: Apache-2.0

// Slopes of simulated histories, whose truth is known: how often the interval holds it, what is told as
// creeping and when.

#include "watch/trend/Trend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace reflyze::watch {
namespace {

struct History {
  long days = 365;
  double perMonth = 0.0;
  long quietDays = 0;     // before the slope begins
  double swingDb = 0.0;   // between winter and summer
  double phase = 0.0;     // of the season
  double memory = 0.0;    // of a day's error in the next one
  double offShare = 0.0;  // of days that are off by 0.03 to 0.2 dB
  double gapShare = 0.0;  // of days without a trace
};

class TrendTest : public testing::Test {
 protected:
  double Even() { return static_cast<double>(random_() >> 11) * 0x1p-53; }
  double Normal() {
    double sum = -6.0;
    for (int i = 0; i < 12; ++i) sum += Even();
    return sum;
  }
  std::vector<DayMean> Simulated(const History& of) {
    std::vector<DayMean> days;
    double error = Normal();
    for (long i = 0; i < of.days; ++i) {
      error = of.memory * error + std::sqrt(1.0 - of.memory * of.memory) * Normal();
      double value =
          0.05 + 0.005 * error + 0.5 * of.swingDb * std::sin(0.0172024 * static_cast<double>(i) + of.phase);
      if (i > of.quietDays) value += of.perMonth * static_cast<double>(i - of.quietDays) / 30.4375;
      if (Even() < of.offShare) value += (Even() < 0.7 ? 1.0 : -1.0) * (0.03 + 0.17 * Even());
      if (Even() >= of.gapShare) days.push_back({20000 + i, value});
    }
    return days;
  }

  std::mt19937_64 random_{20261};
};

TEST_F(TrendTest, IntervalHoldsTheSlopeNineteenTimesInTwenty) {
  const History kinds[] = {{60, 0.004},
                           {60, -0.01, 0, 0.0, 0.0, 0.6, 0.04, 0.2},
                           {150, 0.01, 0, 0.0, 0.0, 0.8, 0.04, 0.2},
                           {370, 0.002, 0, 0.02, 1.0, 0.5},
                           {500, 0.0, 0, 0.04, 4.0, 0.8, 0.04, 0.2},
                           {730, -0.003, 0, 0.02, 2.5, 0.0, 0.04, 0.2}};
  constexpr int kHistories = 400;
  for (const History& kind : kinds) {
    int held = 0;
    for (int i = 0; i < kHistories; ++i) {
      const auto trend = TrendOf(Simulated(kind), 0.0);
      ASSERT_TRUE(trend);
      if (trend->lowPerMonth <= kind.perMonth && kind.perMonth <= trend->highPerMonth) ++held;
    }
    // 93 to 97 %, and two deviations of such a count.
    EXPECT_GE(held, 363) << kind.days << " days, memory " << kind.memory;
    EXPECT_LE(held, 395) << kind.days << " days, memory " << kind.memory;
  }
}

TEST_F(TrendTest, SeasonWithoutAgeingIsNotToldAsCreeping) {
  int looks = 0;
  for (int phase = 0; phase < 12; ++phase) {
    const std::vector<DayMean> all = Simulated({1095, 0.0, 0, 0.02, 0.5236 * phase, 0.0, 0.02, 0.1});
    for (long days = 60; days <= 1095; days += 15) {
      std::vector<DayMean> until;
      std::copy_if(all.begin(), all.end(), std::back_inserter(until),
                   [&](const DayMean& one) { return one.day < 20000 + days; });
      const auto trend = TrendOf(until);
      ASSERT_TRUE(trend);
      EXPECT_FALSE(trend->creeps) << "phase " << phase << ", " << days << " days: " << trend->perMonth;
      if (days >= 730) {
        EXPECT_NEAR(trend->seasonDb.value(), 0.01, 0.002);
      }
      ++looks;
    }
  }
  EXPECT_EQ(looks, 12 * 70);
}

// 0.01 dB a month is 0.02 dB in two months, four times the noise of a day.
TEST_F(TrendTest, CreepingSpliceIsToldWithinAboutTwoMonths) {
  const struct {
    long quietDays;
    double swingDb;
    long toldDays;
  } kCases[] = {{0, 0.0, 75}, {400, 0.02, 75}, {900, 0.02, 60}};
  for (const auto& one : kCases) {
    int told = 0;
    for (int i = 0; i < 40; ++i) {
      const auto trend =
          TrendOf(Simulated({one.quietDays + one.toldDays, 0.01, one.quietDays, one.swingDb, 0.4 * i}));
      if (trend->creeps && trend->lowPerMonth > 0.0) ++told;
      if (one.quietDays > 0 && trend->creeps) {
        EXPECT_GE(trend->sinceDay, 20000 + one.quietDays - 200);
      }
    }
    EXPECT_GE(told, 30) << "after " << one.quietDays << " quiet days";
  }
}

TEST_F(TrendTest, OddHistoriesAreTakenAsTheyAre) {
  EXPECT_FALSE(TrendOf({}));
  EXPECT_FALSE(TrendOf(Simulated({kLeastTrendDays - 1})));
  EXPECT_FALSE(TrendOf(std::vector<DayMean>(1000, {5, 0.1})));  // all on one day

  // Order, repeated days and what is no number change nothing; nor does a day of a broken fibre.
  std::vector<DayMean> days = Simulated({200, 0.01});
  const auto plain = TrendOf(days);
  std::vector<DayMean> twice = days;
  twice.insert(twice.end(), days.rbegin(), days.rend());
  twice.push_back({20050, std::numeric_limits<double>::quiet_NaN()});
  EXPECT_EQ(TrendOf(twice)->lowPerMonth, plain->lowPerMonth);
  days[100].value = 1e6;
  EXPECT_NEAR(TrendOf(days)->perMonth, plain->perMonth, 1e-4);

  // A quantity that never moves has an interval all the same, by what its digits can hide.
  std::vector<DayMean> constant;
  for (long i = 0; i < 14; ++i) constant.push_back({i, 3.0});
  const auto still = TrendOf(constant);
  EXPECT_DOUBLE_EQ(still->perMonth, 0.0);
  EXPECT_LT(still->lowPerMonth, 0.0);
  EXPECT_FALSE(still->creeps);

  // A fortnight each summer can't tell the season from the level, and must not try.
  std::vector<DayMean> summers;
  for (long i = 0; i < 60; ++i)
    summers.push_back({20000 + i / 2 * 1461 / 4, 0.1 + 0.001 * static_cast<double>(i % 3)});
  EXPECT_TRUE(std::isfinite(TrendOf(summers)->highPerMonth));
}

TEST_F(TrendTest, DaysUntilALimitAreThoseOfTheFastSide) {
  Trend trend;
  trend.perMonth = 0.01;
  trend.highPerMonth = 0.02;
  EXPECT_NEAR(DaysUntil(trend, 0.1).value(), 5 * 30.4375, 1e-9);
  EXPECT_EQ(DaysUntil(trend, -0.1).value(), 0.0);
  trend.highPerMonth = -0.001;
  EXPECT_FALSE(DaysUntil(trend, 0.1));
}

}  // namespace
}  // namespace reflyze::watch
