// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/th.h"

class TSorData;

namespace reflyze {

// How much speaks against an event table on its trace; 0 if nothing does. From worst to least: events out of
// order, backscatter that goes on behind the end, a long stretch of fibre that is left out, an event that
// loses or gains more than the whole link does, two events far apart that are taken for one.
int Implausibility(TSorData& record);
constexpr int kWrongTable = 8;  // a table that can't be true; less is one in doubt

// Instruments of this family store how fast their receiver falls; those of other makers don't. The engine
// then reads the rate off the edge behind the launch, where light of the backscatter lies under it. Where the
// launch stands out by little, or not enough for the engine to tell, the rate comes out several times too
// low, and every event that much longer. A first-order receiver that falls by R onto B begins, in dB, at R /
// (R + B) of its rate. This stores the edge's rate without that share. It does nothing where the record or a
// clear launch knows better.
void GiveReceiverRate(TSorData& record);

// Analyses a record by `analyse(thresholds)`, which is a service command on it. The search from the filter's
// events comes first. It tells close events apart best, but can miss a fibre that ends without a reflection.
// The direct search takes over where less speaks against its table. Thresholds are taken literally, and say
// afterwards which search it was.
template <class Analyse>
void AnalysePlausibly(TSorData& record, TTH& thresholds, Analyse analyse) {
  GiveReceiverRate(record);
  thresholds.fromAutomat = 1;
  analyse(thresholds);
  if (thresholds.noShortAnalysis != 0) return;
  const int doubts = Implausibility(record);
  if (doubts == 0) return;
  thresholds.noShortAnalysis = 1;
  analyse(thresholds);
  if (Implausibility(record) < doubts) return;
  thresholds.noShortAnalysis = 0;
  analyse(thresholds);
}

}  // namespace reflyze
