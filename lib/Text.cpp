// SPDX-License-Identifier: Apache-2.0
#include "lib/Text.h"

#include <iconv.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "reflyze/error.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD
constexpr char kAuto[] = "auto";

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Bytes of the letter that begins at `at`, 0 if there is none. Only the shortest form of a letter counts, and
// halves of UTF-16 pairs are no letters.
size_t LetterLength(const char* bytes, size_t length, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned first = byte(at);
  if (first < 0x80) return 1;
  const size_t count = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || at + count > length) return 0;
  for (size_t i = 1; i < count; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = byte(at + 1);
  const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return wrong ? 0 : count;
}

bool IsUtf8(const char* bytes, size_t length) {
  for (size_t at = 0; at < length;) {
    const size_t count = LetterLength(bytes, length, at);
    if (count == 0) return false;
    at += count;
  }
  return true;
}

std::string FromLatin1(const char* bytes, size_t length) {
  std::string text;
  text.reserve(length);
  for (size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else {
      text += static_cast<char>(0xC0 | (c >> 6));
      text += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return text;
}

// A converter of the C library, or none.
class Converter {
 public:
  explicit Converter(const std::string& from, const std::string& to = "UTF-8")
      : handle_(iconv_open(to.c_str(), from.c_str())) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (works()) iconv_close(handle_);
  }

  // The C library says "none" by the largest address.
  bool works() const { return reinterpret_cast<uintptr_t>(handle_) != UINTPTR_MAX; }

  // None where a letter of the text has no place in the other encoding.
  std::optional<std::string> ConvertAll(std::string bytes) {
    std::string text;
    char* in = bytes.data();
    size_t left = bytes.size();
    for (bool flushed = false; !flushed;) {
      char chunk[256];
      char* out = chunk;
      size_t room = sizeof chunk;
      flushed = left == 0;  // some encodings have to come back to their first state
      const size_t result = iconv(handle_, flushed ? nullptr : &in, &left, &out, &room);
      text.append(chunk, out);
      if (result == static_cast<size_t>(-1) && errno != E2BIG) return std::nullopt;
      if (result != static_cast<size_t>(-1) && result > 0)
        return std::nullopt;  // letters that stand in for others
    }
    return text;
  }

  std::string Convert(std::string bytes) {
    std::string text;
    char* in = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
      char chunk[256];
      char* out = chunk;
      size_t room = sizeof chunk;
      const size_t result = iconv(handle_, &in, &left, &out, &room);
      text.append(chunk, out);
      if (result != static_cast<size_t>(-1) || errno == E2BIG) continue;
      text += kReplacement;
      if (errno == EINVAL) break;  // the text ends inside a letter
      ++in;
      --left;
    }
    return text;
  }

 private:
  iconv_t handle_;
};

}  // namespace

std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

bool IsTextEncoding(const std::string& name) {
  const std::string lower = LowerCase(name);
  if (lower == kAuto || lower == "utf-8" || lower == "iso-8859-1") return true;
  // An empty name would stand for the encoding of this machine. Behind a slash stand orders to the converter.
  return !name.empty() && name.find('/') == std::string::npos && Converter(name).works();
}

TextEncoding::TextEncoding(const std::string& name) : name_(LowerCase(name)) {
  if (!IsTextEncoding(name))
    throw Error(ErrorKind::kUsage, "", "\"" + name + "\" is no encoding that is known here");
}

std::string TextEncoding::Utf8(const char* bytes, size_t length) const {
  if (name_ == kAuto) {
    return IsUtf8(bytes, length) ? std::string(bytes, length) : FromLatin1(bytes, length);
  }
  if (name_ == "utf-8") return ValidUtf8(std::string(bytes, length));
  if (name_ == "iso-8859-1") return FromLatin1(bytes, length);
  return Converter(name_).Convert(std::string(bytes, length));
}

std::string TextEncoding::Utf8(const TString& text) const {
  return Utf8(text.c_str(), static_cast<size_t>(text.Len()));
}

std::optional<std::string> TextEncoding::FromUtf8(const std::string& text) const {
  if (name_ == kAuto || name_ == "utf-8") return text;
  return Converter("UTF-8", name_).ConvertAll(text);
}

std::string ValidUtf8(const std::string& text) {
  std::string valid;
  valid.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    const size_t count = LetterLength(text.data(), text.size(), at);
    valid += count == 0 ? kReplacement : text.substr(at, count);
    at += count == 0 ? 1 : count;
  }
  return valid;
}

double NoMinusZero(double value, int decimals) {
  return value <= 0.0 && value >= -0.5 * elementary::Exp10(-decimals) ? 0.0 : value;
}

std::string Trimmed(std::string_view text, const char* blanks) {
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return "";
  return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

std::string OneLine(const std::string& text) {
  std::string line;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool second = text[i] == '\xC2' && i + 1 < text.size() && (text[i + 1] & 0xE0) == 0x80;
    line += second || IsControl(text[i]) ? '?' : text[i];
    if (second) ++i;
  }
  return line;
}

std::string ShownName(const std::string& file) { return file == "-" ? "standard input" : OneLine(file); }

std::string WhyNoNumber(const std::string& text, double least, double most) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || std::isnan(number))
    return "\"" + text + "\" is no number";
  if (number < least || number > most)
    return Format("%s is not between %g and %g", text.c_str(), least, most);
  return "";
}

std::string Hex(const char* bytes, size_t length) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * length);
  for (size_t i = 0; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace reflyze
