// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reflyze/watch.h"

namespace reflyze::cli {

// The library that watches a network, loaded when a centre is asked for: with a database and a network in it
// the program would start many times as slowly. Throws Error kUnreadable where it is not installed or is
// another version's.
const WatchDoor& LoadedWatch();

}  // namespace reflyze::cli
