// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <utility>
#include <vector>

namespace reflyze::watch {

// At most: level, slope, two of the season, bend.
constexpr int kMostColumns = 5;
using Columns = std::array<double, kMostColumns>;

// One day in a linear model: value = sum of columns times coefficients, and an error.
struct ModelDay {
  long day = 0;
  double value = 0.0;
  Columns x{};
};

// The coefficients of a robust fit (Huber's), which days that are off can't draw far.
Columns RobustFit(const std::vector<ModelDay>& days, int columns);
// Without the days that are off, by the scale of the errors around a fit.
std::vector<ModelDay> WithoutOutliers(const std::vector<ModelDay>& days, const Columns& fit);

// What is known of a coefficient: all kinds of errors, each weighed by how well it explains the days.
class Knowledge {
 public:
  // One kind of errors gives a Student t.
  struct Part {
    double weight, mean, scale;
  };
  Knowledge(std::vector<Part> parts, double freedom);
  double Mean() const;
  double Quantile(double share) const;

 private:
  double ShareBelow(double value) const;

  std::vector<Part> parts_;
  double freedom_;  // degrees
};

// Noise alone is quick to fit, for a first look.
enum class Errors { kNoise, kAll };

// A linear model of days whose errors are their neighbours' in part.
class CorrelatedFit {
 public:
  CorrelatedFit(const std::vector<ModelDay>& days, int columns, Errors errors = Errors::kAll);
  bool Solved() const { return !kinds_.empty(); }  // no: the days can't tell the columns apart
  Knowledge Of(const Columns& of) const;           // the sum of the coefficients, each times its number

 private:
  struct Kind {
    double weight = 0.0;
    Columns coefficients{};
    std::array<Columns, kMostColumns> covariance{};
  };
  void Add(const std::vector<ModelDay>& days, double memoryDays, double share, double before);

  int columns_;
  double freedom_;
  std::vector<Kind> kinds_;
};

}  // namespace reflyze::watch
