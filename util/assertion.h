// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/export.h"

namespace reflyze {

// Called when a stated condition does not hold: the text of the condition, the file and the line. A handler
// may throw, so that a host can turn a broken trace into an error of its own; one that returns ends the
// process.
using AssertionHandler = void (*)(const char* text, const char* file, int line);

// Replaces the handler and returns the one before. Null brings back the default, which calls the function
// `ReflyzeHostAssertion` if the host's executable exports one (this is how a host reaches the module's copy),
// and else prints text, file and line on standard error and stops the process.
REFLYZE_API AssertionHandler SetAssertionHandler(AssertionHandler handler);

// What every failed assertion calls: the handler, or the default above. Does not return.
[[noreturn]] REFLYZE_API void AssertionFailed(const char* text, const char* file, int line);

// States a condition that only a programming error or a broken record can violate.
inline void Require(bool holds, const char* text, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (!holds) AssertionFailed(text, file, line);
}

}  // namespace reflyze
