// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorRFTSEvents.h"

#include <algorithm>

#include "sor/blocks/sorParts.h"
#include "sor/fields/sorDamp.h"
#include "sor/fields/sorOwnedTable.h"

using reflyze::AssignSame;
using reflyze::DampPart;
using reflyze::ReadPart;
using reflyze::StreamOf;
using reflyze::WritePart;

void TShortDeviation::Assign(const TSorBlock& other) { AssignSame(*this, other); }
void TShortDeviation::Read(TSorFile* file) { ReadPart(*this, file); }
void TShortDeviation::Write(TSorFile* file) { WritePart(*this, file); }
void TShortDeviation::Damp(FILE* out) const { DampPart(*this, out); }

void TSorBlockRFTSEvents1E::Assign(const TSorBlock& other) { AssignSame(*this, other); }
void TSorBlockRFTSEvents1E::Read(TSorFile* file) { ReadPart(*this, file); }
void TSorBlockRFTSEvents1E::Write(TSorFile* file) { WritePart(*this, file); }
void TSorBlockRFTSEvents1E::Damp(FILE* out) const { DampPart(*this, out); }

// "Base" is this dump's own word for an event that the baseline does not have.
void TSorBlockRFTSEvents1E::DampFlags(FILE* out) const {
  std::fprintf(out, "Flags=%hu(Base=%s;Fail=%s)\t\n", Flags, IsNew() ? "true" : "false",
               IsFail() ? "true" : "false");
}

TSorBlockRFTSEvents::TSorBlockRFTSEvents() {
  RevisionNo = kLastKnownRevisionNo;
  ID = "RFTSEvents";
}

TSorBlockRFTSEvents::TSorBlockRFTSEvents(const TSorBlockRFTSEvents& other) : TSorBlock(other) {
  *this = other;
}

TSorBlockRFTSEvents& TSorBlockRFTSEvents::operator=(const TSorBlockRFTSEvents& other) {
  if (this == &other) return *this;
  TSorBlock::operator=(other);
  reflyze::CopyPlainFields(other, *this);
  EELD = other.EELD;
  reflyze::ReplaceByCopies(entries_, other.entries_);
  CountEntries();
  return *this;
}

void TSorBlockRFTSEvents::Assign(const TSorBlock& other) { AssignSame(*this, other); }

void TSorBlockRFTSEvents::Read(TSorFile* file) {
  StreamOf(file);
  if (!CanRead(file)) return;
  ReadPart(*this, file);
}

bool TSorBlockRFTSEvents::HasReadableRevision() const {
  return RevisionNo >= kSinceEntries && IsKnownRevision();
}

void TSorBlockRFTSEvents::Write(TSorFile* file) {
  WritePart(*this, file, std::max<int>(RevisionNo, kSinceEntries));
}

void TSorBlockRFTSEvents::Damp(FILE* out) const {
  reflyze::DumpHeading(out, ID.c_str());
  DampPart(*this, out);
}

void TSorBlockRFTSEvents::CountEntries() { TNRFTSE = reflyze::CountOf(entries_); }

void TSorBlockRFTSEvents::Clear() {
  entries_.Clear();
  CountEntries();
}

void TSorBlockRFTSEvents::SetTNRFTSE(unsigned short n) {
  reflyze::ResizeTable(entries_, n, TSorBlockRFTSEvents1E());
  CountEntries();
}

TSorBlockRFTSEvents1E* TSorBlockRFTSEvents::GetEvent(int i) const { return entries_.GetData(i); }

void TSorBlockRFTSEvents::SetEvent(TSorBlockRFTSEvents1E* entry, unsigned short i) {
  reflyze::PutEntry(entries_, entry, i);
}

TSorBlockRFTSEvents1E* TSorBlockRFTSEvents::AddEvent(TSorBlockRFTSEvents1E* entry) {
  entry = reflyze::InsertEntry(entries_, entry, entries_.GetSize());
  CountEntries();
  return entry;
}

void TSorBlockRFTSEvents::InsertEvent(TSorBlockRFTSEvents1E* entry, unsigned short i) {
  reflyze::InsertEntry(entries_, entry, i);
  CountEntries();
}

void TSorBlockRFTSEvents::DeleteEvent(unsigned short i) {
  entries_.DelData(i);
  CountEntries();
}

void TSorBlockRFTSEvents::OnKeyEventAdd(int index) {
  if (IsEmpty()) return;
  reflyze::InsertEntry<TSorBlockRFTSEvents1E>(entries_, nullptr, index);
  CountEntries();
}

void TSorBlockRFTSEvents::OnKeyEventDel(int index) {
  if (IsEmpty()) return;
  entries_.DelData(index);
  CountEntries();
}

void TSorBlockRFTSEvents::OnKeyEventsClear() {
  if (!IsEmpty()) Clear();
}
