// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Traces.h"

#include "watch/store/Bytes.h"
#include "watch/store/Rows.h"

namespace reflyze::watch {
namespace {

using soci::into;
using soci::use;

template <typename Bind>
std::vector<TraceRow> TracesWhere(soci::session& session, const std::string& where, Bind bind) {
  TraceRow row;
  long long bytes = 0;
  int state = 0;
  const auto columns = [&](soci::statement& statement) {
    for (long long* number : {&row.id, &row.fibre}) statement.exchange(into(*number));
    statement.exchange(into(row.hash));
    for (long long* number : {&row.takenAt, &row.receivedAt, &bytes}) statement.exchange(into(*number));
    statement.exchange(into(state));
    statement.exchange(into(row.problem));
  };
  return RowsOf(session,
                "SELECT id, fibre, hash, taken_at, received_at, size, state, problem FROM traces " + where,
                columns, bind, [&] {
                  row.bytes = static_cast<long>(bytes);
                  row.state = static_cast<TraceState>(state);
                  return row;
                });
}

// The fibre has a trace again. That of an instrument is the latest of its fibres: a row of its own would be
// wanted by all of them at once.
void Received(soci::session& session, const TraceRow& row, const std::string& centre) {
  session << "UPDATE fibres SET last_received_at = :at, received_by = :centre,"
             " waiting_since = CASE WHEN waiting_since = 0 THEN :since ELSE waiting_since END WHERE id = :id",
      use(row.receivedAt), use(centre), use(row.receivedAt), use(row.fibre);
}

}  // namespace

Taken PutTrace(soci::session& session, Dialect kind, const TraceRow& row, const std::string& card,
               const std::string& bytes, const std::string& centre) {
  Taken taken;
  const long long size = row.bytes;
  session << "INSERT INTO traces (fibre, hash, taken_at, received_at, size, state, card, problem) VALUES"
             " (:fibre, :hash, :taken, :received, :size, 0, :card, '') ON CONFLICT (fibre, hash) DO NOTHING"
             " RETURNING id",
      use(row.fibre), use(row.hash), use(row.takenAt), use(row.receivedAt), use(size), use(card),
      into(taken.id);
  taken.known = !session.got_data();
  if (taken.known) {
    session << "SELECT id FROM traces WHERE fibre = :fibre AND hash = :hash", use(row.fibre), use(row.hash),
        into(taken.id);
    return taken;
  }
  InsertBytes(session, kind, "trace_bytes", taken.id, bytes);
  Received(session, row, centre);
  return taken;
}

std::optional<TraceRow> FindTrace(soci::session& session, Id id) {
  const std::vector<TraceRow> rows = TracesWhere(
      session, "WHERE id = :id", [&](soci::statement& statement) { statement.exchange(use(id)); });
  return rows.empty() ? std::nullopt : std::optional<TraceRow>(rows.front());
}

std::string TraceBytes(soci::session& session, Dialect kind, Id id) {
  return ReadBytes(session, kind, "trace_bytes", id);
}

std::vector<TraceRow> TracesOf(soci::session& session, Id fibre, const PageEnd& end, long most) {
  const long long count = most;
  return TracesWhere(session,
                     "WHERE fibre = :fibre AND (taken_at, id) < (:before, :number)"
                     " ORDER BY taken_at DESC, id DESC LIMIT :most",
                     [&](soci::statement& statement) {
                       statement.exchange(use(fibre));
                       statement.exchange(use(end.takenAt));
                       statement.exchange(use(end.id));
                       statement.exchange(use(count));
                     });
}

void StayAlive(soci::session& session, Dialect kind, const std::string& centre, Millis now) {
  const std::string clock = LeaseClock(kind, now), until = clock + " + " + std::to_string(kLeaseMillis);
  session << "INSERT INTO centres VALUES (:name, " + until +
                 ") ON CONFLICT (name) DO UPDATE SET alive_until = excluded.alive_until",
      use(centre);
  session << "UPDATE centres SET alive_until = " + until + " WHERE alive_until > " + until;
  session << "DELETE FROM centres WHERE alive_until < " + clock + " - " + std::to_string(100 * kLeaseMillis);
}

void Leave(soci::session& session, const std::string& centre) {
  session << "DELETE FROM centres WHERE name = :name", use(centre);
}

std::vector<Id> ClaimFibres(soci::session& session, Dialect kind, const std::string& centre, Millis now,
                            long most, const std::vector<Id>& held, Whose whose) {
  Id id = 0;
  const long long count = most;
  const std::string lock = kind == Dialect::kPostgres ? " FOR UPDATE SKIP LOCKED" : "";
  std::string own = "0";
  for (const Id one : held) own += ", " + std::to_string(one);
  const std::string here = whose == Whose::kOwn ? "received_by = :here AND" : "";
  return RowsOf(
      session,
      "UPDATE fibres SET claimed_by = :centre WHERE id IN (SELECT id FROM fibres WHERE " + here +
          " waiting_since > 0 AND baseline > 0 AND id NOT IN (" + own +
          ") AND (claimed_by = '' OR claimed_by = :own OR NOT EXISTS (SELECT 1 FROM centres WHERE"
          " name = claimed_by AND alive_until > " +
          LeaseClock(kind, now) + ")) ORDER BY waiting_since LIMIT :most" + lock + ") RETURNING id",
      [&](soci::statement& statement) { statement.exchange(into(id)); },
      [&](soci::statement& statement) {
        statement.exchange(use(centre));
        if (whose == Whose::kOwn) statement.exchange(use(centre));
        statement.exchange(use(centre));
        statement.exchange(use(count));
      },
      [&] { return id; });
}

std::optional<Held> Holds(soci::session& session, Dialect kind, Id fibre, const std::string& centre) {
  Held held;
  session << std::string(
                 "SELECT baseline, last_taken_at FROM fibres WHERE id = :id AND claimed_by = :centre") +
                 (kind == Dialect::kPostgres ? " FOR UPDATE" : ""),
      use(fibre), use(centre), into(held.baseline), into(held.lastTakenAt);
  return session.got_data() ? std::optional<Held>(held) : std::nullopt;
}

void Release(soci::session& session, Id fibre, const std::string& centre) {
  session
      << "UPDATE fibres SET claimed_by = '', waiting_since = COALESCE((SELECT MIN(received_at) FROM traces"
         " WHERE fibre = :own AND state = 0), 0) WHERE id = :id AND claimed_by = :centre",
      use(fibre), use(fibre), use(centre);
}

std::vector<TraceRow> WaitingTraces(soci::session& session, Id fibre, long most) {
  const long long count = most;
  return TracesWhere(session, "WHERE fibre = :fibre AND state = 0 ORDER BY taken_at, id LIMIT :most",
                     [&](soci::statement& statement) {
                       statement.exchange(use(fibre));
                       statement.exchange(use(count));
                     });
}

long WaitingCount(soci::session& session) {
  long long count = 0;
  session << "SELECT COUNT(*) FROM traces WHERE state = 0", into(count);
  return static_cast<long>(count);
}

void ForgetNewest(soci::session& session, Id fibre) {
  session << "UPDATE fibres SET last_taken_at = 0 WHERE id = :id", use(fibre);
}

namespace {

// A trace that says nothing of how its fibre is now, as those who ask why it is silent want to know.
void TellsNothing(soci::session& session, Id trace) {
  session
      << "UPDATE fibres SET bad_since = (SELECT received_at FROM traces WHERE id = :id) WHERE bad_since = 0"
         " AND id = (SELECT fibre FROM traces WHERE id = :own)",
      use(trace), use(trace);
}

}  // namespace

void PutBad(soci::session& session, Id trace, const std::string& problem) {
  session << "UPDATE traces SET state = 2, problem = :problem WHERE id = :id AND state = 0", use(problem),
      use(trace);
  TellsNothing(session, trace);
}

bool PutComparison(soci::session& session, const ComparisonRow& row, Id baseline) {
  const int changed = row.changed ? 1 : 0, late = row.late ? 1 : 0;
  Id id = 0;
  session << "INSERT INTO comparisons (trace, fibre, baseline, taken_at, result, changed, late, end_km, "
             "sentences,"
             " events) VALUES (:trace, :fibre, :baseline, :taken, :result, :changed, :late, :end, :sentences,"
             " :events) ON CONFLICT (trace) DO NOTHING RETURNING id",
      use(row.trace), use(row.fibre), use(baseline), use(row.takenAt), use(row.result), use(changed),
      use(late), use(row.endKm), use(row.sentences), use(row.events), into(id);
  if (!session.got_data()) return false;
  session << "UPDATE traces SET state = 1 WHERE id = :id", use(row.trace);
  if (row.late) {
    TellsNothing(session, row.trace);
    return true;
  }
  session << "UPDATE fibres SET bad_since = 0, last_good = :trace, last_taken_at = CASE WHEN last_taken_at < "
             ":taken"
             " THEN :newest ELSE last_taken_at END WHERE id = :id",
      use(row.trace), use(row.takenAt), use(row.takenAt), use(row.fibre);
  return true;
}

std::vector<ComparisonRow> ComparisonsOf(soci::session& session, Id fibre, const PageEnd& end, long most) {
  ComparisonRow row;
  int changed = 0, late = 0;
  const long long count = most;
  const auto columns = [&](soci::statement& statement) {
    for (long long* number : {&row.id, &row.trace, &row.fibre, &row.takenAt})
      statement.exchange(into(*number));
    for (int* number : {&row.result, &changed, &late}) statement.exchange(into(*number));
    statement.exchange(into(row.endKm));
    for (std::string* text : {&row.sentences, &row.events}) statement.exchange(into(*text));
  };
  const auto bind = [&](soci::statement& statement) {
    statement.exchange(use(fibre));
    statement.exchange(use(end.takenAt));
    statement.exchange(use(end.id));
    statement.exchange(use(count));
  };
  return RowsOf(session,
                "SELECT id, trace, fibre, taken_at, result, changed, late, end_km, sentences, events FROM"
                " comparisons WHERE fibre = :fibre AND (taken_at, id) < (:before, :number)"
                " ORDER BY taken_at DESC, id DESC LIMIT :most",
                columns, bind, [&] {
                  row.changed = changed != 0;
                  row.late = late != 0;
                  return row;
                });
}

void AddToDay(soci::session& session, Id fibre, Id baseline, const EventDay& one) {
  const long long day = one.day, count = one.count, reflectances = one.reflectanceCount;
  session << "INSERT INTO event_days VALUES (:fibre, :baseline, :event, :day, :count, :loss, :counted, :refl)"
             " ON CONFLICT (fibre, baseline, event, day) DO UPDATE SET"
             " loss_db = (event_days.loss_db * event_days.count + excluded.loss_db * excluded.count)"
             " / (event_days.count + excluded.count),"
             " reflectance_db = CASE WHEN excluded.reflectance_count = 0 THEN event_days.reflectance_db ELSE"
             " (event_days.reflectance_db * event_days.reflectance_count + excluded.reflectance_db *"
             " excluded.reflectance_count) / (event_days.reflectance_count + excluded.reflectance_count) END,"
             " count = event_days.count + excluded.count,"
             " reflectance_count = event_days.reflectance_count + excluded.reflectance_count",
      use(fibre), use(baseline), use(one.event), use(day), use(count), use(one.lossDb), use(reflectances),
      use(one.reflectanceDb);
}

std::vector<EventDay> DaysOf(soci::session& session, Id fibre, Id baseline, int event) {
  EventDay row;
  row.event = event;
  long long day = 0, count = 0, reflectances = 0;
  const auto columns = [&](soci::statement& statement) {
    for (long long* number : {&day, &count, &reflectances}) statement.exchange(into(*number));
    for (double* value : {&row.lossDb, &row.reflectanceDb}) statement.exchange(into(*value));
  };
  const auto bind = [&](soci::statement& statement) {
    statement.exchange(use(fibre));
    statement.exchange(use(baseline));
    statement.exchange(use(event));
  };
  return RowsOf(session,
                "SELECT day, count, reflectance_count, loss_db, reflectance_db FROM event_days WHERE"
                " fibre = :fibre AND baseline = :baseline AND event = :event ORDER BY day",
                columns, bind, [&] {
                  row.day = static_cast<long>(day);
                  row.count = static_cast<long>(count);
                  row.reflectanceCount = static_cast<long>(reflectances);
                  return row;
                });
}

}  // namespace reflyze::watch
