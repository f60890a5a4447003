// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <random>

namespace reflyze::sim {

// White noise with a variance of 1: the sum of twelve uniform numbers. It uses no library function whose last
// digit differs from one machine to the next.
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : bits_(seed) {}

  double Next() {
    std::uint64_t sum = 0;
    for (int i = 0; i < 6; ++i) {
      const std::uint64_t draw = bits_();
      sum += (draw >> 32) + (draw & 0xFFFFFFFFu);
    }
    return static_cast<double>(sum) / 4294967296.0 - 6.0;
  }

 private:
  std::mt19937_64 bits_;
};

}  // namespace reflyze::sim
