// SPDX-License-Identifier: Apache-2.0
#include "watch/route/Route.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "reflyze/error.h"

namespace reflyze::watch {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestDocument = 1u << 24;  // bytes
constexpr std::size_t kMostPoints = 100000;
constexpr double kDegree = 3.14159265358979323846 / 180.0;
constexpr double kMetresPerKm = 1000.0;
constexpr double kMostMetres = 1e8;  // of cable or slack
// The group index of a fibre is known to some tenths of a thousandth.
constexpr double kIndexShare = 2e-4;
// How far cable and route differ from place to place, of the length between two places that are known.
constexpr double kUnknownShare = 0.005;
constexpr double kDeviations95 = 1.96;

// One document, read.
class Reader {
 public:
  Reader(const std::string& name, const std::string& text) : name_(name) {
    if (text.size() > kLargestDocument) Refuse("is larger than 16 MB");
    const json document = json::parse(text, nullptr, false);
    if (document.is_discarded()) Refuse("is no JSON");
    Take(document);
    if (line_.size() < 2) Refuse("has no LineString of two points or more");
    for (const json& feature : places_) AddPlace(feature);
  }

  std::vector<RoutePoint> line_;
  std::vector<std::optional<double>> cable_;  // as given

 private:
  [[noreturn]] void Refuse(const std::string& why) const { throw Error(ErrorKind::kUnreadable, name_, why); }

  void Take(const json& object) {
    const std::string type = TypeOf(object);
    if (type == "FeatureCollection") {
      if (!object.contains("features") || !object["features"].is_array()) Refuse("\"features\" is no list");
      for (const json& feature : object["features"]) TakeFeature(feature);
    } else if (type == "Feature") {
      TakeFeature(object);
    } else {
      TakeLine(object, json::object());
    }
  }
  static std::string TypeOf(const json& object) {
    return object.is_object() && object.contains("type") && object["type"].is_string()
               ? object["type"].get<std::string>()
               : "";
  }
  void TakeFeature(const json& feature) {
    if (!feature.is_object() || !feature.contains("geometry")) Refuse("a feature has no geometry");
    const json properties = feature.value("properties", json::object());
    if (TypeOf(feature["geometry"]) == "Point") {
      places_.push_back(feature);
    } else {
      TakeLine(feature["geometry"], properties.is_object() ? properties : json::object());
    }
  }
  RoutePoint PointOf(const json& pair) const {
    const std::string at = "point " + std::to_string(line_.size() + 1);
    if (!pair.is_array() || pair.size() < 2 || !pair[0].is_number() || !pair[1].is_number())
      Refuse(at + " is no pair of degrees");
    RoutePoint point;
    point.longitude = pair[0].get<double>();
    point.latitude = pair[1].get<double>();
    if (!(std::abs(point.longitude) <= 180.0 && std::abs(point.latitude) <= 90.0))
      Refuse(at + " is not on earth: longitude comes first, up to 180 degrees, then latitude, up to 90");
    return point;
  }
  void TakeLine(const json& geometry, const json& properties) {
    if (TypeOf(geometry) != "LineString") Refuse("has something that is no LineString and no Point");
    if (!line_.empty()) Refuse("has several lines, and a fibre goes one way");
    if (!geometry.contains("coordinates") || !geometry["coordinates"].is_array())
      Refuse("the line has no points");
    const json& pairs = geometry["coordinates"];
    if (pairs.size() > kMostPoints) Refuse("has more than 100,000 points");
    for (const json& pair : pairs) line_.push_back(PointOf(pair));
    cable_.resize(line_.size());
    for (std::size_t i = 0; i < line_.size(); ++i) {
      cable_[i] = Metres(Entry(properties, "cable_m", i), "cable_m", i);
      line_[i].slackM = Metres(Entry(properties, "slack_m", i), "slack_m", i).value_or(0.0);
      const json name = Entry(properties, "names", i);
      if (name.is_string()) line_[i].name = name.get<std::string>();
    }
  }
  json Entry(const json& properties, const char* key, std::size_t i) const {
    if (!properties.contains(key) || properties[key].is_null()) return nullptr;
    if (!properties[key].is_array() || properties[key].size() != line_.size())
      Refuse(std::string("\"") + key + "\" is no list of as many entries as the line has points");
    return properties[key][i];
  }
  std::optional<double> Metres(const json& value, const char* key, std::size_t i) const {
    if (value.is_null()) return std::nullopt;
    if (!value.is_number() || !(value.get<double>() >= 0.0 && value.get<double>() <= kMostMetres))
      Refuse(std::string("\"") + key + "\" of point " + std::to_string(i + 1) + " is no length in metres");
    return value.get<double>();
  }
  // What stands at a place of its own is taken to stand at the nearest point of the line.
  void AddPlace(const json& feature) {
    const json& geometry = feature["geometry"];
    if (!geometry.contains("coordinates")) Refuse("a Point has no coordinates");
    const RoutePoint place = PointOf(geometry["coordinates"]);
    std::size_t nearest = 0;
    double least = HUGE_VAL;
    for (std::size_t i = 0; i < line_.size(); ++i) {
      const double east = (line_[i].longitude - place.longitude) * std::cos(place.latitude * kDegree);
      const double off = std::hypot(line_[i].latitude - place.latitude, east);
      if (off < least) {
        least = off;
        nearest = i;
      }
    }
    const json properties = feature.value("properties", json::object());
    if (!properties.is_object()) return;
    if (const auto slack = Metres(properties.value("slack_m", json()), "slack_m", nearest))
      line_[nearest].slackM = *slack;
    if (const auto cable = Metres(properties.value("cable_m", json()), "cable_m", nearest))
      cable_[nearest] = cable;
    const json name = properties.value("name", json());
    if (name.is_string()) line_[nearest].name = name.get<std::string>();
  }

