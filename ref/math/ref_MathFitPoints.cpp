// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>

#include "ref/math/ref_Math.h"
#include "sor/sorData.h"
#include "util/convert.h"

// Lines of level against a count of points, in single precision: the fits that searches make by the thousand.
// The count runs backwards from the last point of the section, so a loss is a positive slope, and the
// intercept is the level at the last point.

namespace {

struct LineF {
  float slope;      // dB per point visited
  float intercept;  // dB at the last point
};

// What a least-squares line over the counts k = 0, 1, 2 ... is solved from. y: levels, ky: levels times k.
LineF SolveLine(long n, float sumK, float sumKK, float sumY, float sumKY) {
  const float count = static_cast<float>(n);
  const float determinant = sumK * sumK - count * sumKK;
  if (determinant == 0.0f) return {1.0f, 0.0f};
  return {(sumY * sumK - sumKY * count) / determinant, (sumKY * sumK - sumY * sumKK) / determinant};
}

// Levels from the last point of a section backwards.
class BackwardSums {
 public:
  explicit BackwardSums(const TSorData& sor) : sor_(sor) {}

  void Walk(long first, long last, long step) {
    for (long i = last; i >= first; i -= step) Take(i);
  }
  void Take(long point) {
    const float level = sor_.NumTofLevel(point);
    sumY_ += level;
    sumKY_ += level * static_cast<float>(n_);
    ++n_;
  }
  // The sums over k in closed form. The sum of squares loses its last digits in single precision, and the
  // slopes of event tables have always been those that come of it.
  LineF Line() const {
    const float sumK = static_cast<float>(SumK());
    return SolveLine(n_, sumK, static_cast<float>(2 * n_ - 1) * sumK / 3.0f, sumY_, sumKY_);
  }

  long n() const { return n_; }
  std::int64_t SumK() const { return std::int64_t{n_} * (n_ - 1) / 2; }
  float sumY() const { return sumY_; }
  float sumKY() const { return sumKY_; }

 private:
  const TSorData& sor_;
  long n_ = 0;
  float sumY_ = 0.0f, sumKY_ = 0.0f;
};

constexpr long kLongSectionPoints = 30000;  // above this every second point will do

}  // namespace

void RefMathLSLf(TSorData* sor, long first, long last, float& slope, float& intercept) {
  if (first == last) {
    intercept = sor->NumTofLevel(first);
    slope = 0.0f;
    return;
  }
  const long step = last - first > kLongSectionPoints ? 2 : 1;
  BackwardSums sums(*sor);
  sums.Walk(first, last, step);
  const LineF line = sums.Line();
  slope = line.slope / static_cast<float>(step);
  intercept = line.intercept;
}

void RefMathLSL2f(TSorData* sor, long first, long last, float& yFirst, float& yLast) {
  float slope, intercept;
  RefMathLSLf(sor, first, last, slope, intercept);
  yFirst = static_cast<float>(last - first) * slope + intercept;
  yLast = intercept;
}

// With the four points at x = -3, -1, 1 and 3, the slope by least squares is the sum of x y over the sum of x
// x, which is 20. The section is 6 units long: 6 / 20 = 0.3.
float RefMathLSL4f(TSorData* sor, long first, long last) {
  using reflyze::TruncToLong;
  const float third = static_cast<float>(static_cast<double>(last - first) / 3.0);
  // The first inner point lies at the third rounded down, the second at two thirds rounded to nearest.
  const long inner1 = TruncToLong(static_cast<double>(TruncToLong(third) + first) + 0.5);
  const long inner2 = TruncToLong(2.0f * third + 0.5) + first;
  const float p0 = sor->NumTofLevel(first);
  const float p1 = sor->NumTofLevel(inner1);
  const float p2 = sor->NumTofLevel(inner2);
  const float p3 = sor->NumTofLevel(last);
  return static_cast<float>(((p0 - p3) * 3.0f + p1 - p2) * 0.3);
}

void RefMathLSLpt(TSorData* sor, long first, long last, double& yFirst, double& yLast, long block) {
  constexpr long kWantedBlocks = 30;
  if (block < 1) block = 1;
  if (last - block < first) {
    yFirst = yLast = sor->NumToLevel(first);
    return;
  }
  const long span = last - first;
  if (span < block * kWantedBlocks) block = span / kWantedBlocks + 1;

  double m = 0.0, sumX = 0.0, sumXX = 0.0, sumP = 0.0, sumXP = 0.0;
  const auto addBlock = [&](long offset, long count) {
    const double power = RefMathPower(sor, first + offset, count, 1);
    const double x = static_cast<double>(offset) + static_cast<double>(count - 1) / 2.0;
    m += 1.0;
    sumX += x;
    sumXX += x * x;
    sumP += power;
    sumXP += x * power;
  };
  const long rest = span % block;
  if (rest != 0) addBlock(0, rest);
  for (long offset = rest; offset <= span - block; offset += block) addBlock(offset, block);

  const double determinant = m * sumXX - sumX * sumX;
  if (determinant == 0.0) {  // a single block has a level but no slope
    yFirst = yLast = sumP / m;
    return;
  }
  const double r = 1.0 / determinant;
  yFirst = (sumP * sumXX - sumXP * sumX) * r;
  const double slope = (m * sumXP - sumP * sumX) * r;
  yLast = static_cast<double>(span) * slope + yFirst;
}

long RefMathGetPinWithLsp(TSorData* sor, long first, long mid, long last, float slope, float& yPin,
                          float& yLast, float& error) {
  if (mid == last) {
    yLast = yPin = sor->NumTofLevel(last);
    return last;
  }
  BackwardSums sums(*sor);
  sums.Walk(mid, last, 1);
  LineF best = sums.Line();
  float bestError = best.slope - slope;
  long bestPoint = mid;

  // From here on the sum of squares is exact. A million points have one of 59 bits.
  const std::int64_t n = sums.n();
  std::int64_t sumKK = (2 * n - 1) * sums.SumK() / 3;
  for (long i = mid - 1; i >= first; --i) {
    const std::int64_t k = sums.n();
    sumKK += k * k;
    sums.Take(i);
    const LineF line = SolveLine(sums.n(), static_cast<float>(sums.SumK()), static_cast<float>(sumKK),
                                 sums.sumY(), sums.sumKY());
    const float lineError = line.slope - slope;
    if (std::fabs(lineError) < std::fabs(bestError)) {
      bestError = lineError;
      best = line;
      bestPoint = i;
    }
  }
  yLast = best.intercept;
  yPin = static_cast<float>(last - bestPoint) * best.slope + best.intercept;
  error = bestError / slope;
  return bestPoint;
}
