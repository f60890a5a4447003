// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "lib/LoadedRecord.h"
#include "reflyze/monitor.h"

namespace reflyze {

// Both records are as the comparison left them. It may settle the noise floor of a copy.
Comparison MakeCompareTable(const LoadedRecord& baseline, const LoadedRecord& current, int result,
                            Numbers numbers);

}  // namespace reflyze
