// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "util/assertion.h"

namespace reflyze::test {

// Turns assertions into exceptions for as long as it lives, so that a test survives them.
class AssertionsThrow {
 public:
  AssertionsThrow() : before_(SetAssertionHandler(&Throw)) {}
  AssertionsThrow(const AssertionsThrow&) = delete;
  AssertionsThrow& operator=(const AssertionsThrow&) = delete;
  ~AssertionsThrow() { SetAssertionHandler(before_); }

  struct Failed : std::runtime_error {
    Failed(const char* text, const char* where) : std::runtime_error(text), file(where) {}
    std::string file;
  };

 private:
  [[noreturn]] static void Throw(const char* text, const char* file, int) { throw Failed(text, file); }

  AssertionHandler before_;
};

// The text of the assertion that an action fails, with the file behind it on request. Empty if it fails none.
template <class Action>
std::string AssertionOf(Action&& action, std::string* file = nullptr) {
  AssertionsThrow throwing;
  try {
    action();
  } catch (const AssertionsThrow::Failed& failed) {
    if (file != nullptr) *file = failed.file;
    return failed.what();
  }
  return "";
}

}  // namespace reflyze::test
