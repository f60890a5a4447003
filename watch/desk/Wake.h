// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace reflyze::watch {

// Tells a thread that there is work, or that it is time to end. Work that comes while the thread works is
// found at its next wait.
class Wake {
 public:
  void Ring() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++rung_;
    }
    bell_.notify_all();
  }
  void Stop() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    bell_.notify_all();
  }
  bool Stopping() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return stopping_;
  }
  // How often it rang. A thread asks before it looks for work, and waits for more than that.
  unsigned long Rung() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return rung_;
  }
  // Waits until it rings again, or for so long. False when it is time to end.
  bool Wait(unsigned long seen, std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    bell_.wait_for(lock, patience, [&] { return stopping_ || rung_ != seen; });
    return !stopping_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable bell_;
  unsigned long rung_ = 0;
  bool stopping_ = false;
};

}  // namespace reflyze::watch
