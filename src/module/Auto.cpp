// SPDX-License-Identifier: Apache-2.0
#include "src/module/Auto.h"

#include "ref/events/refEvent.h"
#include "sor/sorData.h"
#include "util/tinifile.h"

// The commands of the module.

TAuto::TAuto() : TraceComparison(static_cast<reflyze::AnalysisState&>(*this)), version("v160216") {}

void TAuto::AnalysisSorData(TSorData* trace, TTH* thresholds) {
  reflyze::AnalyseRecord(*this, *trace, thresholds);
}

void TAuto::Damp(TIni* ini) {
  if (ini != nullptr) reflyze::ListTable(*this, *ini);
}

int TAuto::Damp(const char* path) {
  TIni ini(path);
  Damp(&ini);
  return ini.Write(nullptr);
}

int TAuto::ServiceFunction(TCmdASF cmd, long& value, void** params) {
  constexpr int kCurrentTrace = 0;
  constexpr int kThresholds = 1;
  constexpr int kBaseline = 10;
  constexpr int kDone = 1;
  switch (cmd) {
    case cmdAnalyse:
    case cmdAnalyseEndsOnly: {
      auto* trace = static_cast<TSorData*>(params[kCurrentTrace]);
      AnalysisSorData(trace, static_cast<TTH*>(params[kThresholds]));
      if (cmd == cmdAnalyseEndsOnly) RefEventDeleteAllButFirstAndLast(trace);
      return kDone;
    }
    case cmdCompare:
      return Compare(static_cast<TSorData*>(params[kBaseline]), static_cast<TSorData*>(params[kCurrentTrace]),
                     value != 0);
  }
  return kDone;
}
