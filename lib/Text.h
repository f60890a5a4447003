// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "reflyze/text.h"
#include "util/tstring.h"

namespace reflyze {

// printf into a string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// For printing with so many decimals: a value that rounds to 0 there has no sign.
double NoMinusZero(double value, int decimals);

// How the texts of records are read: "auto" takes those that are valid UTF-8 so and others as ISO 8859-1;
// else the encoding of that name, of those that the C library knows.
class TextEncoding {
 public:
  TextEncoding() = default;
  // Throws Error kUsage for a name that is not known.
  explicit TextEncoding(const std::string& name);

  // A text of a record as UTF-8. What the encoding can't read becomes U+FFFD.
  std::string Utf8(const char* bytes, size_t length) const;
  std::string Utf8(const TString& text) const;

  // The other way: none where the encoding lacks a letter. "auto" writes UTF-8, by which such a text is then
  // read.
  std::optional<std::string> FromUtf8(const std::string& text) const;

  const std::string& name() const { return name_; }

 private:
  std::string name_ = "auto";
};

// A text that should be UTF-8, such as the name of a file, with U+FFFD for each byte that is not. For a name
// that is no UTF-8 there is no text that says it exactly; the mark says that this is not it, which letters
// guessed for the bytes would hide.
std::string ValidUtf8(const std::string& text);

// A text without the blanks around it.
std::string Trimmed(std::string_view text, const char* blanks = " \t\r");

// What a terminal would act on instead of showing it.
bool IsControl(char c);

// Lower-case hexadecimal.
std::string Hex(const char* bytes, size_t length);

}  // namespace reflyze
