// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Baselines.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "watch/store/Fibres.h"

namespace reflyze::watch {

namespace {

bool Same(const WatchLimits& one, const WatchLimits& other) {
  return one.level == other.level && one.ltDb == other.ltDb && one.rtDb == other.rtDb &&
         one.ctDbPerKm == other.ctDbPerKm && one.eelDb == other.eelDb;
}

}  // namespace

Monitoring MonitoringOf(const WatchLimits& limits) {
  Monitoring monitoring;
  monitoring.level = limits.level;
  monitoring.ltDb = limits.ltDb;
  monitoring.rtDb = limits.rtDb;
  monitoring.ctDbPerKm = limits.ctDbPerKm;
  monitoring.eelDb = limits.eelDb;
  return monitoring;
}

// A record has the limits of when it was made. Where others hold now it is made anew, once; its events stay.
Trace Baselines::WithLimits(Id id, const WatchLimits& limits) {
  std::optional<BaselineRow> row;
  const std::string bytes = store_.Read([&](soci::session& session) {
    row = FindBaseline(session, id);
    return BaselineBytes(session, store_.Kind(), id);
  });
  Trace trace = Trace::FromBytes("baseline", std::vector<char>(bytes.begin(), bytes.end()));
  if (!row || row->limits == LimitsText(limits)) return trace;
  const Baseline baseline = MakeBaseline(trace, MonitoringOf(limits));
  const std::string made = baseline.record.Bytes();
  row->limits = LimitsText(limits);
  store_.Write([&](soci::session& session) {
    if (FindBaseline(session, id)) PutBaselineRecord(session, store_.Kind(), *row, made);
  });
  return baseline.record.Read();
}

std::shared_ptr<const ReadBaseline> Baselines::Get(Id id, const WatchLimits& limits) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find_if(used_.begin(), used_.end(), [&](const auto& one) {
      return one->id == id && Same(one->limits, limits);
    });
    if (found != used_.end()) {
      used_.splice(used_.begin(), used_, found);
      return used_.front();
    }
  }
  Trace trace = WithLimits(id, limits);
  EventTable events = StoredEvents(trace);
  events.record = StoredRecord();  // a second copy of the trace
  auto read =
      std::make_shared<const ReadBaseline>(ReadBaseline{id, limits, std::move(trace), std::move(events)});
  const std::lock_guard<std::mutex> lock(mutex_);
  used_.push_front(read);
  if (used_.size() > kKept) used_.pop_back();
  return read;
}

}  // namespace reflyze::watch
