// SPDX-License-Identifier: Apache-2.0

// Channels against the other side: Debian's servers where they are installed, and sinks that answer wrongly,
// late or never.

#include <gtest/gtest.h>
#include <mosquitto.h>
#include <sodium.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "reflyze/error.h"
#include "tests/watch/Sink.h"
#include "watch/tell/Channel.h"
#include "watch/tell/Words.h"

namespace reflyze::watch {
namespace {

using namespace std::chrono_literals;

const std::string kEvil =
    "Evil\r\nBcc: all@example.org\r\n\r\nX \"; touch /tmp/x; $(id) \xff\xc0\x80 \xe2\x80\xa8 M\xc3\xbcnchen";

Message Example() {
  Message message;
  message.delivery = 7;
  message.alarm.id = 42;
  message.alarm.severity = Severity::kCritical;
  message.alarm.km = 17.194;
  message.alarm.sdKm = 0.0015;
  message.alarm.sentence = "broken at 17.194 km";
  message.alarm.raisedAt = 1772452800250;
  message.fibre = "fibre-1";
  message.title = "Munich - Augsburg";
  return message;
}

// Searched for where root's PATH has it, too.
std::string Installed(const std::string& program) {
  for (const char* folder : {"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"}) {
    if (std::filesystem::exists(folder + program)) return folder + program;
  }
  return "";
}

#define NEEDS(path, program)                                                                  \
  const std::string path = Installed(program);                                                \
  if (path.empty() && std::getenv("CI") != nullptr) FAIL() << program << " is not installed"; \
  if (path.empty()) GTEST_SKIP() << program << " is not installed: this channel is not tested"

class ChannelTest : public testing::Test {
 protected:
  ChannelTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "reflyze-tell-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
  }
  ~ChannelTest() override { std::filesystem::remove_all(folder_); }

  static std::unique_ptr<Channel> Made(const std::string& keys) {
    auto channels = ReadChannels("channels.ini", "[it]\n" + keys + "\npatience_s = 1\n");
    return std::move(channels.at(0).channel);
  }
  // What Send fails with, in time; empty where it does not.
  static std::string Failure(const std::string& keys, const Message& message = Example()) {
    const auto channel = Made(keys);
    const auto start = std::chrono::steady_clock::now();
    std::string failure;
    try {
      channel->Send(message);
    } catch (const Error& error) {
      failure = error.what();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms) << keys;
    return failure;
  }
  std::filesystem::path Write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
    return folder_ / name;
  }

  std::filesystem::path folder_;
};

#define EXPECT_SAYS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

TEST_F(ChannelTest, DocumentsAreTakenWholeOrRefusedWithSectionAndKey) {
  const auto channels =
      ReadChannels("c.ini",
                   "; all\n[ops]\nkind = command\nrun = /bin/true\nleast=major\n\n[hook]\r\n"
                   "kind=webhook\r\nurl = https://example.org/a=b\r\n");
  ASSERT_EQ(channels.size(), 2u);
  EXPECT_EQ(channels[0].name, "ops");
  EXPECT_EQ(channels[0].least, Severity::kMajor);
  EXPECT_EQ(channels[1].least, Severity::kWarning);
  EXPECT_TRUE(ReadChannels("c.ini", "").empty());

  const struct {
    const char *text, *says;
  } kBad[] = {
      {"kind = mail", "line 1"},
      {"[a]\nkind = pigeon", "[a] kind"},
      {"[a]\n", "[a] kind: is missing"},
      {"[a]\nkind=command\nrun=x\n[a]\nkind=command\nrun=x", "twice"},
      {"[a]\nkind=command\nrun=x\nrun=y", "[a] run: stands there twice"},
      {"[a]\nkind=command\nrun=\"x", "[a] run"},
      {"[a]\nkind=command\nrun=x\npasword=y", "[a] pasword: is no key"},
      {"[a]\nkind=command\nrun=x\npatience_s=0", "[a] patience_s"},
      {"[a]\nkind=command\nrun=x\nleast=urgent", "[a] least"},
      {"[a]\nkind=webhook\nurl=file:///etc/passwd", "[a] url"},
      {"[a]\nkind=snmp\nhost=h\ncommunity=c\noid=1.3.x", "[a] oid"},
      {"[a]\nkind=snmp\nhost=h", "[a] community"},
      {"[a]\nkind=snmp\nhost=h\nuser=u\nauth_password=short", "[a] auth_password"},
      {"[a]\nkind=mqtt\nhost=h\ntopic=a/#", "[a] topic"},
      {"[a]\nkind=mqtt\nhost=h\nport=65536", "[a] port"},
      {"[a]\nkind=mail\nserver=s\nfrom=a@b\nto=c@d, e", "[a] to"},
      {"[a]\nkind=mail\nserver=s\nfrom=a@b>\nto=c@d", "[a] from"},
      {"[a]\nkind=mail\nserver=http://s\nfrom=a@b\nto=c@d", "[a] server"},
  };
  for (const auto& one : kBad) {
    try {
      ReadChannels("c.ini", one.text);
      ADD_FAILURE() << one.text;
    } catch (const Error& error) {
      EXPECT_EQ(error.kind(), ErrorKind::kUnreadable);
      EXPECT_EQ(error.file(), "c.ini");
      EXPECT_SAYS(std::string(error.what()), one.says);
    }
  }
}

