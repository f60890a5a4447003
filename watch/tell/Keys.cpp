// SPDX-License-Identifier: Apache-2.0
#include "watch/tell/Keys.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "reflyze/error.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kLargestDocument = 1u << 20;

std::string Trimmed(const std::string& text) {
  const auto from = text.find_first_not_of(" \t\r"), to = text.find_last_not_of(" \t\r");
  return from == std::string::npos ? "" : text.substr(from, to - from + 1);
}

}  // namespace

void Keys::Fail(const std::string& key, const std::string& sentence) const {
  throw Error(ErrorKind::kUnreadable, document_, "[" + section_ + "] " + key + ": " + sentence);
}

void Keys::Add(const std::string& key, const std::string& value) {
  // A value reaches protocols whose lines end.
  if (std::any_of(value.begin(), value.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }))
    Fail(key, "has a control character");
  if (!values_.emplace(key, value).second) Fail(key, "stands there twice");
}

std::string Keys::Text(const std::string& key, const std::string& otherwise) {
  asked_.insert(key);
  const auto found = values_.find(key);
  return found == values_.end() ? otherwise : found->second;
}

std::string Keys::Needed(const std::string& key) {
  std::string text = Text(key);
  if (text.empty()) Fail(key, "is missing");
  return text;
}

long Keys::Number(const std::string& key, long otherwise, long least, long most) {
  const std::string text = Text(key);
  if (text.empty()) return otherwise;
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || number < least || number > most)
    Fail(key, "is no number from " + std::to_string(least) + " to " + std::to_string(most));
  return number;
}

bool Keys::Yes(const std::string& key, bool otherwise) {
  return OneOf(key, otherwise ? std::vector<std::string>{"yes", "no"}
                              : std::vector<std::string>{"no", "yes"}) == "yes";
}

std::string Keys::OneOf(const std::string& key, const std::vector<std::string>& allowed) {
  std::string text = Text(key, allowed.front());
  if (std::find(allowed.begin(), allowed.end(), text) != allowed.end()) return text;
  std::string all;
  for (const std::string& one : allowed) all += (all.empty() ? "" : ", ") + one;
  Fail(key, "is none of " + all);
}

void Keys::Finish() const {
  for (const auto& value : values_) {
    if (asked_.count(value.first) == 0) Fail(value.first, "is no key of this kind of channel");
  }
}

std::vector<Keys> ReadSections(const std::string& document, const std::string& text) {
  if (text.size() > kLargestDocument) throw Error(ErrorKind::kUnreadable, document, "is larger than 1 MB");
  std::vector<Keys> sections;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    line = Trimmed(line);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    const std::string where = "line " + std::to_string(number) + " ";
    if (line.front() == '[') {
      const std::string section = line.back() == ']' ? Trimmed(line.substr(1, line.size() - 2)) : "";
      if (section.empty()) throw Error(ErrorKind::kUnreadable, document, where + "is no [channel]");
      for (const Keys& other : sections) {
        if (other.Section() == section)
          throw Error(ErrorKind::kUnreadable, document, "[" + section + "] stands there twice");
      }
      sections.emplace_back(document, section);
      continue;
    }
    const auto equals = line.find('=');
    if (sections.empty() || equals == std::string::npos || equals == 0)
      throw Error(ErrorKind::kUnreadable, document, where + "is no key of a channel");
    sections.back().Add(Trimmed(line.substr(0, equals)), Trimmed(line.substr(equals + 1)));
  }
  return sections;
}

std::vector<NamedChannel> ReadChannels(const std::string& name, const std::string& text) {
  std::vector<NamedChannel> channels;
  for (Keys& keys : ReadSections(name, text)) {
    NamedChannel channel;
    channel.name = keys.Section();
    channel.least = SeverityOf(keys.OneOf("least", {"warning", "minor", "major", "critical"}))
                        .value_or(Severity::kWarning);
    const Patience patience(1000 * keys.Number("patience_s", 10, 1, 600));
    const std::string kind = keys.Needed("kind");
    if (kind == "command") {
      channel.channel = MakeCommand(keys, patience);
    } else if (kind == "webhook") {
      channel.channel = MakeWebhook(keys, patience);
    } else if (kind == "snmp") {
      channel.channel = MakeSnmp(keys, patience);
    } else if (kind == "mqtt") {
      channel.channel = MakeMqtt(keys, patience);
    } else if (kind == "mail") {
      channel.channel = MakeMail(keys, patience);
    } else {
      keys.Fail("kind", "is none of command, webhook, snmp, mqtt, mail");
    }
    keys.Finish();
    channels.push_back(std::move(channel));
  }
  return channels;
}

}  // namespace reflyze::watch
