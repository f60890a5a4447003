// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>

#include "lib/LoadedRecord.h"
#include "reflyze/report.h"

namespace reflyze {

// Every field of every block under its label, as stored: integers, texts, lists, bytes in hexadecimal. The
// object also has the file, its size, the stream state, warnings, and whether the checksum is right.
nlohmann::ordered_json JsonOfLoadedRecord(const LoadedRecord& loaded, const DumpOptions& options);

}  // namespace reflyze
