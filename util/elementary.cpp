// SPDX-License-Identifier: Apache-2.0
#include "util/elementary.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "util/bigElementary.h"
#include "util/elementaryTables.h"

// Each function is computed twice at most. The quick way gives a sum of two doubles, which has some 13 binary
// digits more than one double, and a bound on its error. Nearly always both ends of that bound round to the
// same double: that is the result. Where they don't, the slow way of util/bigElementary.h settles it.
namespace reflyze::elementary {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

// A number as the sum of two doubles, of which the second is at most about an ulp of the first.
struct Pair {
  double high;
  double low;
};

// a + b, exactly; |a| is no less than |b|, or a is 0.
inline Pair QuickSum(double a, double b) {
  const double high = a + b;
  return {high, b - (high - a)};
}

// a + b, exactly.
inline Pair ExactSum(double a, double b) {
  const double high = a + b;
  const double fromB = high - a;
  return {high, (a - (high - fromB)) + (b - fromB)};
}

// The first 26 digits of x, rounded: products of two such are exact.
inline double ShortOf(double x) {
  const double wide = x * 0x1.0000002p+27;
  return wide - (wide - x);
}

// a * b, exactly.
inline Pair ExactProduct(double a, double b) {
  const double high = a * b;
  const double shortA = ShortOf(a), shortB = ShortOf(b);
  const double restA = a - shortA, restB = b - shortB;
  return {high, ((shortA * shortB - high) + shortA * restB + restA * shortB) + restA * restB};
}

inline Pair Product(const Pair& a, const double (&b)[2]) {
  const Pair high = ExactProduct(a.high, b[0]);
  return {high.high, high.low + (a.high * b[1] + a.low * b[0])};
}

// x to the next whole number, for |x| below 2^51: the sum has no room for a fraction.
inline double Whole(double x) {
  constexpr double kNoFraction = 0x1.8p+52;
  return (x + kNoFraction) - kNoFraction;
}

// Whether all that lies within `error` of the sum is rounded to one double, and to which.
inline bool IsSettled(const Pair& sum, double error, double& rounded) {
  rounded = sum.high + (sum.low - error);
  return rounded == sum.high + (sum.low + error);
}

inline std::uint64_t BitsOf(double x) {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return bits;
}

inline double OfBits(std::uint64_t bits) {
  double x;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

// 2^n for normal numbers.
inline double PowerOfTwo(int n) { return OfBits(static_cast<std::uint64_t>(n + 1023) << 52); }

// --- Powers ---

// e^(x.high + x.low) as 2^(k / 128) e^r with |r| at most ln 2 / 256, so that few terms of the series matter.
// False where the last digit stays open, and outside the normal numbers.
inline bool IsExpSettled(const Pair& x, double& result) {
  constexpr double kLargestPower = 709.0, kLowestPower = -708.0;
  if (!(x.high < kLargestPower && x.high > kLowestPower)) return false;
  constexpr double kPartsPerE = 128 * 0x1.71547652b82fep+0;
  const double parts = Whole(x.high * kPartsPerE);
  const Pair two = ExactSum(x.high - parts * kLn2By128[0], -parts * kLn2By128[1]);
  const Pair r = QuickSum(two.high, two.low + (x.low - parts * kLn2By128[2]));
  const int k = static_cast<int>(parts);
  const int index = k & 127;
  const double* const power = kPowersOfTwo[index];
  // The first 20 digits of r. The power has 32, so that their product is exact.
  constexpr double kFirstDigits = 0x1.8p+23;  // the last of them is 2^-29
  const double first = (r.high + kFirstDigits) - kFirstDigits;
  const double rest = (r.high - first) + r.low;
  const double h = r.high;
  const double series = h * h * (0.5 + h * (1.0 / 6 + h * (1.0 / 24 + h * (1.0 / 120 + h * (1.0 / 720)))));
  const Pair sum = QuickSum(power[0], power[0] * first);
  const Pair whole = {sum.high,
                      sum.low + (power[1] + (power[1] * (h + series) + power[0] * (rest + series)))};
  // The terms that are left out come to 2^-71. The sum of the small ones, 2^-17 at most, is off by less than
  // 2^-69.
  constexpr double kError = 0x1p-67;
  if (!IsSettled(whole, kError, result)) return false;
  result *= PowerOfTwo((k - index) / 128);
  return true;
}

// --- Logarithms ---

// The natural logarithm of a positive number: log of 2^k, of a number near 1, and the series of what is left,
// r, with |r| at most 2^-7. The sum is off by less than 2^-66 of itself: all terms down to the square of the
// first half of r are added exactly, and near 1 there is no other.
inline Pair LogOf(double x) {
  std::uint64_t bits = BitsOf(x);
  int k = -1023;
  if (bits < std::uint64_t{1} << 52) {
    bits = BitsOf(x * 0x1p+54);
    k -= 54;
  }
  k += static_cast<int>(bits >> 52);
  double m = OfBits((bits & 0xFFFFFFFFFFFFFu) | std::uint64_t{1023} << 52);
  constexpr double kFold = 182.0 / 128;
  if (m >= kFold) {
    m *= 0.5;
    ++k;
  }
  const double* const near = kLogarithms[static_cast<int>(m * 128) - 91];
  const double shortM = ShortOf(m);
  const Pair r = ExactSum(shortM * near[0] - 1.0, (m - shortM) * near[0]);
  const double h = r.high;
  const double shortH = ShortOf(h);
  const double restOfSquare = (h - shortH) * (h + shortH) * 0.5;
  const double tail =
      h * h * h *
      (1.0 / 3 - h * (0.25 - h * (0.2 - h * (1.0 / 6 - h * (1.0 / 7 - h * (0.125 - h * (1.0 / 9)))))));
  const double scale = k;
  const Pair first = ExactSum(scale * kLn2[0] + near[1], h);
  const Pair second = ExactSum(first.high, shortH * shortH * -0.5);
  const double low = (r.low - r.low * h) - restOfSquare + tail + (scale * kLn2[1] + near[2]);
  return QuickSum(second.high, second.low + first.low + low);
}

// Logarithm of 0, of a negative number, of infinity or of no number; false for all others.
inline bool HasNoLog(double x, double& result) {
  if (x > 0.0 && x < kInfinity) return false;
  result = x == 0.0 ? -kInfinity : x > 0.0 ? x : kNoNumber;
  return true;
}

constexpr double kLogError = 0x1p-64;  // as a share of the logarithm, the product with its unit included

// --- Waves ---

// Sine of an angle plus `turn` 64ths of pi, by the series of what is left, r, with |r| at most pi / 128.
inline bool IsSineSettled(double x, int turn, double& result) {
  constexpr double kLargestAngle = 0x1p+20;
  if (!(std::fabs(x) < kLargestAngle)) return false;
  constexpr double kPartsPerRadian = 0x1.45f306dc9c883p+4;
  const double parts = Whole(x * kPartsPerRadian);
  const Pair two = ExactSum(x - parts * kPiBy64[0], -parts * kPiBy64[1]);
  const Pair r = QuickSum(two.high, two.low - parts * kPiBy64[2]);
  const int index = static_cast<int>(parts) + turn;
  const double* const sine = kSines[index & 127];
  const double* const cosine = kSines[(index + 32) & 127];
  const double h = r.high, square = h * h;
  const double sineTail = square * h * (-1.0 / 6 + square * (1.0 / 120 - square * (1.0 / 5040)));
  const double cosineTail =
      square * (-0.5 + square * (1.0 / 24 - square * (1.0 / 720 - square * (1.0 / 40320))));
  const Pair product = ExactProduct(cosine[0], h);
  const Pair sum = ExactSum(sine[0], product.high);
  const double low = product.low + (sine[1] + cosine[0] * r.low + cosine[1] * h) +
                     (cosine[0] * sineTail + sine[0] * (cosineTail - h * r.low));
  // The tails are at most 2^-11 of the sine and 2^-13 of r. What has been taken off x to get r is off by
  // 2^-90.
  const double error = std::fabs(sine[0]) * 0x1p-61 + std::fabs(h) * 0x1p-62 + (parts == 0.0 ? 0.0 : 0x1p-88);
  return IsSettled(QuickSum(sum.high, sum.low + low), error, result);
}

double Wave(double x, int turn) {
  constexpr double kTooLarge = 0x1p+30;
  constexpr double kTwoPi = 0x1.921fb54442d18p+2;
  if (!(std::fabs(x) < kInfinity)) return kNoNumber;
  if (std::fabs(x) >= kTooLarge) x = std::fmod(x, kTwoPi);
  double result;
  return IsSineSettled(x, turn, result) ? result : SlowSine(x, turn != 0);
}

}  // namespace

double Exp(double x) {
  double result;
  if (IsExpSettled({x, 0.0}, result)) return result;
  if (std::isnan(x)) return kNoNumber;
  return x > 710.0 ? kInfinity : x < -746.0 ? 0.0 : SlowExp(x);
}

double Exp10(double x) {
  double result;
  if (IsExpSettled(Product({x, 0.0}, kLn10), result)) return result;
  if (std::isnan(x)) return kNoNumber;
  return x > 309.0 ? kInfinity : x < -324.0 ? 0.0 : SlowExp10(x);
}

double Log(double x) {
  double result;
  if (HasNoLog(x, result)) return result;
  const Pair log = LogOf(x);
  return IsSettled(log, std::fabs(log.high) * kLogError, result) ? result : SlowLog(x, log.high, kBigOne);
}

double Log2(double x) {
  double result;
  if (HasNoLog(x, result)) return result;
  const Pair log = LogOf(x), log2 = Product(log, kInverseLn2);
  if (IsSettled(log2, std::fabs(log2.high) * kLogError, result)) return result;
  return SlowLog(x, log.high, kBigInverseLn2);
}

double Log10(double x) {
  double result;
  if (HasNoLog(x, result)) return result;
  const Pair log = LogOf(x), log10 = Product(log, kInverseLn10);
  if (IsSettled(log10, std::fabs(log10.high) * kLogError, result)) return result;
  return SlowLog(x, log.high, kBigInverseLn10);
}

double Power(double base, double x) {
  if (x == 0.0 || base == 1.0) return 1.0;
  if (x == 1.0) return base;
  if (std::isnan(x) || !(base >= 0.0)) return kNoNumber;
  if (base == 0.0 || base == kInfinity) return (base == 0.0) == (x > 0.0) ? 0.0 : kInfinity;
  const double log = LogOf(base).high;
  if (std::fabs(x * log) > 746.0) return (x > 0.0) == (log > 0.0) ? kInfinity : 0.0;
  if (std::fabs(x * log) < 0x1p-60) return 1.0;
  return SlowPower(base, log, x);
}

double Sin(double x) { return x == 0.0 ? x : Wave(x, 0); }
double Cos(double x) { return Wave(x, 32); }

}  // namespace reflyze::elementary
