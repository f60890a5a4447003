// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <exception>

namespace reflyze::watch {

// What should never happen, and must not end the centre: a line for whoever reads its journal.
inline void Complain(const char* doing, const std::exception& error) {
  std::fprintf(stderr, "reflyze watch: %s: %s\n", doing, error.what());
}

}  // namespace reflyze::watch
