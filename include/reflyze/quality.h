// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "reflyze/events.h"

namespace reflyze {

// What can be said of an event's loss.
enum class Measurable {
  kNo = 0,
  kYes = 1,
  kEndsRange = 2,  // the range of the measurement ends with it
};

// An event, and how far it can be believed.
struct JudgedEvent {
  int number = 0;                           // from 1, along the fibre
  double distanceKm = 0.0;                  // km from the user's zero
  std::optional<double> distanceSdM;        // standard deviation of the place that was measured, m
  std::string code;                         // SR-4731 event code
  std::optional<double> lossDb;             // dB, below 0 for a gain
  std::optional<double> lossSdDb;           // its standard deviation, dB; none where it was not measured
  std::optional<double> probability;        // that the event is real, from 0 to 1
  double trustM = 0.0;                      // either side of its place, m; with 95 % where that was measured
  Measurable measurable = Measurable::kNo;  // whether its loss is
  std::optional<double> twoPulseLossDb;     // with the help of a longer pulse
};

// What is known of the launch: nothing, that it blinds the receiver, or its level.
enum class LaunchState { kUnknown = 0, kSaturated = 1, kMeasured = 2 };

// How far a trace and its events can be believed.
struct QualityTable {
  std::string file;                              // of the trace
  std::optional<std::string> longPulseFile;      // of the one with a longer pulse
  double pulseNs = 0.0;                          // ns
  Measurement measurement = Measurement::kNone;  // of the numbers below: kDone or kFailed
  bool fibre = true;              // false: the trace shows none, and there is nothing else to tell
  double lengthKm = 0.0;          // km, of the fibre
  double noiseFloorDb = 0.0;      // dB, a level of the trace
  std::vector<JudgedEvent> rows;  // along the fibre
  double measurableKm = 0.0;   // up to which losses can be measured: where not all can, the first that can't
  bool allMeasurable = false;  // every loss can be measured
  LaunchState launch = LaunchState::kUnknown;  // what is known of it
  float launchQuality = 0.0f;                  // smaller is better
  float launchLevelDb = 0.0f;                  // backscatter at the launch
  int lastPercent = 0;                         // percent of the range, as asked
  bool endInLastPercent = false;               // the fibre ends there
  std::vector<Warning> warnings;               // what a user should know
};

// How a trace is judged.
struct QualityOptions {
  std::optional<Trace> longPulse;  // the same fibre with a longer pulse, for losses within dead zones
  int lastPercent = 10;            // does the fibre end in the last so many percent of the range?
};

// Tells how far each event's place and loss can be trusted; what has no events is analysed first. Throws
// Error kUnreadable for traces that can't be measured, kUsage for a percentage not from 0 to 100.
REFLYZE_API QualityTable Quality(Trace trace, const QualityOptions& options = {});

}  // namespace reflyze
