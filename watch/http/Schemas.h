// SPDX-License-Identifier: Apache-2.0
#pragma once

// The words of the interface's description.

namespace reflyze::watch {

extern const char* const kQueryMeanings;  // JSON: of each name behind the "?"
extern const char* const kSchemas;        // JSON: of each body

}  // namespace reflyze::watch
