#pragma once

#include <memory>

#include "sor/sorData.h"
#include "src/analysis/th.h"

namespace reflyze::bench {

// A metro link of a dozen joints, sampled finer the more points it has: as many points a pulse for every
// size, so that windows in points, and with them the work a point, stay alike.
std::unique_ptr<TSorData> MetroTrace(long points);

// What may have happened to that link since its baseline.
enum class Change { kNothing, kBreak };

// Its baseline: analysed, and with limits for each event.
std::unique_ptr<TSorData> MetroBaseline(long points);
// A later trace of it; a break lies in its sixth section.
std::unique_ptr<TSorData> LaterTrace(long points, Change change);

std::unique_ptr<TSorData> CopyOf(const TSorData& trace);

// Thresholds of all analyses here.
TTH BenchThresholds();

}  // namespace reflyze::bench
