// SPDX-License-Identifier: Apache-2.0
#include "measure/LinkFit.h"

#include <algorithm>
#include <cmath>

#include "measure/NormalEquations.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kSlowest = 4.0;        // times: paths of a receiver that are closer are one
constexpr double kSlowestPulses = 6.0;  // a slower path could not be told from the fibre
constexpr double kLeastShare = -0.2, kMostShare = 0.4;
constexpr double kLeastDroop = -0.5, kMostDroop = 2.0;  // in a pulse

// What the model knows nothing of must not bend it: behind kFar deviations a residual counts less and less
// (Cauchy).
constexpr double kFar = 5.0;

// The sum over many samples of what that makes of their squares, kFar^2 log(1 + square / kFar^2): the
// logarithm of a product is taken once for all that fit into a double.
class RobustSum {
 public:
  void Add(double square) {
    product_ *= 1.0 + square / (kFar * kFar);
    if (product_ < kFull) return;
    logarithms_ += elementary::Log(product_);
    product_ = 1.0;
  }
  double Total() const { return kFar * kFar * (logarithms_ + elementary::Log(product_)); }

 private:
  static constexpr double kFull = 1e150;
  double product_ = 1.0, logarithms_ = 0.0;
};
// The weight of a residual in that: 1 / variance, over 1 + square / kFar^2.
double TrustedWeight(double variance, double residual) {
  return 1.0 / (variance + residual * residual * (1.0 / (kFar * kFar)));
}

// Parameters of the receiver, behind those of the places.
constexpr std::size_t kShared = 4;

class Fitter {
 public:
  Fitter(const std::vector<Sample>& samples, const NoiseModel& noise, const DecayPrior& prior,
         const std::vector<PlaceNote>& notes)
      : samples_(samples), noise_(noise), prior_(prior), notes_(notes) {}

  LinkFit Run(LinkModel model, const FitEffort& effort) const {
    LinkFit fit;
    fit.model = std::move(model);
    Around around = Build(fit.model);
    double damping = 1e-3, before = around.cost;
    for (int step = 0; step < effort.mostSteps && !fit.converged; ++step) {
      before = around.cost;
      fit.converged = StepSettles(effort, damping, fit.model, around);
    }
    fit.cost = around.cost;
    // Along a path of the receiver that hardly shows steps may be many and small. Less than the square of a
    // deviation by the last moves nothing that is told.
    const double perSample = fit.cost / static_cast<double>(samples_.size());
    if (before - fit.cost < std::max(1.0, perSample)) fit.converged = true;
    if (!std::isfinite(fit.cost)) fit.converged = false;
    fit.certainty = around.equations.Solved();
    return fit;
  }

  double CostOf(const LinkModel& model) const {
    const LinkPower power(model);
    RobustSum sum;
    for (const Sample& sample : samples_) {
      const LinkPower::At at = power.Power(sample.km);
      const double residual = sample.power - StoredPower(at.power, noise_).mean;
      sum.Add(residual * residual / VarianceOf(at, sample.points));
    }
    return sum.Total() + CostOfPriors(model);
  }

 private:
  double VarianceOf(const LinkPower::At& at, double points) const {
    const double misfit = noise_.misfit * at.transient;
    return noise_.VarianceOfMean(at.power, points) + misfit * misfit;
  }

  double CostOfPriors(const LinkModel& model) const {
    double cost = 0.0;
    for (const LinkModel::Section& section : model.sections) {
      const double off = section.decayPerKm - prior_.decayPerKm;
      cost += DecayWeight() * off * off;
    }
    for (size_t i = 0; i < model.places.size(); ++i) {
      const double off = model.places[i].km - notes_[i].toldKm;
      cost += PlaceWeight(i) * off * off;
    }
    return cost;
  }

  double PlaceWeight(size_t place) const { return 1.0 / (notes_[place].withinKm * notes_[place].withinKm); }
  double DecayWeight() const { return 1.0 / (prior_.deviation * prior_.deviation); }

  // What the samples say around a model.
  struct Around {
    NormalEquations equations;
    double cost;
  };

