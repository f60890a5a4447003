// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "reflyze/paper.h"

namespace reflyze::paper {

// A row of a table of events: of one direction, or of both laid on each other.
struct EventLine {
  int number = 0;                            // of its place on the page, from 1; the same at each wavelength
  double km = 0.0;                           // from the begin of the link
  std::optional<double> sdM;                 // deviation of the place, m
  std::string kind;                          // key of its word: "kind.reflective"
  std::optional<double> lossDb, lossSdDb;    // that counts: of one direction, or the mean of both
  std::optional<double> lossADb, lossASdDb;  // of both directions, as each has seen it
  std::optional<double> lossBDb, lossBSdDb;  // the same from the other end
  std::optional<double> reflectanceDb, reflectanceSdDb;            // of one direction, or of A
  std::optional<double> reflectanceBDb;                            // from the other end
  bool reflectanceAtLeast = false;                                 // the receiver was saturated
  bool reflectanceBAtLeast = false;                                // the same from the other end
  std::optional<double> attenuationDbPerKm, attenuationSdDbPerKm;  // of the section before
  std::optional<double> cumulatedDb;                               // from the begin of the link
  EventVerdict verdict;                                            // of its numbers
};

// A fibre at one wavelength.
struct Wave {
  int nm = 0;                           // nominal wavelength
  const PicturedTrace* a = nullptr;     // from the first end; null for none
  const PicturedTrace* b = nullptr;     // from the other end
  bool merged = false;                  // its lines are of both
  double zeroAKm = 0.0, zeroBKm = 0.0;  // where the link begins on each trace, km from the user's zero
  std::optional<double> lengthKm, lossDb, lossSdDb, returnLossDb;  // of the link
  bool returnLossAtMost = false;       // an event was saturated: it is no more than that
  std::optional<LinkVerdict> verdict;  // none without limits
  std::vector<EventLine> lines;        // along the link

  // The trace whose card speaks for the wavelength.
  const PicturedTrace& First() const { return a != nullptr ? *a : *b; }
};

// What one page tells of.
struct Fibre {
  std::string cable, name;
  std::vector<Wave> waves;
  std::vector<std::string> findings;  // what is wrong beside its numbers
  Verdict verdict = Verdict::kNone;   // none where nothing is judged and nothing was found
  CableRow row;                       // as the cable's summary has it
};

// All that a report tells, in the order of its pages.
struct Job {
  std::string cable;  // name of the one cable; empty for several
  std::vector<Fibre> fibres;
  std::vector<CableTotals> totals;    // by wavelength
  CableFigures lengthKm;              // of all fibres
  std::vector<int> histogram;         // of splices, as in CableReport
  std::vector<std::string> findings;  // of files
  std::vector<CableJoint> joints;     // at the same place through all fibres, of one cable
  bool judged = false;                // there are limits
  int passing = 0, failing = 0;       // fibres
};

// Finds which traces are one fibre. Those of one cable, by name, are held against each other as the command
// for cables does; what names no cable is a fibre by itself, since nothing says that it has to be like
// others.
Job MakeJob(const std::vector<PicturedTrace>& traces, const PaperOptions& options);

}  // namespace reflyze::paper
