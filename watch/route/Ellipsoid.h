// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace reflyze::watch {

struct Spot {
  double latitude = 0.0, longitude = 0.0;  // degrees, WGS 84
};

// Metres along the line between two spots that is straight in degrees, as GeoJSON means it.
double LengthOf(const Spot& from, const Spot& to);
// The spot on that line so many metres from its beginning; one of its ends where that is outside.
Spot SpotAlong(const Spot& from, const Spot& to, double metres);

// The surroundings of a spot, seen flat.
class Surroundings {
 public:
  explicit Surroundings(const Spot& spot);
  // The nearest spot of a line: how far along it is, and how far away. Good to a thousandth within 10 km; of
  // a line further away it is only true that it is far.
  struct Foot {
    double alongM = 0.0, awayM = 0.0;
  };
  Foot FootOn(const Spot& from, const Spot& to) const;

 private:
  Spot spot_;
  double north_, east_;  // metres a degree
};

}  // namespace reflyze::watch