TEST_F(ChannelTest, TextsOfFibresAreHarmlessInJson) {
  Message message = Example();
  message.title = kEvil;
  message.alarm.sentence = std::string(1 << 20, 'x');
  message.alarm.value = std::numeric_limits<double>::infinity();
  const auto json = nlohmann::json::parse(JsonOf(message));
  EXPECT_EQ(json["title"].get<std::string>().find_first_of("\r\n"), std::string::npos);
  EXPECT_SAYS(json["title"].get<std::string>(), "??? ");
  EXPECT_SAYS(json["title"].get<std::string>(), "M\xc3\xbcnchen");
  EXPECT_LT(json["sentence"].get<std::string>().size(), 5000u);
  EXPECT_TRUE(json["value"].is_null());
  EXPECT_EQ(json["raised_at"], "2026-03-02T12:00:00.250Z");
  EXPECT_TRUE(json["cleared_at"].is_null());
  EXPECT_EQ(OneLine("a\xc3\xbc", 2), "a");  // no half letters
}

TEST_F(ChannelTest, CommandGetsTheMessageAndItsArgumentsAsTheyStand) {
  const auto script = Write("it.sh", "#!/bin/sh\ncat > \"$1\"\nprintf '%s|' \"$@\" > \"$1.args\"\n");
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  const std::string out = (folder_ / "out").string();
  EXPECT_EQ(Failure("kind=command\nrun=" + script.string() + " " + out + " \"a b\" $(id);"), "");
  EXPECT_EQ(nlohmann::json::parse(ContentOf(out))["alarm"], 42);
  EXPECT_EQ(ContentOf(out + ".args"), out + "|a b|$(id);|");

  EXPECT_SAYS(Failure("kind=command\nrun=/bin/sh -c \"echo no paper >&2; exit 3\""),
              "ended with 3: no paper");
  EXPECT_SAYS(Failure("kind=command\nrun=/nowhere/to/be/found"), "can't be started");
  EXPECT_EQ(Failure("kind=command\nrun=/bin/true"), "");  // which reads nothing
  EXPECT_SAYS(Failure("kind=command\nrun=/bin/sh -c \"yes >&2\""), "more than 1 s");
}

TEST_F(ChannelTest, CommandThatHangsIsEndedWithAllThatItHasStarted) {
  const std::string pid = (folder_ / "pid").string();
  EXPECT_SAYS(Failure("kind=command\nrun=/bin/sh -c \"sleep 61 & echo $! > " + pid + "; wait\""),
              "more than 1 s");
  const auto child = static_cast<pid_t>(std::stol(ContentOf(pid)));
  // Gone, or dead and not yet fetched by its new parent.
  EXPECT_TRUE(Within(2s, [&] {
    const std::string status = ContentOf("/proc/" + std::to_string(child) + "/stat");
    return status.empty() || status.find(") Z ") != std::string::npos;
  }));
}

