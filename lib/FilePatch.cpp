// SPDX-License-Identifier: Apache-2.0
#include "lib/FilePatch.h"

#include <algorithm>
#include <functional>

#include "util/tcrc.h"

namespace reflyze {
namespace {

constexpr std::size_t kChecksumBytes = 2;
constexpr const char* kChecksumId = "Cksum";
constexpr const char* kMapId = "Map";

std::string LowFirst(unsigned long long number, std::size_t width) {
  std::string bytes;
  for (std::size_t i = 0; i < width; ++i) bytes += static_cast<char>((number >> (8 * i)) & 0xFF);
  return bytes;
}

unsigned NumberAt(const std::string& bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]) + 256u * static_cast<unsigned char>(bytes[at + 1]);
}

unsigned CrcOf(const std::string& bytes, std::size_t from, std::size_t to) {
  unsigned short crc = 0xFFFF;
  TCRC::get_crc_ccitt(crc, bytes.data() + from, static_cast<int>(to - from));
  return crc;
}

// What a checksum covers. The standard has all bytes in front of it; some writers leave the name of its block
// out. Some put a 0 there.
enum class ChecksumRule { kNone, kAll, kWithoutName, kZero, kUnknown };

struct Checksum {
  std::size_t start = 0, block = 0, at = 0;  // what is covered begins, the block begins, the number stands

  unsigned Of(const std::string& bytes, ChecksumRule rule) const {
    return CrcOf(bytes, start, rule == ChecksumRule::kWithoutName ? block : at);
  }
  ChecksumRule RuleOf(const std::string& bytes) const {
    const unsigned stored = NumberAt(bytes, at);
    for (const ChecksumRule rule : {ChecksumRule::kAll, ChecksumRule::kWithoutName}) {
      if (Of(bytes, rule) == stored) return rule;
    }
    return stored == 0 ? ChecksumRule::kZero : ChecksumRule::kUnknown;
  }
};

const StoredBlock* ChecksumBlock(const std::vector<StoredBlock>& blocks, std::size_t fileEnd) {
  const StoredBlock* last = nullptr;
  for (const StoredBlock& block : blocks) {
    if (block.id == kChecksumId && block.end <= fileEnd && block.end - block.start >= kChecksumBytes)
      last = &block;
  }
  return last;
}

}  // namespace

void FilePatch::PutNumber(const FieldPlace& place, long long number) {
  Put(place, LowFirst(static_cast<unsigned long long>(number), place.end - place.start));
}

// The lines of the map say how long each block is, and nothing else says where it is.
std::string FilePatch::WithNewSizes(std::string bytes, const std::vector<StoredBlock>& blocks) const {
  const auto lost = [this] {
    return Error(ErrorKind::kUnreadable, loaded_.name, "can't be edited: its map is not where it was read",
                 kMapId);
  };
  std::size_t at = StartOfMap(loaded_.bytes);
  if (bytes.compare(at, std::string(kMapId).size() + 1, std::string(kMapId) + '\0') == 0)
    at += std::string(kMapId).size() + 1;
  constexpr std::size_t kHeadBytes = 8, kRevisionBytes = 2, kSizeBytes = 4;
  at += kHeadBytes;
  std::size_t start = static_cast<std::size_t>(loaded_.record->Map->Size);
  auto block = blocks.begin();
  const TSorBlockMap& map = *loaded_.record->Map;
  for (int i = 0; i < map.blocks->GetSize() && block != blocks.end(); ++i) {
    const std::size_t end = bytes.find('\0', at);
    const TSorBlockMapBlockInfo* line = map.blocks->GetData(i);
    if (end == std::string::npos || line == nullptr || bytes.substr(at, end - at) != line->ID.c_str())
      throw lost();
    at = end + 1 + kRevisionBytes + kSizeBytes;
    if (line->Size <= 0) continue;
    if (at > start || block->start != start) throw lost();
    start += static_cast<std::size_t>(line->Size);
    long long grown = line->Size;
    for (const auto& [place, text] : puts_) {
      if (place.first >= block->start && place.second <= block->end && place.first < block->end)
        grown += static_cast<long long>(text.size()) - static_cast<long long>(place.second - place.first);
    }
    bytes.replace(at - kSizeBytes, kSizeBytes, LowFirst(static_cast<unsigned long long>(grown), kSizeBytes));
    ++block;
  }
  return bytes;
}

std::string FilePatch::Apply(std::vector<Warning>& warnings) const {
  std::string bytes(loaded_.bytes.begin(), loaded_.bytes.end());
  if (puts_.empty()) return bytes;
  const std::vector<StoredBlock> blocks = StoredBlocksOf(loaded_);
  const StoredBlock* const block = ChecksumBlock(blocks, bytes.size());
  Checksum checksum;
  ChecksumRule rule = ChecksumRule::kNone;
  if (block != nullptr) {
    checksum = {StartOfMap(loaded_.bytes), block->start, block->end - kChecksumBytes};
    rule = checksum.RuleOf(bytes);
  }
  bytes = WithNewSizes(std::move(bytes), blocks);
  std::ptrdiff_t moved = 0;  // of the checksum, by what stands in front of it
  for (auto put = puts_.rbegin(); put != puts_.rend(); ++put) {
    const auto& [place, text] = *put;
    bytes.replace(place.first, place.second - place.first, text);
    if (block != nullptr && place.first < block->start)
      moved +=
          static_cast<std::ptrdiff_t>(text.size()) - static_cast<std::ptrdiff_t>(place.second - place.first);
  }
  if (rule == ChecksumRule::kNone || rule == ChecksumRule::kZero) return bytes;
  checksum.block += static_cast<std::size_t>(moved);
  checksum.at += static_cast<std::size_t>(moved);
  bytes.replace(checksum.at, kChecksumBytes, LowFirst(checksum.Of(bytes, rule), kChecksumBytes));
  if (rule == ChecksumRule::kUnknown)
    warnings.push_back(
        {loaded_.name, "its checksum followed no rule that is known here; it is now that of SR-4731"});
  return bytes;
}

}  // namespace reflyze
