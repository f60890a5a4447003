#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/Analysis.h"
#include "cli/RecordFile.h"

namespace reflyze::cli {

struct AnalysedRecord : LoadedRecord {
  std::optional<TTH> thresholds;  // of the analysis, where one was made
  bool eventsReplaced = false;    // it had events, of which nothing said what they were measured on
};

// Reads a trace for what rests on its events. One without events is analysed; so is one whose events have no
// usable markers (older revisions of the record have none, and some instruments leave junk there), and any if
// `anew`.
AnalysedRecord LoadAnalysedRecord(Session& session, const std::string& name,
                                  const ThresholdSource& thresholds, bool anew);

// One line for each thing that a user should know of the reading.
void WarnOfReading(Session& session, const AnalysedRecord& analysed);

// Losses grow and shrink with the wavelength: what was measured at two of them tells nothing together.
void WarnIfOtherWavelength(Session& session, const LoadedRecord& one, const LoadedRecord& other);

// While it lives, events for which no reflectance is stored reflect nothing. What weighs an event by its peak
// would take the 0 that stands for "none" as 0 dB, a mirror, and trust the place of every splice.
class UnmeasuredReflectances {
 public:
  explicit UnmeasuredReflectances(TSorData& record);
  UnmeasuredReflectances(const UnmeasuredReflectances&) = delete;
  UnmeasuredReflectances& operator=(const UnmeasuredReflectances&) = delete;
  ~UnmeasuredReflectances();

 private:
  std::vector<TSorBlockKeyEvents1E*> events_;  // of the record, which keeps them
};

}  // namespace reflyze::cli
