// SPDX-License-Identifier: Apache-2.0
#include "lib/LoadedRecord.h"

#include <cstring>
#include <new>

#include "lib/EngineCall.h"
#include "lib/ForeignFile.h"
#include "lib/StoredBlocks.h"
#include "lib/Stretches.h"
#include "lib/UsableTrace.h"
#include "lib/UserOffset.h"
#include "sor/stream/sorFile.h"

namespace reflyze {
namespace {

constexpr int kDeepestNesting = 16;  // records inside records

constexpr const char* kMap = "Map";

[[noreturn]] void Unreadable(const std::string& name, const std::string& why, const std::string& block = "",
                             long long offset = -1) {
  throw Error(ErrorKind::kUnreadable, name, why, block, offset);
}

// A record begins with its map. Without a whole map nothing behind it can be placed.
void CheckMap(const std::string& name, const std::vector<char>& bytes) {
  TSorFile file(bytes.data(), bytes.size());
  TSorBlockMap map;
  map.ReadRN(&file, TSorBlock::kLastKnownRevisionNo);
  if (file.state != sfOk || map.NB < 2) {
    const std::string seems = WhatItSeems(name, bytes);
    if (!seems.empty()) Unreadable(name, "is not a trace record (SR-4731): " + seems, kMap, 0);
  }
  if (file.state == sfEndOfData) {
    Unreadable(name, "ends inside its map of blocks", kMap, static_cast<long long>(bytes.size()));
  }
  if (file.state != sfOk) Unreadable(name, "is not a trace record (SR-4731)", kMap, 0);
  if (map.NB < 2) Unreadable(name, "is not a trace record (SR-4731): its map lists no blocks", kMap, 0);
}

void ForgetTimeOfReadingInside(TSorData& record) {
  for (int i = 0; i < record.EmbData->GetTNED(); ++i) {
    TEmbData1E* embedded = record.EmbData->GetEmbData(i);
    TSorData* inner = embedded != nullptr ? embedded->GetRecord() : nullptr;
    if (inner == nullptr) continue;
    if (!Lists(*inner->Map, "FxdParams")) inner->FxdParams->DTS = 0;
    if (!Lists(*inner->Map, "QRTParams")) inner->QRTParams->LDTS = 0;
    ForgetTimeOfReadingInside(*inner);
  }
}

// A new record has the present time as its time of measurement. Where the file tells none, that would pass
// for the time of measurement, and be another one at the next reading. This takes the file's time, or none.
void ForgetTimeOfReading(const LoadedRecord& loaded) {
  TSorBlockFixedParameters stored;
  stored.DTS = 0;
  ReadStoredBlock(loaded, "FxdParams", stored);
  loaded.record->FxdParams->DTS = stored.DTS;
  if (!Stores(loaded, "QRTParams")) loaded.record->QRTParams->LDTS = 0;
  ForgetTimeOfReadingInside(*loaded.record);
}

// The first block whose bytes don't begin with its name, as those of the newer revisions do; none without a
// name.
StoredBlock FirstMisplaced(const LoadedRecord& loaded) {
  constexpr unsigned short kFirstWithNames = 200;
  for (const StoredBlock& block : StoredBlocksOf(loaded)) {
    if (block.revision < kFirstWithNames || IsUnknown(block.id)) continue;
    if (block.end - block.start < block.id.size() ||
        std::memcmp(loaded.bytes.data() + block.start, block.id.data(), block.id.size()) != 0)
      return block;
  }
  return {};
}

void RequireTrace(const LoadedRecord& loaded) {
  RequireReadThrough(loaded);
  const std::string why = WhyUnusable(loaded);
  if (!why.empty()) {
    const bool cut = EndsInsideSamples(loaded);
    Unreadable(loaded.name, why, cut ? "DataPts" : "",
               cut ? static_cast<long long>(loaded.bytes.size()) : -1);
  }
  if (TracesIn(*loaded.record) < 2) return;
  Unreadable(loaded.name,
             StretchWarning(*loaded.record) + "; take one out first: reflyze copy IN OUT --native --trace N");
}

// Where the stream ended in an error and a linear trace could be made nonetheless, nothing is missing: the
// error came in the last block.
bool IsBrokenOff(const LoadedRecord& loaded, bool readThrough) {
  if (!loaded.Truncated() || loaded.state == sfEndOfData) return false;
  if (readThrough && loaded.record->GetDataType() != dtTC) return false;
  return loaded.record->EmbData->GetEmbData(TEmbData1E::kLinearTrace) == nullptr;
}

}  // namespace

void MakeLinearTrace(const LoadedRecord& loaded) {
  std::call_once(loaded.points->linearOnce, [&] {
    if (loaded.brokenOff || loaded.record->EmbData->GetEmbData(TEmbData1E::kLinearTrace) != nullptr) return;
    CallEngine(loaded.name, "is not a record that can be held", [&] { loaded.record->SetLinf(); });
  });
}

bool LoadedRecord::Truncated() const { return state != sfOk; }

void RequireReadThrough(const LoadedRecord& loaded) {
  if (!loaded.brokenOff) return;
  const StoredBlock block = FirstMisplaced(loaded);
  Unreadable(loaded.name,
             "is damaged: a block is not where the map puts it, or leads nowhere (stream state " +
                 std::to_string(loaded.state) + ")",
             block.id, block.id.empty() ? -1 : static_cast<long long>(block.start));
}

int StoredUserOffset(const LoadedRecord& loaded) {
  TSorBlockGeneralParameters stored;
  ReadStoredBlock(loaded, "GenParams", stored);
  return stored.UO;
}

void CountTimesFromFirstSample(LoadedRecord& loaded) {
  if (loaded.fromFirstSample) return;
  CountFromFirstSample(*loaded.record, StoredUserOffset(loaded));
  loaded.fromFirstSample = true;
}

LoadedRecord ReadRecord(const std::string& given, std::vector<char> bytes, const TextEncoding& texts) {
  LoadedRecord loaded;
  loaded.given = given;
  loaded.name = given == "-" ? "standard input" : given;
  loaded.bytes = std::move(bytes);
  loaded.texts = texts;
  if (loaded.bytes.empty()) Unreadable(loaded.name, "is empty");
  loaded.record = std::make_unique<TSorData>();
  CallEngine(loaded.name, "is not a record that can be held", [&] {
    TSorFile file(static_cast<const char*>(loaded.bytes.data()), loaded.bytes.size());
    file.KeepNoChecksum();
    const bool readThrough = loaded.record->ReadWithoutLinf(&file);
    // Reading has been through the map already; it is looked at again where that went wrong.
    if (!readThrough || loaded.record->Map->NB < 2) CheckMap(loaded.name, loaded.bytes);
    loaded.state = file.state;
    loaded.brokenOff = IsBrokenOff(loaded, readThrough);
  });
  if (NestingDepth(*loaded.record) > kDeepestNesting)
    Unreadable(loaded.name, "holds records nested more than 16 deep");
  loaded.warnings = FileWarnings(loaded);
  ForgetTimeOfReading(loaded);
  return loaded;
}

LoadedRecord CopyOfLoaded(const LoadedRecord& loaded) {
  if (!loaded.bytes.empty()) return ReadRecord(loaded.given, loaded.bytes, loaded.texts);
  LoadedRecord copy;
  copy.given = loaded.given;
  copy.name = loaded.name;
  copy.fromFirstSample = loaded.fromFirstSample;
  copy.warnings = loaded.warnings;
  copy.texts = loaded.texts;
  copy.record = std::make_unique<TSorData>();
  copy.record->Assign(*loaded.record);
  return copy;
}

LoadedRecord ForMeasuring(Trace trace) {
  LoadedRecord loaded = std::move(trace).Take();
  // A trace that was taken out of a file of several has been checked there.
  if (!loaded.fromFirstSample) RequireTrace(loaded);
  MakeLinearTrace(loaded);
  CountTimesFromFirstSample(loaded);
  return loaded;
}

std::string RecordBytes(TSorData& record, const std::string& name) {
  TSorFile memory(nullptr, "m");
  CallEngine(name, "is not a record that can be written", [&] {
    const CountedFromOffset counted(record);
    record.Write(&memory);
  });
  if (memory.state != sfOk)
    throw Error(ErrorKind::kUnwritable, name, "the record has more blocks than a map can list");
  return {memory.GetData(), memory.GetDataSize()};
}

StoredRecord Keep(LoadedRecord& loaded) {
  auto kept = std::make_shared<KeptRecord>();
  kept->record = std::move(loaded.record);
  kept->name = loaded.name;
  kept->encoding = loaded.texts.name();
  return StoredRecord(std::move(kept));
}

std::vector<Warning> WarningsOf(const LoadedRecord& loaded) {
  std::vector<Warning> warnings;
  for (const std::string& text : loaded.warnings) warnings.push_back({loaded.name, text});
  return warnings;
}

}  // namespace reflyze
