// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <new>
#include <stdexcept>
#include <string>

#include "reflyze/error.h"

namespace reflyze {

// A stated condition of the engine that a broken trace violated; see util/assertion.h.
// An Error also where it comes up outside of CallEngine: the library has no other failures.
class AssertionProblem : public Error {
 public:
  explicit AssertionProblem(const std::string& what) : Error(ErrorKind::kUnreadable, "", what) {}
};

// From now on a violated condition is an AssertionProblem and not the end of the process.
void UseOwnAssertions();

// Runs `work`, which calls the engine on the record of the file `name`. What the engine throws or asserts
// over a broken record becomes an Error that names the file. `cannot` says what the record then is, as in "is
// not a trace that can be analysed".
template <class Work>
void CallEngine(const std::string& name, const std::string& cannot, Work work) {
  UseOwnAssertions();
  try {
    work();
  } catch (const AssertionProblem& problem) {
    throw Error(ErrorKind::kUnreadable, name, cannot + ": " + problem.what());
  } catch (const std::bad_alloc&) {
    throw Error(ErrorKind::kUnreadable, name, "asks for more memory than there is");
  } catch (const std::length_error&) {
    throw Error(ErrorKind::kUnreadable, name, "a count or size in it cannot be right");
  } catch (int) {
    throw Error(ErrorKind::kUnreadable, name, "a count or size in it cannot be right");
  } catch (const char*) {
    throw Error(ErrorKind::kUnreadable, name, "a count or size in it cannot be right");
  }
}

}  // namespace reflyze
