#pragma once

#include <nlohmann/json.hpp>

#include "cli/RecordFile.h"

namespace reflyze::cli {

using Json = nlohmann::ordered_json;

// Every field of every block under its label, raw as stored: integers, texts, lists, bytes in hexadecimal.
Json JsonOfRecord(const TSorData& record, bool withData);

// The same for a record as it was read, with its file, size, stream state, and what its checksum is worth.
Json JsonOfLoadedRecord(const LoadedRecord& loaded, bool withData);

}  // namespace reflyze::cli
