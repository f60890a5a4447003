// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

class TSorBlockKeyEvents1E;

namespace reflyze {

class SectionFits;

// Replaces the record's event table by the lines, but for the return loss, which whoever measures the events
// anew gets with them. Whether there are lines: without, the old table stays. `fits` are those of the trace.
bool WriteEventTable(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                     const LineTable& table, SectionFits& fits);
// Reflectance and event code of one event with its highest level `peak` and the level of the line `base`, in
// dB. `noiseAmp`, in dB, tells a peak from noise where the event has no letter yet.
void SetReflection(const AnalysisSettings& settings, double noiseAmp, TSorBlockKeyEvents1E& event,
                   double peak, double base, char eventType, TSorData* s);
// Closes the gaps that doubled reflections leave between the markers of their neighbours.
void ArrangeShortEventsMarkers(TSorData& sor);

}  // namespace reflyze
