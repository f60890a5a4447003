// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Text.h"

#include <sodium.h>

#include <charconv>
#include <sstream>

namespace reflyze::watch {
namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr int kHexadecimal = 16;
constexpr unsigned char kFirstLetter = 0x20, kDelete = 0x7f;

// Greedy with one step back: as long as there is one "*" behind which to try again, nothing more is needed.
bool Matches(const std::string& name, const std::string& pattern) {
  std::size_t at = 0, in = 0, star = std::string::npos, from = 0;
  while (at < name.size()) {
    if (in < pattern.size() && pattern[in] == '*') {
      star = in++;
      from = at;
    } else if (in < pattern.size() && pattern[in] == name[at]) {
      ++in;
      ++at;
    } else if (star != std::string::npos) {
      in = star + 1;
      at = ++from;
    } else {
      return false;
    }
  }
  while (in < pattern.size() && pattern[in] == '*') ++in;
  return in == pattern.size();
}

}  // namespace

std::optional<std::string> Unescape(const std::string& text, bool plusIsBlank) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char letter = text[i];
    if (letter == '+' && plusIsBlank) letter = ' ';
    if (letter == '%') {
      unsigned char code = 0;
      const char* begin = text.data() + i + 1;
      if (i + 2 >= text.size() || std::from_chars(begin, begin + 2, code, kHexadecimal).ptr != begin + 2)
        return std::nullopt;
      letter = static_cast<char>(code);
      i += 2;
    }
    const auto code = static_cast<unsigned char>(letter);
    if (code < kFirstLetter || code == kDelete) return std::nullopt;
    plain += letter;
  }
  return plain;
}

std::optional<std::vector<std::string>> PartsOf(const std::string& path) {
  if (path.empty() || path[0] != '/') return std::nullopt;
  std::vector<std::string> parts;
  if (path == "/") return parts;
  for (std::size_t begin = 1; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::optional<std::string> part = Unescape(path.substr(begin, end - begin));
    if (!part || part->empty() || *part == "." || *part == ".." ||
        part->find_first_of("/\\") != std::string::npos)
      return std::nullopt;
    parts.push_back(*part);
    begin = end + 1;
  }
  return parts;
}

std::optional<std::string> FromBase64(const std::string& text) {
  std::string plain(text.size(), '\0');
  std::size_t size = 0;
  const char* end = nullptr;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(plain.data()), plain.size(), text.data(),
                        text.size(), nullptr, &size, &end, sodium_base64_VARIANT_ORIGINAL) != 0 ||
      end != text.data() + text.size())
    return std::nullopt;
  plain.resize(size);
  return plain;
}

bool IsListed(const std::string& name, const std::string& list) {
  std::istringstream patterns(list);
  for (std::string pattern; patterns >> pattern;) {
    if (Matches(name, pattern)) return true;
  }
  return false;
}

std::string InSmallLetters(std::string text) {
  for (char& letter : text) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return text;
}

std::optional<long long> WholeNumberIn(const std::string& text, long long least, long long most) {
  long long value = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, problem] = std::from_chars(text.data(), end, value);
  if (problem != std::errc() || stopped != end || value < least || value > most) return std::nullopt;
  return value;
}

std::string NewSecret() {
  unsigned char bytes[kSecretBytes];
  randombytes_buf(bytes, sizeof bytes);
  char text[sodium_base64_ENCODED_LEN(kSecretBytes, sodium_base64_VARIANT_URLSAFE_NO_PADDING)];
  return sodium_bin2base64(text, sizeof text, bytes, sizeof bytes, sodium_base64_VARIANT_URLSAFE_NO_PADDING);
}

}  // namespace reflyze::watch
