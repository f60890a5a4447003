// SPDX-License-Identifier: Apache-2.0
#include "measure/PulseResponse.h"

#include <cmath>

#include "util/quickExp.h"

namespace reflyze {
namespace {

using elementary::QuickExp;

constexpr double kForgotten = 12.0;  // times of 1/e: 6e-6 is left

// The light is a difference of two exponentials, divided by 1 - droop rise. Both go to 0 together; before
// digits are lost, the receiver is taken for a little faster.
double KeptApart(double rise, double droop) {
  constexpr double kLeast = 1e-4;
  return std::fabs(1.0 - droop * rise) < kLeast ? rise * (1.0 - 2.0 * kLeast) : rise;
}

}  // namespace

double Growth(double x, double t) {
  const double grown = x * t;
  if (std::fabs(grown) < 1e-4) return t * (1.0 + grown / 2.0 + grown * grown / 6.0);
  return (elementary::Exp(grown) - 1.0) / x;
}

// (t exp(x t) - Growth) / x; its series is t^2 (1/2 + x t / 3 + (x t)^2 / 8 + ...).
double SlopeOfGrowth(double x, double t) {
  const double y = x * t;
  if (std::fabs(y) < 0.05) {
    return t * t * (1.0 / 2 + y * (1.0 / 3 + y * (1.0 / 8 + y * (1.0 / 30 + y * (1.0 / 144 + y / 840)))));
  }
  const double grown = elementary::Exp(y);
  return (t * grown - (grown - 1.0) / x) / x;
}

PulseResponse::PulseResponse(double widthKm, double riseKm, double droopPerKm)
    : widthKm_(widthKm),
      riseKm_(KeptApart(riseKm, droopPerKm)),
      perRise_(1.0 / riseKm_),
      droopPerKm_(droopPerKm),
      gain_(1.0 / (1.0 - droopPerKm * riseKm_)),
      left_(QuickExp(-droopPerKm * widthKm)),
      missed_(QuickExp(-widthKm / riseKm_)) {}

double PulseResponse::SettledKm() const { return widthKm_ + kForgotten * riseKm_; }

}  // namespace reflyze
