// SPDX-License-Identifier: Apache-2.0

// Counts what goes through the operators new and delete of the program that this is linked into.

#include "bench/HeapPeak.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

long held = 0, heldAtStart = 0, most = 0;

}  // namespace

void* operator new(std::size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  held += static_cast<long>(malloc_usable_size(block));
  most = std::max(most, held);
  return block;
}

void operator delete(void* block) noexcept {
  if (block != nullptr) held -= static_cast<long>(malloc_usable_size(block));
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace reflyze::bench {

void HeapPeak::Restart() { heldAtStart = most = held; }
long HeapPeak::Bytes() { return most - heldAtStart; }

}  // namespace reflyze::bench
