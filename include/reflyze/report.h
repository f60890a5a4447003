// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "reflyze/edit.h"
#include "reflyze/events.h"
#include "reflyze/filter.h"
#include "reflyze/measure.h"
#include "reflyze/merge.h"
#include "reflyze/monitor.h"
#include "reflyze/quality.h"
#include "reflyze/show.h"
#include "reflyze/simulate.h"
#include "reflyze/span.h"

// The values of the library as texts: what the program prints. Texts end with a line end. JSON is one line;
// its keys carry their units, and a number that was not measured is null.

namespace reflyze {

REFLYZE_API std::string TextOf(const EventTable& table);       // of an analysis
REFLYZE_API std::string TextOf(const EditedFile& edited);      // of what an edit has changed
REFLYZE_API std::string TextOf(const Baseline& baseline);      // of a baseline
REFLYZE_API std::string TextOf(const Comparison& comparison);  // of a comparison
REFLYZE_API std::string TextOf(const MergedTable& table);      // of a merge
REFLYZE_API std::string TextOf(const LinkTable& link);         // of a link between reels, with its verdicts
REFLYZE_API std::string TextOf(const MergedLink& link);        // of two directions between reels
REFLYZE_API std::string TextOf(const QualityTable& table);     // of how far to believe a trace
REFLYZE_API std::string TextOf(const FilterTable& table);      // of a filter
REFLYZE_API std::string TextOf(const Sheet& sheet);            // of a file's card and its own table
REFLYZE_API std::string TextOf(const PlaceMeasure& measure);   // of what was measured between markers
REFLYZE_API std::string TextOf(const Simulation& simulation);  // of a simulated link

REFLYZE_API std::string JsonOf(const EventTable& table);       // of an analysis
REFLYZE_API std::string JsonOf(const EditedFile& edited);      // of what an edit has changed
REFLYZE_API std::string JsonOf(const Baseline& baseline);      // of a baseline
REFLYZE_API std::string JsonOf(const Comparison& comparison);  // of a comparison
REFLYZE_API std::string JsonOf(const MergedTable& table);      // of a merge
REFLYZE_API std::string JsonOf(const LinkTable& link);         // of a link between reels, with its verdicts
REFLYZE_API std::string JsonOf(const MergedLink& link);        // of two directions between reels
REFLYZE_API std::string JsonOf(const QualityTable& table);     // of how far to believe a trace
REFLYZE_API std::string JsonOf(const FilterTable& table);      // of a filter
REFLYZE_API std::string JsonOf(const Sheet& sheet);            // of a file's card and its own table
REFLYZE_API std::string JsonOf(const PlaceMeasure& measure);   // of what was measured between markers
// The truth in the shape of a table of events; several lines with an indent above 0.
REFLYZE_API std::string JsonOf(const Simulation& simulation, int indent = -1);

// One line an event, without the heading. A table that was to be measured has more columns than one that was
// not.
REFLYZE_API std::string CsvOf(const EventTable& table);
// The heading of such tables, with units.
REFLYZE_API std::string CsvHeader(Measurement measurement = Measurement::kDone);

// The same of a table that was judged: three more columns, behind the others.
REFLYZE_API std::string CsvOf(const LinkTable& link);
// The heading of such tables, with units.
REFLYZE_API std::string JudgedCsvHeader(Measurement measurement = Measurement::kDone);

// The events of a comparison, held against the baseline; a line without an event where the fibre is not
// there.
REFLYZE_API std::string CsvOf(const Comparison& comparison);
// The heading of such tables, with units.
REFLYZE_API std::string ComparisonCsvHeader(Numbers numbers = Numbers::kMeasured);

// The events of a baseline, as those of a record: see CsvHeader for kNone.
REFLYZE_API std::string CsvOf(const Baseline& baseline);

// The events of both directions; three more columns where they were judged.
REFLYZE_API std::string CsvOf(const MergedLink& link);
// The heading of such tables, with units.
REFLYZE_API std::string MergedCsvHeader(bool judged = false);

// How far to believe each event; one more column where a longer pulse has helped.
REFLYZE_API std::string CsvOf(const QualityTable& table);
// The heading of such tables, with units.
REFLYZE_API std::string QualityCsvHeader(bool twoPulses = false);

// What was measured between markers, one line.
REFLYZE_API std::string CsvOf(const PlaceMeasure& measure);
// The heading of such lines, with units.
REFLYZE_API std::string MeasureCsvHeader();

// Where the automatic filter stopped.
REFLYZE_API std::string CsvOf(const FilterTable& table);
// The heading of such tables, with units.
REFLYZE_API std::string FilterCsvHeader();

// What stands on a simulated fibre.
REFLYZE_API std::string CsvOf(const Simulation& simulation);
// The heading of such tables, with units.
REFLYZE_API std::string SimulationCsvHeader();

// The rows of a sheet, one line each, without the heading; with more columns where it was to be measured.
REFLYZE_API std::string CsvOf(const Sheet& sheet);
// The heading of such tables, with units.
REFLYZE_API std::string SheetCsvHeader(Measurement measurement = Measurement::kNone);

// The points of a trace, a line each: distance from the user's zero in km, and level in dB. With `named`, the
// name of the file stands in front, for a table of several traces.
REFLYZE_API std::string CurveCsv(const Trace& trace, bool named = false);
// The heading of such tables, with units.
REFLYZE_API std::string CurveCsvHeader(bool named = false);

// What a dump shows.
struct DumpOptions {
  bool samples = true;  // the points too
  bool native = false;  // every block that a record has in memory, also those that the file does not have
};

// What a reader of a dump should know: of the file, and of what is not shown as it stands.
REFLYZE_API std::vector<Warning> DumpWarnings(const Trace& trace);
// Every field of every block of a file.
REFLYZE_API std::string DumpText(const Trace& trace, const DumpOptions& options = {});
// The same as JSON.
REFLYZE_API std::string DumpJson(const Trace& trace, const DumpOptions& options = {});

}  // namespace reflyze
