// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
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
  long sinceDay = 0;               // from which the slope holds: the first one, or where it has changed last
  bool creeps = false;             // the slope is no chance, and large enough to matter
};

constexpr long kLeastTrendDays = 14;
constexpr long kSeasonDays = 365;
// A splice may swing by so much between winter and summer before it has been seen for a year.
constexpr double kSwingDb = 0.02;

// The slope of daily means against time: robust against days that are off, its interval true also where
// neighbouring days err alike. Temperature swings with the year: from `kSeasonDays` of history on, a yearly
// sine is fitted along with the slope, so that a summer is not told as ageing; with less, the slope that a
// swing of `swingDb` could have widens the interval. Where the slope has surely changed in the last months,
// it is that since then. Days may come in any order; what is no number is left out. None for fewer than
// `kLeastTrendDays` days with values.
std::optional<Trend> TrendOf(const std::vector<DayMean>& days, double swingDb = kSwingDb);

// Days until the quantity may have grown by `room` dB: at the fast side of the slope's interval. None where
// it does not grow.
std::optional<double> DaysUntil(const Trend& trend, double room);

}  // namespace reflyze::watch
