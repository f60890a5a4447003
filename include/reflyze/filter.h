// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "reflyze/trace.h"

namespace reflyze {

// How a trace is smoothed.
enum class FilterKind {
  kKernel = 1,  // the trace's own kernel, or one that suits the pulse
  kFast = 5,    // a low pass
  kAuto = 7,    // a mean that stops at events
};
// The word for it on the command line, such as "auto".
REFLYZE_API const char* NameOf(FilterKind kind);

// The levels that a record's field can hold.
constexpr double kLeastFilterLevel = 0.1;
// The largest of them.
constexpr double kLargestFilterLevel = 10.0;

// How a trace is smoothed.
struct FilterOptions {
  FilterKind kind = FilterKind::kAuto;  // the filter
  std::optional<double> level;          // strength, 1 is usual; without it the trace's
};

// A point of the trace, as a listing shows it.
struct FilterPoint {
  long point = 0;           // its index
  double distanceKm = 0.0;  // from the user's zero
  double levelDb = 0.0;     // of the smoothed trace
};

// Where the automatic filter stopped: a rise, a fall or both.
struct FilterEvent {
  std::string type;                // a letter, "" where it was never set
  FilterPoint begin, peak, end;    // where it lies
  long rise = 0, tail = 0;         // points
  int gradeUp = 0, gradeDown = 0;  // how far the signal stood out
  int width = 0;                   // points of the mean there
};

// What a filter did to a trace and found on the way.
struct FilterTable {
  std::string file;                               // of the trace
  FilterKind kind = FilterKind::kAuto;            // of the filter
  double filterLevel = 0.0;                       // strength, 1 is usual
  long points = 0;                                // of the trace
  double spacingM = 0.0;                          // m between points
  long kernelPoints = 0;                          // of the kernel that the record carries, 0 for none
  long count = 0;                                 // events found, of which at most 100 are listed
  long firstBegin = 0;                            // point where the fibre really starts
  long ghostCount = 0;                            // echoes among the events
  long ringCount = 0;                             // period of the receiver's ringing, points
  double rippleDb = 0.0, rippleToEndDb = 0.0;     // where the scan began, and over the fibre
  std::optional<double> noiseLowDb, noiseHighDb;  // between samples, and of the running mean
  std::vector<FilterEvent> events;                // along the fibre
  std::vector<Warning> warnings;                  // what a user should know
  StoredRecord record;                            // with smoothed levels only
};

// Smooths a trace. Throws Error kUnreadable for one that can't be measured, holds no raw points any more, or
// can't be worked on by the automatic filter; kUsage for a level out of its bounds.
REFLYZE_API FilterTable Filter(Trace trace, const FilterOptions& options = {});

}  // namespace reflyze
