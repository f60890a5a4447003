// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace reflyze {

// What a receiver makes of a laser's pulse. All lengths are in km of fibre, as light travels there and back:
// `widthKm` is c T / (2 n) of the pulse, `riseKm` the length in which a first-order receiver comes within
// 1/e. Lasers that are driven for long lose power on the way: the pulse is exp(-droop u), with u from 0 to
// its width.
//
// A pulse whose front returns from z has its back one width nearer. Light of strength 1 from one place x is
// therefore seen as g(z - x), with e(s) the response of the receiver to exp(-droop s) that begins at 0 and
// goes on,
//   e(s) = (exp(-droop s) - exp(-s / rise)) / (1 - droop rise),   e = 0 before 0,
//   g(s) = e(s) - exp(-droop width) e(s - width).
class PulseResponse {
 public:
  PulseResponse(double widthKm, double riseKm, double droopPerKm);

  double widthKm() const { return widthKm_; }
  double riseKm() const { return riseKm_; }
  double droopPerKm() const { return droopPerKm_; }
  double left() const { return left_; }  // of the power, at the pulse's end

  // g(s), and its derivative by s.
  double OfPoint(double s) const;
  double SlopeOfPoint(double s) const;

  // Behind this distance from a place the receiver has forgotten it.
  double SettledKm() const;

  // Width of the flat pulse of the same energy and the power at its begin.
  double EnergyKm() const;

  // Where the light of a settled signal comes from, in front of the place where it shows: half the pulse and
  // the delay of the receiver.
  double DelayKm() const { return widthKm_ / 2.0 + riseKm_; }

 private:
  double Begun(double s) const;  // e(s)
  double SlopeOfBegun(double s) const;

  double widthKm_, riseKm_, droopPerKm_;
  double left_, gain_;
};

// What is scattered back by a fibre that begins at 0 and loses `decayPerKm` of its power (two ways, nepers a
// km), on the scale of its settled line exp(-decay t): the integral of exp(-decay u) g(t - u) du from 0 to t,
// over what it becomes where t is large.
class FibreResponse {
 public:
  FibreResponse(const PulseResponse& pulse, double decayPerKm);

  double At(double t) const;
  // Scattered light a km of fibre, where the settled line reads 1.
  double DensityPerKm() const { return 1.0 / settled_; }

 private:
  double Integral(double t) const;  // of exp(-decay u) e(t - u)

  const PulseResponse& pulse_;
  double decay_;
  double settled_;
};

}  // namespace reflyze
