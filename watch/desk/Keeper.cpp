// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Keeper.h"

#include <algorithm>
#include <utility>

#include "watch/desk/Clock.h"
#include "watch/desk/Complain.h"
#include "watch/store/Rows.h"
#include "watch/store/Thinning.h"

namespace reflyze::watch {
namespace {

constexpr std::chrono::milliseconds kBeat{5000};

std::vector<Expected> ExpectedOf(soci::session& session) {
  Expected row;
  long long every = 0;
  int bad = 0;
  const auto columns = [&](soci::statement& statement) {
    statement.exchange(soci::into(row.fibre));
    statement.exchange(soci::into(row.name));
    statement.exchange(soci::into(row.instrument));
    statement.exchange(soci::into(every));
    statement.exchange(soci::into(row.lastGood));
    statement.exchange(soci::into(row.baseline));
    statement.exchange(soci::into(row.backlogAt));
    statement.exchange(soci::into(bad));
  };
  return RowsOf(
      session,
      "SELECT id, name, instrument, every_seconds, last_good, baseline, CASE WHEN waiting_since > 0"
      " AND last_received_at - waiting_since >= every_seconds * 1000 THEN last_received_at ELSE 0 END,"
      " CASE WHEN bad_since > 0 THEN 1 ELSE 0 END FROM fibres WHERE every_seconds > 0 AND baseline > 0",
      columns, NoValues, [&] {
        row.everySeconds = static_cast<long>(every);
        row.bad = bad != 0;
        return row;
      });
}

}  // namespace

std::vector<Expected> Keeper::AllExpected(soci::session& session) {
  std::vector<Expected> all = ExpectedOf(session);
  for (Expected& one : all) {
    const Sign sign{one.lastGood, one.baseline, one.backlogAt, lookedFor_};
    Sign& known = heard_.try_emplace(one.fibre, sign).first->second;
    const bool waits = sign.backlogAt != 0 && sign.backlogAt != known.backlogAt;
    if (sign.lastGood != known.lastGood || sign.baseline != known.baseline || waits) known = sign;
    one.quiet = lookedFor_ - known.lookedFor;
  }
  return all;
}

void Keeper::Start() {
  lookedAt_ = SteadyNow();
  thread_ = std::thread([this] { Run(); });
}

void Keeper::Stop() {
  wake_.Stop();
  if (thread_.joinable()) thread_.join();
}

void Keeper::Run() {
  do {
    try {
      LookAround();
      ThinOutSome();
    } catch (const StoreAway&) {  // it will be back, or another centre does this
    } catch (const std::exception& error) {
      Complain("looking for silence", error);
    }
  } while (wake_.Wait(wake_.Rung(), kBeat));
}

void Keeper::ThinOutSome() {
  if (keepDays_ <= 0) return;
  const Millis until = (Now() / kMillisPerDay - keepDays_) * kMillisPerDay;
  if (until <= thinDay_) return;
  bool more = false;
  shop_.store.Write([&](soci::session& session) { more = ThinOut(session, until); });
  if (!more) thinDay_ = until;
}

void Keeper::LookAround() {
  shop_.store.Write(
      [&](soci::session& session) { StayAlive(session, shop_.store.Kind(), shop_.name, Now()); });
  std::vector<Expected> expected;
  const auto next = [&](soci::session& session) {
    expected = AllExpected(session);
    return NextSilence(OpenSilence(session), expected, Now());
  };
  const Millis steady = SteadyNow();
  lookedFor_ += std::min<Millis>(steady - std::exchange(lookedAt_, steady), 2 * kBeat.count());
  if (shop_.store.Read(next).empty()) return;
  std::vector<AlarmChange> changes;
  shop_.store.Write([&](soci::session& session) {
    // Several centres look; what one of them has raised is open for the next.
    LockAgainst(session, shop_.store.Kind(), "alarms");
    changes = KeepChanges(session, next(session), shop_.listeners, Now());
  });
  std::map<Id, std::string> names;
  for (const Expected& one : expected) names[one.fibre] = one.name;
  for (const AlarmChange& change : changes)
    shop_.bus.Publish("alarm", names[change.alarm.fibre], JsonOf(change.alarm, names[change.alarm.fibre]));
  shop_.mail.Ring();
}

}  // namespace reflyze::watch
