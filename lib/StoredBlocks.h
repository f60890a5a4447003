#pragma once

#include <functional>
#include <string>
#include <vector>

#include "lib/LoadedRecord.h"

namespace reflyze {

// A block as the map of a file places it.
struct StoredBlock {
  std::string id;
  unsigned short revision = 0;
  size_t start = 0, end = 0;  // bytes of the file; `end` is the file's own where the block is cut
};

// The blocks that a file really has, in order: those of its map that begin within it.
std::vector<StoredBlock> StoredBlocksOf(const LoadedRecord& loaded);

// Whether a file has a block of that ID.
bool Stores(const LoadedRecord& loaded, const std::string& id);
// Whether a map lists one, of whatever size.
bool Lists(const TSorBlockMap& map, const std::string& id);

// Reads a block of a file once more, as it stands there: what reading a whole record repairs is not repaired.
// Of several blocks the last counts, as in a record. The stream's final state; sfReadError where the file has
// no such block.
int ReadStoredBlock(const LoadedRecord& loaded, const std::string& id, TSorBlock& block);

// Blocks of this instrument family, which other readers pass over; and those that nobody here knows.
bool IsProprietary(const std::string& id);
bool IsUnknown(const std::string& id);

// What a user has to know where a record is stored with events that were found here: "" or the names of the
// blocks that nobody here knows and that stay as they are. Many makers keep a second table in one.
std::string UnknownBlocksStay(const TSorData& record, const TextEncoding& texts);

// The file with those blocks alone that `keeps` wants, byte for byte: fields that a newer revision has put
// behind the known ones stay, and so does a cut. With all blocks it is the file as it is; without some, the
// map and the checksum are made anew.
std::string CopyOfFile(const LoadedRecord& loaded, const std::function<bool(const std::string& id)>& keeps);

// Where the map of a file stands: behind the broken head that some instruments put before it.
size_t StartOfMap(const std::vector<char>& bytes);

}  // namespace reflyze
