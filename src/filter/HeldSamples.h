// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <vector>

namespace reflyze {

// Samples of a trace by point. Searches step ahead of the point that they look at, by a pulse or a
// recovery of the receiver. Near an end of the trace, or in a broken record, such a step leads outside. It
// then reads the sample at that end. Without samples everything reads as 0.
class HeldSamples {
 public:
  HeldSamples(const float* samples, long count)
      : samples_(samples == nullptr || count <= 0 ? &kDark : samples),
        count_(samples == nullptr ? 0 : count),
        last_(std::max(count_ - 1, 0L)) {}
  explicit HeldSamples(const std::vector<float>& samples)
      : HeldSamples(samples.data(), static_cast<long>(samples.size())) {}

  float operator[](long point) const {
    const bool isInside = static_cast<unsigned long>(point) <= static_cast<unsigned long>(last_);
    return isInside ? samples_[point] : samples_[Held(point)];
  }

  // Calls `work(samples)` for work that reads no point outside `first` up to but not including `end`: with
  // the bare samples where all of these are there, and else with these held ones.
  template <class Work>
  auto Over(long first, long end, Work work) const {
    return first >= 0 && end <= count_ ? work(samples_) : work(*this);
  }

  // The point itself inside the trace, else the end that it lies behind: for ranges that are handed on to
  // functions which know no length. 0 without samples.
  long Held(long point) const { return std::clamp(point, 0L, last_); }

  long count() const { return count_; }
  bool empty() const { return count_ <= 0; }

 private:
  static constexpr float kDark = 0.0F;  // the one sample of a trace that has none

  const float* samples_;
  long count_;
  long last_;  // point
};

}  // namespace reflyze
