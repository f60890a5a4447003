// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Worker.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <nlohmann/json.hpp>
#include <utility>

#include "reflyze/monitor.h"
#include "watch/desk/Clock.h"
#include "watch/desk/Complain.h"
#include "watch/desk/Findings.h"
#include "watch/store/Fibres.h"
#include "watch/store/JsonLine.h"

namespace reflyze::watch {
namespace {

constexpr long kFibresAtOnce = 4;   // that a worker takes: fewer transactions, and little to lose
constexpr long kTracesAtOnce = 32;  // of one fibre, after a long time away
constexpr std::chrono::milliseconds kLookForWork{500};  // other centres and folders add work without a bell
constexpr std::chrono::milliseconds kStoreAway{1000};
constexpr std::size_t kLatencies = 4096;

}  // namespace

void Workers::Start(unsigned threads) {
  held_.resize(threads);
  for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this, i] { Run(i); });
}

void Workers::Stop() {
  shop_.work.Stop();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

std::vector<double> Workers::Latencies() const {
  const std::lock_guard<std::mutex> lock(latencies_mutex_);
  return {latencies_.begin(), latencies_.end()};
}

// A store that is away takes the fibres along; they are taken again when it is back.
void Workers::Run(std::size_t own) {
  std::vector<Id> fibres;
  bool refused = false;
  Round round;
  while (true) {
    const unsigned long seen = shop_.work.Rung();
    std::chrono::milliseconds patience = kLookForWork;
    try {
      if (refused) EachAlone(own, std::exchange(fibres, {}));
      refused = false;
      std::vector<Done> all;
      all.reserve(fibres.size());
      for (const Id fibre : fibres) all.push_back(Work(fibre));
      fibres = Finish(own, all, shop_.work.Stopping() ? 0 : kFibresAtOnce, round);
      if (!fibres.empty() && !shop_.work.Stopping()) continue;
    } catch (const StoreAway&) {
      patience = kStoreAway;
    } catch (const std::bad_alloc&) {
      patience = kStoreAway;
    } catch (const std::exception& error) {
      Complain("comparing", error);
      refused = true;
      patience = kStoreAway;
    }
    if (!shop_.work.Wait(seen, patience)) return;
  }
}

// What the database refuses is the fault of one trace; the other fibres go on without it.
void Workers::EachAlone(std::size_t own, const std::vector<Id>& fibres) {
  for (const Id fibre : fibres) {
    const Done done = Work(fibre);
    try {
      Round none;
      Finish(own, {done}, 0, none);
    } catch (const StoreAway&) {
      throw;
    } catch (const std::exception& error) {
      shop_.store.Write([&](soci::session& session) {
        if (!Holds(session, shop_.store.Kind(), fibre, shop_.name)) return;
        for (const Outcome& outcome : done.outcomes)
          PutBad(session, outcome.trace.id, std::string("its result can't be kept: ") + error.what());
        Release(session, fibre, shop_.name);
      });
    }
  }
}

void Workers::Hold(std::size_t own, const std::vector<Id>& fibres) {
  const std::lock_guard<std::mutex> lock(held_mutex_);
  held_[own] = fibres;
}

std::vector<Id> Workers::AllHeld() const {
  const std::lock_guard<std::mutex> lock(held_mutex_);
  std::vector<Id> all;
  for (const std::vector<Id>& one : held_) all.insert(all.end(), one.begin(), one.end());
  return all;
}

Workers::Done Workers::Work(Id id) {
  Done done;
  done.fibre = id;
  WatchLimits limits;
  const auto fibre = shop_.store.Read([&](soci::session& session) {
    auto found = FindFibre(session, id);
    if (found) limits = FindLimits(session, found->limits).value_or(WatchLimits());
    return found;
  });
  if (!fibre || fibre->baseline == 0) return done;
  done.name = fibre->name;
  done.confirm = fibre->confirm;
  done.baseline = fibre->baseline;
  const auto rows =
      shop_.store.Read([&](soci::session& session) { return WaitingTraces(session, id, kTracesAtOnce); });
  Fibre now = *fibre;
  if (IsAhead(now.lastTakenAt, Now())) now.lastTakenAt = 0;
  std::shared_ptr<const ReadBaseline> baseline;
  std::string problem;
  try {
    baseline = baselines_.Get(fibre->baseline, limits);
  } catch (const Error& error) {
    problem = std::string("the baseline can't be used: ") + error.what();
  }
  for (const TraceRow& row : rows) {
    Outcome outcome;
    outcome.trace = row;
    outcome.problem = problem;
    if (baseline != nullptr) outcome = One(now, *baseline, row);
    if (outcome.problem.empty()) now.lastTakenAt = std::max(now.lastTakenAt, row.takenAt);
    done.outcomes.push_back(std::move(outcome));
  }
  return done;
}

namespace {

// Where the range of a trace ends, km, if the fibre of its baseline goes on there; else infinity. The end of
// a fibre that leaves the range stands a point behind the last one, in whole centimetres: that is shown.
double ShownKm(const Trace& trace, const EventTable& baseline) {
  constexpr double kCentimetreKm = 1e-5;
  const std::vector<double>& km = trace.DistancesKm();
  if (baseline.events.empty() || km.size() < 2) return HUGE_VAL;
  const double shown = 2.0 * km.back() - km[km.size() - 2] + kCentimetreKm;
  return shown < baseline.events.back().distanceKm ? shown : HUGE_VAL;
}

std::string TooShort(double shownKm, const EventTable& baseline) {
  char text[120];
  std::snprintf(text, sizeof text,
                "its range ends at %.3f km, before the fibre of the baseline does, at %.3f km", shownKm,
                baseline.events.back().distanceKm);
  return text;
}

}  // namespace

Workers::Outcome Workers::One(const Fibre& fibre, const ReadBaseline& baseline, const TraceRow& row) {
  Outcome outcome;
  outcome.trace = row;
  try {
    std::optional<Trace> trace = recent_.Take(row.id);
    if (!trace) {
      const std::string bytes = shop_.store.Read(
          [&](soci::session& session) { return TraceBytes(session, shop_.store.Kind(), row.id); });
      trace = Trace::FromBytes(fibre.name, std::vector<char>(bytes.begin(), bytes.end()));
    }
    const Comparison comparison = Compare(baseline.trace, *trace, measured_);
    outcome.shownKm = ShownKm(*trace, baseline.events);
    if (outcome.shownKm < HUGE_VAL && !comparison.Changed()) {
      outcome.problem = TooShort(outcome.shownKm, baseline.events);
      return outcome;
    }
    outcome.row.trace = row.id;
    outcome.row.fibre = fibre.id;
    outcome.row.takenAt = row.takenAt;
    outcome.row.result = comparison.result;
    outcome.row.changed = comparison.Changed();
    outcome.row.late = row.takenAt < fibre.lastTakenAt;
    outcome.row.endKm = comparison.rows.empty() ? 0.0 : comparison.rows.back().event.distanceKm;
    outcome.row.sentences = SentencesJson(ChangesOf(comparison));
    outcome.row.events = EventsJson(comparison, baseline.events);
    outcome.findings = FindingsOf(comparison, baseline.events);
    MeasureBreaks(outcome.findings, *trace);
    outcome.days = DaysFrom(comparison, baseline.events, row.takenAt);
    if (!outcome.row.late && row.takenAt / kMillisPerDay > fibre.lastTakenAt / kMillisPerDay)
      LookAtTrends(fibre, outcome);
  } catch (const StoreAway&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;  // not the fault of the trace
  } catch (const std::exception& error) {
    // Whatever is wrong with one trace, the queue goes on.
    outcome.problem = error.what();
  }
  return outcome;
}

// With the first trace of a day, all days before are complete.
void Workers::LookAtTrends(const Fibre& fibre, Outcome& outcome) {
  outcome.newDay = true;
  const long day = static_cast<long>(outcome.trace.takenAt / kMillisPerDay);
  shop_.store.Read([&](soci::session& session) {
    outcome.trends = TrendsOf(session, fibre, day);
    const WatchLimits limits = FindLimits(session, fibre.limits).value_or(WatchLimits());
    const auto baseline = FindBaseline(session, fibre.baseline);
    outcome.creeping = CreepingOf(outcome.trends, baseline ? baseline->events : "[]", limits);
    return 0;
  });
}

std::vector<AlarmChange> Workers::KeepOne(soci::session& session, const Done& done,
                                          const Outcome& outcome) const {
  if (!outcome.problem.empty()) {
    PutBad(session, outcome.trace.id, outcome.problem);
    return {};
  }
  if (!PutComparison(session, outcome.row, done.baseline)) return {};
  for (const EventDay& day : outcome.days) AddToDay(session, done.fibre, done.baseline, day);
  if (outcome.row.late) return {};
  AlarmStep step;
  step.fibre = done.fibre;
  step.trace = outcome.trace.id;
  step.at = outcome.trace.takenAt;
  step.confirm = done.confirm;
  step.shownKm = outcome.shownKm;
  const std::vector<Alarm> open = OpenAlarms(session, done.fibre);
  std::vector<AlarmChange> changes = NextAlarms(open, outcome.findings, step);
  if (outcome.newDay) {
    PutTrends(session, done.fibre, static_cast<long>(outcome.trace.takenAt / kMillisPerDay), outcome.trends);
    for (const AlarmChange& change : NextTrendAlarms(open, outcome.creeping, step)) changes.push_back(change);
  }
  return KeepChanges(session, std::move(changes), shop_.listeners, Now());
}

// Whether what was done of a fibre counts. Another centre may have taken over what this one did not finish in
// time; and against a baseline that came meanwhile its traces have to be compared anew.
bool Workers::KeepAll(soci::session& session, const Done& done, std::vector<AlarmChange>& changes) const {
  const auto held = Holds(session, shop_.store.Kind(), done.fibre, shop_.name);
  if (!held) return false;
  const bool counts = held->baseline == done.baseline;
  if (counts && IsAhead(held->lastTakenAt, Now())) ForgetNewest(session, done.fibre);
  if (counts) {
    for (const Outcome& outcome : done.outcomes) {
      for (AlarmChange& change : KeepOne(session, done, outcome)) changes.push_back(std::move(change));
    }
  }
  Release(session, done.fibre, shop_.name);
  return counts;
}

// What came to this centre goes first: it has those traces in its memory, and no other centre writes in their
// rows. Where none of them waits it helps others, as long as there is something to help with. Now and then
// whoever waits longest comes first: what a dead centre leaves must not wait for a quiet hour.
std::vector<Id> Workers::Claim(soci::session& session, long most, Round& round) const {
  const auto claim = [&](Whose whose) {
    return ClaimFibres(session, shop_.store.Kind(), shop_.name, Now(), most, AllHeld(), whose);
  };
  if (shop_.store.Kind() == Dialect::kSqlite) return claim(Whose::kAnybodys);  // nobody else is there
  const auto now = std::chrono::steady_clock::now();
  const bool around = now >= round.next;
  if (!around) {
    std::vector<Id> own = claim(Whose::kOwn);
    if (!own.empty() || !round.helps) return own;
  }
  std::vector<Id> next = claim(Whose::kAnybodys);
  round.helps = !next.empty();
  if (around) round.next = now + kLookForWork;
  return next;
}

// Keeps what was done and takes what comes next, at most so many, in one transaction.
std::vector<Id> Workers::Finish(std::size_t own, const std::vector<Done>& all, long most, Round& round) {
  if (all.empty() && most == 0) return {};
  std::vector<Id> next, before;
  std::vector<std::vector<AlarmChange>> changes;
  std::vector<bool> counts;
  for (const Done& done : all) before.push_back(done.fibre);
  try {
    Round looked = round;
    shop_.store.Write([&](soci::session& session) {
      looked = round;  // what is taken back was no look around
      Hold(own, before);
      changes.assign(all.size(), {});
      counts.assign(all.size(), false);
      for (std::size_t i = 0; i < all.size(); ++i) counts[i] = KeepAll(session, all[i], changes[i]);
      Hold(own, {});
      next = Claim(session, most, looked);
      Hold(own, next);
    });
    round = looked;
  } catch (...) {
    Hold(own, before);
    throw;
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (counts[i]) Tell(all[i], changes[i]);
  }
  return next;
}

void Workers::Tell(const Done& done, const std::vector<AlarmChange>& changes) {
  const Millis now = Now();
  for (const Outcome& outcome : done.outcomes) {
    ++(outcome.problem.empty() ? compared_ : bad_);
    {
      const std::lock_guard<std::mutex> lock(latencies_mutex_);
      latencies_.push_back(static_cast<double>(now - outcome.trace.receivedAt));
      if (latencies_.size() > kLatencies) latencies_.pop_front();
    }
    const nlohmann::json news = {{"trace", outcome.trace.id},
                                 {"taken_at", outcome.trace.takenAt},
                                 {"received_at", outcome.trace.receivedAt},
                                 {"changed", outcome.row.changed},
                                 {"problem", outcome.problem}};
    shop_.bus.Publish("comparison", done.name, JsonLine(news));
  }
  bool told = false;
  for (const AlarmChange& change : changes) {
    told = told || change.told.has_value();
    shop_.bus.Publish("alarm", done.name, JsonOf(change.alarm, done.name));
  }
  if (told) shop_.mail.Ring();
}

}  // namespace reflyze::watch
