// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reflyze/error.h"
#include "watch/route/Ellipsoid.h"
#include "watch/route/Route.h"

namespace reflyze::watch {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestRoute = 8u << 20;
constexpr std::size_t kMostPoints = 100000, kMostFeatures = 1000;
constexpr int kMostDepth = 16;
constexpr std::size_t kMostNameBytes = 500;
constexpr double kMostM = 1e8;         // of cable; round the earth is 4e7
constexpr double kMostDegrees = 10.0;  // between two points: 1100 km without a turn
constexpr double kFurthestM = 1000;    // a Point from the line
constexpr double kSameM = 1.0;         // a Point so near a point of the line is that point

[[noreturn]] void Fail(const std::string& sentence) { throw Error(ErrorKind::kUnreadable, "", sentence); }

double NumberOf(const json& value, const std::string& where) {
  // A number as text may be one in another notation; nobody should guess.
  if (!value.is_number()) Fail(where + " is no number");
  const double number = value.get<double>();
  if (!std::isfinite(number) || std::fabs(number) > kMostM) Fail(where + " is out of range");
  return number;
}

double MetresOf(const json& value, const std::string& where) {
  const double metres = NumberOf(value, where);
  if (metres < 0.0) Fail(where + " is negative");
  return metres;
}

std::string NameFrom(const json& value, const std::string& where) {
  if (!value.is_string()) Fail(where + " is no text");
  std::string name = value.get<std::string>();
  if (name.size() > kMostNameBytes) Fail(where + " is too long");
  return name;
}

Spot SpotFrom(const json& position, const std::string& where) {
  if (!position.is_array() || position.size() < 2 || position.size() > 8)
    Fail(where + " is no longitude and latitude");
  const Spot spot = {NumberOf(position[1], where + ": latitude"),
                     NumberOf(position[0], where + ": longitude")};
  if (std::fabs(spot.latitude) > 90.0) Fail(where + ": latitude is out of range");
  if (std::fabs(spot.longitude) > 180.0) Fail(where + ": longitude is out of range");
  return spot;
}

bool AreNear(const Spot& a, const Spot& b) {
  return std::fabs(a.latitude - b.latitude) <= kMostDegrees &&
         std::fabs(std::remainder(a.longitude - b.longitude, 360.0)) <= kMostDegrees;
}

// Something that stands at the line, or what is known of a point of it.
struct Mark {
  Spot spot;
  std::optional<double> cableM;
  double slackM = 0.0;
  std::string name;
};

// The texts of GeoJSON, as a line of marks and marks beside it.
class Reader {
 public:
  std::vector<Mark> line, beside;
  double cablePerRoute = 0.0;  // 0 for not given

  void Read(const json& root) {
    if (!root.is_object()) Fail("it is no GeoJSON");
    const std::string type = TypeOf(root);
    if (type == "FeatureCollection") {
      const auto features = root.find("features");
      if (features == root.end() || !features->is_array()) Fail("its FeatureCollection has no features");
      for (const json& feature : *features) ReadFeature(feature);
    } else if (type == "Feature") {
      ReadFeature(root);
    } else {
      ReadGeometry(root, json::object());
    }
    if (line.empty()) Fail("it has no LineString");
  }

 private:
  static std::string TypeOf(const json& object) {
    const auto type = object.find("type");
    if (type == object.end() || !type->is_string()) Fail("it is no GeoJSON: a type is missing");
    return type->get<std::string>();
  }

  void ReadFeature(const json& feature) {
    if (!feature.is_object() || TypeOf(feature) != "Feature") Fail("one of its features is none");
    const auto geometry = feature.find("geometry"), properties = feature.find("properties");
    if (geometry == feature.end() || !geometry->is_object()) return;
    const bool any = properties != feature.end() && properties->is_object();
    ReadGeometry(*geometry, any ? *properties : json::object());
  }

