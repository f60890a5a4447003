// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <type_traits>

// Floating values become integers in one way only. They are truncated towards zero; a value outside the type
// becomes its nearest bound, and one that is not a number becomes 0. The language leaves the last two
// undefined, and a trace from a broken file has such values.
namespace reflyze {

template <class Integer, class Floating>
constexpr Integer TruncTo(Floating value) {
  static_assert(std::is_integral<Integer>::value && std::is_floating_point<Floating>::value, "");
  using Bounds = std::numeric_limits<Integer>;
  // The upper bound of a wide type is not representable: its successor, a power of two, always is.
  constexpr Floating kAbove = static_cast<Floating>(Bounds::max() / 2 + 1) * Floating(2);
  constexpr Floating kLowest = static_cast<Floating>(Bounds::min());
  if (value != value) return 0;
  if (value >= kAbove) return Bounds::max();
  if (value <= kLowest) return Bounds::min();
  return static_cast<Integer>(value);
}

// The same for a value that the caller has proven to lie in range: one instruction, for inner loops.
template <class Floating>
constexpr int TruncProven(Floating value) {
  return static_cast<int>(value);
}

template <class Floating>
constexpr int TruncToInt(Floating value) {
  return TruncTo<int>(value);
}
template <class Floating>
constexpr long TruncToLong(Floating value) {
  return TruncTo<long>(value);
}
template <class Floating>
constexpr short TruncToShort(Floating value) {
  return TruncTo<short>(value);
}
template <class Floating>
constexpr unsigned short TruncToUShort(Floating value) {
  return TruncTo<unsigned short>(value);
}

// Keeps the low 16 bits, as fields do that wrap on purpose.
constexpr unsigned short LowBits16(long value) {
  return static_cast<unsigned short>(static_cast<unsigned long>(value) & 0xFFFFu);
}
constexpr short SignedLowBits16(long value) {
  const long low = static_cast<long>(static_cast<unsigned long>(value) & 0xFFFFu);
  return static_cast<short>(low >= 0x8000 ? low - 0x10000 : low);
}

// The index of a point that is known to be on the trace.
constexpr std::size_t Index(long point) { return static_cast<std::size_t>(point); }

}  // namespace reflyze
