// SPDX-License-Identifier: Apache-2.0
// A place on a fibre as a place on earth.
#include <gtest/gtest.h>

#include <cmath>

#include "reflyze/error.h"
#include "watch/route/Route.h"

namespace reflyze::watch {
namespace {

// A thousandth of a degree of latitude at 50 degrees is 111.229 m (WGS 84).
constexpr double kStepM = 111.229;

Route Read(const std::string& text) { return Route::FromGeoJson("route", text); }

TEST(Route, CountsMetresOnTheEllipsoid) {
  const Route north = Read(R"({"type":"LineString","coordinates":[[8,50],[8,50.001],[8,50.003]]})");
  EXPECT_NEAR(north.CableM(), 3 * kStepM, 0.01);
  const RoutePlace place = north.At(2 * kStepM / 1000, 0.003);
  EXPECT_NEAR(place.latitude, 50.002, 1e-6);
  EXPECT_NEAR(place.longitude, 8.0, 1e-9);
  EXPECT_TRUE(place.onRoute);
  EXPECT_FALSE(north.At(0.5, 0.001).onRoute);
  // A degree of longitude at the equator is 111.3195 km; over the date line it is no longer.
  const Route dateline = Read(R"({"type":"LineString","coordinates":[[179.9,0],[-179.9,0]]})");
  EXPECT_NEAR(dateline.CableM(), 0.2 * 111319.49, 0.1);
  EXPECT_NEAR(std::abs(dateline.At(dateline.CableM() / 2000, 0).longitude), 180.0, 1e-6);
}

TEST(Route, LeavesWhatIsCoiledWhereItIs) {
  const Route route = Read(R"({"type":"FeatureCollection","features":[
    {"type":"Feature","properties":{"slack_m":[0,40,0],"names":["exchange","manhole 7",null]},
     "geometry":{"type":"LineString","coordinates":[[8,50],[8,50.001],[8,50.002]]}},
    {"type":"Feature","properties":{"name":"cabinet","slack_m":10},
     "geometry":{"type":"Point","coordinates":[8.0001,50.002]}}]})");
  EXPECT_NEAR(route.CableM(), 2 * kStepM + 50, 0.01);
  for (const double into : {1.0, 20.0, 39.0}) {
    const RoutePlace place = route.At((kStepM + into) / 1000, 0.0);
    EXPECT_NEAR(place.latitude, 50.001, 1e-9) << into;
    EXPECT_EQ(place.near, "manhole 7");
  }
  EXPECT_NEAR(route.At((kStepM + 40 + kStepM / 2) / 1000, 0).latitude, 50.0015, 1e-6);
  EXPECT_EQ(route.At(route.CableM() / 1000, 0).near, "cabinet");
}

TEST(Route, IsSureWhereCableMetresAreKnown) {
  const Route route = Read(R"({"type":"Feature","properties":{"cable_m":[0,null,12000,null]},
    "geometry":{"type":"LineString","coordinates":[[8,50],[8,50.05],[8,50.1],[8,50.2]]}})");
  // The cable is longer than the route, evenly.
  EXPECT_NEAR(route.At(6.0, 0).latitude, 50.05, 1e-4);
  const double known = route.At(12.0, 0.001).sdM, middle = route.At(6.0, 0.001).sdM;
  EXPECT_NEAR(known, std::hypot(1.0, 2e-4 * 12000), 1e-6);
  EXPECT_GT(middle, 10 * known);
  EXPECT_GT(route.At(20.0, 0.001).sdM, middle);
  // The stretch is as long as the uncertainty says, and lies on both sides.
  const RoutePlace place = route.At(12.0, 0.1);
  EXPECT_NEAR(place.stretch.back().cableM - place.stretch.front().cableM, 2 * 1.96 * place.sdM, 1.0);
  EXPECT_EQ(place.stretch.size(), 3u);  // with the corner between
  // More fibre than cable: the place is nearer.
  EXPECT_LT(route.At(6.0, 0, 1.02).latitude, route.At(6.0, 0).latitude);
}

TEST(Route, SaysWhatIsWrong) {
  for (
      const char* text :
      {"", "no json", "[]", "{}", "null", R"({"type":"LineString"})",
       R"({"type":"LineString","coordinates":[]})", R"({"type":"LineString","coordinates":[[8,50]]})",
       R"({"type":"LineString","coordinates":[[8,50],[8,91]]})",
       R"({"type":"LineString","coordinates":[[8,50],["8",50]]})",
       R"({"type":"LineString","coordinates":[[8,50],[1e999,50]]})",
       R"({"type":"FeatureCollection","features":7})", R"({"type":"Feature","geometry":null})",
       R"({"type":"Polygon","coordinates":[[8,50],[9,50]]})",
       R"({"type":"Feature","properties":{"cable_m":[0]},"geometry":{"type":"LineString","coordinates":[[8,50],[8,51]]}})",
       R"({"type":"Feature","properties":{"cable_m":[9,3]},"geometry":{"type":"LineString","coordinates":[[8,50],[8,51]]}})",
       R"({"type":"Feature","properties":{"slack_m":[0,-3]},"geometry":{"type":"LineString","coordinates":[[8,50],[8,51]]}})"})
    EXPECT_THROW(Read(text), Error) << text;
  EXPECT_THROW(Read(std::string(5000000, '[')), Error);
}

}  // namespace
}  // namespace reflyze::watch
