// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/trace.h"

namespace reflyze {

// What is measured between markers that somebody has set.
enum class MeasureKind {
  kAt,            // one place: its level, and the reflectance of a peak there
  kTwoPoint,      // two places: what their levels differ by
  kLeastSquares,  // two places: the line of the fibre between them
  kReturnLoss,    // two places: the light that comes back from between them
  kEvent,         // four places a, A, B, b: the loss between the lines from a to A and from B to b
};
// The word for it, such as "two-point".
REFLYZE_API const char* NameOf(MeasureKind kind);

// What is asked for.
struct MeasureRequest {
  MeasureKind kind = MeasureKind::kAt;  // what to measure
  std::vector<double> placesKm;         // one, two or four, in order, km from the user's zero
};

// What was measured. Each deviation is the standard deviation of the number's error, from the noise of this
// trace, in the unit of its name. A number that was not asked for, or that the noise hides, is none.
struct PlaceMeasure {
  std::string file;                            // of the trace
  MeasureKind kind = MeasureKind::kAt;         // what was asked for
  std::vector<double> placesKm;                // of the points nearest to those asked for, km
  std::optional<double> levelDb;               // of the point, dB, 5 log10 of power
  std::optional<double> levelSdDb;             // its deviation, dB
  std::optional<double> lossDb;                // of the stretch or the event, dB, below 0 for a gain
  std::optional<double> lossSdDb;              // its deviation, dB
  std::optional<double> attenuationDbPerKm;    // of the stretch, dB/km
  std::optional<double> attenuationSdDbPerKm;  // its deviation, dB/km
  std::optional<double> returnLossDb;          // of the stretch, dB
  std::optional<double> returnLossSdDb;        // its deviation, dB, with that of the backscatter coefficient
  bool returnLossAtMost = false;               // the receiver was saturated there: it is no more than that
  std::optional<double> reflectanceDb;         // of a peak at the place, dB, negative
  std::optional<double> reflectanceSdDb;       // its deviation, dB, with that of the backscatter coefficient
  bool reflectanceAtLeast = false;             // the receiver was saturated there: it is no less than that
  std::vector<Warning> warnings;               // what a user should know
};

struct MeterState;

// A trace made ready to be measured at many places: it is analysed once, which tells its noise and where its
// fibre lies. A value; several threads may use one.
//
// Losses are differences of lines or points of 5 log10 of power. Lines are fitted by least squares to the
// powers, each point by its variance, which is what fits to levels in dB come to where noise is small.
// Two-point and least-squares attenuation, four-point losses, reflectance and return loss are those of IEC
// 61746-1 and IEC 60793-1-40.
class REFLYZE_API Meter {
 public:
  // Throws Error kUnreadable for a trace that can't be measured, and for a file that holds several.
  explicit Meter(Trace trace);
  // Throws Error kUsage for places that are not on the trace, too few or too many, or not in order.
  PlaceMeasure Measure(const MeasureRequest& request) const;

 private:
  std::shared_ptr<const MeterState> state_;
};

// The same once.
REFLYZE_API PlaceMeasure Measure(Trace trace, const MeasureRequest& request);

}  // namespace reflyze
