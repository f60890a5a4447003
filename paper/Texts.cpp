// SPDX-License-Identifier: Apache-2.0
#include "paper/Texts.h"

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <vector>

#include "paper/TextFiles.h"
#include "reflyze/error.h"
#include "reflyze/paper.h"
#include "reflyze/text.h"

namespace reflyze {

std::vector<std::string> PaperLanguages() {
  std::vector<std::string> names;
  for (const paper::TextFile& file : paper::kTextFiles) names.emplace_back(file.language);
  return names;
}

}  // namespace reflyze

namespace reflyze::paper {
namespace {

// Longer names are cut: no line of a report has room for more.
constexpr size_t kLongestText = 160;

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string Printed(double value, int decimals) {
  char text[400];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  // What rounds to 0 has no sign.
  const bool zero = std::string(text).find_first_not_of("-0.") == std::string::npos;
  return zero && text[0] == '-' ? text + 1 : text;
}

std::string Time(long long utc, const char* format) {
  const std::time_t time = static_cast<std::time_t>(utc);
  std::tm parts = {};
  char text[32];
  if (utc <= 0 || gmtime_r(&time, &parts) == nullptr || parts.tm_year > 8099) return "-";
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

constexpr const char* kSentences = "says.";  // keys of what the library says of files and fibres

std::string Mark(size_t part) { return "{" + std::to_string(part + 1) + "}"; }

// What stands in a sentence for the marks of a pattern, in order; none for another sentence.
std::optional<std::vector<std::string>> PartsOf(const std::string& sentence, const std::string& pattern) {
  std::vector<std::string> parts;
  size_t at = 0, from = 0;
  while (true) {
    const size_t mark = pattern.find(Mark(parts.size()), from);
    const std::string between = pattern.substr(from, mark == std::string::npos ? mark : mark - from);
    const bool last = mark == std::string::npos;
    size_t found = parts.empty() ? (sentence.rfind(between, 0) == 0 ? 0 : std::string::npos)
                                 : sentence.find(between, at);
    // The last words end the sentence; a name may hold them too.
    if (last && !parts.empty())
      found = sentence.size() < between.size() ? std::string::npos : sentence.size() - between.size();
    if (found == std::string::npos || found < at || sentence.compare(found, between.size(), between) != 0)
      return std::nullopt;
    if (!parts.empty()) parts.back() = sentence.substr(at, found - at);
    at = found + between.size();
    if (last) return at == sentence.size() ? std::optional(parts) : std::nullopt;
    from = mark + 3;
    parts.emplace_back();
  }
}

std::string Filled(const std::string& pattern, const std::vector<std::string>& parts) {
  std::string text;
  for (size_t at = 0; at < pattern.size(); ++at) {
    const size_t number = at + 2 < pattern.size() && pattern[at] == '{' && pattern[at + 2] == '}'
                              ? static_cast<size_t>(pattern[at + 1] - '1')
                              : parts.size();
    if (number < parts.size()) {
      text += parts[number];
      at += 2;
    } else {
      text += pattern[at];
    }
  }
  return text;
}

bool TurnsOrHides(gunichar letter) {
  const bool turns = (letter >= 0x202A && letter <= 0x202E) || (letter >= 0x2066 && letter <= 0x2069) ||
                     letter == 0x200E || letter == 0x200F || letter == 0x061C;
  const bool ends = letter == 0x2028 || letter == 0x2029;
  return turns || ends || letter == 0xFEFF || letter == 0xFFFE || letter == 0xFFFF;
}

}  // namespace

Texts::Texts(const std::string& language) : language_(language) {
  const TextFile* file = nullptr;
  for (const TextFile& one : kTextFiles) {
    if (language == one.language) file = &one;
  }
  if (file == nullptr) throw Error(ErrorKind::kUsage, "", "\"" + language + "\" is no language of reports");
  std::string rest = file->text;
  while (!rest.empty()) {
    const size_t end = rest.find('\n');
    const std::string line = rest.substr(0, end);
    rest = end == std::string::npos ? "" : rest.substr(end + 1);
    const size_t sign = line.find('=');
    if (line.empty() || line[0] == ';' || sign == std::string::npos) continue;
    words_[Trimmed(line.substr(0, sign))] = Trimmed(line.substr(sign + 1));
  }
}

const std::string& Texts::operator[](const std::string& key) const {
  const auto found = words_.find(key);
  if (found == words_.end()) throw Error(ErrorKind::kUsage, "", language_ + " has no text for " + key);
  return found->second;
}

std::string Texts::WordFor(Verdict verdict) const {
  return verdict == Verdict::kNone ? "" : (*this)[std::string("verdict.") + WordOf(verdict)];
}

std::string Texts::With(const std::string& key, const std::string& first, const std::string& second) const {
  return Filled((*this)[key], {first, second});
}

std::string Texts::Told(const std::string& sentence) const {
  static const Texts english("en");
  for (const auto& [key, pattern] : english.words_) {
    if (key.rfind(kSentences, 0) != 0) continue;
    if (const auto parts = PartsOf(sentence, pattern)) return Filled((*this)[key], *parts);
  }
  return sentence;
}

std::string Texts::Number(std::optional<double> value, int decimals) const {
  if (!value || !std::isfinite(*value)) return "-";
  std::string text = Printed(*value, decimals);
  const size_t point = text.find('.');
  if (point != std::string::npos) text.replace(point, 1, (*this)["decimal"]);
  return text;
}

std::string Texts::Deviation(std::optional<double> sd, int decimals) const {
  constexpr double kMost = 999.0, kSlip = 1e-6;  // what stands on a step is not rounded up
  if (!sd) return "";
  if (!(*sd <= kMost)) return "±>999";
  if (*sd >= 10.0) decimals = std::min(decimals, *sd >= 100.0 ? 0 : 1);
  double steps = 1.0;
  for (int i = 0; i < decimals; ++i) steps *= 10.0;
  return "±" + Number(std::max(std::ceil(*sd * steps - kSlip), 1.0) / steps, decimals);
}

std::string Texts::Day(long long utc) { return Time(utc, "%Y-%m-%d"); }
std::string Texts::Moment(long long utc) { return Time(utc, "%Y-%m-%d %H:%M"); }

std::string Harmless(const std::string& text) {
  // No sentence is so long; what comes behind would cost time and be cut anyway.
  const std::string whole = text.substr(0, 8 * kLongestText);
  char* valid = g_utf8_make_valid(whole.data(), static_cast<gssize>(whole.size()));
  std::string line;
  size_t letters = 0;
  const char* next = nullptr;
  for (const char* at = valid; *at != '\0'; at = next) {
    next = g_utf8_next_char(at);
    const gunichar letter = g_utf8_get_char(at);
    if (TurnsOrHides(letter)) continue;
    if (letters++ == kLongestText) {
      line += "…";
      break;
    }
    const bool blank = letter == '\n' || letter == '\r' || letter == '\t';
    line += blank ? std::string(" ") : std::string(at, next);
  }
  g_free(valid);
  return Trimmed(OneLine(line));
}

std::string HarmlessOrDash(const std::string& text) {
  const std::string line = Harmless(text);
  return line.empty() ? "-" : line;
}

}  // namespace reflyze::paper
