// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "reflyze/cable.h"
#include "reflyze/trace.h"

// What is needed to draw a trace, without its samples: a report of a thousand traces is drawn at its end, and
// the samples of all of them would fill the memory.

namespace reflyze {

// A curve as a line through points. Where a picture has fewer columns than the trace has points, the lowest
// and the highest point of each column stand for all, so that no spike and no noise gets lost.
struct Curve {
  std::vector<float> km;  // distance from the user's zero, km, ascending
  std::vector<float> db;  // level, dB, one each
};

// The curve between two places in km, for a picture of so many columns.
REFLYZE_API Curve CurveBetween(const Trace& trace, double fromKm, double toKm, int columns);

// A trace with all that a report tells of it.
struct PicturedTrace {
  CableTrace trace;             // its events, and which fibre it is of
  Card card;                    // what the record says of itself
  Curve whole;                  // from the first point to a little behind the end of the fibre
  std::vector<Curve> closeUps;  // around the launch, the connectors behind and in front of reels, the end
};

// Analyses a trace and keeps what is needed to draw it. Throws what Analyse throws.
REFLYZE_API PicturedTrace PictureOf(Trace trace, const AnalyseOptions& options = {});

}  // namespace reflyze
