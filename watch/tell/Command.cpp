// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "reflyze/error.h"
#include "watch/tell/Kinds.h"

namespace reflyze::watch {
namespace {

using Clock = std::chrono::steady_clock;
constexpr Patience kLook{20};

[[noreturn]] void Refuse(const std::string& program, const std::string& why) {
  throw Error(ErrorKind::kUnwritable, program, why);
}

// A program that runs, in a group of its own. Whoever gives up on it ends the whole group.
class Running {
 public:
  Running(const std::vector<std::string>& words, int input) : name_(words.front()) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
      posix_spawn_file_actions_addopen(&files, stream, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t how;
    posix_spawnattr_init(&how);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&how, &none);
    posix_spawnattr_setpgroup(&how, 0);
    posix_spawnattr_setflags(&how, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    const int failed = posix_spawnp(&process_, name_.c_str(), &files, &how, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&how);
    if (failed != 0) Refuse(name_, std::string("can't be run: ") + std::strerror(failed));
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() {
    if (process_ <= 0) return;
    kill(-process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  void WaitUntil(Clock::time_point until) {
    int status = 0;
    while (true) {
      const pid_t ended = waitpid(process_, &status, WNOHANG);
      if (ended == process_) break;
      if (ended < 0 && errno != EINTR) Refuse(name_, std::strerror(errno));
      if (Clock::now() >= until) Refuse(name_, "did not end in time");
      std::this_thread::sleep_for(kLook);
    }
    process_ = 0;
    if (WIFSIGNALED(status)) Refuse(name_, "was ended by signal " + std::to_string(WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0) Refuse(name_, "ended with " + std::to_string(WEXITSTATUS(status)));
  }

 private:
  std::string name_;
  pid_t process_ = 0;
};

// Both ends of a way for bytes; a program that does not read is no reason to end.
struct Way {
  int ends[2] = {-1, -1};
  Way() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) Refuse("", std::strerror(errno));
  }
  Way(const Way&) = delete;
  Way& operator=(const Way&) = delete;
  ~Way() {
    Close(0);
    Close(1);
  }
  void Close(int end) {
    if (ends[end] >= 0) close(ends[end]);
    ends[end] = -1;
  }
};

void WriteUntil(int socket, const std::string& text, Clock::time_point until) {
  for (std::size_t sent = 0; sent < text.size() && Clock::now() < until;) {
    pollfd waited = {socket, POLLOUT, 0};
    poll(&waited, 1, static_cast<int>(kLook.count()));
    const ssize_t now = send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (now < 0 && errno != EAGAIN && errno != EINTR) return;  // it does not want all of it
    if (now > 0) sent += static_cast<std::size_t>(now);
  }
}

class CommandChannel : public Channel {
 public:
  CommandChannel(CommandWords words, Patience patience) : words_(std::move(words)), patience_(patience) {}
  void Send(const Message& message) override {
    const Clock::time_point until = Clock::now() + patience_;
    Way way;
    Running program(words_.run, way.ends[0]);
    way.Close(0);
    WriteUntil(way.ends[1], JsonOf(message) + "\n", until);
    way.Close(1);
    program.WaitUntil(until);
  }

 private:
  CommandWords words_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeCommand(const CommandWords& words, Patience patience) {
  return std::make_unique<CommandChannel>(words, patience);
}

}  // namespace reflyze::watch
