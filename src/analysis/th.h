// SPDX-License-Identifier: Apache-2.0
#pragma once

class TSorData;

// The thresholds of the event analysis and of the comparison with a baseline, and how they live in INI files.
// They are plain values: a host fills one and hands it over with the trace.

#include "util/export.h"
#include "util/tstring.h"

class TIniSection;

// Every threshold and limit of the event analysis. Layout and defaults are shared with the host.
class REFLYZE_API TTH {
 public:
  double THLoss = 0.2;      // dB, smallest loss that counts as an event (LT)
  double THRef = -60.0;     // dB, smallest reflectance that counts as a reflection (RT)
  double THEnd = 20.0;      // dB, loss that ends the fibre (ET)
  double THEndPON = 30.0;   // dB, the same meant for links with a splitter; carried for the host
  double THAux1 = -40.0;    // carried for the host
  double Event = 0.02;      // dB, working step of the search; an analysis starts it from THLoss
  double dBkm = 0.25;       // dB/km, attenuation threshold (CT), stored back into the trace
  double THAux2 = 0.05;     // carried for the host
  double polar = 0.1;       // dB, noise amplitude assumed where none was measured
  double RefSat = -0.2;     // dB, a peak at or above this level has saturated the receiver
  double MinLine = 0.0;     // km, shortest section accepted in front of an event
  int AuxCount = 100;       // carried for the host
  int MinPin = 10;          // points, shortest averaging window
  int MaxPin = 100;         // points, longest averaging window
  double NFMargin = -1.0;   // dB, added to the noise floor to make the guard level of a search
  int fromAutomat = 0;      // set when the comparison asks for the analysis: thresholds are taken literally
  int noShortAnalysis = 0;  // 1 or more refuses the filter-based search and leaves the direct one
  TString path;             // INI file of IniTH and HasSection

  // What an analysis makes of thresholds that it does not take literally.
  static constexpr double kLowestReflectanceDb = -64.5;  // the record's threshold ends here: from here down
  static constexpr double kEveryReflectanceDb = -80.0;   // it stands for every reflection
  static constexpr double kLeastEndDb = 1.0;             // a fibre does not end at a splice

  // `iniPath` names the INI file; null stands for "ThresH.ini". All thresholds start at their defaults.
  explicit TTH(const char* iniPath = nullptr);

  // Every threshold back to its default. `path` stays.
  void Reset();
  // Takes the four thresholds that a trace itself carries; the rest stays.
  void Take(const TSorData& trace);

  // Nine of the thresholds have a key in the section. Reading keeps the present value of a key that is
  // missing; a null section is ignored.
  void ReadSectionTH(TIniSection* section);
  void WriteSectionTH(TIniSection* section);

  // Whether the file exists, can be read and holds the section.
  bool HasSection(const char* section) const;

  // `mode` "r" reads the section of the file, "w" adds it to the file; any other mode does neither. 1 for
  // success, 0 when the file can't be read or written. Without a section name it is "NON".
  int IniTH(const char* section, const char* mode);
  int IniTH(const char* mode);
};

// The changes that a monitored trace may show against its baseline.
class REFLYZE_API TdTH {
 public:
  double dTHLoss = 0.2;     // dB
  double dTHRef = -60.0;    // dB
  double dBkmDelta = 0.25;  // dB/km
  TString path;             // INI file

  // `iniPath` names the INI file; null stands for "Monitor.ini".
  explicit TdTH(const char* iniPath = nullptr);

  void ReadSectionTH(TIniSection* section);
  void WriteSectionTH(TIniSection* section);

  // As TTH::IniTH, but mode "w" gives the status of the file: 0 when it was written. Hosts know the two
  // apart.
  int IniTH(const char* section, const char* mode);
  int IniTH(const char* mode);
};

// One detected point, for listing in an INI file.
class REFLYZE_API TEventPoint {
 public:
  double EventPointValue = 0.0;
  double EventPointAccuracy = 0.0;
  int EventPointType = 0;  // one character

  // Writes the key "Ev" followed by `index`, or "Ev" alone for a negative index. Both figures are first
  // cut to three decimals towards zero, in the object too: it holds what is written.
  void SetIni(TIniSection* section, int index);
  // The text form is for readers only and is not read back.
  void GetIni(TIniSection* section);
  void Assign(TEventPoint* other);
};
