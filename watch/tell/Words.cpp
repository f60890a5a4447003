// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "watch/tell/Kinds.h"

namespace reflyze::watch {
namespace {

// ISO 8601; empty for 0.
std::string TimeOf(Millis at) {
  if (at <= 0) return "";
  const auto seconds = static_cast<std::time_t>(at / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

std::string Kilometres(const Alarm& alarm) {
  if (alarm.km < 0.0) return "";
  char text[64];
  std::snprintf(text, sizeof text, " at %.3f km", alarm.km);
  return text;
}

std::string WhoOf(const Message& message) {
  return message.fibre.empty() ? "instrument " + message.alarm.instrument : message.fibre;
}

}  // namespace

std::string JsonOf(const Message& message) {
  const Alarm& alarm = message.alarm;
  const nlohmann::json value = {{"delivery", message.delivery},
                                {"what", NameOf(message.what)},
                                {"alarm", alarm.id},
                                {"kind", NameOf(alarm.kind)},
                                {"severity", NameOf(alarm.severity)},
                                {"fibre", message.fibre},
                                {"instrument", alarm.instrument},
                                {"title", message.title},
                                {"km", alarm.km < 0.0 ? nlohmann::json(nullptr) : nlohmann::json(alarm.km)},
                                {"sd_km", alarm.sdKm},
                                {"value", alarm.value},
                                {"limit", alarm.limit},
                                {"sentence", alarm.sentence},
                                {"place", message.place},
                                {"raised_at", TimeOf(alarm.raisedAt)},
                                {"confirmed_at", TimeOf(alarm.confirmedAt)},
                                {"cleared_at", TimeOf(alarm.clearedAt)},
                                {"link", message.link}};
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string SubjectOf(const Message& message) {
  return std::string(NameOf(message.alarm.severity)) + ": " + WhoOf(message) + ": " +
         NameOf(message.alarm.kind) + Kilometres(message.alarm) +
         (message.what == Telling::kConfirmed ? "" : std::string(", ") + NameOf(message.what));
}

std::string TextOf(const Message& message) {
  std::string text = SubjectOf(message) + "\n\n" + message.alarm.sentence + "\n";
  if (!message.title.empty()) text += "\nFibre: " + message.title;
  if (!message.place.empty()) text += "\nPlace: " + message.place;
  text += "\nRaised: " + TimeOf(message.alarm.raisedAt);
  if (message.alarm.clearedAt > 0) text += "\nCleared: " + TimeOf(message.alarm.clearedAt);
  if (!message.link.empty()) text += "\n" + message.link;
  return text + "\n";
}

}  // namespace reflyze::watch
