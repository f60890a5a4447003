// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "reflyze/export.h"

// Texts between people, files and terminals.

namespace reflyze {

// A text as one line that is safe on a terminal: control characters, also the second set in UTF-8, become
// question marks.
REFLYZE_API std::string OneLine(const std::string& text);

// The name of a file for people: "standard input" for "-".
REFLYZE_API std::string ShownName(const std::string& file);

// Whether texts of records can be read in the encoding of that name; see OpenOptions.
REFLYZE_API bool IsTextEncoding(const std::string& name);

// Why a text is no number between two bounds, in words; empty where it is one.
REFLYZE_API std::string WhyNoNumber(const std::string& text, double least, double most);

}  // namespace reflyze
