// SPDX-License-Identifier: Apache-2.0
#include "report/Words.h"

#include "lib/Text.h"

namespace reflyze {

std::string NumberOrDash(std::optional<double> value, int decimals) {
  return value ? Format("%.*f", decimals, NoMinusZero(*value, decimals)) : "-";
}

std::string ReflectanceText(const Event& event) {
  return (event.reflectanceAtLeast ? ">" : "") + NumberOrDash(event.reflectanceDb, 2);
}

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

const char* SeenFrom(bool a, bool b) { return a ? b ? "both" : "a" : "b"; }

}  // namespace reflyze