  void ReadGeometry(const json& geometry, const json& properties) {
    const std::string type = TypeOf(geometry);
    if (type == "MultiLineString") Fail("its line is in several parts");
    if (type != "LineString" && type != "Point") return;  // areas and the like are for maps
    const auto coordinates = geometry.find("coordinates");
    if (coordinates == geometry.end() || !coordinates->is_array())
      Fail("its " + type + " has no coordinates");
    if (type == "LineString") {
      ReadLine(*coordinates, properties);
    } else {
      ReadPoint(*coordinates, properties);
    }
  }

  void ReadLine(const json& coordinates, const json& properties) {
    if (!line.empty()) Fail("it has several lines");
    if (coordinates.size() < 2) Fail("its line has fewer than two points");
    if (coordinates.size() > kMostPoints) Fail("its line has more than 100,000 points");
    for (const json& position : coordinates) {
      const std::string where = "point " + std::to_string(line.size() + 1) + " of its line";
      line.push_back({SpotFrom(position, where), {}, 0.0, {}});
      if (line.size() > 1 && !AreNear(line[line.size() - 2].spot, line.back().spot))
        Fail(where + " is more than 10 degrees from that before it");
    }
    ReadLists(properties);
    const auto ratio = properties.find("cable_per_route");
    if (ratio == properties.end() || ratio->is_null()) return;
    cablePerRoute = NumberOf(*ratio, "\"cable_per_route\"");
    if (cablePerRoute < 0.5 || cablePerRoute > 2.0) Fail("\"cable_per_route\" is not from 0.5 to 2");
  }

  void ReadLists(const json& properties) {
    const auto forEach = [&](const char* key, const auto& take) {
      const auto list = properties.find(key);
      if (list == properties.end() || list->is_null()) return;
      if (!list->is_array() || list->size() != line.size())
        Fail(std::string("\"") + key + "\" is no list of one value for each point of its line");
      for (std::size_t i = 0; i < line.size(); ++i) {
        const json& value = (*list)[i];
        if (!value.is_null()) take(line[i], value, "\"" + std::string(key) + "\" " + std::to_string(i + 1));
      }
    };
    forEach("cable_m", [](Mark& mark, const json& value, const std::string& where) {
      mark.cableM = MetresOf(value, where);
    });
    forEach("slack_m", [](Mark& mark, const json& value, const std::string& where) {
      mark.slackM = MetresOf(value, where);
    });
    forEach("names", [](Mark& mark, const json& value, const std::string& where) {
      mark.name = NameFrom(value, where);
    });
  }

