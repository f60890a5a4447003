// SPDX-License-Identifier: Apache-2.0

// The model of a link: each derivative is that of its power, wherever a place shows, and only of what is to
// be found.

#include "measure/LinkModel.h"

#include <gtest/gtest.h>

#include <cmath>

namespace reflyze {
namespace {

// A doublet, a splice whose light overlaps a reflection, an end; a receiver with a slow path, a drooping
// laser.
LinkModel Model() {
  LinkModel model;
  model.pulseKm = 0.1;
  model.riseKm = 0.013;
  model.slowKm = 0.21;
  model.slowShare = 0.07;
  model.droopPerKm = 2.3;
  model.wholeReceiver = true;
  model.places = {
      {0.5, 3.0, true}, {0.56, 0.4, true}, {1.2, 0.0, false}, {1.25, 0.7, true}, {3.0, 2.0, true}};
  model.sections = {{0.1, 0.05, 0.53}, {-0.2, 0.4, 0.9}, {-0.3, 0.06, 1.22}, {-0.4, 0.1, 2.1}};
  return model;
}

double& ValueOf(LinkModel& model, std::size_t place, Parameter parameter) {
  switch (parameter) {
    case Parameter::kPlace:
      return model.places[place].km;
    case Parameter::kReflection:
      return model.places[place].reflection;
    case Parameter::kLevel:
      return model.sections[place].level;
    default:
      return model.sections[place].decayPerKm;
  }
}

template <class Change>
double DifferenceAt(double km, Change change) {
  constexpr double kStep = 1e-6;
  LinkModel less = Model(), more = Model();
  change(less, -kStep);
  change(more, kStep);
  return (LinkPower(more).Power(km).power - LinkPower(less).Power(km).power) / (2.0 * kStep);
}

TEST(LinkModel, DerivativesAreThoseOfThePower) {
  const LinkModel model = Model();
  const LinkPower power(model);
  Slopes slopes;
  for (double km = 0.45; km < 4.0; km += 0.0317) {
    const LinkPower::At at = power.PowerAndSlopes(km, slopes);
    EXPECT_NEAR(at.power, power.Power(km).power, 1e-12);
    EXPECT_NEAR(at.transient, power.Power(km).transient, 1e-12);
    for (std::size_t i = 0; i < 4 * slopes.count; ++i) {
      const std::size_t place = slopes.places[i / 4].place;
      const auto parameter = static_cast<Parameter>(i % 4);
      if (parameter >= Parameter::kLevel && place >= model.sections.size()) continue;
      const double isFound = parameter == Parameter::kReflection && !model.places[place].reflects ? 0.0 : 1.0;
      const double difference =
          DifferenceAt(km, [&](LinkModel& of, double by) { ValueOf(of, place, parameter) += by; });
      EXPECT_NEAR(slopes.places[i / 4].by[i % 4], isFound * difference, 2e-4 * (1.0 + std::fabs(difference)))
          << "at " << km << " by parameter " << i;
    }
    const double byReceiver[] = {
        DifferenceAt(km, [](LinkModel& of, double by) { of.riseKm *= 1.0 + by; }),
        DifferenceAt(km, [](LinkModel& of, double by) { of.slowShare += by; }),
        DifferenceAt(km, [](LinkModel& of, double by) { of.slowKm *= 1.0 + by; }),
        DifferenceAt(km, [](LinkModel& of, double by) { of.droopPerKm += by / of.pulseKm; })};
    for (int i = 0; i < 4; ++i)
      EXPECT_NEAR(slopes.receiver[i], byReceiver[i], 2e-5 * (1.0 + std::fabs(byReceiver[i])));
  }
}

TEST(LinkModel, SettledFibreIsItsLine) {
  const LinkModel model = Model();
  const LinkPower power(model);
  EXPECT_EQ(power.Power(0.4).power, 0.0);
  EXPECT_NEAR(power.Power(2.99).power / power.LineAt(3, 2.99), 1.0, 1e-4);
}

}  // namespace
}  // namespace reflyze
