// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Relay.h"

#include <nlohmann/json.hpp>

#include "watch/store/JsonLine.h"
#include "watch/store/Store.h"

namespace reflyze::watch {
namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kLookToSay{200}, kAway{1000};

}  // namespace

void Relay::Start() {
  thread_ = std::thread([this] { Run(); });
}

void Relay::Stop() {
  wake_.Stop();
  if (thread_.joinable()) thread_.join();
}

void Relay::Run() {
  bool again = false;
  do {
    try {
      Wire wire(address_);
      if (again) bus_.Publish("missed", "", "{}", true);
      after_ = bus_.Last();
      while (!wake_.Stopping()) Carry(wire);
    } catch (const std::exception&) {  // the server is away
      again = true;
    }
  } while (wake_.Wait(wake_.Rung(), kAway));
}

void Relay::Carry(Wire& wire) {
  const std::vector<News> news = bus_.After(after_, kLookToSay);
  if (!news.empty()) after_ = news.back().number;
  Say(wire, news);
  for (const std::string& text : wire.Hear()) Hear(text);
}

// As many together as one message takes: each costs the server a transaction.
void Relay::Say(Wire& wire, const std::vector<News>& news) {
  std::string together;
  for (const News& one : news) {
    if (one.fromOthers) continue;
    std::string text = JsonLine(json::array({one.kind, one.fibre, one.json}));
    if (text.size() + 2 > Wire::kMostBytes) text = R"(["missed","","{}"])";
    if (together.size() + text.size() + 2 > Wire::kMostBytes) {
      wire.Say("[" + together + "]");
      together.clear();
    }
    together += (together.empty() ? "" : ",") + text;
  }
  if (!together.empty()) wire.Say("[" + together + "]");
}

void Relay::Hear(const std::string& text) {
  const json all = json::parse(text, nullptr, false);
  if (!all.is_array()) return;
  for (const json& one : all) {
    if (!one.is_array() || one.size() != 3 || !one[0].is_string() || !one[1].is_string() ||
        !one[2].is_string())
      continue;
    bus_.Publish(one[0].get<std::string>(), one[1].get<std::string>(), one[2].get<std::string>(), true);
  }
}

}  // namespace reflyze::watch
