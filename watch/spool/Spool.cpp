// SPDX-License-Identifier: Apache-2.0
#include "watch/spool/Spool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "reflyze/files.h"

namespace reflyze::watch {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRefused = ".refused";
constexpr int kSweepMillis = 15000;        // what a full disk or a store that was away has left
constexpr std::chrono::seconds kQuiet{2};  // a file that nobody announced is complete when it rests so long
constexpr std::chrono::seconds kLongQuiet{30};  // where the system does not say who writes it
constexpr int kUnsettledMillis = 500;           // where something lies that may be complete soon
constexpr int kAwayMillis = 1000;               // until a store that was away is asked again
constexpr std::size_t kFoldersAtOnce = 32;      // between two looks at what is announced
constexpr std::size_t kLanes = 8;               // files that are taken at a time

bool EndsWith(const std::string& text, const std::string& ending) {
  return text.size() > ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

bool Counts(const std::string& name) {
  return !name.empty() && name[0] != '.' && !EndsWith(name, ".part") && !EndsWith(name, ".tmp");
}

enum class Written { kYes, kNo, kUnknown };

// Whether somebody writes a file at the moment: a lease for reading is refused then. Unknown where leases are
// none, or the file is another user's.
Written IsWritten(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return Written::kUnknown;
  fcntl(file, F_SETSIG, SIGURG);  // whoever opens it right now costs a signal, which means nothing here
  const int refused = fcntl(file, F_SETLEASE, F_RDLCK) == 0 ? 0 : errno;
  close(file);  // ends the lease
  return refused == 0 ? Written::kNo : refused == EAGAIN ? Written::kYes : Written::kUnknown;
}

}  // namespace

Spool::Spool(const std::string& folder, Intake& intake) : folder_(folder), intake_(intake) {
  std::error_code failed;
  fs::create_directories(fs::path(folder) / kRefused, failed);
  notify_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (failed || notify_ < 0 || pipe2(stop_, O_CLOEXEC) != 0 ||
      inotify_add_watch(notify_, folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR) < 0)
    throw Error(ErrorKind::kUnwritable, folder, std::string("can't be watched: ") + std::strerror(errno));
}

Spool::~Spool() {
  Stop();
  for (const int descriptor : {notify_, stop_[0], stop_[1]}) {
    if (descriptor >= 0) close(descriptor);
  }
}

void Spool::Start() {
  thread_ = std::thread([this] { Run(); });
}

void Spool::Stop() {
  if (!thread_.joinable()) return;
  [[maybe_unused]] const ssize_t written = write(stop_[1], "x", 1);
  thread_.join();
}

void Spool::Run() {
  pollfd stopped = {stop_[0], POLLIN, 0};
  do {
    try {
      if (missed_ || away_ || std::chrono::steady_clock::now() >= nextSweep_) {
        Sweep();
      } else {
        const std::map<std::string, std::set<std::string>> unsettled = unsettled_;
        for (const auto& [fibre, announced] : unsettled) SweepFolder(fibre);
      }
      Listen();
    } catch (const std::exception&) {  // a folder that can't be read now, or no memory: the next sweep sees
      poll(&stopped, 1, kAwayMillis);
    }
  } while (poll(&stopped, 1, 0) == 0);
}

// Takes what is announced until it is time to sweep again.
void Spool::Listen() {
  const auto begun = std::chrono::steady_clock::now();
  while (!missed_) {
    const bool quiet = !away_ && unsettled_.empty();
    const auto until =
        quiet ? nextSweep_ : begun + std::chrono::milliseconds(away_ ? kAwayMillis : kUnsettledMillis);
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    if (left.count() <= 0) return;
    pollfd waited[] = {{stop_[0], POLLIN, 0}, {notify_, POLLIN, 0}};
    poll(waited, 2, static_cast<int>(left.count()));
    if (waited[0].revents != 0) return;
    if (waited[1].revents != 0) Hear();
  }
}

void Spool::WatchFolder(const std::string& fibre) {
  const std::string folder = (fs::path(folder_) / fibre).string();
  const int watch =
      inotify_add_watch(notify_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR | IN_DONT_FOLLOW);
  if (watch >= 0) fibres_[watch] = fibre;
}

// New folders, and what lay here before anybody listened. Where nothing can have been missed, what is
// announced meanwhile does not wait for ten thousand folders.
void Spool::Sweep() {
  const bool hears = swept_ && !missed_ && !away_;
  missed_ = away_ = false;
  std::error_code failed;
  std::size_t looked = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder_, failed)) {
    const std::string name = entry.path().filename().string();
    if (!Counts(name) || !entry.is_directory(failed) || entry.is_symlink(failed)) continue;
    WatchFolder(name);
    if (!away_) SweepFolder(name);
    pollfd heard = {notify_, POLLIN, 0};
    if (hears && ++looked % kFoldersAtOnce == 0 && poll(&heard, 1, 0) > 0) Hear();
  }
  swept_ = true;
  nextSweep_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(kSweepMillis);
}

