// SPDX-License-Identifier: Apache-2.0
#include "score/Statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace reflyze::score {
namespace {

double DeviationsOf(int percent) {
  for (const NominalLevel& level : kNominalLevels) {
    if (level.percent == percent) return level.deviations;
  }
  return 0.0;
}

// Share of [from, to) of the errors that their interval of the nominal level holds.
double Held(const std::vector<StatedError>& errors, size_t from, size_t to, int percent) {
  if (from >= to) return 0.0;
  const double reach = DeviationsOf(percent);
  size_t held = 0;
  for (size_t i = from; i < to; ++i) held += std::fabs(errors[i].z) <= reach ? 1 : 0;
  return static_cast<double>(held) / static_cast<double>(to - from);
}

}  // namespace

double MagnitudeQuantile(std::vector<double> values, double share) {
  if (values.empty()) return 0.0;
  for (double& value : values) value = std::fabs(value);
  const auto at = std::lround(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<size_t>(at)];
}

double Mean(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double value : values) sum += value;
  return values.empty() ? 0.0 : sum / static_cast<double>(values.size());
}

void Append(std::vector<double>& to, const std::vector<double>& from) {
  to.insert(to.end(), from.begin(), from.end());
}

void Intervals::Add(double error, double deviation, double snrDb) {
  const bool stated = std::isfinite(error) && std::isfinite(deviation) && deviation > 0.0;
  errors_.push_back({stated ? error / deviation : std::numeric_limits<double>::infinity(), snrDb});
}

void Intervals::AddAll(const Intervals& other) {
  errors_.insert(errors_.end(), other.errors_.begin(), other.errors_.end());
}

double Intervals::Coverage(int percent) const { return Held(errors_, 0, errors_.size(), percent); }

double Intervals::QuartileCoverage(int percent, size_t quartile) const {
  std::vector<StatedError> sorted = errors_;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const StatedError& a, const StatedError& b) { return a.snrDb < b.snrDb; });
  return Held(sorted, sorted.size() * quartile / 4, sorted.size() * (quartile + 1) / 4, percent);
}

double Intervals::Scale() const {
  std::vector<double> z;
  for (const StatedError& error : errors_) z.push_back(error.z);
  return MagnitudeQuantile(z, 0.5) / DeviationsOf(50);
}

}  // namespace reflyze::score
