// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sodium.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "reflyze/files.h"
#include "reflyze/watch.h"
#include "watch/desk/Clock.h"
#include "watch/desk/Keeper.h"
#include "watch/desk/Relay.h"
#include "watch/desk/Teller.h"
#include "watch/http/Address.h"
#include "watch/http/Server.h"
#include "watch/spool/Spool.h"
#include "watch/store/People.h"
#include "watch/store/ServerAddress.h"

namespace reflyze {

using namespace watch;

namespace {

constexpr std::size_t kLargestChannels = 1u << 20;  // bytes
constexpr std::size_t kLeastPassword = 8;           // letters

void NeedSodium() {
  if (sodium_init() < 0) throw Error(ErrorKind::kUsage, "", "this machine gives no random numbers");
}

// A file is one centre's. Whoever comes second would take the first for dead.
class StoreLock {
 public:
  explicit StoreLock(const std::string& store) {
    ExpectStore(store);
    if (IsServer(store)) return;
    const std::string name = store + ".lock";
    descriptor_ = open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor_ < 0) throw Error(ErrorKind::kUnwritable, name, std::strerror(errno));
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      close(descriptor_);
      throw Error(ErrorKind::kUnwritable, store,
                  "another centre has this store; several share one on PostgreSQL");
    }
  }
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;
  ~StoreLock() {
    if (descriptor_ >= 0) close(descriptor_);
  }

 private:
  int descriptor_ = -1;
};

std::vector<NamedChannel> ChannelsOf(const std::string& file) {
  if (file.empty()) return {};
  const std::vector<char> bytes = ReadFile(file, kLargestChannels);
  return ReadChannels(file, std::string(bytes.begin(), bytes.end()));
}

Listeners ListenersOf(const std::vector<NamedChannel>& channels) {
  Listeners listeners;
  for (const NamedChannel& one : channels) listeners[one.name] = one.least;
  return listeners;
}

std::string NewName() {
  unsigned char bytes[8];
  randombytes_buf(bytes, sizeof bytes);
  char text[2 * sizeof bytes + 1];
  return "centre-" + std::string(sodium_bin2hex(text, sizeof text, bytes, sizeof bytes));
}

class CentreOfParts : public Centre {
 public:
  explicit CentreOfParts(const CentreOptions& options)
      : options_(options),
        lock_(options.store),
        store_(options.store),
        channels_(ChannelsOf(options.channels)),
        shop_{store_,
              bus_,
              work_,
              mail_,
              ListenersOf(channels_),
              options.name.empty() ? NewName() : options.name,
              PageAddress(options.address)},
        intake_(store_, work_, shop_.name, options.learn),
        workers_(shop_, intake_.Recent()),
        keeper_(shop_, options.keepDays),
        teller_(shop_, std::move(channels_)) {
    store_.Write([&](soci::session& session) {
      // Behind the lock of a file nobody else lives.
      if (!IsServer(options_.store)) session << "DELETE FROM centres";
      StayAlive(session, store_.Kind(), shop_.name, Now());
    });
    if (IsServer(options_.store)) relay_ = std::make_unique<Relay>(bus_, options_.store);
    if (options_.port >= 0) server_ = std::make_unique<Server>(options_, Served{shop_, intake_, workers_});
    if (!options_.spool.empty()) spool_ = std::make_unique<Spool>(options_.spool, intake_);
  }
  ~CentreOfParts() override { StopAll(); }

  void Start() override {
    if (server_) port_ = server_->Start();
    workers_.Start(options_.jobs > 0 ? options_.jobs : std::max(1u, std::thread::hardware_concurrency()));
    keeper_.Start();
    teller_.Start();
    if (relay_) relay_->Start();
    if (spool_) spool_->Start();
    running_ = true;
  }

  void Stop() override { StopAll(); }
  int Port() const override { return port_; }

 private:
  // In the order of the road: nothing comes in any more, then what is there is finished.
  void StopAll() {
    if (spool_) spool_->Stop();
    if (relay_) relay_->Stop();
    bus_.Close();
    if (server_) server_->Stop();
    workers_.Stop();
    keeper_.Stop();
    teller_.Stop();
    if (!running_) return;
    running_ = false;
    try {
      store_.Write([&](soci::session& session) { Leave(session, shop_.name); });
    } catch (const std::exception&) {  // the lease ends by itself
    }
  }

  CentreOptions options_;
  StoreLock lock_;
  Store store_;
  Bus bus_;
  Wake work_, mail_;
  std::vector<NamedChannel> channels_;
  Shop shop_;
  Intake intake_;
  Workers workers_;
  Keeper keeper_;
  Teller teller_;
  std::unique_ptr<Relay> relay_;
  std::unique_ptr<Server> server_;
  std::unique_ptr<Spool> spool_;
  int port_ = 0;
  bool running_ = false;
};

}  // namespace

std::unique_ptr<Centre> OpenCentre(const CentreOptions& options) {
  NeedSodium();
  return std::make_unique<CentreOfParts>(options);
}

std::vector<std::string> CheckCentre(const CentreOptions& options) {
  std::vector<std::string> wrong;
  const auto look = [&](const auto& what) {
    try {
      what();
    } catch (const std::exception& error) {
      wrong.emplace_back(error.what());
    }
  };
  look([&] {
    ExpectStore(options.store);
    const int version = access(options.store.c_str(), F_OK) == 0 || IsServer(options.store)
                            ? Store::VersionOf(options.store)
                            : 0;
    if (version > Store::NewestVersion())
      throw Error(ErrorKind::kUnreadable, ShownStore(options.store),
                  "is of a newer version than this program");
  });
  look([&] { ChannelsOf(options.channels); });
  look([&] { PageAddress(options.address); });
  look([&] { TilesOrigin(options.tiles); });
  look([&] {
    if (!options.spool.empty() && access(options.spool.c_str(), R_OK | W_OK | X_OK) != 0)
      throw Error(ErrorKind::kUnwritable, options.spool, std::strerror(errno));
  });
  for (const std::string& file : {options.certificate, options.key}) {
    if (!file.empty()) look([&] { ReadFile(file); });
  }
  return wrong;
}

void SetCentreUser(const std::string& address, const CentreUser& user) {
  NeedSodium();
  if (user.role != "reader" && user.role != "operator" && user.role != "administrator")
    throw Error(ErrorKind::kUsage, "", "\"" + user.role + "\" is no role: reader, operator or administrator");
  if (user.name.empty()) throw Error(ErrorKind::kUsage, "", "a user has a name");
  if (user.password.size() < kLeastPassword)
    throw Error(ErrorKind::kUsage, "", "a password has eight letters at least");
  User kept;
  kept.name = user.name;
  kept.role = user.role;
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str(hash, user.password.data(), user.password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
    throw Error(ErrorKind::kUsage, "", "no memory to hash a password with");
  kept.hash = hash;
  Store store(address);
  store.Write([&](soci::session& session) {
    PutUser(session, kept);
    Note(session, {0, Now(), "shell", "user", kept.name + ": " + kept.role});
  });
}

}  // namespace reflyze
