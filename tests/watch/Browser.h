// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

namespace reflyze::watch {

// An answer as it came over the wire.
struct Heard {
  int status = 0;
  std::string head, body;
  nlohmann::json Json() const { return nlohmann::json::parse(body, nullptr, false); }
  // The value of a header, given with its capitals; empty where there is none.
  std::string Header(const std::string& name) const {
    const std::size_t at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
  }
};

// One connection, which says anything, also what no browser would.
class Line {
 public:
  explicit Line(int port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const timeval patience = {10, 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() { close(socket_); }

  // False when the other side takes no more.
  bool Say(const std::string& text) const {
    for (std::size_t said = 0; said < text.size();) {
      const ssize_t now = send(socket_, text.data() + said, text.size() - said, MSG_NOSIGNAL);
      if (now <= 0) return false;
      said += static_cast<std::size_t>(now);
    }
    return true;
  }
  // Adds to `text` until it holds `what`; to the end for "".
  void HearUntil(const std::string& what, std::string& text) const {
    char buffer[65536];
    while (what.empty() || text.find(what) == std::string::npos) {
      const ssize_t got = recv(socket_, buffer, sizeof buffer, 0);
      if (got <= 0) return;
      text.append(buffer, static_cast<std::size_t>(got));
    }
  }
  Heard Hear() const {
    std::string text;
    HearUntil("", text);
    Heard heard;
    const std::size_t end = text.find("\r\n\r\n");
    if (end == std::string::npos) return heard;
    heard.head = text.substr(0, end + 2);
    heard.body = text.substr(end + 4);
    heard.status = std::atoi(heard.head.c_str() + heard.head.find(' '));
    return heard;
  }

 private:
  int socket_;
};

// Asks a centre as a program does. `headers` are whole lines, each with its end.
inline Heard Ask(int port, const std::string& method, const std::string& path, const std::string& body = "",
                 const std::string& headers = "X-Requested-With: test\r\n") {
  const Line line(port);
  line.Say(method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body);
  return line.Hear();
}

}  // namespace reflyze::watch
