#pragma once

#include <nlohmann/json.hpp>

#include "lib/LoadedRecord.h"
#include "reflyze/report.h"

namespace reflyze {

// Every field of every block under its label, raw as stored: integers, texts, lists, bytes in hexadecimal.
// The record as it was read, with its file, size, stream state and warnings, and what its checksum is worth.
nlohmann::ordered_json JsonOfLoadedRecord(const LoadedRecord& loaded, const DumpOptions& options);

}  // namespace reflyze
