// SPDX-License-Identifier: Apache-2.0
#include "util/bigElementary.h"

#include "util/elementaryTables.h"

namespace reflyze::elementary {
namespace {

// value * 2^exponent
struct Scaled {
  BigFixed value;
  int exponent;
};

double DoubleOf(const BigFixed& a) { return Rounded(a, 0); }

// How often `unit` goes into `a`, fewer than 2^31 times; `a` keeps the rest.
std::uint32_t TakeOut(BigFixed& a, const BigFixed& unit) {
  auto times = static_cast<std::uint32_t>(DoubleOf(a) / DoubleOf(unit));
  if (IsLess(a, Times(unit, times))) --times;
  a = Difference(a, Times(unit, times));
  if (IsLess(a, unit)) return times;
  a = Difference(a, unit);
  return times + 1;
}

// e^z, or e^-z. The series of e^(z / 256) is short; squared eight times it gives e^z.
Scaled ExpOf(BigFixed z, bool isNegative) {
  constexpr int kSquares = 8;
  constexpr std::uint32_t kExpTerms = 20;  // 2^-8.5 to the 21st over 21! lies below 2^-224
  int exponent = static_cast<int>(TakeOut(z, kBigLn2));
  if (isNegative) {
    z = Difference(kBigLn2, z);
    exponent = -exponent - 1;
  }
  z = Shifted(z, -kSquares);
  BigFixed power = kBigOne;
  for (std::uint32_t n = kExpTerms; n > 0; --n) power = Sum(kBigOne, Quotient(Product(power, z), n));
  for (int i = 0; i < kSquares; ++i) power = Product(power, power);
  return {power, exponent};
}

double Rounded(const Scaled& a) { return Rounded(a.value, a.exponent); }

// |log(x)|. `log` is nearly the result, so that x e^-log = 1 + d with |d| of at most about 2^-43, an ulp of
// the largest logarithm. The exact logarithm is log + log(1 + d), and of the series of log(1 + d) five terms
// are enough.
BigFixed BigLog(double x, double log) {
  const Scaled inverse = ExpOf(BigOf(log), log > 0.0);
  int exponent = 0;
  const double mantissa = std::frexp(x, &exponent);
  const BigFixed nearOne = Shifted(Product(BigOf(mantissa), inverse.value), exponent + inverse.exponent);
  const bool isShort = IsLess(nearOne, kBigOne);
  const BigFixed d = Distance(nearOne, kBigOne);
  BigFixed power = d, odd = d, even = kBigZero;
  for (std::uint32_t n = 2; n <= 5; ++n) {
    power = Product(power, d);
    BigFixed& part = n % 2 == 0 ? even : odd;
    part = Sum(part, Quotient(power, n));
  }
  const BigFixed rest = isShort ? Sum(odd, even) : Difference(odd, even);
  const BigFixed near = BigOf(log);
  return isShort == (log < 0.0) ? Sum(near, rest) : Difference(near, rest);
}

}  // namespace

double SlowExp(double x) { return Rounded(ExpOf(BigOf(x), x < 0.0)); }

double SlowExp10(double x) { return Rounded(ExpOf(Product(BigOf(x), kBigLn10), x < 0.0)); }

double SlowLog(double x, double log, const BigFixed& unit) {
  return std::copysign(DoubleOf(Product(BigLog(x, log), unit)), log);
}

double SlowPower(double base, double log, double x) {
  int exponent = 0;
  const double mantissa = std::frexp(x, &exponent);
  const BigFixed z = Shifted(Product(BigLog(base, log), BigOf(mantissa)), exponent);
  return Rounded(ExpOf(z, (x < 0.0) != (log < 0.0)));
}

// The angle is taken from the nearest axis, so that it is at most pi / 4. By the axis, the series is that of
// the sine or of the cosine.
double SlowSine(double x, bool isCosine) {
  constexpr std::uint32_t kSineTerms = 50;  // (pi / 4)^51 over 51! lies below 2^-224
  BigFixed angle = BigOf(x);
  const std::uint32_t quarters = TakeOut(angle, kBigHalfPi);
  // `turn` quarters and the rest, and the sign. A cosine is the sine of a quarter more; of a negative angle
  // the sine changes its sign and the cosine does not.
  std::uint32_t turn = quarters;
  bool isNegative = x < 0.0;
  if (isCosine) {
    isNegative = false;
    ++turn;
  }
  if (turn % 4 >= 2) isNegative = !isNegative;
  bool fromCrest = turn % 2 == 1;
  const BigFixed mirrored = Difference(kBigHalfPi, angle);
  if (IsLess(mirrored, angle)) {
    angle = mirrored;
    fromCrest = !fromCrest;
  }
  const BigFixed square = Product(angle, angle);
  BigFixed series = kBigOne;
  for (std::uint32_t n = fromCrest ? kSineTerms : kSineTerms - 1; n >= 2; n -= 2) {
    series = Difference(kBigOne, Quotient(Product(series, square), n * (n - 1)));
  }
  const double size = DoubleOf(fromCrest ? series : Product(series, angle));
  return isNegative ? -size : size;
}

}  // namespace reflyze::elementary
