// SPDX-License-Identifier: Apache-2.0
#include "paper/Lines.h"

#include <algorithm>
#include <cmath>

namespace reflyze::paper {
namespace {

constexpr double kLightKmPerNs = 1.02e-4;  // fibre that a pulse of 1 ns covers, both ways, km

// Of an end, the table says no more than that it is one.
std::string KindOf(const std::string& type) {
  if (type.rfind("end", 0) == 0) return "kind.end";
  if (type == "out of range") return "kind.out-of-range";
  for (const char* known : {"launch", "reflective", "saturated", "gain", "echo"}) {
    if (type == known) return std::string("kind.") + known;
  }
  return "kind.non-reflective";
}

EventLine LineOf(const Event& event) {
  EventLine line;
  line.km = event.distanceKm;
  line.sdM = event.distanceSdM;
  line.kind = KindOf(event.type);
  line.lossDb = event.lossDb;
  line.lossSdDb = event.lossSdDb;
  line.reflectanceDb = event.reflectanceDb;
  line.reflectanceSdDb = event.reflectanceSdDb;
  line.reflectanceAtLeast = event.reflectanceAtLeast;
  line.attenuationDbPerKm = event.attenuationDbPerKm;
  line.attenuationSdDbPerKm = event.attenuationSdDbPerKm;
  line.cumulatedDb = event.cumulatedDb;
  return line;
}

bool Saturated(const std::string& code) { return !code.empty() && (code[0] == '2' || code[0] == 'D'); }

bool Reflects(const std::string& code) { return !code.empty() && code[0] != '0'; }

// What both directions together say of a place.
std::string KindOfMerged(const MergedEvent& event, bool first, bool last) {
  if (first) return "kind.begin";
  if (last) return "kind.end";
  if (Reflects(event.a.code) || Reflects(event.b.code)) return "kind.reflective";
  const std::optional<double> loss = event.meanLossDb ? event.meanLossDb : event.a.lossDb;
  return loss && *loss < 0.0 ? "kind.gain" : "kind.non-reflective";
}

std::vector<EventLine> LinesOf(const MergedLink& link) {
  std::vector<EventLine> lines;
  const std::vector<MergedEvent>& rows = link.table.rows;
  for (size_t i = 0; i < rows.size(); ++i) {
    const MergedEvent& row = rows[i];
    EventLine line;
    line.km = row.distanceKm;
    line.kind = KindOfMerged(row, i == 0, i + 1 == rows.size());
    line.lossDb = row.meanLossDb;
    line.lossSdDb = row.meanLossSdDb;
    line.lossADb = row.a.lossDb;
    line.lossASdDb = row.a.lossSdDb;
    line.lossBDb = row.b.lossDb;
    line.lossBSdDb = row.b.lossSdDb;
    line.reflectanceDb = row.a.reflectanceDb;
    line.reflectanceBDb = row.b.reflectanceDb;
    line.reflectanceAtLeast = Saturated(row.a.code);
    line.reflectanceBAtLeast = Saturated(row.b.code);
    line.attenuationDbPerKm = row.attenuationDbPerKm;
    line.attenuationSdDbPerKm = row.attenuationSdDbPerKm;
    lines.push_back(std::move(line));
  }
  return lines;
}

void TakeVerdicts(Wave& wave, size_t firstEvent) {
  if (!wave.verdict) return;
  for (size_t i = 0; i < wave.lines.size() && firstEvent + i < wave.verdict->events.size(); ++i)
    wave.lines[i].verdict = wave.verdict->events[firstEvent + i];
}

double ZeroOf(const EventTable& table, const std::optional<Span>& span) {
  return span && !table.events.empty() ? table.events.front().distanceKm + span->fromKm : 0.0;
}

// Both directions on each other, if that is what the summary's numbers are of: a fibre that ends early is
// seen from each end by itself.
bool Merge(Wave& wave, const CableNumbers& numbers, const Reels& reels) {
  if (wave.a == nullptr || wave.b == nullptr) return false;
  const EventTable &a = wave.a->trace.table, &b = wave.b->trace.table;
  if (!a.fibre || !b.fibre) return false;
  const MergedLink link = MergeBetweenReels(a, b, reels, reels);
  if (numbers.lengthKm != link.table.lengthKm || numbers.lossDb != link.lossDb) return false;
  wave.merged = true;
  wave.lossSdDb = link.lossSdDb;
  wave.zeroAKm = ZeroOf(a, link.spanA);
  wave.zeroBKm = ZeroOf(b, link.spanB);
  wave.lines = LinesOf(link);
  TakeVerdicts(wave, 0);
  return true;
}

void TakeOneDirection(Wave& wave, const Reels& reels) {
  const EventTable& own = wave.First().trace.table;
  const LinkTable link = BetweenReels(own, reels);
  const std::vector<Event>& events = link.table.events;
  const size_t first = link.span ? link.span->first.value_or(0) : 0;
  const size_t last = link.span ? link.span->last.value_or(events.size() - 1) : events.size() - 1;
  for (size_t i = first; i <= last && i < events.size(); ++i) wave.lines.push_back(LineOf(events[i]));
  wave.lossSdDb = link.table.totalLossSdDb;
  (wave.a != nullptr ? wave.zeroAKm : wave.zeroBKm) = ZeroOf(own, link.span);
  TakeVerdicts(wave, first);
}

}  // namespace

Wave WaveOf(const CableNumbers& numbers, const PicturedTrace* a, const PicturedTrace* b, const Reels& reels) {
  Wave wave;
  wave.nm = numbers.wavelengthNm;
  wave.a = a;
  wave.b = b;
  wave.lengthKm = numbers.lengthKm;
  wave.lossDb = numbers.lossDb;
  wave.returnLossDb = numbers.returnLossDb;
  wave.verdict = numbers.verdict;
  if (!Merge(wave, numbers, reels)) {
    if (a != nullptr) wave.b = nullptr;
    TakeOneDirection(wave, reels);
  }
  wave.returnLossAtMost = std::any_of(wave.lines.begin(), wave.lines.end(), [](const EventLine& line) {
    return line.reflectanceAtLeast || line.reflectanceBAtLeast;
  });
  return wave;
}

void NumberPlaces(std::vector<Wave>& waves) {
  struct Place {
    double km;
    std::vector<std::pair<size_t, size_t>> lines;  // wavelength and line
  };
  std::vector<Place> places;
  for (size_t w = 0; w < waves.size(); ++w) {
    const double pulseKm = waves[w].First().trace.table.pulseNs * kLightKmPerNs;
    const double near = std::max(1.5 * pulseKm, 0.015);
    for (size_t i = 0; i < waves[w].lines.size(); ++i) {
      const double km = waves[w].lines[i].km;
      Place* best = nullptr;
      for (Place& place : places) {
        const bool taken = !place.lines.empty() && place.lines.back().first == w;
        const double apart = std::fabs(place.km - km);
        if (!taken && apart <= near && (best == nullptr || apart < std::fabs(best->km - km))) best = &place;
      }
      if (best == nullptr) best = &places.emplace_back(Place{km, {}});
      best->lines.emplace_back(w, i);
    }
  }
  std::sort(places.begin(), places.end(), [](const Place& a, const Place& b) { return a.km < b.km; });
  for (size_t p = 0; p < places.size(); ++p) {
    for (const auto& [w, i] : places[p].lines) waves[w].lines[i].number = static_cast<int>(p) + 1;
  }
}

}  // namespace reflyze::paper
