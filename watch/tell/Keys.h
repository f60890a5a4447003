// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "watch/tell/Channel.h"

namespace reflyze::watch {

// The keys of one channel in its document. Each failure names the document, the section and the key.
class Keys {
 public:
  Keys(std::string document, std::string section)
      : document_(std::move(document)), section_(std::move(section)) {}
  void Add(const std::string& key, const std::string& value);

  const std::string& Section() const { return section_; }
  std::string Text(const std::string& key, const std::string& otherwise = "");
  std::string Needed(const std::string& key);  // fails where it is missing or empty
  long Number(const std::string& key, long otherwise, long least, long most);
  bool Yes(const std::string& key, bool otherwise);  // "yes" or "no"
  std::string OneOf(const std::string& key,
                    const std::vector<std::string>& allowed);  // the first if not given
  // Fails for a key that nobody has asked for: a misspelt "password" must not go unseen.
  void Finish() const;
  [[noreturn]] void Fail(const std::string& key, const std::string& sentence) const;

 private:
  std::string document_, section_;
  std::map<std::string, std::string> values_;
  std::set<std::string> asked_;
};

std::vector<Keys> ReadSections(const std::string& document, const std::string& text);

using Patience = std::chrono::milliseconds;

std::unique_ptr<Channel> MakeCommand(Keys& keys, Patience patience);
std::unique_ptr<Channel> MakeWebhook(Keys& keys, Patience patience);
std::unique_ptr<Channel> MakeSnmp(Keys& keys, Patience patience);
std::unique_ptr<Channel> MakeMqtt(Keys& keys, Patience patience);
std::unique_ptr<Channel> MakeMail(Keys& keys, Patience patience);

}  // namespace reflyze::watch
