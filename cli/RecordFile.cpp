#include "cli/RecordFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>
#include <iterator>

#include "cli/OutputFile.h"
#include "cli/Problem.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Stretches.h"
#include "cli/UsableTrace.h"
#include "cli/UserOffset.h"
#include "sor/stream/sorFile.h"

namespace reflyze::cli {
namespace {

constexpr int kDeepestNesting = 16;  // records inside records

[[noreturn]] void Unreadable(const std::string& name, const std::string& why) {
  throw Problem(kUnreadable, name + ": " + why);
}

std::vector<char> ReadAll(std::istream& in, const std::string& name, size_t most) {
  std::vector<char> bytes;
  char chunk[65536];
  while (in.read(chunk, sizeof chunk), in.gcount() > 0) {
    bytes.insert(bytes.end(), chunk, chunk + in.gcount());
    if (bytes.size() > most) Unreadable(name, "is too large");
  }
  if (in.bad()) Unreadable(name, "cannot be read");
  return bytes;
}

// A record begins with its map; without a whole one nothing behind it can be placed.
void CheckMap(const std::string& name, const std::vector<char>& bytes) {
  TSorFile file(bytes.data(), bytes.size());
  TSorBlockMap map;
  map.ReadRN(&file, TSorBlock::kLastKnownRevisionNo);
  if (file.state == sfEndOfData) Unreadable(name, "ends inside its map of blocks");
  if (file.state != sfOk) Unreadable(name, "is not a trace record (SR-4731)");
  if (map.NB < 2) Unreadable(name, "is not a trace record (SR-4731): its map lists no blocks");
}

void ForgetTimeOfReadingInside(TSorData& record) {
  for (int i = 0; i < record.EmbData->GetTNED(); ++i) {
    TEmbData1E* embedded = record.EmbData->GetEmbData(i);
    TSorData* inner = embedded != nullptr ? embedded->GetRecord() : nullptr;
    if (inner == nullptr) continue;
    if (!Lists(*inner->Map, "FxdParams")) inner->FxdParams->DTS = 0;
    ForgetTimeOfReadingInside(*inner);
  }
}

// A new record is as old as the moment. One whose file tells no time of measurement has none: the time of its
// reading would pass for it, and be another one at the next.
void ForgetTimeOfReading(const LoadedRecord& loaded) {
  TSorBlockFixedParameters stored;
  stored.DTS = 0;
  ReadStoredBlock(loaded, "FxdParams", stored);
  loaded.record->FxdParams->DTS = stored.DTS;
  ForgetTimeOfReadingInside(*loaded.record);
}

void RequireTrace(const LoadedRecord& loaded, NeedPoints needPoints) {
  RequireReadThrough(loaded);
  const std::string why = WhyUnusable(loaded);
  if (!why.empty()) Unreadable(loaded.name, why);
  const int traces = TracesIn(*loaded.record);
  if (needPoints == NeedPoints::kYes && traces > 1)
    Unreadable(loaded.name, StretchWarning(*loaded.record) +
                                "; take one out first: reflyze copy IN OUT --native --trace N");
  CountTimesFromFirstSample(loaded);
}

}  // namespace

std::vector<char> ReadInput(Session& session, const std::string& name, size_t most) {
  if (name == "-") return ReadAll(session.in(), "standard input", most);
  struct stat info;
  if (stat(name.c_str(), &info) != 0) Unreadable(name, std::strerror(errno));
  if (S_ISDIR(info.st_mode)) Unreadable(name, "is a folder");
  std::ifstream in(name, std::ios::binary);
  if (!in) Unreadable(name, std::strerror(errno));
  return ReadAll(in, name, most);
}

bool LoadedRecord::Truncated() const { return state != sfOk; }

// The linear trace is the last that a reading makes. Temperature traces have none.
bool LoadedRecord::BrokenOff() const {
  return state != sfOk && state != sfEndOfData &&
         record->EmbData->GetEmbData(TEmbData1E::kLinearTrace) == nullptr;
}

void RequireReadThrough(const LoadedRecord& loaded) {
  if (!loaded.BrokenOff()) return;
  Unreadable(loaded.name,
             "is damaged: a block is not where the map puts it, or leads nowhere (stream state " +
                 std::to_string(loaded.state) + ")");
}

int StoredUserOffset(const LoadedRecord& loaded) {
  TSorBlockGeneralParameters stored;
  ReadStoredBlock(loaded, "GenParams", stored);
  return stored.UO;
}

void CountTimesFromFirstSample(const LoadedRecord& loaded) {
  CountFromFirstSample(*loaded.record, StoredUserOffset(loaded));
}

LoadedRecord LoadRecordBytes(const std::string& name, std::vector<char> bytes, NeedPoints needPoints) {
  LoadedRecord loaded;
  loaded.given = loaded.name = name;
  loaded.bytes = std::move(bytes);
  if (loaded.bytes.empty()) Unreadable(name, "is empty");
  loaded.record = std::make_unique<TSorData>();
  try {
    CheckMap(name, loaded.bytes);
    TSorFile file(static_cast<const char*>(loaded.bytes.data()), loaded.bytes.size());
    loaded.record->Read(&file);
    loaded.state = file.state;
  } catch (int) {
    Unreadable(name, "a count or size in it cannot be right");
  } catch (const char* text) {
    Unreadable(name, std::string("is damaged: ") + text);
  } catch (const AssertionProblem& problem) {
    Unreadable(name, std::string("is not a record that can be held: ") + problem.what());
  } catch (const std::bad_alloc&) {
    Unreadable(name, "asks for more memory than there is");
  }
  if (reflyze::NestingDepth(*loaded.record) > kDeepestNesting)
    Unreadable(name, "holds records nested more than 16 deep");
  loaded.warnings = FileWarnings(loaded);
  ForgetTimeOfReading(loaded);
  if (needPoints != NeedPoints::kNo) RequireTrace(loaded, needPoints);
  return loaded;
}

LoadedRecord LoadRecord(Session& session, const std::string& name, NeedPoints needPoints) {
  LoadedRecord loaded =
      LoadRecordBytes(name == "-" ? "standard input" : name, ReadInput(session, name), needPoints);
  loaded.given = name;
  return loaded;
}

std::string RecordBytes(TSorData& record, const std::string& name) {
  TSorFile memory(nullptr, "m");
  {
    const CountedFromOffset counted(record);
    record.Write(&memory);
  }
  if (memory.state != sfOk)
    throw Problem(kUnwritable, name + ": the record has more blocks than a map can list");
  return {memory.GetData(), memory.GetDataSize()};
}

void SaveRecord(TSorData& record, const std::string& name) {
  SaveTogether({{name, RecordBytes(record, name)}});
}

void SaveText(const std::string& text, const std::string& name) { SaveTogether({{name, text}}); }

}  // namespace reflyze::cli
