// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

#include "watch/desk/AlarmLife.h"

namespace reflyze::watch {

// A fibre whose traces are expected.
struct Expected {
  Id fibre = 0;
  std::string name, instrument;
  long everySeconds = 0;
  Millis since = 0;  // when a trace came last, or the fibre began to be watched
};

// What of all that is silent now: the fibres from which nothing has come for more than twice the time in
// which a trace is expected; where that is so of all fibres of an instrument, two at least, the instrument. A
// clock that was set at `jumpedAt` makes nothing silent before the same time has passed again.
struct Silent {
  std::vector<Expected> fibres;
  std::vector<std::string> instruments;
};
Silent SilentOf(const std::vector<Expected>& expected, Millis now, Millis jumpedAt);

// What that changes of the alarms of silence, which are `open`. They need no confirmation.
std::vector<AlarmChange> NextSilence(const std::vector<Alarm>& open, const Silent& silent, Millis now);

}  // namespace reflyze::watch
