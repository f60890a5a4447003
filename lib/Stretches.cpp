// SPDX-License-Identifier: Apache-2.0
#include "lib/Stretches.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

// A stretch is looked at in this many pieces, the first of which holds its beginning. The median level of a
// piece does not see a reflection, which may be higher in one stretch than in the other.
constexpr long kPieces = 48;
constexpr long kPiecesAtTheBeginning = 12;

struct StretchLevels {
  double pulseNs = 0.0;
  double beginDb = 0.0;  // the highest level near its beginning
  double endDb = 0.0;
};

double MiddleDb(const TSorData& record, long first, long count) {
  std::vector<double> levels;
  for (long n = first; n < first + count; ++n) levels.push_back(record.NumToLevel(n));
  const auto middle = levels.begin() + static_cast<long>(levels.size() / 2);
  std::nth_element(levels.begin(), middle, levels.end());
  return *middle;
}

// The pieces of each stretch. None where stretches and points don't agree, or a stretch is too short to tell.
std::vector<StretchLevels> LevelsOfStretches(const TSorData& record) {
  const TSorBlockFixedParameters& fixed = *record.FxdParams;
  std::vector<StretchLevels> stretches;
  long first = 0;
  for (int i = 0; i < fixed.TPW; ++i) {
    const long points = fixed.NPPW[i], piece = points / kPieces;
    if (piece < 1 || first + points > record.DataPts->GetPointsNum()) return {};
    StretchLevels stretch;
    stretch.pulseNs = fixed.PWU[i];
    stretch.endDb = MiddleDb(record, first + points - piece, piece);
    stretch.beginDb = MiddleDb(record, first, piece);
    for (long k = 1; k < kPiecesAtTheBeginning; ++k)
      stretch.beginDb = std::max(stretch.beginDb, MiddleDb(record, first + k * piece, piece));
    stretches.push_back(stretch);
    first += points;
  }
  return stretches;
}

// How far a step of level is from what the pulses explain. Backscatter grows with the pulse, by half of its
// decibels one way. Most instruments take that out again; the smaller of both differences counts.
double UnexplainedDb(double stepDb, double fromNs, double toNs) {
  const double gainDb = fromNs > 0.0 && toNs > 0.0 ? 5.0 * elementary::Log10(toNs / fromNs) : 0.0;
  return std::min(std::fabs(stepDb), std::fabs(stepDb - gainDb));
}

// A broken file may count thousands.
std::string PulsesOf(const TSorBlockFixedParameters& fixed) {
  constexpr int kMostNamed = 8;
  std::string text = std::to_string(fixed.PWU[0]);
  for (int i = 1; i < fixed.TPW; ++i) {
    if (i == kMostNamed) return text + ", ...";
    text += (i + 1 == fixed.TPW ? " and " : ", ") + std::to_string(fixed.PWU[i]);
  }
  return text;
}

}  // namespace

int TracesIn(const TSorData& record) {
  if (record.FxdParams->TPW < 2) return 1;
  const std::vector<StretchLevels> stretches = LevelsOfStretches(record);
  for (size_t i = 1; i < stretches.size(); ++i) {
    const StretchLevels &first = stretches[0], &before = stretches[i - 1], &stretch = stretches[i];
    const double asFirstDb = UnexplainedDb(stretch.beginDb - first.beginDb, first.pulseNs, stretch.pulseNs);
    const double goesOnDb = UnexplainedDb(stretch.beginDb - before.endDb, before.pulseNs, stretch.pulseNs);
    if (goesOnDb <= asFirstDb) return 1;
  }
  return std::max(static_cast<int>(stretches.size()), 1);
}

std::unique_ptr<TSorData> TraceOf(const TSorData& record, int index) {
  auto trace = std::make_unique<TSorData>();
  trace->Assign(record);
  TSorBlockFixedParameters& fixed = *trace->FxdParams;
  long first = 0;
  for (int i = 0; i < index; ++i) first += fixed.NPPW[i];
  const short pulse = fixed.PWU[index];
  const int spacing = fixed.DS[index], points = fixed.NPPW[index];
  fixed.SetTPW(1);
  fixed.PWU[0] = pulse;
  fixed.DS[0] = spacing;
  fixed.NPPW[0] = points;
  std::vector<unsigned short>& samples = trace->DataPts->GetSubBlock()->samples;
  samples = {samples.begin() + first, samples.begin() + first + points};
  trace->KeyEvents->events->Clear();
  trace->KeyEvents->Assign(TSorBlockKeyEvents());
  trace->QRTParams->MAX = 0;  // the lowest level, which was that of all traces together
  trace->UpdateChildrenWithNewDataType();
  trace->CalculateValues();
  trace->SetLinf();
  return trace;
}

std::string StretchWarning(const TSorData& record) {
  const TSorBlockFixedParameters& fixed = *record.FxdParams;
  const int traces = TracesIn(record);
  if (traces > 1) {
    return Format("holds %d traces, each from its own launch on, with pulses of %s ns", traces,
                  PulsesOf(fixed).c_str());
  }
  if (fixed.TPW < 2 ||
      std::all_of(fixed.PWU, fixed.PWU + fixed.TPW, [&](short ns) { return ns == *fixed.PWU; }))
    return "";
  return Format(
      "is one trace of %hd stretches, with pulses of %s ns; limits that follow the pulse go by the first",
      fixed.TPW, PulsesOf(fixed).c_str());
}

}  // namespace reflyze
