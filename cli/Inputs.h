// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "reflyze/inputs.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace reflyze::cli {

// The traces that a command was given, and where its results go.
struct InputArguments {
  std::vector<std::string> names;    // as on the command line
  bool folders = false;              // -r
  std::string output;                // -o; a folder where several results may come
  std::vector<std::string> endings;  // of files that are taken from folders; none for those of traces
  std::string ending;                // of results in a folder; empty where they keep that of their file
  std::vector<InputFile> files;      // what the names stand for
  std::vector<std::string> places;   // of the results, one a file; none without an output
  bool below = false;                // they stand in folders that are made for them
};

// TRACE... and -r. `what` is what the command does with several.
CLI::Option* AddInputs(CLI::App& command, InputArguments& inputs, const std::string& what);
// -r alone, of a command that names its traces otherwise.
void AddFolders(CLI::App& command, InputArguments& inputs);

// Looks up what the names stand for, and gives each result its place: `output` itself for the one file that
// was named, below `output` for what folders, lists and patterns give, for several, and where `output` ends
// in a slash. Throws Error kUsage where two results would have one place.
void SettleInputs(InputArguments& inputs);

// Throws what is wrong with a file of a job; standard input belongs to the first that names it.
void RequireFile(const std::vector<InputFile>& files, size_t index);

}  // namespace reflyze::cli
