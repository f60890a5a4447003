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
  Id lastGood = 0;  // the last trace that told how the fibre is: it could be compared, and was the newest
  Id baseline = 0;
  Millis backlogAt = 0;  // when a trace came last behind such as wait for long; 0 if none does
  Millis quiet = 0;      // for how long there was no sign of life while this centre looked on
  bool bad = false;      // what came since told nothing of now
};

// What of all that is silent: the fibres from which nothing has come for more than twice the time in which a
// trace is expected; where that is so of all fibres of an instrument, two at least, the instrument.
struct Silent {
  std::vector<Expected> fibres;
  std::vector<std::string> instruments;
};
Silent SilentOf(const std::vector<Expected>& expected);

// What that changes of the alarms of silence, which are `open`. They need no confirmation, and end with a
// trace that tells how the fibre is, whoever looks and whatever the clocks say: `lastTrace` is the last one
// before.
std::vector<AlarmChange> NextSilence(const std::vector<Alarm>& open, const std::vector<Expected>& expected,
                                     Millis now);

}  // namespace reflyze::watch
