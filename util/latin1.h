// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace reflyze {

// A text as a record stores it, in ISO 8859-1, from UTF-8. Letters that ISO 8859-1 lacks become question
// marks, and so does a zero, which would end the text.
std::string Latin1(const std::string& utf8);

}  // namespace reflyze
