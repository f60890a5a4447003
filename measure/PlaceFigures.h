// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "measure/Backscatter.h"
#include "measure/MeasuredLink.h"
#include "measure/Noise.h"
#include "measure/Powers.h"

namespace reflyze {

// The noise of a trace that can't be understood as a link: what its points are off straight lines through
// pieces of it. The median over many pieces does not see the few in which events stand.
NoiseModel NoiseWithoutLink(const TSorData& record, const Powers& powers);

// Figures of a trace at places that somebody has chosen, points of the trace, each with its standard
// deviation by propagation of the noise. None where the light is lost in the noise.
class PlaceFigures {
 public:
  // What was measured of the link tells the noise and where fibre lies; without it the trace alone does.
  PlaceFigures(const TSorData& record, const std::optional<MeasuredLink>& link);

  const NoiseModel& noise() const { return noise_; }
  long count() const { return powers_.count(); }
  double KmOf(long point) const { return km_[static_cast<std::size_t>(point)]; }  // from the first point

  // Of a single point, 5 log10 of power.
  std::optional<Measured> LevelDb(long point) const;
  // What two points differ by.
  std::optional<Measured> TwoPointLossDb(long from, long to) const;

  // The power of settled fibre between two points, exp(level - decay (km - anchor)), fitted to the powers.
  struct Line {
    double level = 0.0, decayPerKm = 0.0, anchorKm = 0.0;  // nepers
    double ofLevel = 0.0, ofDecay = 0.0, ofBoth = 0.0;     // variances, and the covariance

    Measured LevelAt(double km) const;  // nepers
  };
  std::optional<Line> LineThrough(long from, long to) const;
  std::optional<Measured> AttenuationDbPerKm(long from, long to) const;
  // What an event loses: a line in front of it and one behind it, both followed to where it begins (IEC
  // 61746-1, four-point method with least squares).
  std::optional<Measured> EventLossDb(long a, long eventFrom, long eventTo, long b) const;

  // What may be no more than a bound: a saturated receiver shows a reflection at least so high.
  struct Bounded {
    Measured db;
    bool saturated = false;
  };
  // How much less light comes back from between two points than was sent in at the first one, in dB.
  std::optional<Bounded> ReturnLossDb(long from, long to) const;
  // Of a peak at a point or next to it; none where nothing stands over the fibre.
  std::optional<Bounded> ReflectanceDb(long point) const;

  const Backscatter& backscatter() const { return backscatter_; }
  // Within this distance behind a place the trace is not the fibre's alone.
  double SettledKm() const { return pulseKm_ + 8.0 * riseKm_; }
  // Within this distance in front of a place, an instrument that smooths its trace may show it already.
  double EarlyKm() const { return pulseKm_ / 2.0 + 3.0 * powers_.spacingKm(); }

 private:
  // Settled light comes from so far in front of where it shows.
  double DelayKm() const { return pulseKm_ / 2.0 + riseKm_; }
  double VarianceOfPoint(double power) const;
  double Covariance(long one, long other) const;
  double PowerIn(long from, long to) const;
  std::optional<Line> FibreAt(long point) const;
  const MeasuredEvent* EventNear(long point) const;
  double SamplingShare() const;
  struct Surroundings;
  std::optional<Surroundings> AroundEvent(const MeasuredEvent& event) const;
  std::optional<Surroundings> AroundPoint(long point) const;
  long PointAt(double km) const;
  bool IsSaturated(long from, long to) const;

  Powers powers_;
  std::vector<double> km_;
  std::optional<MeasuredLink> link_;
  NoiseModel noise_;
  Backscatter backscatter_;
  double pulseKm_, pulseNs_, riseKm_;
};

}  // namespace reflyze
