// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Keeper.h"

#include <cstdlib>

#include "watch/desk/Clock.h"
#include "watch/desk/Complain.h"
#include "watch/store/Rows.h"

namespace reflyze::watch {
namespace {

constexpr std::chrono::milliseconds kBeat{5000};
constexpr Millis kJumpMillis = 30000;  // clocks are drawn to the right time by less

std::vector<Expected> AllExpected(soci::session& session) {
  Expected row;
  long long every = 0;
  const auto columns = [&](soci::statement& statement) {
    statement.exchange(soci::into(row.fibre));
    statement.exchange(soci::into(row.name));
    statement.exchange(soci::into(row.instrument));
    statement.exchange(soci::into(every));
    statement.exchange(soci::into(row.since));
  };
  return RowsOf(
      session,
      "SELECT f.id, f.name, f.instrument, f.every_seconds, CASE WHEN f.last_received_at > b.made_at THEN"
      " f.last_received_at ELSE b.made_at END FROM fibres f JOIN baselines b ON b.id = f.baseline"
      " WHERE f.every_seconds > 0",
      columns, NoValues, [&] {
        row.everySeconds = static_cast<long>(every);
        return row;
      });
}

}  // namespace

void Keeper::Start() {
  clockAhead_ = Now() - SteadyNow();
  thread_ = std::thread([this] { Run(); });
}

void Keeper::Stop() {
  wake_.Stop();
  if (thread_.joinable()) thread_.join();
}

void Keeper::Run() {
  do {
    const Millis ahead = Now() - SteadyNow();
    if (std::abs(ahead - clockAhead_) > kJumpMillis) jumpedAt_ = Now();
    clockAhead_ = ahead;
    try {
      LookAround();
    } catch (const StoreAway&) {  // it will be back, or another centre does this
    } catch (const std::exception& error) {
      Complain("looking for silence", error);
    }
  } while (wake_.Wait(wake_.Rung(), kBeat));
}

void Keeper::LookAround() {
  shop_.store.Write([&](soci::session& session) { StayAlive(session, shop_.name, Now()); });
  const auto expected = shop_.store.Read([](soci::session& session) { return AllExpected(session); });
  const Millis now = Now();
  const Silent silent = SilentOf(expected, now, jumpedAt_);
  const auto open = shop_.store.Read([](soci::session& session) { return OpenSilence(session); });
  if (NextSilence(open, silent, now).empty()) return;
  std::vector<AlarmChange> changes;
  shop_.store.Write([&](soci::session& session) {
    // Several centres look; what one of them has raised is open for the next.
    if (shop_.store.Kind() == Dialect::kPostgres) session << "LOCK TABLE alarms IN SHARE ROW EXCLUSIVE MODE";
    changes = KeepChanges(session, NextSilence(OpenSilence(session), silent, now), shop_.listeners, now);
  });
  std::map<Id, std::string> names;
  for (const Expected& one : expected) names[one.fibre] = one.name;
  for (const AlarmChange& change : changes)
    shop_.bus.Publish("alarm", names[change.alarm.fibre], JsonOf(change.alarm, names[change.alarm.fibre]));
  shop_.mail.Ring();
}

}  // namespace reflyze::watch
