// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sor/sorData.h"
#include "src/analysis/th.h"

namespace reflyze::bench {

// A metro link of a dozen joints. With more points it is sampled finer, but a pulse has as many points in
// every size. Windows in points, and with them the work for each point, stay alike.
std::unique_ptr<TSorData> MetroTrace(long points);

// What may have happened to that link since its baseline.
enum class Change { kNothing, kBreak };

// Its baseline: analysed, and with limits for each event.
std::unique_ptr<TSorData> MetroBaseline(long points);
// A later trace of it; a break lies in its sixth section.
std::unique_ptr<TSorData> LaterTrace(long points, Change change);

// One trace of each kind that users have, from an access network to a submarine link, and of each size.
struct NamedTrace {
  std::string name;
  std::unique_ptr<TSorData> record;
};
std::vector<NamedTrace> FieldTraces();

std::unique_ptr<TSorData> CopyOf(const TSorData& trace);

// Thresholds of all analyses here.
TTH BenchThresholds();

}  // namespace reflyze::bench
