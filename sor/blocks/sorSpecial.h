// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sor/blocks/sorBlock.h"
#include "util/export.h"

// A block that nobody here knows, carried from file to file byte for byte, its own ID included.
class REFLYZE_API TSorBlockSpecial : public TSorBlock {
 public:
  static constexpr int kAnyRevisionNo = 65099;

  // Bytes of the block. Read takes that many from the stream; where the data end before, it lowers the size
  // to what there was, so that a copy of a cut file holds every byte that was left and none that was not.
  int Size = 0;

 private:
  std::vector<char> bytes_;

 public:
  TString MapID;  // the ID under which the block stands in the map

  TSorBlockSpecial() = default;
  // A block of that many bytes, all 0.
  explicit TSorBlockSpecial(int size);
  // A block of `size` bytes that are still to be read: it takes memory only for bytes that it finds.
  static TSorBlockSpecial* NewUnread(int size);

  bool IsEmpty() const override { return Size == 0; }
  int GetBlockType() const override { return btSpecial; }
  int GetBlockLastKnownRevisionNo() const override { return kAnyRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockSpecial& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  // The bytes, `Size` of them.
  const char* Data() const { return bytes_.data(); }
  char* Data() { return bytes_.data(); }
};
