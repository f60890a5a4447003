// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "reflyze/watch.h"
#include "watch/desk/Intake.h"
#include "watch/desk/Worker.h"

namespace reflyze::watch {

// What the server shows beside what is in the store.
struct Served {
  Shop& shop;
  Intake& intake;
  const Workers& workers;
};

// Answers HTTP: the interface that /openapi.json describes, the page, news as they come, and figures for
// monitoring.
class Server {
 public:
  // Throws Error kUsage for an address beyond the loopback without users in the store, kUnreadable for a
  // certificate that is none.
  Server(const CentreOptions& options, const Served& served);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();
  // Begins to answer. Gives the port. Throws Error kUnwritable where it is taken.
  int Start();
  void Stop();

 private:
  class Door;
  std::unique_ptr<Door> door_;
};

}  // namespace reflyze::watch
