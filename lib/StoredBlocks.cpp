// SPDX-License-Identifier: Apache-2.0
#include "lib/StoredBlocks.h"

#include <algorithm>
#include <memory>

#include "lib/Text.h"
#include "util/tcrc.h"

namespace reflyze {
namespace {

constexpr const char* kStandard[] = {"GenParams", "SupParams", "FxdParams", "KeyEvents",
                                     "LnkParams", "DataPts",   "Cksum"};
constexpr const char* kProprietary[] = {"QRTEvents", "QRTParams", "RFTSParams", "RFTSEvents", "EmbData"};

template <size_t N>
bool IsAmong(const char* const (&ids)[N], const std::string& id) {
  return std::any_of(std::begin(ids), std::end(ids), [&](const char* each) { return id == each; });
}

// A map with those lines only whose IDs are wanted.
std::string MapBytes(const TSorBlockMap& stored, const std::function<bool(const std::string&)>& keeps) {
  TSorBlockMap map;
  map.RevisionNo = stored.RevisionNo;
  for (int i = 0; i < stored.blocks->GetSize(); ++i) {
    const TSorBlockMapBlockInfo* line = stored.blocks->GetData(i);
    if (line != nullptr && keeps(line->ID.c_str())) map.blocks->AddData(new TSorBlockMapBlockInfo(*line));
  }
  map.NB = static_cast<short>(map.blocks->GetSize() + 1);
  map.Size = static_cast<int>(map.GetBlockSize());
  TSorFile memory(nullptr, "m");
  map.Write(&memory);
  const TSorFile& written = memory;
  return {written.GetData(), written.GetDataSize()};
}

// "Name, OtherName".
std::string UnknownBlocks(const TSorData& record, const TextEncoding& texts) {
  std::string names;
  for (int i = 0; i < record.SpecialCount; ++i)
    names += (names.empty() ? "" : ", ") + texts.Utf8(record.Special[i]->MapID);
  return names;
}

}  // namespace

std::vector<StoredBlock> StoredBlocksOf(const LoadedRecord& loaded) {
  const TSorBlockMap& map = *loaded.record->Map;
  const auto size = static_cast<long long>(loaded.bytes.size());
  std::vector<StoredBlock> blocks;
  long long start = map.Size;
  for (int i = 0; i < map.blocks->GetSize() && start >= 0 && start < size; ++i) {
    const TSorBlockMapBlockInfo* line = map.blocks->GetData(i);
    if (line == nullptr || line->Size <= 0) continue;
    const long long end = std::min(start + line->Size, size);
    blocks.push_back(
        {line->ID.c_str(), line->RevisionNo, static_cast<size_t>(start), static_cast<size_t>(end)});
    start += line->Size;
  }
  return blocks;
}

bool Stores(const LoadedRecord& loaded, const std::string& id) {
  const std::vector<StoredBlock> blocks = StoredBlocksOf(loaded);
  return std::any_of(blocks.begin(), blocks.end(), [&](const StoredBlock& block) { return block.id == id; });
}

bool Lists(const TSorBlockMap& map, const std::string& id) {
  for (int i = 0; i < map.blocks->GetSize(); ++i) {
    const TSorBlockMapBlockInfo* line = map.blocks->GetData(i);
    if (line != nullptr && id == line->ID.c_str()) return true;
  }
  return false;
}

int ReadStoredBlock(const LoadedRecord& loaded, const std::string& id, TSorBlock& block) {
  const std::vector<StoredBlock> blocks = StoredBlocksOf(loaded);
  const auto found = std::find_if(blocks.rbegin(), blocks.rend(),
                                  [&](const StoredBlock& candidate) { return candidate.id == id; });
  if (found == blocks.rend()) return sfReadError;
  TSorFile file(static_cast<const char*>(loaded.bytes.data()), loaded.bytes.size());
  file.Seek(found->start);
  try {
    block.ReadRN(&file, found->revision);
  } catch (int) {  // a count or size that can't be right
    return sfReadError;
  }
  return file.state;
}

bool IsProprietary(const std::string& id) { return IsAmong(kProprietary, id); }

bool IsUnknown(const std::string& id) { return !IsAmong(kStandard, id) && !IsProprietary(id); }

std::string CopyOfFile(const LoadedRecord& loaded, const std::function<bool(const std::string&)>& keeps) {
  const std::vector<char>& bytes = loaded.bytes;
  const std::vector<StoredBlock> blocks = StoredBlocksOf(loaded);
  if (std::all_of(blocks.begin(), blocks.end(), [&](const StoredBlock& block) { return keeps(block.id); }))
    return {bytes.begin(), bytes.end()};
  std::string copy = MapBytes(*loaded.record->Map, keeps);
  size_t checksumEnd = 0;
  for (const StoredBlock& block : blocks) {
    if (!keeps(block.id)) continue;
    copy.append(bytes.data() + block.start, block.end - block.start);
    if (block.id == GetBlockID(btCRC)) checksumEnd = copy.size();
  }
  constexpr size_t kChecksumBytes = 2;
  if (checksumEnd < kChecksumBytes) return copy;
  unsigned short crc = 0xFFFF;
  TCRC::get_crc_ccitt(crc, copy.data(), static_cast<int>(checksumEnd - kChecksumBytes));
  copy[checksumEnd - 2] = static_cast<char>(crc & 0xFF);
  copy[checksumEnd - 1] = static_cast<char>(crc >> 8);
  return copy;
}

size_t StartOfMap(const std::vector<char>& bytes) {
  TSorFile file(bytes.data(), bytes.size());
  TSorBlockMap map;
  TString id;
  file.Read(id);
  if (id == map.ID || !map.SuspectJdsuCorrupted(&file, 0)) return 0;
  return map.ReadUntilJdsuCorruptedMap(&file, 0);
}

std::string UnknownBlocksStay(const TSorData& record, const TextEncoding& texts) {
  if (record.SpecialCount == 0) return "";
  return "blocks that no one here knows stay as they are (" + UnknownBlocks(record, texts) +
         "); where they hold its maker's event table, two tables are in the stored file";
}

}  // namespace reflyze
