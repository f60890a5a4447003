// SPDX-License-Identifier: Apache-2.0
// Channels, against servers on the loopback address: what arrives, and what happens when nobody answers.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "reflyze/error.h"
#include "watch/tell/Channel.h"

namespace reflyze::watch {
namespace {

namespace fs = std::filesystem;

Message Broken() {
  Message message;
  message.delivery = 42;
  message.fibre = "north-17";
  message.title = "Grüße\r\nBcc: everybody@example.org";
  message.alarm.id = 7;
  message.alarm.severity = Severity::kCritical;
  message.alarm.km = 17.194;
  message.alarm.sentence = "fibre broken at 17.194 km";
  message.alarm.raisedAt = 1767225600000;
  return message;
}

std::unique_ptr<Channel> ChannelOf(const std::string& keys) {
  return std::move(ReadChannels("channels.ini", "[one]\npatience_s = 1\n" + keys).at(0).channel);
}

// A server for one connection, which a function serves.
class Server {
 public:
  explicit Server(std::function<void(int)> serve) {
    listening_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(listening_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(listening_, 4), 0);
    getsockname(listening_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, serve] {
      const int client = accept(listening_, nullptr, nullptr);
      if (client < 0) return;
      serve(client);
      close(client);
    });
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() {
    shutdown(listening_, SHUT_RDWR);
    thread_.join();
    close(listening_);
  }
  std::string At() const { return "127.0.0.1:" + std::to_string(port_); }
  int Port() const { return port_; }

