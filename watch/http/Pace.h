// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

#include "watch/store/Values.h"

namespace reflyze::watch {

// Holds each address to a pace: so many at once, and so many a second after that.
class Pace {
 public:
  Pace(double atOnce, double perSecond) : atOnce_(atOnce), perSecond_(perSecond) {}

  // Whether the address may go on now. What it takes comes back with time.
  bool Take(const std::string& address);
  // Gives back what was taken.
  void Return(const std::string& address);

 private:
  // Addresses cost memory; those that have all they may have are forgotten when there are so many.
  static constexpr std::size_t kMostAddresses = 20000;
  struct Left {
    double count = 0.0;
    Millis at = 0;
  };
  double LeftOf(const Left& left, Millis now) const;
  void Forget(Millis now);

  const double atOnce_, perSecond_;
  std::mutex mutex_;
  std::unordered_map<std::string, Left> addresses_;
};

}  // namespace reflyze::watch
