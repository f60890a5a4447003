// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace reflyze::watch {

// Something that whoever looks on should see at once.
struct News {
  long long number = 0;     // from 1, in order
  std::string kind;         // "comparison", "alarm", "fibre"; "missed" where some are lost
  std::string fibre;        // its name; empty for none
  std::string json;         // the rest
  bool fromOthers = false;  // it happened at another centre
};

// Carries news to those who look on. Only the latest are kept; whoever comes too late looks at the store.
class Bus {
 public:
  void Publish(const std::string& kind, const std::string& fibre, const std::string& json,
               bool fromOthers = false);
  // What came behind the number `after`; waits so long for it.
  std::vector<News> After(long long after, std::chrono::milliseconds patience);
  long long Last();
  // Wakes all who wait, for good.
  void Close();

 private:
  static constexpr std::size_t kKept = 4096;
  std::mutex mutex_;
  std::condition_variable came_;
  std::deque<News> news_;
  long long last_ = 0;
  bool closed_ = false;
};

}  // namespace reflyze::watch
