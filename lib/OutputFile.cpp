// SPDX-License-Identifier: Apache-2.0
#include "reflyze/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "reflyze/error.h"

namespace reflyze {
namespace {

// The folder part of a path, with its slash.
std::string FolderOf(const std::string& name) {
  const size_t slash = name.rfind('/');
  return slash == std::string::npos ? "" : name.substr(0, slash + 1);
}

// A file that gets the target's name only when it is whole and on disk.
class AtomicFile {
 public:
  // `name` stands in the messages.
  AtomicFile(const std::string& target, const std::string& name)
      : target_(target), name_(name), beside_(FolderOf(target) + ".reflyze-XXXXXX") {
    const int descriptor = mkstemp(beside_.data());
    if (descriptor < 0) {
      beside_.clear();
      Fail();
    }
    fchmod(descriptor, Permissions());
    file_ = fdopen(descriptor, "wb");
    if (file_ == nullptr) {
      close(descriptor);
      unlink(beside_.c_str());
      Fail();
    }
  }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile() {
    if (file_ != nullptr) std::fclose(file_);
    for (const std::string& passing : {beside_, before_}) {
      if (!passing.empty()) unlink(passing.c_str());
    }
  }

  // Brings the bytes to the disk.
  void Write(const std::string& bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) Fail();
    if (std::fflush(file_) != 0 || fsync(fileno(file_)) != 0) Fail();
    FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) Fail();
  }
  // Keeps the file that has the target's name now, so that Restore can put it back.
  void KeepEarlier() {
    struct stat info;
    if (stat(target_.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
      errno = EISDIR;
      Fail();
    }
    const std::string before = beside_ + "-before";
    if (link(target_.c_str(), before.c_str()) == 0) {
      before_ = before;
    } else if (errno != ENOENT) {
      // The file system has no links. The target's name is free for a moment.
      if (std::rename(target_.c_str(), before.c_str()) == 0) {
        before_ = before;
      } else if (errno != ENOENT) {
        Fail();
      }
    }
  }
  void TakePlace() {
    if (std::rename(beside_.c_str(), target_.c_str()) != 0) Fail();
    beside_.clear();
  }
  void Restore() {
    if (before_.empty()) {
      if (beside_.empty()) unlink(target_.c_str());
    } else {
      std::rename(before_.c_str(), target_.c_str());
      before_.clear();  // where the old file could not go back, it stays under its passing name
    }
  }

 private:
  [[noreturn]] void Fail() const {
    throw Error(ErrorKind::kUnwritable, name_, std::string("cannot be written: ") + std::strerror(errno));
  }
  // Permissions: those of the file that is replaced, else what the user gives to new files.
  mode_t Permissions() const {
    struct stat info;
    if (stat(target_.c_str(), &info) == 0) return info.st_mode & 0777;
    // The mask can only be read by setting it, for the whole process: once, so that threads don't meet.
    static const mode_t mask = [] {
      const mode_t kept = umask(0);
      umask(kept);
      return kept;
    }();
    return 0666 & ~mask;
  }

  std::string target_;
  std::string name_;
  std::string beside_;  // the new file, while it waits
  std::string before_;  // the old file
  FILE* file_ = nullptr;
};

// Where the bytes for a name go. Links are followed here, since a rename would put a file in a link's place.
struct Target {
  std::filesystem::path path;
  // A device, a pipe or an open descriptor takes the bytes as they come. A rename would put a file in its
  // place.
  bool stream = false;
};

Target FindTarget(const std::string& name) {
  namespace fs = std::filesystem;
  constexpr int kMostLinks = 40;  // as many as the system follows itself
  std::error_code error;
  fs::path path = name;
  for (int i = 0; fs::is_symlink(path, error); ++i) {
    if (i == kMostLinks)
      throw Error(ErrorKind::kUnwritable, name, "cannot be written: is a link that leads nowhere");
    const fs::path folder = fs::canonical(path.has_parent_path() ? path.parent_path() : ".", error);
    // What looks like a link there is the descriptor of a process: /dev/stdout, /dev/fd/3.
    if (folder.string().rfind("/proc/", 0) == 0) return {path, true};
    path = path.parent_path() / fs::read_symlink(path, error);
  }
  const fs::file_status status = fs::status(path, error);
  return {path, fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status)};
}

// A stream can't give back what it has taken.
void WriteToStream(const Target& target, const Output& output) {
  std::ofstream out(target.path, std::ios::binary | std::ios::app);
  out.write(output.bytes.data(), static_cast<std::streamsize>(output.bytes.size()));
  out.close();
  if (!out) throw Error(ErrorKind::kUnwritable, output.name, "cannot be written");
}

// Of two outputs under one name, one would be lost.
void RequireOtherName(const Target& target, const std::string& name, std::set<std::filesystem::path>& taken) {
  std::error_code unknown;
  const std::filesystem::path whole = std::filesystem::weakly_canonical(target.path, unknown);
  if (taken.insert(unknown ? target.path : whole).second) return;
  throw Error(ErrorKind::kUnwritable, name, "cannot be written: it is named for two outputs");
}

void TakePlaces(const std::vector<std::unique_ptr<AtomicFile>>& files) {
  try {
    for (size_t i = 0; i < files.size(); ++i) {
      if (i + 1 < files.size()) files[i]->KeepEarlier();
      files[i]->TakePlace();
    }
  } catch (const Error&) {
    for (size_t i = 0; i + 1 < files.size(); ++i) files[i]->Restore();
    throw;
  }
}

}  // namespace

void SaveTogether(const std::vector<Output>& outputs) {
  std::vector<std::unique_ptr<AtomicFile>> files;
  std::vector<std::pair<Target, const Output*>> streams;
  std::set<std::filesystem::path> taken;
  for (const Output& output : outputs) {
    const Target target = FindTarget(output.name);
    if (target.stream) {
      streams.emplace_back(target, &output);
      continue;
    }
    RequireOtherName(target, output.name, taken);
    files.push_back(std::make_unique<AtomicFile>(target.path, output.name));
    files.back()->Write(output.bytes);
  }
  for (const auto& [target, output] : streams) WriteToStream(target, *output);
  TakePlaces(files);
}

std::vector<char> ReadFile(const std::string& name, std::size_t most) {
  const auto unreadable = [&](const std::string& why) { return Error(ErrorKind::kUnreadable, name, why); };
  struct stat info;
  if (stat(name.c_str(), &info) != 0) throw unreadable(std::strerror(errno));
  if (S_ISDIR(info.st_mode)) throw unreadable("is a folder");
  const std::unique_ptr<FILE, int (*)(FILE*)> in(std::fopen(name.c_str(), "rb"), std::fclose);
  if (!in) throw unreadable(std::strerror(errno));
  std::setvbuf(in.get(), nullptr, _IONBF, 0);
  // A file is read in one piece, with room for a byte more, which stays empty. A pipe tells no size.
  constexpr std::size_t kChunkBytes = 65536;
  const std::size_t told = std::min(static_cast<std::size_t>(info.st_size), most);
  std::vector<char> bytes(told > 0 ? told + 1 : kChunkBytes);
  std::size_t size = 0;
  while (size += std::fread(bytes.data() + size, 1, bytes.size() - size, in.get()), size == bytes.size()) {
    if (size > most) break;
    bytes.resize(2 * size);
  }
  if (size > most) throw unreadable("is too large");
  if (std::ferror(in.get()) != 0) throw unreadable("cannot be read");
  bytes.resize(size);
  return bytes;
}

}  // namespace reflyze
