// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "src/analysis/Scale.h"
#include "src/analysis/Table.h"

namespace reflyze {

// A record that holds the trace as the lines describe it; null without lines. A line whose fit ran on into
// the noise is cut there.
std::unique_ptr<TSorData> SorGenerate(const TraceScale& scale, LineTable& table);
// Attenuation dead zone in km: from `start` (km) to where the trace stands `delta` dB above the line.
double CalcAttDZ(TSorData* s, double start, const TEventLine& line, double delta);
// Event dead zone in km of the highest peak between `a` and `b` (km).
double CalcEvntDZ(TSorData* s, double a, double b);

}  // namespace reflyze
