// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorKeyEvents.h"

#include <algorithm>

#include "sor/fields/sorDamp.h"
#include "sor/fields/sorFieldCopy.h"
#include "sor/stream/sorFile.h"
#include "util/convert.h"

using reflyze::TruncToInt;
using reflyze::TruncToShort;
using reflyze::TruncToUShort;

void TSorBlockKeyEvents1E::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockKeyEvents1E*>(&other)) Assign(*same);
}

void TSorBlockKeyEvents1E::Read(TSorFile* file) {
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockKeyEvents1E::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockKeyEvents1E&>(*this), writer);
}

void TSorBlockKeyEvents1E::Damp(FILE* out) const {
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

void TSorBlockKeyEvents1E::SetACI(double v) { ACI = TruncToShort(v * 1000.0); }

// Half a unit is added before the cut whatever the sign, so a loss rounds and a gain comes out towards zero.
// The two bounds of the 16-bit copy are taken on different values: a loss just below 32767.5 thousandths
// meets neither, and the copy keeps what it had.
void TSorBlockKeyEvents1E::SetEL(double v) {
  constexpr int kLargestLoss = 32767;
  ELWide = TruncToInt(v * 1000.0 + 0.5);
  if (ELWide > kLargestLoss) {
    EL = kLargestLoss;
  } else if (TruncToInt(v * 1000.0) < kLargestLoss) {
    EL = TruncToShort(v * 1000.0 + 0.5);
  }
}

void TSorBlockKeyEvents1E::SetER(double v) { ER = TruncToInt(v * 1000.0); }

bool TSorBlockKeyEvents1E::IsEOF() const {
  if (EC.Len() < 2) return false;
  const char ending = EC.c_str()[1];
  return ending == 'E' || ending == 'D' || ending == 'O';
}

TSorBlockKeyEvents::TSorBlockKeyEvents()
    : events(new TOxArray<TSorBlockKeyEvents1E, TSorBlockKeyEvents1E*>()) {
  ID = GetBlockID(btKeyEvents);
}

TSorBlockKeyEvents::TSorBlockKeyEvents(const TSorBlockKeyEvents& other) : TSorBlockKeyEvents() {
  Assign(other);
}

TSorBlockKeyEvents& TSorBlockKeyEvents::operator=(const TSorBlockKeyEvents& other) {
  Assign(other);
  return *this;
}

TSorBlockKeyEvents::~TSorBlockKeyEvents() { delete events; }

void TSorBlockKeyEvents::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockKeyEvents*>(&other)) Assign(*same);
}

void TSorBlockKeyEvents::Assign(const TSorBlockKeyEvents& other) {
  if (this == &other) return;
  auto copies = reflyze::CopySubBlocks(*other.events);
  TSorBlock::operator=(other);
  delete events;
  events = copies.release();
  TNKE = other.TNKE;
  reflyze::CopyPlainFields(other, *this);
}

void TSorBlockKeyEvents::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

// The events take the revision of the block, which may have changed since they were made. The count is
// lowered where a host left it above the table: on file, what follows the events is found only by counting
// them.
void TSorBlockKeyEvents::Write(TSorFile* file) {
  TNKE = static_cast<short>(std::min<int>(TNKE, events->GetSize()));
  for (int i = 0; i < ListedEvents(); ++i) EventAt(i).RevisionNo = RevisionNo;
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockKeyEvents&>(*this), writer);
}

void TSorBlockKeyEvents::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "KeyEvents");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// The table of a file. The old events are gone even where the new count is refused.
void TSorBlockKeyEvents::NewEvents(short n) {
  auto table = reflyze::MakeSubBlocks<TSorBlockKeyEvents1E>(n, RevisionNo);
  delete events;
  events = table.release();
  TNKE = std::max<short>(n, 0);
  if (n < 0) throw 0;
}

void TSorBlockKeyEvents::SetEEL(double v) { EEL = TruncToInt(v * 1000.0); }

void TSorBlockKeyEvents::SetORL(double v) { ORL = TruncToUShort(v * 1000.0); }

void TSorBlockKeyEvents::ENSync() {
  for (int i = 0; i < events->GetSize(); ++i) EventAt(i).EN = static_cast<short>(i + 1);
}

void TSorBlockKeyEvents::OnKeyEventAdd(int) { ENSync(); }

void TSorBlockKeyEvents::OnKeyEventDel(int) { ENSync(); }

void TSorBlockKeyEvents::OnKeyEventsClear() {}