std::string HmacByHand(const std::string& body, std::string key) {
  key.resize(64, '\0');
  std::string inner, outer;
  for (const char c : key) {
    inner += static_cast<char>(c ^ 0x36);
    outer += static_cast<char>(c ^ 0x5c);
  }
  const auto hash = [](const std::string& text) {
    std::string digest(crypto_hash_sha256_BYTES, '\0');
    crypto_hash_sha256(reinterpret_cast<unsigned char*>(digest.data()),
                       reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return digest;
  };
  std::string hex;
  for (const char c : hash(outer + hash(inner + body))) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(c));
    hex += two;
  }
  return hex;
}

TEST_F(ChannelTest, WebhookIsSignedAndTakenByTwoHundredAlone) {
  std::string head, body, answer = "200 OK";
  Sink elsewhere([](Sink::Talk& talk) { talk.Say("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"); });
  Sink sink([&](Sink::Talk& talk) {
    head = talk.Hear("\r\n\r\n");
    const auto at = head.find("Content-Length: ");
    body = talk.HearBytes(at == std::string::npos ? 0 : std::stoul(head.substr(at + 16)));
    talk.Say("HTTP/1.1 " + answer +
             "\r\nContent-Length: 0\r\nConnection: close\r\nLocation: http://127.0.0.1:" +
             std::to_string(elsewhere.Port()) + "/\r\n\r\n");
  });
  const std::string keys =
      "kind=webhook\nsecret=open sesame\nurl=http://127.0.0.1:" + std::to_string(sink.Port()) + "/a";
  Message message = Example();
  message.title = kEvil;
  EXPECT_EQ(Failure(keys, message), "");
  answer = "302 Found";
  const std::string first = body, firstHead = head;
  EXPECT_SAYS(Failure(keys), "answers 302");
  answer = "503 Busy";
  EXPECT_SAYS(Failure(keys), "answers 503");
  sink.Stop();
  EXPECT_EQ(elsewhere.Visits(), 0);
  EXPECT_EQ(first, JsonOf(message));
  EXPECT_EQ(firstHead.rfind("POST /a HTTP/1.1\r\n", 0), 0u);
  EXPECT_SAYS(firstHead, "X-Signature: sha256=" + HmacByHand(first, "open sesame") + "\r\n");
  EXPECT_SAYS(firstHead, "X-Delivery: 7\r\n");
  EXPECT_EQ(firstHead.find("Bcc"), std::string::npos);
}

TEST_F(ChannelTest, ServersThatAreDeadSilentOrEndlessEndInTime) {
  const std::string dead = std::to_string(FreePort());
  Sink silent([](Sink::Talk& talk) { talk.Hear("\x01never"); });
  Sink endless([](Sink::Talk& talk) {
    talk.Say("HTTP/1.1 200 OK\r\n\r\n");
    for (; talk.Going(); std::this_thread::sleep_for(1ms)) talk.Say(std::string(1000, 'x'));
  });
  for (const std::string& port : {dead, std::to_string(silent.Port()), std::to_string(endless.Port())}) {
    EXPECT_NE(Failure("kind=webhook\nurl=http://127.0.0.1:" + port), "") << port;
    EXPECT_NE(Failure("kind=mail\nfrom=a@example.org\nto=b@example.org\nserver=127.0.0.1:" + port), "")
        << port;
    EXPECT_NE(Failure("kind=mqtt\nhost=127.0.0.1\nport=" + port), "") << port;
  }
  EXPECT_NE(Failure("kind=snmp\nhost=127.0.0.1\ncommunity=public\nport=" + dead), "");
  EXPECT_NE(Failure("kind=snmp\nhost=127.0.0.1\nuser=ann\nauth_password=12345678\nport=" + dead), "");
}

TEST_F(ChannelTest, WebhookTrustsNoCertificateThatNobodyHasSigned) {
  NEEDS(openssl, "openssl");
  const std::string key = (folder_ / "key").string(), certificate = (folder_ / "crt").string();
  ASSERT_EQ(
      std::system(
          (openssl +
           " req -x509 -newkey rsa:2048 -nodes -subj /CN=localhost -addext subjectAltName=DNS:localhost "
           "-keyout " +
           key + " -out " + certificate + " 2>/dev/null")
              .c_str()),
      0);
  const std::string port = std::to_string(FreePort());
  const Daemon server(
      {openssl, "s_server", "-quiet", "-accept", "127.0.0.1:" + port, "-key", key, "-cert", certificate});
  const std::string keys = "kind=webhook\nurl=https://localhost:" + port;
  ASSERT_TRUE(Within(5s, [&] { return Failure(keys).find("connect") == std::string::npos; }));
  EXPECT_SAYS(Failure(keys), "certificate");
  EXPECT_EQ(Failure(keys + "\nca=" + certificate).find("certificate"),
            std::string::npos);  // it only never answers
}

