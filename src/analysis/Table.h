// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/EventLine.h"
#include "util/tarray.h"

namespace reflyze {

// What an analysis gives: the lines, from which the record's event table is written, and the figures of the
// trace as a whole. Figures that a search does not reach keep what the analysis before it has left.
struct LineTable {
  LineTable() : lines(new TOxArray<TEventLine, TEventLine*>) {}
  ~LineTable() { delete lines; }
  LineTable(const LineTable&) = delete;
  LineTable& operator=(const LineTable&) = delete;

  TOxArray<TEventLine, TEventLine*>* lines;  // owned
  double aciEnd = 0.0;                       // dB/km, slope of the last line, by SearchEnd
  double maxDbKm = 20.0;                     // dB/km, steepest slope that counts as fibre
  double lBeg = 0.0;                         // km, start of the last line search
  double lEnd = 0.0;                         // km, end of the fibre
  double lLaunch = 0.0;                      // km, launch point
  double firstRefl = 0.0;                    // dB, peak at the start of the trace
  double firstReflOwt = 0.0;                 // OWT of that peak
  double endRefl = 0.0;                      // dB, peak at the end of the fibre
  double dz05 = 0.0;                         // km, dead zone at 0.5 dB
  double dz01 = 0.0;                         // km, dead zone at 0.1 dB
  double pZero = 0.0;                        // dB, level of the first line extended to point 0
  double pEnd = 0.0;                         // dB, level at the last point of the fibre
  double dr = 0.0;                           // dB, dynamic range
  double lossTotal = 0.0;                    // dB, loss of the whole fibre
};

}  // namespace reflyze
