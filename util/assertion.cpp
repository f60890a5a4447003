// SPDX-License-Identifier: Apache-2.0
#include "util/assertion.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

// The module keeps a handler of its own, which its host cannot reach through the four functions that it
// exports. A host that wants a say in the module's assertions too defines this function and exports it from
// its executable; the dynamic linker joins the two when the module is loaded.
extern "C" __attribute__((weak, visibility("default"))) void ReflyzeHostAssertion(const char* text,
                                                                                  const char* file, int line);

namespace reflyze {
namespace {

std::atomic<AssertionHandler> currentHandler{nullptr};

}  // namespace

AssertionHandler SetAssertionHandler(AssertionHandler handler) { return currentHandler.exchange(handler); }

void AssertionFailed(const char* text, const char* file, int line) {
  if (AssertionHandler handler = currentHandler.load()) {
    handler(text, file, line);
  } else if (ReflyzeHostAssertion != nullptr) {
    ReflyzeHostAssertion(text, file, line);
  } else {
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  }
  std::abort();
}

}  // namespace reflyze
