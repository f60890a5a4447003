// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <string>
#include <utility>
#include <vector>

#include "watch/store/Store.h"
#include "watch/store/Values.h"

namespace reflyze::watch {

// The rows of a query. `into` names the columns' variables to the statement, `bind` the values that the query
// asks for, and `make` gives what a row is worth once its variables are filled.
template <typename Into, typename Bind, typename Make>
auto RowsOf(soci::session& session, const std::string& query, Into into, Bind bind, Make make) {
  std::vector<decltype(make())> rows;
  soci::statement statement(session);
  statement.alloc();
  statement.prepare(query);
  into(statement);
  bind(statement);
  statement.define_and_bind();
  statement.execute(false);
  while (statement.fetch()) rows.push_back(make());
  return rows;
}

inline void NoValues(soci::statement&) {}

// The time by which centres are alive: that of the server which several share, else `now`.
inline std::string LeaseClock(Dialect kind, Millis now) {
  return kind == Dialect::kPostgres ? "CAST(EXTRACT(EPOCH FROM clock_timestamp()) * 1000 AS BIGINT)"
                                    : std::to_string(now);
}

}  // namespace reflyze::watch
