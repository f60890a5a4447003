// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Store.h"

#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <utility>

#include "watch/store/Migrations.h"
#include "watch/store/ServerAddress.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kMostTogether = 256;  // writes in one transaction
constexpr std::size_t kMostIdle = 8;        // sessions that wait for readers
constexpr std::size_t kMostReading = 24;    // at the same time

[[noreturn]] void Refuse(const std::string& address, std::string why) {
  for (char& sign : why) sign = sign == '\n' || sign == '\t' ? ' ' : sign;  // servers speak in several lines
  why.erase(why.find_last_not_of(' ') + 1);
  throw Error(ErrorKind::kUnreadable, ShownStore(address), "can't be used as a store: " + why);
}

Dialect DialectOf(const std::string& address) {
  return IsServer(address) ? Dialect::kPostgres : Dialect::kSqlite;
}

std::unique_ptr<soci::session> Connect(const std::string& address, Dialect kind) {
  ExpectStore(address);
  if (kind == Dialect::kPostgres) {
    auto session = std::make_unique<soci::session>(*soci::factory_postgresql(), WithPatience(address));
    // A centre that stands still while it writes holds no rows for long, and nobody waits for them for ever.
    *session << "SELECT set_config(name, value, false) FROM (VALUES ('lock_timeout', '20000'),"
                " ('idle_in_transaction_session_timeout', '15000')) wanted(name, value)"
                " WHERE current_setting(name) = '0'";
    return session;
  }
  auto session =
      std::make_unique<soci::session>(*soci::factory_sqlite3(), "dbname=" + address + " timeout=30");
  // Readers go on while somebody writes, and what was acknowledged survives a loss of power.
  std::string mode;
  *session << "PRAGMA journal_mode=WAL", soci::into(mode);
  *session << "PRAGMA synchronous=FULL";
  *session << "PRAGMA foreign_keys=ON";
  return session;
}

// Two centres want the same rows, perhaps in different orders. Whoever is told so has to begin anew.
struct Conflict {};

bool IsAway(const soci::sqlite3_soci_error& error) {
  constexpr int kBusy = 5, kNoMemory = 7, kReadOnly = 8, kInOut = 10, kFull = 13, kCantOpen = 14;
  const int code = error.result() & 0xff;
  return code == kBusy || code == kNoMemory || code == kReadOnly || code == kInOut || code == kFull ||
         code == kCantOpen;
}

// No connection, no resources (such as a disk), stopped by its operator, a fault of its system; stood still.
bool IsAway(const std::string& state) {
  const std::string group = state.substr(0, 2);
  return group == "  " || group == "08" || group == "53" || group == "57" || group == "58" ||
         state == "25P03";
}

// A database that has no room or does not answer is away; a statement that it refuses is a fault of ours.
std::exception_ptr AsAway(const soci::soci_error& error) {
  const auto* file = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
  const auto* server = dynamic_cast<const soci::postgresql_soci_error*>(&error);
  const std::string state = server != nullptr ? server->sqlstate() : "";
  if (state.compare(0, 2, "40") == 0 || state == "55P03") throw Conflict();
  if ((file != nullptr && IsAway(*file)) || (server != nullptr && IsAway(state)))
    return std::make_exception_ptr(StoreAway(error.what()));
  return std::make_exception_ptr(soci::soci_error(error.what()));
}

// Gives a number by which the server tells later what became of it; 0 for none.
long long Begin(soci::session& session, Dialect kind, bool together) {
  // A SQLite transaction that becomes a writer late can't wait for another; one that begins as one can.
  session << (kind == Dialect::kSqlite ? "BEGIN IMMEDIATE" : "BEGIN");
  long long number = 0;
  // Several hold many rows, and wait for others only briefly: one by one they get on.
  const std::string patience = together ? ", set_config('lock_timeout', '200', true)" : "";
  if (kind == Dialect::kPostgres) session << "SELECT txid_current()" + patience, soci::into(number);
  return number;
}

