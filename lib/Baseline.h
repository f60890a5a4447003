// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reflyze/monitor.h"
#include "sor/sorData.h"

namespace reflyze {

// Makes a baseline of a record with events. They are measured anew from their markers, as a comparison will
// measure them on the current trace. The record gets
// - one alarm level, in force, with the same limits for each event;
// - the stretches to search for new events, or each section between two events where none is named;
// - the settings, where monitoring sets some that a comparison by itself does not.
// What the record held of an earlier monitoring goes. Throws Error kUsage for a stretch that is not on the
// trace.
void MakeBaselineOf(TSorData& record, const Monitoring& monitoring);

// Raises the revision in which a record is stored to one that has room for the markers of its events.
void HoldMarkers(TSorData& record);

// Makes two traces alike in what an analysis leaves behind; otherwise all reflectances would differ where
// only one of them has been analysed. Both are smoothed or neither. Where the bandwidth of one receiver is
// not known, that of the other counts.
void MakeComparable(TSorData& baseline, TSorData& current);

}  // namespace reflyze
