// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace reflyze::paper {

// A number's place along an axis of a picture.
class Scale {
 public:
  // From `from` at `start` to `to` at `stop`, in points of the page.
  Scale(double from, double to, double start, double stop);
  double At(double value) const { return start_ + (value - from_) * (stop_ - start_) / (to_ - from_); }
  // Round numbers on it, about so many.
  std::vector<double> Ticks(int about) const;
  // How many decimals they have.
  int Decimals(int about) const;

 private:
  double Step(int about) const;

  double from_, to_, start_, stop_;
};

struct Point {
  double x, y;
};

// The same line by fewer points, none of them further off it than that (Douglas and Peucker). A file of a
// thousand curves is a tenth as large, and prints alike.
std::vector<Point> Simplified(const std::vector<Point>& points, double off);

}  // namespace reflyze::paper
