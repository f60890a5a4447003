// SPDX-License-Identifier: Apache-2.0
#pragma once

// An event found on the samples. All but `gradeUp`, `gradeDown`, `width` and `type` are point indices.
class TFEvent {
 public:
  int begin = 0;    // first point of the event
  int rise = 0;     // where the rise or the step is over
  int peak = 0;     // the maximum, or the steepest fall
  int end = 0;      // first point behind the event, where a section can start
  int tail = 0;     // end of a disturbance behind the event, 0 for none
  int gradeUp = 0;  // reflection: whole part of log2(height / limit + 1), 0 or more
  // Fall in doublings of the detection limit, 0 or less; the splice detectors store steps of their limit,
  // positive for a loss.
  int gradeDown = 0;
  int width = 0;  // points
  char type = 0;  // letter of the event (EventLetters.h); 0 for none yet

  // The stronger of the two grades.
  int Am() const { return gradeUp > -gradeDown ? gradeUp : -gradeDown; }
};
