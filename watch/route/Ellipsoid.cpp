// SPDX-License-Identifier: Apache-2.0

// Lengths on the ellipsoid, by its radii of curvature at a latitude phi: along a meridian and across,
//
//   M = a (1 - e^2) / (1 - e^2 sin^2 phi)^(3/2),   N = a / (1 - e^2 sin^2 phi)^(1/2)
//   ds^2 = (M dphi)^2 + (N cos phi dlambda)^2
//
// taken at the middle latitude of a piece. With pieces of 0.02 degrees a length is good to a millionth up to
// 80 degrees of latitude. Geodesics (Vincenty, Karney) would answer another question: a line of GeoJSON is
// straight in degrees, not the shortest way.

#include "watch/route/Ellipsoid.h"

#include <algorithm>
#include <cmath>

namespace reflyze::watch {
namespace {

constexpr double kA = 6378137.0;  // equator, m
constexpr double kFlattening = 1 / 298.257223563;
constexpr double kE2 = kFlattening * (2.0 - kFlattening);
constexpr double kDegree = 3.14159265358979323 / 180.0;
constexpr double kPieceDegrees = 0.02;
constexpr int kMostPieces = 500;  // a spot half round the earth is still a bounded task

// Metres a degree.
struct Scale {
  double north, east;
};

Scale ScaleAt(double latitude) {
  const double s = std::sin(latitude * kDegree), w = 1.0 - kE2 * s * s;
  const double n = kA / std::sqrt(w);
  return {n * (1.0 - kE2) / w * kDegree, n * std::cos(latitude * kDegree) * kDegree};
}

// The short way round.
double EastOf(const Spot& from, const Spot& to) {
  return std::remainder(to.longitude - from.longitude, 360.0);
}

int PiecesOf(const Spot& from, const Spot& to) {
  const double most = std::max(std::fabs(to.latitude - from.latitude), std::fabs(EastOf(from, to)));
  return std::clamp(static_cast<int>(std::ceil(most / kPieceDegrees)), 1, kMostPieces);
}

Spot At(const Spot& from, const Spot& to, double share) {
  return {from.latitude + share * (to.latitude - from.latitude),
          std::remainder(from.longitude + share * EastOf(from, to), 360.0)};
}

double PieceLength(const Spot& from, const Spot& to) {
  const Scale scale = ScaleAt(0.5 * (from.latitude + to.latitude));
  const double north = scale.north * (to.latitude - from.latitude), east = scale.east * EastOf(from, to);
  return std::sqrt(north * north + east * east);
}

}  // namespace

double LengthOf(const Spot& from, const Spot& to) {
  const int pieces = PiecesOf(from, to);
  double length = 0.0;
  for (int i = 0; i < pieces; ++i)
    length += PieceLength(At(from, to, static_cast<double>(i) / pieces), At(from, to, (i + 1.0) / pieces));
  return length;
}

Spot SpotAlong(const Spot& from, const Spot& to, double metres) {
  if (!(metres > 0.0)) return from;
  const int pieces = PiecesOf(from, to);
  for (int i = 0; i < pieces; ++i) {
    const double length =
        PieceLength(At(from, to, static_cast<double>(i) / pieces), At(from, to, (i + 1.0) / pieces));
    if (metres < length) return At(from, to, (i + metres / length) / pieces);
    metres -= length;
  }
  return to;
}

Surroundings::Surroundings(const Spot& spot)
    : spot_(spot), north_(ScaleAt(spot.latitude).north), east_(ScaleAt(spot.latitude).east) {}

Surroundings::Foot Surroundings::FootOn(const Spot& from, const Spot& to) const {
  const double x1 = east_ * EastOf(spot_, from), y1 = north_ * (from.latitude - spot_.latitude);
  const double dx = east_ * EastOf(from, to), dy = north_ * (to.latitude - from.latitude);
  const double length2 = dx * dx + dy * dy;
  const double share = length2 > 0.0 ? std::clamp(-(x1 * dx + y1 * dy) / length2, 0.0, 1.0) : 0.0;
  const double x = x1 + share * dx, y = y1 + share * dy;
  return {share * std::sqrt(length2), std::sqrt(x * x + y * y)};
}

}  // namespace reflyze::watch
