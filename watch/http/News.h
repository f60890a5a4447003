// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "watch/desk/Bus.h"

namespace reflyze::watch {

// News to one who looks on, as server-sent events. A number of an event begins with the run of the centre,
// since numbers begin anew with each; whoever comes back with one of another run, or too late, is told that
// there was more ("missed") and looks at the lists again.
class NewsStream {
 public:
  NewsStream(Bus& bus, const std::string& run, const std::string& lastSeen,
             const std::atomic<bool>& stopping);

  // The next letters, at most so many; waits for them. None when it is over: browsers come again by
  // themselves, and say anew who they are.
  std::size_t Read(char* letters, std::size_t most);

 private:
  bool Fill();
  void Add(const News& one);

  Bus& bus_;
  std::string run_;
  const std::atomic<bool>& stopping_;
  long long after_ = 0;
  long long until_;
  std::string waiting_;
};

}  // namespace reflyze::watch
