// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace reflyze::watch {

// The mean of a quantity on one day.
struct DayMean {
  long day = 0;      // since 1970
  double value = 0;  // dB
};

// How a quantity moves over months, apart from the seasons.
struct Trend {
  double perMonth = 0.0;     // slope, dB a month of 365.25 / 12 days
  double lowPerMonth = 0.0;  // 95 % interval of the slope
  double highPerMonth = 0.0;
  double now = 0.0;                // level at the last day without the season, dB
  std::optional<double> seasonDb;  // amplitude of the year's swing; none in less than a year of days
  long days = 0;                   // with a value
  bool creeps = false;             // the slope is no chance, and large enough to matter
};

// The slope of daily means against time: robust against days that are off, its interval true also where
// neighbouring days err alike. Temperature swings with the year: a yearly sine is fitted along with the
// slope, with what is known of joints as its prior, so that a summer is not told as ageing, and the slope of
// some weeks is as uncertain as a season could make it. From `kSeasonDays` on the swing is told too. None for
// fewer than `kLeastTrendDays` days with values.
constexpr long kLeastTrendDays = 14;
constexpr long kSeasonDays = 365;
std::optional<Trend> TrendOf(const std::vector<DayMean>& days);

// Days until the quantity may have grown by `room` dB, at the fast end of the interval; none where
// it does not grow.
std::optional<double> DaysUntil(const Trend& trend, double room);

}  // namespace reflyze::watch
