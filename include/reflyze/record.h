// SPDX-License-Identifier: Apache-2.0
#pragma once

// The record itself, for those who need every field of it, and for hosts of the analysis module. The rest of
// the library does without these headers; their names are those of the record and not in a namespace.

#include <string>

#include "reflyze/events.h"
#include "reflyze/monitor.h"
#include "sor/sorData.h"
#include "src/analysis/th.h"
#include "util/tinifile.h"
#include "util/tlogfile.h"

namespace reflyze {

// The record of a trace as its file has it. Event times of most files count from the user offset. Its blocks
// belong to all copies of the trace, so that nobody may change them.
REFLYZE_API const TSorData& RecordOf(const Trace& trace);

// The service commands of an analysis module, as a host gives them.
class REFLYZE_API AnalysisService {
 public:
  AnalysisService() = default;
  AnalysisService(const AnalysisService&) = delete;
  AnalysisService& operator=(const AnalysisService&) = delete;
  virtual ~AnalysisService() = default;

  // Service commands 0 and 1: events of the trace, or only its first and last.
  virtual int Analyse(TSorData& trace, TTH& thresholds, bool endsOnly) = 0;
  // Service command 2: `current` against `baseline`; `recheck` leaves the current trace as filtered before.
  virtual int Compare(TSorData& baseline, TSorData& current, bool recheck) = 0;
};

// What a module leaves in the record, without what the library does before and after.
REFLYZE_API EventTable AnalyseBy(AnalysisService& service, Trace trace, const AnalyseOptions& options = {});
// The same of a comparison.
REFLYZE_API Comparison CompareBy(AnalysisService& service, Trace baseline, Trace current,
                                 const CompareOptions& options = {});

// The handler of assertions that a host gives its module. It throws, so that the call of the library ends in
// an Error.
[[noreturn]] REFLYZE_API void ThrowAssertion(const char* text, const char* file, int line);

}  // namespace reflyze
