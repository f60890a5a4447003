#include "cli/RecordFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <istream>
#include <iterator>

#include "cli/Problem.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Stretches.h"
#include "cli/UsableTrace.h"
#include "cli/UserOffset.h"
#include "sor/sorFile.h"

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

// The folder part of a path, with its slash.
std::string FolderOf(const std::string& name) {
  const size_t slash = name.rfind('/');
  return slash == std::string::npos ? "" : name.substr(0, slash + 1);
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

// A file that takes the target's name only when it is whole and on disk.
class AtomicFile {
 public:
  // `name` stands in the messages.
  AtomicFile(const std::string& target, const std::string& name)
      : target_(target), name_(name), beside_(FolderOf(target) + ".reflyze-XXXXXX") {
    const int descriptor = mkstemp(beside_.data());
    if (descriptor < 0) Fail();
    fchmod(descriptor, Permissions());
    file_ = fdopen(descriptor, "wb");
    if (file_ == nullptr) {
      close(descriptor);
      Fail();
    }
  }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile() {
    if (file_ != nullptr) std::fclose(file_);
    if (!beside_.empty()) unlink(beside_.c_str());
  }

  void Write(const char* data, size_t size) {
    if (size > 0 && std::fwrite(data, 1, size, file_) != size) Fail();
  }
  void Commit() {
    if (std::fflush(file_) != 0 || fsync(fileno(file_)) != 0) Fail();
    FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) Fail();
    if (std::rename(beside_.c_str(), target_.c_str()) != 0) Fail();
    beside_.clear();
  }

 private:
  [[noreturn]] void Fail() const {
    throw Problem(kUnwritable, name_ + ": cannot be written: " + std::strerror(errno));
  }
  // Those of the file that is replaced, else what the user gives to new files.
  mode_t Permissions() const {
    struct stat info;
    if (stat(target_.c_str(), &info) == 0) return info.st_mode & 0777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
  }

  std::string target_;
  std::string name_;
  std::string beside_;
  FILE* file_ = nullptr;
};

// Where the bytes for a name go. Links are followed here: the rename would put a file in a link's place.
struct Target {
  std::filesystem::path path;
  // A device, a pipe or an open descriptor takes the bytes as they come: a file over it would do away with
  // it.
  bool stream = false;
};

Target FindTarget(const std::string& name) {
  namespace fs = std::filesystem;
  constexpr int kMostLinks = 40;  // as many as the system follows itself
  std::error_code error;
  fs::path path = name;
  for (int i = 0; fs::is_symlink(path, error); ++i) {
    if (i == kMostLinks)
      throw Problem(kUnwritable, name + ": cannot be written: is a link that leads nowhere");
    const fs::path folder = fs::canonical(path.has_parent_path() ? path.parent_path() : ".", error);
    // What looks like a link there is a descriptor of a process: /dev/stdout, /dev/fd/3.
    if (folder.string().rfind("/proc/", 0) == 0) return {path, true};
    path = path.parent_path() / fs::read_symlink(path, error);
  }
  const fs::file_status status = fs::status(path, error);
  return {path, fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status)};
}

void SaveBytes(const char* data, size_t size, const std::string& name) {
  const Target target = FindTarget(name);
  if (target.stream) {
    std::ofstream out(target.path, std::ios::binary | std::ios::app);
    out.write(data, static_cast<std::streamsize>(size));
    out.close();
    if (!out) throw Problem(kUnwritable, name + ": cannot be written");
    return;
  }
  AtomicFile file(target.path, name);
  file.Write(data, size);
  file.Commit();
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
  loaded.name = name;
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
  return LoadRecordBytes(name == "-" ? "standard input" : name, ReadInput(session, name), needPoints);
}

void SaveRecord(TSorData& record, const std::string& name) {
  TSorFile memory(nullptr, "m");
  {
    const CountedFromOffset counted(record);
    record.Write(&memory);
  }
  if (memory.state != sfOk)
    throw Problem(kUnwritable, name + ": the record has more blocks than a map can list");
  SaveBytes(memory.GetData(), memory.GetDataSize(), name);
}

void SaveText(const std::string& text, const std::string& name) { SaveBytes(text.data(), text.size(), name); }

}  // namespace reflyze::cli
