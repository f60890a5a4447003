// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorLinkParams.h"

#include <algorithm>
#include <bitset>
#include <limits>
#include <memory>

#include "sor/fields/sorDamp.h"
#include "sor/fields/sorFieldCopy.h"
#include "sor/stream/sorFile.h"
#include "util/convert.h"

using reflyze::LowBits16;
using reflyze::SignedLowBits16;

void TSorBlockLinkParamLandmark::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockLinkParamLandmark*>(&other)) Assign(*same);
}

void TSorBlockLinkParamLandmark::Read(TSorFile* file) {
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockLinkParamLandmark::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockLinkParamLandmark&>(*this), writer);
}

void TSorBlockLinkParamLandmark::Damp(FILE* out) const {
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

TSorBlockLinkParameters::TSorBlockLinkParameters()
    : landmarks(new TOxArray<TSorBlockLinkParamLandmark, TSorBlockLinkParamLandmark*>()) {
  ID = GetBlockID(btLinkParameters);
}

TSorBlockLinkParameters::TSorBlockLinkParameters(const TSorBlockLinkParameters& other)
    : TSorBlockLinkParameters() {
  Assign(other);
}

TSorBlockLinkParameters& TSorBlockLinkParameters::operator=(const TSorBlockLinkParameters& other) {
  Assign(other);
  return *this;
}

TSorBlockLinkParameters::~TSorBlockLinkParameters() { delete landmarks; }

void TSorBlockLinkParameters::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockLinkParameters*>(&other)) Assign(*same);
}

void TSorBlockLinkParameters::Assign(const TSorBlockLinkParameters& other) {
  if (this == &other) return;
  auto copies = reflyze::CopySubBlocks(*other.landmarks);
  TSorBlock::operator=(other);
  delete landmarks;
  landmarks = copies.release();
  TNL = other.TNL;
  reflyze::CopyPlainFields(other, *this);
  usedNumbers_ = other.usedNumbers_;
}

void TSorBlockLinkParameters::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

// The count is lowered where a host left it above the table.
void TSorBlockLinkParameters::Write(TSorFile* file) {
  TNL = static_cast<short>(std::min<int>(TNL, landmarks->GetSize()));
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockLinkParameters&>(*this), writer);
}

void TSorBlockLinkParameters::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "LinkParameters");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// A count below 0 makes an empty table and is kept for a copy.
void TSorBlockLinkParameters::NewLandmarks(short n) {
  auto table = reflyze::MakeSubBlocks<TSorBlockLinkParamLandmark>(n, RevisionNo);
  delete landmarks;
  landmarks = table.release();
  TNL = n;
}

void TSorBlockLinkParameters::NoteUsedNumbers() {
  usedNumbers_.clear();
  usedNumbers_.reserve(static_cast<std::size_t>(ListedLandmarks()));
  for (int i = 0; i < ListedLandmarks(); ++i) usedNumbers_.push_back(LandmarkAt(i).LMN);
}

// A file counts landmarks in a signed number of 16 bits; the record may hold more, of which the file gets the
// first.
void TSorBlockLinkParameters::FollowSize() {
  constexpr int kMostOnFile = std::numeric_limits<short>::max();
  TNL = static_cast<short>(std::min(landmarks->GetSize(), kMostOnFile));
}

TSorBlockLinkParamLandmark* TSorBlockLinkParameters::GetLandmark(short i) const {
  return i >= 0 ? landmarks->GetData(i) : nullptr;
}

int TSorBlockLinkParameters::InsertLandmark(TSorBlockLinkParamLandmark* lm) {
  if (lm == nullptr) return -1;
  // The object is looked for in the whole table: its location may have changed since it was placed, and one
  // that stood there twice would be destroyed twice.
  const int size = landmarks->GetSize();
  int place = size;
  for (int i = size - 1; i >= 0; --i) {
    const TSorBlockLinkParamLandmark* there = landmarks->GetData(i);
    if (there == lm) return -1;
    if (there->LML > lm->LML) place = i;
  }
  lm->LMN = SignedLowBits16(GenerateUniqueLMN());
  landmarks->InsData(lm, place);
  FollowSize();
  return place;
}

void TSorBlockLinkParameters::DeleteLandmark(short i) {
  if (i < 0) return;
  landmarks->DelData(i);
  FollowSize();
}

int TSorBlockLinkParameters::ReinsertLandmark(short i) {
  TSorBlockLinkParamLandmark* moved = GetLandmark(i);
  if (moved == nullptr) return -1;
  const short number = moved->LMN;
  landmarks->DelEntry(i);
  FollowSize();
  const int place = InsertLandmark(moved);
  moved->LMN = number;
  return place;
}

unsigned short TSorBlockLinkParameters::GenerateUniqueLMN() const {
  constexpr int kLargestNumberNumber = 65534;
  std::bitset<65536> taken;
  for (const short number : usedNumbers_) taken.set(LowBits16(number));
  for (int i = 0; i < landmarks->GetSize(); ++i) taken.set(LowBits16(LandmarkAt(i).LMN));
  for (int n = 1; n <= kLargestNumberNumber; ++n) {
    if (!taken.test(static_cast<std::size_t>(n))) return static_cast<unsigned short>(n);
  }
  return 0;
}

void TSorBlockLinkParameters::OnKeyEventAdd(int i) {
  if (IsEmpty()) return;
  constexpr short kLargestNumber = std::numeric_limits<short>::max();
  for (int k = 0; k < landmarks->GetSize(); ++k) {
    short& number = LandmarkAt(k).REN;
    // The largest number stays: no table of events reaches it, so it points at nothing.
    if (number > i && number < kLargestNumber) ++number;
  }
}

void TSorBlockLinkParameters::OnKeyEventDel(int i) {
  if (IsEmpty()) return;
  for (int k = 0; k < landmarks->GetSize(); ++k) {
    short& number = LandmarkAt(k).REN;
    if (number - 1 == i) {
      number = 0;
    } else if (number - 1 > i) {
      --number;
    }
  }
}

void TSorBlockLinkParameters::OnKeyEventsClear() {
  if (IsEmpty()) return;
  for (int k = 0; k < landmarks->GetSize(); ++k) {
    short& number = LandmarkAt(k).REN;
    if (number > 0) number = 0;
  }
}
