#pragma once

#include "reflyze/monitor.h"
#include "sor/sorData.h"

namespace reflyze {

// Makes a baseline of a record with events, which are measured anew from their markers, as a comparison will
// measure them on the current trace: one alarm level, in force, with the same limits for each event;
// the stretches to search for new events, or each section between two events where none is named; and the
// settings, with what monitoring takes otherwise than a comparison by itself. What the record held of an
// earlier monitoring goes. Throws Error kUsage for a stretch that is not on the trace.
void MakeBaselineOf(TSorData& record, const Monitoring& monitoring);

// Lets a record go to file in a revision that has room for the markers of its events.
void HoldMarkers(TSorData& record);

// Makes two traces alike in what an analysis leaves behind, or all reflectances would differ where only one
// of them has been analysed: both are smoothed or none, and one whose receiver's bandwidth is not known
// counts as measured with that of the other.
void MakeComparable(TSorData& baseline, TSorData& current);

}  // namespace reflyze
