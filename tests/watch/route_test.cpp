// SPDX-License-Identifier: Apache-2.0

// Places on earth by metres of fibre.

#include "watch/route/Route.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>

#include "reflyze/error.h"
#include "watch/route/Ellipsoid.h"

namespace reflyze::watch {
namespace {

// Geodesics of WGS 84 by published figures: a degree of longitude on the equator, a quarter of a meridian,
// and degrees of latitude and longitude at 45 degrees.
TEST(EllipsoidTest, LengthsAreThoseOfTheEarth) {
  EXPECT_NEAR(LengthOf({0, 10}, {0, 11}), 111319.491, 0.001);
  EXPECT_NEAR(LengthOf({0, 20}, {90, 20}), 10001965.729, 0.05);
  EXPECT_NEAR(LengthOf({44.5, 7}, {45.5, 7}), 111131.779, 0.003);
  EXPECT_NEAR(LengthOf({45, 179.5}, {45, -179.5}), 78846.835, 0.01);  // across the date line
  const Spot from = {60.1, 24.9}, to = {61.4, 23.7};
  const double length = LengthOf(from, to);
  for (const double share : {0.0, 0.2, 0.5, 0.97, 1.0}) {
    const Spot spot = SpotAlong(from, to, share * length);
    EXPECT_NEAR(LengthOf(from, spot), share * length, 0.2);
    EXPECT_NEAR(LengthOf(spot, to), (1.0 - share) * length, 0.2);
  }
}

// A degree of longitude on the equator is 111319.491 m, so that metres along it are easily told.
constexpr double kDegreeM = 111319.490793;
std::string Line(const std::string& properties, const std::string& features = "") {
  return R"({"type":"FeatureCollection","features":[{"type":"Feature","properties":{)" + properties +
         R"(},"geometry":{"type":"LineString","coordinates":[[0,0],[0.01,0],[0.02,0,35.5],[0.1,0]]}})" +
         features + "]}";
}

TEST(RouteTest, CableRunsEvenlyBetweenKnownPointsAndWaitsInCoils) {
  // 2226.4 m of route have 2300 m of cable, 50 of them coiled at the second point.
  const Route route =
      Route::FromGeoJson("a", Line(R"("cable_m":[100,null,2400,null],"slack_m":[0,50,null,0],)"
                                   R"("names":["hut",null,"M2",null],"cable_per_route":1.02)"));
  const double perDegree = 2250.0 / 0.02;
  EXPECT_NEAR(route.At(0.05, 0).longitude, 0.0, 1e-9);  // in the hut
  EXPECT_NEAR(route.At(0.1 + 0.5625, 0).longitude, 0.5625e3 / perDegree, 1e-8);
  for (const double km : {1.226, 1.25, 1.274}) EXPECT_NEAR(route.At(km, 0).longitude, 0.01, 1e-9) << km;
  EXPECT_NEAR(route.At(1.275 + 0.5625, 0).longitude, 0.015, 1e-8);
  EXPECT_NEAR(route.At(2.4 + 1.02, 0).longitude, 0.02 + 1000.0 / kDegreeM, 1e-8);
  EXPECT_NEAR(route.CableM(), 2400 + 1.02 * 0.08 * kDegreeM, 0.01);
  EXPECT_NEAR(route.At(2.424, 0, 1.01).longitude, 0.02, 1e-9);  // fibre 1 % longer than cable

  const RoutePlace place = route.At(2.4 + 0.102, 0);
  EXPECT_EQ(place.near, "M2");
  EXPECT_NEAR(place.nearM, 100.0, 0.01);
  EXPECT_EQ(route.At(0.9, 0).near, "hut");
  EXPECT_LT(route.At(2.0, 0).nearM, 0.0);
}

TEST(RouteTest, PointsBesideTheLineJoinIt) {
  const char* kClosure =
      R"(,{"type":"Feature","properties":{"name":"C7","slack_m":30,"cable_m":%s},)"
      R"("geometry":{"type":"Point","coordinates":[0.05,0.0002]}},{"type":"Feature","properties":{"name":"end"},)"
      R"("geometry":{"type":"Point","coordinates":[0.1000001,0]}})";
  char features[500];
  std::snprintf(features, sizeof features, kClosure, "6030");
  const Route route = Route::FromGeoJson("a", Line("", features));
  ASSERT_EQ(route.Points().size(), 5u);
  EXPECT_NEAR(route.Points()[3].longitude, 0.05, 1e-9);
  EXPECT_EQ(route.Points()[3].cableM, 6030.0);
  EXPECT_EQ(route.Points()[4].name, "end");
  EXPECT_NEAR(route.At(3.0, 0).longitude, 0.025, 1e-8);
  // Behind it, the cable runs as before it.
  EXPECT_NEAR(route.CableM(), 12030.0, 0.1);
  // A coil of 30 m is more than the cable up to it.
  std::snprintf(features, sizeof features, kClosure, "29");
  EXPECT_THROW(Route::FromGeoJson("a", Line("", features)), Error);
}

TEST(RouteTest, UncertaintyIsLeastAtKnownPointsAndLargestBetween) {
  const Route route = Route::FromGeoJson("a", Line(R"("cable_m":[0,null,2300,11500])"));
  EXPECT_NEAR(route.At(2.3, 0.003).sdM, std::hypot(3.0, 0.23), 1e-6);
  EXPECT_NEAR(route.At(11.5, 0.003).sdM, std::hypot(3.0, 1.15), 1e-6);
  double before = 0.0;
  for (double km = 2.3; km < 6.8; km += 0.5) {
    const double sdM = route.At(km, 0.0).sdM;
    EXPECT_GT(sdM, before);
    before = sdM;
  }
  EXPECT_GT(route.At(6.9, 0).sdM, route.At(10.0, 0).sdM);
  // Nothing is known behind 2.3 km: the same place is much less certain.
  const Route open = Route::FromGeoJson("a", Line(R"("cable_m":[0,null,2300,null])"));
  EXPECT_GT(open.At(10.0, 0).sdM, 4.0 * route.At(10.0, 0).sdM);

  // The stretch holds 95 %, with the points in it.
  const RoutePlace place = route.At(2.3, 0.02);
  ASSERT_EQ(place.stretch.size(), 3u);
  EXPECT_NEAR(place.stretch.back().cableM - place.stretch.front().cableM, 2 * 1.96 * place.sdM, 1e-6);
  EXPECT_EQ(place.stretch[1].longitude, 0.02);
  EXPECT_TRUE(route.At(11.51, 0.01).onRoute);
  EXPECT_FALSE(route.At(11.6, 0.01).onRoute);
  EXPECT_NEAR(route.At(11.6, 0.01).longitude, 0.1, 1e-9);
  EXPECT_FALSE(route.At(-0.1, 0.01).onRoute);
  EXPECT_THROW(route.At(std::nan(""), 0.0), Error);
}

TEST(RouteTest, WhatIsNoRouteIsRefusedWithTheReason) {
  const std::string tooMany = [] {
    std::string text = R"({"type":"LineString","coordinates":[[0,0])";
    for (int i = 0; i < 100000; ++i) text += ",[1,1]";
    return text + "]}";
  }();
  const struct {
    std::string text, says;
  } kCases[] = {
      {"", "no JSON"},
      {"[]", "no GeoJSON"},
      {"{}", "type"},
      {R"({"type":"LineString","coordinates":[[0,0]]})", "fewer than two"},
      {R"({"type":"LineString","coordinates":[[0,0],[0,0]]})", "are one"},
      {R"({"type":"LineString","coordinates":[[0,0],["1",0]]})",
       "point 2 of its line: longitude is no number"},
      {R"({"type":"LineString","coordinates":[[0,0],[1,90.1]]})", "latitude is out of range"},
      {R"({"type":"LineString","coordinates":[[0,0],[181,0]]})", "longitude is out of range"},
      {R"({"type":"LineString","coordinates":[[0,0],[11,0]]})",
       "point 2 of its line is more than 10 degrees"},
      {R"({"type":"LineString","coordinates":[[0,0],[1e999,0]]})", "no JSON"},
      {R"({"type":"LineString","coordinates":[[0,0],[NaN,0]]})", "no JSON"},
      {R"({"type":"LineString","coordinates":{"0":[0,0]}})", "no coordinates"},
      {R"({"type":"MultiLineString","coordinates":[[[0,0],[1,1]]]})", "several parts"},
      {R"({"type":"Polygon","coordinates":[]})", "no LineString"},
      {R"({"type":"FeatureCollection","features":7})", "no features"},
      {R"({"type":"Feature","geometry":null})", "no LineString"},
      {Line(R"("cable_m":[0,1000,900,null])"), "fewer than those before"},
      {Line(R"("cable_m":[0,1000])"), "one value for each point"},
      {Line(R"("cable_m":[0,"1000",null,null])"), "\"cable_m\" 2 is no number"},
      {Line(R"("cable_m":[0,-5,null,null])"), "negative"},
      {Line(R"("cable_m":[0,0,0,0])"), "no metre of cable"},
      {Line(R"("slack_m":[0,2000,0,0],"cable_m":[0,null,1500,null])"), "coiled"},
      {Line(R"("names":[1,2,3,4])"), "no text"},
      {Line(R"("cable_per_route":1e6)"), "cable_per_route"},
      {Line(
           "",
           R"(,{"type":"Feature","properties":{"name":"x"},"geometry":{"type":"Point","coordinates":[1,1]}})"),
       "1 km"},
      {std::string(100000, '['), "nested"},
      {R"({"a":)" + std::string(2000, '['), "nested"},
      {R"({"\"":)" + std::string(2000, '['), "nested"},  // a quote in a text does not end it
      {std::string(9u << 20, ' '), "8 MB"},
      {tooMany, "100,000"},
      {std::string("{\"type\":\"\xff\xfe\"}"), "no JSON"},
  };
  for (const auto& one : kCases) {
    try {
      Route::FromGeoJson("fibre-1", one.text);
      ADD_FAILURE() << one.text.substr(0, 100);
    } catch (const Error& error) {
      EXPECT_EQ(error.kind(), ErrorKind::kUnreadable);
      EXPECT_EQ(error.file(), "fibre-1");
      EXPECT_NE(error.sentence().find(one.says), std::string::npos) << one.says << ": " << error.what();
    }
  }
}

// A parser that goes through the list at each of its objects takes a minute for these.
TEST(RouteTest, ManySmallObjectsTakeNoTime) {
  std::string text = R"({"type":"LineString","coordinates":[[8,50],[8,51]],"x":[{})";
  for (int i = 0; i < 400000; ++i) text += ",{}";
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(Route::FromGeoJson("fibre-1", text + "]}").Points().size(), 2u);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
}

}  // namespace
}  // namespace reflyze::watch
