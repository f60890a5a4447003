// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/Settings.h"

#include "sor/sorData.h"

namespace reflyze {

void NoteAt(const AnalysisSettings& settings, const TSorData& sor, Stage stage, Choice choice, double km,
            double value, double limit, const char* unit, const char* reason) {
  if (settings.decisions == nullptr) return;
  settings.decisions->Note({stage, choice, sor.dLenToOwt(km), value, limit, unit, reason});
}

}  // namespace reflyze
