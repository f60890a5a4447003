// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>

#include "util/tarray.h"

// What the monitoring blocks do with the tables of entries that they own. Entries are never null: a null
// pointer from a caller stands for a new entry in its default state.
namespace reflyze {

// Deep copies of all entries of `source` in place of what `table` holds.
template <class T>
void ReplaceByCopies(TOxArray<T, T*>& table, const TOxArray<T, T*>& source) {
  table.Clear();
  table.SetSize(source.GetSize());
  for (int i = 0; i < source.GetSize(); ++i) table.SetData(new T(*source.GetData(i)), i);
}

// Cuts the table to n entries, or fills it up with copies of `pattern`.
template <class T>
void ResizeTable(TOxArray<T, T*>& table, int n, const T& pattern) {
  const int held = table.GetSize();
  table.SetSize(n);
  for (int i = held; i < n; ++i) table.SetData(new T(pattern), i);
}

// Puts an entry in the place of another. Where the table has no such place the entry stays with the caller.
template <class T>
void PutEntry(TOxArray<T, T*>& table, T* entry, int i) {
  if (table.GetSize() == 0 || i == table.GetSize()) return;
  table.SetData(entry != nullptr ? entry : new T(), i);
}

// Inserts an entry and gives it back as it stands.
template <class T>
T* InsertEntry(TOxArray<T, T*>& table, T* entry, int i) {
  if (entry == nullptr) entry = new T();
  table.InsData(entry, i);
  return entry;
}

// The number of entries as the 16 bits of a file hold it.
template <class T>
unsigned short CountOf(const TOxArray<T, T*>& table) {
  return static_cast<unsigned short>(std::min(table.GetSize(), 0xFFFF));
}

}  // namespace reflyze
