#pragma once

#include <nlohmann/json.hpp>

#include "cli/RecordFile.h"

namespace reflyze::cli {

using Json = nlohmann::ordered_json;

// Every field of every block under its label, raw as stored: integers, texts, lists, bytes in hexadecimal.
// The record as it was read, with its file, size, stream state and warnings, and what its checksum is worth.
// Not `native`: the blocks that the file has; else all that the record has in memory.
Json JsonOfLoadedRecord(const LoadedRecord& loaded, bool withData, bool native);

}  // namespace reflyze::cli
