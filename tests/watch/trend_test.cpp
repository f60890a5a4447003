// SPDX-License-Identifier: Apache-2.0
// Trends over months, on simulated days: whether intervals hold, and who is told of what.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "watch/trend/Trend.h"

namespace reflyze::watch {
namespace {

constexpr double kDaysPerMonth = 365.25 / 12.0;

struct Splice {
  double perMonth = 0.0, noiseDb = 0.005, alike = 0.0, seasonDb = 0.0, phase = 0.0;
  double offShare = 0.0, gapShare = 0.0;
};

std::vector<DayMean> DaysOf(const Splice& splice, long days, std::mt19937& random) {
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  std::vector<DayMean> means;
  double error = normal(random);
  for (long day = 0; day < days; ++day) {
    error = splice.alike * error + std::sqrt(1.0 - splice.alike * splice.alike) * normal(random);
    const auto at = static_cast<double>(day);
    double value = 0.08 + splice.perMonth * at / kDaysPerMonth + splice.noiseDb * error +
                   splice.seasonDb * std::sin(2.0 * 3.14159265358979 * at / 365.25 + splice.phase);
    if (uniform(random) < splice.offShare) value += 0.3;
    if (uniform(random) >= splice.gapShare) means.push_back({20000 + day, value});
  }
  return means;
}

// The share of intervals that hold the truth.
double Coverage(const Splice& splice, long days, unsigned seed) {
  std::mt19937 random(seed);
  constexpr int kRuns = 300;
  int held = 0;
  for (int i = 0; i < kRuns; ++i) {
    const Trend trend = TrendOf(DaysOf(splice, days, random)).value();
    held += trend.lowPerMonth <= splice.perMonth && splice.perMonth <= trend.highPerMonth ? 1 : 0;
  }
  return static_cast<double>(held) / kRuns;
}

TEST(Trend, IntervalHoldsTheSlopeAsOftenAsItSays) {
  Splice splice;
  splice.perMonth = 0.004;
  for (const double alike : {0.0, 0.5}) {
    splice.alike = alike;
    for (const long days : {400L, 800L}) {
      splice.seasonDb = 0.01;
      const double held = Coverage(splice, days, 7);
      EXPECT_GT(held, 0.92) << alike << " " << days;
      EXPECT_LT(held, 0.98) << alike << " " << days;
    }
  }
  splice.offShare = 0.05;
  splice.gapShare = 0.2;
  EXPECT_GT(Coverage(splice, 500, 8), 0.92);
}

TEST(Trend, DoesNotTakeASeasonForAgeing) {
  std::mt19937 random(11);
  Splice splice;
  splice.seasonDb = 0.01;  // 0.02 dB between summer and winter
  int told = 0;
  for (const long days : {60L, 120L, 200L, 364L, 365L, 400L, 700L, 1095L}) {
    for (int phase = 0; phase < 24; ++phase) {
      splice.phase = phase * 3.14159265 / 12.0;
      told += TrendOf(DaysOf(splice, days, random)).value().creeps ? 1 : 0;
    }
  }
  EXPECT_EQ(told, 0);
  // Where a season is fitted it is also told.
  const Trend trend = TrendOf(DaysOf(splice, 800, random)).value();
  EXPECT_NEAR(trend.seasonDb.value(), 0.01, 0.001);
}

TEST(Trend, TellsOfASpliceThatCreepsWithinThreeMonths) {
  std::mt19937 random(12);
  Splice splice;
  splice.perMonth = 0.01;
  int early = 0;
  for (int i = 0; i < 100; ++i) early += TrendOf(DaysOf(splice, 80, random)).value().creeps ? 1 : 0;
  EXPECT_GE(early, 50);
  const Trend trend = TrendOf(DaysOf(splice, 120, random)).value();
  EXPECT_TRUE(trend.creeps);
  const double days = DaysUntil(trend, 0.2).value();
  EXPECT_GT(days, 300.0);
  EXPECT_LT(days, 600.0);
}

TEST(Trend, IsSilentWhereItKnowsTooLittle) {
  std::mt19937 random(13);
  EXPECT_FALSE(TrendOf(DaysOf({}, 13, random)));
  EXPECT_FALSE(TrendOf({}));
  const std::vector<DayMean> oneDay(40, {20000, 0.1});
  EXPECT_FALSE(TrendOf(oneDay));
  // Without any noise the interval is that of the season alone.
  Splice quiet;
  quiet.noiseDb = 0.0;
  quiet.perMonth = -0.01;
  const Trend trend = TrendOf(DaysOf(quiet, 60, random)).value();
  EXPECT_NEAR(trend.perMonth, -0.01, 1e-6);
  EXPECT_FALSE(trend.creeps);
  EXPECT_FALSE(DaysUntil(trend, 0.1));
}

}  // namespace
}  // namespace reflyze::watch
