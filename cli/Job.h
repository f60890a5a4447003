// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "cli/Inputs.h"
#include "cli/Kept.h"
#include "cli/Options.h"

namespace reflyze::cli {

class Session;

// One run of a command over its files.
struct Job {
  InputArguments inputs;
  WorkOptions work;
  bool resume = false;
  std::string stage;         // of a job that goes over its files more than once
  std::set<size_t> skipped;  // files that this stage has nothing to do with
  bool byNumber = false;     // a result rests on the number of its file too
  // The files that the result of a piece rests on; the file itself where there is none.
  std::function<std::vector<std::string>(size_t)> reads;
  const CLI::App* command = nullptr;  // whose options the results rest on; set by AddResume
  std::vector<std::string> apart;     // options that they don't rest on
};

// TRACE..., -r, -j and -q. `what` is what the command does with several.
CLI::Option* AddJobInputs(CLI::App& command, Job& job, const std::string& what);
// -r, -j and -q alone, of a command that names its traces otherwise.
void AddJobFlags(CLI::App& command, Job& job);
// -o and --resume. `what` is what is stored.
CLI::Option* AddJobOutput(CLI::App& command, Job& job, const std::string& what);
// --resume alone.
void AddResume(CLI::App& command, Job& job, CLI::Option* output);

// Makes the result of one file. Several are made at once, each on a thread of its own.
using FileWork = std::function<FileResult(size_t index)>;

// Makes a result of each file, writes its outputs, says what there is to say, and hands the results out in
// order. One that fails costs its line on standard error and the others go on. With outputs in a folder,
// results are kept there for --resume. Gives the worst status.
int RunJob(Session& session, const Job& job, const FileWork& work,
           const std::function<void(size_t, const FileResult&)>& take);

// What a command prints of a table that it has made.
template <class Table>
std::string ListingOf(const Table& table, const std::string& format) {
  if (format == "json") return JsonOf(table);
  return format == "csv" ? CsvOf(table) : TextOf(table);
}

// The same, and prints the listings: `heading` before the first of CSV, and an empty line between those of
// text.
int PrintJob(Session& session, const Job& job, const std::string& format, const std::string& heading,
             const FileWork& work);

}  // namespace reflyze::cli
