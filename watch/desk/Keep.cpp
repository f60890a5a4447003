// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Keep.h"

#include <nlohmann/json.hpp>

#include "watch/store/JsonLine.h"

namespace reflyze::watch {

std::vector<AlarmChange> KeepChanges(soci::session& session, std::vector<AlarmChange> changes,
                                     const Listeners& listeners, Millis now) {
  for (AlarmChange& change : changes) {
    change.alarm.id = PutAlarm(session, change.alarm);
    if (!change.told) continue;
    for (const auto& [channel, least] : listeners) {
      if (change.alarm.severity >= least) Enqueue(session, change.alarm.id, *change.told, channel, now);
    }
  }
  return changes;
}

std::string JsonOf(const Alarm& alarm, const std::string& fibre) {
  const nlohmann::json value = {{"id", alarm.id},
                                {"fibre", fibre},
                                {"instrument", alarm.instrument},
                                {"kind", NameOf(alarm.kind)},
                                {"severity", NameOf(alarm.severity)},
                                {"state", NameOf(alarm.state)},
                                {"event", alarm.event},
                                {"km", alarm.km < 0.0 ? nlohmann::json(nullptr) : nlohmann::json(alarm.km)},
                                {"sd_km", alarm.sdKm},
                                {"value", alarm.value},
                                {"limit", alarm.limit},
                                {"sentence", alarm.sentence},
                                {"trace", alarm.lastTrace},
                                {"raised_at", alarm.raisedAt},
                                {"confirmed_at", alarm.confirmedAt},
                                {"cleared_at", alarm.clearedAt},
                                {"acknowledged_at", alarm.acknowledgedAt},
                                {"acknowledged_by", alarm.acknowledgedBy}};
  return JsonLine(value);
}

}  // namespace reflyze::watch
