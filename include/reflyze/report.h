#pragma once

#include <string>
#include <vector>

#include "reflyze/events.h"
#include "reflyze/filter.h"
#include "reflyze/merge.h"
#include "reflyze/monitor.h"
#include "reflyze/quality.h"
#include "reflyze/simulate.h"

// The values of the library as texts: what the program prints. Texts end with a line end. JSON is one line;
// its keys carry their units, and a number that was not measured is null.

namespace reflyze {

REFLYZE_API std::string TextOf(const EventTable& table);
REFLYZE_API std::string TextOf(const Baseline& baseline);
REFLYZE_API std::string TextOf(const Comparison& comparison);
REFLYZE_API std::string TextOf(const MergedTable& table);
REFLYZE_API std::string TextOf(const QualityTable& table);
REFLYZE_API std::string TextOf(const FilterTable& table);
REFLYZE_API std::string TextOf(const Simulation& simulation);

REFLYZE_API std::string JsonOf(const EventTable& table);
REFLYZE_API std::string JsonOf(const Baseline& baseline);
REFLYZE_API std::string JsonOf(const Comparison& comparison);
REFLYZE_API std::string JsonOf(const MergedTable& table);
REFLYZE_API std::string JsonOf(const QualityTable& table);
REFLYZE_API std::string JsonOf(const FilterTable& table);
// The truth in the shape of a table of events. An `indent` above 0 gives several lines.
REFLYZE_API std::string JsonOf(const Simulation& simulation, int indent = -1);

// One line an event, without the heading.
REFLYZE_API std::string CsvOf(const EventTable& table);
REFLYZE_API std::string CsvHeader();

struct DumpOptions {
  bool samples = true;
  bool native = false;  // every block that a record has in memory, also those that the file does not have
};

// Every field of every block of a file. DumpWarnings gives what a reader of a dump should know of the file,
// and of what is not shown as it stands.
REFLYZE_API std::vector<Warning> DumpWarnings(const Trace& trace);
REFLYZE_API std::string DumpText(const Trace& trace, const DumpOptions& options = {});
REFLYZE_API std::string DumpJson(const Trace& trace, const DumpOptions& options = {});

}  // namespace reflyze
