// SPDX-License-Identifier: Apache-2.0
#include "report/Words.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"

namespace reflyze {

std::string NumberOrDash(std::optional<double> value, int decimals) {
  return value ? Format("%.*f", decimals, NoMinusZero(*value, decimals)) : "-";
}

std::string ReflectanceText(const Event& event) {
  return (event.reflectanceAtLeast ? ">" : "") + NumberOrDash(event.reflectanceDb, 2);
}

std::string SdText(std::optional<double> sd, int decimals) {
  constexpr double kMost = 999.0;
  constexpr double kSlip = 1e-6;  // of a step; what stands on one is not rounded up
  constexpr int kWideDecimals = 1;
  if (!sd) return "";
  if (!(*sd <= kMost)) return "\u00b1>999";
  if (*sd >= 10.0) decimals = std::min(decimals, *sd >= 100.0 ? 0 : kWideDecimals);
  double steps = 1.0;
  for (int i = 0; i < decimals; ++i) steps *= 10.0;
  return Format("\u00b1%.*f", decimals, std::max(std::ceil(*sd * steps - kSlip), 1.0) / steps);
}

namespace {

// Bytes that continue a letter of UTF-8 take no room of their own.
std::string Blanks(const std::string& text, size_t width) {
  const auto letters = static_cast<size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
  return std::string(width > letters ? width - letters : 0, ' ');
}

}  // namespace

std::string PaddedRight(const std::string& text, size_t width) { return text + Blanks(text, width); }

const char* Word(Measurable measurable) {
  switch (measurable) {
    case Measurable::kYes:
      return "yes";
    case Measurable::kEndsRange:
      return "ends";
    case Measurable::kNo:
      break;
  }
  return "no";
}

const char* Word(LaunchState launch) {
  switch (launch) {
    case LaunchState::kMeasured:
      return "measured";
    case LaunchState::kSaturated:
      return "saturated";
    case LaunchState::kUnknown:
      break;
  }
  return "unknown";
}

char MarkOf(Verdict verdict) {
  constexpr char kMarks[] = {' ', ' ', '?', '~', '!'};
  return kMarks[static_cast<int>(verdict)];
}

const char* SeenFrom(bool a, bool b) { return a ? b ? "both" : "a" : "b"; }

}  // namespace reflyze
