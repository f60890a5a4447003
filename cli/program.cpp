// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include "cli/Session.h"
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

// Records come and go by the thousand, each with a few arrays of some hundred kilobytes. Memory that is
// handed back to the system after each of them has to be asked for and cleared again for the next, which
// takes as long as reading a file does and a tenth of the engine's time on a trace.
void KeepFreedMemory() {
#ifdef __GLIBC__
  constexpr int kKeptBytes = 256 << 20, kLargestKeptBlock = 32 << 20;
  mallopt(M_TRIM_THRESHOLD, kKeptBytes);
  mallopt(M_MMAP_THRESHOLD, kLargestKeptBlock);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  KeepFreedMemory();
  return reflyze::cli::Main(argc, argv, std::cin, std::cout, std::cerr);
}
