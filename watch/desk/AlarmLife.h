// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <optional>
#include <vector>

#include "watch/store/Values.h"

namespace reflyze::watch {

// What a trace changes of the alarms of its fibre.
struct AlarmChange {
  Alarm alarm;                  // as it is from now on; number 0 for a new one
  std::optional<Telling> told;  // what people are told of it
};

// One trace's step in the life of a fibre's alarms.
struct AlarmStep {
  Id fibre = 0;
  Id trace = 0;
  Millis at = 0;              // when it was taken
  int confirm = 2;            // traces in a row that confirm an alarm, and as many that clear it
  double shownKm = HUGE_VAL;  // where the trace ends before its fibre does
};

// A finding goes on with the open alarm of its kind and place: of its event in the baseline, or of a place
// that both uncertainties allow. It is confirmed by `confirm` traces in a row; what passes before wakes
// nobody. A confirmed alarm that as many traces in a row don't show is cleared. Behind a break
// and the end of the trace, and where it shows another fibre, nothing can be seen: alarms there neither go on
// nor end.
std::vector<AlarmChange> NextAlarms(const std::vector<Alarm>& open, const std::vector<Finding>& findings,
                                    const AlarmStep& step);

// The same for what creeps. Days tell of it, not single traces, and need no confirmation.
std::vector<AlarmChange> NextTrendAlarms(const std::vector<Alarm>& open, const std::vector<Finding>& creeping,
                                         AlarmStep step);

}  // namespace reflyze::watch
