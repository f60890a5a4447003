// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Text.h"

#include <sodium.h>

#include <charconv>
#include <sstream>

namespace reflyze::watch {
namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr int kHexadecimal = 16;
constexpr unsigned char kDelete = 0x7f;

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

// How many bytes the letter at `at` has in UTF-8; 0 where none begins there.
std::size_t LetterBytes(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned first = byte(at), second = byte(at + 1);
  const std::size_t bytes = first < 0x80u                     ? 1
                            : first >= 0xc2u && first < 0xe0u ? 2
                            : first >= 0xe0u && first < 0xf0u ? 3
                            : first >= 0xf0u && first < 0xf5u ? 4
                                                              : 0;
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(at + i) & 0xc0u) != 0x80u) return 0;
  }
  // Longer than it need be, half of a pair, or beyond the last letter.
  const bool wrong = (first == 0xe0u && second < 0xa0u) || (first == 0xedu && second >= 0xa0u) ||
                     (first == 0xf0u && second < 0x90u) || (first == 0xf4u && second >= 0x90u);
  return wrong ? 0 : bytes;
}

bool IsUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t bytes = LetterBytes(text, at);
    if (bytes == 0) return false;
    at += bytes;
  }
  return true;
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
  if (!IsUtf8(plain)) return std::nullopt;  // a database takes no other text
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
