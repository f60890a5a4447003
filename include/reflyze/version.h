// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "reflyze/export.h"

namespace reflyze {

// Version of the library, such as "1.0.0": the first number changes with what a caller has to change.
REFLYZE_API std::string LibraryVersion();

// Version of the analysis inside, such as "3.15.12.14": that of the module for instruments, which comes from
// the same sources and gives the same tables.
REFLYZE_API std::string ModuleVersion();

}  // namespace reflyze
