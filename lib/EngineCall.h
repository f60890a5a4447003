#pragma once

#include <new>
#include <stdexcept>
#include <string>

#include "reflyze/error.h"

namespace reflyze {

// A stated condition of the engine that a broken trace violated; see util/assertion.h.
class AssertionProblem : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// From now on a violated condition is an AssertionProblem and not the end of the process.
void UseOwnAssertions();

// Runs `work`, a piece of the engine's work on the record of the file `name`. What the engine throws or
// asserts over a broken record becomes an Error that names the file; `cannot` says what the record then is,
// as in "is not a trace that can be analysed".
template <class Work>
void CallEngine(const std::string& name, const std::string& cannot, Work work) {
  UseOwnAssertions();
  try {
    work();
  } catch (const AssertionProblem& problem) {
    throw Error(ErrorKind::kUnreadable, name, cannot + ": " + problem.what());
  } catch (const std::bad_alloc&) {
    throw Error(ErrorKind::kUnreadable, name, "asks for more memory than there is");
  } catch (int) {
    throw Error(ErrorKind::kUnreadable, name, "a count or size in it cannot be right");
  } catch (const char* text) {
    throw Error(ErrorKind::kUnreadable, name, std::string("is damaged: ") + text);
  }
}

}  // namespace reflyze
