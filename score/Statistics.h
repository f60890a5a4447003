// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace reflyze::score {

// The value that a share of the magnitudes stays below; 0 for no values.
double MagnitudeQuantile(std::vector<double> values, double share);
double Mean(const std::vector<double>& values);

// One measured number against its truth: the error in stated standard deviations, and how far the light at
// its place stands above the noise.
struct StatedError {
  double z = 0.0;
  double snrDb = 0.0;
};

// How far stated intervals can be trusted.
class Intervals {
 public:
  // A deviation that is not a positive number holds nothing.
  void Add(double error, double deviation, double snrDb);
  void AddAll(const Intervals& other);

  size_t count() const { return errors_.size(); }
  // Share of the intervals of a nominal level that hold the truth.
  double Coverage(double nominal) const;
  // The same for the intervals of one quartile of signal-to-noise, 0 for the darkest. Equal ratios keep the
  // order in which they came.
  double QuartileCoverage(double nominal, size_t quartile) const;
  // The factor by which deviations are too small, from the median of the errors, which outliers don't move.
  double Scale() const;

 private:
  std::vector<StatedError> errors_;
};

}  // namespace reflyze::score
