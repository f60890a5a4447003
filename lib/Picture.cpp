// SPDX-License-Identifier: Apache-2.0
#include "reflyze/picture.h"

#include <algorithm>
#include <cmath>

#include "lib/Verdicts.h"

namespace reflyze {
namespace {

constexpr int kWholeColumns = 720;    // of a page: finer than a printed line is wide
constexpr int kCloseUpColumns = 240;  // of a picture beside another one
// Share of the fibre that is shown behind its end: the noise belongs there.
constexpr double kBehindEnd = 0.08;
constexpr double kLightKmPerNs = 1.02e-4;  // fibre that a pulse of 1 ns covers, both ways, km

struct DrawnPoints {
  std::vector<double> km, db;
};

Curve Columns(const DrawnPoints& points, double fromKm, double toKm, int columns) {
  const auto place = [&](double km) {
    return static_cast<size_t>(std::lower_bound(points.km.begin(), points.km.end(), km) - points.km.begin());
  };
  const size_t from = place(fromKm), to = std::min(place(toKm) + 1, points.km.size());
  Curve curve;
  const auto take = [&](size_t i) {
    curve.km.push_back(static_cast<float>(points.km[i]));
    curve.db.push_back(static_cast<float>(points.db[i]));
  };
  if (from >= to || columns < 1) return curve;
  const size_t count = to - from, wide = static_cast<size_t>(columns);
  if (count <= 2 * wide) {
    for (size_t i = from; i < to; ++i) take(i);
    return curve;
  }
  for (size_t column = 0; column < wide; ++column) {
    const size_t first = from + column * count / wide, last = from + (column + 1) * count / wide;
    const auto begin = points.db.begin() + static_cast<long>(first);
    const auto [low, high] = std::minmax_element(begin, points.db.begin() + static_cast<long>(last));
    const auto one = static_cast<size_t>(low - points.db.begin());
    const auto other = static_cast<size_t>(high - points.db.begin());
    take(std::min(one, other));
    if (one != other) take(std::max(one, other));
  }
  return curve;
}

// A few pulses in front of a place and more behind it, where the receiver recovers.
Curve CloseUp(const DrawnPoints& points, const EventTable& table, double km) {
  const double pulseKm = table.pulseNs * kLightKmPerNs, pointKm = table.spacingM / 1000.0;
  const double before = std::max({2.0 * pulseKm, 10.0 * pointKm, 0.005});
  const double behind = std::max({6.0 * pulseKm, 30.0 * pointKm, 0.020});
  return Columns(points, km - before, km + behind, kCloseUpColumns);
}

// Which of the events a reader may want to see closely: the first and the last that can be a connector of the
// link, with a reel at its end or without.
std::vector<double> PlacesToShow(const EventTable& table) {
  std::vector<double> places;
  if (table.events.empty()) return places;
  const std::vector<Event>& events = table.events;
  places = {events.front().distanceKm, events.back().distanceKm};
  for (size_t i = 1; i + 1 < events.size(); ++i) {
    if (!ReflectsBy(events[i].code)) continue;
    places.push_back(events[i].distanceKm);
    break;
  }
  for (size_t i = events.size() - 1; i-- > 1;) {
    if (!ReflectsBy(events[i].code)) continue;
    places.push_back(events[i].distanceKm);
    break;
  }
  return places;
}

}  // namespace

Curve CurveBetween(const Trace& trace, double fromKm, double toKm, int columns) {
  return Columns({trace.DistancesKm(), trace.LevelsDb()}, fromKm, toKm, columns);
}

PicturedTrace PictureOf(Trace trace, const AnalyseOptions& options) {
  PicturedTrace picture;
  picture.card = trace.GetCard();
  const DrawnPoints points = {trace.DistancesKm(), trace.LevelsDb()};
  picture.trace = AnalyseForCable(std::move(trace), options);
  picture.trace.table.record = StoredRecord();
  const EventTable& table = picture.trace.table;
  if (points.km.empty()) return picture;
  double endKm = points.km.back();
  if (!table.events.empty() && table.fibre) {
    const double from = table.events.front().distanceKm, to = table.events.back().distanceKm;
    endKm = std::min(endKm, to + std::max(kBehindEnd * (to - from), 8.0 * table.pulseNs * kLightKmPerNs));
  }
  picture.whole = Columns(points, points.km.front(), endKm, kWholeColumns);
  for (const double km : PlacesToShow(table)) picture.closeUps.push_back(CloseUp(points, table, km));
  return picture;
}

}  // namespace reflyze
