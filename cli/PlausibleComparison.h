#pragma once

#include "sor/sorData.h"

namespace reflyze::cli {

// How much speaks against what a comparison with this result left in the current record. What counts most is
// fibre behind an alleged end; then levels of the two traces that come apart within a section, by 4 a dB;
// then a change of loss that an event is said to have and the levels don't show, and what else speaks against
// the table as that of any trace (Implausibility). Noise alone stays below kFewDoubts.
double ComparisonDoubts(const TSorData& baseline, const TSorData& current, int result);
constexpr double kFewDoubts = 0.3;

// Whether a comparison with this result takes the place of another about which there are `doubts`: there are
// fewer about it, and it does not hush up a change that it can't explain.
bool IsMorePlausible(const TSorData& baseline, const TSorData& compared, int result, double doubts);

// Takes over what a comparison of the same trace has written.
void TakeComparison(TSorData& record, const TSorData& compared);

// Compares `current` with `baseline` by `compare(current)`, which is service command 2 on them. Where the
// fibre ends and what is new on it rests on an analysis of the current trace inside the comparison, which
// searches from the events of the filter. A trace whose levels are marked as final is not filtered, and that
// analysis searches it directly: so it is asked again where too much speaks against the first answer.
template <class Compare>
int ComparePlausibly(const TSorData& baseline, TSorData& current, Compare compare) {
  TSorData again;
  again.Assign(current);
  const int result = compare(current);
  const double doubts = ComparisonDoubts(baseline, current, result);
  if (doubts <= kFewDoubts || again.QRTParams->isFilter()) return result;
  const short levelsFinal = again.QRTParams->DataPointsFiltered;
  again.QRTParams->DataPointsFiltered = 1;
  const int resultAgain = compare(again);
  again.QRTParams->DataPointsFiltered = levelsFinal;
  if (!IsMorePlausible(baseline, again, resultAgain, doubts)) return result;
  TakeComparison(current, again);
  return resultAgain;
}

}  // namespace reflyze::cli
