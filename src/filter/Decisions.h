// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

// Why the engine decided as it did: what a stage looked at, and what it chose. Off until somebody listens
// (AnalysisSettings::decisions); then each decision costs a test of a pointer. What is noted changes no
// result.

namespace reflyze {

// Which stage decided. They stand in the order in which an analysis runs them.
enum class Stage {
  kScan,         // walk of the automatic filter: where it opens events, and where it stops
  kTail,         // ends of the fibre behind the scan
  kEchoes,       // events of the filter that are echoes
  kDetectors,    // splices that the detectors find between those events
  kFineSplices,  // weak splices on quiet stretches
  kWalk,         // direct search: from the start of the fibre to its end
  kEndEchoes,    // direct search: ends that are echoes, reflections out of the noise
  kInside,       // direct search: events inside the lines
  kSelection,    // what passes the thresholds
  kTable,        // the record's event table
};

// What it chose.
enum class Choice {
  kFound,    // an event
  kDropped,  // an event that was found before
  kEnd,      // the end of the fibre
  kNoEnd,    // a place that is no end after all
};

// Where there is no single limit.
constexpr double kNoLimit = std::numeric_limits<double>::quiet_NaN();

struct Decision {
  Stage stage;
  Choice choice;
  double owt;          // the place, one-way time in 100 ps from the trace's own zero
  double value;        // what was looked at ...
  double limit;        // ... and what it was held against, or kNoLimit
  const char* unit;    // of both: "dB", "dB/km", "km", "grade", "events"
  const char* reason;  // a short sentence
};

// Who listens. The texts of a decision last as long as the program.
class DecisionSink {
 public:
  virtual void Note(const Decision& decision) = 0;

 protected:
  DecisionSink() = default;
  DecisionSink(const DecisionSink&) = default;
  DecisionSink& operator=(const DecisionSink&) = default;
  ~DecisionSink() = default;
};

// Names for listings, such as "selection" and "dropped".
const char* NameOf(Stage stage);
const char* NameOf(Choice choice);

}  // namespace reflyze
