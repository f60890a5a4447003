// SPDX-License-Identifier: Apache-2.0
#include "watch/trend/Trend.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace reflyze::watch {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDaysPerMonth = 365.25 / 12.0;
constexpr double kYearRate = 2.0 * kPi / 365.25;  // a day
// What is known of a joint before anything is measured: it moves by a hundredth of a dB or two between summer
// and winter. The deviation of either part of the yearly sine.
constexpr double kLikelySeasonDb = 0.005;
// Every event of every fibre is asked every day: what is told has to be far beyond chance.
constexpr double kToldDeviations = 3.5;
constexpr double kMatters = 0.002;  // dB a month, below which a century would pass
constexpr double kTwoSided95 = 1.96;
constexpr double kHuber = 1.345;  // deviations from which on a day counts less (P. J. Huber 1964)
constexpr int kSteps = 20;
constexpr std::size_t kMost = 4;

using Row = std::array<double, kMost>;

// Normal equations of a fit with weights, solved by elimination; small and well scaled.
struct Normal {
  std::array<Row, kMost> matrix{};
  std::size_t size = 0;

  void Add(const Row& row, double weight) {
    for (std::size_t i = 0; i < size; ++i) {
      for (std::size_t j = 0; j < size; ++j) matrix[i][j] += weight * row[i] * row[j];
    }
  }
  Row Solve(Row right) const {
    std::array<Row, kMost> left = matrix;
    for (std::size_t pivot = 0; pivot < size; ++pivot) {
      for (std::size_t i = 0; i < size; ++i) {
        if (i == pivot) continue;
        const double factor = left[i][pivot] / left[pivot][pivot];
        for (std::size_t j = pivot; j < size; ++j) left[i][j] -= factor * left[pivot][j];
        right[i] -= factor * right[pivot];
      }
    }
    for (std::size_t i = 0; i < size; ++i) right[i] /= left[i][i];
    return right;
  }
};

// A line with a yearly sine. Days of less than a year hardly tell the one from the other. There what is known
// of seasons decides, as a prior on the sine, and leaves the slope as uncertain as it is.
class Fit {
 public:
  explicit Fit(const std::vector<DayMean>& days)
      : days_(days), middle_(0.5 * static_cast<double>(days.front().day + days.back().day)) {
    weights_.assign(days.size(), 1.0);
    for (int step = 0; step < kSteps; ++step) {
      Solve();
      Weigh();
      noise_ = Noise() * Inflation();
    }
  }

  double Slope() const { return found_[1]; }  // dB a day
  double SeasonDb() const { return std::hypot(found_[2], found_[3]); }
  // The level on the last day, without the season.
  double Now() const { return found_[0] + found_[1] * (static_cast<double>(days_.back().day) - middle_); }

  // Days that follow each other err alike (a process of first order), and count for fewer.
  double SlopeSd() const {
    Normal normal = Prior();
    for (const DayMean& day : days_) normal.Add(RowOf(day), 1.0);
    Row unit{};
    unit[1] = 1.0;
    return std::sqrt(noise_ * normal.Solve(unit)[1]);
  }
  // As many days as err alone, less what was fitted.
  double Freedom() const { return std::max(3.0, static_cast<double>(days_.size()) / Inflation() - 2.0); }

