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
double Trust(double square) { return 1.0 / (1.0 + square / (kFar * kFar)); }

// Parameters of the receiver, behind those of the places.
constexpr std::size_t kShared = 4;

class Fitter {
 public:
  Fitter(const std::vector<Sample>& samples, const NoiseModel& noise, const DecayPrior& prior,
         const std::vector<PlaceNote>& notes)
      : samples_(samples), noise_(noise), prior_(prior), notes_(notes) {}

  LinkFit Run(LinkModel model, int steps) const {
    constexpr int kMostAttempts = 6;
    constexpr double kSettled = 0.02;  // of the square of a deviation: nobody sees the difference
    LinkFit fit;
    double damping = 1e-3, cost = CostOf(model);
    for (int step = 0; step < steps && !fit.converged; ++step) {
      const NormalEquations equations = Build(model);
      bool better = false;
      for (int attempt = 0; attempt < kMostAttempts && !better; ++attempt) {
        LinkModel next = Moved(model, equations.Solve(damping));
        const double nextCost = CostOf(next);
        better = nextCost < cost;
        damping = better ? damping / 5.0 : damping * 5.0;
        if (!better) continue;
        fit.converged = cost - nextCost < kSettled;
        cost = nextCost;
        model = std::move(next);
      }
      if (!better) fit.converged = true;
    }
    if (!std::isfinite(cost)) fit.converged = false;
    fit.certainty = Build(model).Solved();
    fit.model = std::move(model);
    fit.cost = cost;
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
    double cost = sum.Total();
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

 private:
  double VarianceOf(const LinkPower::At& at, double points) const {
    const double misfit = noise_.misfit * at.transient;
    return noise_.VarianceOfMean(at.power, points) + misfit * misfit;
  }

  double PlaceWeight(size_t place) const { return 1.0 / (notes_[place].withinKm * notes_[place].withinKm); }
  double DecayWeight() const { return 1.0 / (prior_.deviation * prior_.deviation); }

  NormalEquations Build(const LinkModel& model) const {
    const std::size_t count = 4 * model.places.size() + kShared;
    NormalEquations equations(count, kShared);
    const LinkPower power(model);
    const std::size_t shared = model.wholeReceiver ? kShared : 1;
    Slopes slopes;
    for (const Sample& sample : samples_) {
      const LinkPower::At at = power.PowerAndSlopes(sample.km, slopes);
      const StoredPower stored(at.power, noise_);
      const double residual = sample.power - stored.mean, weight = 1.0 / VarianceOf(at, sample.points);
      // What is stored grows by `share` of the power.
      const double trusted = weight * Trust(weight * residual * residual) * stored.share;
      equations.Add(slopes, slopes.ofReceiver ? shared : 0, trusted * stored.share, trusted * residual);
    }
    for (size_t i = 0; i < model.places.size(); ++i)
      equations.AddPrior(NumberOf(i, Parameter::kPlace), PlaceWeight(i),
                         model.places[i].km - notes_[i].toldKm);
    for (size_t i = 0; i < model.sections.size(); ++i) {
      equations.AddPrior(NumberOf(i, Parameter::kDecay), DecayWeight(),
                         model.sections[i].decayPerKm - prior_.decayPerKm);
    }
    return equations;
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
    model.slowShare = std::clamp(model.slowShare + std::clamp(by(last - 2), -0.03, 0.03), -0.2, 0.4);
    const double slow = model.slowKm * (1.0 + std::clamp(by(last - 1), -0.3, 0.3));
    model.slowKm = std::max(std::min(slow, kSlowestPulses * model.pulseKm), kSlowest * model.riseKm);
    const double droop = model.droopPerKm * model.pulseKm + std::clamp(by(last), -0.2, 0.2);
    model.droopPerKm = std::clamp(droop, -0.5, 2.0) / model.pulseKm;
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
                const DecayPrior& prior, int mostSteps) {
  return Fitter(samples, noise, prior, start.notes).Run(start.model, mostSteps);
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
