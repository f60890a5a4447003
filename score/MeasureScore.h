// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "score/MeasuredTrace.h"
#include "score/Statistics.h"

namespace reflyze::score {

enum Quantity { kLoss, kPlace, kReflectance, kSlope, kTotal, kEnd, kLaunch, kQuantities };
const char* NameOf(Quantity quantity);

// A measured number that can be held against the truth.
struct JudgedNumber {
  Quantity quantity;
  double km;  // of the true event
  double error, deviation;
  double snrDb;
};
// An interval is judged wherever a fair event was found, however dark the place. An event that was not found
// there is no error of an interval, but a miss; so are totals up to a wrong end, and slopes of sections that
// are none.
std::vector<JudgedNumber> JudgedNumbers(const MeasuredTrace& trace);

// Errors and counts by the table or by what was measured.
class Figures {
 public:
  void Add(const TraceResult& result, bool saysNoFibre);
  void AddAll(const Figures& other);
  nlohmann::ordered_json Json() const;

  std::vector<double> lossFarDb, lossDb;  // of clear events, found less true; `Far` from others and the end
  std::vector<double> placePulses;        // of clear events
  std::vector<double> reflectanceDb;      // of clear events
  std::vector<double> reflectanceSeenDb;  // as if the fibre in front scattered as the record says
  std::array<Tally, kKinds> clear;
  long traces = 0, invented = 0, endsRight = 0, exact = 0;
  long fibreless = 0, fibrelessTold = 0, fibreDenied = 0;
};

// How well links are measured, and how far the stated uncertainties can be trusted.
class MeasureScore {
 public:
  void Add(const MeasuredTrace& trace);
  void AddAll(const MeasureScore& other);

  nlohmann::ordered_json Json() const;
  std::string Text(const std::string& name) const;

  // How much worse than it should be what is shown of a trace is; 0 for nothing wrong. No result counts more
  // than the table's own faults, and an interval that misses by more than four deviations as much as a missed
  // event.
  static double Badness(const MeasuredTrace& trace);

 private:
  void AddBound(const MeasuredTrace& trace, size_t truth, double lossErrorDb);
  std::string ErrorText() const;
  std::string ShareText() const;
  std::string CoverageText() const;

  Figures table_, shown_;
  std::array<Intervals, kQuantities> intervals_;
  std::vector<double> boundRatios_;  // squared errors of losses over the least variance that they can have
  long withoutResult_ = 0;
  double analysisS_ = 0.0, measuringS_ = 0.0;
};

}  // namespace reflyze::score
