#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lib/Text.h"
#include "reflyze/trace.h"
#include "sor/sorData.h"

namespace reflyze {

// What a trace is asked for more than once, made when it is first asked for.
struct Points {
  std::once_flag once;
  std::vector<double> levelsDb, distancesKm;
};

// A record as it was read, with what a listing tells of its file.
struct LoadedRecord {
  std::string given;        // as it was asked for
  std::string name;         // the same for messages, or "standard input"
  std::vector<char> bytes;  // the whole file; none for a record that was made here
  std::unique_ptr<TSorData> record;
  int state = 0;                      // final state of the stream
  bool fromFirstSample = false;       // its times count from there, and not as those of files do
  std::vector<std::string> warnings;  // what a user has to know of the file, in words behind its name
  TextEncoding texts;                 // of the record
  std::unique_ptr<Points> points = std::make_unique<Points>();

  bool Truncated() const;  // ended before its map said
  // The reading was broken off at a block that can't be placed, and the record was not brought into line.
  bool BrokenOff() const;
};

// Reads the bytes of a file, which are listed under the name `given`. Throws Error kUnreadable for what is no
// record: empty, cut inside its map, of a foreign revision, nested too deep.
LoadedRecord ReadRecord(const std::string& given, std::vector<char> bytes, const TextEncoding& texts);

// The same once more, for whoever changes it.
LoadedRecord CopyOfLoaded(const LoadedRecord& loaded);

// A record that is measured as one trace. It counts its times from the first sample (lib/UserOffset.h).
// Throws Error kUnreadable for one that is broken off, can't be measured (lib/UsableTrace.h), or holds
// several traces.
LoadedRecord ForMeasuring(Trace trace);

// Throws Error kUnreadable for a record whose reading was broken off: what is missing from it may be there
// in the file, and must neither be lost in a copy nor falsify a table.
void RequireReadThrough(const LoadedRecord& loaded);

// The user offset as a file has it; reading a record turns a negative one over (lib/UserOffset.h).
int StoredUserOffset(const LoadedRecord& loaded);

// Brings a record that was read to be listed to the times of one that is to be measured.
void CountTimesFromFirstSample(LoadedRecord& loaded);

// What a record is on file; `name` is the file that it is for. A record that is measured counts its times
// from the first sample, its file from the user offset (lib/UserOffset.h). Throws Error kUnwritable.
std::string RecordBytes(TSorData& record, const std::string& name);

// A record that a result leaves, and its file, made when it is first asked for.
struct KeptRecord {
  std::once_flag once;
  std::unique_ptr<TSorData> record;  // until then
  std::string name, encoding, bytes;
};
StoredRecord Keep(LoadedRecord& loaded);  // takes the record

// "FILE: warning: TEXT" for each of the warnings of a file.
std::vector<Warning> WarningsOf(const LoadedRecord& loaded);

}  // namespace reflyze
