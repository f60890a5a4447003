// SPDX-License-Identifier: Apache-2.0
#include "watch/tell/Words.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace reflyze::watch {
namespace {

using OrderedJson = nlohmann::ordered_json;

// Bytes of the letter of UTF-8 that begins at `at` (RFC 3629): 0 for none.
std::size_t LetterAt(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xC2 && first < 0xE0   ? 2
                             : (first & 0xF0) == 0xE0        ? 3
                             : first >= 0xF0 && first < 0xF5 ? 4
                                                             : 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // Too long for their number, surrogates, and what is behind the last letter.
  if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
      (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F))
    return 0;
  return length;
}

// C0, delete, and C1 with the line ends of Unicode: mail and terminals may take them for line ends.
bool IsControl(const std::string& text, std::size_t at, std::size_t length) {
  const auto first = static_cast<unsigned char>(text[at]);
  if (length == 1) return first < 0x20 || first == 0x7F;
  if (length == 2) return first == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0;
  return length == 3 &&
         (text.compare(at, 3, "\xE2\x80\xA8") == 0 || text.compare(at, 3, "\xE2\x80\xA9") == 0);
}

std::string Number(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

const char* UnitOf(AlarmKind kind) {
  switch (kind) {
    case AlarmKind::kLoss:
    case AlarmKind::kReflectance:
    case AlarmKind::kNewEvent:
      return "dB";
    case AlarmKind::kAttenuation:
      return "dB/km";
    case AlarmKind::kTrend:
      return "dB a month";
    default:
      return nullptr;  // says itself what it is
  }
}

}  // namespace

std::string OneLine(const std::string& text, std::size_t mostBytes) {
  std::string line;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = LetterAt(text, at);
    if (line.size() + (length == 0 ? 1 : length) > mostBytes) break;
    if (length == 0) {
      line += '?';
    } else if (IsControl(text, at, length)) {
      line += ' ';
    } else {
      line.append(text, at, length);
    }
    at += length == 0 ? 1 : length;
  }
  return line;
}

std::string IsoTime(Millis time) {
  if (time <= 0) return "";
  const std::time_t seconds = static_cast<std::time_t>(time / 1000);
  std::tm utc{};
  if (gmtime_r(&seconds, &utc) == nullptr) return "";
  char text[48], whole[64];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(whole, sizeof whole, "%s.%03dZ", text, static_cast<int>(time % 1000));
  return whole;
}

std::string JsonOf(const Message& message) {
  const Alarm& alarm = message.alarm;
  const auto time = [](Millis at) { return at > 0 ? OrderedJson(IsoTime(at)) : OrderedJson(nullptr); };
  const auto number = [](double value) {
    return std::isfinite(value) ? OrderedJson(value) : OrderedJson(nullptr);
  };
  OrderedJson json;
  json["delivery"] = message.delivery;
  json["what"] = NameOf(message.what);
  json["alarm"] = alarm.id;
  json["kind"] = NameOf(alarm.kind);
  json["severity"] = NameOf(alarm.severity);
  json["fibre"] = OneLine(message.fibre);
  json["title"] = OneLine(message.title);
  json["instrument"] = OneLine(alarm.instrument);
  json["km"] = alarm.km < 0.0 ? OrderedJson(nullptr) : number(alarm.km);
  json["sd_km"] = alarm.km < 0.0 ? OrderedJson(nullptr) : number(alarm.sdKm);
  json["value"] = number(alarm.value);
  json["limit"] = number(alarm.limit);
  json["sentence"] = OneLine(alarm.sentence, 4000);
  json["place"] = OneLine(message.place);
  json["raised_at"] = time(alarm.raisedAt);
  json["confirmed_at"] = time(alarm.confirmedAt);
  json["cleared_at"] = time(alarm.clearedAt);
  json["link"] = OneLine(message.link, 2000);
  return json.dump();
}

std::string SubjectOf(const Message& message) {
  const Alarm& alarm = message.alarm;
  std::string subject = message.what == Telling::kCleared ? "cleared" : NameOf(alarm.severity);
  if (message.what == Telling::kWorse) subject += " (worse)";
  subject += std::string(": ") + NameOf(alarm.kind) + ", ";
  const std::string whom = !message.title.empty()   ? message.title
                           : !message.fibre.empty() ? message.fibre
                                                    : alarm.instrument;
  subject += OneLine(whom, 120);
  if (alarm.km >= 0.0) subject += " at " + Number(alarm.km, 3) + " km";
  return subject;
}

std::string BodyOf(const Message& message) {
  const Alarm& alarm = message.alarm;
  std::string body;
  const auto add = [&](const char* label, const std::string& text) {
    if (!text.empty()) body += std::string(label) + ": " + text + "\n";
  };
  add("Alarm", OneLine(alarm.sentence, 4000));
  add("Kind", std::string(NameOf(alarm.kind)) + ", " + NameOf(alarm.severity) + ", " + NameOf(message.what));
  add("Fibre", OneLine(message.fibre) + (message.title.empty() ? "" : " (" + OneLine(message.title) + ")"));
  add("Instrument", OneLine(alarm.instrument));
  if (alarm.km >= 0.0)
    add("At", Number(alarm.km, 4) + " km, within " + Number(1960.0 * alarm.sdKm, 1) + " m (95 %)");
  add("Place", OneLine(message.place));
  if (const char* unit = UnitOf(alarm.kind))
    add("Value", Number(alarm.value, 4) + " " + unit + ", limit " + Number(alarm.limit, 3));
  add("Raised", IsoTime(alarm.raisedAt));
  add("Confirmed", IsoTime(alarm.confirmedAt));
  add("Cleared", IsoTime(alarm.clearedAt));
  add("Number", std::to_string(alarm.id));
  add("Page", OneLine(message.link, 2000));
  return body;
}

}  // namespace reflyze::watch
