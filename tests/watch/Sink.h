// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// The other side of channels, on the loopback address.

namespace reflyze::watch {

inline int Bound(int type, int port = 0) {
  const int number = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (::bind(number, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return -1;
  return number;
}

inline int PortOf(int number) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getsockname(number, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

// A port that nobody listens on.
inline int FreePort(int type = SOCK_STREAM) {
  const int number = Bound(type);
  const int port = PortOf(number);
  ::close(number);
  return port;
}

// Listens, and does with each connection what it is told.
class Sink {
 public:
  class Talk {
   public:
    Talk(Sink& sink, int number) : sink_(sink), number_(number) {}
    void Say(const std::string& text) { ::send(number_, text.data(), text.size(), MSG_NOSIGNAL); }
    // Until a text has come, or the other side ends, or the sink does.
    std::string Hear(const std::string& until) {
      while (heard_.find(until) == std::string::npos) {
        if (!More()) break;
      }
      const auto end = heard_.find(until);
      const std::string part = heard_.substr(0, end == std::string::npos ? end : end + until.size());
      heard_.erase(0, part.size());
      return part;
    }
    std::string HearBytes(std::size_t count) {
      while (heard_.size() < count && More()) {
      }
      return std::exchange(heard_, "").substr(0, count);
    }
    bool Going() const { return !sink_.stop_; }

   private:
    bool More() {
      char bytes[4096];
      while (!sink_.stop_) {
        pollfd look = {number_, POLLIN, 0};
        if (::poll(&look, 1, 50) <= 0) continue;
        const ssize_t got = ::recv(number_, bytes, sizeof bytes, 0);
        if (got <= 0) return false;
        heard_.append(bytes, static_cast<std::size_t>(got));
        return true;
      }
      return false;
    }
    Sink& sink_;
    int number_;
    std::string heard_;
  };

  explicit Sink(std::function<void(Talk&)> with) : with_(std::move(with)), number_(Bound(SOCK_STREAM)) {
    ::listen(number_, 8);
    thread_ = std::thread([this] {
      while (!stop_) {
        pollfd look = {number_, POLLIN, 0};
        if (::poll(&look, 1, 50) <= 0) continue;
        const int one = ::accept(number_, nullptr, nullptr);
        ++visits_;
        Talk talk(*this, one);
        with_(talk);
        ::close(one);
      }
    });
  }
  ~Sink() {
    Stop();
    ::close(number_);
  }
  void Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }
  int Port() const { return PortOf(number_); }
  int Visits() const { return visits_; }

 private:
  std::function<void(Talk&)> with_;
  int number_;
  std::atomic<bool> stop_{false};
  std::atomic<int> visits_{0};
  std::thread thread_;
};

// A program beside the test, ended with it.
class Daemon {
 public:
  explicit Daemon(const std::vector<std::string>& words) {
    child_ = ::fork();
    if (child_ != 0) return;
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ~Daemon() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }

 private:
  pid_t child_;
};

inline bool Within(std::chrono::milliseconds time, const std::function<bool()>& what) {
  const auto until = std::chrono::steady_clock::now() + time;
  while (!what()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

inline std::string ContentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

}  // namespace reflyze::watch
