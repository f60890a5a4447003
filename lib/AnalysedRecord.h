// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lib/LoadedRecord.h"
#include "lib/Measuring.h"
#include "lib/ThresholdSource.h"
#include "reflyze/record.h"

namespace reflyze {

struct AnalysedRecord {
  LoadedRecord loaded;
  std::optional<TTH> thresholds;  // of the analysis; none where there was none
  bool eventsReplaced = false;    // its own events had no usable markers
};

// Makes a trace ready for what needs its events. A trace without events is analysed. So is one whose events
// have no usable markers (older revisions of the record have none, and some instruments leave junk there),
// and any trace if `anew`. Throws Error kUnreadable for one that can't be measured.
AnalysedRecord WithEvents(Trace trace, const AnalyseOptions& options, bool anew);

// Finds the best table of a record that is to be measured. What the engine throws or asserts becomes an
// Error.
void AnalyseBest(AnalysisService& engine, LoadedRecord& loaded, TTH& thresholds, bool endsOnly);

// The same, measured and stored so (lib/Measuring.h). None where the trace can't be understood as a link; the
// record then has what the search has found.
std::optional<MeasuredTable> AnalyseAndMeasure(AnalysisService& engine, LoadedRecord& loaded, TTH& thresholds,
                                               bool endsOnly);

// What a user should know of how the record was made ready.
std::vector<Warning> WarningsOf(const AnalysedRecord& analysed);

// A warning where two records were measured at different wavelengths: losses change with the wavelength.
void WarnIfOtherWavelength(const LoadedRecord& one, const LoadedRecord& other,
                           std::vector<Warning>& warnings);

// While it lives, events without a stored reflectance reflect nothing. The record has 0 for "none"; a measure
// that weighs an event by its peak would take that as 0 dB, a mirror, and trust the place of every splice.
class UnmeasuredReflectances {
 public:
  explicit UnmeasuredReflectances(TSorData& record);
  UnmeasuredReflectances(const UnmeasuredReflectances&) = delete;
  UnmeasuredReflectances& operator=(const UnmeasuredReflectances&) = delete;
  ~UnmeasuredReflectances();

 private:
  std::vector<TSorBlockKeyEvents1E*> events_;  // owned by the record
};

}  // namespace reflyze
