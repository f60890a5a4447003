// SPDX-License-Identifier: Apache-2.0

// The formulas of a measured link against what they stand for: convolutions, differences, drawn numbers, and
// a link whose light was added up by hand.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "measure/LinkModel.h"
#include "measure/Noise.h"
#include "tests/support/trace.h"

namespace reflyze {
namespace {

double Integral(const std::function<double(double)>& of, double from, double to, int parts) {
  double sum = 0.0;
  for (int i = 0; i < parts; ++i) sum += of(from + (i + 0.5) / parts * (to - from));
  return sum * (to - from) / parts;
}

struct Shape {
  double width, rise, droop;
};
// The last two have rates of receiver, pulse and fibre that meet.
const Shape kShapes[] = {
    {0.1, 0.02, 0.0}, {2.0, 0.3, 0.4}, {0.5, 0.6, -0.9}, {1.0, 0.5, 2.0}, {1.0, 4.0, 0.25}};

// A model of one reflection of strength 1 without light behind it, or of one fibre.
LinkModel ModelOf(const Shape& shape, bool reflects, double decay) {
  LinkModel model;
  model.pulseKm = shape.width, model.riseKm = shape.rise, model.droopPerKm = shape.droop;
  model.places = {{0.0, reflects ? 1.0 : 0.0, reflects}, {1000.0, 0.0, false}};
  model.sections = {{reflects ? -60.0 : 0.0, decay, 0.0}};
  return model;
}

TEST(MeasureFormulas, LightIsAConvolution) {
  constexpr double kDecay = 0.25;
  for (const Shape& shape : kShapes) {
    const LinkModel reflection = ModelOf(shape, true, kDecay), fibre = ModelOf(shape, false, kDecay);
    const LinkPower ofReflection(reflection), ofFibre(fibre);
    const auto point = [&](double s) {
      const double to = std::min(s, shape.width);
      const auto light = [&](double u) {
        return std::exp(-shape.droop * u - (s - u) / shape.rise) / shape.rise;
      };
      return Integral(light, 0.0, to, 400);
    };
    // On the scale of the settled line, which is the light of a slowly changing fibre.
    const double energy =
        Integral([&](double u) { return std::exp((kDecay - shape.droop) * u); }, 0.0, shape.width, 2000);
    const double settled = energy / (1.0 - std::min(0.9, kDecay * shape.rise));
    for (const double share : {0.03, 0.5, 0.99, 1.01, 1.7, 6.0, 40.0}) {
      const double s = share * shape.width;
      SCOPED_TRACE(testing::Message() << shape.width << " " << shape.rise << " " << shape.droop << " " << s);
      EXPECT_NEAR(ofReflection.Power(s).power, point(s), 1e-3);
      if (kDecay * shape.rise > 0.9) {
        EXPECT_TRUE(std::isfinite(ofFibre.Power(s).power));
        continue;
      }
      const double far = shape.width + 20.0 * shape.rise;
      const auto scattered = [&](double u) { return std::exp(-kDecay * u) * point(s - u); };
      EXPECT_NEAR(ofFibre.Power(s).power, Integral(scattered, std::max(0.0, s - far), s, 1000) / settled,
                  5e-3);
    }
  }
}

TEST(MeasureFormulas, SlopesOfTheModelAreItsDifferences) {
  LinkModel model;
  model.pulseKm = 0.2, model.riseKm = 0.03, model.droopPerKm = 0.6;
  model.slowShare = 0.05, model.slowKm = 0.3, model.wholeReceiver = true;
  model.places = {{0.0, 3.0, true}, {1.0, 0.0, false}, {1.3, 8.0, true}, {2.5, 2.0, true}};
  model.sections = {{0.0, 0.09, 0.5}, {-0.2, 0.14, 1.1}, {-0.4, 0.07, 2.0}};
  const LinkPower whole(model);
  for (const double km : {0.02, 0.15, 0.6, 1.04, 1.31, 1.4, 1.52, 2.6, 2.9}) {
    Slopes slopes;
    const double power = whole.PowerAndSlopes(km, slopes).power;
    EXPECT_NEAR(power, whole.Power(km).power, 1e-7);
    const auto expect = [&](double slope, double step,
                            const std::function<void(LinkModel&, double)>& change) {
      const auto at = [&](double by) {
        LinkModel other = model;
        change(other, by);
        return LinkPower(other).Power(km).power;
      };
      const double difference = (at(step) - at(-step)) / (2.0 * step);
      EXPECT_NEAR(slope, difference, 1e-4 * std::max(1.0, std::fabs(difference))) << km << " km";
    };
    ASSERT_GT(slopes.count, 0U);
    for (size_t i = 0; i < 4 * slopes.count; ++i) {
      const size_t place = slopes.places[i / 4].place;
      if (place == 3 && i % 4 > 1) continue;
      if (i % 4 == 1 && !model.places[place].reflects) continue;
      SCOPED_TRACE(i);
      expect(slopes.places[i / 4].by[i % 4], 1e-4, [&](LinkModel& other, double by) {
        LinkModel::Place& changed = other.places[place];
        if (i % 4 == 0) changed.km += by;
        if (i % 4 == 1) changed.reflection += by;
        if (i % 4 == 2) other.sections[place].level += by;
        if (i % 4 == 3) other.sections[place].decayPerKm += by;
      });
    }
    if (!slopes.ofReceiver) continue;
    expect(slopes.receiver[0], 1e-4, [](LinkModel& other, double by) { other.riseKm *= std::exp(by); });
    expect(slopes.receiver[1], 1e-4, [](LinkModel& other, double by) { other.slowShare += by; });
    expect(slopes.receiver[2], 1e-4, [](LinkModel& other, double by) { other.slowKm *= std::exp(by); });
    expect(slopes.receiver[3], 1e-4,
           [](LinkModel& other, double by) { other.droopPerKm += by / other.pulseKm; });
  }
}

TEST(MeasureFormulas, StoredPowerIsTheMeanOfWhatIsCutOff) {
  NoiseModel noise;
  noise.receiver = 2.0;
  support::Noise draws;
  for (const double power : {-1.0, 0.0, 0.7, 3.0, 13.0}) {
    constexpr int kDraws = 200000;
    double sum = 0.0;
    for (int i = 0; i < kDraws; ++i) sum += std::max(0.0, power + draws.Gauss(noise.receiver));
    EXPECT_NEAR(StoredPower(power, noise).mean, sum / kDraws, 0.02);
    const double step = 1e-4;
    const double slope =
        (StoredPower(power + step, noise).mean - StoredPower(power - step, noise).mean) / (2.0 * step);
    EXPECT_NEAR(StoredPower(power, noise).share, slope, 1e-3);
  }
}

}  // namespace
}  // namespace reflyze
