// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "sim/Link.h"

namespace reflyze::sim {

// Linear power on the scale on which 1 is the level 0 dB: level = 5 log10(power).
double PowerOfLevel(double levelDb);
double LevelOfPower(double power);

// Length of fibre that light passes there and back in a time, km per ns.
double KmPerNs(double groupIndex);

// One place where light is reflected, or an echo of two such places.
struct Reflector {
  double positionKm = 0.0;
  double power = 0.0;  // at the receiver, linear
};

// The noise-free power at the receiver's input and output. A position stands for the time at which light of
// the pulse's front comes back from there.
//
// The pulse is rectangular, of a length in the fibre of c T / (2 n). At the position z its front returns from
// z and its back from one pulse length before, so the receiver sees the backscatter of that stretch,
// exponential in each section, and every reflection on it. Reflectance R and height h are tied by
//
//   R = Bc + 10 log10((10^(h/5) - 1) T)    (IEC 61746-1)
//
// with the backscatter coefficient Bc for a pulse of 1 ns and the pulse width T in ns.
class Waveform {
 public:
  // `seed` decides the fading.
  explicit Waveform(const Link& link, std::uint64_t seed = 1);

  // Power at the receiver's input. Reflections switch on and off at edges; at an edge itself the value is
  // that behind it.
  double InputPower(double positionKm) const;
  // The same without reflections: what the fibre alone scatters back.
  double BackscatterPower(double positionKm) const;

  // Receiver output at `count` positions `firstKm` + i * `stepKm`: the first-order low pass, its slow second
  // path and what undershoots, by recursion along the fibre.
  std::vector<double> ReceiverOutput(double firstKm, double stepKm, long count) const;

  const std::vector<Reflector>& reflectors() const { return reflectors_; }
  const std::vector<Reflector>& echoes() const { return echoes_; }
  // Position of joint i, 0 for the launch, the number of sections for the end.
  double JointKm(size_t i) const { return jointKm_[i]; }
  double pulseKm() const { return pulseKm_; }

 private:
  struct Stretch {
    double beginKm, endKm;
    double decayPerKm;    // of the two-way power
    double densityPerKm;  // two-way power per km of pulse at its begin
  };

  void LayFibre(const Link& link);
  void AddEchoes(const Link& link);
  double Scattered(const Stretch& stretch, double fromKm, double toKm) const;
  double RippleFactor(double positionKm) const;
  double FadingFactor(double positionKm) const;
  double ReflectedPower(double betweenKm, double andKm) const;
  std::vector<double> Edges() const;

  double pulseKm_ = 0.0;
  double fastKm_ = 0.0, slowKm_ = 0.0, slowShare_ = 0.0;
  double undershootKm_ = 0.0, undershootShare_ = 0.0;
  double rippleDb_ = 0.0, ripplePeriodKm_ = 1.0;
  std::vector<double> fadingDb_;  // one a pulse length, from the launch
  std::vector<Stretch> stretches_;
  std::vector<double> jointKm_;
  std::vector<double> jointTransmission_;  // two-way power that reaches a joint and comes back from before it
  std::vector<Reflector> reflectors_;
  std::vector<Reflector> echoes_;
  double powerPerReflectance_ = 0.0;  // power at the receiver of a total reflection at the launch
};

}  // namespace reflyze::sim
