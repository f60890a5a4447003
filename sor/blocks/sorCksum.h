// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "util/export.h"

// The "Cksum" block (SR-4731), the last of a record: the checksum of every byte before it, from the first of
// the map to the zero behind its own ID, as CRC-16/CCITT-FALSE. It is loaded and not compared: files of many
// instruments hold a wrong one or none, and the stored value stays until the next writing.
class REFLYZE_API TSorBlockCRC : public TSorBlock {
 public:
  unsigned short CRC = 0;

  TSorBlockCRC();

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    // What a writer has put out so far is what the checksum stands for.
    if constexpr (std::is_same<Visitor, reflyze::FieldWriter>::value) b.CRC = v.file().crc;
    v.Int("CRC", b.CRC);
  }

  bool IsEmpty() const override { return false; }
  // Measuring leaves the checksum as it is.
  long GetBlockSize() override;
  int GetBlockType() const override { return btCRC; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockCRC& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;
};
