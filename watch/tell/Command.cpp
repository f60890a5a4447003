// SPDX-License-Identifier: Apache-2.0

// A program of the user's that is told of each alarm: the message on its standard input as JSON, and taken
// when it ends with 0. No shell stands between, so that no name of a fibre is ever a command.

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "reflyze/error.h"
#include "watch/tell/Keys.h"
#include "watch/tell/Words.h"

extern char** environ;

namespace reflyze::watch {
namespace {

constexpr std::size_t kMostSaid = 500;  // bytes that are kept of its complaints
constexpr int kLookMs = 20;

// A program and its arguments, between blanks; "..." keeps blanks together.
std::vector<std::string> WordsOf(Keys& keys) {
  const std::string text = keys.Needed("run");
  std::vector<std::string> words;
  bool quoted = false, open = false;
  for (const char c : text) {
    if (c == '"') {
      quoted = !quoted;
      if (!open) words.emplace_back();
      open = true;
    } else if (c == ' ' && !quoted) {
      open = false;
    } else {
      if (!open) words.emplace_back();
      open = true;
      words.back() += c;
    }
  }
  if (quoted) keys.Fail("run", "has a quote that nothing ends");
  if (words.empty() || words.front().empty()) keys.Fail("run", "names no program");
  return words;
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }
  void Close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }
  int Number() const { return number_; }

 private:
  int number_;
};

// What the program reads: a file in memory, so that one which doesn't read can't hold us up.
int InputOf(const std::string& text) {
  const int file = ::memfd_create("alarm", MFD_CLOEXEC);
  if (file < 0) return -1;
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t wrote = ::write(file, text.data() + done, text.size() - done);
    if (wrote <= 0) break;
    done += static_cast<std::size_t>(wrote);
  }
  ::lseek(file, 0, SEEK_SET);
  return file;
}

class CommandChannel : public Channel {
 public:
  CommandChannel(std::string name, std::vector<std::string> words, Patience patience)
      : name_(std::move(name)), words_(std::move(words)), patience_(patience) {}

  void Send(const Message& message) override {
    const Descriptor input(InputOf(JsonOf(message) + "\n"));
    int pipe[2] = {-1, -1};
    if (input.Number() < 0 || ::pipe2(pipe, O_CLOEXEC) != 0)
      throw Error(ErrorKind::kUnwritable, name_,
                  "no file for the message: " + std::string(std::strerror(errno)));
    const Descriptor said(pipe[0]);
    ::fcntl(pipe[0], F_SETFL, O_NONBLOCK);  // our end alone
    Descriptor saying(pipe[1]);
    const pid_t child = Spawn(input.Number(), saying.Number());
    saying.Close();
    Watch(child, said.Number());
  }

 private:
  // In a process group of its own, with none of our files and the signals as they are at first.
  pid_t Spawn(int input, int complaints) const {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files, complaints, 2);
    posix_spawn_file_actions_addclosefrom_np(&files, 3);
    posix_spawnattr_t how;
    posix_spawnattr_init(&how);
    posix_spawnattr_setflags(&how, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&how, 0);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&how, &none);
    posix_spawnattr_setsigdefault(&how, &all);
    std::vector<char*> arguments;
    for (const std::string& word : words_) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child = -1;
    const int failed = ::posix_spawnp(&child, arguments[0], &files, &how, arguments.data(), environ);
    posix_spawnattr_destroy(&how);
    posix_spawn_file_actions_destroy(&files);
    if (failed != 0)
      throw Error(ErrorKind::kUnwritable, name_,
                  words_.front() + " can't be started: " + std::strerror(failed));
    return child;
  }

  void Watch(pid_t child, int complaints) const {
    const auto until = std::chrono::steady_clock::now() + patience_;
    std::string said;
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() >= until) {
        ::kill(-child, SIGKILL);
        ::waitpid(child, &status, 0);
        throw Error(ErrorKind::kUnwritable, name_,
                    words_.front() + " took more than " + std::to_string(patience_.count() / 1000) + " s");
      }
      pollfd look = {complaints, POLLIN, 0};
      ::poll(&look, 1, kLookMs);
      // At the end of what it says there is nothing to wait for but the program itself.
      if ((look.revents & POLLIN) == 0 && look.revents != 0) ::poll(nullptr, 0, kLookMs);
      Hear(complaints, said);
    }
    Hear(complaints, said);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
    const std::string how = WIFEXITED(status) ? "ended with " + std::to_string(WEXITSTATUS(status))
                                              : "ended by signal " + std::to_string(WTERMSIG(status));
    throw Error(ErrorKind::kUnwritable, name_,
                words_.front() + " " + how + (said.empty() ? "" : ": " + OneLine(said, kMostSaid)));
  }

  static void Hear(int complaints, std::string& said) {
    std::array<char, 4096> bytes;
    // Not without end: a program that shouts without pause has to be killed in time.
    for (int i = 0; i < 16; ++i) {
      const ssize_t got = ::read(complaints, bytes.data(), bytes.size());
      if (got <= 0) return;
      if (said.size() < kMostSaid) said.append(bytes.data(), static_cast<std::size_t>(got));
    }
  }

  std::string name_;
  std::vector<std::string> words_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeCommand(Keys& keys, Patience patience) {
  return std::make_unique<CommandChannel>(keys.Section(), WordsOf(keys), patience);
}

}  // namespace reflyze::watch
