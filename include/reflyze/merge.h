// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "reflyze/events.h"

namespace reflyze {

// An event as one direction measured it. The launch and the end are no joints and have no loss.
struct DirectionOfEvent {
  bool listed = false;                  // in its table
  bool seen = false;                    // by its own measurement
  std::string code;                     // SR-4731 event code
  std::optional<double> lossDb;         // dB, below 0 for a gain
  std::optional<double> lossSdDb;       // its standard deviation, dB; none where it was not measured
  std::optional<double> reflectanceDb;  // dB, negative
};

// An event as both directions have it.
struct MergedEvent {
  double distanceKm = 0.0;             // from the first end
  DirectionOfEvent a, b;               // from the first end, and from the other
  std::optional<double> meanLossDb;    // dB, of both directions
  std::optional<double> meanLossSdDb;  // its standard deviation, dB; none unless both were measured
  // Of the section before it, mean of both directions, else of the one that has it.
  std::optional<double> attenuationDbPerKm;
  std::optional<double> attenuationSdDbPerKm;  // its standard deviation, dB/km
};

// Two directions of one fibre in one table.
struct MergedTable {
  std::string fileA, fileB;       // of the traces
  double pulseNs = 0.0;           // ns
  double lengthKm = 0.0;          // km, of the fibre
  std::vector<MergedEvent> rows;  // along the fibre
  std::vector<Warning> warnings;  // what a user should know
  StoredRecord recordA, recordB;  // each direction with the events of both
};

// How two directions are merged.
struct MergeOptions {
  Thresholds thresholds;       // with any, or with a document, both traces are analysed first
  ThresholdDocument document;  // for thresholds that are not given
};

// Brings the events of both directions of a fibre together; what has no events is analysed first. A joint's
// loss is the mean of both directions, which the change of the backscatter drops out of (IEC 61280-4-2).
// Throws Error kUnreadable for traces that can't be measured or are no two directions of one fibre, kUsage
// for a threshold out of its bounds.
REFLYZE_API MergedTable Merge(Trace a, Trace b, const MergeOptions& options = {});

}  // namespace reflyze
