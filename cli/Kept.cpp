// SPDX-License-Identifier: Apache-2.0
#include "cli/Kept.h"

#include <charconv>
#include <filesystem>

namespace reflyze::cli {
namespace {

constexpr const char* kListName = ".reflyze-done";
constexpr const char* kTitle = "reflyze results 1\n";

// A text as its length, a space and itself: no text can break the list.
std::string Framed(const std::string& text) { return std::to_string(text.size()) + " " + text; }
std::string Framed(size_t number) { return Framed(std::to_string(number)); }

class Unframed {
 public:
  explicit Unframed(const std::string& text, size_t at = 0) : text_(text), at_(at) {}

  bool AtEnd() const { return at_ == text_.size(); }
  size_t at() const { return at_; }
  std::optional<std::string> Next() {
    size_t size = 0;
    const char* const from = text_.data() + at_;
    const auto [end, error] = std::from_chars(from, text_.data() + text_.size(), size);
    const size_t begin = static_cast<size_t>(end - text_.data()) + 1;
    if (error != std::errc() || begin > text_.size() || *end != ' ' || size > text_.size() - begin)
      return std::nullopt;
    at_ = begin + size;
    return text_.substr(begin, size);
  }
  std::optional<size_t> NextNumber() {
    const std::optional<std::string> text = Next();
    size_t number = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc())
      return std::nullopt;
    return number;
  }

 private:
  const std::string& text_;
  size_t at_;
};

bool IsAsWritten(const std::string& name, const std::string& digest) {
  try {
    const std::vector<char> bytes = ReadFile(name);
    return DigestOf({bytes.begin(), bytes.end()}) == digest;
  } catch (const Error&) {
    return false;  // it is made again
  }
}

std::string Written(const FileResult& result) {
  std::string text =
      Framed(static_cast<size_t>(result.status)) + Framed(result.listing) + Framed(result.warnings.size());
  for (const Warning& warning : result.warnings) text += Framed(warning.file) + Framed(warning.text);
  text += Framed(result.outputs.size());
  for (const Output& output : result.outputs) text += Framed(output.name) + Framed(DigestOf(output.bytes));
  return text;
}

}  // namespace

void Digest::Take(const char* data, size_t size) {
  for (size_t i = 0; i < size; ++i)
    value_ = (value_ ^ static_cast<unsigned char>(data[i])) * 1099511628211ull;
}

void Digest::Take(const std::string& text) {
  const std::string size = std::to_string(text.size()) + " ";
  Take(size.data(), size.size());
  Take(text.data(), text.size());
}

std::string Digest::Text() const { return std::to_string(value_); }

std::string DigestOf(const std::string& bytes) {
  Digest digest;
  digest.Take(bytes);
  return digest.Text();
}

KeptResults::KeptResults(const std::string& folder, bool resume)
    : name_((std::filesystem::path(folder) / kListName).string()) {
  if (resume) Read();
}

void KeptResults::Read() {
  std::string text;
  try {
    const std::vector<char> bytes = ReadFile(name_);
    text.assign(bytes.begin(), bytes.end());
  } catch (const Error&) {
    return;  // nothing was kept
  }
  if (text.rfind(kTitle, 0) != 0) return;
  Unframed list(text, std::string(kTitle).size());
  while (!list.AtEnd()) {
    const std::optional<std::string> key = list.Next();
    const std::optional<std::string> result = key ? list.Next() : std::nullopt;
    if (!result) return;
    if (results_.emplace(*key, *result).second) order_.push_back(*key);
  }
}

std::optional<FileResult> KeptResults::Find(const std::string& key) const {
  const auto found = results_.find(key);
  if (found == results_.end()) return std::nullopt;
  Unframed text(found->second);
  FileResult result;
  const std::optional<size_t> status = text.NextNumber();
  const std::optional<std::string> listing = text.Next();
  if (!status || !listing) return std::nullopt;
  result.status = static_cast<int>(*status);
  result.listing = *listing;
  const size_t warnings = text.NextNumber().value_or(0);
  for (size_t i = 0; i < warnings; ++i) {
    const std::optional<std::string> file = text.Next(), words = file ? text.Next() : std::nullopt;
    if (!words) return std::nullopt;
    result.warnings.push_back({*file, *words});
  }
  const size_t outputs = text.NextNumber().value_or(0);
  for (size_t i = 0; i < outputs; ++i) {
    const std::optional<std::string> name = text.Next(), digest = name ? text.Next() : std::nullopt;
    if (!digest || !IsAsWritten(*name, *digest)) return std::nullopt;
  }
  return text.AtEnd() ? std::optional<FileResult>(result) : std::nullopt;
}

// The whole list is written anew at first: what an earlier run has left may end in a piece of a record.
void KeptResults::Keep(const std::string& key, const FileResult& result) {
  const std::string written = Written(result);
  if (!begun_) {
    begun_ = true;
    std::string all = kTitle;
    for (const std::string& earlier : order_) all += Framed(earlier) + Framed(results_[earlier]);
    try {
      SaveTogether({{name_, all}});
      list_.open(name_, std::ios::binary | std::ios::app);
    } catch (const Error&) {
      // The results themselves are there.
    }
  }
  if (results_.count(key) == 0) list_ << Framed(key) + Framed(written) << std::flush;
}

}  // namespace reflyze::cli
