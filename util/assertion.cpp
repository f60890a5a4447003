#include "util/assertion.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace reflyze {
namespace {

std::atomic<AssertionHandler> currentHandler{nullptr};

}  // namespace

AssertionHandler SetAssertionHandler(AssertionHandler handler) { return currentHandler.exchange(handler); }

void AssertionFailed(const char* text, const char* file, int line) {
  if (AssertionHandler handler = currentHandler.load()) {
    handler(text, file, line);
  } else {
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  }
  std::abort();
}

}  // namespace reflyze
