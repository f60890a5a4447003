#pragma once

#include <stdexcept>
#include <string>

namespace reflyze::cli {

// Exit statuses that scripts rest on.
enum ExitStatus {
  kDone = 0,
  kChanged = 1,     // a comparison found something
  kUsage = 2,       // the command line is wrong
  kUnreadable = 3,  // an input could not be read or is not a usable trace
  kUnwritable = 4,  // an output could not be written
};

// What stops a command: the exit status, and one line "FILE: what is wrong" for standard error.
class Problem : public std::runtime_error {
 public:
  Problem(ExitStatus status, const std::string& line) : std::runtime_error(line), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// A stated condition of the engine that a broken trace violated; see util/assertion.h.
class AssertionProblem : public std::runtime_error {
 public:
  explicit AssertionProblem(const std::string& line) : std::runtime_error(line) {}
};

}  // namespace reflyze::cli
