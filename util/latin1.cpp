// SPDX-License-Identifier: Apache-2.0
#include "util/latin1.h"

namespace reflyze {

std::string Latin1(const std::string& utf8) {
  std::string text;
  for (size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    const bool two = (byte == 0xC2 || byte == 0xC3) && i + 1 < utf8.size();
    if (byte < 0x80) {
      text += byte == 0 ? '?' : utf8[i];
    } else if (two) {
      text += static_cast<char>((byte << 6) | (static_cast<unsigned char>(utf8[++i]) & 0x3F));
    } else if (byte >= 0xC0) {
      text += '?';  // the bytes that follow belong to the same letter
    }
  }
  return text;
}

}  // namespace reflyze
