// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Pace.h"

#include <algorithm>

#include "watch/desk/Clock.h"

namespace reflyze::watch {
double Pace::LeftOf(const Left& left, Millis now) const {
  return std::min(atOnce_, left.count + static_cast<double>(now - left.at) /
                                            static_cast<double>(kMillisPerSecond) * perSecond_);
}

void Pace::Forget(Millis now) {
  for (auto one = addresses_.begin(); one != addresses_.end();) {
    one = LeftOf(one->second, now) >= atOnce_ ? addresses_.erase(one) : std::next(one);
  }
  if (addresses_.size() >= kMostAddresses) addresses_.clear();  // nobody is locked out by a crowd
}

bool Pace::Take(const std::string& address) {
  const Millis now = SteadyNow();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (addresses_.size() >= kMostAddresses) Forget(now);
  Left& left = addresses_.try_emplace(address, Left{atOnce_, now}).first->second;
  left = {LeftOf(left, now), now};
  if (left.count < 1.0) return false;
  left.count -= 1.0;
  return true;
}

void Pace::Return(const std::string& address) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = addresses_.find(address);
  if (found != addresses_.end()) found->second.count = std::min(atOnce_, found->second.count + 1.0);
}

}  // namespace reflyze::watch
