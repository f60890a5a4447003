// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "measure/FirstModel.h"
#include "measure/LinkModel.h"
#include "measure/Noise.h"

namespace reflyze {

// The power of some neighbouring points, as their mean.
struct Sample {
  double km;      // of their middle
  double power;   // mean
  double points;  // how many
};

// What is known of a fibre before its section is measured.
struct DecayPrior {
  double decayPerKm = 0.0, deviation = 1.0;
};

// How sure a sum of parameters is: `by` are their weights, by NumberOf. The variance is infinite where the
// samples don't tell it.
using Weights = std::vector<std::pair<int, double>>;
class Certainty {
 public:
  virtual ~Certainty() = default;
  virtual double VarianceOf(const Weights& by) const = 0;
};

struct LinkFit {
  LinkModel model;
  std::shared_ptr<const Certainty> certainty;
  double cost = 0.0;  // about as large as there are samples, where model and noise are right
  bool converged = false;

  double Deviation(std::size_t place, Parameter parameter) const;
};

// How long a fit goes on: at most so many steps, and no longer than a step lowers the cost by a share.
struct FitEffort {
  int mostSteps = 40;
  double settledShare = 0.0;
};

// Fits the model to the samples: least squares, each sample by its variance, with damped steps (Levenberg and
// Marquardt). The notes say where the places were first seen. Places stay between their neighbours.
LinkFit FitLink(const NotedModel& start, const std::vector<Sample>& samples, const NoiseModel& noise,
                const DecayPrior& prior, const FitEffort& effort = {});

// By what share of edges and tails the samples differ from a model that was fitted.
double MisfitOf(const LinkFit& fit, const std::vector<Sample>& samples, const NoiseModel& noise);

// What the fit makes small, of a model as it stands: twice the logarithm of the likelihood that it lacks, and
// what its parameters differ from what is known of them. Compares models on the same samples.
double CostOf(const NotedModel& noted, const std::vector<Sample>& samples, const NoiseModel& noise,
              const DecayPrior& prior);

}  // namespace reflyze
