// SPDX-License-Identifier: Apache-2.0

// Runs a fuzz target once over every file of the folders named on the command line. With --pass-over-large it
// leaves out what takes long, as a fuzzer does.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include "tests/fuzz/fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int count = 0;
  const bool passOver = argc > 1 && std::string_view(argv[1]) == "--pass-over-large";
  fuzzing::passOverLarge = passOver;
  for (int i = passOver ? 2 : 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);
      std::ifstream in(entry.path(), std::ios::binary);
      const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++count;
    }
  }
  return count > 0 ? 0 : 1;
}
