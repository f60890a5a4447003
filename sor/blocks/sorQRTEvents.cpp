// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorQRTEvents.h"

#include <algorithm>

#include "sor/fields/sorDamp.h"
#include "sor/fields/sorFieldCopy.h"
#include "sor/stream/sorFile.h"
#include "util/convert.h"

using reflyze::TruncToUShort;

void TSorBlockQRTEvents1E::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockQRTEvents1E*>(&other)) Assign(*same);
}

void TSorBlockQRTEvents1E::Read(TSorFile* file) {
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockQRTEvents1E::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockQRTEvents1E&>(*this), writer);
}

void TSorBlockQRTEvents1E::Damp(FILE* out) const {
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

void TSorBlockQRTEvents1E::SetdLT(double v) { dLT = TruncToUShort(v * 1000.0 + 0.5); }

void TSorBlockQRTEvents1E::SetdCT(double v) { dCT = TruncToUShort(v * 1000.0 + 0.5); }

TSorBlockQRTEvents::TSorBlockQRTEvents()
    : events(new TOxArray<TSorBlockQRTEvents1E, TSorBlockQRTEvents1E*>()) {
  ID = GetBlockID(btQRTEvents);
}

TSorBlockQRTEvents::TSorBlockQRTEvents(const TSorBlockQRTEvents& other) : TSorBlockQRTEvents() {
  Assign(other);
}

TSorBlockQRTEvents& TSorBlockQRTEvents::operator=(const TSorBlockQRTEvents& other) {
  Assign(other);
  return *this;
}

TSorBlockQRTEvents::~TSorBlockQRTEvents() { delete events; }

void TSorBlockQRTEvents::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockQRTEvents*>(&other)) Assign(*same);
}

void TSorBlockQRTEvents::Assign(const TSorBlockQRTEvents& other) {
  if (this == &other) return;
  auto copies = reflyze::CopySubBlocks(*other.events);
  TSorBlock::operator=(other);
  delete events;
  events = copies.release();
  TNE = other.TNE;
  reflyze::CopyPlainFields(other, *this);
}

void TSorBlockQRTEvents::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

// On file the numbers run from 1 whatever stood in memory. The count is lowered where a host left it above
// the table.
void TSorBlockQRTEvents::Write(TSorFile* file) {
  TNE = static_cast<short>(std::min<int>(TNE, events->GetSize()));
  for (int i = 0; i < ListedEvents(); ++i) {
    EventAt(i).EN = static_cast<short>(i + 1);
    EventAt(i).RevisionNo = RevisionNo;
  }
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockQRTEvents&>(*this), writer);
}

void TSorBlockQRTEvents::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "QRTEvents");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// A count below 0 makes an empty table and is kept for a copy.
void TSorBlockQRTEvents::NewEvents(short n) {
  auto table = reflyze::MakeSubBlocks<TSorBlockQRTEvents1E>(n, RevisionNo);
  delete events;
  events = table.release();
  TNE = n;
}

double TSorBlockQRTEvents::GetdLT(int i) const {
  return i >= 0 && i < ListedEvents() ? EventAt(i).GetdLT() : -1.0;
}

double TSorBlockQRTEvents::GetdCT(int i) const {
  return i >= 0 && i < ListedEvents() ? EventAt(i).GetdCT() : -1.0;
}

void TSorBlockQRTEvents::SetdLT(int i, double v) {
  if (i >= 0 && i < ListedEvents()) EventAt(i).SetdLT(v);
}

void TSorBlockQRTEvents::SetdCT(int i, double v) {
  if (i >= 0 && i < ListedEvents()) EventAt(i).SetdCT(v);
}
