// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/trace.h"

namespace reflyze {

// No curve is larger, nor has a line that is longer.
constexpr std::size_t kLargestCurve = 1u << 26;      // bytes
constexpr std::size_t kLongestCurveLine = 1u << 12;  // bytes
constexpr std::size_t kMostCurvePoints = 1000000;    // as many as a record can hold

// What a curve does not tell of how it was taken, and where in it the numbers stand.
struct ImportOptions {
  std::optional<double> wavelengthNm;  // 400 to 2,500 nm; without it 1550 is stored
  std::optional<double> pulseNs;       // 1 to 30,000 ns; without it 100 is stored
  std::optional<double> groupIndex;  // 1 to 2; without it one near 1.468 by which the distances come out best
  std::optional<double> userOffsetKm;   // 0 to 1,000 km: the zero of the distances, from the launch
  std::optional<double> backscatterDb;  // -100 to -40 dB for a pulse of 1 ns; without it none is stored
  std::string distanceColumn;           // name in the heading, or number from 1; "" for what the heading says
  std::string levelColumn;              // the same of the levels
  std::string unit;  // of the distances: "km" or "m"; "" for what the heading says, else km
};

// A curve as a record.
struct ImportedCurve {
  Trace trace;                    // not on file yet
  std::vector<Warning> warnings;  // what was assumed, and levels that were changed
};

// The record of a curve in CSV: `text` has a row for each point, with its distance in km or m from where the
// light is launched, or from a user's zero behind it, and its level in dB (5 log10). Commas, semicolons or
// tabs part the columns; a decimal comma is understood where commas don't part them. A heading and other
// lines in front are passed over, so are blank lines and those that begin with "#". Points have to be evenly
// spaced. Levels are stored in steps of 0.001 dB, from 0 down to -65.535; a curve that goes above 0 is moved
// down as a whole.
//
// `name` is that of the trace, `source` that of the text. Throws Error kUnreadable, which names source and
// line, for what is no such curve, and kUsage for an option out of its bounds.
REFLYZE_API ImportedCurve ImportCurve(const std::string& text, const ImportOptions& options = {},
                                      const std::string& name = "imported",
                                      const std::string& source = "curve");

}  // namespace reflyze
