// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <thread>
#include <vector>

#include "watch/desk/Worker.h"
#include "watch/tell/Channel.h"

namespace reflyze::watch {

// Sends the messages that wait, each until its channel has taken it: again after a second, then twice as long
// each time, up to ten minutes. After `kMostTries` a message is a dead letter. What was sent and could not be
// noted as sent is sent again, with the same number.
class Teller {
 public:
  static constexpr int kMostTries = 12;  // within the hour

  Teller(Shop& shop, std::vector<NamedChannel> channels) : shop_(shop), channels_(std::move(channels)) {}
  ~Teller() { Stop(); }
  void Start();
  void Stop();

 private:
  void Run();
  bool SendSome();
  void SendOne(const Delivery& delivery);
  std::optional<Message> Written(const Delivery& delivery);

  Shop& shop_;
  std::vector<NamedChannel> channels_;
  std::thread thread_;
};

}  // namespace reflyze::watch
