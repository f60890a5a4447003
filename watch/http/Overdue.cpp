// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Overdue.h"

#include <sys/socket.h>

#include "watch/desk/Clock.h"

namespace reflyze::watch {
namespace {

constexpr std::chrono::milliseconds kLookForOverdue(500);

}  // namespace

void Overdue::Start() {
  thread_ = std::thread([this] { Run(); });
}

void Overdue::Stop() {
  wake_.Stop();
  if (thread_.joinable()) thread_.join();
}

void Overdue::Open(const void* connection, int socket, Millis patience) {
  const std::lock_guard<std::mutex> lock(mutex_);
  connections_[connection] = {socket, SteadyNow() + patience};
}

void Overdue::Allow(const void* connection, Millis patience) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = connections_.find(connection);
  if (found != connections_.end()) found->second.until = SteadyNow() + patience;
}

void Overdue::Close(const void* connection) {
  const std::lock_guard<std::mutex> lock(mutex_);
  connections_.erase(connection);
}

void Overdue::Run() {
  while (wake_.Wait(wake_.Rung(), kLookForOverdue)) {
    const Millis now = SteadyNow();
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [connection, known] : connections_) {
      if (known.until <= now) shutdown(known.socket, SHUT_RDWR);
    }
  }
}

}  // namespace reflyze::watch
