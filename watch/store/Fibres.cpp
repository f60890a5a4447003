// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Fibres.h"

#include <cstdio>

#include "watch/store/Bytes.h"
#include "watch/store/Rows.h"

namespace reflyze::watch {
namespace {

constexpr const char* kFibreColumns =
    "SELECT id, name, title, from_end, to_end, instrument, route, limits, confirm, every_seconds, baseline,"
    " last_taken_at, last_received_at, waiting_since FROM fibres ";

template <typename Bind>
std::vector<Fibre> FibresWhere(soci::session& session, const std::string& where, Bind bind) {
  Fibre row;
  long long every = 0;
  const auto into = [&](soci::statement& statement) {
    using soci::into;
    for (long long* number : {&row.id}) statement.exchange(into(*number));
    for (std::string* text :
         {&row.name, &row.title, &row.fromEnd, &row.toEnd, &row.instrument, &row.route, &row.limits})
      statement.exchange(into(*text));
    statement.exchange(into(row.confirm));
    for (long long* number :
         {&every, &row.baseline, &row.lastTakenAt, &row.lastReceivedAt, &row.waitingSince})
      statement.exchange(into(*number));
  };
  return RowsOf(session, kFibreColumns + where, into, bind, [&] {
    row.everySeconds = static_cast<long>(every);
    return row;
  });
}

std::optional<Fibre> FirstOf(const std::vector<Fibre>& fibres) {
  return fibres.empty() ? std::nullopt : std::optional<Fibre>(fibres.front());
}

}  // namespace

std::optional<Fibre> FindFibre(soci::session& session, const std::string& name) {
  return FirstOf(FibresWhere(session, "WHERE name = :name",
                             [&](soci::statement& statement) { statement.exchange(soci::use(name)); }));
}

std::optional<Fibre> FindFibre(soci::session& session, Id id) {
  return FirstOf(FibresWhere(session, "WHERE id = :id",
                             [&](soci::statement& statement) { statement.exchange(soci::use(id)); }));
}

void LockFibre(soci::session& session, Dialect kind, const std::string& name) {
  Id id = 0;  // a file is locked as a whole already
  if (kind == Dialect::kPostgres)
    session << "SELECT id FROM fibres WHERE name = :name FOR UPDATE", soci::use(name), soci::into(id);
}

std::vector<Fibre> Fibres(soci::session& session, const std::string& after, long most) {
  const long long count = most;
  return FibresWhere(session, "WHERE name > :after ORDER BY name LIMIT :most",
                     [&](soci::statement& statement) {
                       statement.exchange(soci::use(after));
                       statement.exchange(soci::use(count));
                     });
}

Id PutFibre(soci::session& session, const Fibre& fibre) {
  const long long every = fibre.everySeconds;
  session
      << "INSERT INTO fibres (name, title, from_end, to_end, instrument, route, limits, confirm,"
         " every_seconds, baseline, last_taken_at, last_received_at, waiting_since, claimed_by)"
         " VALUES (:name, :title, :from, :to, :instrument, :route, :limits, :confirm, :every, 0, 0, 0, 0, '')"
         " ON CONFLICT (name) DO UPDATE SET title = excluded.title, from_end = excluded.from_end,"
         " to_end = excluded.to_end, instrument = excluded.instrument, route = excluded.route,"
         " limits = excluded.limits, confirm = excluded.confirm, every_seconds = excluded.every_seconds",
      soci::use(fibre.name), soci::use(fibre.title), soci::use(fibre.fromEnd), soci::use(fibre.toEnd),
      soci::use(fibre.instrument), soci::use(fibre.route), soci::use(fibre.limits), soci::use(fibre.confirm),
      soci::use(every);
  if (!fibre.instrument.empty())
    session << "INSERT INTO instruments VALUES (:name, '', 0) ON CONFLICT (name) DO NOTHING",
        soci::use(fibre.instrument);
  return FindFibre(session, fibre.name)->id;
}

bool DropFibre(soci::session& session, const std::string& name) {
  const std::optional<Fibre> fibre = FindFibre(session, name);
  if (!fibre) return false;
  session << "DELETE FROM alarms WHERE fibre = :id", soci::use(fibre->id);
  session << "DELETE FROM fibres WHERE id = :id", soci::use(fibre->id);
  return true;
}

std::vector<std::pair<std::string, WatchLimits>> AllLimits(soci::session& session) {
  std::string name;
  WatchLimits row;
  const auto into = [&](soci::statement& statement) {
    statement.exchange(soci::into(name));
    statement.exchange(soci::into(row.level));
    for (double* limit : {&row.ltDb, &row.rtDb, &row.ctDbPerKm, &row.eelDb})
      statement.exchange(soci::into(*limit));
  };
  return RowsOf(session, "SELECT name, level, lt_db, rt_db, ct_db_per_km, eel_db FROM limits ORDER BY name",
                into, NoValues, [&] { return std::make_pair(name, row); });
}

std::optional<WatchLimits> FindLimits(soci::session& session, const std::string& name) {
  for (const auto& [own, limits] : AllLimits(session)) {
    if (own == name) return limits;
  }
  return std::nullopt;
}

void PutLimits(soci::session& session, const std::string& name, const WatchLimits& limits) {
  session << "INSERT INTO limits VALUES (:name, :level, :lt, :rt, :ct, :eel) ON CONFLICT (name) DO UPDATE SET"
             " level = excluded.level, lt_db = excluded.lt_db, rt_db = excluded.rt_db,"
             " ct_db_per_km = excluded.ct_db_per_km, eel_db = excluded.eel_db",
      soci::use(name), soci::use(limits.level), soci::use(limits.ltDb), soci::use(limits.rtDb),
      soci::use(limits.ctDbPerKm), soci::use(limits.eelDb);
}

Id PutBaseline(soci::session& session, Dialect kind, Id fibre, const BaselineRow& row,
               const std::string& bytes) {
  Id id = 0;
  session << "INSERT INTO baselines (fibre, made_at, made_by, card, events, limits) VALUES"
             " (:fibre, :at, :by, :card, :events, :limits) RETURNING id",
      soci::use(fibre), soci::use(row.madeAt), soci::use(row.madeBy), soci::use(row.card),
      soci::use(row.events), soci::use(row.limits), soci::into(id);
  InsertBytes(session, kind, "baseline_bytes", id, bytes);
  session << "UPDATE fibres SET baseline = :baseline WHERE id = :fibre", soci::use(id), soci::use(fibre);
  session << "UPDATE alarms SET state = 2, cleared_at = :at WHERE fibre = :fibre AND state < 2"
             " AND kind NOT IN ('no trace', 'instrument')",
      soci::use(row.madeAt), soci::use(fibre);
  session << "DELETE FROM trends WHERE fibre = :fibre", soci::use(fibre);
  return id;
}

std::optional<BaselineRow> FindBaseline(soci::session& session, Id id) {
  BaselineRow row;
  row.id = id;
  session << "SELECT made_at, made_by, card, events, limits FROM baselines WHERE id = :id", soci::use(id),
      soci::into(row.madeAt), soci::into(row.madeBy), soci::into(row.card), soci::into(row.events),
      soci::into(row.limits);
  return session.got_data() ? std::optional<BaselineRow>(row) : std::nullopt;
}

std::string BaselineBytes(soci::session& session, Dialect kind, Id id) {
  return ReadBytes(session, kind, "baseline_bytes", id);
}

void PutBaselineRecord(soci::session& session, Dialect kind, const BaselineRow& row,
                       const std::string& bytes) {
  session << "UPDATE baselines SET limits = :limits WHERE id = :id", soci::use(row.limits), soci::use(row.id);
  session << "DELETE FROM baseline_bytes WHERE id = :id", soci::use(row.id);
  InsertBytes(session, kind, "baseline_bytes", row.id, bytes);
}

std::string LimitsText(const WatchLimits& limits) {
  char numbers[160];
  std::snprintf(numbers, sizeof numbers, "%.17g %.17g %.17g %.17g ", limits.ltDb, limits.rtDb,
                limits.ctDbPerKm, limits.eelDb);
  return numbers + limits.level;
}

}  // namespace reflyze::watch
