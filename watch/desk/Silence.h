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
  // When a trace came last that told of now or may yet do so, the first one that did not (it could not be
  // compared, or is older than those before), or the fibre began to be watched, by the clock of then.
  Millis toldAt = 0;
  Millis quiet = 0;    // for how long none has come while this centre looked on
  bool heard = false;  // one has, since it looks on
  bool bad = false;    // what came last told nothing of now
};

// What of all that is silent: the fibres from which nothing has come for more than twice the time in which a
// trace is expected; where that is so of all fibres of an instrument, two at least, the instrument.
struct Silent {
  std::vector<Expected> fibres;
  std::vector<std::string> instruments;
};
Silent SilentOf(const std::vector<Expected>& expected);

// What that changes of the alarms of silence, which are `open`. They need no confirmation, and end when a
// trace has come: a centre that has just begun to look on knows nothing yet.
std::vector<AlarmChange> NextSilence(const std::vector<Alarm>& open, const std::vector<Expected>& expected,
                                     Millis now);

}  // namespace reflyze::watch
