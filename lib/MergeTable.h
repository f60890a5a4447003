// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>

#include "lib/LoadedRecord.h"
#include "reflyze/merge.h"

namespace reflyze {

// The events that one direction has measured itself, as they stood before a merge.
using OwnEvents = std::set<const TSorBlockKeyEvents1E*>;
OwnEvents OwnEventsOf(const TSorData& record);

// The rows of two records whose tables agree, before their losses are averaged; and, after that, the means.
MergedTable MakeMergedTable(const LoadedRecord& a, const OwnEvents& ownA, const LoadedRecord& b,
                            const OwnEvents& ownB);
void TakeMeanLosses(const TSorData& a, MergedTable& table);

}  // namespace reflyze
