// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>

// Numbers from 0 to 2^32 with 224 binary places. So many places always tell to which of two doubles a
// function value is to be rounded, however near it lies to the middle between them. Everything is computed in
// whole numbers, so that the result is the same on every machine.
namespace reflyze::elementary {

struct BigFixed {
  static constexpr int kLimbs = 8;
  static constexpr int kPlaces = 224;
  std::uint32_t limb[kLimbs];  // lowest first; the last is the whole part
};

constexpr BigFixed kBigZero = {{0, 0, 0, 0, 0, 0, 0, 0}};
constexpr BigFixed kBigOne = {{0, 0, 0, 0, 0, 0, 0, 1}};

inline BigFixed Sum(const BigFixed& a, const BigFixed& b) {
  BigFixed sum;
  std::uint64_t carry = 0;
  for (int i = 0; i < BigFixed::kLimbs; ++i) {
    carry += static_cast<std::uint64_t>(a.limb[i]) + b.limb[i];
    sum.limb[i] = static_cast<std::uint32_t>(carry);
    carry >>= 32;
  }
  return sum;
}

// `b` is at most `a`.
inline BigFixed Difference(const BigFixed& a, const BigFixed& b) {
  BigFixed difference;
  std::uint64_t borrow = 0;
  for (int i = 0; i < BigFixed::kLimbs; ++i) {
    const std::uint64_t limb = static_cast<std::uint64_t>(a.limb[i]) - b.limb[i] - borrow;
    difference.limb[i] = static_cast<std::uint32_t>(limb);
    borrow = limb >> 63;
  }
  return difference;
}

inline bool IsLess(const BigFixed& a, const BigFixed& b) {
  for (int i = BigFixed::kLimbs - 1; i >= 0; --i) {
    if (a.limb[i] != b.limb[i]) return a.limb[i] < b.limb[i];
  }
  return false;
}

inline BigFixed Distance(const BigFixed& a, const BigFixed& b) {
  return IsLess(a, b) ? Difference(b, a) : Difference(a, b);
}

inline BigFixed Product(const BigFixed& a, const BigFixed& b) {
  std::uint32_t whole[2 * BigFixed::kLimbs] = {};
  for (int i = 0; i < BigFixed::kLimbs; ++i) {
    std::uint64_t carry = 0;
    for (int j = 0; j < BigFixed::kLimbs; ++j) {
      carry += static_cast<std::uint64_t>(a.limb[i]) * b.limb[j] + whole[i + j];
      whole[i + j] = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
    whole[i + BigFixed::kLimbs] = static_cast<std::uint32_t>(carry);
  }
  BigFixed product;
  for (int i = 0; i < BigFixed::kLimbs; ++i) product.limb[i] = whole[i + BigFixed::kPlaces / 32];
  return product;
}

inline BigFixed Times(const BigFixed& a, std::uint32_t factor) {
  BigFixed product;
  std::uint64_t carry = 0;
  for (int i = 0; i < BigFixed::kLimbs; ++i) {
    carry += static_cast<std::uint64_t>(a.limb[i]) * factor;
    product.limb[i] = static_cast<std::uint32_t>(carry);
    carry >>= 32;
  }
  return product;
}

inline BigFixed Quotient(const BigFixed& a, std::uint32_t divisor) {
  BigFixed quotient;
  std::uint64_t rest = 0;
  for (int i = BigFixed::kLimbs - 1; i >= 0; --i) {
    rest = rest << 32 | a.limb[i];
    quotient.limb[i] = static_cast<std::uint32_t>(rest / divisor);
    rest %= divisor;
  }
  return quotient;
}

// Bits `at` to `at` + 31; those outside are 0.
inline std::uint32_t BitsAt(const BigFixed& a, int at) {
  const auto limb = [&a](int i) {
    return i >= 0 && i < BigFixed::kLimbs ? static_cast<std::uint64_t>(a.limb[i]) : 0;
  };
  const int first = at >= 0 ? at / 32 : -((31 - at) / 32);
  return static_cast<std::uint32_t>((limb(first + 1) << 32 | limb(first)) >> (at - 32 * first));
}

// a * 2^n, cut to what the places hold.
inline BigFixed Shifted(const BigFixed& a, int n) {
  BigFixed shifted;
  for (int i = 0; i < BigFixed::kLimbs; ++i) shifted.limb[i] = BitsAt(a, 32 * i - n);
  return shifted;
}

// |x| below 2^32, cut to what the places hold.
inline BigFixed BigOf(double x) {
  int exponent = 0;
  const auto mantissa = static_cast<std::uint64_t>(std::ldexp(std::frexp(std::fabs(x), &exponent), 53));
  BigFixed big = kBigZero;
  big.limb[0] = static_cast<std::uint32_t>(mantissa);
  big.limb[1] = static_cast<std::uint32_t>(mantissa >> 32);
  return Shifted(big, BigFixed::kPlaces + exponent - 53);
}

// Place of the highest bit set, counted from the lowest; -1 for a number of 0.
inline int HighestBit(const BigFixed& a) {
  for (int bit = 32 * BigFixed::kLimbs - 1; bit >= 0; --bit) {
    if ((a.limb[bit / 32] >> bit % 32 & 1u) != 0) return bit;
  }
  return -1;
}

// The double next to a * 2^n. A value within 2^-90 of the middle between two doubles is taken for the middle
// itself, and goes to the even one. That is safe: a function value that is no middle stays about 2^-65 away
// from one, and the error of what is computed here is far smaller.
inline double Rounded(const BigFixed& a, int n) {
  constexpr int kDigits = 53, kLowestExponent = -1074;
  const int top = HighestBit(a);
  // Weight of the last digit that is kept, as a place in `a`.
  const int lowest = kLowestExponent - n + BigFixed::kPlaces;
  const int last = top - kDigits + 1 > lowest ? top - kDigits + 1 : lowest;
  if (top < 0 || last > top + 1) return 0.0;
  const BigFixed kept = Shifted(a, -last);
  const BigFixed rest = Difference(a, Shifted(kept, last));
  const BigFixed half = Shifted(Shifted(kBigOne, -BigFixed::kPlaces), last - 1);
  std::uint64_t digits = static_cast<std::uint64_t>(kept.limb[1]) << 32 | kept.limb[0];
  const bool isMiddle = HighestBit(Distance(rest, half)) < last - 1 - 90;
  digits += isMiddle ? digits & 1u : IsLess(half, rest) ? 1u : 0u;
  return std::ldexp(static_cast<double>(digits), last + n - BigFixed::kPlaces);
}

}  // namespace reflyze::elementary
