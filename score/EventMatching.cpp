// SPDX-License-Identifier: Apache-2.0
#include "score/EventMatching.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace reflyze::score {

std::vector<FoundEvent> FoundEvents(const TSorData& record) {
  std::vector<FoundEvent> found;
  for (int i = 0; i < record.KeyEvents->events->GetSize(); ++i) {
    const TSorBlockKeyEvents1E& event = *record.KeyEvents->events->GetData(i);
    FoundEvent entry;
    entry.distanceKm = record.OwtToLen(event.EPT);
    entry.lossDb = event.GetEL();
    entry.reflectanceDb = event.GetER();
    entry.reflective = event.EC.Len() > 0 && event.EC.c_str()[0] != '0';
    entry.saturated = event.EC.Len() > 0 && (event.EC.c_str()[0] == '2' || event.EC.c_str()[0] == 'D');
    entry.end = event.IsEOF();
    found.push_back(entry);
  }
  return found;
}

EventKind KindOf(const sim::TrueEvent& event) {
  if (event.reflectanceDb && event.peakDb >= kSmallestFairPeakDb) return EventKind::kReflection;
  return event.lossDb < 0.0 ? EventKind::kGainer : EventKind::kSplice;
}

EventKind KindOf(const FoundEvent& event) {
  if (event.reflective) return EventKind::kReflection;
  return event.lossDb < 0.0 ? EventKind::kGainer : EventKind::kSplice;
}

bool IsFair(const sim::TrueEvent& event) {
  return std::fabs(event.lossDb) >= kSmallestFairLossDb || event.peakDb >= kSmallestFairPeakDb;
}

Matching Match(const sim::Truth& truth, const std::vector<FoundEvent>& found, double toleranceKm) {
  Matching matching;
  const size_t truthEnd = truth.events.size() - 1;
  const size_t foundEnd = found.empty() ? 0 : found.size() - 1;
  if (!found.empty()) {
    matching.endFound = found[foundEnd].end || !truth.endInRange;
    matching.endErrorKm = found[foundEnd].distanceKm - truth.events[truthEnd].distanceKm;
  }
  std::vector<std::tuple<double, size_t, size_t>> near;
  for (size_t t = 1; t < truthEnd; ++t) {
    for (size_t f = 1; f < foundEnd; ++f) {
      const double apart = std::fabs(truth.events[t].distanceKm - found[f].distanceKm);
      if (apart <= toleranceKm) near.emplace_back(apart, t, f);
    }
  }
  std::sort(near.begin(), near.end());
  std::vector<bool> truthTaken(truth.events.size(), false), foundTaken(found.size(), false);
  for (const auto& [apart, t, f] : near) {
    if (truthTaken[t] || foundTaken[f]) continue;
    truthTaken[t] = foundTaken[f] = true;
    matching.pairs.push_back({t, f});
  }
  for (size_t t = 1; t < truthEnd; ++t) {
    if (!truthTaken[t]) matching.missed.push_back(t);
  }
  for (size_t f = 1; f < foundEnd; ++f) {
    if (!foundTaken[f]) matching.invented.push_back(f);
  }
  return matching;
}

}  // namespace reflyze::score
