#pragma once

#include <new>
#include <string>

#include "cli/Problem.h"

namespace reflyze::cli {

// Runs `work`, a piece of the engine's work on the record of the file `name`. What the engine throws or
// asserts over a broken record becomes a Problem that names the file; `verb` says what the record can't be.
template <class Work>
void CallEngine(const std::string& name, const std::string& verb, Work work) {
  try {
    work();
  } catch (const AssertionProblem& problem) {
    throw Problem(kUnreadable, name + ": is not a trace that can be " + verb + ": " + problem.what());
  } catch (const std::bad_alloc&) {
    throw Problem(kUnreadable, name + ": asks for more memory than there is");
  } catch (int) {
    throw Problem(kUnreadable, name + ": a count or size in it cannot be right");
  } catch (const char* text) {
    throw Problem(kUnreadable, name + ": is damaged: " + text);
  }
}

}  // namespace reflyze::cli
