// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "measure/PulseResponse.h"
#include "util/quickExp.h"

namespace reflyze {

// A fibre link as its trace shows it, on the scale of linear power: sections that scatter light back, each
// with its own line, between places at which light is lost and reflected. Places are km from the first point.
struct LinkModel {
  struct Place {
    double km = 0.0;
    double reflection = 0.0;  // power, 0 for none
    bool reflects = false;    // whether that is to be found
  };
  struct Section {
    double level = 0.0;       // natural logarithm of the power of its settled line at `anchorKm`
    double decayPerKm = 0.0;  // by which that falls, nepers a km
    double anchorKm = 0.0;    // fixed
  };

  std::vector<Place> places;      // launch, events, end
  std::vector<Section> sections;  // one fewer
  double pulseKm = 0.0, riseKm = 0.0;
  // A second, slow path of the receiver, which a share of all light takes; the share is below 0 where it
  // undershoots.
  double slowShare = 0.0, slowKm = 0.1;
  double droopPerKm = 0.0;     // of the pulse; see PulseResponse
  bool wholeReceiver = false;  // whether slow path and droop are to be found
};

// Numbers of the parameters: four of each place and the section behind it, and that of the receiver last.
enum class Parameter { kPlace, kReflection, kLevel, kDecay };
inline int NumberOf(std::size_t place, Parameter parameter) {
  return static_cast<int>(4 * place) + static_cast<int>(parameter);
}

// By how much the power at a point grows with each parameter of the model.
struct Slopes {
  struct OfPlace {
    std::size_t place;
    double by[4];  // in the order of Parameter
  };

  void Begin() {
    count = 0;
    ofReceiver = false;
    for (double& slope : receiver) slope = 0.0;
  }
  // Room for the next place; the pointer holds until the next call.
  double* Add(std::size_t place) {
    if (places.size() == count) places.emplace_back();
    OfPlace& slopes = places[count++];
    slopes.place = place;
    for (double& by : slopes.by) by = 0.0;
    return slopes.by;
  }

  std::vector<OfPlace> places;  // that are seen, along the fibre; the first `count`
  std::size_t count = 0;
  bool ofReceiver = false;                    // whether the receiver shows
  double receiver[4] = {0.0, 0.0, 0.0, 0.0};  // logarithm of its rise; share and logarithm of its slow path;
                                              // loss of the laser in a pulse
};

// The model, made ready to be asked for many points.
//
// A fibre from x that falls by `decay` a km scatters, with G = Growth(decay - droop, width) and the line L(z)
// = exp(level - decay (z - anchor)) of the settled light, L(x) / G (D(s) - H(s)) to a point s = z - x behind
// its begin:
//   D(s) = exp(-decay s) Growth(decay - droop, min(s, width)) is what an infinitely fast receiver shows,
//   H(s) = the sum over the paths of the receiver of share rise g(s) is what it still lacks.
// (The integral of exp(-decay (s - u)) g(u) du, with g of PulseResponse, over its value where s is large.)
// Behind the pulse the first part is the line itself, so of a place there remain H and g. A section is a
// fibre from its begin, less the one from its end.
class LinkPower {
 public:
  explicit LinkPower(const LinkModel& model);

  struct At {
    double power = 0.0;
    double transient =
        0.0;  // the part of it that is no settled line, and what may be left of bright reflections
  };
  // Power at a point, without noise.
  At Power(double km) const;
  // The same with its derivatives.
  At PowerAndSlopes(double km, Slopes& slopes) const;

  // Power of a settled line.
  double LineAt(std::size_t section, double km) const {
    const LinkModel::Section& line = model_.sections[section];
    return elementary::QuickExp(line.level - line.decayPerKm * (km - line.anchorKm));
  }
  double DelayKm() const { return pulse_.DelayKm() + model_.slowShare * (model_.slowKm - model_.riseKm); }

 private:
  // The fibre on one side of a place.
  struct Side {
    double density = 0.0;  // L(x) / G: light scattered a km, as the receiver shows it; 0 for no fibre
    double decay = 0.0, grows = 0.0;      // its G, by the decay, as a share
    double perGrowth = 0.0;               // 1 / G
    double awayKm = 0.0, anchorKm = 0.0;  // of the place from the anchor
  };
  struct Seen {
    double km, reflection;
    bool reflects;
    Side front, behind;
    double lost;       // density in front less that behind
    double untilKm;    // where its light is gone from the receiver
    double lastKm;     // where that of the section behind it is gone, too
    double allGoneKm;  // the same of all places up to this one
  };
  // What a fast receiver shows of a side within the pulse, with its derivatives.
  struct Begun {
    double light, byDecay, byDroop;
  };
  // What a place sends, and what the receiver lacks of it.
  struct Shown {
    double g, h;
  };

  Side SideOf(std::size_t section, double km) const;
  double UntilKm(const Seen& place) const;
  std::size_t FirstSeen(double km) const;  // the first place whose light has not gone from the receiver
  bool HasPassed(std::size_t section, double km) const;
  double Driven(double s) const;
  double TailOf(const Seen& place, double s) const;
  Shown ShownOf(double s, double driven) const;
  double BegunLight(const Side& side, double s, double driven, double line) const;
  Begun BegunSlopes(const Side& side, double s, double driven, double line) const;
  static void AddSide(const Side& side, double sign, double h, const Begun& begun, double* levelAndDecay);
  Shown AddShown(const Seen& place, double s, double driven, double* own, Slopes& slopes) const;

  const LinkModel& model_;
  PulseResponse pulse_, slow_;
  bool hasSlow_;  // or may have
  double tailPerKm_;
  std::vector<Seen> seen_;
};

}  // namespace reflyze
