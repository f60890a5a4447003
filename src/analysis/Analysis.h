// SPDX-License-Identifier: Apache-2.0
#pragma once

// One analysis: it turns a trace into an ordered list of fibre sections with the events between them, and
// writes that list into the record's event table.
//
// An analysis is told its settings, measures the scale of the trace, notes what it sees of the noise, and
// gives a table. These are four structs, and the signature of each stage says which of them it reads and
// which it writes. Only the driver, Calculate, settles settings and scale; every stage behind it has them as
// constants.
//
// Positions are point indices (long), one-way times (OWT, units of 100 ps) or lengths in km; levels are in dB
// on the one-way scale (5 log10 of power), 0 at the top. Slopes are in dB/km, or in dB per point where said
// so, positive for a fibre that loses light.

#include <atomic>

#include "ref/events/refEventEdit.h"
#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

class TIni;

// How often each search found something since the module was loaded; a diagnostic that nothing reads. Atomic,
// as it is the one thing that analyses of different traces share.
struct TEventCounters {
  std::atomic<long> filterEvents{0};   // events of the automatic filter
  std::atomic<long> stepsBetween{0};   // steps that the detectors found between them
  std::atomic<long> insideSplices{0};  // splices found inside sections
};
extern TEventCounters Event;

namespace reflyze {

// All that one analysis works with. It may be used for one trace after the other: what the detectors have
// learned from one, and the figures that a search does not reach, stay for the next.
struct AnalysisState : AnalysisSettings, TraceScale, NoiseSeen, LineTable {
  AnalysisSettings& settings() { return *this; }
  TraceScale& scale() { return *this; }
  NoiseSeen& noise() { return *this; }
  LineTable& table() { return *this; }
};

// One complete analysis of `trace`, written into it. Without `thresholds` those stored in the trace hold. Who
// wants the events and nothing else leaves out the return loss.
void AnalyseRecord(AnalysisState& analysis, TSorData& trace, const TTH* thresholds,
                   ReturnLoss returnLoss = ReturnLoss::kMeasured);

// Measures the scale of the trace `scale.sor`, searches it and fills the table. False where the trace can't
// be analysed, as without a usable time base. The record's event table is left alone (AutoCalculate.cpp).
bool Calculate(AnalysisSettings& settings, TraceScale& scale, NoiseSeen& noise, LineTable& table);

// Lists lines and overall figures in an INI document.
void ListTable(const LineTable& table, TIni& ini);

}  // namespace reflyze
