// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <memory>
#include <mutex>

#include "reflyze/events.h"
#include "reflyze/monitor.h"
#include "reflyze/trace.h"
#include "watch/store/Store.h"
#include "watch/store/Values.h"

namespace reflyze::watch {

// Limits as a baseline holds them.
Monitoring MonitoringOf(const WatchLimits& limits);

// A baseline that was read, with the limits of today.
struct ReadBaseline {
  Id id = 0;
  WatchLimits limits;
  Trace trace;
  EventTable events;
};

// The baselines that were used last. A network has more than the memory of a small machine holds.
class Baselines {
 public:
  explicit Baselines(Store& store) : store_(store) {}
  // Throws Error kUnreadable for a baseline that is not there, StoreAway.
  std::shared_ptr<const ReadBaseline> Get(Id id, const WatchLimits& limits);

 private:
  Trace WithLimits(Id id, const WatchLimits& limits);
  static constexpr std::size_t kKept = 256;
  Store& store_;
  std::mutex mutex_;
  std::list<std::shared_ptr<const ReadBaseline>> used_;  // the latest first
};

}  // namespace reflyze::watch