  std::string name_;
  std::vector<json> places_;
};

// The length between two neighbouring points on the WGS 84 ellipsoid, by its radii of curvature at the
// latitude between them (good to a millionth over some kilometres).
double LengthM(const RoutePoint& from, const RoutePoint& to) {
  constexpr double kEquatorM = 6378137.0, kSquaredEccentricity = 6.69437999014e-3;
  const double latitude = 0.5 * (from.latitude + to.latitude) * kDegree, sine = std::sin(latitude);
  const double root = std::sqrt(1.0 - kSquaredEccentricity * sine * sine);
  const double across = kEquatorM / root, along = across * (1.0 - kSquaredEccentricity) / (root * root);
  double turn = to.longitude - from.longitude;
  if (turn > 180.0) turn -= 360.0;  // over the date line
  if (turn < -180.0) turn += 360.0;
  return std::hypot(across * std::cos(latitude) * turn * kDegree,
                    along * (to.latitude - from.latitude) * kDegree);
}

RoutePoint Between(const RoutePoint& from, const RoutePoint& to, double share) {
  RoutePoint point;
  double turn = to.longitude - from.longitude;
  if (turn > 180.0) turn -= 360.0;
  if (turn < -180.0) turn += 360.0;
  point.latitude = from.latitude + share * (to.latitude - from.latitude);
  point.longitude = from.longitude + share * turn;
  if (point.longitude > 180.0) point.longitude -= 360.0;
  if (point.longitude < -180.0) point.longitude += 360.0;
  return point;
}

// Cable metres of the points between two that are known: what is left besides slack goes by the length of the
// route. `last` may be not known: then the cable is as long as the route.
void Spread(std::vector<RoutePoint>& points, std::size_t first, std::size_t last, bool lastKnown) {
  double route = 0.0, slack = 0.0;
  for (std::size_t i = first; i < last; ++i) route += LengthM(points[i], points[i + 1]);
  for (std::size_t i = first + 1; i <= last; ++i) slack += points[i].slackM;
  const double cable = points[last].cableM - points[first].cableM - slack;
  const double stretch = lastKnown && route > 0.0 ? cable / route : 1.0;
  const std::size_t end = lastKnown ? last : last + 1;
  for (std::size_t i = first + 1; i < end; ++i)
    points[i].cableM = points[i - 1].cableM + stretch * LengthM(points[i - 1], points[i]) + points[i].slackM;
}

}  // namespace

