// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Store.h"

#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <utility>

#include "watch/store/Migrations.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kMostTogether = 256;  // writes in one transaction
constexpr int kMostRaces = 20;              // that a transaction loses against other centres
constexpr std::size_t kMostIdle = 8;        // sessions that wait for readers
constexpr std::size_t kMostReading = 24;    // at the same time

[[noreturn]] void Refuse(const std::string& address, const std::string& why) {
  throw Error(ErrorKind::kUnreadable, address, "can't be used as a store: " + why);
}

Dialect DialectOf(const std::string& address) {
  return address.rfind("postgresql://", 0) == 0 ? Dialect::kPostgres : Dialect::kSqlite;
}

std::unique_ptr<soci::session> Connect(const std::string& address, Dialect kind) {
  if (kind == Dialect::kPostgres)
    return std::make_unique<soci::session>(*soci::factory_postgresql(), address);
  // The address is a list of words to the library; a name that would be several is refused.
  if (address.find_first_of("\" \t\n") != std::string::npos)
    throw Error(ErrorKind::kUsage, address, "the name of a store holds no blank and no quotation mark");
  auto session =
      std::make_unique<soci::session>(*soci::factory_sqlite3(), "dbname=" + address + " timeout=30");
  // Readers go on while somebody writes, and what was acknowledged survives a loss of power.
  std::string mode;
  *session << "PRAGMA journal_mode=WAL", soci::into(mode);
  *session << "PRAGMA synchronous=FULL";
  *session << "PRAGMA foreign_keys=ON";
  *session << "PRAGMA cache_size=-32768";  // KiB: the pages at the ends of the indices stay in memory
  return session;
}

// A database that has no room or does not answer is away; a statement that it refuses is a fault of ours.
std::exception_ptr AsAway(const soci::soci_error& error) {
  constexpr int kBusy = 5, kInOut = 10, kFull = 13, kCantOpen = 14;  // SQLite's codes
  const auto* own = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
  const int code = own == nullptr ? 0 : own->result() & 0xff;
  if (code == kBusy || code == kInOut || code == kFull || code == kCantOpen)
    return std::make_exception_ptr(StoreAway(error.what()));
  return std::make_exception_ptr(error);
}

// Two centres changed the same rows, each in its own order: the server has let one of them go on, and the
// other does all of its transaction again.
bool LostRace(const soci::soci_error& error) {
  const auto* own = dynamic_cast<const soci::postgresql_soci_error*>(&error);
  return own != nullptr && (own->sqlstate() == "40P01" || own->sqlstate() == "40001");
}

void Begin(soci::session& session, Dialect kind) {
  // A SQLite transaction that becomes a writer late can't wait for another; one that begins as one can.
  session << (kind == Dialect::kSqlite ? "BEGIN IMMEDIATE" : "BEGIN");
}

}  // namespace

Store::Store(const std::string& address) : address_(address), kind_(DialectOf(address)) {
  try {
    writer_ = Open();
    Migrate(*writer_, kind_, address);
  } catch (const soci::soci_error& error) {
    Refuse(address, error.what());
  } catch (const StoreAway& error) {
    Refuse(address, error.what());
  }
  thread_ = std::thread([this] { WriteThem(); });
}

Store::~Store() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

int Store::VersionOf(const std::string& address) {
  try {
    const std::unique_ptr<soci::session> session = Connect(address, DialectOf(address));
    return SchemaVersion(*session, DialectOf(address));
  } catch (const soci::soci_error& error) {
    Refuse(address, error.what());
  }
}

int Store::NewestVersion() { return watch::NewestVersion(); }

Store::Turn::Turn(Store& store) : store_(store) {
  std::unique_lock<std::mutex> lock(store_.readers_mutex_);
  store_.reader_left_.wait(lock, [this] { return store_.reading_ < kMostReading; });
  ++store_.reading_;
}

Store::Turn::~Turn() {
  {
    const std::lock_guard<std::mutex> lock(store_.readers_mutex_);
    --store_.reading_;
  }
  store_.reader_left_.notify_one();
}

std::unique_ptr<soci::session> Store::Open() const {
  try {
    return Connect(address_, kind_);
  } catch (const soci::soci_error& error) {
    throw StoreAway(error.what());
  }
}

std::unique_ptr<soci::session> Store::Lend() {
  {
    const std::lock_guard<std::mutex> lock(readers_mutex_);
    if (!readers_.empty()) {
      std::unique_ptr<soci::session> session = std::move(readers_.back());
      readers_.pop_back();
      return session;
    }
  }
  return Open();
}

void Store::GiveBack(std::unique_ptr<soci::session> session) {
  const std::lock_guard<std::mutex> lock(readers_mutex_);
  if (readers_.size() < kMostIdle) readers_.push_back(std::move(session));
}

void Store::Write(const std::function<void(soci::session&)>& what) {
  std::future<void> done;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) throw StoreAway("the centre stops");
    waiting_.push_back({&what, {}});
    done = waiting_.back().done.get_future();
  }
  wake_.notify_one();
  done.get();
}

void Store::WriteThem() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (true) {
    wake_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    std::vector<Waiting> batch;
    while (!waiting_.empty() && batch.size() < kMostTogether) {
      batch.push_back(std::move(waiting_.front()));
      waiting_.pop_front();
    }
    lock.unlock();
    Commit(batch);
    lock.lock();
  }
}

// Each in its place behind a savepoint: one that fails takes nobody along. A soci_error may be the fault of
// one statement or of the database; only where the rest goes on is it the former.
std::vector<std::exception_ptr> Store::Apply(soci::session& session,
                                             const std::vector<Waiting>& batch) const {
  std::vector<std::exception_ptr> failures(batch.size());
  for (std::size_t i = 0; i < batch.size(); ++i) {
    session << "SAVEPOINT one";
    try {
      (*batch[i].what)(session);
    } catch (const soci::soci_error& error) {
      if (LostRace(error)) throw;
      failures[i] = AsAway(error);
      session << "ROLLBACK TO SAVEPOINT one";
    } catch (...) {
      failures[i] = std::current_exception();
      session << "ROLLBACK TO SAVEPOINT one";
    }
    session << "RELEASE SAVEPOINT one";
  }
  return failures;
}

void Store::Commit(std::vector<Waiting>& batch) {
  std::string away;
  for (int attempt = 0, races = 0; attempt < 2 && races < kMostRaces;) {
    try {
      if (writer_ == nullptr) writer_ = Open();
      Begin(*writer_, kind_);
      const std::vector<std::exception_ptr> failures = Apply(*writer_, batch);
      *writer_ << "COMMIT";
      for (std::size_t i = 0; i < batch.size(); ++i) {
        if (failures[i]) {
          batch[i].done.set_exception(failures[i]);
        } else {
          batch[i].done.set_value();
        }
      }
      return;
    } catch (const std::exception& error) {
      const auto* own = dynamic_cast<const soci::soci_error*>(&error);
      ++(own != nullptr && LostRace(*own) ? races : attempt);
      // Whether a lost COMMIT took effect is not known on this side. All that is written can be written
      // again without being counted twice.
      away = error.what();
      writer_.reset();
    }
  }
  for (Waiting& one : batch) one.done.set_exception(std::make_exception_ptr(StoreAway(away)));
}

}  // namespace reflyze::watch
