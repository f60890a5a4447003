// SPDX-License-Identifier: Apache-2.0
#include "measure/PulseResponse.h"

#include <algorithm>
#include <cmath>

#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kForgotten = 12.0;  // times of 1/e: 6e-6 is left

// (exp(x t) - 1) / x, also where x is next to 0.
double Growth(double x, double t) {
  const double grown = x * t;
  if (std::fabs(grown) < 1e-4) return t * (1.0 + grown / 2.0 + grown * grown / 6.0);
  return (elementary::Exp(grown) - 1.0) / x;
}

// Differences of two exponentials are divided by 1 - ratio of their rates. Both go to 0 together; before
// digits are lost, one rate is taken for a little smaller.
double KeptApart(double rate, double other) {
  constexpr double kLeast = 1e-4;
  return std::fabs(1.0 - rate * other) < kLeast ? rate * (1.0 - 2.0 * kLeast) : rate;
}

}  // namespace

PulseResponse::PulseResponse(double widthKm, double riseKm, double droopPerKm)
    : widthKm_(widthKm),
      riseKm_(KeptApart(riseKm, droopPerKm)),
      droopPerKm_(droopPerKm),
      left_(elementary::Exp(-droopPerKm * widthKm)),
      gain_(1.0 / (1.0 - droopPerKm * riseKm_)) {}

double PulseResponse::Begun(double s) const {
  if (s <= 0.0) return 0.0;
  const double driven = droopPerKm_ == 0.0 ? 1.0 : elementary::Exp(-droopPerKm_ * s);
  return gain_ * (driven - elementary::Exp(-s / riseKm_));
}

double PulseResponse::SlopeOfBegun(double s) const {
  if (s <= 0.0) return 0.0;
  const double driven = droopPerKm_ == 0.0 ? 0.0 : droopPerKm_ * elementary::Exp(-droopPerKm_ * s);
  return gain_ * (elementary::Exp(-s / riseKm_) / riseKm_ - driven);
}

double PulseResponse::OfPoint(double s) const {
  return s <= widthKm_ ? Begun(s) : Begun(s) - left_ * Begun(s - widthKm_);
}

double PulseResponse::SlopeOfPoint(double s) const {
  return s <= widthKm_ ? SlopeOfBegun(s) : SlopeOfBegun(s) - left_ * SlopeOfBegun(s - widthKm_);
}

double PulseResponse::SettledKm() const { return widthKm_ + kForgotten * riseKm_; }

double PulseResponse::EnergyKm() const { return Growth(-droopPerKm_, widthKm_); }

FibreResponse::FibreResponse(const PulseResponse& pulse, double decayPerKm)
    : pulse_(pulse), decay_(KeptApart(std::max(decayPerKm, 1e-6), pulse.riseKm())) {
  // Of the pulse the integral of exp((decay - droop) u), of the receiver 1 / (1 - decay rise). Behind a fibre
  // that fades as fast as the receiver forgets, nothing settles. There the scale stays what it is next to that.
  constexpr double kMostOfRise = 0.9;
  const double ofRise = 1.0 - std::min(decay_ * pulse_.riseKm(), kMostOfRise);
  settled_ = Growth(decay_ - pulse_.droopPerKm(), pulse_.widthKm()) / ofRise;
}

double FibreResponse::Integral(double t) const {
  if (t <= 0.0) return 0.0;
  const double fading = elementary::Exp(-decay_ * t), rise = pulse_.riseKm(), droop = pulse_.droopPerKm();
  const double driven = fading * Growth(decay_ - droop, t);
  const double late = rise * (fading - elementary::Exp(-t / rise)) / (1.0 - decay_ * rise);
  return (driven - late) / (1.0 - droop * rise);
}

double FibreResponse::At(double t) const {
  if (t <= 0.0) return 0.0;
  if (t > pulse_.SettledKm()) return elementary::Exp(-decay_ * t);
  return (Integral(t) - pulse_.left() * Integral(t - pulse_.widthKm())) / settled_;
}

}  // namespace reflyze
