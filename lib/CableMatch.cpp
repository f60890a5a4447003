// SPDX-License-Identifier: Apache-2.0
#include "lib/CableMatch.h"

#include <algorithm>
#include <cmath>

namespace reflyze {
namespace {

constexpr double kScaleError = 5e-5;  // of a length, between two wavelengths: their indices are set by hand
constexpr double kJointNearKm = 0.05;

FibreSeen Look(const PlacedTrace& placed, const Reels& reels) {
  FibreSeen seen;
  seen.reels = reels;
  const EventTable& table = placed.trace->table;
  const std::optional<Span> span = SpanOf(table, reels);
  if (!span) return seen;
  seen.usable = true;
  seen.lengthKm = span->lengthKm;
  const double zero = table.events.front().distanceKm + span->fromKm;
  for (size_t i = 1; i + 1 < table.events.size(); ++i) {
    const double km = table.events[i].distanceKm - zero;
    if (km <= 1e-6 || km >= span->lengthKm - 1e-6 || table.events[i].type == "echo") continue;
    seen.jointsKm.push_back(placed.fromB ? span->lengthKm - km : km);
  }
  std::sort(seen.jointsKm.begin(), seen.jointsKm.end());
  return seen;
}

}  // namespace

CableMatches::CableMatches(const std::vector<PlacedTrace>& traces, const Reels& reels) : traces_(traces) {
  for (size_t i = 0; i < traces.size(); ++i) {
    seen_.push_back(Look(traces[i], reels));
    index_[traces[i].trace] = i;
  }
}

double CableMatches::Apart(size_t i, size_t k) const {
  const FibreSeen &one = seen_[i], &other = seen_[k];
  const double spacingKm =
      std::max(traces_[i].trace->table.spacingM, traces_[k].trace->table.spacingM) / 1000.0;
  const bool otherWave = traces_[i].trace->wavelengthNm != traces_[k].trace->wavelengthNm;
  const double near = std::max(1.5 * spacingKm, 0.0003) + (otherWave ? kScaleError * one.lengthKm : 0.0);
  double apart = std::fabs(one.lengthKm - other.lengthKm) / near;
  if (apart > 1.0) return apart;
  size_t from = 0;
  for (const double km : one.jointsKm) {
    while (from < other.jointsKm.size() && other.jointsKm[from] < km - kJointNearKm) ++from;
    double nearest = kJointNearKm;
    for (size_t j = from; j < other.jointsKm.size() && other.jointsKm[j] <= km + kJointNearKm; ++j)
      nearest = std::min(nearest, std::fabs(other.jointsKm[j] - km));
    // A weak joint that one of them has not listed says nothing; its place is known less well than an end's.
    if (nearest < kJointNearKm) apart = std::max(apart, nearest / (2.0 * near));
  }
  return apart;
}

std::string CableMatches::OtherFibreOf(size_t i) const {
  if (!seen_[i].usable || seen_[i].early) return "";
  const std::string& fibre = traces_[i].trace->fibre;
  double own = 1e9, best = 1e9;
  bool ownSeen = false;
  std::string other;
  for (size_t k = 0; k < traces_.size(); ++k) {
    if (k == i || !seen_[k].usable || seen_[k].early) continue;
    const bool mine = traces_[k].trace->fibre == fibre;
    // The other end is the witness: traces from one end are mixed up together.
    if (traces_[k].fromB == traces_[i].fromB) continue;
    const double apart = Apart(i, k);
    if (mine) {
      ownSeen = true;
      own = std::min(own, apart);
    } else if (apart < best) {
      best = apart;
      other = traces_[k].trace->fibre;
    }
  }
  return ownSeen && own > 1.0 && best <= 1.0 ? other : "";
}

}  // namespace reflyze
