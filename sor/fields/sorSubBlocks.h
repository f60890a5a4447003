// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>

#include "util/tarray.h"

// Tables of sub-blocks (events, landmarks) that a block owns.
namespace reflyze {

// `count` new elements in their default state, each with the revision of its parent. The table is allocated
// once: a count from a file may be large, and growing entry by entry costs the square of it.
template <class T>
std::unique_ptr<TOxArray<T, T*>> MakeSubBlocks(int count, unsigned short revision) {
  auto table = std::make_unique<TOxArray<T, T*>>(std::max(count, 0));
  for (int i = 0; i < count; ++i) {
    auto element = std::make_unique<T>();
    element->RevisionNo = revision;
    table->SetData(element.release(), i);
  }
  return table;
}

// Deep copies of all elements.
template <class T>
std::unique_ptr<TOxArray<T, T*>> CopySubBlocks(const TOxArray<T, T*>& source) {
  const int count = source.GetSize();
  auto table = std::make_unique<TOxArray<T, T*>>(count);
  for (int i = 0; i < count; ++i) {
    const T* element = source.GetData(i);
    if (element != nullptr) table->SetData(new T(*element), i);
  }
  return table;
}

// How many elements a block lists: its own count, which is below 0 in some broken files, but never more than
// the table holds, since a host may have changed one without the other.
template <class T>
int ListedSubBlocks(int count, const TOxArray<T, T*>& table) {
  return std::clamp(count, 0, std::max(table.GetSize(), 0));
}

}  // namespace reflyze
