// SPDX-License-Identifier: Apache-2.0
#include "sor/scale/sorLevelScale.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {

namespace {

// Each entry is the product of a coarse and a fine power, which rounds to the same float as the power itself:
// to ask for that one 15,060 times took half of the time in which the program starts.
std::array<float, kPowEntries> SetTpowArray() {
  constexpr int kFine = 128;
  constexpr double kStepsPerDecade = 50000.0;
  std::array<double, kFine> fine{};
  for (int i = 0; i < kFine; ++i) fine[static_cast<size_t>(i)] = elementary::Exp10(i / kStepsPerDecade);
  std::array<float, kPowEntries> table{};
  double coarse = 1.0;
  for (int i = 0; i < kPowEntries; ++i) {
    if (i % kFine == 0) coarse = elementary::Exp10(i / kStepsPerDecade);
    table[static_cast<size_t>(i)] = static_cast<float>(coarse * fine[static_cast<size_t>(i % kFine)]);
  }
  return table;
}

std::array<int, kLogEntries> SetTlogArray() {
  std::array<int, kLogEntries> table{};
  for (int i = 0; i < kLogEntries; ++i) {
    table[static_cast<size_t>(i)] = TruncToInt(elementary::Log10(1 + i / 64.0) * kLogUnits);
  }
  return table;
}

}  // namespace

const std::array<float, kPowEntries> tpow10Array = SetTpowArray();
const std::array<int, kLogEntries> tlog10Array = SetTlogArray();

double Pow5OutsideTable(double x) {
  // Beyond this the result leaves the range of a double, infinite levels included.
  constexpr double kLargestDb = 5.0 * std::numeric_limits<double>::max_exponent10 + 40.0;
  if (std::isnan(x)) return Pow5InTable(0.0);  // truncated to whole units it is 0, and no place in the table
  if (x < 0.0) return elementary::Exp10(x / 5.0);
  if (x > kLargestDb) return std::numeric_limits<double>::infinity();
  int steps = 0;
  for (; x > kLargestTableDb; x -= kLargestTableDb) ++steps;
  double lin = Pow5InTable(x);
  for (; steps > 0; --steps) lin *= kTableStepFactor;
  return lin;
}

// Half a unit inside the octave, rounding can't lead out of it.
Pow5Run Pow5Run::Around(double x) {
  Pow5Run run;
  if (!(x >= 0.0 && x < 2.0 * kLargestTableDb)) return run;
  if (x >= kLargestTableDb) {
    run.tableDb_ = kLargestTableDb;
    run.tableFactor_ = kTableStepFactor;
  }
  const auto units = static_cast<unsigned int>(TruncProven((x - run.tableDb_) * kPowUnitsPerDb));
  const unsigned int decadeEnd = (units / kPowUnitsPerDecade + 1) * kPowUnitsPerDecade;
  run.octave_ = PowOctave::At(units);
  const unsigned int end = std::min(run.octave_.firstUnit + kPowUnitsPerOctave, decadeEnd);
  run.fromDb_ = run.tableDb_ + (run.octave_.firstUnit + 0.5) / kPowUnitsPerDb;
  run.endDb_ = run.tableDb_ + (end - 0.5) / kPowUnitsPerDb;
  return run;
}

}  // namespace reflyze
