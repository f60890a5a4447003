// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "util/convert.h"
#include "util/export.h"

// The arithmetic of the level scale, 5 log10 of the linear power, for every point of a trace.
//
// Logarithm and power are looked up in tables, with integer arithmetic around: fast where there is no
// floating point unit, and the same to the last bit everywhere. Event tables depend on these very values, so
// they must not be made more exact.
namespace reflyze {

// Filled while the program is loaded, before any thread can ask.
constexpr int kPowEntries = 15060;
constexpr int kLogEntries = 65;
REFLYZE_API extern const std::array<float, kPowEntries> tpow10Array;  // 10^(i / 50000)
REFLYZE_API extern const std::array<int, kLogEntries> tlog10Array;    // 500000 log10(1 + i / 64), truncated

constexpr int kLogUnits = 500000;  // of the integer logarithm, one decade
// Its value for 10^4, by which arguments are brought into range, and for 2.
constexpr int kLogTenThousand = 4 * kLogUnits;
constexpr int kLogTwo = 150515;
// Above the one, 32 bits might not hold the truncated argument. Below the other, to truncate would cost more
// than the table does.
constexpr double kLargestPlainArgument = 2000000000.0;
constexpr double kSmallestFineArgument = 4000.0;

// 500000 log10(m) of the truncated argument: the place of its highest bit, and from the table the fraction
// that the next 14 bits make. Arguments below 1, and those that are no number, count as 1.
template <class Real>
inline int IntegerLog(Real x) {
  const int m = std::max(TruncToInt(x), 1);
  const int highestBit = 31 - __builtin_clz(static_cast<unsigned int>(m));
  const int normalised = highestBit < 14 ? m << (14 - highestBit) : m >> (highestBit - 14);
  const int fraction = normalised - 0x4000;
  const unsigned int i = static_cast<unsigned int>(fraction >> 8);
  const int step = tlog10Array[i + 1] - tlog10Array[i];
  return highestBit * kLogTwo + tlog10Array[i] + (((fraction & 0xFF) * step) >> 8);
}

// 5 log10(x) for x of at least 1, low by up to 0.0002 dB: 15 bits of the argument count, and the fraction is
// interpolated. Just above 4000 truncation adds up to 0.0006 dB.
template <class Real>
inline double QuickLog(Real x) {
  int bias = 0;
  if (x > Real(kLargestPlainArgument)) {
    x /= Real(10000.0);
    bias = kLogTenThousand;
  } else if (x < Real(kSmallestFineArgument)) {
    x *= Real(10000.0);
    bias = -kLogTenThousand;
  }
  return (IntegerLog(x) + bias) * 1e-05;
}

// 500000 log10(x) for x of at least 1; fine enough for large x only.
inline int Log500k(float x) {
  int bias = 0;
  if (x > float(kLargestPlainArgument)) {
    x /= 10000.0f;
    bias = kLogTenThousand;
  }
  return IntegerLog(x) + bias;
}

// The scale runs straight through 0. Between -2 and 2 the logarithm, which would fall without end, is
// replaced by the line that meets it at both ends; its slope is 5 log10(2) / 2. The constants in single
// precision are not those in double precision rounded: traces have always been made with them.
constexpr double kStraightUpTo = 2.0;
constexpr double kStraightDb = 0.752574989159953;   // dB per unit of linear value
constexpr double kStraightLin = 1.328771237954945;  // linear value per dB
constexpr float kStraightDbF = 0x1.815182p-1f;
constexpr float kStraightLinF = 0x1.542a5ap+0f;

// k times 5 log10(|x|) with the sign of x, and straight through 0.
inline double SignedLog5(double x, double k) {
  double db;
  if (std::fabs(x) <= kStraightUpTo) {
    db = x * kStraightDb;
  } else {
    db = x > 0.0 ? QuickLog(x) : -QuickLog(-x);
  }
  return k * db;
}

inline float SignedLog5(float x, float k) {
  float db;
  if (std::fabs(x) <= float(kStraightUpTo)) {
    db = x * kStraightDbF;
  } else {
    db = x > 0.0f ? static_cast<float>(QuickLog(x)) : -static_cast<float>(QuickLog(-x));
  }
  return k * db;
}

constexpr double kLargestTableDb = 40.0;
constexpr double kTableStepFactor = 100000000.0;  // 10^(x / 5) of these 40 dB

constexpr unsigned int kPowUnitsPerDb = 20000;
constexpr unsigned int kPowUnitsPerDecade = 100000;
constexpr unsigned int kPowUnitsPerOctave = 30103;

// Powers of whole decades and octaves, all exact in 24 bits.
inline constexpr float kDecades[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f, 1e6f, 1e7f, 1e8f};
inline constexpr float kOctaves[] = {1.0f, 2.0f, 4.0f, 8.0f};

// One stretch of the scale on which 10^(x / 5) is the table times a constant: an octave of power, or what the
// last one of a decade is cut to.
struct PowOctave {
  unsigned int firstUnit;
  float factor;  // power at its begin

  static PowOctave At(unsigned int units) {
    const unsigned int decades = units / kPowUnitsPerDecade, rest = units % kPowUnitsPerDecade;
    const unsigned int octaves = rest / kPowUnitsPerOctave;
    return {decades * kPowUnitsPerDecade + octaves * kPowUnitsPerOctave,
            kDecades[decades] * kOctaves[octaves]};
  }
  float PowerOf(unsigned int units) const { return factor * tpow10Array[(units - firstUnit) >> 1]; }
};

// 10^(x / 5): a power of ten, a power of two and the rest from the table, in single precision, for x from 0
// to 40, where the whole units are at most 800,000.
inline double Pow5InTable(double x) {
  const auto units = static_cast<unsigned int>(TruncProven(x * kPowUnitsPerDb));
  return PowOctave::At(units).PowerOf(units);
}

// 10^(x / 5) of a level below 0, or far above what traces hold.
REFLYZE_API double Pow5OutsideTable(double x);

// 10^(x / 5); for x of at least 0 from the table, which holds 40 dB. A trace has levels in two such ranges.
inline double Pow5(double x) {
  if (x >= 0.0 && x <= kLargestTableDb) return Pow5InTable(x);
  if (x > kLargestTableDb && x <= 2.0 * kLargestTableDb) {
    return Pow5InTable(x - kLargestTableDb) * kTableStepFactor;
  }
  return Pow5OutsideTable(x);
}

// Pow5 for values that change little from one to the next, as levels along a trace do. Most lie in the same
// octave as the one before, so that decade and octave need not be looked up again.
class REFLYZE_API Pow5Run {
 public:
  double operator()(double x) {
    if (!(x >= fromDb_ && x < endDb_)) {
      *this = Around(x);
      return Pow5(x);
    }
    const auto units = static_cast<unsigned int>(TruncProven((x - tableDb_) * kPowUnitsPerDb));
    return octave_.PowerOf(units) * tableFactor_;
  }

 private:
  // The octave of x; the empty one where x lies in none of the table's.
  static Pow5Run Around(double x);

  double fromDb_ = 0.0, endDb_ = 0.0;
  double tableDb_ = 0.0;      // where the table begins, 0 or 40 dB
  double tableFactor_ = 1.0;  // and the power there
  PowOctave octave_{0, 1.0f};
};

}  // namespace reflyze
