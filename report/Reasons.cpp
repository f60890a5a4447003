// SPDX-License-Identifier: Apache-2.0

// Why an analysis decided as it did, told event by event.

#include "report/Reasons.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"

namespace reflyze {
namespace {

// What belongs to an event lies within its pulse, on either side, or within a few points where the pulse is
// short.
double NearKm(const EventTable& table) {
  constexpr double kLightKmPerNs = 2.99792458e-4;  // in vacuum, one way
  constexpr double kPulses = 1.5, kPoints = 10.0;
  const double pulseKm =
      table.groupIndex > 0.0 ? table.pulseNs * kLightKmPerNs / (2.0 * table.groupIndex) : 0.0;
  return std::max(kPulses * pulseKm, kPoints * table.spacingM / 1000.0);
}

// Index of the event to which a place belongs, the number of events for none.
size_t EventAt(const EventTable& table, double km) {
  size_t nearest = table.events.size();
  double nearestKm = NearKm(table);
  for (size_t i = 0; i < table.events.size(); ++i) {
    const double apartKm = std::fabs(table.events[i].distanceKm - km);
    if (apartKm > nearestKm) continue;
    nearest = i;
    nearestKm = apartKm;
  }
  return nearest;
}

// "14 grade", "0.201 dB (limit 0.050)".
std::string Held(const Reason& reason) {
  constexpr int kHeldDecimals = 3;
  const bool whole = reason.unit == "grade" || reason.unit == "events";
  const auto number = [&](double value) {
    return Format("%.*f", whole ? 0 : kHeldDecimals, NoMinusZero(value, whole ? 0 : kHeldDecimals));
  };
  std::string text = number(reason.value) + " " + reason.unit;
  if (reason.limit) text += " (limit " + number(*reason.limit) + ")";
  return text;
}

}  // namespace

std::string ReasonsText(const EventTable& table) {
  std::vector<std::string> texts(table.events.size() + 1);
  for (const Reason& reason : table.reasons) {
    texts[EventAt(table, reason.distanceKm)] += Format(
        "  %9.4f km  search %d  %-12s  %-7s  %-26s  %s\n", NoMinusZero(reason.distanceKm, 4), reason.search,
        reason.stage.c_str(), reason.choice.c_str(), Held(reason).c_str(), reason.sentence.c_str());
  }
  std::string text = "\nWhy\n";
  for (size_t i = 0; i < table.events.size(); ++i) {
    const Event& event = table.events[i];
    text += Format(" %3d  %.4f km, %s\n", event.number, NoMinusZero(event.distanceKm, 4), event.type.c_str());
    text += texts[i].empty() ? "  placed by the events beside it\n" : texts[i];
  }
  if (!texts.back().empty()) text += " No event of the table\n" + texts.back();
  return text;
}

}  // namespace reflyze