// A mail server that takes one mail.
struct MailSink {
  std::string heard, recipients = "250 ok";
  Sink sink{[this](Sink::Talk& talk) {
    talk.Say("220 here\r\n");
    while (talk.Going()) {
      const std::string line = talk.Hear("\r\n");
      if (line.empty()) return;
      heard += line;
      if (line.rfind("EHLO", 0) == 0) {
        talk.Say("250-here\r\n250 AUTH PLAIN\r\n");
      } else if (line.rfind("RCPT", 0) == 0) {
        talk.Say(recipients + "\r\n");
      } else if (line == "DATA\r\n") {
        talk.Say("354 go\r\n");
        heard += talk.Hear("\r\n.\r\n");
        talk.Say("250 taken\r\n");
      } else {
        talk.Say("250 ok\r\n");
      }
    }
  }};
  std::string Keys() const {
    return "kind=mail\nfrom=centre@example.org\nto=ann@example.org, bob@example.org\nserver=127.0.0.1:" +
           std::to_string(sink.Port());
  }
};

std::string Decoded(const std::string& base64) {
  std::string bytes(base64.size(), '\0');
  std::size_t size = 0;
  EXPECT_EQ(sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), base64.data(),
                              base64.size(), "\r\n", &size, nullptr, sodium_base64_VARIANT_ORIGINAL),
            0);
  return bytes.substr(0, size);
}

TEST_F(ChannelTest, MailHasNoHeaderButItsOwn) {
  MailSink server;
  Message message = Example();
  message.title = kEvil;
  message.alarm.sentence = std::string(200000, 'x') + "\r\n.\r\nMAIL FROM:<a@b>";
  EXPECT_EQ(Failure(server.Keys(), message), "");
  server.sink.Stop();
  const std::string heard = server.heard;
  EXPECT_SAYS(heard, "RCPT TO:<ann@example.org>\r\nRCPT TO:<bob@example.org>\r\nDATA\r\n");
  const auto from = heard.find("DATA\r\n") + 6, to = heard.find("\r\n\r\n", from);
  std::string words;
  std::istringstream lines(heard.substr(from, to - from));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 77u) << line;
    EXPECT_NE(line.rfind("Bcc", 0), 0u);
    const auto word = line.find("=?UTF-8?B?");
    if (word != std::string::npos)
      words += Decoded(line.substr(word + 10, line.find("?=", word + 10) - word - 10));
  }
  EXPECT_EQ(words, SubjectOf(message));
  EXPECT_SAYS(words, "M\xc3\xbcnchen at 17.194 km");
  EXPECT_EQ(Decoded(heard.substr(to + 4, heard.find("\r\n.\r\n", to) - to - 4)), BodyOf(message));
  EXPECT_EQ(heard.find("MAIL FROM:<a@b>"), std::string::npos);
}

TEST_F(ChannelTest, MailIsNotTakenWithoutItsRecipientsAndNoPasswordGoesInTheOpen) {
  MailSink server;
  server.recipients = "550 unknown";
  EXPECT_SAYS(Failure(server.Keys()), "550");
  server.recipients = "250 ok";
  EXPECT_NE(Failure(server.Keys() + "\nuser=ann\npassword=secret"), "");
  server.sink.Stop();
  EXPECT_EQ(server.heard.find("AUTH"), std::string::npos);
}

