// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reflyze/trace.h"
#include "watch/desk/Wake.h"
#include "watch/store/Store.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {

constexpr std::size_t kLargestTrace = 64u << 20;  // bytes, whichever way it comes

// Traces that were read when they came, for whoever compares them next. Few are kept; the store has all.
class ReadTraces {
 public:
  void Put(Id id, const Trace& trace);
  std::optional<Trace> Take(Id id);

 private:
  static constexpr std::size_t kKept = 64;
  std::mutex mutex_;
  std::deque<std::pair<Id, Trace>> traces_;
};

// Where traces come in. What it gives back is on disk.
class Intake {
 public:
  // Of the centre of that name.
  Intake(Store& store, Wake& work, std::string centre, bool learn)
      : store_(store), work_(work), centre_(std::move(centre)), learn_(learn) {}

  // Takes a trace of a fibre, whole and as it came. Throws Error kUsage for a name that no fibre has or could
  // have, kUnreadable for bytes that are no trace or can't be measured, such as half a file, StoreAway where
  // it can't be kept now.
  Taken Take(const std::string& fibre, std::vector<char> bytes);

  // Makes a trace the baseline of a fibre, with its limits. Throws Error as Take does, and kUnreadable for a
  // trace that shows no fibre.
  // `also` is done in the same transaction, with the number of the baseline.
  Id TakeBaseline(const std::string& fibre, std::vector<char> bytes, const std::string& who,
                  const std::function<void(soci::session&, Id)>& also);

  long long TakenCount() const { return taken_; }
  ReadTraces& Recent() { return recent_; }

 private:
  Fibre Known(const std::string& name);
  Taken Keep(const TraceRow& row, const std::string& name, const std::string& card, const std::string& bytes);
  void Learn(const Fibre& fibre, const Trace& trace);

  Store& store_;
  Wake& work_;
  std::string centre_;
  bool learn_;
  ReadTraces recent_;
  std::atomic<long long> taken_{0};
};

// Whether a name can be that of a fibre: up to 100 letters, digits, "-", "_" and ".", not beginning with ".".
bool IsFibreName(const std::string& name);

// The hash by which the store knows bytes: BLAKE2b, 32 bytes, in hexadecimal.
std::string HashOf(const char* bytes, std::size_t size);

}  // namespace reflyze::watch
