// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>
#include <type_traits>
#include <vector>

#include "sor/fields/sorFieldCopy.h"
#include "sor/fields/sorFields.h"
#include "sor/stream/sorReadBudget.h"
#include "util/tarray.h"

// Rows of a field list whose number of entries stands on file before them and is not to be trusted. All
// visitors but the reader see plain rows.
namespace reflyze {

// How many entries a block lists in arrays beside their count: the count, but never more than the arrays
// hold, since a host may have changed one without the other.
template <class... Arrays>
long Listed(long count, const Arrays&... arrays) {
  return std::max(0L, std::min({count, static_cast<long>(arrays.size())...}));
}

// Sub-blocks that the block owns in `items`, after their 2-byte count. each(item, visitor) walks the fields
// of one. A reading makes as many as the count says, even where the data end before: those that are missing
// keep their defaults, so that a table with one entry for each event stays one. Where the reading can't
// afford them (see ReadBudget), it keeps those that it has found.
template <class Visitor, class Items, class Each>
void OwnedList(Visitor& v, const char* countLabel, const char* label, const char* heading, Items& items,
               Each&& each, int since = 0) {
  using Item = std::remove_reference_t<decltype(*items.GetData(0))>;
  if constexpr (std::is_base_of<PlainFields, Visitor>::value) {
    return;  // its owner copies it
  } else if constexpr (std::is_same<Visitor, FieldReader>::value) {
    if (!v.Has(since)) return;
    unsigned short count = 0;
    v.Int(countLabel, count);
    items.Clear();
    items.SetSize(count);
    bool ended = false;
    for (int i = 0; i < count; ++i) {
      if (!ended && v.Ended()) {
        ended = true;
        if (!ReadBudget::Affords(v.file(), count - i, sizeof(Item))) return items.SetSize(i);
      }
      auto item = std::make_unique<Item>();
      if (!ended) each(*item, v);
      items.SetData(item.release(), i);
    }
  } else {
    const auto count = static_cast<unsigned short>(std::min(items.GetSize(), 0xFFFF));
    v.Int(countLabel, count, since);
    v.List(
        label, heading, count,
        [&](long i, auto& entry) {
          const Item& item = *items.GetData(static_cast<int>(i));
          each(item, entry);
        },
        since);
  }
}

// Integers after their 4-byte count. A reading takes as many as the file has, so that a short file can't ask
// for much memory. The count stands on file only; in memory it is the size of the array.
template <class Visitor, class Values>
void CountedArray(Visitor& v, const char* label, Values& values, int since) {
  if constexpr (std::is_same<Visitor, FieldReader>::value) {
    if (!v.Has(since)) return;
    unsigned int count = 0;
    v.Int(label, count);
    values.clear();
    for (unsigned int i = 0; i < count; ++i) {
      typename Values::value_type value = 0;
      v.Int(label, value);
      if (v.Ended()) break;
      values.push_back(value);
    }
  } else {
    if constexpr (std::is_same<Visitor, FieldWriter>::value) {
      v.Int(label, static_cast<unsigned int>(values.size()), since);
    }
    v.Array(label, values.data(), static_cast<long>(values.size()), since);
  }
}

}  // namespace reflyze
