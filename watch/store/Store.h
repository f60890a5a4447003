// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "reflyze/error.h"

namespace reflyze::watch {

// What a database says in its own way.
enum class Dialect { kSqlite, kPostgres };

// The database can't be had at the moment: it is away, or its disk is full. Whoever was asked to do something
// has not done it, and may try again.
class StoreAway : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The database that a centre keeps everything in. Any thread may use it.
class Store {
 public:
  // `address` is the path of a file or "postgresql://...". Brings the schema to the newest version. Throws
  // Error kUnreadable for a store of a newer version and for what is none.
  explicit Store(const std::string& address);
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ~Store();

  Dialect Kind() const { return kind_; }

  // Does what reads. Throws StoreAway, and whatever `what` throws. `what` reads from its session alone.
  template <typename What>
  auto Read(const What& what);

  // Does what writes, and returns when it is on disk. What several threads want at the same time becomes one
  // transaction, since a disk is slow to say that it has written; each of them takes effect whole or not at
  // all. Throws StoreAway, and whatever `what` throws. `what` runs in another thread, perhaps more than once,
  // but takes effect once.
  void Write(const std::function<void(soci::session&)>& what);

  // The schema that this version writes.
  static int NewestVersion();
  // The version of a store that is there; 0 for an empty one. Changes nothing.
  static int VersionOf(const std::string& address);

 private:
  struct Waiting {
    const std::function<void(soci::session&)>* what;
    std::promise<void> done;
  };
  // One of so many that read at the same time: a server has few connections to give.
  class Turn {
   public:
    explicit Turn(Store& store);
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

   private:
    Store& store_;
  };
  std::unique_ptr<soci::session> Open() const;
  void OpenWriter();
  void TakeBack();
  std::unique_ptr<soci::session> Lend();
  void GiveBack(std::unique_ptr<soci::session> session);
  void WriteThem();
  void Commit(std::vector<Waiting>& batch);
  std::exception_ptr Alone(Waiting& one);
  std::vector<std::exception_ptr> Transact(const Waiting* batch, std::size_t count);

  std::string address_;
  Dialect kind_;
  std::mutex readers_mutex_;
  std::condition_variable reader_left_;
  std::size_t reading_ = 0;
  std::vector<std::unique_ptr<soci::session>> readers_;
  std::unique_ptr<soci::session> writer_;  // of the writing thread alone
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Waiting> waiting_;
  bool stopping_ = false;
  std::thread thread_;
};

// Until the transaction ends, no other one changes this table of a server. A file is locked as a whole
// already.
inline void LockAgainst(soci::session& session, Dialect kind, const std::string& table) {
  if (kind == Dialect::kPostgres) session << "LOCK TABLE " + table + " IN SHARE ROW EXCLUSIVE MODE";
}

template <typename What>
auto Store::Read(const What& what) {
  const Turn turn(*this);
  // A session whose server went away does not come back. The first failure may be that of one that was
  // lying idle; a fresh one tells.
  for (bool fresh = false;; fresh = true) {
    std::unique_ptr<soci::session> session = fresh ? Open() : Lend();
    try {
      auto result = what(*session);
      GiveBack(std::move(session));
      return result;
    } catch (const soci::soci_error& error) {
      if (fresh) throw StoreAway(error.what());
    }
  }
}

}  // namespace reflyze::watch
