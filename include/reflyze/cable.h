// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/events.h"
#include "reflyze/limits.h"
#include "reflyze/span.h"

namespace reflyze {

// One trace of a job, with what its name and its record say of it. Its table has no record.
struct CableTrace {
  std::string file;           // as it was given
  std::string cable, fibre;   // of its name, else of its record
  std::string direction;      // "A" or "B"; "" where neither tells
  int wavelengthNm = 0;       // nominal, nm
  long long dateUtc = 0;      // seconds since 1970
  std::uint64_t samples = 0;  // digest of its samples: the same trace under two names has the same
  std::string recordFibre;    // what the record calls the fibre
  int recordNm = 0;           // wavelength of the record, nm
  std::string from, to;       // places of the record
  std::string problem;        // why there is no table; empty where there is one
  EventTable table;           // its events
};

// Reads what a name says, such as `cable_fibre_wavelength[_direction].sor`: from its end, a direction (A, B,
// AB, BA, OE, EO), a wavelength (1310, 1550nm), a number of the fibre; what stands before is the cable. What
// the name lacks comes from the record. There are no events in it.
REFLYZE_API CableTrace ReadForCable(const Trace& trace);
// The same, and the events of the trace. Throws what Analyse throws.
REFLYZE_API CableTrace AnalyseForCable(Trace trace, const AnalyseOptions& options = {});

// A fibre at one wavelength, and its traces.
struct DirectionPair {
  std::string cable, fibre;  // their names
  int wavelengthNm = 0;      // nominal, nm
  std::string fileA, fileB;  // from both ends; "" for one that is not there
};

// What a job has of each fibre.
struct DirectionPairs {
  std::vector<DirectionPair> pairs;   // by cable, fibre and wavelength
  std::vector<std::string> findings;  // what is doubtful or left out
};

// Finds the two directions of each fibre and wavelength by what names and records say. Traces that could not
// be read are passed over.
REFLYZE_API DirectionPairs PairDirections(const std::vector<CableTrace>& traces);

// A trace of a job as a text: a run that was killed goes on with such texts.
REFLYZE_API std::string StateOf(const CableTrace& trace);
// The same back, to the last bit; `file` is the name of the trace. Throws Error kUnreadable for what is none.
REFLYZE_API CableTrace CableTraceFrom(const std::string& state, const std::string& file);

// A fibre at one wavelength.
struct CableNumbers {
  int wavelengthNm = 0;                    // nominal, nm
  std::string fileA, fileB;                // traces from both ends; "" for none
  std::optional<double> lengthKm;          // between the connectors, km
  std::optional<double> lossDb;            // of the link, mean of both directions, dB
  std::optional<double> returnLossDb;      // the worse of both, dB
  std::optional<double> worstSpliceDb;     // highest loss of a joint that reflects nothing, dB
  std::optional<double> worstConnectorDb;  // highest loss of a joint that reflects, dB
  int events = 0;                          // joints of the link
  std::optional<LinkVerdict> verdict;      // none without limits
};

// A fibre of the cable.
struct CableRow {
  std::string fibre;                      // its name
  std::vector<CableNumbers> wavelengths;  // by wavelength
  std::vector<std::string> findings;      // what is wrong beside its numbers: a row with any fails
  Verdict verdict = Verdict::kNone;       // of numbers and findings
};

// Joints at the same place through all fibres.
struct CableJoint {
  double km = 0.0;                  // from the first connector, mean over the fibres
  bool connector = false;           // it reflects in most of them
  int fibres = 0;                   // that have a joint there
  double meanDb = 0.0, sdDb = 0.0;  // of their losses, each fibre at its worst wavelength, dB
  double largestDb = 0.0;           // dB
  std::vector<std::string> bad;     // fibres whose loss there fails, or stands out where there is no limit
  bool forAll = false;              // more than half of the fibres: the closure, and not a splice, is bad
};

// Least, mean, largest and standard deviation of a number over the fibres.
struct CableFigures {
  int count = 0;                                            // of fibres that have the number
  double least = 0.0, mean = 0.0, largest = 0.0, sd = 0.0;  // in its unit
};

// One wavelength of the cable.
struct CableTotals {
  int wavelengthNm = 0;       // nominal, nm
  CableFigures lossDb;        // of links, dB
  CableFigures returnLossDb;  // of links, dB
  CableFigures spliceDb;      // of all splices, dB
};

// A cable, judged.
struct CableReport {
  std::string cable;                  // its name
  std::vector<CableRow> rows;         // by fibre, in natural order
  std::vector<CableJoint> joints;     // along the cable
  CableFigures lengthKm;              // km
  std::vector<CableTotals> totals;    // by wavelength
  std::vector<int> histogram;         // splices by loss: below 0, then steps of kHistogramDb, the last open
  std::vector<std::string> findings;  // of files: duplicates, doubts, what could not be used
  Reels reels;                        // that were taken for the job's
  int passing = 0, failing = 0;       // fibres
};

constexpr double kHistogramDb = 0.05;  // width of a bar, dB
constexpr int kHistogramBars = 12;     // with those of gains and of 0.5 dB and more

// How a job is judged.
struct CableOptions {
  Reels reels;                   // of all traces; a length that is not given is found from the job
  std::optional<Limits> limits;  // none: numbers are not judged
};

// Finds which traces are one fibre, merges directions, judges. Traces that show the same samples, that show
// another fibre than they are named for, fibres that are swapped between the ends or end early are said, and
// nothing is dropped without a word. Fibres are told from each other by lengths and places of joints.
REFLYZE_API CableReport MakeCable(const std::vector<CableTrace>& traces, const CableOptions& options = {});
// Whether a number of any fibre fails its limits; what was found beside the numbers does not count.
REFLYZE_API bool AnyNumberFails(const CableReport& report);

REFLYZE_API std::string TextOf(const CableReport& report);  // a row a fibre, and the summary
REFLYZE_API std::string JsonOf(const CableReport& report);  // the same as one object
REFLYZE_API std::string CsvOf(const CableReport& report);   // a row a fibre and wavelength, with a heading

}  // namespace reflyze
