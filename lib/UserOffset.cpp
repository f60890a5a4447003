// SPDX-License-Identifier: Apache-2.0
#include "lib/UserOffset.h"

#include <algorithm>
#include <climits>
#include <string>

#include "lib/LoadedRecord.h"
#include "sor/sorData.h"

namespace reflyze {
namespace {

constexpr const char* kStampHead = " VA=";
constexpr size_t kStampLength = 10;       // with its date
constexpr const char* kMark = " EPT=UO";  // event propagation times count from the user offset

// Broken files hold any number. Times wrap around, so that each comes back as it was.
void Shift(int& time, int by) {
  time = static_cast<int>(static_cast<unsigned>(time) + static_cast<unsigned>(by));
}

// The markers of the loss and the return loss of the link.
void ShiftLink(TSorData& record, int by) {
  TSorBlockKeyEvents& table = *record.KeyEvents;
  for (int* time : {&table.ELMP1, &table.ELMP2, &table.RLMP1, &table.RLMP2}) Shift(*time, by);
}

void ShiftAll(TSorData& record, int by) {
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    for (int* time : {&event.EPT, &event.ML0, &event.ML1, &event.ML2, &event.ML3, &event.ML4})
      Shift(*time, by);
  }
  for (int i = 0; i < record.QRTEvents->ListedEvents(); ++i) {
    TSorBlockQRTEvents1E& section = record.QRTEvents->EventAt(i);
    for (int* time : {&section.ML0, &section.ML1, &section.ML2}) Shift(*time, by);
  }
  for (int i = 0; i < record.LnkParams->ListedLandmarks(); ++i)
    Shift(record.LnkParams->LandmarkAt(i).LML, by);
  ShiftLink(record, by);
}

struct Software {
  bool stamped = false;  // the module has stamped the record
  bool marked = false;   // and this program has stored it since
  std::string unmarked;  // the text without the mark
};

Software SoftwareOf(const TSorData& record) {
  Software software;
  software.unmarked = record.SupParams->SR.c_str();
  const size_t stamp = software.unmarked.rfind(kStampHead);
  software.stamped = stamp != std::string::npos;
  if (!software.stamped) return software;
  const size_t behind = std::min(stamp + kStampLength, software.unmarked.size());
  // Some programs pad texts with blanks.
  const size_t last = software.unmarked.find_last_not_of(' ') + 1;
  software.marked = software.unmarked.substr(behind, std::max(last, behind) - behind) == kMark;
  if (software.marked) software.unmarked.resize(behind);
  return software;
}

}  // namespace

void CountFromFirstSample(TSorData& record, int storedOffset) {
  const Software software = SoftwareOf(record);
  if (software.marked) record.SupParams->SR = software.unmarked.c_str();
  if (storedOffset > 0 && (software.marked || !software.stamped)) ShiftAll(record, storedOffset);
  if (storedOffset < 0) ShiftLink(record, record.GenParams->UO);
}

TimesOfFile TimesOf(const LoadedRecord& loaded) {
  const Software software = SoftwareOf(*loaded.record);
  const int offset = StoredUserOffset(loaded);
  TimesOfFile times;
  times.fromFirstSample = software.stamped && !software.marked;
  if (offset < 0) times.shift = -std::max(offset, -INT_MAX);
  if (offset > 0 && !times.fromFirstSample) times.shift = offset;
  return times;
}

const char* TimesMark() { return kMark; }

CountedFromOffset::CountedFromOffset(TSorData& record) : record_(record), offset_(record.GenParams->UO) {
  if (offset_ <= 0) offset_ = 0;
  if (offset_ == 0) return;
  ShiftAll(record_, -offset_);
  if (SoftwareOf(record_).stamped) record_.SupParams->SR += kMark;
}

CountedFromOffset::~CountedFromOffset() {
  if (offset_ == 0) return;
  ShiftAll(record_, offset_);
  record_.SupParams->SR = SoftwareOf(record_).unmarked.c_str();
}

}  // namespace reflyze
