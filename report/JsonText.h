#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace reflyze {

// A value as JSON, without a line end; `indent` blanks a level, or one line for a negative one. Numbers have
// the fewest digits that read back the same, and none is -0; letters that are no UTF-8 become U+FFFD. The
// JSON library's own writer keeps none of this, and asks the C library for a decimal point in memory that
// threads share.
std::string JsonText(const nlohmann::ordered_json& value, int indent = -1);

nlohmann::ordered_json NumberOrNull(std::optional<double> value);

}  // namespace reflyze
