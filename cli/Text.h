#pragma once

#include <string>

#include "util/tstring.h"

namespace reflyze::cli {

// printf into a string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The bytes of a record's text, taken as ISO 8859-1, as UTF-8.
std::string Utf8(const char* bytes, size_t length);
std::string Utf8(const TString& text);

// What a terminal would act on instead of showing it.
bool IsControl(char c);

// One line for a terminal: control characters become question marks.
std::string OneLine(const std::string& text);

// Lower-case hexadecimal.
std::string Hex(const char* bytes, size_t length);

}  // namespace reflyze::cli
