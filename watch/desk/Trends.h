// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "watch/store/Store.h"
#include "watch/store/Values.h"
#include "watch/trend/Trend.h"

namespace reflyze::watch {

// How one quantity of one event of a fibre moves.
struct EventTrend {
  int event = 0;
  std::string quantity;  // "loss_db" or "reflectance_db"
  Trend trend;
};

// The trends of a fibre's events by its days before `day`. Reads alone.
std::vector<EventTrend> TrendsOf(soci::session& session, const Fibre& fibre, long day);

// What creeps so that it reaches its limit within a year.
std::vector<Finding> CreepingOf(const std::vector<EventTrend>& trends, const std::string& baselineEvents,
                                const WatchLimits& limits);

// Keeps trends as JSON, for whoever looks on. Belongs inside Store::Write.
void PutTrends(soci::session& session, Id fibre, long day, const std::vector<EventTrend>& trends);
// JSON: a list of {event, quantity, per_month, low_per_month, high_per_month, now, season_db, days, creeps}.
std::string TrendsJson(soci::session& session, Id fibre);

}  // namespace reflyze::watch
