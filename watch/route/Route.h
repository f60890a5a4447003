// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace reflyze::watch {

// A point of a route, where the length of cable up to it is known.
struct RoutePoint {
  double latitude = 0.0, longitude = 0.0;  // degrees, WGS 84
  double cableM = 0.0;                     // metres of cable from the beginning, with all slack up to here
  double slackM = 0.0;                     // metres of cable coiled at this point
  std::string name;                        // of a manhole or a closure; may be empty
};

// Where a place on the fibre is on earth.
struct RoutePlace {
  double latitude = 0.0, longitude = 0.0;  // of the likeliest place
  double sdM = 0.0;     // along the route: of the trace, and of the cable between two known points
  std::string near;     // nearest named point
  double nearM = 0.0;   // along the route from it, forward positive
  bool onRoute = true;  // no: it lies surely (95 %) before or behind the route, whose end is given instead
  // The stretch of the route in which the place lies with 95 %, as points from one end to the other.
  std::vector<RoutePoint> stretch;
};

// The way of a fibre over land. GeoJSON (RFC 7946): a LineString, or a Feature or FeatureCollection with one;
// property "cable_m" lists the metres of cable at each point (null where not known), "slack_m" what is coiled
// there, "names" what stands there; Point features with "slack_m", "cable_m" or "name" lie on the nearest
// spot of the line, which gets a point there. Where cable metres are not known they follow from the length on
// the ellipsoid between known points, and without any from that length with `cable_per_route` (1.0 if not
// given). Behind the last known point the cable runs as "cable_per_route" says, or as before that point.
class Route {
 public:
  // Throws Error kUnreadable, naming what is wrong and where, for what is no route: no line or several, fewer
  // than two points, degrees out of range, cable metres that fall, more slack than cable, a Point more than
  // 1 km off, more than 100,000 points, 1000 Points or 8 MB.
  static Route FromGeoJson(const std::string& name, const std::string& text);

  // The place at so many km of fibre. `fibrePerCable` is the excess length of fibre in cable, usually 1.00 to
  // 1.02. Throws Error kUsage for numbers that are none.
  RoutePlace At(double fibreKm, double sdKm, double fibrePerCable = 1.0) const;

  const std::vector<RoutePoint>& Points() const { return points_; }
  double CableM() const { return points_.back().cableM; }  // in all

 private:
  struct Where {
    std::size_t point;  // at or before the place
    double aheadM;      // along the route from it
  };
  Route(std::vector<RoutePoint> points, std::vector<bool> known, double cablePerRoute);
  void LayCable(std::size_t from, std::size_t to, double cablePerRoute);
  void LayAll(double cablePerRoute);
  Where Find(double cableM) const;
  RoutePoint PointAt(double cableM) const;
  double LayVariance(double cableM) const;

  std::vector<RoutePoint> points_;
  std::vector<bool> known_;      // whether the cable metres of a point were given
  std::vector<double> lengthM_;  // along the route up to each point
};

}  // namespace reflyze::watch
