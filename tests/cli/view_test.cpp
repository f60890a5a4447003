// SPDX-License-Identifier: Apache-2.0

// The server of the page: what it gives to whom. That a browser shows the page it serves is asked by
// scripts/check-web.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "cli/PageServer.h"
#include "reflyze/error.h"
#include "tests/cli/program.h"

namespace {

using reflyze::cli::PageServer;

int Connect(int port) {
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  EXPECT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return client;
}

std::string Ask(int port, const std::string& request) {
  const int client = Connect(port);
  send(client, request.data(), request.size(), MSG_NOSIGNAL);
  std::string answer;
  char buffer[4096];
  for (ssize_t got; (got = recv(client, buffer, sizeof buffer, 0)) > 0;)
    answer.append(buffer, static_cast<size_t>(got));
  close(client);
  return answer;
}

TEST(PageServer, GivesItsFilesToThisMachineAndNothingElse) {
  PageServer server({{"/index.html", {"text/html", [] { return std::string("page"); }}},
                     {"/gone", {"text/plain", []() -> std::string {
                                  throw reflyze::Error(reflyze::ErrorKind::kUnreadable, "", "gone");
                                }}}});
  const int port = server.Listen(0);
  std::thread running([&] { server.Run(); });
  const int silent = Connect(port);  // as browsers do, long before they ask
  const std::string own = "127.0.0.1:" + std::to_string(port);
  const auto get = [&](const std::string& line, const std::string& host) {
    return Ask(port, line + " HTTP/1.1\r\nAccept: */*\r\nhost: " + host + "\r\n\r\n");
  };
  const struct {
    const char* line;
    std::string host;
    const char *begin, *end;
  } kCases[] = {
      {"GET /", own, "HTTP/1.1 200 ", "\r\n\r\npage"},
      {"GET /index.html?a=b", "localhost:" + std::to_string(port), "HTTP/1.1 200 ", "\r\n\r\npage"},
      {"HEAD /", own, "HTTP/1.1 200 ", "\r\n\r\n"},
      {"GET /", "elsewhere.example:" + std::to_string(port), "HTTP/1.1 403 ", ""},
      {"GET /", "", "HTTP/1.1 403 ", ""},
      {"GET /../../etc/passwd", own, "HTTP/1.1 404 ", ""},
      {"GET /gone", own, "HTTP/1.1 404 ", ""},
      {"POST /", own, "HTTP/1.1 405 ", ""},
      {"nonsense", own, "HTTP/1.1 400 ", ""},
  };
  for (const auto& one : kCases) {
    const std::string answer = get(one.line, one.host), end = one.end;
    EXPECT_EQ(answer.rfind(one.begin, 0), 0u) << one.line << "\n" << answer;
    ASSERT_GE(answer.size(), end.size());
    EXPECT_EQ(answer.substr(answer.size() - end.size()), end) << one.line;
  }
  EXPECT_EQ(Ask(port, std::string(1 << 16, 'x')), "") << "a request without an end";
  PageServer other({});
  EXPECT_THROW(other.Listen(port), reflyze::Error);
  server.Stop();
  running.join();
  close(silent);
}

class ViewTest : public ProgramTest {};

TEST_F(ViewTest, RefusesBeforeItServes) {
  EXPECT_EQ(Run({"view", "--port", "70000"}).status, 2);
  EXPECT_EQ(Run({"view", "--port", "near"}).status, 2);
}

}  // namespace
