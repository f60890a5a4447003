#pragma once

#include <cmath>
#include <functional>
#include <memory>
#include <utility>

#include "ref/ref_Math.h"
#include "src/Auto.h"
#include "tests/support/trace.h"

namespace support {

// An analysis in the state in which its driver hands it to the later stages: the scale of the trace settled
// from what the trace was built with, and no lines yet.
class PreparedAnalysis {
 public:
  explicit PreparedAnalysis(const TraceSpec& spec) : sor(BuildTrace(spec)) {
    engine.sor = sor.get();
    engine.linf = RefEmbGetLinf(sor.get());
    engine.nPoints = spec.points;
    engine.nf = spec.noiseFloorDb;
    engine.owtDS = spec.spacingOwt;
    engine.dbOnOwt = spec.receiverDbPerPoint / spec.spacingOwt;
    engine.owtRecover = 1.5 / engine.dbOnOwt;
    engine.winPulse = Window(0.0);
    engine.winEvent = Window(1.0);
    engine.winDead = Window(3.0);
    engine.aciNominal = 0.2;
    engine.lenDS = static_cast<float>(sor->dOwtToLen(engine.owtDS));
    engine.lossDS = static_cast<float>(engine.aciNominal * engine.lenDS);
    engine.noiseAmp = 0.05;
    engine.th.Event = engine.th.THLoss;
  }

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

  std::unique_ptr<TSorData> sor;
  TAuto engine;

 private:
  long Window(double recoveries) const {
    const double pulseOwt = sor->FxdParams->GetOwtPulse(0.0);
    return static_cast<long>(std::ceil((recoveries * engine.owtRecover + pulseOwt) / engine.owtDS + 1.0));
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

// A trace with the level (dB) given for each point.
inline TraceSpec LevelSpec(long points, std::function<double(long)> level) {
  TraceSpec spec;
  spec.points = points;
  spec.level = std::move(level);
  return spec;
}

}  // namespace support
