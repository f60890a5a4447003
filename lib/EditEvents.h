// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "lib/FilePatch.h"
#include "reflyze/edit.h"

namespace reflyze {

// A text as the record takes it. Throws Error kUsage for one that it can't hold.
std::string TextForRecord(const LoadedRecord& loaded, const FieldEdit& edit);

// Thousandths, as far as 16 bits go.
short ShortHeld(long thousandths);

// The event table of a file while it is edited: values as the file has them, and their places.
class EditedTable {
 public:
  explicit EditedTable(const LoadedRecord& loaded);

  bool IsThere() const { return placed_.whole; }
  std::vector<TSorBlockKeyEvents1E>& events() { return events_; }
  TSorBlockKeyEvents& values() { return placed_.values; }
  // Which event of the file each is, -1 for a new one.
  std::vector<int>& origins() { return origins_; }

  void ShiftTimes(long long shift);
  void ChangeReturnLoss(int thousandths);
  // Puts what differs from the file into the patch, and tells it; `quiet` fields of an event are not told.
  void Put(FilePatch& patch, EditedFile& told);

 private:
  void PutEvent(std::size_t index, FilePatch& patch, EditedFile& told);
  void PutTotals(FilePatch& patch, EditedFile& told);
  void PutNumber(const std::string& label, long long before, long long after, FilePatch& patch);
  std::string BytesOf(TSorBlockKeyEvents1E event) const;

  const LoadedRecord& loaded_;
  PlacedBlock<TSorBlockKeyEvents> placed_;
  std::vector<TSorBlockKeyEvents1E> stored_, events_;
  std::vector<int> origins_;
  int eel_ = 0, elmp1_ = 0, elmp2_ = 0, rlmp1_ = 0, rlmp2_ = 0;
  unsigned short orl_ = 0;
};

// The file with edited events.
std::string EditEvents(const Trace& trace, const std::vector<FieldEdit>& edits, EditedFile& told);

}  // namespace reflyze
