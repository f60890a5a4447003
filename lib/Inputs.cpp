// SPDX-License-Identifier: Apache-2.0
#include "reflyze/inputs.h"

#include <glob.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "lib/Text.h"
#include "reflyze/error.h"
#include "reflyze/files.h"

namespace reflyze {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostFiles = 1000000;
constexpr int kDeepest = 64;  // folders in folders, and lists in lists

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// A run of digits, without the zeros in front of it.
std::string Digits(const std::string& text, size_t& at) {
  const size_t from = at;
  while (at < text.size() && IsDigit(text[at])) ++at;
  const size_t first = std::min(text.find_first_not_of('0', from), at);
  return text.substr(first, at - first);
}

bool EndsIn(const std::vector<std::string>& endings, const fs::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::find(endings.begin(), endings.end(), ending) != endings.end();
}

class Finder {
 public:
  explicit Finder(const InputOptions& options) : options_(options) {}

  void Take(const std::string& name) {
    if (name.size() > 1 && name[0] == '@') {
      TakeList(name.substr(1));
    } else if (name != "-" && name.find_first_of("*?[") != std::string::npos && !Exists(name)) {
      TakePattern(name);
    } else {
      TakeNamed(name);
    }
  }
  std::vector<InputFile> files;

 private:
  static bool Exists(const std::string& name) {
    struct stat info;
    return lstat(name.c_str(), &info) == 0;
  }

  void Add(InputFile file) {
    if (files.size() >= kMostFiles)
      throw Error(ErrorKind::kUsage, "", Format("more than %zu files are named", kMostFiles));
    files.push_back(std::move(file));
  }
  void Fail(const std::string& name, const std::string& why) { Add({name, "", why}); }

  void TakeNamed(const std::string& name) {
    std::error_code none;
    if (options_.folders && name != "-" && fs::is_directory(name, none)) {
      TakeFolder(name);
    } else {
      Add({name, fs::path(name).filename().string(), ""});
    }
  }

  void TakeFolder(const std::string& name) {
    const size_t before = files.size();
    Walk(name, "", 0);
    if (files.size() == before)
      Fail(name, "holds no file that ends in " + (options_.endings.empty() ? "" : options_.endings[0]));
  }

  // Names in a folder, in natural order.
  std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    for (const fs::directory_iterator end; !error && entry != end; entry.increment(error))
      names.push_back(entry->path().filename().string());
    if (error) Fail(folder, "cannot be read: " + error.message());
    std::sort(names.begin(), names.end(), NaturalLess);
    return names;
  }

  void Walk(const std::string& folder, const std::string& below, int depth) {
    struct stat info;
    if (stat(folder.c_str(), &info) != 0) return Fail(folder, std::strerror(errno));
    if (depth > kDeepest) return Fail(folder, Format("lies more than %d folders deep", kDeepest));
    const auto self = std::pair(info.st_dev, info.st_ino);
    if (!walking_.insert(self).second) return Fail(folder, "leads back to a folder that it lies in");
    for (const std::string& name : NamesIn(folder)) {
      const std::string path = (fs::path(folder) / name).string();
      const std::string place = below.empty() ? name : below + "/" + name;
      std::error_code none;
      if (fs::is_directory(path, none)) {
        Walk(path, place, depth + 1);
      } else if (EndsIn(options_.endings, path)) {
        Add({path, place, ""});
      }
    }
    walking_.erase(self);
  }

  void TakePattern(const std::string& pattern) {
    glob_t found{};
    const int status = glob(pattern.c_str(), 0, nullptr, &found);
    std::vector<std::string> names;
    for (size_t i = 0; status == 0 && i < found.gl_pathc; ++i) names.emplace_back(found.gl_pathv[i]);
    globfree(&found);
    if (names.empty()) return Fail(pattern, "no file has such a name");
    std::sort(names.begin(), names.end(), NaturalLess);
    for (const std::string& name : names) TakeNamed(name);
  }

  void TakeList(const std::string& list) {
    std::error_code unknown;
    const fs::path whole = fs::weakly_canonical(list, unknown);
    const std::string self = unknown ? list : whole.string();
    if (listing_.count(self) > 0) return Fail(list, "names itself, so that the list has no end");
    if (listing_.size() >= kDeepest)
      return Fail(list, Format("more than %d lists name each other", kDeepest));
    std::vector<char> bytes;
    try {
      bytes = ReadFile(list, kLargestList);
    } catch (const Error& error) {
      return Fail(list, error.sentence());
    }
    if (std::memchr(bytes.data(), '\0', bytes.size()) != nullptr) return Fail(list, "is no list of names");
    listing_.insert(self);
    const std::string text(bytes.begin(), bytes.end());
    for (size_t from = 0; from < text.size();) {
      const size_t to = std::min(text.find('\n', from), text.size());
      std::string line = text.substr(from, to - from);
      from = to + 1;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line == "-") {
        Fail(list, "names standard input, which a list can't");
      } else if (!line.empty() && line[0] != '#') {
        Take(line);
      }
    }
    listing_.erase(self);
  }

  const InputOptions options_;
  std::set<std::pair<dev_t, ino_t>> walking_;  // folders on the way to where the walk is
  std::set<std::string> listing_;              // lists that are being read
};

}  // namespace

bool NaturalLess(const std::string& one, const std::string& other) {
  size_t i = 0, j = 0;
  while (i < one.size() && j < other.size()) {
    if (IsDigit(one[i]) && IsDigit(other[j])) {
      const std::string a = Digits(one, i), b = Digits(other, j);
      if (a.size() != b.size()) return a.size() < b.size();
      if (a != b) return a < b;
    } else if (one[i] != other[j]) {
      return static_cast<unsigned char>(one[i]) < static_cast<unsigned char>(other[j]);
    } else {
      ++i, ++j;
    }
  }
  const size_t left = one.size() - i, otherLeft = other.size() - j;
  return left != otherLeft ? left < otherLeft : one < other;  // "1" and "01" differ all the same
}

std::vector<InputFile> FilesOf(const std::vector<std::string>& names, const InputOptions& options) {
  Finder finder(options);
  for (const std::string& name : names) finder.Take(name);
  return std::move(finder.files);
}

std::vector<std::string> PlacesBelow(const std::string& folder, const std::vector<InputFile>& files) {
  std::vector<std::string> places;
  std::map<std::string, std::string> taken;
  for (const InputFile& file : files) {
    const std::string below = file.name == "-" ? "stdin.sor" : file.below;
    places.push_back((fs::path(folder) / below).string());
    if (!file.problem.empty()) continue;
    const auto [at, free] = taken.emplace(places.back(), file.name);
    if (!free)
      throw Error(ErrorKind::kUsage, file.name,
                  "its result would be " + places.back() + ", as that of " + at->second);
  }
  return places;
}

void MakeFolderOf(const std::string& file) {
  const fs::path folder = fs::path(file).parent_path();
  if (folder.empty()) return;
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw Error(ErrorKind::kUnwritable, folder.string(), "cannot be made: " + error.message());
}

}  // namespace reflyze
