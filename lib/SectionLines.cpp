// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "reflyze/events.h"
#include "sor/scale/sorMath.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kDbPerDecade = 5.0;  // a trace shows half of what goes and comes back

// The line of a given slope whose power is nearest to that of the points between two places. All points have
// the same noise in power, so that the sum of squares is least at sum(power * shape) / sum(shape * shape).
std::optional<SectionLine> LineBetween(const Trace& trace, double fromKm, double toKm, double dbPerKm) {
  const std::vector<double>& km = trace.DistancesKm();
  const std::vector<double>& db = trace.LevelsDb();
  const auto from = std::lower_bound(km.begin(), km.end(), fromKm) - km.begin();
  const auto to = std::upper_bound(km.begin(), km.end(), toKm) - km.begin();
  double product = 0.0, square = 0.0;
  for (auto i = static_cast<std::size_t>(from); i < static_cast<std::size_t>(std::max(from, to)); ++i) {
    const double shape = elementary::Exp10(-dbPerKm * (km[i] - fromKm) / kDbPerDecade);
    product += elementary::Exp10(db[i] / kDbPerDecade) * shape;
    square += shape * shape;
  }
  if (!(product > 0.0) || !(square > 0.0)) return std::nullopt;
  const double level = kDbPerDecade * elementary::Log10(product / square);
  if (!std::isfinite(level)) return std::nullopt;
  return SectionLine{fromKm, toKm, level, level - dbPerKm * (toKm - fromKm)};
}

}  // namespace

std::vector<std::optional<SectionLine>> SectionLinesOf(const Trace& trace, const EventTable& table) {
  std::vector<std::optional<SectionLine>> lines;
  const double kmPerOwt = SorMathOwtToLen(1.0, table.groupIndex);
  for (std::size_t i = 0; i < table.events.size(); ++i) {
    const Event& event = table.events[i];
    lines.emplace_back();
    if (i == 0 || !event.attenuationDbPerKm) continue;
    const auto kmOf = [&](int owt) { return event.distanceKm + (owt - event.eptOwt) * kmPerOwt; };
    const double fromKm = kmOf(event.markersOwt[0]), toKm = kmOf(event.markersOwt[1]);
    if (fromKm < toKm) lines.back() = LineBetween(trace, fromKm, toKm, *event.attenuationDbPerKm);
  }
  return lines;
}

}  // namespace reflyze
