// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "reflyze/export.h"

namespace reflyze {

// A file to be written.
struct Output {
  std::string name;   // its path
  std::string bytes;  // all that will be in it
};

// Writes beside the targets and renames over them: a file appears whole or not at all, and one that was there
// before leaves it its permissions. A link is followed. What is no file but a device, a pipe or an open
// descriptor (/dev/stdout) is written to. Throws Error kUnwritable, also for two outputs of one name.
//
// Several outputs appear together or not at all. All are on disk before the first name changes, and names
// that have changed change back where a later one can't. A program can be killed, or lose its power, between
// two renames, since no file system renames two files in one step. Then the first output is new, and the
// second lies whole beside its place, under its passing name.
REFLYZE_API void SaveTogether(const std::vector<Output>& outputs);

// No input is larger; a record of the most points is a few megabytes.
constexpr std::size_t kLargestInput = 1u << 28;  // bytes

// All bytes of a file. Throws Error kUnreadable, also for a file of more bytes than `most`.
REFLYZE_API std::vector<char> ReadFile(const std::string& name, std::size_t most = kLargestInput);

}  // namespace reflyze
