// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/trace.h"

namespace reflyze {

// What an analysis takes for an event. Each that is not given comes from the trace, and where that has none,
// is 0.2 dB, -60 dB, 3 dB, 0.25 dB/km.
struct Thresholds {
  std::optional<double> lossDb;         // of an event
  std::optional<double> reflectanceDb;  // of an event, negative
  std::optional<double> endDb;          // loss that ends the fibre
  std::optional<double> slopeDbPerKm;   // change of slope
};

// No fibre loses or reflects more than this, in dB or dB/km; the bound catches slips, such as a reflectance
// without its sign.
constexpr double kLargestThreshold = 1000.0;

// A document of thresholds is a page of text.
constexpr std::size_t kLargestThresholdDocument = 1u << 16;  // bytes

// Thresholds from one section of a document of an instrument (INI). It may be less strict than those of
// instruments: any line ends, blanks around "=", the mark that some editors put at the head. A key without a
// value does not count.
class REFLYZE_API ThresholdDocument {
 public:
  ThresholdDocument() = default;  // none
  // Throws Error kUnreadable for a section that is not there or holds no threshold, and for what is no
  // number.
  static ThresholdDocument FromText(const std::string& name, const std::string& text,
                                    const std::string& section = "NON");
  // The same of a file.
  static ThresholdDocument FromFile(const std::string& file, const std::string& section = "NON");

  // For the library: what was read.
  struct Section;
  const Section* section() const { return section_.get(); }  // for the library; null for none

 private:
  std::shared_ptr<const Section> section_;
};

// How a trace is analysed.
struct AnalyseOptions {
  Thresholds thresholds;             // before the document
  ThresholdDocument document;        // before the trace
  std::optional<double> mostLossDb;  // wherever the loss threshold comes from, it is no larger than this
  bool endsOnly = false;             // keep only the first and the last event
  bool explain = false;              // tell why the analysis decided as it did; see Reason
  bool dropUnknown = false;          // store no blocks that nobody here knows
};

// A record has a number in every place, measured or not. The launch and the end have a step of the trace for
// a loss, a splice has the reflectance that noise leaves to it, and a return loss of 0 says that there is
// none.
enum class Numbers {
  kMeasured,  // only numbers that were measured, for readers
  kAsStored,
};

// Where the numbers of a table come from.
enum class Measurement {
  kNone,    // from the record as it stands, or from the module: nothing was measured beside that
  kFailed,  // from the search alone: the trace can't be understood as one link
  kDone,    // measured on the trace, each with its uncertainty
};

// What the search answered for an event before it was measured, as it left it in the record.
struct ModuleAnswer {
  int eptOwt = 0;                       // one-way time from the first sample, 100 ps
  double lossDb = 0.0;                  // dB, below 0 for a gain
  std::optional<double> reflectanceDb;  // dB, negative; none where it stored none
  double attenuationDbPerKm = 0.0;      // dB/km, of the section before the event
};

// A place on the fibre where light is lost, gained or reflected. Each deviation is the standard deviation of
// the number's error, in the unit of its name; none where the number was not measured.
struct Event {
  int number = 0;                              // from 1, along the fibre
  int eptOwt = 0;                              // one-way time from the first sample, 100 ps
  double distanceKm = 0.0;                     // from the user's zero
  std::optional<double> distanceSdM;           // deviation, m
  std::string code;                            // SR-4731 event code
  std::string technique;                       // of the loss measurement
  std::string type;                            // in words
  std::optional<double> lossDb;                // dB, below 0 for a gain
  std::optional<double> lossSdDb;              // deviation, dB
  std::optional<double> reflectanceDb;         // dB, negative
  std::optional<double> reflectanceSdDb;       // deviation, dB
  bool reflectanceAtLeast = false;             // the receiver was saturated
  std::optional<double> attenuationDbPerKm;    // of the section before the event
  std::optional<double> attenuationSdDbPerKm;  // deviation, dB/km
  std::optional<double> cumulatedDb;   // sections and events from the launch up to and with this event, dB
  std::optional<double> probability;   // that the event is real, from 0 to 1
  std::array<int, 5> markersOwt{};     // ML0 to ML4, one-way times, 100 ps
  std::string comment;                 // of whoever edited the record
  std::optional<ModuleAnswer> module;  // none for an event that only the measuring has found
};

// Why a stage of the analysis decided as it did: what it looked at, what it chose, and by which limit. Places
// count as those of events do. docs/ends.md lists the stages.
struct Reason {
  int search = 1;               // the analysis searches again where a table can't be true: which time
  std::string stage;            // "scan", "tail", "detectors", "selection", ...
  std::string choice;           // "found", "dropped", "end", "no end"
  double distanceKm = 0.0;      // from the user's zero
  double value = 0.0;           // what was looked at, in `unit`
  std::optional<double> limit;  // what it was held against, in `unit`; none where there is no single one
  std::string unit;             // of value and limit: "dB", "dB/km", "km", "grade", "events"
  std::string sentence;         // the reason
};

// The events of one trace, with what they were found by.
struct EventTable {
  std::string file;                              // of the trace
  long points = 0;                               // of the trace
  double wavelengthNm = 0.0;                     // nm
  double pulseNs = 0.0;                          // ns
  double spacingM = 0.0;                         // m between points
  double rangeKm = 0.0;                          // km
  double groupIndex = 0.0;                       // of the fibre, without a unit
  Thresholds thresholds;                         // that held when the events were found
  double noiseFloorDb = 0.0;                     // dB, a level of the trace
  Measurement measurement = Measurement::kNone;  // of the numbers below and of the events
  bool fibre = true;                             // the trace shows one
  std::optional<double> lengthKm;                // km from the launch to the end of the fibre
  std::optional<double> totalLossDb;             // end to end, on the trace itself
  std::optional<double> totalLossSdDb;           // its deviation, dB
  std::optional<double> returnLossDb;            // at most, where the receiver was saturated
  std::vector<Warning> warnings;                 // what a user should know
  std::vector<Event> events;                     // along the fibre
  std::vector<Reason> reasons;                   // in the order of the decisions; none unless asked for
  StoredRecord record;                           // the trace with these events
};

// Finds the events of a trace and measures them. Throws Error kUnreadable for a trace that can't be measured,
// and for a file that holds several, kUsage for a threshold out of its bounds. Here as everywhere, a trace
// that is moved in and that nobody else holds needs no copy.
REFLYZE_API EventTable Analyse(Trace trace, const AnalyseOptions& options = {});

// The events that stand in the file. They are told as they are.
REFLYZE_API EventTable StoredEvents(Trace trace, Numbers numbers = Numbers::kMeasured);

// The straight line of a section, as its attenuation was measured: ends on the trace, and the levels of the
// line there.
struct SectionLine {
  double fromKm = 0.0, toKm = 0.0;  // stretch that the attenuation was measured on, km from the user's zero
  double fromDb = 0.0, toDb = 0.0;  // level of the line at both ends, dB, 5 log10 of power
};

// The line of the section in front of each event, for a picture of how well a table fits its trace. The slope
// is that of the table; the level is fitted by least squares to the power of the points between the section's
// markers, since levels in dB bend where noise begins. None where the section was not measured.
REFLYZE_API std::vector<std::optional<SectionLine>> SectionLinesOf(const Trace& trace,
                                                                   const EventTable& table);

}  // namespace reflyze
