// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "watch/tell/Channel.h"

namespace reflyze::watch {

using Patience = std::chrono::milliseconds;

// A program that gets the message as JSON on its standard input, without a shell between. It has taken the
// message when it ends with 0.
struct CommandWords {
  std::vector<std::string> run;  // the program and its arguments
};
std::unique_ptr<Channel> MakeCommand(const CommandWords& words, Patience patience);

// A POST of the message as JSON. It is taken when the answer is 2xx.
struct WebhookWords {
  std::string url;     // http or https; certificates are checked
  std::string secret;  // for X-Signature: sha256=HMAC of the body in hexadecimal; empty for none
};
std::unique_ptr<Channel> MakeWebhook(const WebhookWords& words, Patience patience);

// An SNMP inform (v2c): it asks to be acknowledged, and is taken when it is.
struct TrapWords {
  std::string host, port = "162", community = "public";
  std::string oid = "1.3.6.1.4.1.32473.1";  // that the trap and its variables stand below (RFC 5612)
};
std::unique_ptr<Channel> MakeTrap(const TrapWords& words, Patience patience);

// A publication with acknowledgement (quality of service 1).
struct MqttWords {
  std::string host, topic, user, password, ca;
  int port = 1883;
};
std::unique_ptr<Channel> MakeMqtt(const MqttWords& words, Patience patience);

struct MailWords {
  std::string server;  // smtp://HOST:PORT or smtps://
  std::string from, user, password;
  std::vector<std::string> to;
};
std::unique_ptr<Channel> MakeMail(const MailWords& words, Patience patience);

// A subject in one line: kind, fibre, place.
std::string SubjectOf(const Message& message);
// The message for people, some lines.
std::string TextOf(const Message& message);

}  // namespace reflyze::watch
