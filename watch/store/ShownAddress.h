// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace reflyze::watch {

// An address as messages may show it: without who logs in and what stands behind the "?", which may be
// secrets.
inline std::string ShownAddress(std::string address) {
  const std::size_t scheme = address.find("://");
  if (scheme == std::string::npos) return address;
  const std::size_t begin = scheme + 3, at = address.rfind('@');
  if (at != std::string::npos && at >= begin) address.erase(begin, at + 1 - begin);
  return address.substr(0, address.find('?'));
}

}  // namespace reflyze::watch
