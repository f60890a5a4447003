// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Counts.h"

#include <string>
#include <utility>

#include "watch/store/Rows.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {
namespace {

using soci::into;

std::string OfFibre(Id fibre) { return fibre > 0 ? " AND fibre = " + std::to_string(fibre) : ""; }

long CountOf(soci::session& session, const std::string& from) {
  long long count = 0;
  session << "SELECT COUNT(*) FROM " + from, into(count);
  return static_cast<long>(count);
}

}  // namespace

std::map<Id, FibreAlarms> AlarmsByFibre(soci::session& session, Id fibre) {
  Id id = 0;
  int worst = 0;
  long long count = 0, unacknowledged = 0;
  // "state < 2" lets the index of open alarms serve.
  const auto rows = RowsOf(
      session,
      "SELECT fibre, MAX(severity), COUNT(*), SUM(CASE WHEN acknowledged_at = 0 THEN 1 ELSE 0 END)"
      " FROM alarms WHERE state < 2 AND state = 1" +
          OfFibre(fibre) + " GROUP BY fibre",
      [&](soci::statement& statement) {
        statement.exchange(into(id));
        statement.exchange(into(worst));
        for (long long* number : {&count, &unacknowledged}) statement.exchange(into(*number));
      },
      NoValues,
      [&] {
        return std::make_pair(id, FibreAlarms{static_cast<Severity>(worst), static_cast<long>(count),
                                              static_cast<long>(unacknowledged)});
      });
  return {rows.begin(), rows.end()};
}

std::map<Id, long> WaitingByFibre(soci::session& session, Id fibre) {
  Id id = 0;
  long long count = 0;
  const auto rows = RowsOf(
      session, "SELECT fibre, COUNT(*) FROM traces WHERE state = 0" + OfFibre(fibre) + " GROUP BY fibre",
      [&](soci::statement& statement) {
        for (long long* number : {&id, &count}) statement.exchange(into(*number));
      },
      NoValues, [&] { return std::make_pair(id, static_cast<long>(count)); });
  return {rows.begin(), rows.end()};
}

StoreCounts CountAll(soci::session& session) {
  StoreCounts counts;
  int severity = 0;
  long long count = 0;
  const auto alarms = RowsOf(
      session, "SELECT severity, COUNT(*) FROM alarms WHERE state < 2 AND state = 1 GROUP BY severity",
      [&](soci::statement& statement) {
        statement.exchange(into(severity));
        statement.exchange(into(count));
      },
      NoValues, [&] { return std::make_pair(static_cast<std::size_t>(severity), static_cast<long>(count)); });
  for (const auto& [which, many] : alarms) {
    if (which < counts.openAlarms.size()) counts.openAlarms[which] = many;
  }
  counts.waitingTraces = WaitingCount(session);
  counts.waitingDeliveries = CountOf(session, "deliveries WHERE state = 0");
  counts.deadDeliveries = CountOf(session, "deliveries WHERE state = 2");
  counts.fibres = CountOf(session, "fibres");
  return counts;
}

}  // namespace reflyze::watch
