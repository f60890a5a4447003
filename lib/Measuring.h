// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "measure/MeasuredLink.h"
#include "reflyze/events.h"

class TSorBlockKeyEvents1E;
class TSorData;

namespace reflyze {

// What a measured link makes of a record and of its rows.
//
// A record holds a number in every place, in steps of its own: losses and reflectances in 0.001 dB, slopes in
// 0.001 dB/km, places in 100 ps (2 cm). Rows have the measured values; the record has them rounded, and 0
// where nothing was measured. A place in a row is that of the record, so its deviation includes the rounding.

// A link whose events are those of a record's table, one to one.
struct MeasuredTable {
  MeasuredLink link;                                // `listed` counts in the table as it now is
  std::vector<std::optional<ModuleAnswer>> module;  // of each event; none for one that the table lacked
  std::vector<std::optional<double>> cumulatedDb;   // at each event
};

// Measures the table of a record that has just been searched, and stores the outcome in its key events:
// values, codes, markers and totals. Events that are not there go, those that were overlooked come in; all
// blocks that keep an entry for each event follow. Without fibre nothing but the launch is left. None where
// the trace can't be understood as a link; then the record stays as it is.
std::optional<MeasuredTable> MeasureTable(TSorData& record);
// The same with a link that was measured before.
std::optional<MeasuredTable> StoreMeasured(TSorData& record, MeasuredLink link);
// Leaves nothing but launch and end of a table that is measured, with the totals of the whole link.
void KeepMeasuredEnds(TSorData& record, MeasuredTable& table);

// Measures the events of a table that somebody else has made: which events it has, what they are and where is
// not touched. Values and markers are stored where they were measured, and the totals. None also where the
// trace shows no fibre.
std::optional<MeasuredLink> MeasureListed(TSorData& record);
std::optional<MeasuredLink> StoreListed(TSorData& record, MeasuredLink link);

// Gives the rows of a record's events what was measured of them.
void TakeMeasured(const TSorData& record, const MeasuredLink& link, std::vector<Event>& rows);
// The same for a table of events, with its totals.
void TakeMeasured(const TSorData& record, const MeasuredTable& measured, EventTable& table);
// For a table that could not be measured: its numbers are what the search answered.
void TakeUnmeasured(const TSorData& record, EventTable& table);

// What was measured of the event at that place of a table; null for nothing.
const MeasuredEvent* MeasuredAt(const MeasuredLink& link, int index);

// Stores a loss, rounded to the record's step whatever its sign.
void StoreLoss(TSorBlockKeyEvents1E& event, double lossDb);

// What a user should know of a trace whose fibre could not be measured.
Warning NotMeasured(const std::string& name);
// What a user should know of the reflectances of a record; `link` is null where it was not measured.
std::vector<Warning> WarningsOfBackscatter(const std::string& name, const TSorData& record,
                                           const MeasuredLink* link);

}  // namespace reflyze
