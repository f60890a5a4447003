// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>
#include <vector>

#include "reflyze/record.h"
#include "src/filter/Decisions.h"

namespace reflyze {

// The analysis that is linked into the library: the same functions that the module has for its hosts.
AnalysisService& Engine();

// The same, which tells why it decides as it does.
class ExplainingEngine : public AnalysisService, private DecisionSink {
 public:
  int Analyse(TSorData& trace, TTH& thresholds, bool endsOnly) override;
  int Compare(TSorData& baseline, TSorData& current, bool recheck) override;

  std::vector<Reason> TakeReasons() { return std::move(reasons_); }

 private:
  void Note(const Decision& decision) override;

  const TSorData* trace_ = nullptr;  // under analysis
  int search_ = 0;
  std::vector<Reason> reasons_;
};

}  // namespace reflyze
