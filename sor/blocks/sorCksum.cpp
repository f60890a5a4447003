// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorCksum.h"

#include "sor/fields/sorDamp.h"
#include "sor/stream/sorFile.h"

TSorBlockCRC::TSorBlockCRC() { ID = GetBlockID(btCRC); }

void TSorBlockCRC::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockCRC*>(&other)) Assign(*same);
}

long TSorBlockCRC::GetBlockSize() {
  const unsigned short stored = CRC;
  const long size = TSorBlock::GetBlockSize();
  CRC = stored;
  return size;
}

void TSorBlockCRC::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockCRC::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(*this, writer);
}

void TSorBlockCRC::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "Cksum");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}
