// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// Addresses that people name and browsers get: they stand in messages and in headers, and are nothing else.

namespace reflyze::watch {

// Scheme, host and port of an address ("https://host:8717"); empty for what is no plain address of HTTP:
// blanks, quotation marks, a user with a password, no host.
std::string OriginOf(const std::string& address);

// The address of the page, without what ends it. Throws Error kUsage for what is none.
std::string PageAddress(std::string address);

// The origin of the server that has the tiles behind the map. Throws Error kUsage for an address without
// "{z}", "{x}" and "{y}", or none at all; empty for an empty one.
std::string TilesOrigin(const std::string& tiles);

}  // namespace reflyze::watch
