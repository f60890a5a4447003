// SPDX-License-Identifier: Apache-2.0
#include "sim/Waveform.h"

#include <algorithm>

#include "sim/Noise.h"
#include "util/elementary.h"

namespace reflyze::sim {
namespace {

constexpr double kLightKmPerNs = 299792.458e-9;
constexpr double kPi = 3.14159265358979323846;

// (1 - e^-x) / x, the mean of a decay that begins at 1. Where the difference would lose digits, its series is
// used.
double MeanOfDecay(double x) {
  constexpr double kShort = 0.5;
  constexpr int kTerms = 16;  // 0.5^16 / 17! is less than the last digit of 1
  if (x > kShort) return (1.0 - elementary::Exp(-x)) / x;
  double mean = 1.0;
  for (int n = kTerms; n > 1; --n) mean = 1.0 - x / n * mean;
  return mean;
}

// A first-order low pass whose input is a straight line from one end of a step to the other. The result is
// exact.
class LowPass {
 public:
  explicit LowPass(double constantKm) : constantKm_(constantKm) {}

  void Step(double lengthKm, double inputFrom, double inputTo) {
    const double x = lengthKm / constantKm_;
    const double keep = elementary::Exp(-x);
    // (1 - e^-x) / x, with its series where the quotient would lose digits.
    const double mean = x > 1e-5 ? (1.0 - keep) / x : 1.0 - x / 2.0;
    output_ = output_ * keep + inputTo * (1.0 - mean) + inputFrom * (mean - keep);
  }
  double output() const { return output_; }

