// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>

#include "lib/LoadedRecord.h"
#include "lib/Measuring.h"
#include "reflyze/merge.h"

namespace reflyze {

// The events that one direction has measured itself, as they stood before a merge.
using OwnEvents = std::set<const TSorBlockKeyEvents1E*>;
OwnEvents OwnEventsOf(const TSorData& record);

// One direction whose table agrees with that of the other.
struct MatchedDirection {
  const LoadedRecord& file;
  OwnEvents own;
  std::optional<MeasuredLink> link;  // what was measured of its events
};

// The rows of two directions, before their losses are averaged; and, after that, the means. Where both sides
// were measured, the record of the first takes theirs.
MergedTable MakeMergedTable(const MatchedDirection& a, const MatchedDirection& b);
void TakeMeanLosses(TSorData& a, MergedTable& table);

}  // namespace reflyze
