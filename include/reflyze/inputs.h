// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "reflyze/export.h"

namespace reflyze {

// A list of names is a text of so many bytes at most.
constexpr std::size_t kLargestList = 1u << 26;  // bytes

// Files that were asked for by more than their names.
struct InputOptions {
  bool folders = false;  // a folder stands for the traces in it and in all folders below
  std::vector<std::string> endings = {".sor", ".msor"};  // of the files that count there, in small letters
};

// One file of a job, or what could not be made one.
struct InputFile {
  std::string name;     // as a program opens it
  std::string below;    // its path below the folder that was named, else its file name; for outputs
  std::string problem;  // why there is no file, in words behind the name; empty where there is one
};

// Whether one name stands before another as people count: a run of digits counts as its number, so that
// "f_2.sor" stands before "f_10.sor".
REFLYZE_API bool NaturalLess(const std::string& one, const std::string& other);

// The files that names stand for, in the order of the names. A name may be that of a file, "-" for standard
// input, "@FILE" for a list of names, one a line (blank lines and lines that begin with "#" don't count), a
// pattern with `*`, `?` or `[...]` where no file has that very name, or, if asked for, a folder. What folders
// and patterns hold comes in natural order; of folders, files with one of the endings in any case. What leads
// nowhere is an entry with a problem, in its place: an empty pattern or folder, a list or a folder that leads
// back to itself, a list that can't be read. Throws Error kUsage for more files than 1,000,000.
REFLYZE_API std::vector<InputFile> FilesOf(const std::vector<std::string>& names,
                                           const InputOptions& options = {});

// Where the results of several files go: below `folder`, each under its `below`. Throws Error kUsage, naming
// both, where two files would have one place.
REFLYZE_API std::vector<std::string> PlacesBelow(const std::string& folder,
                                                 const std::vector<InputFile>& files);

// Makes the folder that a file will stand in, with those above it. Throws Error kUnwritable.
REFLYZE_API void MakeFolderOf(const std::string& file);

}  // namespace reflyze