  Around Build(const LinkModel& model) const {
    const std::size_t count = 4 * model.places.size() + kShared;
    NormalEquations equations(count, kShared);
    const LinkPower power(model);
    const std::size_t shared = model.wholeReceiver ? kShared : 1;
    Slopes slopes;
    RobustSum sum;
    for (const Sample& sample : samples_) {
      const LinkPower::At at = power.PowerAndSlopes(sample.km, slopes);
      const StoredPower stored(at.power, noise_);
      const double residual = sample.power - stored.mean;
      // What is stored grows by `share` of the power.
      const double variance = VarianceOf(at, sample.points);
      const double trusted = TrustedWeight(variance, residual) * stored.share;
      sum.Add(residual * residual / variance);
      equations.Add(slopes, slopes.ofReceiver ? shared : 0, trusted * stored.share, trusted * residual);
    }
    for (size_t i = 0; i < model.places.size(); ++i)
      equations.AddPrior(NumberOf(i, Parameter::kPlace), PlaceWeight(i),
                         model.places[i].km - notes_[i].toldKm);
    for (size_t i = 0; i < model.sections.size(); ++i) {
      equations.AddPrior(NumberOf(i, Parameter::kDecay), DecayWeight(),
                         model.sections[i].decayPerKm - prior_.decayPerKm);
    }
    return {std::move(equations), sum.Total() + CostOfPriors(model)};
  }

  // Goes one step. True where nothing is left to be gained: a step that is not worth taking, a step that was
  // the last, or none that makes the cost smaller.
  bool StepSettles(const FitEffort& effort, double& damping, LinkModel& model, Around& around) const {
    constexpr int kMostAttempts = 6;
    constexpr double kSettled = 0.02;  // of the square of a deviation: nobody sees the difference
    // Where the model leaves more than noise, a deviation is that much more.
    const double perSample = around.cost / static_cast<double>(samples_.size());
    const double settled = std::max(kSettled * std::max(1.0, perSample), effort.settledShare * around.cost);
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
      const NormalEquations::Step step = StepWithin(model, around.equations, damping);
      if (step.gain < settled) return true;
      LinkModel next = Moved(model, step.by);
      // The first attempt nearly always goes, and then its equations are needed anyhow.
      const bool first = attempt == 0;
      if (!first && CostOf(next) >= around.cost) {
        damping *= 5.0;
        continue;
      }
      Around there = Build(next);
      if (there.cost < around.cost) {
        if (first) damping /= 5.0;  // else it is as small as it may be
        const bool settles = around.cost - there.cost < settled;
        model = std::move(next);
        around = std::move(there);
        return settles;
      }
      damping *= 5.0;
    }
    return true;
  }

  // A parameter that is as far as it may go, and would go on, stays: the others have to do without it. A slow
  // path as fast as it may be goes with the fast one.
  static NormalEquations::Step StepWithin(const LinkModel& model, const NormalEquations& equations,
                                          double damping) {
    NormalEquations::Step step = equations.Solve(damping);
    std::vector<int> stuck;
    const auto check = [&](Eigen::Index parameter, bool isLowest, bool isHighest) {
      const double by = step.by(parameter);
      if ((isLowest && by < 0.0) || (isHighest && by > 0.0)) stuck.push_back(static_cast<int>(parameter));
    };
    for (size_t i = 0; i < model.places.size(); ++i) {
      if (model.places[i].reflects)
        check(NumberOf(i, Parameter::kReflection), model.places[i].reflection == 0.0, false);
    }
    const Eigen::Index last = step.by.size() - 1;
    const double droop = model.droopPerKm * model.pulseKm;
    check(last - 2, model.slowShare <= kLeastShare, model.slowShare >= kMostShare);
    check(last - 1, false, model.slowKm >= 0.9999 * kSlowestPulses * model.pulseKm);
    check(last, droop <= 0.9999 * kLeastDroop, droop >= 0.9999 * kMostDroop);
    const bool goesAlong =
        model.slowKm <= 1.0001 * kSlowest * model.riseKm && step.by(last - 1) < step.by(last - 3);
    if (stuck.empty() && !goesAlong) return step;
    NormalEquations rest = equations;
    for (const int parameter : stuck) rest.Hold(parameter);
    if (goesAlong) rest.Join(2, 0);
    NormalEquations::Step held = rest.Solve(damping);
    if (goesAlong) held.by(last - 1) = held.by(last - 3);
    return held;
  }

  // Large steps are taken in parts: the model is far from straight in places and in the receiver.
  static LinkModel Moved(LinkModel model, const Eigen::VectorXd& by) {
    const double most = model.pulseKm / 2.0;
    for (size_t i = 0; i < model.places.size(); ++i) {
      LinkModel::Place& place = model.places[i];
      place.km += std::clamp(by(NumberOf(i, Parameter::kPlace)), -most, most);
      if (place.reflects)
        place.reflection = std::max(0.0, place.reflection + by(NumberOf(i, Parameter::kReflection)));
      if (i >= model.sections.size()) continue;
      LinkModel::Section& section = model.sections[i];
      section.level += std::clamp(by(NumberOf(i, Parameter::kLevel)), -1.0, 1.0);
      section.decayPerKm = std::clamp(section.decayPerKm + by(NumberOf(i, Parameter::kDecay)), 1e-4, 5.0);
    }
    for (size_t i = 1; i < model.places.size(); ++i)
      model.places[i].km = std::max(model.places[i].km, model.places[i - 1].km + 1e-6);
    const auto last = by.size() - 1;
    model.riseKm = std::max(model.riseKm * (1.0 + std::clamp(by(last - 3), -0.3, 0.3)), 1e-6);
    model.slowShare =
        std::clamp(model.slowShare + std::clamp(by(last - 2), -0.03, 0.03), kLeastShare, kMostShare);
    const double slow = model.slowKm * (1.0 + std::clamp(by(last - 1), -0.3, 0.3));
    model.slowKm = std::max(std::min(slow, kSlowestPulses * model.pulseKm), kSlowest * model.riseKm);
    const double droop = model.droopPerKm * model.pulseKm + std::clamp(by(last), -0.2, 0.2);
    model.droopPerKm = std::clamp(droop, kLeastDroop, kMostDroop) / model.pulseKm;
    return model;
  }

  const std::vector<Sample>& samples_;
  const NoiseModel& noise_;
  const DecayPrior& prior_;
  const std::vector<PlaceNote>& notes_;
};

}  // namespace

