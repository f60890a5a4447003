// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "measure/Noise.h"

class TSorData;

namespace reflyze {

// A quantity, and the standard deviation of its error, in the same unit.
struct Measured {
  double value = 0.0, deviation = 0.0;
};

// What a launch connector itself loses lies between its reflection and the backscatter behind it, and nobody
// sees it.
constexpr double kLaunchDeviationDb = 0.4;

// What a record lists, or what its trace shows beside that.
struct MeasuredEvent {
  int listed = -1;                 // its number in the record's table, from 0; -1 where that lacks it
  Measured km;                     // from the first point, whether a lead is in front of the launch or not
  std::optional<Measured> lossDb;  // none at the launch and the end
  std::optional<Measured>
      reflectanceDb;                // none where nothing is reflected, or the record has no scale for it
  bool reflects = false;            // also where the reflectance can't be told
  bool reflectanceAtLeast = false;  // the receiver was saturated
  std::optional<Measured>
      attenuationDbPerKm;    // of the section in front; none where that was too short to tell
  double probability = 1.0;  // that it is there at all
  bool echo = false;         // light that went to and fro between others: nothing stands there
  bool fades = false;        // an end where noise hides whether fibre goes on
  // The fibre that was measured in front of it and behind, km from the first point; empty (from = to) for
  // none.
  double frontFromKm = 0.0, frontToKm = 0.0, behindFromKm = 0.0, behindToKm = 0.0;
};

// A link as its trace shows it.
struct MeasuredLink {
  bool fibre = true;                           // false: nothing but a launch; then there are no events
  std::vector<MeasuredEvent> events;           // launch to end, along the fibre
  std::optional<Measured> totalLossDb;         // sections and events between launch and end
  std::optional<Measured> returnLossDb;        // of the whole link
  std::optional<double> assumedBackscatterDb;  // dB for a pulse of 1 ns, where the record states none
  NoiseModel noise;                            // of the trace, also where it shows no fibre
  double riseKm = 0.0;                         // of the receiver, see LinkModel; 0 where nothing told it
};

struct MeasureOptions {
  // An event that the record does not list is told where it loses or reflects at least so much. What is
  // smaller is part of its section.
  double leastLossDb = 0.0, leastReflectanceDb = -1000.0;
  bool keepsTable = false;  // the events are those that the record lists, no more and no fewer
};

// Measures the events that a record lists on its trace, and those that it should list. None where the trace
// can't be understood as a link (the fit does not come to an end, or there are fewer than 64 points): then
// nothing is known beside the record's own numbers. Changes nothing in the record; several threads may
// measure at a time.
std::optional<MeasuredLink> MeasureLink(const TSorData& record, const MeasureOptions& options = {});

}  // namespace reflyze
