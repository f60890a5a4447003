// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "reflyze/limits.h"

namespace reflyze {

// A value as JSON, without a line end. `indent` is in blanks a level; a negative one gives a single line.
// Numbers have the fewest digits that read back the same, and none is -0. Letters that are no UTF-8 become
// U+FFFD. The JSON library's own writer does none of this, and it asks the C library for a decimal point in
// memory that threads share.
std::string JsonText(const nlohmann::ordered_json& value, int indent = -1);

nlohmann::ordered_json NumberOrNull(std::optional<double> value);
nlohmann::ordered_json WordOrNull(Verdict verdict);

}  // namespace reflyze
