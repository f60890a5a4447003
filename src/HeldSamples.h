#pragma once

#include <algorithm>
#include <vector>

namespace reflyze {

// Samples of a trace by point. Searches step ahead of the point that they look at, by a pulse or a recovery
// of the receiver, and near an end of the trace, or with the figures of a broken record, such a step leads
// outside: it then reads the sample at that end. Without samples everything reads as 0.
class HeldSamples {
 public:
  HeldSamples(const float* samples, long count) : samples_(samples), count_(samples == nullptr ? 0 : count) {}
  explicit HeldSamples(const std::vector<float>& samples)
      : HeldSamples(samples.data(), static_cast<long>(samples.size())) {}

  float operator[](long point) const { return count_ > 0 ? samples_[Held(point)] : 0.0F; }

  // The point itself inside the trace, else the end that it lies behind: for ranges that are handed on to
  // functions which know no length. 0 without samples.
  long Held(long point) const { return std::clamp(point, 0L, std::max(count_ - 1, 0L)); }

  long count() const { return count_; }
  bool empty() const { return count_ <= 0; }

 private:
  const float* samples_;
  long count_;
};

}  // namespace reflyze
