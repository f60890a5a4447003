// SPDX-License-Identifier: Apache-2.0
#pragma once

class TSorData;

namespace reflyze {

struct LoadedRecord;

// Positions shown to a user count from the user offset of a record, which is mostly the end of a launch reel.
// Files tell the times of events and landmarks in two ways. Makers count them from the offset too, and expect
// it of every file. A record in memory counts them from the first sample. So does what a host of the analysis
// module stores, which carries the stamp of the analysis.
//
// What this program stores is meant for both kinds of readers: its times count from the offset, as makers do.
// Where the record carries the stamp as well, a mark behind the stamp tells this file from what a host has
// stored. The mark stands in the text about the software, beside the stamp, so that neither is lost without
// the other. A program that puts its own name into that text removes both, and the file is a maker's again. A
// host that analyses the record anew puts its stamp behind the mark, which ends it. A block of our own would
// outlive such changes and then be wrong, or be left out with the blocks that somebody does not know.

// Makes the times of a record that was read from a file count from the first sample. `storedOffset` is the
// user offset as the file has it. Reading a record turns a negative one into an offset with times that count
// from it, and leaves only the markers of the whole link as they were.
void CountFromFirstSample(TSorData& record, int storedOffset);

// How the times of a file count, for whoever changes them there.
struct TimesOfFile {
  bool fromFirstSample = false;  // a host's, which carries the stamp and no mark
  int shift = 0;                 // they count from the first sample when they are moved by this
};
TimesOfFile TimesOf(const LoadedRecord& loaded);

// What stands behind the stamp where times count from the user offset.
const char* TimesMark();

// While it lives, the record counts its times as a file does. It is for the time of writing.
class CountedFromOffset {
 public:
  explicit CountedFromOffset(TSorData& record);
  CountedFromOffset(const CountedFromOffset&) = delete;
  CountedFromOffset& operator=(const CountedFromOffset&) = delete;
  ~CountedFromOffset();

 private:
  TSorData& record_;
  int offset_;  // 0 where both ways agree
};

}  // namespace reflyze