Route Route::FromGeoJson(const std::string& name, const std::string& text) {
  Reader read(name, text);
  Route route;
  route.points_ = std::move(read.line_);
  route.known_.assign(route.points_.size(), false);
  if (!read.cable_[0]) read.cable_[0] = route.points_[0].slackM;
  std::size_t first = 0;
  for (std::size_t i = 0; i < route.points_.size(); ++i) {
    if (!read.cable_[i]) continue;
    route.known_[i] = true;
    route.points_[i].cableM = *read.cable_[i];
    if (i == 0) continue;
    double slack = 0.0;
    for (std::size_t j = first + 1; j <= i; ++j) slack += route.points_[j].slackM;
    if (route.points_[i].cableM < route.points_[first].cableM + slack)
      throw Error(ErrorKind::kUnreadable, name,
                  "the cable metres of point " + std::to_string(i + 1) +
                      " are fewer than those before it and the slack between");
    Spread(route.points_, first, i, true);
    first = i;
  }
  if (first + 1 < route.points_.size()) Spread(route.points_, first, route.points_.size() - 1, false);
  return route;
}

double Route::CableM() const { return points_.back().cableM; }

// The point at so many metres of cable. What lies in a coil is where the coil is.
RoutePoint Route::PointAt(double cableM) const {
  if (cableM <= points_.front().cableM) return points_.front();
  std::size_t next = 1;
  while (next < points_.size() && points_[next].cableM < cableM) ++next;
  if (next == points_.size()) return points_.back();
  const RoutePoint& from = points_[next - 1];
  const RoutePoint& to = points_[next];
  const double stretch = to.cableM - to.slackM - from.cableM;
  RoutePoint point = Between(from, to, stretch > 0.0 ? std::min(1.0, (cableM - from.cableM) / stretch) : 1.0);
  point.cableM = cableM;
  return point;
}

// Between two known points a place is least sure in the middle, and behind the last one ever less so.
double Route::UnknownSdM(double cableM) const {
  double before = 0.0;
  for (std::size_t i = 0; i < points_.size(); ++i) {
    if (!known_[i]) continue;
    if (points_[i].cableM >= cableM) {
      const double span = points_[i].cableM - before, share = span > 0.0 ? (cableM - before) / span : 0.0;
      return kUnknownShare * span * std::sqrt(std::max(0.0, share * (1.0 - share)));
    }
    before = points_[i].cableM;
  }
  return kUnknownShare * (cableM - before);
}

RoutePlace Route::At(double fibreKm, double sdKm, double fibrePerCable) const {
  const double cableM = fibreKm * kMetresPerKm / fibrePerCable;
  const RoutePoint point = PointAt(cableM);
  RoutePlace place;
  place.latitude = point.latitude;
  place.longitude = point.longitude;
  place.sdM = std::hypot(std::hypot(sdKm * kMetresPerKm, kIndexShare * cableM), UnknownSdM(cableM));
  place.onRoute = cableM >= -kDeviations95 * place.sdM && cableM <= CableM() + kDeviations95 * place.sdM;
  const double from = cableM - kDeviations95 * place.sdM, to = cableM + kDeviations95 * place.sdM;
  place.stretch.push_back(PointAt(from));
  double nearest = HUGE_VAL;
  for (const RoutePoint& one : points_) {
    if (one.cableM > from && one.cableM < to) place.stretch.push_back(one);
    if (one.name.empty() || std::abs(cableM - one.cableM) >= nearest) continue;
    nearest = std::abs(cableM - one.cableM);
    place.near = one.name;
    place.nearM = cableM - one.cableM;
  }
  place.stretch.push_back(PointAt(to));
  return place;
}

}  // namespace reflyze::watch
