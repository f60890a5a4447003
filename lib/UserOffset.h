#pragma once

class TSorData;

namespace reflyze {

// Positions shown to a user count from the user offset of a record, a launch reel mostly. Files tell the
// times of events and landmarks in two ways. Makers count them from the offset too, and expect it of every
// file. A record in memory counts them from the first sample, and so does what a host of the analysis module
// stores, which carries the stamp of the analysis.
//
// What this program stores is meant for both kinds of readers: its times count from the offset, as makers do.
// Where the record carries the stamp as well, a mark behind the stamp tells this from what a host has stored.
// The mark stands there, in the text about the software, because the two must live and die together. A
// program that puts its own name into that text removes both, and is a maker's again. A host that analyses
// the record anew puts its stamp behind the mark, and thereby ends it. A block of our own would outlive such
// changes and then lie, or be left out with the blocks that somebody does not know.

// Brings a record that was read from a file to times from the first sample. `storedOffset` is the user offset
// as the file has it: reading takes a negative one for what it is, an offset with times that count from it,
// and leaves only the markers of the whole link behind.
void CountFromFirstSample(TSorData& record, int storedOffset);

// While it lives, the record counts its times as a file does. It is for the time of writing.
class CountedFromOffset {
 public:
  explicit CountedFromOffset(TSorData& record);
  CountedFromOffset(const CountedFromOffset&) = delete;
  CountedFromOffset& operator=(const CountedFromOffset&) = delete;
  ~CountedFromOffset();

 private:
  TSorData& record_;
  int offset_;  // 0 where both ways are one
};

}  // namespace reflyze
