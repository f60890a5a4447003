// SPDX-License-Identifier: Apache-2.0
#include "watch/trend/Trend.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

#include "watch/trend/Errors.h"

namespace reflyze::watch {
namespace {

constexpr double kMonth = 365.25 / 12.0;                        // days
constexpr double kYearly = 2.0 * 3.14159265358979323 / 365.25;  // angle a day
// A slope is told when all but this share of what is known of it lies beyond what matters. A history is
// looked at every day, and each look may err, so the share is smaller than that of the interval.
constexpr double kDoubt = 0.003;
constexpr double kMattersPerMonth = 0.001;  // dB; a limit of 0.2 dB is 16 years away
// Places of a bend that are tried, days before the last one: a line through years would drown the last
// months.
constexpr long kBendDays[] = {60, 120, 240};
constexpr long kBendForOutliers = 120;
constexpr double kBendDoubt = 0.0005;
constexpr long kLeastDaysBesideBend = 30;
constexpr long kRecentDays = 90;  // looked at alone where the season is not known yet

enum Column { kLevel, kSlope, kCosine, kSine };

Columns Only(int column) {
  Columns one{};
  one[column] = 1.0;
  return one;
}

// Each day once, in order. Two values of one day count as their mean.
std::vector<DayMean> InOrder(std::vector<DayMean> days) {
  days.erase(
      std::remove_if(days.begin(), days.end(), [](const DayMean& one) { return !std::isfinite(one.value); }),
      days.end());
  std::stable_sort(days.begin(), days.end(),
                   [](const DayMean& a, const DayMean& b) { return a.day < b.day; });
  std::vector<DayMean> once;
  for (std::size_t i = 0; i < days.size();) {
    double sum = 0.0;
    std::size_t next = i;
    while (next < days.size() && days[next].day == days[i].day) sum += days[next++].value;
    once.push_back({days[i].day, sum / static_cast<double>(next - i)});
    i = next;
  }
  return once;
}

double MedianOf(std::vector<DayMean> days) {
  const auto middle = days.begin() + static_cast<std::ptrdiff_t>(days.size() / 2);
  std::nth_element(days.begin(), middle, days.end(),
                   [](const DayMean& a, const DayMean& b) { return a.value < b.value; });
  return middle->value;
}

// What a season can add to the slope of a line through `span` days. Least squares sees of A sin(w t) around
// its steepest moment, over times from -x / w to x / w,
//
//   A int(t sin(w t)) / int(t^2) = A w 3 (sin x - x cos x) / x^3,
//
// which is A w for a few days, and a third of it for a year.
double SeasonSlope(long span, double swingDb) {
  const double x = 0.5 * kYearly * static_cast<double>(span);
  const double part = x < 0.1 ? 1.0 - 0.1 * x * x : 3.0 * (std::sin(x) - x * std::cos(x)) / (x * x * x);
  return 0.5 * swingDb * kYearly * kMonth * std::fabs(part);
}

// Time runs from the last day, in months, so that the level is that of now. Before a bend, `bendDays` before
// the last day, another slope may hold.
std::vector<ModelDay> ModelOf(const std::vector<DayMean>& days, double level, bool season, long bendDays) {
  std::vector<ModelDay> model;
  model.reserve(days.size());
  const long last = days.back().day;
  const int bend = season ? kSine + 1 : kSlope + 1;
  for (const DayMean& one : days) {
    ModelDay day;
    day.day = one.day;
    day.value = one.value - level;
    day.x[kLevel] = 1.0;
    day.x[kSlope] = static_cast<double>(one.day - last) / kMonth;
    if (season) {
      const double angle = kYearly * static_cast<double>(one.day - last);
      day.x[kCosine] = std::cos(angle);
      day.x[kSine] = std::sin(angle);
    }
    if (bendDays > 0) day.x[bend] = std::min(0.0, static_cast<double>(one.day - last + bendDays) / kMonth);
    model.push_back(day);
  }
  return model;
}

// Whether there is enough on both sides of a bend to tell two slopes.
bool CanBend(const std::vector<DayMean>& days, long bendDays) {
  const long at = days.back().day - bendDays;
  const auto first = std::lower_bound(days.begin(), days.end(), at,
                                      [](const DayMean& one, long day) { return one.day < day; });
  return first - days.begin() >= kLeastDaysBesideBend && days.end() - first >= kLeastDaysBesideBend;
}

// How sure it is that a change of slope is none by chance: above 0 for sure.
double SureOf(const Knowledge& change) {
  const double low = change.Quantile(kBendDoubt), high = change.Quantile(1.0 - kBendDoubt);
  return std::max(low, -high) / (high - low);
}

class TrendMaker {
 public:
  TrendMaker(const std::vector<DayMean>& days, double swingDb)
      : all_(days),
        span_(days.back().day - days.front().day),
        swingDb_(swingDb),
        level_(MedianOf(days)),
        season_(span_ >= kSeasonDays) {
    LeaveOutliers();
  }

