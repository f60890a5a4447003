// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <thread>
#include <vector>

#include "watch/desk/Silence.h"
#include "watch/desk/Worker.h"

namespace reflyze::watch {

// Says again and again that this centre lives, and looks from whom nothing comes.
class Keeper {
 public:
  explicit Keeper(Shop& shop) : shop_(shop) {}
  ~Keeper() { Stop(); }
  void Start();
  void Stop();

 private:
  void Run();
  void LookAround();
  std::vector<Expected> AllExpected(soci::session& session);

  Shop& shop_;
  Wake wake_;
  std::thread thread_;
  // When a fibre was heard last. Clocks that are set, a store that is away and a centre that stands still
  // make nobody silent: what counts is the time for which this centre looked on.
  struct Heard {
    Millis toldAt = 0, lookedFor = 0;
    bool since = false;
  };
  std::map<Id, Heard> heard_;
  Millis lookedFor_ = 0, lookedAt_ = 0;  // for how long, and when last, by the steady clock
};

}  // namespace reflyze::watch
