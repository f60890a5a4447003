// SPDX-License-Identifier: Apache-2.0
#include "sor/stream/sorReadBudget.h"

#include <algorithm>

#include "sor/stream/sorFile.h"

namespace reflyze {
namespace {

// A record may be read this many times over, and a little more where it is small. Blocks of true records
// overlap where an instrument has understated a size, and then by little.
constexpr unsigned long long kTimesOver = 8;
constexpr unsigned long long kFreeBytes = 64ull << 20;
// Memory of a small object that is made for a few bytes of a file (a line of a map, an embedded record), and
// of a record with all its blocks in their default state.
constexpr unsigned long long kObjectBytes = 256;
constexpr unsigned long long kRecordBytes = 8192;
constexpr unsigned long long kWithTexts = 2;  // times its own size: each text of an object stands apart

thread_local ReadBudget* innermost = nullptr;

}  // namespace

ReadBudget::ReadBudget(TSorFile& file)
    : file_(file),
      outer_(innermost),
      account_(Innermost(file) != nullptr ? Innermost(file)->account_ : this),
      depth_(Innermost(file) != nullptr ? Innermost(file)->depth_ + 1 : 0) {
  innermost = this;
  account_->Add(kRecordBytes, 0);
}

ReadBudget::~ReadBudget() { innermost = outer_; }

ReadBudget* ReadBudget::Innermost(const TSorFile& file) {
  return innermost != nullptr && &innermost->file_ == &file ? innermost : nullptr;
}

bool ReadBudget::MayNest(TSorFile& file) {
  if (Depth(file) < kDeepestNesting) return true;
  file.state = sfReadError;
  return false;
}

int ReadBudget::Depth(const TSorFile& file) {
  const ReadBudget* level = Innermost(file);
  return level != nullptr ? level->depth_ : 0;
}

void ReadBudget::Charge(TSorFile& file, unsigned long start, long objects) {
  const ReadBudget* level = Innermost(file);
  if (level == nullptr) return;
  const unsigned long position = file.Tell();
  const unsigned long long bytes = position > start ? position - start : 0;
  // A file on disk may be positioned behind its end. Only where something was read it surely has a place.
  level->account_->Add(bytes + static_cast<unsigned long long>(std::max(objects, 0L)) * kObjectBytes,
                       bytes > 0 ? position : 0);
}

bool ReadBudget::Affords(TSorFile& file, long objects, unsigned long objectBytes) {
  const ReadBudget* level = Innermost(file);
  const unsigned long long bytes = static_cast<unsigned long long>(objects) * objectBytes * kWithTexts;
  return level == nullptr || level->account_->Add(bytes, 0);
}

bool ReadBudget::Add(unsigned long long bytes, unsigned long position) {
  charged_ += bytes;
  furthest_ = std::max(furthest_, position);
  const bool affords = charged_ <= kFreeBytes + kTimesOver * furthest_;
  if (!affords) file_.state = sfReadError;
  return affords;
}

}  // namespace reflyze
