// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/sorData.h"
#include "src/module/Auto.h"

namespace reflyze {

// How much speaks against a comparison with this result, by what it left in the current record. A fibre that
// ends at its launch or before it counts most: the comparison has just recognised it behind the launch. Then
// comes fibre behind an alleged end, and a whole fibre to whose end no light comes; then levels of the two
// traces that come apart within a section, by 4 a dB; then a change of loss that an event is said to have and
// that the levels don't show; then what speaks against the table as that of any trace (Implausibility). Noise
// alone stays below kFewDoubts.
double ComparisonDoubts(const TSorData& baseline, const TSorData& current, int result);
constexpr double kFewDoubts = 0.3;

// Whether light came to the end of the baseline and comes there no more.
bool EndsInTheDark(const TSorData& baseline, const TSorData& current);

// A comparison that tells of a whole fibre, to whose end no light comes, has taken noise for its end. The
// event behind which it gets dark then is a break: it is flagged so, and what lies behind it goes. Gives the
// result that holds.
int TellBreakBeforeTheDark(const TSorData& baseline, TSorData& current, int result);

// Whether a comparison with this result says that anything has changed.
bool TellsOfChange(const TSorData& compared, int result);

// Copies what a comparison of the same trace has written.
void TakeComparison(TSorData& record, const TSorData& compared);

// A copy of the baseline by which the least loss that an analysis accepts ends the fibre.
void LetLeastLossEnd(const TSorData& baseline, TSorData& copy);

// Compares `current` with `baseline` by `compare(baseline, current)`, which is service command 2 on them.
// Where the fibre ends and what is new on it rests on an analysis of the current trace inside the comparison,
// which searches from the events of the filter. Where too much speaks against the answer, the comparison is
// made anew:
// - on a trace whose levels are marked as final. It is not filtered, and that analysis searches it directly;
// - on one for which the baseline lets less loss end a fibre. Behind a peak the direct search takes the fibre
//   for ended as long as a loss so large takes along ten times its slope, which hides a break there.
// The answer with fewest doubts counts; one that tells of no change only without doubts.
template <class Compare>
int ComparePlausibly(TSorData& baseline, TSorData& current, Compare compare) {
  TSorData fresh;
  fresh.Assign(current);
  int result = compare(baseline, current);
  if (fresh.QRTParams->isFilter())
    return result;  // the comparison would smooth both, and the baseline for good
  double doubts = ComparisonDoubts(baseline, current, result);
  for (const bool sensitive : {false, true}) {
    if (doubts <= kFewDoubts || (sensitive && result != mrFibreBreak)) return result;
    TSorData again, lenient;
    again.Assign(fresh);
    again.QRTParams->DataPointsFiltered = 1;
    if (sensitive) LetLeastLossEnd(baseline, lenient);
    const int resultAgain = compare(sensitive ? lenient : baseline, again);
    const double doubtsAgain = ComparisonDoubts(baseline, again, resultAgain);
    if (doubtsAgain >= doubts || (doubtsAgain > kFewDoubts && !TellsOfChange(again, resultAgain))) continue;
    again.QRTParams->DataPointsFiltered = fresh.QRTParams->DataPointsFiltered;
    if (sensitive) again.RFTSParams->Assign(*baseline.RFTSParams);
    TakeComparison(current, again);
    result = resultAgain;
    doubts = doubtsAgain;
  }
  return result;
}

}  // namespace reflyze
