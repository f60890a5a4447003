// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "reflyze/monitor.h"
#include "watch/desk/Baselines.h"
#include "watch/desk/Bus.h"
#include "watch/desk/Intake.h"
#include "watch/desk/Keep.h"
#include "watch/desk/Trends.h"
#include "watch/desk/Wake.h"
#include "watch/store/Store.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {

// What all that works in a centre shares.
struct Shop {
  Store& store;
  Bus& bus;
  Wake& work;  // rings when traces wait
  Wake& mail;  // rings when messages wait
  Listeners listeners;
  std::string name;     // of the centre
  std::string address;  // of its page, for people; empty where that is not told
};

// Compares the traces that wait, each once, and keeps what comes out. A fibre is one worker's at a time, so
// that its traces are compared in the order in which they were taken.
class Workers {
 public:
  Workers(Shop& shop, ReadTraces& recent) : shop_(shop), recent_(recent), baselines_(shop.store) {}
  ~Workers() { Stop(); }
  void Start(unsigned threads);
  // What was begun is finished first.
  void Stop();

  long long ComparedCount() const { return compared_; }
  long long BadCount() const { return bad_; }
  // Milliseconds from when a trace came to when its result was on disk, the latest.
  std::vector<double> Latencies() const;

 private:
  // What became of one trace, before it is kept.
  struct Outcome {
    TraceRow trace;
    std::string problem;        // why it could not be compared; empty where it could
    double shownKm = HUGE_VAL;  // as AlarmStep has it
    ComparisonRow row;
    std::vector<Finding> findings;
    std::vector<EventDay> days;
    std::vector<EventTrend> trends;  // of a new day
    bool newDay = false;
    std::vector<Finding> creeping;
  };
  struct Done {
    Id fibre = 0;
    std::string name;
    int confirm = 1;
    Id baseline = 0;
    std::vector<Outcome> outcomes;
  };
  // When a worker looks next at what waits everywhere, and whether it has found something of others lately.
  struct Round {
    std::chrono::steady_clock::time_point next;
    bool helps = false;
  };
  void Run(std::size_t own);
  Done Work(Id fibre);
  Outcome One(const Fibre& fibre, const ReadBaseline& baseline, const TraceRow& row);
  void LookAtTrends(const Fibre& fibre, Outcome& outcome);
  std::vector<AlarmChange> KeepOne(soci::session& session, const Done& done, const Outcome& outcome) const;
  std::vector<Id> Finish(std::size_t own, const std::vector<Done>& all, long most, Round& round);
  std::vector<Id> Claim(soci::session& session, long most, Round& round) const;
  bool KeepAll(soci::session& session, const Done& done, std::vector<AlarmChange>& changes) const;
  void EachAlone(std::size_t own, const std::vector<Id>& fibres);
  void Hold(std::size_t own, const std::vector<Id>& fibres);
  std::vector<Id> AllHeld() const;
  void Tell(const Done& done, const std::vector<AlarmChange>& changes);

  static constexpr std::size_t kMeasured = 16384;  // baselines, of about 2 kB each
  Shop& shop_;
  ReadTraces& recent_;
  Baselines baselines_;
  BaselineMemory measured_{kMeasured};
  std::vector<std::thread> threads_;
  mutable std::mutex held_mutex_;
  std::vector<std::vector<Id>> held_;  // what each thread works on
  std::atomic<long long> compared_{0}, bad_{0};
  mutable std::mutex latencies_mutex_;
  std::deque<double> latencies_;
};

}  // namespace reflyze::watch
