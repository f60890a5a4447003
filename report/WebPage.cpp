// SPDX-License-Identifier: Apache-2.0
#include "reflyze/webpage.h"

#include <cstdint>
#include <nlohmann/json.hpp>

#include "lib/Text.h"
#include "reflyze/error.h"

namespace reflyze {
namespace {

// The empty values that the page carries, and what stands around them.
const std::string kBefore = "<script type=\"application/json\" id=\"";
const std::string kBehind = "</script>";
constexpr const char* kNameOfFound = "auto";  // for a reel whose length is looked for

std::string Base64(const std::string& bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (size_t k = 0; k < 3; ++k)
      group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    for (size_t k = 0; k < 4; ++k) text += i + k > bytes.size() ? '=' : kLetters[group >> (18 - 6 * k) & 63u];
  }
  return text;
}

// A text of JSON that a page may hold: no "<" in it could end the element or begin another.
std::string Quoted(const std::string& text) {
  const std::string json = nlohmann::json(ValidUtf8(text)).dump(-1, ' ', true);
  std::string safe;
  for (const char c : json) safe += c == '<' ? "\\u003c" : std::string(1, c);
  return safe;
}

// The page with a value in the element of that name, in place of the empty one.
std::string Filled(const std::string& page, const std::string& element, const std::string& empty,
                   const std::string& value) {
  const std::string before = kBefore + element + "\">";
  const size_t place = page.find(before + empty + kBehind);
  if (place == std::string::npos)
    throw Error(ErrorKind::kUnreadable, "", "the page has no place for what it is to show");
  std::string whole = page.substr(0, place + before.size());
  whole.reserve(page.size() + value.size());
  return whole.append(value).append(page, place + before.size() + empty.size(), std::string::npos);
}

// In the words that the address of the page has.
std::string WordsOf(const PageSettings& settings) {
  std::string words;
  const auto say = [&](const std::string& word, const std::string& value) {
    words += (words.empty() ? "\"" : ", \"") + word + "\": " + Quoted(value);
  };
  const auto number = [](double value) { return nlohmann::json(value).dump(); };
  const Thresholds& thresholds = settings.thresholds;
  if (thresholds.lossDb) say("lt", number(*thresholds.lossDb));
  if (thresholds.reflectanceDb) say("rt", number(*thresholds.reflectanceDb));
  if (thresholds.endDb) say("et", number(*thresholds.endDb));
  if (thresholds.slopeDbPerKm) say("ct", number(*thresholds.slopeDbPerKm));
  const Reels& reels = settings.reels;
  if (reels.launch) say("launch", reels.launchKm ? number(*reels.launchKm) : kNameOfFound);
  if (reels.receive) say("receive", reels.receiveKm ? number(*reels.receiveKm) : kNameOfFound);
  if (!settings.limits.empty()) {
    say("limits", settings.limits);
    say("document", settings.limitsName);
  }
  return "{" + words + "}";
}

}  // namespace

std::string PageWith(const std::string& page, const std::vector<Output>& traces) {
  std::string list;
  for (const Output& trace : traces)
    list += (list.empty() ? "" : ",\n") + ("{\"name\": " + Quoted(trace.name)) + ", \"sor\": \"" +
            Base64(trace.bytes) + "\"}";
  return Filled(page, "reflyze-traces", "[]", "[" + list + "]");
}

std::string PageWith(const std::string& page, const std::vector<Output>& traces,
                     const PageSettings& settings) {
  return PageWith(Filled(page, "reflyze-settings", "{}", WordsOf(settings)), traces);
}

}  // namespace reflyze
