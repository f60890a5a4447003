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

struct JudgedEvent {
  int number = 0;
  double distanceKm = 0.0;
  std::string code;  // SR-4731 event code
  std::optional<double> lossDb;
  double trustM = 0.0;  // either side of its place
  Measurable measurable = Measurable::kNo;
  std::optional<double> twoPulseLossDb;  // with the help of a longer pulse
};

enum class LaunchState { kUnknown = 0, kSaturated = 1, kMeasured = 2 };

// How far a trace and its events can be believed.
struct QualityTable {
  std::string file;
  std::optional<std::string> longPulseFile;
  double pulseNs = 0.0;
  bool fibre = true;  // false: the trace shows none, and there is nothing else to tell
  double lengthKm = 0.0;
  double noiseFloorDb = 0.0;
  std::vector<JudgedEvent> rows;
  double measurableKm = 0.0;  // losses can be measured up to here: the first event whose loss can't be
  bool allMeasurable = false;
  LaunchState launch = LaunchState::kUnknown;
  float launchQuality = 0.0f;  // smaller is better
  float launchLevelDb = 0.0f;  // backscatter at the launch
  int lastPercent = 0;
  bool endInLastPercent = false;
  std::vector<Warning> warnings;
};

struct QualityOptions {
  std::optional<Trace> longPulse;  // the same fibre with a longer pulse, for losses within dead zones
  int lastPercent = 10;            // does the fibre end in the last so many percent of the range?
};

// Tells how far each event's place and loss can be trusted; what has no events is analysed first. Throws
// Error kUnreadable for traces that can't be measured, kUsage for a percentage not from 0 to 100.
REFLYZE_API QualityTable Quality(Trace trace, const QualityOptions& options = {});

}  // namespace reflyze
