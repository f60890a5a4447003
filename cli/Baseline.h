#pragma once

#include <string>
#include <utility>
#include <vector>

#include "sor/sorData.h"

namespace reflyze::cli {

// A setting of the comparison that a baseline carries, by the name under which a record stores it.
struct ComparisonSetting {
  const char* name;
  double least, most;
  const char* meaning;
};
const std::vector<ComparisonSetting>& ComparisonSettings();
const ComparisonSetting* FindComparisonSetting(const std::string& name);  // null where there is none

struct Stretch {
  double fromKm = 0.0, toKm = 0.0;  // from the user's zero
};

// How a fibre is to be watched. Limits are of changes against the baseline.
struct Monitoring {
  std::string level;  // name of the alarm level, UTF-8, not empty
  double ltDb = 0.2;  // loss of an event
  double rtDb = 2.0;  // reflectance
  double ctDbPerKm = 0.05;
  double eelDb = 0.5;  // end-to-end loss
  std::vector<Stretch> search;
  std::vector<std::pair<std::string, double>> settings;
};

// Limits are stored in thousandths in 16 bits.
constexpr double kLargestLimit = 32.5;  // dB, dB/km

// Makes a baseline of a record with events, which are measured anew from their markers, as a comparison will
// measure them on the current trace: one alarm level, in force, with the same limits for each event;
// the stretches to search for new events, or each section between two events where none is named; and the
// settings, with what monitoring takes otherwise than a comparison by itself. What the record held of an
// earlier monitoring goes. Throws Problem kUsage for a stretch that is not on the trace.
void MakeBaseline(TSorData& record, const Monitoring& monitoring);

// Lets a record go to file in a revision that has room for the markers of its events.
void HoldMarkers(TSorData& record);

// Makes two traces alike in what an analysis leaves behind, or all reflectances would differ where only one
// of them has been analysed: both are smoothed or none, and one whose receiver's bandwidth is not known
// counts as measured with that of the other.
void MakeComparable(TSorData& baseline, TSorData& current);

}  // namespace reflyze::cli
