// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

namespace reflyze {

// First point of the fibre section behind the launch peak, or behind a reflection at point `from`. `rate` is
// the receiver's recovery in dB per point. A small event on the launch slope goes to `launchEvent`; its L[0]
// is -1 if there is none. The search ends at point `limit`. Peak and place of the launch go into the table.
long FindBegLine(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                 LineTable& table, long from, long limit, double rate, TEventLine& launchEvent);

}  // namespace reflyze
