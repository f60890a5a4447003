#pragma once

#include <string>
#include <vector>

namespace reflyze::cli {

struct Output {
  std::string name;
  std::string bytes;
};

// Writes beside the targets and renames over them: a file appears whole or not at all, and one that was there
// before leaves it its permissions. A link is followed. What is no file but a device, a pipe or an open
// descriptor (/dev/stdout) is written to. Throws Problem kUnwritable.
//
// Several outputs appear together or none does: all are on disk before the first name changes, and names that
// have changed change back where a later one can't. What no program can exclude is its end between two
// renames, by a kill or a power cut: no file system renames two files in one step. Then the first output is
// new, and the second lies whole beside its place, under its passing name.
void SaveTogether(const std::vector<Output>& outputs);

}  // namespace reflyze::cli