// In the order in which they were written: alarms live by it. The first file that may not be complete lets
// all behind it wait for the next time, but for one that somebody writes slowly: it is announced in the end.
void Spool::SweepFolder(const std::string& fibre) {
  std::error_code failed;
  std::vector<std::pair<fs::file_time_type, std::string>> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(folder_) / fibre, failed)) {
    const std::string name = entry.path().filename().string();
    if (Counts(name)) files.emplace_back(fs::last_write_time(entry.path(), failed), name);
  }
  std::sort(files.begin(), files.end());
  std::set<std::string> announced;
  std::swap(announced, unsettled_[fibre]);
  const auto now = fs::file_time_type::clock::now();
  for (const auto& [written, name] : files) {
    const auto age = now > written ? now - written : written - now;
    const bool heard = announced.count(name) > 0;
    const Written open = heard ? Written::kNo : IsWritten((fs::path(folder_) / fibre / name).string());
    if (open == Written::kYes && age >= kQuiet) continue;
    const bool complete = heard || age >= (open == Written::kNo ? kQuiet : kLongQuiet);
    if (!complete || !TakeFile(fibre, name)) {
      unsettled_[fibre] = announced;
      return;
    }
  }
  unsettled_.erase(fibre);
}

void Spool::Hear() {
  alignas(inotify_event) char buffer[65536];
  const ssize_t got = read(notify_, buffer, sizeof buffer);
  std::vector<std::pair<std::string, std::string>> files;
  for (ssize_t at = 0; at < got;) {
    const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
    at += static_cast<ssize_t>(sizeof *event + event->len);
    const std::string name = event->len > 0 ? event->name : "";
    const auto fibre = fibres_.find(event->wd);
    if ((event->mask & IN_Q_OVERFLOW) != 0) {
      missed_ = true;
    } else if ((event->mask & IN_IGNORED) != 0) {
      fibres_.erase(event->wd);
    } else if (fibre != fibres_.end()) {
      if (!Counts(name)) continue;
      if (!away_ && unsettled_.count(fibre->second) == 0) {
        files.emplace_back(fibre->second, name);
      } else {
        unsettled_[fibre->second].insert(name);  // behind what lies there already
      }
    } else if (Counts(name)) {
      WatchFolder(name);  // what was put into it before the watch stood is found by the next sweep
      SweepFolder(name);
    }
  }
  TakeAll(files);
}

// Side by side, so that a disk is asked once for several: it is slow to say that it has written. The files of
// one fibre stay in their order.
void Spool::TakeAll(const std::vector<std::pair<std::string, std::string>>& files) {
  const std::size_t lanes = std::min(kLanes, files.size());
  std::vector<std::thread> threads;
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    threads.emplace_back([&, lane] {
      for (const auto& [fibre, name] : files) {
        if (std::hash<std::string>()(fibre) % lanes == lane && !TakeFile(fibre, name)) return;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  if (!away_) return;
  for (const auto& [fibre, name] : files) unsettled_[fibre].insert(name);
}

// False where the store is away, so that the file stays for later.
bool Spool::TakeFile(const std::string& fibre, const std::string& name) {
  const fs::path path = fs::path(folder_) / fibre / name;
  std::error_code failed;
  if (!fs::is_regular_file(fs::symlink_status(path, failed))) return true;  // a link leads out of the spool
  try {
    intake_.Take(fibre, ReadFile(path.string(), kLargestTrace));
    fs::remove(path, failed);
  } catch (const StoreAway&) {
    away_ = true;
  } catch (const std::bad_alloc&) {
    away_ = true;
  } catch (const std::exception& error) {
    if (fs::exists(path, failed)) Refuse(fibre, name, error.what());
  }
  if (away_) return false;
  return true;
}

void Spool::Refuse(const std::string& fibre, const std::string& name, const std::string& why) {
  ++refused_;
  const fs::path place = fs::path(folder_) / kRefused / (fibre + "__" + name);
  std::error_code failed;
  fs::rename(fs::path(folder_) / fibre / name, place, failed);
  try {
    SaveTogether({{place.string() + ".txt", why + "\n"}});
  } catch (const Error&) {  // the reason is lost, and the file is out of the way all the same
  }
}

}  // namespace reflyze::watch
