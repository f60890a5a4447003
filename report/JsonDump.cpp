// SPDX-License-Identifier: Apache-2.0
#include "report/JsonDump.h"

#include <algorithm>
#include <functional>

#include "lib/StoredBlocks.h"
#include "report/JsonFields.h"
#include "util/tcrc.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

struct Listing {
  const TextEncoding& texts;
  DumpOptions options;

  std::string Utf8(const TString& text) const { return texts.Utf8(text); }
};

// Whether a block of that ID is to be shown.
using Shows = std::function<bool(const std::string& id)>;

Json JsonOfRecord(const TSorData& record, const Listing& listing, const Shows& shows);

template <class Block>
Json JsonOfBlock(const Block& block, const Listing& listing) {
  Json json = Json::object();
  json["RevisionNo"] = block.RevisionNo;
  JsonFields fields(json, listing.texts);
  Block::Fields(block, fields);
  return json;
}

Json JsonOfMap(const TSorBlockMap& map, const Listing& listing) {
  Json json = {{"RevisionNo", map.RevisionNo}, {"Size", map.Size}, {"NB", map.NB}, {"blocks", Json::array()}};
  for (int i = 0; i < map.blocks->GetSize(); ++i) {
    const TSorBlockMapBlockInfo* line = map.blocks->GetData(i);
    if (line == nullptr) continue;
    json["blocks"].push_back(
        {{"ID", listing.Utf8(line->ID)}, {"RevisionNo", line->RevisionNo}, {"Size", line->Size}});
  }
  return json;
}

Json JsonOfPoints(const TSorBlockDataPoints& points, const Listing& listing) {
  Json json = {{"RevisionNo", points.RevisionNo},
               {"BID", listing.Utf8(points.ID)},
               {"TNDP", points.GetPointsNum()},
               {"TSF", points.GetSubBlocksNum()},
               {"SF", points.GetSubBlock()->GetScaleFactor()}};
  if (listing.options.samples) json["samples"] = points.GetSubBlock()->samples;
  return json;
}

Json JsonOfEmbeddedData(const TEmbData1E& embedded, const Listing& listing) {
  if (const TSorData* record = embedded.GetRecord()) {
    return JsonOfRecord(*record, listing, [&](const std::string& id) {
      return listing.options.native || Lists(*record->Map, id);
    });
  }
  if (const TSorBlockRFTSEvents* events = embedded.GetRFTSEvents()) return JsonOfBlock(*events, listing);
  // The file ended inside this inner record.
  if (embedded.IsKind(TEmbData1E::kRecord) || embedded.IsKind(TEmbData1E::kRFTSEvents)) return nullptr;
  return Hex(static_cast<const char*>(embedded.GetData()), static_cast<size_t>(embedded.DataSize));
}

Json JsonOfEmbedded(const TSorBlockEmbData& block, const Listing& listing) {
  Json json = {{"RevisionNo", block.RevisionNo},
               {"BID", listing.Utf8(block.ID)},
               {"TNED", block.GetTNED()},
               {"records", Json::array()}};
  for (int i = 0; i < block.GetTNED(); ++i) {
    const TEmbData1E* embedded = block.GetEmbData(i);
    if (embedded == nullptr) continue;
    Json record = {{"ID", listing.Utf8(embedded->GetID())},
                   {"Comment", listing.Utf8(embedded->GetComment())},
                   {"Description", listing.Utf8(embedded->GetDescription())},
                   {"DataSize", embedded->DataSize},
                   {"Writable", embedded->IsWritable()}};
    // The linear cache is derived from the samples and goes to no file.
    if (!embedded->IsKind(TEmbData1E::kLinearTrace)) record["data"] = JsonOfEmbeddedData(*embedded, listing);
    json["records"].push_back(std::move(record));
  }
  return json;
}

Json JsonOfSpecial(const TSorData& record, const Listing& listing) {
  Json list = Json::array();
  for (int i = 0; i < record.SpecialCount; ++i) {
    const TSorBlockSpecial& block = *record.Special[i];
    list.push_back({{"MapID", listing.Utf8(block.MapID)},
                    {"RevisionNo", block.RevisionNo},
                    {"Size", block.Size},
                    {"data", Hex(block.Data(), static_cast<size_t>(std::max(0, block.Size)))}});
  }
  return list;
}

// Whether the checksum is right. It covers the file from the first byte of the map up to the checksum itself,
// which is the last two bytes of the block "Cksum"; of several such blocks the last counts. Null where the
// map names no such block, or one outside the file.
Json ComputedChecksum(const LoadedRecord& loaded) {
  const TSorBlockMap& map = *loaded.record->Map;
  const auto start = static_cast<long long>(StartOfMap(loaded.bytes));
  long long place = map.Size;
  long long end = 0;  // of the checksum
  for (int i = 0; i < map.blocks->GetSize(); ++i) {
    const TSorBlockMapBlockInfo* line = map.blocks->GetData(i);
    if (line == nullptr || line->Size <= 0) continue;
    place += line->Size;
    if (line->ID == GetBlockID(btCRC)) end = place;
  }
  const long long covered = end - 2 - start;
  if (covered < 0 || end > static_cast<long long>(loaded.bytes.size())) return nullptr;
  unsigned short crc = 0xFFFF;
  TCRC().get_crc_ccitt(crc, loaded.bytes.data() + start, static_cast<int>(covered));
  return crc;
}

Json JsonOfRecord(const TSorData& record, const Listing& listing, const Shows& shows) {
  Json json = Json::object();
  const auto add = [&](const char* id, const auto& list) {
    if (shows(id)) json[id] = list();
  };
  json["Revision"] = record.Revision;
  json["Map"] = JsonOfMap(*record.Map, listing);
  add("GenParams", [&] { return JsonOfBlock(*record.GenParams, listing); });
  add("SupParams", [&] { return JsonOfBlock(*record.SupParams, listing); });
  add("FxdParams", [&] { return JsonOfBlock(*record.FxdParams, listing); });
  add("KeyEvents", [&] { return JsonOfBlock(*record.KeyEvents, listing); });
  add("LnkParams", [&] { return JsonOfBlock(*record.LnkParams, listing); });
  add("DataPts", [&] { return JsonOfPoints(*record.DataPts, listing); });
  add("RFTSParams", [&] { return JsonOfBlock(*record.RFTSParams, listing); });
  add("RFTSEvents", [&] { return JsonOfBlock(*record.RFTSEvents, listing); });
  add("EmbData", [&] { return JsonOfEmbedded(*record.EmbData, listing); });
  add("QRTEvents", [&] { return JsonOfBlock(*record.QRTEvents, listing); });
  add("QRTParams", [&] { return JsonOfBlock(*record.QRTParams, listing); });
  json["Special"] = JsonOfSpecial(record, listing);
  add("Cksum", [&] { return JsonOfBlock(*record.Cksum, listing); });
  return json;
}

}  // namespace

Json JsonOfLoadedRecord(const LoadedRecord& loaded, const DumpOptions& options) {
  const Listing listing{loaded.texts, options};
  Json json = {{"file", loaded.given},
               {"size", loaded.bytes.size()},
               {"state", loaded.state},
               {"warnings", loaded.warnings}};
  json.update(JsonOfRecord(*loaded.record, listing,
                           [&](const std::string& id) { return options.native || Stores(loaded, id); }));
  if (!json.contains("Cksum")) return json;
  const Json computed = ComputedChecksum(loaded);
  json["Cksum"]["computed"] = computed;
  json["Cksum"]["match"] = computed == json["Cksum"]["CRC"];
  return json;
}

}  // namespace reflyze
