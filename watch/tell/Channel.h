// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "watch/store/Values.h"

namespace reflyze::watch {

// What a channel has to say.
struct Message {
  Id delivery = 0;  // the same at each try, so that a receiver can tell a repeated message
  Telling what = Telling::kConfirmed;
  Alarm alarm;
  std::string fibre;  // name
  std::string title;  // of the fibre
  std::string place;  // on earth, in words; empty where it is not known
  std::string link;   // to the page; empty for none
};

// The message as JSON, which webhook, MQTT and command get: keys "delivery", "what", "alarm", "kind",
// "severity", "fibre", "title", "instrument", "km", "sd_km", "value", "limit", "sentence", "place",
// "raised_at", "confirmed_at", "cleared_at" (ISO 8601, UTC), "link". What is not known is null. Texts are
// UTF-8 of one line and bounded, whatever they were.
std::string JsonOf(const Message& message);

// One way to tell people. Send returns when the other side has taken the message, and throws Error with the
// reason when it has not. It never takes longer than its patience (10 s unless told).
class Channel {
 public:
  virtual ~Channel() = default;
  virtual void Send(const Message& message) = 0;
};

struct NamedChannel {
  std::string name;
  Severity least = Severity::kWarning;  // alarms below it are not told here
  std::unique_ptr<Channel> channel;
};

// The channels of a document (INI). Each section is a channel by its name, with "kind", "least" = warning,
// minor, major, critical, "patience_s" = 10, and keys of its kind:
//   command  run = program and arguments, parted by blanks or quoted ("a b"); JSON on its standard input
//   webhook  url; secret: HMAC-SHA-256 of the body, as X-Signature: sha256=HEX; ca
//   snmp     host, port, oid; community (2c), or user, auth, auth_password, privacy, privacy_password (3);
//            acknowledged = yes for informs, no for traps (2c alone)
//   mqtt     host, port, topic, user, password; tls, ca
//   mail     server = [smtp:// or smtps://]host:port, from, to = a, b; user, password; tls = yes, try, no; ca
// Throws Error kUnreadable with section and key, also for keys that are none.
std::vector<NamedChannel> ReadChannels(const std::string& name, const std::string& text);

}  // namespace reflyze::watch
