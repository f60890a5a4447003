// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "util/assertion.h"

// Owning array of pointers. Its table has exactly as many entries as there are elements and no capacity to
// spare, so that a host built apart from this library sees the same three members. Each call that changes the
// size copies the table: fill a long array with one SetSize and then SetData, not with AddData.
//
// Null entries are allowed. An index past the end means the last element, as told at each operation, and a
// negative one the first, so that no index reaches outside the table.
template <class T, class TPtr = T*>
class TOxArray {
 public:
  TOxArray() = default;
  // n null entries; none for a negative n.
  explicit TOxArray(int n) : table_(MakeTable(std::max(n, 0))), size_(std::max(n, 0)) {}
  TOxArray(const TOxArray&) = delete;
  TOxArray& operator=(const TOxArray&) = delete;
  ~TOxArray() { Clear(); }

  int GetSize() const { return size_; }

  // The element at i, the last one for an i past the end; null if the array is empty.
  TPtr GetData(int i) const {
    if (size_ == 0) return nullptr;
    return table_[Held(i)];
  }

  // Puts p at i in place of the element there, which is destroyed. An i above the size means the last
  // element. An i equal to the size names the entry past the end, and an empty array has no entry: both leave
  // the array as it is, and p with the caller.
  void SetData(TPtr p, int i) {
    if (size_ == 0 || i == size_) return;
    TPtr& entry = table_[Held(i)];
    if (entry == p) return;
    TPtr old = entry;
    entry = p;
    if (owns_) delete old;
  }

  // Appends p.
  void AddData(TPtr p) { InsData(p, size_); }

  // Puts p before the element at i; an i past the end appends.
  void InsData(TPtr p, int i) {
    i = std::clamp(i, 0, size_);
    TPtr* longer = MakeTable(size_ + 1);
    // Copied by hand: for std::copy GCC 12 warns of an overflow that isn't there.
    for (int k = 0; k < i; ++k) longer[k] = table_[k];
    longer[i] = p;
    for (int k = i; k < size_; ++k) longer[k + 1] = table_[k];
    delete[] table_;
    table_ = longer;
    ++size_;
  }

  // Removes and destroys the element at i, the last one for an i past the end.
  void DelData(int i) {
    if (size_ == 0) return;
    i = Held(i);
    TPtr* shorter = MakeTable(size_ - 1);
    std::copy(table_, table_ + i, shorter);
    std::copy(table_ + i + 1, table_ + size_, shorter + i);
    TPtr old = table_[i];
    delete[] table_;
    table_ = shorter;
    --size_;
    if (owns_) delete old;
  }

  // As DelData, but the element lives on with the caller.
  void DelEntry(int i) {
    const bool owned = owns_;
    owns_ = false;
    DelData(i);
    owns_ = owned;
  }

  // Gives the array n entries: elements beyond n are destroyed, new entries are null.
  void SetSize(int n) {
    n = std::max(n, 0);
    TPtr* resized = MakeTable(n);
    std::copy(table_, table_ + std::min(n, size_), resized);
    TPtr* old = table_;
    const int oldSize = size_;
    table_ = resized;
    size_ = n;
    if (owns_) {
      for (int k = n; k < oldSize; ++k) delete old[k];
    }
    delete[] old;
  }

  // Destroys all elements and frees the table.
  void Clear() {
    TPtr* old = table_;
    const int oldSize = size_;
    table_ = nullptr;
    size_ = 0;
    if (owns_) {
      for (int k = 0; k < oldSize; ++k) delete old[k];
    }
    delete[] old;
  }

 private:
  // n null entries; none, and no table, for 0.
  static TPtr* MakeTable(int n) { return n == 0 ? nullptr : new TPtr[static_cast<unsigned int>(n)](); }
  int Held(int i) const { return std::clamp(i, 0, size_ - 1); }

  TPtr* table_ = nullptr;
  int size_ = 0;
  bool owns_ = true;
};

// Array of N elements inside its owner. An index outside it is an assertion.
template <class T, unsigned int N>
class safe_array {
 public:
  unsigned int size() const { return N; }
  T* ptr() { return elements_; }
  const T* ptr() const { return elements_; }

  T& operator[](unsigned int index) {
    CheckIndex(index);
    return elements_[index];
  }
  const T& operator[](unsigned int index) const {
    CheckIndex(index);
    return elements_[index];
  }

 private:
  static void CheckIndex(unsigned int index, int line = __builtin_LINE()) {
    reflyze::Require(index < N,
                     "( (index < size()) && (index >= 0) ) && \"Out of bounds access in safe array\"",
                     "util/tarray.h", line);
  }

  T elements_[N] = {};
};
