// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace reflyze::bench {

// The most that the program has held on the heap at once since Restart, over what it held then; bytes.
class HeapPeak {
 public:
  static void Restart();
  static long Bytes();
};

}  // namespace reflyze::bench
