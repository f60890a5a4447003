// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reflyze/error.h"

namespace reflyze::cli {

// Exit statuses that scripts rest on.
enum ExitStatus {
  kDone = 0,
  kChanged = 1,     // a comparison found something
  kUsage = 2,       // the command line is wrong
  kUnreadable = 3,  // an input could not be read or is not a usable trace
  kUnwritable = 4,  // an output could not be written
  kFails = 5,       // a link fails its limits
};

// The exit status for an error that has stopped a command.
inline ExitStatus StatusOf(const Error& error) {
  switch (error.kind()) {
    case ErrorKind::kUsage:
      return kUsage;
    case ErrorKind::kUnwritable:
      return kUnwritable;
    case ErrorKind::kUnreadable:
      break;
  }
  return kUnreadable;
}

}  // namespace reflyze::cli