  void ReadPoint(const json& position, const json& properties) {
    if (beside.size() >= kMostFeatures) Fail("it has more than 1000 Points");
    const std::string where = "Point " + std::to_string(beside.size() + 1);
    Mark mark;
    mark.spot = SpotFrom(position, where);
    const auto given = [&](const char* key) {
      const auto value = properties.find(key);
      return value == properties.end() || value->is_null() ? nullptr : &*value;
    };
    if (const json* value = given("cable_m")) mark.cableM = MetresOf(*value, where + ": \"cable_m\"");
    if (const json* value = given("slack_m")) mark.slackM = MetresOf(*value, where + ": \"slack_m\"");
    if (const json* value = given("name")) mark.name = NameFrom(*value, where + ": \"name\"");
    if (mark.cableM || mark.slackM > 0.0 || !mark.name.empty()) beside.push_back(std::move(mark));
  }
};

// A mark between two points of the line.
struct Between {
  std::size_t segment;  // by its first point
  double alongM;
  Mark mark;
};

Between NearestOn(const std::vector<Mark>& line, const Mark& mark, std::size_t number) {
  const Surroundings around(mark.spot);
  constexpr double kNearDegrees = 0.01;  // of latitude: more than kFurthestM
  Between nearest = {0, 0.0, mark};
  double least = kFurthestM;
  bool found = false;
  for (std::size_t i = 0; i + 1 < line.size(); ++i) {
    const double a = line[i].spot.latitude - mark.spot.latitude;
    const double b = line[i + 1].spot.latitude - mark.spot.latitude;
    if (std::min(a, b) > kNearDegrees || std::max(a, b) < -kNearDegrees) continue;
    const Surroundings::Foot foot = around.FootOn(line[i].spot, line[i + 1].spot);
    if (foot.awayM > least) continue;
    least = foot.awayM;
    nearest.segment = i;
    nearest.alongM = foot.alongM;
    found = true;
  }
  if (!found) Fail("Point " + std::to_string(number) + " is more than 1 km from its line");
  return nearest;
}

void Join(Mark& at, const Mark& mark) {
  if (mark.cableM) at.cableM = mark.cableM;
  at.slackM += mark.slackM;
  if (!mark.name.empty()) at.name = mark.name;
}

// The line with the marks that stand beside it.
std::vector<Mark> Joined(std::vector<Mark> line, const std::vector<Mark>& beside) {
  std::vector<Between> between;
  for (std::size_t i = 0; i < beside.size(); ++i) {
    Between one = NearestOn(line, beside[i], i + 1);
    const double length = LengthOf(line[one.segment].spot, line[one.segment + 1].spot);
    if (one.alongM <= kSameM) {
      Join(line[one.segment], one.mark);
    } else if (one.alongM >= length - kSameM) {
      Join(line[one.segment + 1], one.mark);
    } else {
      between.push_back(std::move(one));
    }
  }
  std::stable_sort(between.begin(), between.end(), [](const Between& a, const Between& b) {
    return a.segment != b.segment ? a.segment < b.segment : a.alongM < b.alongM;
  });
  std::vector<Mark> joined;
  auto next = between.begin();
  for (std::size_t i = 0; i < line.size(); ++i) {
    joined.push_back(line[i]);
    for (; next != between.end() && next->segment == i; ++next) {
      next->mark.spot = SpotAlong(line[i].spot, line[i + 1].spot, next->alongM);
      joined.push_back(next->mark);
    }
  }
  return joined;
}

// What is nested deeply is copied by a function that calls itself as often. The parser could ask at each
// value how deep it is, but then it goes through a whole list at the end of each object in it: minutes for a
// list of many.
void LookOver(const std::string& text) {
  int depth = 0;
  bool inText = false, escaped = false;
  for (const char letter : text) {
    if (inText) {
      inText = escaped || letter != '"';
      escaped = !escaped && letter == '\\';
    } else if (letter == '"') {
      inText = true;
    } else if (letter == '[' || letter == '{') {
      if (++depth > kMostDepth) Fail("it is nested too deeply");
    } else if (letter == ']' || letter == '}') {
      --depth;
    }
  }
}

json Parsed(const std::string& text) {
  if (text.size() > kLargestRoute) Fail("it is larger than 8 MB");
  LookOver(text);
  try {
    return json::parse(text);
  } catch (const json::parse_error& error) {
    throw Error(ErrorKind::kUnreadable, "", "it is no JSON", "", static_cast<long long>(error.byte));
  } catch (const json::exception&) {  // a number that no double holds
    Fail("it is no JSON that can be used");
  }
}

}  // namespace

Route Route::FromGeoJson(const std::string& name, const std::string& text) {
  try {
    Reader reader;
    reader.Read(Parsed(text));
    std::vector<RoutePoint> points;
    std::vector<bool> known;
    for (const Mark& mark : Joined(std::move(reader.line), reader.beside)) {
      points.push_back(
          {mark.spot.latitude, mark.spot.longitude, mark.cableM.value_or(0.0), mark.slackM, mark.name});
      known.push_back(mark.cableM.has_value());
    }
    return Route(std::move(points), std::move(known), reader.cablePerRoute);
  } catch (const Error& error) {
    throw Error(error.kind(), name, error.sentence(), "", error.offset());
  }
}

}  // namespace reflyze::watch