  Trend Made() {
    if (season_) {
      if (const auto bent = Bent()) return *bent;
      const CorrelatedFit fit(ModelOf(kept_, level_, true, 0), kSine + 1);
      if (fit.Solved()) return TrendFrom(fit, all_.front().day);
      season_ = false;  // days of the same few weeks in each year tell nothing of the season
    }
    const Trend whole =
        TrendFrom(CorrelatedFit(ModelOf(kept_, level_, false, 0), kSlope + 1), all_.front().day);
    const auto recent = Recent(whole.perMonth);
    return recent ? *recent : whole;
  }

 private:
  void LeaveOutliers() {
    const long bend = season_ && CanBend(all_, kBendForOutliers) ? kBendForOutliers : 0;
    const int columns = (season_ ? kSine : kSlope) + 1 + (bend > 0 ? 1 : 0);
    const std::vector<ModelDay> model = ModelOf(all_, level_, season_, bend);
    for (const ModelDay& day : WithoutOutliers(model, RobustFit(model, columns)))
      kept_.push_back({day.day, day.value + level_});
  }

  Trend TrendFrom(const CorrelatedFit& fit, long since) const {
    const Knowledge slope = fit.Of(Only(kSlope));
    const double wider = season_ ? 0.0 : SeasonSlope(all_.back().day - since, swingDb_);
    Columns now = Only(kLevel);
    now[kSlope] = static_cast<double>(all_.back().day - kept_.back().day) / kMonth;
    Trend trend;
    trend.perMonth = slope.Mean();
    trend.lowPerMonth = slope.Quantile(0.025) - wider;
    trend.highPerMonth = slope.Quantile(0.975) + wider;
    trend.now = level_ + fit.Of(now).Mean();
    if (season_) {
      const double a = fit.Of(Only(kCosine)).Mean(), b = fit.Of(Only(kSine)).Mean();
      trend.seasonDb = std::sqrt(a * a + b * b);
    }
    trend.days = static_cast<long>(all_.size());
    trend.sinceDay = since;
    trend.creeps = slope.Quantile(kDoubt) - wider > kMattersPerMonth ||
                   slope.Quantile(1.0 - kDoubt) + wider < -kMattersPerMonth;
    return trend;
  }

  // A history whose season is known and whose slope has surely changed in the last months: by the surest
  // place.
  std::optional<Trend> Bent() const {
    std::optional<Trend> bent;
    double surest = 0.0;
    for (const long bendDays : kBendDays) {
      if (!CanBend(kept_, bendDays)) continue;
      const std::vector<ModelDay> model = ModelOf(kept_, level_, true, bendDays);
      // Errors that are alike make a bend less sure, never surer.
      const CorrelatedFit quick(model, kSine + 2, Errors::kNoise);
      if (!quick.Solved() || SureOf(quick.Of(Only(kSine + 1))) <= 0.0) continue;
      const CorrelatedFit fit(model, kSine + 2);
      const double sure = SureOf(fit.Of(Only(kSine + 1)));
      if (sure <= surest) continue;
      surest = sure;
      bent = TrendFrom(fit, kept_.back().day - bendDays);
    }
    return bent;
  }

  // The last months of a history whose season is not known, where the slope of all of it surely does not
  // hold.
  std::optional<Trend> Recent(double wholePerMonth) const {
    if (span_ < kRecentDays + kLeastDaysBesideBend || span_ >= kSeasonDays) return std::nullopt;
    std::vector<DayMean> days;
    const long since = all_.back().day - kRecentDays;
    std::copy_if(kept_.begin(), kept_.end(), std::back_inserter(days),
                 [&](const DayMean& one) { return one.day > since; });
    if (static_cast<long>(days.size()) < kLeastDaysBesideBend) return std::nullopt;
    const CorrelatedFit fit(ModelOf(days, level_, false, 0), kSlope + 1);
    const Knowledge slope = fit.Of(Only(kSlope));
    const double wider = SeasonSlope(kRecentDays, swingDb_);
    if (slope.Quantile(kBendDoubt) - wider <= wholePerMonth &&
        slope.Quantile(1.0 - kBendDoubt) + wider >= wholePerMonth)
      return std::nullopt;
    return TrendFrom(fit, since);
  }

  const std::vector<DayMean>& all_;
  std::vector<DayMean> kept_;  // without the days that are off
  long span_;
  double swingDb_;
  double level_;  // in the middle of them, so that sums of squares keep their digits
  bool season_;
};

}  // namespace

std::optional<Trend> TrendOf(const std::vector<DayMean>& days, double swingDb) {
  const std::vector<DayMean> ordered = InOrder(days);
  if (static_cast<long>(ordered.size()) < kLeastTrendDays) return std::nullopt;
  return TrendMaker(ordered, swingDb).Made();
}

std::optional<double> DaysUntil(const Trend& trend, double room) {
  if (!(trend.highPerMonth > 0.0)) return std::nullopt;
  return std::max(0.0, room) / trend.highPerMonth * kMonth;
}

}  // namespace reflyze::watch
