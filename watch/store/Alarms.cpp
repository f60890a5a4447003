// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Alarms.h"

#include "watch/store/Rows.h"

namespace reflyze::watch {
namespace {

using soci::into;
using soci::use;

enum DeliveryState { kDue = 0, kTold = 1, kDead = 2 };

// Enumerations as the store has them.
struct Codes {
  std::string kind;
  int severity = 0, state = 0;
};

template <typename Bind>
std::vector<Alarm> AlarmsWhere(soci::session& session, const std::string& where, Bind bind) {
  Alarm row;
  Codes codes;
  const auto columns = [&](soci::statement& statement) {
    for (long long* number : {&row.id, &row.fibre}) statement.exchange(into(*number));
    for (std::string* text : {&row.instrument, &codes.kind}) statement.exchange(into(*text));
    for (int* number : {&codes.severity, &codes.state, &row.event}) statement.exchange(into(*number));
    for (double* value : {&row.km, &row.sdKm, &row.value, &row.limit}) statement.exchange(into(*value));
    statement.exchange(into(row.sentence));
    for (int* number : {&row.seen, &row.missed}) statement.exchange(into(*number));
    for (long long* number : {&row.firstTrace, &row.lastTrace, &row.raisedAt, &row.confirmedAt,
                              &row.clearedAt, &row.acknowledgedAt})
      statement.exchange(into(*number));
    statement.exchange(into(row.acknowledgedBy));
  };
  return RowsOf(session,
                "SELECT id, fibre, instrument, kind, severity, state, event, km, sd_km, value, limit_value,"
                " sentence, seen, missed, first_trace, last_trace, raised_at, confirmed_at, cleared_at,"
                " acknowledged_at, acknowledged_by FROM alarms " +
                    where,
                columns, bind, [&] {
                  row.kind = KindOf(codes.kind).value_or(AlarmKind::kBroken);
                  row.severity = static_cast<Severity>(codes.severity);
                  row.state = static_cast<AlarmState>(codes.state);
                  return row;
                });
}

void Update(soci::session& session, const Alarm& alarm) {
  const int severity = static_cast<int>(alarm.severity), state = static_cast<int>(alarm.state);
  session << "UPDATE alarms SET severity = :severity, state = :state, km = :km, sd_km = :sd, value = :value,"
             " limit_value = :limit, sentence = :sentence, seen = :seen, missed = :missed,"
             " last_trace = :last, confirmed_at = :confirmed, cleared_at = :cleared WHERE id = :id",
      use(severity), use(state), use(alarm.km), use(alarm.sdKm), use(alarm.value), use(alarm.limit),
      use(alarm.sentence), use(alarm.seen), use(alarm.missed), use(alarm.lastTrace), use(alarm.confirmedAt),
      use(alarm.clearedAt), use(alarm.id);
}

template <typename Bind>
std::vector<Delivery> DeliveriesOf(soci::session& session, const std::string& query, Bind bind) {
  Delivery row;
  int what = 0;
  const auto columns = [&](soci::statement& statement) {
    for (long long* number : {&row.id, &row.alarm}) statement.exchange(into(*number));
    statement.exchange(into(what));
    statement.exchange(into(row.channel));
    statement.exchange(into(row.tries));
    statement.exchange(into(row.nextAt));
    statement.exchange(into(row.problem));
  };
  return RowsOf(session, query, columns, bind, [&] {
    row.what = static_cast<Telling>(what);
    return row;
  });
}

// Another centre may have sent meanwhile what this one could not.
void SetDelivery(soci::session& session, const Delivery& delivery, const std::string& centre,
                 DeliveryState state, Millis nextAt) {
  const int code = state;
  session << "UPDATE deliveries SET state = :state, tries = :tries, next_at = :next, problem = :problem,"
             " claimed_by = '' WHERE id = :id AND claimed_by = :centre AND state = 0",
      use(code), use(delivery.tries), use(nextAt), use(delivery.problem), use(delivery.id), use(centre);
}

// The condition, with the values :now and :far.
constexpr const char* kIsDue = "state = 0 AND (next_at <= :now OR next_at > :far)";

}  // namespace

std::vector<Alarm> OpenAlarms(soci::session& session, Id fibre) {
  return AlarmsWhere(session, "WHERE fibre = :fibre AND state < 2 ORDER BY id",
                     [&](soci::statement& statement) { statement.exchange(use(fibre)); });
}

std::vector<Alarm> OpenSilence(soci::session& session) {
  return AlarmsWhere(session, "WHERE state < 2 AND kind IN ('no trace', 'instrument') ORDER BY id", NoValues);
}

std::optional<Alarm> FindAlarm(soci::session& session, Id id) {
  const std::vector<Alarm> rows = AlarmsWhere(
      session, "WHERE id = :id", [&](soci::statement& statement) { statement.exchange(use(id)); });
  return rows.empty() ? std::nullopt : std::optional<Alarm>(rows.front());
}

std::vector<Alarm> Alarms(soci::session& session, const AlarmQuery& query) {
  const long long most = query.most, before = query.before > 0 ? query.before : 0x7fffffffffffffffLL;
  const std::string open = query.open ? " AND state = 1" : " AND state IN (1, 2)";
  const std::string fibre = query.fibre > 0 ? " AND fibre = :fibre" : "";
  return AlarmsWhere(session, "WHERE id < :before" + open + fibre + " ORDER BY id DESC LIMIT :most",
                     [&](soci::statement& statement) {
                       statement.exchange(use(before));
                       if (query.fibre > 0) statement.exchange(use(query.fibre));
                       statement.exchange(use(most));
                     });
}

Id PutAlarm(soci::session& session, const Alarm& alarm) {
  if (alarm.id > 0) {
    Update(session, alarm);
    return alarm.id;
  }
  Id id = 0;
  const std::string kind = NameOf(alarm.kind);
  const int severity = static_cast<int>(alarm.severity), state = static_cast<int>(alarm.state);
  session
      << "INSERT INTO alarms (fibre, instrument, kind, severity, state, event, km, sd_km, value, limit_value,"
         " sentence, seen, missed, first_trace, last_trace, raised_at, confirmed_at, cleared_at,"
         " acknowledged_at, acknowledged_by) VALUES (:fibre, :instrument, :kind, :severity, :state, :event,"
         " :km, :sd, :value, :limit, :sentence, :seen, :missed, :first, :last, :raised, :confirmed,"
         " :cleared, 0, '') RETURNING id",
      use(alarm.fibre), use(alarm.instrument), use(kind), use(severity), use(state), use(alarm.event),
      use(alarm.km), use(alarm.sdKm), use(alarm.value), use(alarm.limit), use(alarm.sentence),
      use(alarm.seen), use(alarm.missed), use(alarm.firstTrace), use(alarm.lastTrace), use(alarm.raisedAt),
      use(alarm.confirmedAt), use(alarm.clearedAt), into(id);
  return id;
}

bool Acknowledge(soci::session& session, Id id, const std::string& who, Millis now) {
  soci::statement statement =
      (session.prepare << "UPDATE alarms SET acknowledged_at = :at, acknowledged_by = :who WHERE id = :id AND"
                          " state < 2 AND acknowledged_at = 0",
       use(now), use(who), use(id));
  statement.execute(true);
  return statement.get_affected_rows() > 0;
}

void Enqueue(soci::session& session, Id alarm, Telling what, const std::string& channel, Millis now) {
  const int code = static_cast<int>(what);
  session
      << "INSERT INTO deliveries (alarm, what, channel, tries, next_at, claimed_by, state, problem) VALUES"
         " (:alarm, :what, :channel, 0, :next, '', 0, '')",
      use(alarm), use(code), use(channel), use(now);
}

bool AnyDue(soci::session& session, Millis now) {
  const Millis far = now + kLongestPause;
  long long due = 0;
  session << std::string("SELECT COUNT(*) FROM deliveries WHERE ") + kIsDue, use(now), use(far), into(due);
  return due > 0;
}

std::vector<Delivery> ClaimDue(soci::session& session, Dialect kind, const std::string& centre, Millis now,
                               long most) {
  const long long count = most;
  const Millis far = now + kLongestPause;
  const std::string lock = kind == Dialect::kPostgres ? " FOR UPDATE SKIP LOCKED" : "";
  return DeliveriesOf(
      session,
      std::string(
          "UPDATE deliveries SET claimed_by = :centre WHERE id IN (SELECT id FROM deliveries WHERE ") +
          kIsDue +
          " AND (claimed_by = '' OR claimed_by = :own OR NOT EXISTS (SELECT 1 FROM centres WHERE"
          " name = claimed_by AND alive_until > " +
          LeaseClock(kind, now) + ")) ORDER BY next_at LIMIT :most" + lock +
          ") RETURNING id, alarm, what, channel, tries, next_at, problem",
      [&](soci::statement& statement) {
        statement.exchange(use(centre));
        statement.exchange(use(now));
        statement.exchange(use(far));
        statement.exchange(use(centre));
        statement.exchange(use(count));
      });
}

bool IsClaimed(soci::session& session, Id delivery, const std::string& centre) {
  long long count = 0;
  session << "SELECT COUNT(*) FROM deliveries WHERE id = :id AND claimed_by = :centre AND state = 0",
      use(delivery), use(centre), into(count);
  return count > 0;
}

void Delivered(soci::session& session, Id delivery) {
  session << "UPDATE deliveries SET state = 1, claimed_by = '', problem = '' WHERE id = :id", use(delivery);
}

void TryLater(soci::session& session, const Delivery& delivery, const std::string& centre, Millis nextAt) {
  SetDelivery(session, delivery, centre, kDue, nextAt);
}

void GiveUp(soci::session& session, const Delivery& delivery, const std::string& centre) {
  SetDelivery(session, delivery, centre, kDead, delivery.nextAt);
}

std::vector<Delivery> DeadLetters(soci::session& session, long most) {
  const long long count = most;
  return DeliveriesOf(
      session,
      "SELECT id, alarm, what, channel, tries, next_at, problem FROM deliveries WHERE state = 2"
      " ORDER BY id DESC LIMIT :most",
      [&](soci::statement& statement) { statement.exchange(use(count)); });
}

long Revive(soci::session& session, Millis now) {
  soci::statement statement = (session.prepare << "UPDATE deliveries SET state = 0, tries = 0, next_at = :now"
                                                  " WHERE state = 2",
                               use(now));
  statement.execute(true);
  return static_cast<long>(statement.get_affected_rows());
}

}  // namespace reflyze::watch
