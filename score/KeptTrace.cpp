// SPDX-License-Identifier: Apache-2.0
#include "score/KeptTrace.h"

#include <sys/stat.h>

#include "lib/LoadedRecord.h"
#include "sim/Simulate.h"

namespace reflyze::score {

void SaveKept(const std::string& folder, const KeptTrace& kept) {
  mkdir(folder.c_str(), 0777);
  const std::string base = folder + "/" + kept.name;
  sim::SimulatedTrace trace = sim::Simulate(kept.link, kept.seed);
  trace.record->FxdParams->SetLT(kept.ltDb);
  trace.record->FxdParams->SetRT(kept.rtDb);
  trace.record->FxdParams->SetET(kept.etDb);
  SaveTogether({{base + ".sor", RecordBytes(*trace.record, base)}});
  SaveTogether({{base + ".link.json", sim::JsonOfLink(kept.link).dump(1) + "\n"}});
  SaveTogether(
      {{base + ".truth.json", sim::JsonOfTruth(base + ".sor", *trace.record, trace.truth).dump(1) + "\n"}});
}

}  // namespace reflyze::score
