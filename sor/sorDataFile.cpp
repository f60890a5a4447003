// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <climits>
#include <limits>
#include <memory>
#include <vector>

#include "sor/sorData.h"
#include "sor/stream/sorReadBudget.h"
#include "util/assertion.h"

// Records on file: a map, the blocks that it lists one after the other, and the checksum. A block is found by
// the sizes of those before it alone, so a block that reads fewer bytes than it has, or more, disturbs no
// other.

namespace {

constexpr const char* kGenParamsId = "GenParams";
constexpr const char* kSupParamsId = "SupParams";
constexpr const char* kFxdParamsId = "FxdParams";
constexpr const char* kKeyEventsId = "KeyEvents";
constexpr const char* kLnkParamsId = "LnkParams";
constexpr const char* kDataPtsId = "DataPts";
constexpr const char* kRFTSParamsId = "RFTSParams";
constexpr const char* kRFTSEventsId = "RFTSEvents";
constexpr const char* kEmbDataId = "EmbData";
constexpr const char* kQRTEventsId = "QRTEvents";
constexpr const char* kQRTParamsId = "QRTParams";
constexpr const char* kCksumId = "Cksum";

constexpr int kMostBlocks = SHRT_MAX;  // a map counts them, itself included, in 16 bits

// A block, and the ID under which it stands in the map.
struct ListedBlock {
  TString id;
  TSorBlock* block;
};

// The blocks that go to file, in that order.
std::vector<ListedBlock> BlocksToWrite(const TSorData& record) {
  std::vector<ListedBlock> list = {
      {kGenParamsId, record.GenParams}, {kSupParamsId, record.SupParams}, {kFxdParamsId, record.FxdParams}};
  const auto addFilled = [&list](const char* id, TSorBlock* block) {
    if (!block->IsEmpty()) list.push_back({id, block});
  };
  addFilled(kKeyEventsId, record.KeyEvents);
  addFilled(kLnkParamsId, record.LnkParams);
  // Filtered points are work in progress: while there is a raw trace beside them, that is the measurement.
  addFilled(kDataPtsId, record.DataPtsBackup != nullptr ? record.DataPtsBackup : record.DataPts);
  if (record.WriteSpecialBlocks != 0) {
    for (int i = 0; i < record.SpecialCount; ++i) {
      list.push_back({record.Special[i]->MapID, record.Special[i]});
    }
  }
  if (record.WriteProprietaryBlocks != 0) {
    addFilled(kQRTEventsId, record.QRTEvents);
    addFilled(kQRTParamsId, record.QRTParams);
    addFilled(kRFTSParamsId, record.RFTSParams);
    addFilled(kRFTSEventsId, record.RFTSEvents);
    addFilled(kEmbDataId, record.EmbData);
  }
  list.push_back({kCksumId, record.Cksum});
  return list;
}

// The standard blocks go to file in the revision of the record, this system's own in their newest one.
void StampRevisions(TSorData& record) {
  const auto revision = static_cast<unsigned short>(record.Revision);
  TSorBlock* const standard[] = {record.Map,       record.GenParams, record.SupParams, record.FxdParams,
                                 record.KeyEvents, record.LnkParams, record.DataPts,   record.Cksum};
  for (TSorBlock* block : standard) block->RevisionNo = revision;
  record.RFTSParams->RevisionNo = TSorBlockRFTSParameters::kNewestRevisionNo;
  record.RFTSEvents->RevisionNo = TSorBlockRFTSEvents::kNewestRevisionNo;
  record.EmbData->RevisionNo = TSorBlockEmbData::kNewestRevisionNo;
  record.QRTEvents->RevisionNo = TSorBlockQRTEvents::kNewestRevisionNo;
  record.QRTParams->RevisionNo = TSorBlockQRTParameters::kNewestRevisionNo;
}

std::unique_ptr<TSorBlockMapBlockInfo> MapLine(const ListedBlock& listed, long size) {
  auto line = std::make_unique<TSorBlockMapBlockInfo>();
  line->ID = listed.id;
  line->RevisionNo = listed.block->RevisionNo;
  line->Size = static_cast<int>(std::min(size, static_cast<long>(INT_MAX)));
  return line;
}

}  // namespace

// One reading of a record.
class TSorData::Reader {
 public:
  Reader(TSorData& record, TSorFile& file) : record_(record), file_(file), budget_(file) {}