 private:
  Row RowOf(const DayMean& day) const {
    const double at = static_cast<double>(day.day) - middle_;
    return {1.0, at, std::cos(kYearRate * at), std::sin(kYearRate * at)};
  }
  double Residual(std::size_t i) const {
    const Row row = RowOf(days_[i]);
    double value = days_[i].value;
    for (std::size_t j = 0; j < kMost; ++j) value -= found_[j] * row[j];
    return value;
  }
  void Solve() {
    Normal normal = Prior();
    Row right{};
    for (std::size_t i = 0; i < days_.size(); ++i) {
      const Row row = RowOf(days_[i]);
      normal.Add(row, weights_[i]);
      for (std::size_t j = 0; j < kMost; ++j) right[j] += weights_[i] * row[j] * days_[i].value;
    }
    found_ = normal.Solve(right);
  }
  // The scale is the median of the residuals, which days that are far off don't move.
  void Weigh() {
    std::vector<double> sizes(days_.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) sizes[i] = std::abs(Residual(i));
    const auto half = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
    std::nth_element(sizes.begin(), half, sizes.end());
    constexpr double kOfMedian = 1.4826, kLeast = 1e-6;
    scale_ = std::max(kLeast, kOfMedian * *half);
    for (std::size_t i = 0; i < days_.size(); ++i)
      weights_[i] = std::min(1.0, kHuber * scale_ / std::max(kLeast, std::abs(Residual(i))));
  }
  double Cut(std::size_t i) const { return std::clamp(Residual(i), -kHuber * scale_, kHuber * scale_); }
  // Variance of one day's error (Huber's proposal 2).
  double Noise() const {
    double squares = 0.0, inside = 0.0;
    for (std::size_t i = 0; i < days_.size(); ++i) {
      squares += Cut(i) * Cut(i);
      inside += std::abs(Residual(i)) <= kHuber * scale_ ? 1.0 : 0.0;
    }
    const auto count = static_cast<double>(days_.size());
    const double share = std::max(0.5, inside / count);
    return squares / (count - 2.0) / (share * share);
  }
  Normal Prior() const {
    Normal normal;
    normal.size = kMost;
    const double known = noise_ / (kLikelySeasonDb * kLikelySeasonDb);
    normal.matrix[2][2] = normal.matrix[3][3] = known;
    return normal;
  }
  double Inflation() const {
    double products = 0.0, squares = 0.0;
    long pairs = 0;
    for (std::size_t i = 1; i < days_.size(); ++i) {
      if (days_[i].day - days_[i - 1].day != 1) continue;
      products += Cut(i) * Cut(i - 1);
      squares += 0.5 * (Cut(i) * Cut(i) + Cut(i - 1) * Cut(i - 1));
      ++pairs;
    }
    if (pairs < 5 || squares <= 0.0) return 1.0;
    // Residuals of a fitted line look less alike than the errors are (F. H. C. Marriott, J. A. Pope 1954).
    const double seen = products / squares;
    const double alike = std::clamp(seen + (2.0 + 4.0 * seen) / static_cast<double>(pairs), 0.0, 0.9);
    return (1.0 + alike) / (1.0 - alike);
  }

  const std::vector<DayMean>& days_;
  double middle_;
  std::vector<double> weights_;
  Row found_{};
  double scale_ = 0.0;
  double noise_ = 1e-12;  // variance of one day, times what days that err alike count for fewer
};

// The quantile of Student's distribution that belongs to one of the normal one (first term of the expansion
// of R. A. Fisher and E. A. Cornish).
double Student(double deviations, double freedom) {
  return deviations + (deviations * deviations * deviations + deviations) / (4.0 * freedom);
}

}  // namespace

std::optional<Trend> TrendOf(const std::vector<DayMean>& days) {
  if (days.size() < static_cast<std::size_t>(kLeastTrendDays)) return std::nullopt;
  const auto span = static_cast<double>(days.back().day - days.front().day);
  if (span < static_cast<double>(kLeastTrendDays - 1)) return std::nullopt;
  const Fit fit(days);
  const double sd = fit.SlopeSd(), wide = Student(kTwoSided95, fit.Freedom()) * sd;
  Trend trend;
  trend.perMonth = fit.Slope() * kDaysPerMonth;
  trend.lowPerMonth = (fit.Slope() - wide) * kDaysPerMonth;
  trend.highPerMonth = (fit.Slope() + wide) * kDaysPerMonth;
  trend.now = fit.Now();
  if (span >= static_cast<double>(kSeasonDays)) trend.seasonDb = fit.SeasonDb();
  trend.days = static_cast<long>(days.size());
  trend.creeps = trend.perMonth > kMatters && fit.Slope() > Student(kToldDeviations, fit.Freedom()) * sd;
  return trend;
}

std::optional<double> DaysUntil(const Trend& trend, double room) {
  if (room <= 0.0) return 0.0;
  if (trend.highPerMonth <= 0.0) return std::nullopt;
  return room / trend.highPerMonth * kDaysPerMonth;
}

}  // namespace reflyze::watch
