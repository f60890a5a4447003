// SPDX-License-Identifier: Apache-2.0
#include "paper/Scale.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace reflyze::paper {

Scale::Scale(double from, double to, double start, double stop)
    : from_(from), to_(to > from ? to : from + 1.0), start_(start), stop_(stop) {}

double Scale::Step(int about) const {
  const double least = (to_ - from_) / std::max(about, 1);
  double step = 1e-6;
  for (int i = 0; i < 60 && step < least; ++i) step *= i % 3 == 1 ? 2.5 : 2.0;  // 1, 2, 5, 10 ...
  return step;
}

std::vector<double> Scale::Ticks(int about) const {
  const double step = Step(about);
  std::vector<double> ticks;
  for (double i = std::ceil(from_ / step - 1e-9); i * step <= to_ + 1e-9 * step && ticks.size() < 100; ++i)
    ticks.push_back(i * step);
  return ticks;
}

int Scale::Decimals(int about) const {
  int decimals = 0;
  for (double step = Step(about); step < 0.999999 && decimals < 6; step *= 10.0) ++decimals;
  return decimals;
}

std::vector<Point> Simplified(const std::vector<Point>& points, double off) {
  if (points.size() < 3) return points;
  std::vector<bool> kept(points.size(), false);
  kept.front() = kept.back() = true;
  std::vector<std::pair<size_t, size_t>> open = {{0, points.size() - 1}};
  while (!open.empty()) {
    const auto [from, to] = open.back();
    open.pop_back();
    const double dx = points[to].x - points[from].x, dy = points[to].y - points[from].y;
    const double length = std::max(std::sqrt(dx * dx + dy * dy), 1e-9);
    size_t furthest = from;
    double most = off;
    for (size_t i = from + 1; i < to; ++i) {
      const double apart =
          std::fabs((points[i].x - points[from].x) * dy - (points[i].y - points[from].y) * dx) / length;
      if (apart > most) most = apart, furthest = i;
    }
    if (furthest == from) continue;
    kept[furthest] = true;
    open.emplace_back(from, furthest);
    open.emplace_back(furthest, to);
  }
  std::vector<Point> line;
  for (size_t i = 0; i < points.size(); ++i) {
    if (kept[i]) line.push_back(points[i]);
  }
  return line;
}

}  // namespace reflyze::paper
