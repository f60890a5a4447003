// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

class TSorFile;

namespace reflyze {

// Reads `count` bytes of a block whose size stands on file and is not to be trusted: gives those that the
// stream has. The buffer grows with what is found, so a size of gigabytes in a short file costs no more than
// the file.
std::vector<char> ReadBytes(TSorFile& file, long count);

}  // namespace reflyze
