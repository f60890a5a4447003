// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "reflyze/error.h"
#include "watch/tell/Kinds.h"

namespace reflyze::watch {
namespace {

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r"), end = text.find_last_not_of(" \t\r");
  return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// One section of the document; what nobody has asked for in the end is a slip of the pen.
class Section {
 public:
  Section(std::string file, std::string name) : file_(std::move(file)), name_(std::move(name)) {}
  const std::string& Name() const { return name_; }

  void Put(const std::string& key, const std::string& value) {
    if (!values_.emplace(key, value).second) Refuse(key, "stands there twice");
  }
  std::string Get(const std::string& key, const std::string& other = "") {
    asked_.insert(key);
    const auto found = values_.find(key);
    return found == values_.end() ? other : found->second;
  }
  std::string Need(const std::string& key) {
    const std::string value = Get(key);
    if (value.empty()) Refuse(key, "is missing");
    return value;
  }
  long Number(const std::string& key, long other, long least, long most) {
    const std::string text = Get(key);
    if (text.empty()) return other;
    if (text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos ||
        std::stol(text) < least || std::stol(text) > most)
      Refuse(key, "is no number from " + std::to_string(least) + " to " + std::to_string(most));
    return std::stol(text);
  }
  void LookForSlips() const {
    for (const auto& [key, value] : values_) {
      if (asked_.count(key) == 0) Refuse(key, "is no key of this kind of channel");
    }
  }
  [[noreturn]] void Refuse(const std::string& key, const std::string& why) const {
    throw Error(ErrorKind::kUnreadable, file_, "[" + name_ + "] " + key + " " + why);
  }

 private:
  std::string file_, name_;
  std::map<std::string, std::string> values_;
  std::set<std::string> asked_;
};

std::vector<Section> SectionsOf(const std::string& file, const std::string& text) {
  std::vector<Section> sections;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    line = Trimmed(line);
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line.front() == '[' && line.back() == ']') {
      const std::string name = Trimmed(line.substr(1, line.size() - 2));
      for (const Section& one : sections) {
        if (one.Name() == name) one.Refuse("", "stands there twice");
      }
      sections.emplace_back(file, name);
      continue;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos || sections.empty())
      throw Error(ErrorKind::kUnreadable, file,
                  "line " + std::to_string(number) + " is neither [channel] nor key = value");
    sections.back().Put(Trimmed(line.substr(0, equals)), Trimmed(line.substr(equals + 1)));
  }
  return sections;
}

// An address stands in a header of its own; nothing else fits in.
std::string Address(Section& section, const std::string& key, const std::string& text) {
  if (text.find_first_of("<>\r\n,; \t") != std::string::npos || text.find('@') == std::string::npos)
    section.Refuse(key, "is no address of a mailbox: \"" + text + "\"");
  return text;
}

std::unique_ptr<Channel> MakeMailOf(Section& section, Patience patience) {
  MailWords words;
  words.server = section.Need("server");
  words.from = Address(section, "from", section.Need("from"));
  for (const std::string& one : WordsOf(section.Need("to"))) words.to.push_back(Address(section, "to", one));
  words.user = section.Get("user");
  words.password = section.Get("password");
  return MakeMail(words, patience);
}

std::unique_ptr<Channel> MakeOf(Section& section, const std::string& kind, Patience patience) {
  constexpr long kLastPort = 65535;
  if (kind == "command") return MakeCommand({WordsOf(section.Need("run"))}, patience);
  if (kind == "webhook") {
    const std::string url = section.Need("url");
    return MakeWebhook({url, section.Get("secret")}, patience);
  }
  if (kind == "snmp") {
    TrapWords words;
    words.host = section.Need("host");
    words.port = std::to_string(section.Number("port", 162, 1, kLastPort));
    words.community = section.Get("community", words.community);
    words.oid = section.Get("oid", words.oid);
    return MakeTrap(words, patience);
  }
  if (kind == "mqtt") {
    MqttWords words;
    words.host = section.Need("host");
    words.topic = section.Need("topic");
    words.port = static_cast<int>(section.Number("port", words.port, 1, kLastPort));
    words.user = section.Get("user");
    words.password = section.Get("password");
    words.ca = section.Get("ca");
    return MakeMqtt(words, patience);
  }
  if (kind == "mail") return MakeMailOf(section, patience);
  section.Refuse("kind", "is none of command, webhook, snmp, mqtt, mail");
}

}  // namespace

std::vector<NamedChannel> ReadChannels(const std::string& name, const std::string& text) {
  std::vector<NamedChannel> channels;
  for (Section& section : SectionsOf(name, text)) {
    NamedChannel channel;
    channel.name = section.Name();
    const auto least = SeverityOf(section.Get("least", "warning"));
    if (!least) section.Refuse("least", "is none of warning, minor, major, critical");
    channel.least = *least;
    const Patience patience = std::chrono::seconds(section.Number("patience_s", 10, 1, 600));
    channel.channel = MakeOf(section, section.Need("kind"), patience);
    section.LookForSlips();
    channels.push_back(std::move(channel));
  }
  return channels;
}

}  // namespace reflyze::watch
