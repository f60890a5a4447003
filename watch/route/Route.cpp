// SPDX-License-Identifier: Apache-2.0

// From metres of cable to a place on earth.
//
// Between two points where the cable is known to have c1 and c2 metres, it runs evenly along the route, apart
// from what is coiled at points. How far that is wrong is nothing at both points and most in the middle:
// cable that winds in its trench and coils that nobody wrote down add up like a random walk that is held at
// both ends (a Brownian bridge), whose variance x metres behind one of D is
//
//   v = k x (D - x) / D.
//
// Behind the last known point nothing holds the walk, v = k x, and how much longer the cable is than the
// route is itself uncertain by a share g, which adds (g x)^2.

#include "watch/route/Route.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "reflyze/error.h"
#include "watch/route/Ellipsoid.h"

namespace reflyze::watch {
namespace {

constexpr double kSure = 1.96;    // deviations to either side hold 95 %
constexpr double kWalkM = 0.05;   // k: a coil of 10 m that nobody wrote down every 2 km
constexpr double kExcess = 0.01;  // g: cables are laid 0 to 3 % longer than their route
constexpr double kIndex = 1e-4;   // share by which the index of the fibre, and so each distance, is uncertain

Spot SpotOf(const RoutePoint& point) { return {point.latitude, point.longitude}; }

}  // namespace

Route::Route(std::vector<RoutePoint> points, std::vector<bool> known, double cablePerRoute)
    : points_(std::move(points)), known_(std::move(known)), lengthM_(points_.size(), 0.0) {
  for (std::size_t i = 1; i < points_.size(); ++i)
    lengthM_[i] = lengthM_[i - 1] + LengthOf(SpotOf(points_[i - 1]), SpotOf(points_[i]));
  if (!(lengthM_.back() > 0.0)) throw Error(ErrorKind::kUnreadable, "", "all points of its line are one");
  LayAll(cablePerRoute);
}

// Cable at `cablePerRoute` from a point whose metres stand, up to another.
void Route::LayCable(std::size_t from, std::size_t to, double cablePerRoute) {
  for (std::size_t i = from + 1; i <= to; ++i)
    points_[i].cableM =
        points_[i - 1].cableM + cablePerRoute * (lengthM_[i] - lengthM_[i - 1]) + points_[i].slackM;
}

void Route::LayAll(double cablePerRoute) {
  if (!known_.front()) {
    known_.front() = true;
    points_.front().cableM = points_.front().slackM;
  }
  std::size_t last = 0;
  double laidM = 0.0;
  for (std::size_t i = 1; i < points_.size(); ++i) {
    if (!known_[i]) continue;
    const double cableM = points_[i].cableM, ahead = lengthM_[i] - lengthM_[last];
    double free = cableM - points_[last].cableM;
    for (std::size_t k = last + 1; k <= i; ++k) free -= points_[k].slackM;
    const std::string where = "point " + std::to_string(i + 1) + " of its line: ";
    if (cableM < points_[last].cableM)
      throw Error(ErrorKind::kUnreadable, "", where + "its metres of cable are fewer than those before it");
    if (free < 0.0)
      throw Error(ErrorKind::kUnreadable, "", where + "more cable is coiled up to it than there is");
    // What lies between two points of one spot is coiled there.
    if (ahead <= 0.0) points_[i].slackM += free;
    LayCable(last, i, ahead > 0.0 ? free / ahead : 0.0);
    points_[i].cableM = cableM;
    laidM += ahead > 0.0 ? free : 0.0;
    last = i;
  }
  if (cablePerRoute <= 0.0) cablePerRoute = laidM > 0.0 ? laidM / lengthM_[last] : 1.0;
  LayCable(last, points_.size() - 1, cablePerRoute);
  if (!(CableM() > points_.front().cableM - points_.front().slackM))
    throw Error(ErrorKind::kUnreadable, "", "its line has no metre of cable");
}

Route::Where Route::Find(double cableM) const {
  // The first point whose cable, coil and all, reaches there.
  const auto next = std::lower_bound(points_.begin(), points_.end(), cableM,
                                     [](const RoutePoint& point, double m) { return point.cableM < m; });
  if (next == points_.begin()) return {0, 0.0};
  if (next == points_.end()) return {points_.size() - 1, 0.0};
  const auto i = static_cast<std::size_t>(next - points_.begin());
  const double begins = points_[i - 1].cableM, reaches = points_[i].cableM - points_[i].slackM;
  if (cableM >= reaches) return {i, 0.0};
  return {i - 1, (lengthM_[i] - lengthM_[i - 1]) * (cableM - begins) / (reaches - begins)};
}

RoutePoint Route::PointAt(double cableM) const {
  const Where where = Find(cableM);
  RoutePoint point = points_[where.point];
  if (where.aheadM > 0.0) {
    const Spot spot = SpotAlong(SpotOf(point), SpotOf(points_[where.point + 1]), where.aheadM);
    point = {spot.latitude, spot.longitude, cableM, 0.0, ""};
  }
  point.cableM = std::clamp(cableM, 0.0, CableM());
  return point;
}

double Route::LayVariance(double cableM) const {
  const std::size_t at = Find(cableM).point;
  std::size_t before = at, after = at + 1;
  while (before > 0 && !known_[before]) --before;
  while (after < points_.size() && !known_[after]) ++after;
  const double behind = std::max(0.0, std::min(cableM, CableM()) - points_[before].cableM);
  if (after == points_.size()) return kWalkM * behind + kExcess * kExcess * behind * behind;
  const double all = points_[after].cableM - points_[before].cableM;
  return all > 0.0 ? kWalkM * behind * std::max(0.0, all - behind) / all : 0.0;
}

RoutePlace Route::At(double fibreKm, double sdKm, double fibrePerCable) const {
  if (!std::isfinite(fibreKm) || !std::isfinite(sdKm) || !std::isfinite(fibrePerCable) || sdKm < 0.0 ||
      !(fibrePerCable > 0.0))
    throw Error(ErrorKind::kUsage, "", "a place on a route needs numbers");
  const double cableM = fibreKm * 1000.0 / fibrePerCable;
  const double traceM = sdKm * 1000.0 / fibrePerCable, indexM = kIndex * cableM;
  RoutePlace place;
  place.sdM = std::sqrt(traceM * traceM + indexM * indexM + LayVariance(cableM));
  const double from = cableM - kSure * place.sdM, to = cableM + kSure * place.sdM;
  place.onRoute = to >= 0.0 && from <= CableM();
  const RoutePoint point = PointAt(cableM);
  place.latitude = point.latitude;
  place.longitude = point.longitude;
  const Where where = Find(cableM), first = Find(from), last = Find(to);
  const double alongM = lengthM_[where.point] + where.aheadM;
  for (std::size_t i = 0; i < points_.size(); ++i) {
    if (points_[i].name.empty()) continue;
    const double ahead = alongM - lengthM_[i];
    if (!place.near.empty() && std::fabs(ahead) >= std::fabs(place.nearM)) continue;
    place.near = points_[i].name;
    place.nearM = ahead;
  }
  place.stretch.push_back(PointAt(from));
  for (std::size_t i = first.point + 1; i <= last.point; ++i) {
    if (lengthM_[i] < lengthM_[last.point] + last.aheadM) place.stretch.push_back(points_[i]);
  }
  place.stretch.push_back(PointAt(to));
  return place;
}

}  // namespace reflyze::watch
