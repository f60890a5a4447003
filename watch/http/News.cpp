// SPDX-License-Identifier: Apache-2.0
#include "watch/http/News.h"

#include <algorithm>

#include "watch/desk/Clock.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"
#include "watch/store/JsonLine.h"

namespace reflyze::watch {
namespace {

constexpr Millis kLongestStream = 15LL * 60 * 1000;
constexpr Millis kHeartbeat = 10000;  // what lies between drops silent connections after half a minute or so
constexpr std::chrono::milliseconds kLookForNews(500);

}  // namespace

NewsStream::NewsStream(Bus& bus, const std::string& run, const std::string& lastSeen,
                       const std::atomic<bool>& stopping)
    : bus_(bus), run_(run), stopping_(stopping), after_(bus.Last()), until_(SteadyNow() + kLongestStream) {
  waiting_ = "retry: 2000\n\n";
  if (lastSeen.empty()) return;
  bool missed = true;
  const std::size_t line = lastSeen.find('-');
  const auto number =
      line == std::string::npos ? std::nullopt : WholeNumberIn(lastSeen.substr(line + 1), 0, after_);
  if (number && lastSeen.substr(0, line) == run_) {
    const std::vector<News> since = bus_.After(*number, std::chrono::milliseconds(0));
    missed = *number < after_ && (since.empty() || since.front().number > *number + 1);
    if (!missed) after_ = *number;
  }
  if (missed) waiting_ += "id: " + run_ + "-" + std::to_string(after_) + "\nevent: missed\ndata: {}\n\n";
}

void NewsStream::Add(const News& one) {
  Json data = Parsed(one.json, Json::object());
  if (data.is_object()) data["fibre"] = one.fibre;
  waiting_ += "id: " + run_ + "-" + std::to_string(one.number) + "\nevent: " + one.kind +
              "\ndata: " + JsonLine(data) + "\n\n";
  after_ = one.number;
}

bool NewsStream::Fill() {
  const Millis begun = SteadyNow();
  while (waiting_.empty()) {
    if (stopping_ || SteadyNow() >= until_) return false;
    const std::vector<News> found = bus_.After(after_, kLookForNews);
    if (!found.empty() && found.front().number > after_ + 1)
      waiting_ += "event: missed\ndata: {}\n\n";  // more came than is kept
    for (const News& one : found) Add(one);
    if (waiting_.empty() && SteadyNow() - begun >= kHeartbeat) waiting_ = ": still here\n\n";
  }
  return true;
}

std::size_t NewsStream::Read(char* letters, std::size_t most) {
  if (waiting_.empty() && !Fill()) return 0;
  const std::size_t size = std::min(most, waiting_.size());
  std::copy_n(waiting_.begin(), size, letters);
  waiting_.erase(0, size);
  return size;
}

}  // namespace reflyze::watch
