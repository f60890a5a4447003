#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace reflyze::cli {

// A value as JSON, without a line end; `indent` blanks a level, or one line for a negative one. Numbers have
// the fewest digits that read back the same, and none is -0; letters that are no UTF-8 become U+FFFD. The
// JSON library's own writer keeps none of this, and asks the C library for a decimal point in memory that
// threads share.
std::string JsonText(const nlohmann::ordered_json& value, int indent = -1);

nlohmann::ordered_json NumberOrNull(std::optional<double> value);

// The double next to a decimal: 51995 * 0.001 is none, and shows as 51.995000000000005. `steps` is what the
// unit is divided into.
double NearestDecimal(double value, double steps);
// The double next to the shortest decimal that stands for the float.
double NearestDecimal(float value);

}  // namespace reflyze::cli
