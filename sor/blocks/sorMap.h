// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "util/export.h"
#include "util/tarray.h"

// One line of the map: a block's ID, its revision, and its bytes on file.
class REFLYZE_API TSorBlockMapBlockInfo : public TSorBlock {
 public:
  int Size = 0;

  TSorBlockMapBlockInfo() { RevisionNo = 0; }

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Text("ID", b.ID);
    v.Int("RevisionNo", b.RevisionNo);
    v.Int("Size", b.Size);
  }

  int GetBlockType() const override { return btMapBlockInfo; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockMapBlockInfo& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;
};

// The "Map" block (SR-4731), the first of every record: which blocks follow, and how long each is. The place
// of a block is the sum of the sizes before it.
class REFLYZE_API TSorBlockMap : public TSorBlock {
 public:
  int Size = 0;  // bytes of the map itself
  short NB = 1;  // number of blocks, the map counted in
  // A line for each block but the map; owned.
  TOxArray<TSorBlockMapBlockInfo, TSorBlockMapBlockInfo*>* blocks;

  TSorBlockMap();
  // A map without an ID that announces n blocks beside itself and has no lines for them yet.
  explicit TSorBlockMap(int n);
  TSorBlockMap(const TSorBlockMap& other);
  TSorBlockMap& operator=(const TSorBlockMap& other);
  ~TSorBlockMap() override;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Int("RevisionNo", b.RevisionNo);
    if constexpr (std::is_same<Visitor, reflyze::FieldReader>::value) {
      if (!b.KnowsRevision(v.file())) return;
    }
    v.Int("Size", b.Size);
    v.Count("NB", b, b.NB, [](auto& self, short n) { self.NewLines(n); });
    v.List("blocks", "block", b.blocks->GetSize(), [&b](long i, auto& line) { b.Line(i, line); });
    v.OnRead(b, [](auto& self) { self.DropUnreadLines(); });
  }

  bool IsEmpty() const override { return false; }
  // Computed from the lines.
  long GetBlockSize() override;
  int GetBlockType() const override { return btMap; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockMap& other);
  // A newer major revision ends in the stream state sfReadError. A count below 0 throws the integer 0. Lines
  // behind the end of the data are kept, empty.
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  // Some instruments put a second, broken head before the map. The first function says whether the bytes at
  // `start` look like one. The second looks for the true map behind it: it gives the number of bytes between,
  // and leaves the stream behind the map's ID. Without a map it gives 0, with the stream back at the start.
  bool SuspectJdsuCorrupted(TSorFile* file, unsigned int start);
  unsigned int ReadUntilJdsuCorruptedMap(TSorFile* file, unsigned int start);

 private:
  bool KnowsRevision(TSorFile& file) const;
  void NewLines(short n);
  void Line(long i, reflyze::FieldReader& reader);
  template <class Visitor>
  void Line(long i, Visitor& v) const {
    const TSorBlockMapBlockInfo* line = blocks->GetData(static_cast<int>(i));
    if (line != nullptr) TSorBlockMapBlockInfo::Fields(*line, v);
  }
  void DropUnreadLines();
};
