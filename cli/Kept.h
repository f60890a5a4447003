// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/ExitStatus.h"
#include "reflyze/files.h"
#include "reflyze/trace.h"

namespace reflyze::cli {

// What a command makes of one file of its job.
struct FileResult {
  std::string listing;            // what is printed; empty for nothing
  std::vector<Warning> warnings;  // said before it
  std::vector<Output> outputs;    // files, all or none of them written
  int status = kDone;
  std::string problem;  // why there is no result; empty where there is one
};

// FNV-1a, for what nobody has a reason to forge: whether bytes are those of before.
class Digest {
 public:
  void Take(const char* data, size_t size);
  void Take(const std::string& text);  // with its length, so that two texts are not one
  std::string Text() const;

 private:
  unsigned long long value_ = 14695981039346656037ull;
};

std::string DigestOf(const std::string& bytes);

// The results of a job, kept in the folder of its outputs as they come, so that a job that was killed can go
// on. The list of them is a hidden file; a record of it that was cut off by the kill does not count.
class KeptResults {
 public:
  // Reads what an earlier run has kept in `folder`, if `resume`; else that is forgotten.
  KeptResults(const std::string& folder, bool resume);

  // The result that was kept under a key, if its outputs still are as they were written.
  std::optional<FileResult> Find(const std::string& key) const;
  // Keeps a result whose outputs are written. A folder that takes no list keeps nothing.
  void Keep(const std::string& key, const FileResult& result);

 private:
  void Read();

  std::string name_;
  bool begun_ = false;  // the list was opened by this run
  std::ofstream list_;
  std::map<std::string, std::string> results_;  // by key; as they are written
  std::vector<std::string> order_;              // keys
};

}  // namespace reflyze::cli
