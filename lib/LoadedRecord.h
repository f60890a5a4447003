// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lib/Text.h"
#include "reflyze/trace.h"
#include "sor/sorData.h"

namespace reflyze {

// What a trace is asked for more than once. It is made when it is first asked for.
struct Points {
  std::once_flag once;
  std::vector<double> levelsDb, distancesKm;
  std::once_flag linearOnce;  // the linear trace of the record
};

// A record as it was read, with what a listing tells of its file. It has no linear trace until it is to be
// measured, or shown to somebody who may measure it: most readings never come to that.
struct LoadedRecord {
  std::string given;        // the name as it was given
  std::string name;         // the same for messages, or "standard input"
  std::vector<char> bytes;  // the whole file; none for a record that was made here
  std::unique_ptr<TSorData> record;
  int state = 0;                      // final state of the stream
  bool fromFirstSample = false;       // its times count from the first sample, not as in files
  std::vector<std::string> warnings;  // what a user has to know of the file, in words behind its name
  TextEncoding texts;                 // how to read the texts of the record
  std::unique_ptr<Points> points = std::make_unique<Points>();

  // Whether the reading was broken off at a block that can't be placed. The record was then not brought into
  // line.
  bool brokenOff = false;

  bool Truncated() const;  // ended before its map said
};

// Reads the bytes of a file, which is shown under the name `given`. Throws Error kUnreadable for what is no
// record: empty, cut inside its map, of a foreign revision, nested too deep.
LoadedRecord ReadRecord(const std::string& given, std::vector<char> bytes, const TextEncoding& texts);

// Reads the same bytes once more, for a caller that changes the record.
LoadedRecord CopyOfLoaded(const LoadedRecord& loaded);

// Makes the linear trace of a record that has none yet, as reading it for a host would have done. Several
// threads may ask for it.
void MakeLinearTrace(const LoadedRecord& loaded);

// Makes a record ready to be measured as one trace, with times from the first sample (lib/UserOffset.h).
// Throws Error kUnreadable for one that is broken off, can't be measured (lib/UsableTrace.h) or holds several
// traces.
LoadedRecord ForMeasuring(Trace trace);

// Throws Error kUnreadable for a record whose reading was broken off. What is missing from it may be there in
// the file: a copy must not lose it, and a table must not be wrong for want of it.
void RequireReadThrough(const LoadedRecord& loaded);

// The user offset as the file has it. Reading a record turns a negative one over (lib/UserOffset.h).
int StoredUserOffset(const LoadedRecord& loaded);

// Makes the times of a record that was read for a listing count as those of one that is to be measured.
void CountTimesFromFirstSample(LoadedRecord& loaded);

// The file of a record; `name` is what it will be called. A record that is measured counts its times from the
// first sample, its file from the user offset (lib/UserOffset.h). Throws Error kUnwritable.
std::string RecordBytes(TSorData& record, const std::string& name);

// A record that belongs to a result, and its file, which is made when it is first asked for.
struct KeptRecord {
  std::once_flag once;
  std::unique_ptr<TSorData> record;  // until the file is made
  std::string name, encoding, bytes;
};
StoredRecord Keep(LoadedRecord& loaded);  // takes the record

// "FILE: warning: TEXT" for each of the warnings of a file.
std::vector<Warning> WarningsOf(const LoadedRecord& loaded);

}  // namespace reflyze
