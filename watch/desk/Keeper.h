// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <thread>
#include <vector>

#include "watch/desk/Silence.h"
#include "watch/desk/Worker.h"

namespace reflyze::watch {

// Says again and again that this centre lives, looks from whom nothing comes, and drops the bytes of old
// traces in which nothing had changed (watch/store/Thinning.h).
class Keeper {
 public:
  Keeper(Shop& shop, long keepDays) : shop_(shop), keepDays_(keepDays) {}
  ~Keeper() { Stop(); }
  void Start();
  void Stop();

 private:
  void Run();
  void LookAround();
  void ThinOutSome();
  std::vector<Expected> AllExpected(soci::session& session);

  Shop& shop_;
  long keepDays_;       // 0 keeps all
  Millis thinDay_ = 0;  // up to which all fibres are thin
  Wake wake_;
  std::thread thread_;
  // The last sign of life of a fibre, or that it began to be watched. Clocks that are set, a store that is
  // away and a centre that stands still make nobody silent: what counts is the time for which this centre
  // looked on.
  struct Sign {
    Id lastGood = 0, baseline = 0;
    Millis backlogAt = 0, lookedFor = 0;
  };
  std::map<Id, Sign> heard_;
  Millis lookedFor_ = 0, lookedAt_ = 0;  // for how long, and when last, by the steady clock
};

}  // namespace reflyze::watch
