// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "measure/PulseResponse.h"

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

// A parameter of the model, and by how much the power at a point grows with it.
struct Derivative {
  int parameter;
  double value;
};

// Numbers of the parameters: four of each place and the section behind it, and that of the receiver last.
enum class Parameter { kPlace, kReflection, kLevel, kDecay };
inline int NumberOf(std::size_t place, Parameter parameter) {
  return static_cast<int>(4 * place) + static_cast<int>(parameter);
}

// The model, made ready to be asked for many points.
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
  At PowerAndSlopes(double km, std::vector<Derivative>& derivatives) const;

  double LineAt(std::size_t section, double km) const;  // power of a settled line
  double SettledKm() const;
  double DelayKm() const { return pulse_.DelayKm() + model_.slowShare * (model_.slowKm - model_.riseKm); }

 private:
  // A section as both paths of the receiver show it.
  struct Fibre {
    FibreResponse fast, slow;
  };
  std::size_t FirstSeen(double km) const;  // the first section whose light has not gone from the receiver
  double TailOf(const LinkModel::Place& place, double s) const;
  double OfPoint(double s) const;
  double SlopeOfPoint(double s) const;
  double OfFibre(const Fibre& fibre, double t) const;
  double SectionAt(std::size_t section, const Fibre& fibre, double decay, double km) const;
  void AddDecay(std::size_t section, double km, double power, std::vector<Derivative>& derivatives) const;

  const LinkModel& model_;
  PulseResponse pulse_, slow_;
  std::vector<Fibre> fibres_, steeper_;
};

}  // namespace reflyze
