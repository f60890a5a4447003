#pragma once

#include <string>
#include <vector>

#include "lib/LoadedRecord.h"

namespace reflyze {

// Throws Error kUnreadable where both traces have the same points: the two names of a merge are easily
// mixed up, and a direction merges with itself into a table of nothing.
void RequireTwoTraces(const LoadedRecord& a, const LoadedRecord& b);

// What speaks against two traces being two directions of one fibre, told of the second; their tables as they
// stood before a merge.
std::vector<std::string> DoubtsOfTwoDirections(const LoadedRecord& a, const LoadedRecord& b);

}  // namespace reflyze
