// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "lib/LoadedRecord.h"

namespace reflyze {

// Throws Error kUnreadable where both traces have the same points. The two names of a merge are easily mixed
// up, and a direction merged with itself gives a table without meaning.
void RequireTwoTraces(const LoadedRecord& a, const LoadedRecord& b);

// What makes it doubtful that two traces are two directions of one fibre, as warnings about the second. The
// tables must be as they stood before a merge.
std::vector<std::string> DoubtsOfTwoDirections(const LoadedRecord& a, const LoadedRecord& b);

}  // namespace reflyze
