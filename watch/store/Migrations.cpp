// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Migrations.h"

#include <vector>

namespace reflyze::watch {
namespace {

// The steps, oldest first. A step that was released never changes; a new one comes behind it. "%id" is a
// number that the database gives, "%bytes" what holds any bytes; what begins with "%server" is for PostgreSQL
// alone.
const std::vector<std::vector<const char*>>& Steps() {
  static const std::vector<std::vector<const char*>> steps = {
      {
          "CREATE TABLE limits (name TEXT PRIMARY KEY, level TEXT NOT NULL, lt_db DOUBLE PRECISION NOT NULL,"
          " rt_db DOUBLE PRECISION NOT NULL, ct_db_per_km DOUBLE PRECISION NOT NULL,"
          " eel_db DOUBLE PRECISION NOT NULL)",
          "INSERT INTO limits VALUES ('default', 'default', 0.2, 2.0, 0.05, 0.5)",
          "CREATE TABLE instruments (name TEXT PRIMARY KEY, title TEXT NOT NULL, last_received_at BIGINT NOT "
          "NULL)",
          "CREATE TABLE fibres (id %id, name TEXT NOT NULL UNIQUE, title TEXT NOT NULL, from_end TEXT NOT "
          "NULL,"
          " to_end TEXT NOT NULL, instrument TEXT NOT NULL, route TEXT NOT NULL,"
          " limits TEXT NOT NULL REFERENCES limits(name), confirm INTEGER NOT NULL,"
          " every_seconds BIGINT NOT NULL, baseline BIGINT NOT NULL, last_taken_at BIGINT NOT NULL,"
          " last_received_at BIGINT NOT NULL, waiting_since BIGINT NOT NULL, claimed_by TEXT NOT NULL)",
          "CREATE INDEX fibres_waiting ON fibres(waiting_since) WHERE waiting_since > 0",
          "CREATE INDEX fibres_instrument ON fibres(instrument)",
          "CREATE TABLE baselines (id %id, fibre BIGINT NOT NULL REFERENCES fibres(id) ON DELETE CASCADE,"
          " made_at BIGINT NOT NULL, made_by TEXT NOT NULL, card TEXT NOT NULL, events TEXT NOT NULL)",
          "CREATE TABLE baseline_bytes (id BIGINT PRIMARY KEY REFERENCES baselines(id) ON DELETE CASCADE,"
          " bytes %bytes NOT NULL)",
          "CREATE TABLE traces (id %id, fibre BIGINT NOT NULL REFERENCES fibres(id) ON DELETE CASCADE,"
          " hash TEXT NOT NULL, taken_at BIGINT NOT NULL, received_at BIGINT NOT NULL, size BIGINT NOT NULL,"
          " state INTEGER NOT NULL, card TEXT NOT NULL, problem TEXT NOT NULL, UNIQUE (fibre, hash))",
          "CREATE INDEX traces_waiting ON traces(fibre, taken_at, id) WHERE state = 0",
          "CREATE INDEX traces_taken ON traces(fibre, taken_at)",
          "CREATE TABLE trace_bytes (id BIGINT PRIMARY KEY REFERENCES traces(id) ON DELETE CASCADE,"
          " bytes %bytes NOT NULL)",
          "CREATE TABLE comparisons (id %id, trace BIGINT NOT NULL UNIQUE REFERENCES traces(id) ON DELETE "
          "CASCADE,"
          " fibre BIGINT NOT NULL REFERENCES fibres(id) ON DELETE CASCADE, baseline BIGINT NOT NULL,"
          " taken_at BIGINT NOT NULL, result INTEGER NOT NULL, changed INTEGER NOT NULL, late INTEGER NOT "
          "NULL,"
          " end_km DOUBLE PRECISION NOT NULL, sentences TEXT NOT NULL, events TEXT NOT NULL)",
          "CREATE INDEX comparisons_taken ON comparisons(fibre, taken_at)",
          "CREATE TABLE event_days (fibre BIGINT NOT NULL REFERENCES fibres(id) ON DELETE CASCADE,"
          " baseline BIGINT NOT NULL, event INTEGER NOT NULL, day BIGINT NOT NULL, count BIGINT NOT NULL,"
          " loss_db DOUBLE PRECISION NOT NULL, reflectance_count BIGINT NOT NULL,"
          " reflectance_db DOUBLE PRECISION NOT NULL, PRIMARY KEY (fibre, baseline, event, day))",
          "CREATE TABLE trends (fibre BIGINT NOT NULL REFERENCES fibres(id) ON DELETE CASCADE,"
          " event INTEGER NOT NULL, quantity TEXT NOT NULL, updated_day BIGINT NOT NULL, trend TEXT NOT NULL,"
          " PRIMARY KEY (fibre, event, quantity))",
          "CREATE TABLE alarms (id %id, fibre BIGINT NOT NULL, instrument TEXT NOT NULL, kind TEXT NOT NULL,"
          " severity INTEGER NOT NULL, state INTEGER NOT NULL, event INTEGER NOT NULL,"
          " km DOUBLE PRECISION NOT NULL, sd_km DOUBLE PRECISION NOT NULL, value DOUBLE PRECISION NOT NULL,"
          " limit_value DOUBLE PRECISION NOT NULL, sentence TEXT NOT NULL, seen INTEGER NOT NULL,"
          " missed INTEGER NOT NULL, first_trace BIGINT NOT NULL, last_trace BIGINT NOT NULL,"
          " raised_at BIGINT NOT NULL, confirmed_at BIGINT NOT NULL, cleared_at BIGINT NOT NULL,"
          " acknowledged_at BIGINT NOT NULL, acknowledged_by TEXT NOT NULL)",
          "CREATE INDEX alarms_open ON alarms(fibre) WHERE state < 2",
          "CREATE INDEX alarms_fibre ON alarms(fibre, id)",
          "CREATE INDEX alarms_raised ON alarms(raised_at)",
          "CREATE TABLE deliveries (id %id, alarm BIGINT NOT NULL REFERENCES alarms(id) ON DELETE CASCADE,"
          " what INTEGER NOT NULL, channel TEXT NOT NULL, tries INTEGER NOT NULL, next_at BIGINT NOT NULL,"
          " claimed_by TEXT NOT NULL, state INTEGER NOT NULL, problem TEXT NOT NULL)",
          "CREATE INDEX deliveries_due ON deliveries(next_at) WHERE state = 0",
          "CREATE INDEX deliveries_dead ON deliveries(id) WHERE state = 2",
          "CREATE TABLE centres (name TEXT PRIMARY KEY, alive_until BIGINT NOT NULL)",
          "CREATE TABLE users (name TEXT PRIMARY KEY, hash TEXT NOT NULL, role TEXT NOT NULL)",
          "CREATE TABLE tokens (id %id, hash TEXT NOT NULL UNIQUE, name TEXT NOT NULL, role TEXT NOT NULL,"
          " fibres TEXT NOT NULL, expires_at BIGINT NOT NULL)",
          "CREATE TABLE audit (id %id, at BIGINT NOT NULL, who TEXT NOT NULL, what TEXT NOT NULL,"
          " detail TEXT NOT NULL)",
      },
      {
          "ALTER TABLE fibres ADD COLUMN thin_until BIGINT NOT NULL DEFAULT 0",
          "CREATE INDEX fibres_thin ON fibres(thin_until)",
          "ALTER TABLE baselines ADD COLUMN limits TEXT NOT NULL DEFAULT ''",
      },
      {
          // With the state in it, no database takes the index of all traces of a fibre for those that wait.
          "DROP INDEX traces_waiting",
          "CREATE INDEX traces_waiting ON traces(fibre, state, taken_at, id) WHERE state = 0",
      },
      {
          "ALTER TABLE fibres ADD COLUMN received_by TEXT NOT NULL DEFAULT ''",
          "ALTER TABLE fibres ADD COLUMN bad_since BIGINT NOT NULL DEFAULT 0",
          "CREATE INDEX fibres_waiting_here ON fibres(received_by, waiting_since) WHERE waiting_since > 0",
          // The server's own way of making bytes smaller takes longer than all else that it does with a
          // trace. One that was built without the other keeps its own.
          "%server DO $$ BEGIN"
          " EXECUTE 'ALTER TABLE trace_bytes ALTER COLUMN bytes SET COMPRESSION lz4';"
          " EXECUTE 'ALTER TABLE baseline_bytes ALTER COLUMN bytes SET COMPRESSION lz4';"
          " EXCEPTION WHEN OTHERS THEN NULL; END $$",
      },
      {
          "ALTER TABLE fibres ADD COLUMN last_good BIGINT NOT NULL DEFAULT 0",
      }};
  return steps;
}

// Empty for what the other one needs.
std::string InDialect(std::string statement, Dialect kind) {
  const bool sqlite = kind == Dialect::kSqlite;
  const std::string server = "%server ";
  if (statement.compare(0, server.size(), server) == 0) return sqlite ? "" : statement.substr(server.size());
  const std::pair<std::string, std::string> words[] = {
      {"%id", sqlite ? "INTEGER PRIMARY KEY AUTOINCREMENT" : "BIGSERIAL PRIMARY KEY"},
      {"%bytes", sqlite ? "BLOB" : "BYTEA"}};
  for (const auto& [word, own] : words) {
    for (std::size_t at; (at = statement.find(word)) != std::string::npos;)
      statement.replace(at, word.size(), own);
  }
  return statement;
}

int WholeIn(soci::session& session, const std::string& query) {
  int count = 0;
  session << query, soci::into(count);
  return count;
}

bool HasTable(soci::session& session, Dialect kind, const std::string& name) {
  const std::string where = kind == Dialect::kSqlite ? "sqlite_master WHERE type = 'table' AND name = '"
                                                     : "information_schema.tables WHERE table_name = '";
  return WholeIn(session, "SELECT COUNT(*) FROM " + where + name + "'") > 0;
}

}  // namespace

int NewestVersion() { return static_cast<int>(Steps().size()); }

int SchemaVersion(soci::session& session, Dialect kind) {
  if (!HasTable(session, kind, "reflyze_schema")) {
    if (HasTable(session, kind, "fibres"))
      throw Error(ErrorKind::kUnreadable, "", "is a database of something else: it has a table \"fibres\"");
    return 0;
  }
  return WholeIn(session, "SELECT COALESCE(MAX(version), 0) FROM reflyze_schema");
}

void Migrate(soci::session& session, Dialect kind, const std::string& address) {
  // Several centres may start on one empty store: the first makes it, the others wait and see it made.
  session << (kind == Dialect::kSqlite ? "BEGIN IMMEDIATE" : "BEGIN");
  if (kind == Dialect::kPostgres) session << "SELECT pg_advisory_xact_lock(7265666)";
  try {
    const int version = SchemaVersion(session, kind);
    if (version > NewestVersion())
      throw Error(ErrorKind::kUnreadable, address,
                  "the store is of version " + std::to_string(version) + ", and this program knows " +
                      std::to_string(NewestVersion()));
    if (version == 0) session << "CREATE TABLE IF NOT EXISTS reflyze_schema (version INTEGER PRIMARY KEY)";
    for (int step = version; step < NewestVersion(); ++step) {
      for (const char* statement : Steps()[static_cast<std::size_t>(step)]) {
        if (const std::string own = InDialect(statement, kind); !own.empty()) session << own;
      }
      session << "INSERT INTO reflyze_schema VALUES (" + std::to_string(step + 1) + ")";
    }
    session << "COMMIT";
  } catch (...) {
    session << "ROLLBACK";
    throw;
  }
}

}  // namespace reflyze::watch
