// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "watch/desk/Intake.h"

namespace reflyze::watch {

// A folder whose files are taken: SPOOL/FIBRE/NAME is a trace of that fibre. A file counts when whoever
// writes it has closed it or moved it there; one that came unheard counts when nobody writes it any more;
// names that begin with "." or end with ".part" or ".tmp" don't. What was taken is deleted, once it is on
// disk in the store. What can't be taken goes to SPOOL/.refused, with a text beside it that says why.
class Spool {
 public:
  // Throws Error kUnwritable for a folder that can't be had.
  Spool(const std::string& folder, Intake& intake);
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;
  ~Spool();
  void Start();
  void Stop();
  long long RefusedCount() const { return refused_; }

 private:
  void Run();
  void Listen();
  void WatchFolder(const std::string& fibre);
  void Sweep();
  void SweepFolder(const std::string& fibre);
  void Hear();
  void TakeAll(const std::vector<std::pair<std::string, std::string>>& files);
  bool TakeFile(const std::string& fibre, const std::string& name);
  void Refuse(const std::string& fibre, const std::string& name, const std::string& why);

  std::string folder_;
  Intake& intake_;
  int notify_ = -1;
  int stop_[2] = {-1, -1};             // a pipe: a byte in it ends the thread
  std::map<int, std::string> fibres_;  // watched folders
  // Fibres with files that came before anybody listened, and what was announced since: it comes behind them.
  std::map<std::string, std::set<std::string>> unsettled_;
  std::chrono::steady_clock::time_point nextSweep_;  // of all folders
  bool swept_ = false;                               // all of them, once at least
  bool missed_ = false;                              // more came than the system could tell
  std::atomic<bool> away_{false};  // the store is: what comes waits for the next sweep, in its order
  std::thread thread_;
  std::atomic<long long> refused_{0};
};

}  // namespace reflyze::watch
