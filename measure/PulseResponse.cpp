// SPDX-License-Identifier: Apache-2.0
#include "measure/PulseResponse.h"

#include <cmath>

#include "util/quickExp.h"

namespace reflyze {
namespace {

using elementary::QuickExp;

constexpr double kForgotten = 12.0;  // times of 1/e: 6e-6 is left

// 1 / (1 - droop rise). Where both are as long, the difference that it scales is 0, too: a little beside
// that place the quotient is right.
double GainOf(double lag) {
  constexpr double kNear = 1e-6;
  return 1.0 / (std::fabs(1.0 - lag) < kNear ? kNear : 1.0 - lag);
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
      riseKm_(riseKm),
      perRise_(1.0 / riseKm),
      droopPerKm_(droopPerKm),
      gain_(GainOf(droopPerKm * riseKm)),
      left_(QuickExp(-droopPerKm * widthKm)),
      missed_(QuickExp(-widthKm / riseKm)) {}

double PulseResponse::SettledKm() const { return widthKm_ + kForgotten * riseKm_; }

}  // namespace reflyze