  // All but the linear trace. Whether the record was read through.
  bool Run() {
    if (!ReadMap()) return false;
    if (record_.Map->NB > 0) record_.MakeRoomForSpecial(record_.Map->NB);
    if (!ReadBlocks(Wanted::kAll)) return false;
    record_.Revision = static_cast<short>(record_.Map->RevisionNo);
    CountPointsOfOnlyStretch();
    record_.FixScaleFactor();
    record_.FixNFScaleFactor();
    BringLevelsIntoLine();
    record_.CalculateValues();
    SettleFloorOfScale();
    record_.FixUserOffset();
    return true;
  }

  // At the end the order differs from that of a full reading: levels and their range are worked out before
  // the scale factors are repaired.
  void RunMinimal() {
    if (!ReadMap()) return;
    if (!ReadBlocks(Wanted::kMeasurement)) return;
    record_.Revision = static_cast<short>(record_.Map->RevisionNo);
    record_.UpdateChildrenWithNewDataType();
    record_.CalculateValues();
    record_.FixScaleFactor();
    record_.FixNFScaleFactor();
    record_.FixUserOffset();
  }

 private:
  enum class Wanted { kAll, kMeasurement };

  bool ReadMap() {
    nextBlock_ = static_cast<long long>(file_.Tell());
    record_.Map->ReadRN(&file_, kMapRevision);
    if (file_.state != sfOk) return false;
    nextBlock_ += record_.Map->Size;
    return true;
  }

  // False where the reading has failed. A file that ends early is no failure of a full reading, which takes
  // what there is, but is one where only the measurement is asked for.
  bool ReadBlocks(Wanted wanted) {
    const TSorBlockMap& map = *record_.Map;
    for (int i = 0; i < map.blocks->GetSize(); ++i) {
      const TSorBlockMapBlockInfo& line = *map.blocks->GetData(i);
      if (line.Size <= 0) continue;
      if (file_.state == sfEndOfData && wanted == Wanted::kAll) break;
      if (file_.state != sfOk) return false;
      SeekNextBlock();
      nextBlock_ += line.Size;
      // Where the stream could not go to the place of the block, it stands at another block.
      if (file_.state == sfOk) ReadBlock(line, wanted);
    }
    return true;
  }

  // A file on disk can be positioned behind its end; reading there ends in sfEndOfData, as in a file that is
  // cut short. A buffer has no such place, so it is positioned at its end, where reading ends in the same
  // way. What is read must not depend on where the bytes are kept.
  void SeekNextBlock() {
    const bool isBuffer = file_.FileType == TSorFile::ftMemory || file_.FileType == TSorFile::ftFixedBuffer;
    const long long end = isBuffer ? static_cast<long long>(file_.GetDataSize())
                                   : static_cast<long long>(std::numeric_limits<long>::max());
    file_.Seek(static_cast<unsigned long>(std::min(nextBlock_, end)));
  }

  void ReadBlock(const TSorBlockMapBlockInfo& line, Wanted wanted) {
    const unsigned long start = file_.Tell();
    if (TSorBlock* block = KnownBlock(line.ID, wanted)) {
      block->ReadRN(&file_, line.RevisionNo);
      // Embedded data are charged record by record.
      if (block == record_.EmbData) return;
    } else if (wanted == Wanted::kAll) {
      ReadUnknownBlock(line);
    }
    reflyze::ReadBudget::Charge(file_, start);
  }

  // The record's block of that ID, null if there is none or it is not wanted.
  TSorBlock* KnownBlock(const TString& id, Wanted wanted) const {
    const struct {
      const char* id;
      TSorBlock* block;
      bool isMeasurement;
    } known[] = {{kGenParamsId, record_.GenParams, true},    {kSupParamsId, record_.SupParams, true},
                 {kFxdParamsId, record_.FxdParams, true},    {kKeyEventsId, record_.KeyEvents, true},
                 {kLnkParamsId, record_.LnkParams, true},    {kDataPtsId, record_.DataPts, true},
                 {kRFTSParamsId, record_.RFTSParams, false}, {kRFTSEventsId, record_.RFTSEvents, false},
                 {kEmbDataId, record_.EmbData, false},       {kQRTEventsId, record_.QRTEvents, false},
                 {kQRTParamsId, record_.QRTParams, true},    {kCksumId, record_.Cksum, false}};
    for (const auto& entry : known) {
      if (id == entry.id) return wanted == Wanted::kAll || entry.isMeasurement ? entry.block : nullptr;
    }
    return nullptr;
  }