double LinkFit::Deviation(std::size_t place, Parameter parameter) const {
  return std::sqrt(certainty->VarianceOf({{NumberOf(place, parameter), 1.0}}));
}

LinkFit FitLink(const NotedModel& start, const std::vector<Sample>& samples, const NoiseModel& noise,
                const DecayPrior& prior, const FitEffort& effort) {
  return Fitter(samples, noise, prior, start.notes).Run(start.model, effort);
}

double MisfitOf(const LinkFit& fit, const std::vector<Sample>& samples, const NoiseModel& noise) {
  constexpr double kLeast = 0.003, kMost = 0.3, kOverNoise = 10.0, kMedianOfNormal = 0.6744897501960817;
  constexpr std::size_t kFewest = 20;
  const LinkPower power(fit.model);
  std::vector<double> shares;
  for (const Sample& sample : samples) {
    const LinkPower::At at = power.Power(sample.km);
    if (at.transient < kOverNoise * std::sqrt(noise.VarianceOfMean(at.power, sample.points))) continue;
    shares.push_back(std::fabs(sample.power - StoredPower(at.power, noise).mean) / at.transient);
  }
  if (shares.size() < kFewest) return noise.misfit;
  const auto middle = shares.begin() + static_cast<std::ptrdiff_t>(shares.size() / 2);
  std::nth_element(shares.begin(), middle, shares.end());
  return std::clamp(*middle / kMedianOfNormal, kLeast, kMost);
}

double CostOf(const NotedModel& noted, const std::vector<Sample>& samples, const NoiseModel& noise,
              const DecayPrior& prior) {
  return Fitter(samples, noise, prior, noted.notes).CostOf(noted.model);
}

}  // namespace reflyze
