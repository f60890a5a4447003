// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoModel.h"

// What the lines say, seen from the other side: the trace that they describe, and the dead zones that its
// events leave. For hosts that draw the result or qualify an instrument.

#include <algorithm>
#include <memory>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/AutoNumerics.h"
#include "util/convert.h"

namespace reflyze {

std::unique_ptr<TSorData> SorGenerate(const TraceScale& scale, LineTable& table) {
  TOxArray<TEventLine, TEventLine*>& lines = *table.lines;
  const TSorData* const sor = scale.sor;
  const double nf = scale.nf;
  if (lines.GetSize() == 0) return nullptr;
  auto model = std::make_unique<TSorData>();
  model->Assign(*sor);
  TSorBlockDataPoints& points = *model->DataPts;
  const long last = points.GetPointsNum() - 1;
  if (last < 0) return model;
  points.SetLevel(0, table.firstRefl);
  points.SetLevel(std::clamp(TruncToLong(sor->OwtTofNum(sor->GetMinOwt())), 0L, last), table.firstRefl);

  for (int i = 0; i < lines.GetSize(); ++i) {
    TEventLine& line = *lines.GetData(i);
    const long from = std::max(TruncToLong(sor->dLenToNum(line.L[0]) + 0.5), 0L);
    long to = TruncToLong(sor->dLenToNum(line.L[2]) + 0.5);
    constexpr double kIntoNoiseDb = 0.7;
    if (line.P[1] < nf - kIntoNoiseDb && line.P[0] > nf - kIntoNoiseDb && line.peakLevel < nf) {
      // The fit ran on into the noise; the fibre shows only down to it.
      line.L[2] -= (nf - line.P[1]) / line.LossKm();
      LossSquare(scale.sor, line);
    }
    if (to >= last) to = last - 1;
    for (long j = from; j <= to; ++j) {
      points.SetLevel(j, line.P[0] - (sor->NumToALen(j) - line.L[0]) * line.LossKm());
    }
    if (to + 1 >= 0) points.SetLevel(to + 1, line.peakLevel);
  }
  return model;
}

double CalcAttDZ(TSorData* s, double start, const TEventLine& line, double delta) {
  const double stepDb = line.Loss() / (s->dLenToNum(line.L[1]) - s->dLenToNum(line.L[0]));
  const long first = TruncToLong(s->dLenToNum(start));
  long point = TruncToLong(s->dLenToNum(line.L[0]));
  double limitDb = line.P[0] + delta;
  double overDb = 0.0;
  for (; point > first; --point) {
    overDb = s->NumToLevel(point) - limitDb;
    if (overDb > 0.0) break;
    limitDb += stepDb;
  }
  // Where between two points the trace crosses the limit.
  const double fallDb = s->NumToLevel(point) - s->NumToLevel(point + 1);
  const double shareKm = fallDb == 0.0 ? 0.0 : s->FxdParams->LenDS() * overDb / fallDb;
  return shareKm + s->NumToALen(point) - start;
}

double CalcEvntDZ(TSorData* s, double a, double b) {
  const long first = TruncToLong(s->dLenToNum(a));
  const long last = TruncToLong(s->dLenToNum(b));
  double lowDb = 0.0, highDb = 0.0;
  long lowAt = 0, peak = 0;
  s->DataPts->GetMinMax(&lowDb, &highDb, first, last + 1, lowAt, peak);
  return RefAutoCalcEDZ(s, peak) * s->FxdParams->LenDS();
}

}  // namespace reflyze
