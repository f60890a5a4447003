// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace reflyze::watch {

// An address as messages may show it: without who logs in and what stands behind the "?", which may be
// secrets. Of one that can be read in several ways its scheme alone.
std::string ShownAddress(const std::string& address);

// Throws Error kUsage unless signs in the address of a server mean one thing: "@", "/" and "?" in a name or
// password are written %40, %2F and %3F. Readers that split it elsewhere would tell half a password as a
// host.
void ExpectOneReading(const std::string& address);

// The address of a server, with how long to wait for a network that swallows everything where it does not
// say.
std::string WithPatience(std::string address);

}  // namespace reflyze::watch
