// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Bus.h"

namespace reflyze::watch {

void Bus::Publish(const std::string& kind, const std::string& fibre, const std::string& json,
                  bool fromOthers) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    news_.push_back({++last_, kind, fibre, json, fromOthers});
    if (news_.size() > kKept) news_.pop_front();
  }
  came_.notify_all();
}

std::vector<News> Bus::After(long long after, std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  came_.wait_for(lock, patience, [&] { return closed_ || last_ > after; });
  std::vector<News> found;
  for (const News& one : news_) {
    if (one.number > after) found.push_back(one);
  }
  return found;
}

long long Bus::Last() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return last_;
}

void Bus::Close() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  came_.notify_all();
}

}  // namespace reflyze::watch
