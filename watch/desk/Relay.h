// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "watch/desk/Bus.h"
#include "watch/desk/Wake.h"
#include "watch/store/Wire.h"

namespace reflyze::watch {

// Carries news between the centres that share a server, so that whoever looks on at one of them sees what
// happens at all. While the server is away nothing is carried; those who look on are told so when it is back.
class Relay {
 public:
  Relay(Bus& bus, const std::string& address) : bus_(bus), address_(address) {}
  ~Relay() { Stop(); }
  void Start();
  void Stop();

 private:
  void Run();
  void Carry(Wire& wire);
  static void Say(Wire& wire, const std::vector<News>& news);
  void Hear(const std::string& text);

  Bus& bus_;
  std::string address_;
  long long after_ = 0;  // of the bus: what was carried last
  Wake wake_;
  std::thread thread_;
};

}  // namespace reflyze::watch