// Whether a transaction took effect whose end nobody has heard of. The server may still be about to notice
// that nobody is there.
bool Took(soci::session& session, long long number) {
  constexpr int kLooks = 50;
  for (int i = 0; i < kLooks; ++i) {
    std::string status;
    soci::indicator known = soci::i_ok;
    session << "SELECT txid_status(:number)", soci::use(number), soci::into(status, known);
    if (known != soci::i_ok || status != "in progress") return status == "committed";
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  throw StoreAway("what was written last hangs");
}

// Each in its place behind a savepoint: one that fails takes nobody along. A soci_error may be the fault of
// one statement or of the database; only where the rest goes on is it the former.
std::exception_ptr Apply(soci::session& session, const std::function<void(soci::session&)>& what) {
  std::exception_ptr failure;
  session << "SAVEPOINT one";
  try {
    what(session);
  } catch (const soci::soci_error& error) {
    failure = AsAway(error);
  } catch (...) {
    failure = std::current_exception();
  }
  try {
    if (failure) session << "ROLLBACK TO SAVEPOINT one";
    session << "RELEASE SAVEPOINT one";
  } catch (const soci::soci_error&) {
    if (failure) std::rethrow_exception(failure);  // a disk that is full has ended the whole transaction
    throw;
  }
  return failure;
}

}  // namespace

Store::Store(const std::string& address) : address_(address), kind_(DialectOf(address)) {
  try {
    OpenWriter();
    Migrate(*writer_, kind_, ShownStore(address));
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

// The pages at the ends of the indices stay in its memory; a reader needs few.
void Store::OpenWriter() {
  writer_ = Open();
  if (kind_ == Dialect::kSqlite) *writer_ << "PRAGMA cache_size=-32768";  // KiB
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

// Those that want the same rows as another centre's in another order can't go on together; one by one they
// do.
void Store::Commit(std::vector<Waiting>& batch) {
  std::vector<std::exception_ptr> failures(batch.size());
  try {
    failures = Transact(batch.data(), batch.size());
  } catch (const Conflict&) {
    for (std::size_t i = 0; i < batch.size(); ++i) failures[i] = Alone(batch[i]);
  } catch (const std::exception& error) {
    for (std::exception_ptr& failure : failures) failure = std::make_exception_ptr(StoreAway(error.what()));
  }
  for (std::size_t i = 0; i < batch.size(); ++i) {
    if (failures[i]) {
      batch[i].done.set_exception(failures[i]);
    } else {
      batch[i].done.set_value();
    }
  }
}

std::exception_ptr Store::Alone(Waiting& one) {
  constexpr std::chrono::seconds kLongest{20};
  const auto until = std::chrono::steady_clock::now() + kLongest;
  while (std::chrono::steady_clock::now() < until) {
    try {
      return Transact(&one, 1).front();
    } catch (const Conflict&) {  // the other one has gone on
    } catch (const std::exception& error) {
      return std::make_exception_ptr(StoreAway(error.what()));
    }
  }
  return std::make_exception_ptr(StoreAway("others want the same at the same time"));
}

// A session whose transaction failed is good for the next one, unless its server is away.
void Store::TakeBack() {
  try {
    *writer_ << "ROLLBACK";
  } catch (const std::exception&) {
    writer_.reset();
  }
}

// Gives what became of each. Throws Conflict, and anything else where nothing took effect.
std::vector<std::exception_ptr> Store::Transact(const Waiting* batch, std::size_t count) {
  std::vector<std::exception_ptr> failures(count);
  long long number = 0;
  bool ending = false;
  for (bool again = false;; again = true) {
    try {
      if (writer_ == nullptr) OpenWriter();
      if (ending && number > 0 && Took(*writer_, number)) return failures;
      ending = false;
      number = Begin(*writer_, kind_, count > 1);
      for (std::size_t i = 0; i < count; ++i) failures[i] = Apply(*writer_, *batch[i].what);
      ending = true;
      *writer_ << "COMMIT";
      return failures;
    } catch (const std::exception&) {
      // The session may be that of a server that went away; a fresh one tells.
      writer_.reset();
      if (again) throw;
    } catch (const Conflict&) {
      TakeBack();
      throw;
    }
  }
}

}  // namespace reflyze::watch
