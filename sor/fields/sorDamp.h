// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

// Headings of the text dump of a record.
namespace reflyze {

// The name of a block, set between two rules.
inline void DumpRuledHeading(FILE* out, const char* name) {
  constexpr const char* kRule = "========================================";
  std::fprintf(out, "%s\n// %s \n%s\n", kRule, name, kRule);
}

// The name of a block on a line of its own.
inline void DumpHeading(FILE* out, const char* name) { std::fprintf(out, "// %s \n", name); }

}  // namespace reflyze
