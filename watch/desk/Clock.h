// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "watch/store/Values.h"

namespace reflyze::watch {

// The time by the clock of this machine.
inline Millis Now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The time since some moment, by a clock that nobody sets.
inline Millis SteadyNow() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Whether a time is later than any clock can be ahead: one in another time zone is within a day.
inline bool IsAhead(Millis time, Millis now) { return time > now + kMillisPerDay; }

}  // namespace reflyze::watch