  void ReadUnknownBlock(const TSorBlockMapBlockInfo& line) {
    std::unique_ptr<TSorBlockSpecial> block(TSorBlockSpecial::NewUnread(line.Size));
    block->ReadRN(&file_, line.RevisionNo);
    block->MapID = line.ID;
    record_.Special[record_.SpecialCount++] = block.release();
  }

  // The block has made levels of dB when it was read. A temperature trace needs others.
  void BringLevelsIntoLine() {
    const DataType type = record_.GetDataType();
    if (type == dtTC || record_.DataPts->DataType == dtTC) {
      record_.UpdateChildrenWithNewDataType();
    } else {
      record_.DataPts->DataType = type;
    }
  }

  // The range of the display has just found the lowest level.
  void SettleFloorOfScale() {
    TSorBlockQRTParameters& scale = *record_.QRTParams;
    if (scale.MAX == 0 && !scale.isATP()) scale.SetMAX(static_cast<float>(record_.MinLevel));
  }

  // Some instruments leave the points of a stretch uncounted where it is the whole trace.
  void CountPointsOfOnlyStretch() {
    TSorBlockFixedParameters& fixed = *record_.FxdParams;
    if (fixed.TPW == 1 && fixed.NPPW[0] == 0)
      fixed.NPPW[0] = static_cast<int>(record_.DataPts->GetPointsNum());
  }

  static constexpr unsigned short kMapRevision = TSorBlock::kLastKnownRevisionNo;

  TSorData& record_;
  TSorFile& file_;
  reflyze::ReadBudget budget_;
  long long nextBlock_ = 0;  // place of the next block in the stream
};

void TSorData::Read(TSorFile* file) {
  reflyze::Require(file != nullptr, "file");
  Init();
  if (Reader(*this, *file).Run()) SetLinf();
}

bool TSorData::ReadWithoutLinf(TSorFile* file) {
  reflyze::Require(file != nullptr, "file");
  if (!Reader(*this, *file).Run()) return false;
  if (EmbData->GetEmbData(TEmbData1E::kLinearTrace) != nullptr) {
    SetLinf();  // in place of what the file brings along under that name
  }
  return true;
}

void TSorData::ReadMinimal(TSorFile* file) {
  reflyze::Require(file != nullptr, "file");
  Init();
  Reader(*this, *file).RunMinimal();
}

long TSorData::Prepare() {
  auto newMap = std::make_unique<TSorBlockMap>();
  delete Map;
  Map = newMap.release();
  StampRevisions(*this);
  const std::vector<ListedBlock> list = BlocksToWrite(*this);
  const int count = static_cast<int>(list.size());
  Map->blocks->SetSize(count);
  long total = 0;
  for (int i = 0; i < count; ++i) {
    const ListedBlock& listed = list[static_cast<size_t>(i)];
    const long size = listed.block->GetBlockSize();
    total += size;
    Map->blocks->SetData(MapLine(listed, size).release(), i);
  }
  Map->NB = static_cast<short>(std::min(count + 1, kMostBlocks));
  Map->Size = static_cast<int>(Map->GetBlockSize());
  return total + Map->Size;
}

void TSorData::WritePrepared(TSorFile* file) {
  // Nobody could read such a record back, and to leave a block out would lose it unseen.
  if (Map->blocks->GetSize() >= kMostBlocks) {
    file->state = sfSizeError;
    return;
  }
  Map->Write(file);
  for (const ListedBlock& listed : BlocksToWrite(*this)) {
    if (listed.block == EmbData) {
      EmbData->WriteMeasured(file);
    } else {
      listed.block->Write(file);
    }
  }
}

void TSorData::Write(TSorFile* file) {
  reflyze::Require(file != nullptr, "file");
  Prepare();
  WritePrepared(file);
}

long TSorData::GetSize() { return Prepare(); }

int TSorData::Read(const char* name, const char* mode) {
  TSorFile file(name, mode);
  file.KeepNoChecksum();
  if (file.state == sfOk) Read(&file);
  return file.state;
}

int TSorData::Write(const char* name, const char* mode) {
  TSorFile file(name, mode);
  if (file.state == sfOk) Write(&file);
  return file.state;
}
