// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <mutex>
#include <thread>

#include "watch/desk/Wake.h"
#include "watch/store/Values.h"

namespace reflyze::watch {

// Ends connections that take too long in all: who sends a letter now and then is never idle.
class Overdue {
 public:
  ~Overdue() { Stop(); }
  void Start();
  void Stop();

  // A connection by a key of its own, with its socket, and what it may take from now on.
  void Open(const void* connection, int socket, Millis patience);
  void Allow(const void* connection, Millis patience);
  // From when this returns the socket is not touched any more.
  void Close(const void* connection);

 private:
  struct Known {
    int socket = -1;
    Millis until = 0;
  };
  void Run();
  std::mutex mutex_;
  std::map<const void*, Known> connections_;
  Wake wake_;
  std::thread thread_;
};

}  // namespace reflyze::watch
