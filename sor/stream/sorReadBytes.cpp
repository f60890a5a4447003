// SPDX-License-Identifier: Apache-2.0
#include "sor/stream/sorReadBytes.h"

#include <algorithm>

#include "sor/stream/sorFile.h"

namespace reflyze {

std::vector<char> ReadBytes(TSorFile& file, long count) {
  constexpr long kFirstPiece = 65536;  // one read for all but the largest blocks
  std::vector<char> bytes;
  long found = 0;
  while (found < count) {
    const long piece = std::min(count - found, std::max(kFirstPiece, found));
    bytes.resize(static_cast<size_t>(found + piece));
    const unsigned long before = file.Tell();
    file.Read(bytes.data() + found, static_cast<unsigned long>(piece));
    const long got = static_cast<long>(file.Tell() - before);
    found += std::clamp(got, 0L, piece);
    if (got < piece) break;
  }
  bytes.resize(static_cast<size_t>(found));
  return bytes;
}

}  // namespace reflyze
