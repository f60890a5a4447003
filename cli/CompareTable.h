#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/EventTable.h"
#include "sor/sorData.h"
#include "src/module/Auto.h"

namespace reflyze::cli {

// What became of one quantity of an event, and its limit; dB or dB/km.
struct Deviation {
  double value = 0.0;  // the change against the baseline, or the quantity itself where that is limited
  bool absolute = false;
  bool compared = false;
  bool exceeded = false;
  double limit = 0.0;
};

struct CompareRow {
  EventRow event;
  bool monitored = false;
  bool isNew = false;
  bool fail = false;
  bool fiberBreak = false;
  Deviation loss, reflectance, attenuation;  // a limit of the reflectance itself is one of the return loss
};

// Where the fibre was looked for and not found.
struct LinkTest {
  double distanceKm = 0.0;
  double baselineDb = 0.0, currentDb = 0.0;  // levels there
  bool noLight = false;                      // the current one is noise
};

// What a comparison says of a current trace.
struct CompareTable {
  std::string baselineFile, file;
  Numbers numbers = Numbers::kMeasured;
  int result = 0;        // see TMonitorResult
  bool fail = false;     // of the trace as a whole
  bool recheck = false;  // results of an earlier comparison, held against limits again
  std::string level;
  double baselineLengthKm = 0.0;
  std::optional<LinkTest> linkTest;  // for mrNoLink
  std::vector<CompareRow> rows;

  bool Changed() const { return fail || result != mrCompared; }
};

// Takes both records as the comparison left them. May settle the noise floor of a copy.
CompareTable MakeCompareTable(const TSorData& baseline, const TSorData& current, int result, Numbers numbers);

// One plain sentence for each change, in the order of their places; one that reassures if there is none.
std::vector<std::string> ChangesOf(const CompareTable& table);

std::string TextOf(const CompareTable& table);
std::string JsonOf(const CompareTable& table);  // one line

}  // namespace reflyze::cli
