// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace reflyze::score {

// The value that a share of the magnitudes stays below; 0 for no values.
double MagnitudeQuantile(std::vector<double> values, double share);
double Mean(const std::vector<double>& values);
void Append(std::vector<double>& to, const std::vector<double>& from);

// Levels of two-sided intervals, percent, and how many deviations of a normal error they reach.
struct NominalLevel {
  int percent;
  double deviations;
};
constexpr NominalLevel kNominalLevels[] = {{5, 0.062707},  {10, 0.125661}, {15, 0.189118}, {20, 0.253347},
                                           {25, 0.318639}, {30, 0.385320}, {35, 0.453762}, {40, 0.524401},
                                           {45, 0.597760}, {50, 0.674490}, {55, 0.755415}, {60, 0.841621},
                                           {65, 0.934589}, {70, 1.036433}, {75, 1.150349}, {80, 1.281552},
                                           {85, 1.439531}, {90, 1.644854}, {95, 1.959964}, {99, 2.575829}};

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
  // Share of the intervals of a nominal level, one of the above, that hold the truth.
  double Coverage(int percent) const;
  // The same for the intervals of one quartile of signal-to-noise, 0 for the darkest. Equal ratios keep the
  // order in which they came.
  double QuartileCoverage(int percent, size_t quartile) const;
  // The factor by which deviations are too small, from the median of the errors, which outliers don't move.
  double Scale() const;

 private:
  std::vector<StatedError> errors_;
};

}  // namespace reflyze::score
