// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "tests/src/analyser.h"

namespace support {

// An analysis at the stage of its lines: places by point, and lines made by hand.
struct PreparedAnalysis : Analyser {
  explicit PreparedAnalysis(const TraceSpec& spec) : Analyser(spec) {
    engine.noiseAmp = 0.05;
    engine.th.Event = engine.th.THLoss;
  }

  TSorData* const sor = trace.get();
  TAuto& engine = analysis;

  double Km(double point) const {
    return sor->dOwtToLen(sor->FxdParams->GetOwtDataOffset() + point * engine.owtDS);
  }
  // Nearest point of a length.
  long Point(double km) const { return std::lround(sor->dLenToNum(km)); }
  TEventLine& Line(int i) { return *engine.lines->GetData(i); }

  // Appends a section from point `from` to `to`, with levels as given, and an event at point `at`.
  TEventLine& Add(double from, double to, double at, double p0, double p1, char type, double peakDb) {
    auto* line = new TEventLine;
    engine.lines->AddData(line);
    line->L[0] = Km(from);
    line->L[1] = Km(to);
    line->L[2] = Km(at);
    line->P[0] = p0;
    line->P[1] = p1;
    line->P[2] = line->P1();
    line->type = type;
    line->peakLevel = peakDb;
    line->peakLen = line->L[2];
    return *line;
  }
};

// About 20 km of fibre at a metre a point, with a pulse of 10 points and a receiver that recovers 1.5 dB
// in 3.
inline TraceSpec MetreSpec() {
  TraceSpec spec;
  spec.points = 20000;
  spec.spacingOwt = 50.0;
  spec.startDb = -15.0;
  spec.SlopeDbPerKm(0.2);
  return spec;
}

}  // namespace support
