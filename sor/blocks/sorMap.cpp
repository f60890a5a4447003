// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorMap.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "sor/fields/sorDamp.h"
#include "sor/fields/sorSubBlocks.h"
#include "sor/stream/sorFile.h"
#include "sor/stream/sorReadBudget.h"

namespace {

// The map's ID as it stands on file, with its closing zero.
constexpr std::string_view kIdOnFile("Map\0", 4);

}  // namespace

// --- One line ---

void TSorBlockMapBlockInfo::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockMapBlockInfo*>(&other)) Assign(*same);
}

void TSorBlockMapBlockInfo::Read(TSorFile* file) {
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockMapBlockInfo::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockMapBlockInfo&>(*this), writer);
}

void TSorBlockMapBlockInfo::Damp(FILE* out) const {
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// --- The map ---

TSorBlockMap::TSorBlockMap() : TSorBlockMap(0) { ID = GetBlockID(btMap); }

TSorBlockMap::TSorBlockMap(int n)
    : NB(static_cast<short>(n + 1)), blocks(new TOxArray<TSorBlockMapBlockInfo, TSorBlockMapBlockInfo*>()) {}

TSorBlockMap::TSorBlockMap(const TSorBlockMap& other) : TSorBlockMap() { Assign(other); }

TSorBlockMap& TSorBlockMap::operator=(const TSorBlockMap& other) {
  Assign(other);
  return *this;
}

TSorBlockMap::~TSorBlockMap() { delete blocks; }

void TSorBlockMap::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockMap*>(&other)) Assign(*same);
}

void TSorBlockMap::Assign(const TSorBlockMap& other) {
  if (this == &other) return;
  auto copies = reflyze::CopySubBlocks(*other.blocks);
  TSorBlock::operator=(other);
  Size = other.Size;
  NB = other.NB;
  delete blocks;
  blocks = copies.release();
}

long TSorBlockMap::GetBlockSize() {
  constexpr long kHeadBytes = 8;  // revision, size, number of blocks
  long size = kHeadBytes;
  if (RevisionNo >= reflyze::kSinceRev200) size += ID.Len() + 1;
  for (int i = 0; i < blocks->GetSize(); ++i) {
    if (blocks->GetData(i) != nullptr) size += blocks->GetData(i)->GetBlockSize();
  }
  return size;
}

void TSorBlockMap::Read(TSorFile* file) {
  if (file == nullptr) return;
  const auto start = static_cast<unsigned int>(file->Tell());
  unsigned int broken = 0;  // bytes of a broken head before the map
  file->Seek(start);
  TString id;
  file->Read(id);
  if (id == GetBlockID(btMap)) {
    ID = id;
  } else if (SuspectJdsuCorrupted(file, start)) {
    broken = ReadUntilJdsuCorruptedMap(file, start);
  } else {
    file->Seek(start);  // a record of a revision below 200, which has no IDs
  }
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
  if (!KnowsRevision(*file)) return;
  // The blocks are placed from the start of the file, the broken head counted in.
  Size = static_cast<int>(static_cast<unsigned int>(Size) + broken);
  if (file->state == sfOk || file->state == sfEndOfData) {
    reflyze::ReadBudget::Charge(*file, start, blocks->GetSize());
  }
}

void TSorBlockMap::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockMap&>(*this), writer);
}

void TSorBlockMap::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "Map");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

bool TSorBlockMap::KnowsRevision(TSorFile& file) const {
  if (GetBlockLastKnownRevisionNo() / 100 >= RevisionNo / 100) return true;
  file.state = sfReadError;
  return false;
}

// Room for the lines in one piece; the lines come as they are read.
void TSorBlockMap::NewLines(short n) {
  NB = n;
  auto* lines = new TOxArray<TSorBlockMapBlockInfo, TSorBlockMapBlockInfo*>(std::max(n - 1, 0));
  delete blocks;
  blocks = lines;
  if (n < 0) throw 0;
}

void TSorBlockMap::Line(long i, reflyze::FieldReader& reader) {
  const int state = reader.file().state;
  if (i > 0 && state != sfOk && state != sfEndOfData) return;
  auto line = std::make_unique<TSorBlockMapBlockInfo>();
  TSorBlockMapBlockInfo::Fields(*line, reader);
  blocks->SetData(line.release(), static_cast<int>(i));
}

void TSorBlockMap::DropUnreadLines() {
  int read = 0;
  while (read < blocks->GetSize() && blocks->GetData(read) != nullptr) ++read;
  blocks->SetSize(read);
}

bool TSorBlockMap::SuspectJdsuCorrupted(TSorFile* file, unsigned int start) {
  constexpr char kBrokenHead[] = {1, 0, 2, 0};
  char head[6] = {};
  file->Seek(start);
  file->Read(head, sizeof head);
  return file->state == sfOk && std::memcmp(head + 2, kBrokenHead, sizeof kBrokenHead) == 0;
}

// One pass over the file. The last bytes of a piece are looked at again with the next one, since an ID may
// lie across the seam.
unsigned int TSorBlockMap::ReadUntilJdsuCorruptedMap(TSorFile* file, unsigned int start) {
  constexpr unsigned long kPieceBytes = 4096;
  constexpr unsigned long kSeamBytes = kIdOnFile.size() - 1;
  ID = GetBlockID(btMap);
  char piece[kPieceBytes] = {};
  unsigned long held = 0;  // bytes of the piece that came from the one before
  unsigned long place = start;
  file->Seek(start);
  while (file->state == sfOk) {
    const unsigned long from = file->Tell();
    file->Read(piece + held, kPieceBytes - held);
    const unsigned long count = held + (file->Tell() - from);
    const size_t found = std::string_view(piece, count).find(kIdOnFile);
    if (found != std::string_view::npos) {
      file->Seek(place + found + kIdOnFile.size());
      return static_cast<unsigned int>(place + found - start);
    }
    held = std::min(count, kSeamBytes);
    if (count == held) break;  // nothing new
    std::memmove(piece, piece + count - held, held);
    place += count - held;
  }
  reflyze::ReadBudget::Charge(*file, start);
  file->Seek(start);
  return 0;
}
