// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace reflyze::watch {

// Whether a store is on a PostgreSQL server, and no file.
bool IsServer(const std::string& store);

// Throws Error kUsage for a store that is no name of a file and no address that can be read in one way: "@",
// "/" and "?" in a name or password are written %40, %2F and %3F. What it says tells no password.
void ExpectStore(const std::string& store);

// An address as messages may show it: without who logs in and what stands behind the "?", which may be
// secrets. Of one that can be read in several ways its scheme alone.
std::string ShownAddress(const std::string& address);
// A store likewise; a file as it is.
std::string ShownStore(const std::string& store);

// The address of a server, with how long to wait for a network that swallows everything where it does not
// say.
std::string WithPatience(std::string address);

}  // namespace reflyze::watch
