// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <thread>

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

  Shop& shop_;
  Wake wake_;
  std::thread thread_;
  Millis clockAhead_ = 0;  // the machine's clock against the steady one
  Millis jumpedAt_ = 0;    // when it was set last
};

}  // namespace reflyze::watch
