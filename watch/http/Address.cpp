// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Address.h"

#include <algorithm>
#include <cstring>

#include "reflyze/error.h"
#include "watch/store/ServerAddress.h"

namespace reflyze::watch {
namespace {

bool IsPlain(char letter) {
  return letter > ' ' && letter < 127 && std::strchr("\"'<>#;,\\", letter) == nullptr;
}

bool IsOfHost(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || std::strchr(".:-_[]", letter) != nullptr;
}

}  // namespace

std::string OriginOf(const std::string& address) {
  const std::size_t scheme = address.rfind("https://", 0) == 0 ? 8 : address.rfind("http://", 0) == 0 ? 7 : 0;
  const std::size_t end = std::min(address.find_first_of("/?", scheme), address.size());
  const std::string host = address.substr(scheme, end - scheme);
  const bool plain = std::all_of(address.begin(), address.end(), IsPlain);
  if (scheme == 0 || !plain || host.empty() || host[0] == ':') return "";
  return std::all_of(host.begin(), host.end(), IsOfHost) ? address.substr(0, end) : "";
}

std::string PageAddress(std::string address) {
  if (address.empty()) return address;
  if (OriginOf(address).empty() || address.find('?') != std::string::npos)
    throw Error(ErrorKind::kUsage, ShownAddress(address),
                "is no address of a page, such as https://fibres.example:8717/watch");
  while (address.back() == '/') address.pop_back();
  return address;
}

std::string TilesOrigin(const std::string& tiles) {
  if (tiles.empty()) return "";
  std::string origin = OriginOf(tiles);
  // Browsers allow themselves no host in brackets or with "_", and no port without a number.
  bool whole = !origin.empty() && origin.find_first_of("[_") == std::string::npos && origin.back() != ':';
  for (const char* part : {"{z}", "{x}", "{y}"}) whole = whole && tiles.find(part) != std::string::npos;
  if (!whole)
    throw Error(ErrorKind::kUsage, ShownAddress(tiles),
                "is no address of tiles, such as https://tiles.example/{z}/{x}/{y}.png");
  return origin;
}

}  // namespace reflyze::watch