TEST_F(ChannelTest, MqttIsTakenWhenTheBrokerHasIt) {
  NEEDS(broker, "mosquitto");
  NEEDS(hash, "mosquitto_passwd");
  const std::string port = std::to_string(FreePort()), users = Write("users", "").string();
  ASSERT_EQ(std::system((hash + " -b " + users + " ann 'open sesame' 2>/dev/null").c_str()), 0);
  const std::string settings =
      Write("conf", "listener " + port + " 127.0.0.1\nallow_anonymous false\npassword_file " + users +
                        "\nuser root\npersistence false\nlog_dest none\n");
  const Daemon server({broker, "-c", settings});
  const std::string keys = "kind=mqtt\nhost=127.0.0.1\ntopic=net/alarms\nport=" + port;
  ASSERT_TRUE(Within(5s, [&] { return Failure(keys + "\nuser=ann\npassword=open sesame").empty(); }));
  EXPECT_SAYS(Failure(keys + "\nuser=ann\npassword=wrong"), "not authorised");

  std::string came;
  std::atomic<bool> listens{false};
  std::thread listener([&] {
    mosquitto* client = mosquitto_new(nullptr, true, &came);
    mosquitto_username_pw_set(client, "ann", "open sesame");
    mosquitto_user_data_set(client, &came);
    mosquitto_message_callback_set(client, [](mosquitto*, void* into, const mosquitto_message* message) {
      static_cast<std::string*>(into)->assign(static_cast<const char*>(message->payload),
                                              static_cast<std::size_t>(message->payloadlen));
    });
    mosquitto_connect(client, "127.0.0.1", std::stoi(port), 60);
    mosquitto_subscribe(client, nullptr, "net/#", 1);
    const auto until = std::chrono::steady_clock::now() + 10s;
    for (int turns = 0; came.empty() && std::chrono::steady_clock::now() < until; ++turns) {
      mosquitto_loop(client, 20, 1);
      if (turns == 10) listens = true;
    }
    mosquitto_destroy(client);
  });
  Within(5s, [&] { return listens.load(); });
  Message message = Example();
  message.alarm.sentence = std::string(1 << 20, 'y');
  EXPECT_EQ(Failure(keys + "\nuser=ann\npassword=open sesame", message), "");
  listener.join();
  EXPECT_EQ(came, JsonOf(message));
}

TEST_F(ChannelTest, SnmpIsAcknowledgedInBothVersions) {
  NEEDS(trapd, "snmptrapd");
  const std::string log = (folder_ / "log").string(), port = std::to_string(FreePort(SOCK_DGRAM));
  const std::string settings =
      Write("conf",
            "authCommunity log open\ncreateUser -e 0x8000000001020304 unused SHA 12345678\n"
            "createUser ann SHA-256 sesame-a AES sesame-p\nauthUser log ann authpriv\n");
  ::setenv("SNMP_PERSISTENT_DIR", folder_.c_str(), 1);  // of the server
  const Daemon server(
      {trapd, "-f", "-C", "-c", settings, "-On", "-Lf", log, "-m", "", "udp:127.0.0.1:" + port});
  const std::string keys = "kind=snmp\nhost=127.0.0.1\nport=" + port + "\n";
  ASSERT_TRUE(Within(5s, [&] { return Failure(keys + "community=open").empty(); }));
  Message message = Example();
  message.title = kEvil;
  message.alarm.sentence = std::string(1 << 20, 'z');
  message.what = Telling::kCleared;
  EXPECT_EQ(
      Failure(keys + "oid=1.3.6.1.4.1.32473.5\nuser=ann\nauth_password=sesame-a\nprivacy_password=sesame-p",
              message),
      "");
  EXPECT_EQ(Failure(keys + "community=open\nacknowledged=no\noid=1.3.6.1.4.1.32473.6", message), "");
  EXPECT_TRUE(Within(5s, [&] { return ContentOf(log).find("32473.6.0.3") != std::string::npos; }));
  const std::string text = ContentOf(log);
  EXPECT_SAYS(text, ".1.3.6.1.4.1.32473.0.1");
  EXPECT_SAYS(text, ".1.3.6.1.4.1.32473.5.0.3");
  EXPECT_SAYS(text, ".1.3.6.1.4.1.32473.1.5 = STRING: \"fibre-1\"");
  EXPECT_SAYS(text, ".1.3.6.1.4.1.32473.5.1.12 = STRING: \"" + std::string(200, 'z') + "\"");
  EXPECT_NE(Failure(keys + "user=ann\nauth_password=not-this\nprivacy_password=sesame-p"), "");
  EXPECT_NE(Failure(keys + "user=bob\nauth_password=sesame-a"), "");
}

}  // namespace
}  // namespace reflyze::watch
