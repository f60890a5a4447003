// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

namespace reflyze {

// Deletes every event that does not pass the thresholds, with `loss` dB for the smallest loss, and joins the
// lines around it; cuts the list at a loss that ends the fibre.
void SelectSplices(const AnalysisSettings& settings, const TraceScale& scale, LineTable& table, double loss);
// Losses of all events from the lines around them.
void SetLinesSplice(const TraceScale& scale, LineTable& table);
// Lowers the credible slope to ten times `aci` (dB/km), not below 1 dB/km.
void SetMaxDbKm(LineTable& table, double aci);
// Whether `aci` (dB/km) is a slope that a fibre of this wavelength, or ten one of `base` dB/km, can have.
bool IsNormACI(const TraceScale& scale, double aci, double base);
// Joins splices that lie too close together among the lines added since the table had `count` of them.
// `spanOwt` is the reference distance, `lossThr` and `gainThr` are the least steps in dB. Number of lines
// removed.
int DeleteShortSplices(const TraceScale& scale, LineTable& table, int count, float spanOwt, float lossThr,
                       float gainThr, bool strong);
// Drops weak events behind two splitters from the record's table.
void RemoveSuspicionEvents(TSorData& sor);

}  // namespace reflyze
