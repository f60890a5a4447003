// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reflyze/paper.h"

namespace reflyze::cli {

// The library that makes reports, loaded when the first one is asked for: with the libraries for drawing the
// program would start ten times as slowly. Throws Error kUnreadable where it is not installed or is another
// version's.
const PaperDoor& LoadedPaper();

}  // namespace reflyze::cli
