#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lib/LoadedRecord.h"
#include "lib/ThresholdSource.h"
#include "reflyze/record.h"

namespace reflyze {

struct AnalysedRecord {
  LoadedRecord loaded;
  std::optional<TTH> thresholds;  // of the analysis, where one was made
  bool eventsReplaced = false;    // it had events, of which nothing said what they were measured on
};

// Makes a trace ready for what rests on its events. One without events is analysed; so is one whose events
// have no usable markers (older revisions of the record have none, and some instruments leave junk there),
// and any if `anew`. Throws Error kUnreadable for one that can't be measured.
AnalysedRecord WithEvents(Trace trace, const AnalyseOptions& options, bool anew);

// The best table of a record that is measured; what the engine throws or asserts becomes an Error.
void AnalyseBest(AnalysisService& engine, LoadedRecord& loaded, TTH& thresholds, bool endsOnly);

// What a user should know of the reading.
std::vector<Warning> WarningsOf(const AnalysedRecord& analysed);

// Losses grow and shrink with the wavelength: what was measured at two of them tells nothing together.
void WarnIfOtherWavelength(const LoadedRecord& one, const LoadedRecord& other,
                           std::vector<Warning>& warnings);

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

}  // namespace reflyze
