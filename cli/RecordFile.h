#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "sor/sorData.h"

namespace reflyze::cli {

class Session;

// A record as it was read, with what a listing tells of its file.
struct LoadedRecord {
  std::string given;        // as on the command line
  std::string name;         // the same for messages, or "standard input"
  std::vector<char> bytes;  // the whole file
  std::unique_ptr<TSorData> record;
  int state = 0;                      // final state of the stream
  std::vector<std::string> warnings;  // what a user has to know of the file, in words behind its name
  bool Truncated() const;             // ended before its map said
  // The reading was broken off at a block that can't be placed, and the record was not brought into line.
  bool BrokenOff() const;
};

// What a record is read for: to be listed or copied as it stands; to be measured, as one trace; or to be
// measured, be it one trace or several.
enum class NeedPoints { kNo, kYes, kSeveral };

// Reads a file, or standard input for "-". Throws Problem kUnreadable for what is no record: missing, empty,
// cut inside its map, of a foreign revision, nested too deep, or, where points are needed, broken off or no
// trace that can be measured (cli/UsableTrace.h). A record to be measured counts its times from the first
// sample (cli/UserOffset.h), one to be listed as the file does.
LoadedRecord LoadRecord(Session& session, const std::string& name, NeedPoints needPoints);
// The same for bytes at hand; `name` stands for the file.
LoadedRecord LoadRecordBytes(const std::string& name, std::vector<char> bytes, NeedPoints needPoints);

// Throws Problem kUnreadable for a record whose reading was broken off: what is missing from it may be there
// in the file, and must neither be lost in a copy nor falsify a table. Records in which points are needed
// have been looked at in this way.
void RequireReadThrough(const LoadedRecord& loaded);

// The user offset as a file has it; reading a record turns a negative one over (cli/UserOffset.h).
int StoredUserOffset(const LoadedRecord& loaded);

// Brings a record that was read to be listed to the times of one that is to be measured.
void CountTimesFromFirstSample(const LoadedRecord& loaded);

// No input is larger; a record of the most points is a few megabytes.
constexpr size_t kLargestInput = 1u << 28;  // bytes

// All bytes of a file, or of standard input for "-". Throws Problem kUnreadable, also for more bytes than
// `most`.
std::vector<char> ReadInput(Session& session, const std::string& name, size_t most = kLargestInput);

// What a record is on file; `name` is the file that it is for. A record counts its times from the first
// sample, its file from the user offset (cli/UserOffset.h). Throws Problem kUnwritable.
std::string RecordBytes(TSorData& record, const std::string& name);
// Stores it as SaveTogether does.
void SaveRecord(TSorData& record, const std::string& name);
void SaveText(const std::string& text, const std::string& name);

}  // namespace reflyze::cli
