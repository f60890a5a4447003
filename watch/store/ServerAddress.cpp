// SPDX-License-Identifier: Apache-2.0
#include "watch/store/ServerAddress.h"

#include <cctype>

#include "reflyze/error.h"

namespace reflyze::watch {
namespace {

// Where it begins behind its scheme; 0 without one.
std::size_t BehindScheme(const std::string& address) {
  const std::size_t scheme = address.find("://");
  return scheme == std::string::npos ? 0 : scheme + 3;
}

// Who logs in stands before the only "@", and that before all else.
bool HasOneReading(const std::string& address) {
  const std::size_t first = address.find_first_of("@/?", BehindScheme(address));
  const std::size_t last = address.rfind('@');
  return last == std::string::npos || last == first;
}

bool HasWholeEscapes(const std::string& address) {
  for (std::size_t at = address.find('%'); at != std::string::npos; at = address.find('%', at + 1)) {
    if (at + 2 >= address.size() || std::isxdigit(static_cast<unsigned char>(address[at + 1])) == 0 ||
        std::isxdigit(static_cast<unsigned char>(address[at + 2])) == 0)
      return false;
  }
  return true;
}

}  // namespace

std::string ShownAddress(const std::string& address) {
  const std::size_t begin = BehindScheme(address), at = address.rfind('@');
  if (begin == 0) return address;
  if (!HasOneReading(address)) return address.substr(0, begin) + "...";
  const std::size_t shown = at == std::string::npos ? begin : at + 1;
  return address.substr(0, begin) + address.substr(shown, address.find('?') - shown);
}

void ExpectOneReading(const std::string& address) {
  if (!HasOneReading(address))
    throw Error(ErrorKind::kUsage, ShownAddress(address),
                "the address is written with %40, %2F and %3F for each @, / and ? in a name or password");
  if (!HasWholeEscapes(address))
    throw Error(ErrorKind::kUsage, ShownAddress(address), "the address has a % without its two digits");
}

std::string WithPatience(std::string address) {
  for (const char* setting : {"connect_timeout=10", "tcp_user_timeout=30000", "keepalives_idle=30"}) {
    const std::string text = setting;
    if (address.find(text.substr(0, text.find('=') + 1)) != std::string::npos) continue;
    address += (address.find('?') == std::string::npos ? '?' : '&') + text;
  }
  return address;
}

}  // namespace reflyze::watch
