// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace reflyze::watch {

// JSON on one line, as the store and the network take it: bytes that are no UTF-8 become U+FFFD.
inline std::string JsonLine(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace reflyze::watch
