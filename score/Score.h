// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "score/EventMatching.h"

namespace reflyze::score {

constexpr size_t kKinds = 3;
constexpr double kClearSnrDb = 6.0;  // of an event that nobody may miss
constexpr size_t kBands = 4;         // of the signal-to-noise ratio: below 3, 3 to 6, 6 to 10, above 10 dB

struct Tally {
  long present = 0;  // fair events of the truth
  long found = 0;
};

struct Report {
  long reported = 0;  // events of the table
  long invented = 0;  // those that no true event explains
};

// What one trace adds to a score.
struct TraceResult {
  const sim::SimulatedTrace* trace = nullptr;
  std::vector<FoundEvent> found;
  Matching matching;
  double spacingKm = 0.0;
  double pulseKm = 0.0;
};

// The score of one class of links.
class Score {
 public:
  void Add(const TraceResult& result);
  void AddAll(const Score& other);

  nlohmann::ordered_json Json() const;
  std::string Text(const std::string& name) const;

  // How bad a trace is: missed fair events, invented ones, and a wrong end.
  static long Badness(const TraceResult& result);
  // Whether a true event stands two pulse lengths from every other one.
  static bool IsIsolated(const TraceResult& result, size_t index);
  // Whether the end is found within a sample and a tenth of a pulse.
  static bool IsEndClose(const TraceResult& result);

 private:
  std::string KindText(size_t kind) const;
  void CountReported(const TraceResult& result, size_t found, bool invented);

  long traces_ = 0;
  long exact_ = 0;
  long invented_ = 0;
  long reported_ = 0;  // events between launch and end
  long endsFound_ = 0;
  long endsWithin_ = 0;                                     // one sample plus a tenth of a pulse length
  std::array<std::array<Tally, kBands>, kKinds> tallies_;   // by what is true
  std::array<std::array<Report, kBands>, kKinds> reports_;  // by what was reported
  std::array<Tally, kKinds> clear_;  // 6 dB above the noise, two pulse lengths from their neighbours
  // Errors of clear events, found minus true.
  std::vector<double> positionErrorM_, positionErrorPulses_, lossErrorDb_, reflectanceErrorDb_, endErrorM_;
  std::vector<double> positionExcessPulses_;  // beyond half a sample, in pulse lengths
};

}  // namespace reflyze::score