 private:
  int listening_ = -1, port_ = 0;
  std::thread thread_;
};

std::string HearUntil(int client, const std::function<bool(const std::string&)>& enough) {
  std::string heard;
  char buffer[4096];
  while (!enough(heard)) {
    const ssize_t got = recv(client, buffer, sizeof buffer, 0);
    if (got <= 0) break;
    heard.append(buffer, static_cast<std::size_t>(got));
  }
  return heard;
}

void Say(int client, const std::string& text) { send(client, text.data(), text.size(), MSG_NOSIGNAL); }

std::string TextOfFile(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

bool Within(int seconds, const std::function<bool()>& what) {
  for (int i = 0; i < seconds * 50; ++i) {
    if (what()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

TEST(Channels, CommandGetsTheMessageAndIsNotWaitedForForEver) {
  const fs::path file = fs::temp_directory_path() / ("reflyze-told-" + std::to_string(getpid()));
  ChannelOf("kind = command\nrun = tee " + file.string())->Send(Broken());
  const auto told = nlohmann::json::parse(TextOfFile(file));
  fs::remove(file);
  EXPECT_EQ(told["delivery"], 42);
  EXPECT_EQ(told["kind"], "broken");
  EXPECT_EQ(told["km"], 17.194);
  EXPECT_EQ(told["raised_at"], "2026-01-01T00:00:00Z");
  EXPECT_THROW(ChannelOf("kind = command\nrun = false")->Send(Broken()), Error);
  EXPECT_THROW(ChannelOf("kind = command\nrun = /nowhere/at-all")->Send(Broken()), Error);
  ChannelOf("kind = command\nrun = true")->Send(Broken());  // which does not read
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_THROW(
      ReadChannels("c", "[a]\npatience_s=1\nkind=command\nrun=sleep 60").at(0).channel->Send(Broken()),
      Error);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
}

TEST(Channels, WebhookSignsAndTakesNothingElseForAYes) {
  std::string heard;
  {
    Server server([&](int client) {
      heard = HearUntil(client,
                        [](const std::string& text) { return text.find("\"what\"") != std::string::npos; });
      Say(client, "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
    });
    ChannelOf("kind = webhook\nsecret = key\nurl = http://" + server.At() + "/alarm")->Send(Broken());
  }
  EXPECT_EQ(heard.rfind("POST /alarm HTTP/1.1", 0), 0u);
  // HMAC-SHA-256 has 64 hexadecimal digits.
  const std::size_t signature = heard.find("X-Signature: sha256=");
  ASSERT_NE(signature, std::string::npos);
  EXPECT_EQ(heard.find("\r\n", signature) - signature, 20u + 64u);
  for (const char* answer :
       {"HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n",
        "HTTP/1.1 302 There\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n", ""}) {
    Server server([&](int client) {
      HearUntil(client, [](const std::string& text) { return text.find("\"what\"") != std::string::npos; });
      Say(client, answer);
    });
    EXPECT_THROW(ChannelOf("kind = webhook\nurl = http://" + server.At())->Send(Broken()), Error) << answer;
  }
  // Whoever takes the connection and says nothing, and an address where nobody is.
  Server silent([](int client) { HearUntil(client, [](const std::string&) { return false; }); });
  EXPECT_THROW(ChannelOf("kind = webhook\nurl = http://" + silent.At())->Send(Broken()), Error);
  EXPECT_THROW(ChannelOf("kind = webhook\nurl = http://127.0.0.1:1")->Send(Broken()), Error);
  EXPECT_THROW(ChannelOf("kind = webhook\nurl = file:///etc/passwd")->Send(Broken()), Error);
}

TEST(Channels, MailIsOneMessageWhateverNamesHold) {
  std::string heard;
  {
    Server server([&](int client) {
      Say(client, "220 test\r\n");
      std::string line;
      for (bool data = false; heard.find("QUIT\r\n") == std::string::npos;) {
        const std::size_t before = heard.size();
        const std::string end = data ? "\r\n.\r\n" : "\r\n";
        heard += HearUntil(client, [&](const std::string& text) {
          return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
        });
        if (heard.size() == before) return;
        const bool begins = !data && heard.substr(before).rfind("DATA", 0) == 0;
        Say(client, begins ? "354 go on\r\n" : "250 ok\r\n");
        data = begins;
      }
    });
    ChannelOf("kind = mail\nserver = smtp://" + server.At() +
              "\nfrom = a@example.org\nto = b@example.org c@example.org")
        ->Send(Broken());
  }
  EXPECT_NE(heard.find("RCPT TO:<c@example.org>"), std::string::npos) << heard;
  EXPECT_NE(heard.find("Subject: =?UTF-8?B?"), std::string::npos);
  EXPECT_EQ(heard.find("Bcc"), std::string::npos);  // it is in the text, coded
  EXPECT_THROW(ChannelOf("kind = mail\nserver = smtp://127.0.0.1:1\nfrom = a@b\nto = b@b\n")->Send(Broken()),
               Error);
}

// A program of Debian's that runs while the test does.
class Daemon {
 public:
  explicit Daemon(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    running_ =
        posix_spawn(&process_, words.front().c_str(), nullptr, nullptr, arguments.data(), environ) == 0;
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;
  ~Daemon() {
    if (!running_) return;
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }

 private:
  pid_t process_ = 0;
  bool running_ = false;
};

bool SendsWithin(int seconds, Channel& channel) {
  return Within(seconds, [&] {
    try {
      channel.Send(Broken());
      return true;
    } catch (const Error&) {
      return false;
    }
  });
}

TEST(Channels, MqttWaitsUntilTheServerHasTakenIt) {
  const std::string port = std::to_string(20000 + getpid() % 20000);
  if (!fs::exists("/usr/sbin/mosquitto")) GTEST_SKIP() << "mosquitto is not installed";
  EXPECT_THROW(
      ChannelOf("kind = mqtt\nhost = 127.0.0.1\nport = " + port + "\ntopic = alarms")->Send(Broken()), Error);
  const Daemon server({"/usr/sbin/mosquitto", "-p", port});
  const auto channel = ChannelOf("kind = mqtt\nhost = 127.0.0.1\nport = " + port + "\ntopic = alarms");
  EXPECT_TRUE(SendsWithin(10, *channel));
  // A server that speaks something else.
  Server other([](int client) { Say(client, "HTTP/1.1 400 Bad Request\r\n\r\n"); });
  EXPECT_THROW(ChannelOf("kind = mqtt\nhost = 127.0.0.1\ntopic = a\nport = " + std::to_string(other.Port()))
                   ->Send(Broken()),
               Error);
}

TEST(Channels, TrapIsAcknowledgedAndHoldsThePlace) {
  if (!fs::exists("/usr/sbin/snmptrapd")) GTEST_SKIP() << "snmptrapd is not installed";
  const fs::path folder = fs::temp_directory_path() / ("reflyze-trap-" + std::to_string(getpid()));
  fs::create_directories(folder);
  const std::string port = std::to_string(20001 + getpid() % 20000), log = (folder / "log").string();
  std::ofstream(folder / "conf") << "authCommunity log secret\ndisableAuthorization no\n";
  {
    const Daemon server({"/usr/sbin/snmptrapd", "-f", "-On", "-C", "-c", (folder / "conf").string(), "-Lf",
                         log, "-m", "", "udp:127.0.0.1:" + port});
    const auto channel = ChannelOf("kind = snmp\nhost = 127.0.0.1\ncommunity = secret\nport = " + port);
    EXPECT_TRUE(SendsWithin(10, *channel));
    EXPECT_TRUE(Within(5, [&] {
      return TextOfFile(log).find("32473.1.2.5.0 = INTEGER: 17194") != std::string::npos;
    })) << TextOfFile(log);
  }
  EXPECT_THROW(ChannelOf("kind = snmp\nhost = 127.0.0.1\nport = 1")->Send(Broken()), Error);
  fs::remove_all(folder);
}

TEST(Channels, DocumentSaysWhatIsWrong) {
  for (const char* text :
       {"kind = command", "[a]\nkind = pigeon", "[a]\nkind = command", "[a]\nrun = x", "[a]\nkind = webhook",
        "[a]\nkind = command\nrun = x\nleast = loud", "[a]\nkind = command\nrun = x\nurl = y",
        "[a]\nkind = command\nrun = x\npatience_s = soon", "[a]\nkind = snmp\nhost = h\noid = one.two",
        "[a]\nkind = mail\nserver = smtp://h\nfrom = a@b\nto = c@d>,<e@f",
        "[a]\nkind=command\nrun=x\n[a]\nkind=command", "[a]\nkind = mqtt\nhost = h\ntopic = t\nport = 99999"})
    EXPECT_THROW(ReadChannels("channels.ini", text), Error) << text;
  EXPECT_TRUE(ReadChannels("channels.ini", "# nobody\n").empty());
  EXPECT_EQ(ReadChannels("c", "[a]\nkind = command\nrun = x\nleast = major").at(0).least, Severity::kMajor);
}

}  // namespace
}  // namespace reflyze::watch
