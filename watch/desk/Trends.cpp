// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Trends.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "watch/store/Rows.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {
namespace {

using nlohmann::json;

constexpr double kToldDaysAhead = 365.0;
// Older days tell of the fibre as it was; three years hold the seasons apart from the slope.
constexpr long kDaysLookedAt = 3 * 365;

json JsonOf(const EventTrend& one) {
  const Trend& trend = one.trend;
  return {{"event", one.event},
          {"quantity", one.quantity},
          {"per_month", trend.perMonth},
          {"low_per_month", trend.lowPerMonth},
          {"high_per_month", trend.highPerMonth},
          {"now", trend.now},
          {"season_db", trend.seasonDb ? json(*trend.seasonDb) : json(nullptr)},
          {"days", trend.days},
          {"creeps", trend.creeps}};
}

std::vector<int> EventsWithDays(soci::session& session, const Fibre& fibre) {
  int event = 0;
  return RowsOf(
      session,
      "SELECT DISTINCT event FROM event_days WHERE fibre = :fibre AND baseline = :baseline ORDER BY event",
      [&](soci::statement& statement) { statement.exchange(soci::into(event)); },
      [&](soci::statement& statement) {
        statement.exchange(soci::use(fibre.id));
        statement.exchange(soci::use(fibre.baseline));
      },
      [&] { return event; });
}

}  // namespace

std::vector<EventTrend> TrendsOf(soci::session& session, const Fibre& fibre, long day) {
  std::vector<EventTrend> trends;
  for (const int event : EventsWithDays(session, fibre)) {
    std::vector<DayMean> losses, reflectances;
    for (const EventDay& row : DaysOf(session, fibre.id, fibre.baseline, event)) {
      if (row.day >= day || row.day < day - kDaysLookedAt) continue;
      losses.push_back({row.day, row.lossDb});
      if (row.reflectanceCount > 0) reflectances.push_back({row.day, row.reflectanceDb});
    }
    if (const auto trend = TrendOf(losses)) trends.push_back({event, "loss_db", *trend});
    if (const auto trend = TrendOf(reflectances)) trends.push_back({event, "reflectance_db", *trend});
  }
  return trends;
}

std::vector<Finding> CreepingOf(const std::vector<EventTrend>& trends, const std::string& baselineEvents,
                                const WatchLimits& limits) {
  std::vector<Finding> findings;
  const json events = json::parse(baselineEvents, nullptr, false);
  for (const EventTrend& one : trends) {
    const auto index = static_cast<std::size_t>(one.event);
    if (!one.trend.creeps || !events.is_array() || index >= events.size()) continue;
    const json& begun = events[index][one.quantity];
    if (!begun.is_number()) continue;
    const double limit = one.quantity == "loss_db" ? limits.ltDb : limits.rtDb;
    const auto days = DaysUntil(one.trend, limit - (one.trend.now - begun.get<double>()));
    if (!days || *days > kToldDaysAhead) continue;
    Finding finding;
    finding.kind = AlarmKind::kTrend;
    finding.severity = Severity::kWarning;
    finding.event = one.event;
    finding.km = events[index]["km"].get<double>();
    finding.value = one.trend.perMonth;
    finding.limit = limit;
    char text[200];
    std::snprintf(text, sizeof text,
                  "%s at %.3f km creeps by %.4f dB a month (%.4f to %.4f); limit %.2f dB in %.0f days",
                  one.quantity == "loss_db" ? "loss" : "reflectance", finding.km, one.trend.perMonth,
                  one.trend.lowPerMonth, one.trend.highPerMonth, limit, std::max(0.0, *days));
    finding.sentence = text;
    findings.push_back(finding);
  }
  return findings;
}

void PutTrends(soci::session& session, Id fibre, long day, const std::vector<EventTrend>& trends) {
  const long long updated = day;
  session << "DELETE FROM trends WHERE fibre = :fibre", soci::use(fibre);
  for (const EventTrend& one : trends) {
    const std::string text = JsonOf(one).dump();
    session << "INSERT INTO trends VALUES (:fibre, :event, :quantity, :day, :trend)", soci::use(fibre),
        soci::use(one.event), soci::use(one.quantity), soci::use(updated), soci::use(text);
  }
}

std::string TrendsJson(soci::session& session, Id fibre) {
  std::string text;
  const std::vector<std::string> rows = RowsOf(
      session, "SELECT trend FROM trends WHERE fibre = :fibre ORDER BY event, quantity",
      [&](soci::statement& statement) { statement.exchange(soci::into(text)); },
      [&](soci::statement& statement) { statement.exchange(soci::use(fibre)); }, [&] { return text; });
  std::string all = "[";
  for (const std::string& row : rows) all += (all.size() > 1 ? "," : "") + row;
  return all + "]";
}

}  // namespace reflyze::watch
