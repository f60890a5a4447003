// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "measure/LinkModel.h"
#include "measure/Powers.h"

namespace reflyze {

// What makes samples differ from the model. Powers are linear.
//
// A point of power P has the variance receiver^2 + (ripple P)^2: that of the receiver is the same at all
// powers, that of the coherent ripple of the backscatter goes with the power. Instruments smooth, and ripple
// has a length, so points that are neighbours share their errors. What counts for the mean of n points is the
// sum of all covariances: its variance is that of a point times `...Every` / n, as if only one point in so
// many were independent.
struct NoiseModel {
  double receiver = 0.0;       // standard deviation of a point
  double ripple = 0.0;         // the same, as a share of the power
  double misfit = 0.02;        // of edges and tails, as a share of them: what no simple receiver explains
  double receiverEvery = 1.0;  // points, of which one is independent
  double rippleEvery = 1.0;
  bool cut = true;  // the instrument stores no negative power

  double VarianceOfMean(double power, double points) const {
    const double share = ripple * power;
    return (receiver * receiver * receiverEvery + share * share * rippleEvery) / points;
  }
};

// What an instrument stores of a power. One that stores no negative power lifts the mean of what is near its
// noise: to the mean of a normal number cut off at 0. More light then lifts it by `share` of that.
struct StoredPower {
  StoredPower(double power, const NoiseModel& noise) : mean(power) {
    if (noise.cut && !(power > 6.0 * noise.receiver)) Lift(power, noise.receiver);
  }
  double mean = 0.0, share = 1.0;

 private:
  void Lift(double power, double receiver);
};

// From the trace, where `model` says that fibre is and where none is. The lengths in which noise is
// correlated are not known yet.
NoiseModel FirstNoise(const Powers& powers, const LinkModel& model);

// What the sums over blocks of points are held against. A model that lacks a step is off its line for the
// length of a section, which is no noise; neighbouring blocks tell how far points go together all the same.
// Of a whole model what is left over its lines is noise, with all unevenness that the fibre has.
enum class Residuals { kOfNeighbours, kOfLine };

// Of a model that was fitted: what the points of settled fibre show beside it says how large noise is, and
// how far its points go together.
NoiseModel LearnNoise(const Powers& powers, const LinkModel& model, Residuals asFibre,
                      const NoiseModel& noise);

}  // namespace reflyze
