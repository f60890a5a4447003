// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

class TSorData;

namespace reflyze {

// Levels are 5 log10 of power, so a neper of power is this many dB.
constexpr double kDbOfNeper = 2.171472409516259;  // 5 / ln 10

// A trace as power on the linear scale, where light adds up and noise has no bias. Places are km from the
// first point.
class Powers {
 public:
  explicit Powers(const TSorData& record);

  long count() const { return static_cast<long>(power_.size()); }
  double spacingKm() const { return spacingKm_; }
  // Whether there is anything to measure: enough points, some way apart, at levels that light can have.
  bool IsUsable() const;
  double operator[](long i) const { return static_cast<double>(power_[static_cast<std::size_t>(i)]); }
  double KmOf(long i) const { return static_cast<double>(i) * spacingKm_; }
  long At(double km) const;               // the last point in front of a place, kept on the trace
  double Sum(long from, long to) const {  // of [from, to)
    return sums_[static_cast<std::size_t>(to)] - sums_[static_cast<std::size_t>(from)];
  }
  double Mean(long from, long to) const {
    return Sum(from, to) / static_cast<double>(to - from);
  }                                                            // not of none
  double Peak(long from, long to) const;                       // of [from, to)
  bool AtFloor(long i) const { return (*this)[i] <= floor_; }  // the instrument stores nothing lower

 private:
  double spacingKm_;
  double lowestDb_ = 0.0, highestDb_ = 0.0;
  double floor_ = 0.0;
  std::vector<float> power_;  // to a thousandth of the step in which levels are stored
  std::vector<double> sums_;  // of all points in front of each
};

}  // namespace reflyze
