// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "reflyze/events.h"

namespace reflyze {

// What an event code of SR-4731 says, such as "1F9999" with the technique "LS". Its first character tells how
// the event looks (0, 1, 2), the second where it comes from (A, D, E, F, M, O), and four digits name a
// landmark, 9999 none.
struct CodeMeaning {
  std::string words;       // "reflection, found by software, least squares"
  bool known = true;       // all of it is of the standard
  bool byHand = false;     // a person has added or moved the event
  bool endsFibre = false;  // the fibre ends there, or leaves the range
};

// A code in words. The technique of the loss measurement may stand behind the code, as listings have it. What
// the standard does not know is told as it stands.
REFLYZE_API CodeMeaning MeaningOf(const std::string& code, const std::string& technique = "");

// An event as the file lists it, and beside it what was measured on the trace.
struct SheetRow {
  std::optional<Event> stored;                  // none for an event that the file does not list
  CodeMeaning meaning;                          // of its code
  std::optional<Event> measured;                // none where nothing was found there, or nobody has measured
  std::optional<double> distanceOffM;           // what was measured less what the file has, m
  std::optional<double> lossOffDb;              // the same of the loss, dB
  std::optional<double> reflectanceOffDb;       // of the reflectance, dB
  std::optional<double> attenuationOffDbPerKm;  // of the section before, dB/km
};

// Length and sums of a link.
struct SheetTotals {
  std::optional<double> lengthKm;      // km, of the last event from the user's zero
  std::optional<double> totalLossDb;   // end to end, dB
  std::optional<double> returnLossDb;  // dB
};

// What a file says of itself. Numbers are the file's own. A file has a number in every place: a stored 0
// stands for a loss, a reflectance, an attenuation or a threshold that nobody has measured or set, and is
// none here. So is the loss of an end, where the light itself is lost.
struct Sheet {
  std::string file;                    // as it was given
  long long bytes = 0;                 // of the file
  int revision = 0;                    // of the record: 200 for issue 2 of SR-4731, below for issue 1
  Card card;                           // cable, fibre, instrument, how the trace was taken
  bool hasFibreType = true;            // records of issue 1 tell none
  std::string dataState;               // BC as built, CC as it was at the time, RC as repaired, OT other
  std::string direction;               // ST, RT (from the other end), DT, RF; "" where the file tells none
  double nominalNm = 0.0;              // nominal wavelength, nm
  std::optional<int> averagingTime;    // as stored: tenths of a second by SR-4731, seconds from many makers
  std::optional<double> firstKm;       // where the first point stands, km from the user's zero
  std::optional<double> noiseFloorDb;  // dB, a level of the trace
  Thresholds thresholds;               // by which the file's events were found
  SheetTotals stored;                  // of the file's table
  SheetTotals measured;                // of the measured one
  Measurement measurement = Measurement::kNone;  // kFailed where the trace can't be measured
  std::vector<SheetRow> rows;                    // along the fibre
  std::vector<Warning> warnings;                 // what a user should know
};

// What is asked for.
struct SheetOptions {
  bool measure = false;  // analyse the trace too, and set what is found beside what the file lists
};

// The card and the event table of a file. A file that can't be measured has them too: `measurement` is then
// kFailed where measuring was asked for, and a warning tells why. Throws Error kUnreadable where a block of
// the file is not where its map puts it.
REFLYZE_API Sheet SheetOf(const Trace& trace, const SheetOptions& options = {});

}  // namespace reflyze
