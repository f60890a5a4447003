// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace reflyze {

// Leaves what it makes without a value unset: for numbers that are all written before one is read, as the
// levels of a trace. To clear a trace first takes as long as to make its levels.
template <class T>
struct UnsetAllocator : std::allocator<T> {
  template <class Other>
  struct rebind {
    using other = UnsetAllocator<Other>;
  };

  UnsetAllocator() = default;
  template <class Other>
  UnsetAllocator(const UnsetAllocator<Other>&) {}

  template <class Made>
  void construct(Made* place) {
    ::new (static_cast<void*>(place)) Made;
  }
  template <class Made, class... Values>
  void construct(Made* place, Values&&... values) {
    ::new (static_cast<void*>(place)) Made(std::forward<Values>(values)...);
  }
};

// `resize(n)` leaves the new ones unset; `resize(n, value)` sets them.
template <class T>
using UnsetVector = std::vector<T, UnsetAllocator<T>>;

}  // namespace reflyze
