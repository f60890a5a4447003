// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "cli/Session.h"
#include "reflyze/text.h"

namespace reflyze::cli {

// Does the same with each of several traces, in order. One that fails costs its line on standard error and
// the others go on; a single one ends the command. Gives the worst status.
inline int ForEachTrace(Session& session, const std::vector<std::string>& traces,
                        const std::function<void(const std::string&, size_t)>& work) {
  int status = kDone;
  for (size_t i = 0; i < traces.size(); ++i) {
    try {
      // Standard input can be read once.
      if (traces[i] == "-" &&
          std::find(traces.begin(), traces.end(), "-") != traces.begin() + static_cast<long>(i))
        throw Error(ErrorKind::kUnreadable, ShownName("-"), "was read for an earlier trace");
      work(traces[i], i);
    } catch (const Error& error) {
      session.Warn(error.what());
      status = std::max<int>(status, StatusOf(error));
    } catch (const std::exception& error) {
      session.Warn(ShownName(traces[i]) + ": " + error.what());
      status = std::max<int>(status, kUnreadable);
    }
  }
  return status;
}

}  // namespace reflyze::cli
