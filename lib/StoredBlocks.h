// SPDX-License-Identifier: Apache-2.0
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

// Reads a block of a file as it stands there, without the repairs of reading a whole record. Of several
// blocks the last counts, as in a record. Returns the stream's final state, sfReadError where the file has no
// such block.
int ReadStoredBlock(const LoadedRecord& loaded, const std::string& id, TSorBlock& block);

// Whether a block is one of this instrument family, which other readers pass over, or one that nobody here
// knows.
bool IsProprietary(const std::string& id);
bool IsUnknown(const std::string& id);

// What a user has to know where a record is stored with events that were found here: the names of the blocks
// that nobody here knows and that stay as they are, or "". Many makers keep a second table in one.
std::string UnknownBlocksStay(const TSorData& record, const TextEncoding& texts);

// The file with only those blocks that `keeps` wants, byte for byte. Fields that a newer revision has put
// behind the known ones stay, and so does a cut. With all blocks it is the file as it is. Without some, the
// map and the checksum are made anew.
std::string CopyOfFile(const LoadedRecord& loaded, const std::function<bool(const std::string& id)>& keeps);

// Where the map of a file begins: behind the broken head that some instruments put before it.
size_t StartOfMap(const std::vector<char>& bytes);

}  // namespace reflyze
