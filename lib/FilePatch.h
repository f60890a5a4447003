// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

#include "lib/FieldPlaces.h"

namespace reflyze {

// Changes of single bytes of a file. All else stays as it is, but for the sizes of blocks in the map and the
// checksum.
class FilePatch {
 public:
  explicit FilePatch(const LoadedRecord& loaded) : loaded_(loaded) {}

  // What is to stand where a field stands now; an empty place takes it in between. Places don't overlap.
  void Put(const FieldPlace& place, const std::string& bytes) { puts_[{place.start, place.end}] = bytes; }
  // The same of a whole number of as many bytes, the lowest first.
  void PutNumber(const FieldPlace& place, long long number);
  bool IsEmpty() const { return puts_.empty(); }

  // The file with these changes. Throws Error kUnreadable where its map can't be found again. Adds a warning
  // where the checksum followed no rule that is known.
  std::string Apply(std::vector<Warning>& warnings) const;

 private:
  std::string WithNewSizes(std::string bytes, const std::vector<StoredBlock>& blocks) const;

  const LoadedRecord& loaded_;
  std::map<std::pair<std::size_t, std::size_t>, std::string> puts_;
};

}  // namespace reflyze
