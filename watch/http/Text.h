// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace reflyze::watch {

constexpr unsigned char kFirstLetter = 0x20;  // what is below steers a terminal or a protocol

// What "%41" and the like mean, in UTF-8. None for a half escape, for bytes that are no letters, and for
// letters that end a line or a text.
std::optional<std::string> Unescape(const std::string& text, bool plusIsBlank = false);

// The parts of a path between its slashes, decoded. None for a path that tries to be another: with "." or
// ".." as a part, an empty part, or a slash that was escaped.
std::optional<std::vector<std::string>> PartsOf(const std::string& path);

// What base64 means; none where it is none.
std::optional<std::string> FromBase64(const std::string& text);

// Whether a name is one of a list with a blank between, where "*" stands for any letters.
bool IsListed(const std::string& name, const std::string& list);

std::string InSmallLetters(std::string text);

// A whole number from `least` to `most`; none for anything else.
std::optional<long long> WholeNumberIn(const std::string& text, long long least, long long most);

// A random secret for addresses and headers: 32 bytes.
std::string NewSecret();

}  // namespace reflyze::watch