 private:
  double constantKm_;
  double output_ = 0.0;
};

}  // namespace

double PowerOfLevel(double levelDb) { return elementary::Exp10(levelDb / 5.0); }
double LevelOfPower(double power) { return 5.0 * elementary::Log10(power); }
double KmPerNs(double groupIndex) { return kLightKmPerNs / (2.0 * groupIndex); }

Waveform::Waveform(const Link& link, std::uint64_t seed)
    : pulseKm_(link.pulseNs * KmPerNs(link.groupIndex)),
      slowKm_(link.receiver.tailNs * KmPerNs(link.groupIndex)),
      slowShare_(link.receiver.tailShare),
      undershootKm_(link.receiver.undershootNs * KmPerNs(link.groupIndex)),
      undershootShare_(link.receiver.undershootShare),
      rippleDb_(link.receiver.rippleDb),
      ripplePeriodKm_(link.receiver.ripplePeriodKm) {
  // Time constant of a first-order low pass of bandwidth B: 1 / (2 pi B).
  fastKm_ = 1000.0 / (2.0 * kPi * link.receiver.bandwidthMhz) * KmPerNs(link.groupIndex);
  LayFibre(link);
  if (link.ghosts) AddEchoes(link);
  if (link.receiver.fadingDb == 0.0) return;
  Noise noise(seed);
  const auto pulses = static_cast<size_t>(link.LengthKm() / pulseKm_) + 3;
  for (size_t i = 0; i < pulses; ++i) fadingDb_.push_back(link.receiver.fadingDb * noise.Next());
}

// Walks along the link from the launch with the two-way power that is left. The launch level is the
// backscatter of a full pulse behind the launch connector; it fixes the scale.
void Waveform::LayFibre(const Link& link) {
  const double launchBackscatterDb = link.sections.empty() ? -81.9 : link.sections.front().backscatterDb;
  powerPerReflectance_ =
      PowerOfLevel(link.launchLevelDb) / (elementary::Exp10(launchBackscatterDb / 10.0) * link.pulseNs);
  double positionKm = 0.0;
  double left = 1.0;  // two-way, behind the launch connector
  const auto joint = [&](const Joint& at, double before) {
    jointKm_.push_back(positionKm);
    jointTransmission_.push_back(before);
    if (at.reflectanceDb) {
      reflectors_.push_back(
          {positionKm, powerPerReflectance_ * before * elementary::Exp10(*at.reflectanceDb / 10.0)});
    }
  };
  joint(link.launch, PowerOfLevel(link.launch.lossDb));
  for (size_t i = 0; i < link.sections.size(); ++i) {
    const Section& section = link.sections[i];
    Stretch stretch;
    stretch.beginKm = positionKm;
    stretch.endKm = positionKm + section.lengthKm;
    stretch.decayPerKm = section.attenuationDbPerKm * elementary::Log(10.0) / 5.0;
    stretch.densityPerKm = powerPerReflectance_ * left * elementary::Exp10(section.backscatterDb / 10.0) *
                           link.pulseNs / pulseKm_;
    stretches_.push_back(stretch);
    positionKm = stretch.endKm;
    left *= elementary::Exp(-stretch.decayPerKm * section.lengthKm);
    const bool last = i + 1 == link.sections.size();
    const Joint& behind = last ? link.end : link.joints[i];
    joint(behind, left);
    left *= PowerOfLevel(-behind.lossDb);
  }
}

// Ghosts. Light that goes to a reflector, back to a nearer one, and to the first again arrives later, by the
// way between the two. It looks like an event as far behind the far reflector as that is behind the near one.
void Waveform::AddEchoes(const Link& link) {
  std::vector<std::pair<size_t, double>> reflecting;  // joint, reflectance as a ratio
  for (size_t i = 0; i < jointKm_.size(); ++i) {
    const Joint& joint = i == 0 ? link.launch : i == link.sections.size() ? link.end : link.joints[i - 1];
    if (joint.reflectanceDb) reflecting.emplace_back(i, elementary::Exp10(*joint.reflectanceDb / 10.0));
  }
  for (size_t a = 0; a < reflecting.size(); ++a) {
    for (size_t b = a + 1; b < reflecting.size(); ++b) {
      const auto [near, nearRatio] = reflecting[a];
      const auto [far, farRatio] = reflecting[b];
      // The near joint reflects from behind: the light does not pass what lies before it a second time.
      const double behindNear =
          jointTransmission_[near] * PowerOfLevel(-(near == 0 ? link.launch : link.joints[near - 1]).lossDb);
      const double between = jointTransmission_[far] / behindNear;
      echoes_.push_back(
          {2.0 * jointKm_[far] - jointKm_[near],
           powerPerReflectance_ * jointTransmission_[far] * between * farRatio * farRatio * nearRatio});
    }
  }
}

double Waveform::Scattered(const Stretch& stretch, double fromKm, double toKm) const {
  const double from = std::max(fromKm, stretch.beginKm);
  const double to = std::min(toKm, stretch.endKm);
  if (to <= from) return 0.0;
  const double atFrom =
      stretch.densityPerKm * elementary::Exp(-stretch.decayPerKm * (from - stretch.beginKm));
  const double x = stretch.decayPerKm * (to - from);
  return atFrom * (to - from) * MeanOfDecay(x);
}

double Waveform::RippleFactor(double positionKm) const {
  if (rippleDb_ == 0.0) return 1.0;
  return PowerOfLevel(rippleDb_ * elementary::Sin(2.0 * kPi * positionKm / ripplePeriodKm_));
}

// Light of a narrow line adds up by its phases, so the backscatter of one pulse length has a level of its
// own. Between two lengths with the levels a and b it is a cos x + b sin x, x from 0 to pi / 2: the variance
// is the same all the way.
double Waveform::FadingFactor(double positionKm) const {
  if (fadingDb_.empty() || positionKm < 0.0) return 1.0;
  const double pulses = positionKm / pulseKm_;
  const auto at = static_cast<size_t>(pulses);
  if (at + 1 >= fadingDb_.size()) return 1.0;
  const double x = kPi / 2.0 * (pulses - static_cast<double>(at));
  return PowerOfLevel(fadingDb_[at] * elementary::Cos(x) + fadingDb_[at + 1] * elementary::Sin(x));
}

double Waveform::BackscatterPower(double positionKm) const {
  const double back = positionKm - pulseKm_;
  const auto first = std::lower_bound(stretches_.begin(), stretches_.end(), back,
                                      [](const Stretch& stretch, double km) { return stretch.endKm <= km; });
  double power = 0.0;
  for (auto stretch = first; stretch != stretches_.end() && stretch->beginKm < positionKm; ++stretch) {
    power += Scattered(*stretch, back, positionKm);
  }
  return power * RippleFactor(positionKm) * FadingFactor(positionKm);
}

// The reflections that are seen all along a stretch of positions without an edge.
double Waveform::ReflectedPower(double betweenKm, double andKm) const {
  const double middle = (betweenKm + andKm) / 2.0;
  double power = 0.0;
  for (const std::vector<Reflector>* list : {&reflectors_, &echoes_}) {
    for (const Reflector& reflector : *list) {
      if (middle >= reflector.positionKm && middle < reflector.positionKm + pulseKm_)
        power += reflector.power;
    }
  }
  return power;
}

double Waveform::InputPower(double positionKm) const {
  return BackscatterPower(positionKm) + ReflectedPower(positionKm, positionKm);
}

std::vector<double> Waveform::Edges() const {
  std::vector<double> edges;
  for (const double km : jointKm_) {
    edges.push_back(km);
    edges.push_back(km + pulseKm_);
  }
  for (const Reflector& echo : echoes_) {
    edges.push_back(echo.positionKm);
    edges.push_back(echo.positionKm + pulseKm_);
  }
  std::sort(edges.begin(), edges.end());
  return edges;
}

std::vector<double> Waveform::ReceiverOutput(double firstKm, double stepKm, long count) const {
  LowPass fast(fastKm_), slow(slowKm_), undershoot(undershootKm_);
  const std::vector<double> edges = Edges();
  size_t nextEdge = 0;
  // The receiver is at rest before the first light: joints begin at 0.
  double atKm = std::min(firstKm, 0.0);
  double scattered = BackscatterPower(atKm);
  double reflected = 0.0;
  bool reflectedKnown = false;
  const auto advance = [&](double toKm) {
    while (atKm < toKm) {
      while (nextEdge < edges.size() && edges[nextEdge] <= atKm) {
        ++nextEdge;
        reflectedKnown = false;
      }
      const double endKm = nextEdge < edges.size() ? std::min(edges[nextEdge], toKm) : toKm;
      if (!reflectedKnown) {
        reflected = ReflectedPower(atKm, nextEdge < edges.size() ? edges[nextEdge] : atKm + 1.0);
        reflectedKnown = true;
      }
      const double scatteredAtEnd = BackscatterPower(endKm);
      fast.Step(endKm - atKm, scattered + reflected, scatteredAtEnd + reflected);
      slow.Step(endKm - atKm, scattered + reflected, scatteredAtEnd + reflected);
      if (undershootShare_ > 0.0)
        undershoot.Step(endKm - atKm, scattered + reflected, scatteredAtEnd + reflected);
      scattered = scatteredAtEnd;
      atKm = endKm;
    }
  };
  std::vector<double> output(static_cast<size_t>(count));
  for (long i = 0; i < count; ++i) {
    advance(firstKm + stepKm * static_cast<double>(i));
    double& light = output[static_cast<size_t>(i)];
    light = (1.0 - slowShare_) * fast.output() + slowShare_ * slow.output();
    // What is taken off later is added at once, so that steady light stays what it is.
    if (undershootShare_ > 0.0) light += undershootShare_ * (fast.output() - undershoot.output());
  }
  return output;
}

}  // namespace reflyze::sim
