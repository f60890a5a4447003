// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/quickExp.h"

namespace reflyze {

// (exp(x t) - 1) / x, also where x is next to 0, and its derivative by x.
double Growth(double x, double t);
double SlopeOfGrowth(double x, double t);

// What a first-order receiver makes of a laser's pulse. All lengths are in km of fibre, as light travels
// there and back: `widthKm` is c T / (2 n) of the pulse, `riseKm` the length in which the receiver comes
// within 1/e. Lasers that are driven for long lose power on the way: the pulse is exp(-droop u), with u from
// 0 to its width.
//
// A pulse whose front returns from z has its back one width nearer. Light of strength 1 from one place x is
// therefore seen as g(z - x), with e(s) the response of the receiver to exp(-droop s) that begins at 0 and
// goes on,
//   e(s) = gain (exp(-droop s) - exp(-s / rise)), gain = 1 / (1 - droop rise),   e = 0 before 0,
//   g(s) = e(s) - left e(s - width), left = exp(-droop width).
// Behind the pulse what was driven cancels: g(s) = gain (left - exp(-width / rise)) exp(-(s - width) / rise).
class PulseResponse {
 public:
  PulseResponse(double widthKm, double riseKm, double droopPerKm);

  double riseKm() const { return riseKm_; }

  // g(s) for s above 0; `driven` is exp(-droop s), and need not be known behind the pulse.
  double OfPoint(double s, double driven) const;

  struct Slopes {
    double value;
    double byPlace, byRise, byDroop;  // by s, by the logarithm of the rise, by the droop
  };
  Slopes SlopesOfPoint(double s, double driven) const;

  // Behind this distance from a place the receiver has forgotten it.
  double SettledKm() const;

  // Where the light of a settled signal comes from, in front of the place where it shows: half the pulse and
  // the delay of the receiver.
  double DelayKm() const { return widthKm_ / 2.0 + riseKm_; }

 private:
  double widthKm_, riseKm_, perRise_;
  double droopPerKm_;
  double gain_;
  double left_;    // of the power, at the pulse's end
  double missed_;  // exp(-width / rise): what the receiver still lacks there
};

// Here, since each sample asks for some of them.
inline double PulseResponse::OfPoint(double s, double driven) const {
  if (s < widthKm_) return gain_ * (driven - elementary::QuickExp(-s * perRise_));
  return gain_ * (left_ - missed_) * elementary::QuickExp((widthKm_ - s) * perRise_);
}

// Of gain the derivative by the droop is rise gain^2, by the logarithm of the rise rise droop gain^2; of
// late = exp(-u / rise) by that logarithm it is late u / rise.
inline PulseResponse::Slopes PulseResponse::SlopesOfPoint(double s, double driven) const {
  const double ofGain = riseKm_ * gain_;
  if (s < widthKm_) {
    const double late = elementary::QuickExp(-s * perRise_), value = gain_ * (driven - late);
    return {value, gain_ * (late * perRise_ - droopPerKm_ * driven),
            ofGain * droopPerKm_ * value - gain_ * late * s * perRise_, ofGain * value - gain_ * s * driven};
  }
  const double behind = s - widthKm_, late = elementary::QuickExp(-behind * perRise_);
  const double value = gain_ * (left_ - missed_) * late;
  return {value, -value * perRise_,
          ofGain * droopPerKm_ * value + gain_ * late * (left_ * behind - missed_ * s) * perRise_,
          ofGain * value - gain_ * widthKm_ * left_ * late};
}

}  // namespace reflyze
