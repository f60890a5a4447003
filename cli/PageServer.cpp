// SPDX-License-Identifier: Apache-2.0
#include "cli/PageServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "reflyze/error.h"

namespace reflyze::cli {
namespace {

constexpr std::size_t kLargestRequest = 16384;  // bytes; a browser sends less than 2,000
constexpr int kPatienceSeconds = 5;             // with one that asks and does not take the answer
constexpr int kWaiting = 32;                    // browsers open some six connections
constexpr std::size_t kMostClients = 64;        // that are waited for at a time

std::string Answer(const char* status, const std::string& type, const std::string& body, bool withBody) {
  std::string answer = std::string("HTTP/1.1 ") + status + "\r\nContent-Type: " + type +
                       "\r\nContent-Length: " + std::to_string(body.size()) +
                       "\r\nConnection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff"
                       "\r\nReferrer-Policy: no-referrer\r\n\r\n";
  if (withBody) answer += body;
  return answer;
}

std::string Refusal(const char* status) {
  return Answer(status, "text/plain", std::string(status) + "\n", true);
}

// The value of a header; "" where it is not there. Names count in any case.
std::string Header(const std::string& request, const char* name) {
  std::size_t at = request.find("\r\n");
  while (at != std::string::npos) {
    const std::size_t begin = at + 2, end = request.find("\r\n", begin);
    if (end == std::string::npos) return "";
    const std::size_t length = std::strlen(name);
    if (end - begin > length && request[begin + length] == ':' &&
        strncasecmp(request.c_str() + begin, name, length) == 0) {
      const std::size_t value = request.find_first_not_of(" \t", begin + length + 1);
      return value < end ? request.substr(value, end - value) : "";
    }
    at = end;
  }
  return "";
}

void SendAll(int client, const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t now = send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now <= 0) return;  // the browser has gone
    sent += static_cast<std::size_t>(now);
  }
}

}  // namespace

PageServer::~PageServer() {
  for (const Client& client : clients_) close(client.socket);
  if (listening_ >= 0) close(listening_);
}

int PageServer::Listen(int port) {
  listening_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  if (listening_ >= 0) setsockopt(listening_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  auto* place = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (listening_ < 0 || bind(listening_, place, size) != 0 || listen(listening_, kWaiting) != 0 ||
      getsockname(listening_, place, &size) != 0)
    throw Error(ErrorKind::kUnwritable, "",
                "can't listen on port " + std::to_string(port) + " of this machine: " + std::strerror(errno));
  port_ = ntohs(address.sin_port);
  return port_;
}

bool PageServer::Accept() {
  const int socket = accept(listening_, nullptr, nullptr);
  if (socket < 0) return errno == EINTR || errno == ECONNABORTED;
  const timeval patience = {kPatienceSeconds, 0};
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (clients_.size() >= kMostClients) {  // the one that has said nothing for longest
    close(clients_.front().socket);
    clients_.erase(clients_.begin());
  }
  clients_.push_back({socket, ""});
  return true;
}

// Takes what a client has to say, and answers once all of it is there. Says whether there is more to come.
bool PageServer::Listens(Client& client) const {
  char buffer[2048];
  const ssize_t got = recv(client.socket, buffer, sizeof buffer, 0);
  if (got <= 0) return false;
  client.head.append(buffer, static_cast<std::size_t>(got));
  if (client.head.find("\r\n\r\n") == std::string::npos) return client.head.size() < kLargestRequest;
  SendAll(client.socket, AnswerTo(client.head));
  return false;
}

void PageServer::Run() {
  for (bool listening = true; listening;) {
    std::vector<pollfd> waited = {{listening_, POLLIN, 0}};
    for (const Client& client : clients_) waited.push_back({client.socket, POLLIN, 0});
    if (poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) return;
    std::vector<Client> left;
    for (std::size_t i = 0; i < clients_.size(); ++i) {
      if (waited[i + 1].revents == 0 || Listens(clients_[i])) {
        left.push_back(std::move(clients_[i]));
      } else {
        close(clients_[i].socket);
      }
    }
    clients_ = std::move(left);
    if (waited[0].revents != 0) listening = Accept();
  }
}

void PageServer::Stop() { shutdown(listening_, SHUT_RDWR); }

std::string PageServer::AnswerTo(const std::string& request) const {
  const std::size_t first = request.find(' ');
  const std::size_t second = first == std::string::npos ? first : request.find(' ', first + 1);
  if (second == std::string::npos || second > request.find("\r\n")) return Refusal("400 Bad Request");
  const std::string method = request.substr(0, first);
  if (method != "GET" && method != "HEAD") return Refusal("405 Method Not Allowed");
  const std::string host = Header(request, "Host"), port = ":" + std::to_string(port_);
  if (host != "127.0.0.1" + port && host != "localhost" + port) return Refusal("403 Forbidden");
  std::string path = request.substr(first + 1, second - first - 1);
  path = path.substr(0, path.find('?'));
  const auto file = files_.find(path == "/" ? "/index.html" : path);
  if (file == files_.end()) return Refusal("404 Not Found");
  try {
    return Answer("200 OK", file->second.type, file->second.read(), method == "GET");
  } catch (const Error&) {
    return Refusal("404 Not Found");  // a trace that is no longer there
  }
}

}  // namespace reflyze::cli
