// SPDX-License-Identifier: Apache-2.0
#include "measure/LinkModel.h"

#include <algorithm>
#include <cmath>

#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kDecayStep = 1e-4;  // nepers a km, for the derivative by the decay
constexpr double kTailShare = 0.05, kTailPulses = 8.0;

}  // namespace

LinkPower::LinkPower(const LinkModel& model)
    : model_(model),
      pulse_(model.pulseKm, model.riseKm, model.droopPerKm),
      slow_(model.pulseKm, model.slowKm, model.droopPerKm) {
  const auto fibre = [&](double decay) { return Fibre{{pulse_, decay}, {slow_, decay}}; };
  for (const LinkModel::Section& section : model.sections) {
    fibres_.push_back(fibre(section.decayPerKm));
    steeper_.push_back(fibre(section.decayPerKm + kDecayStep));
  }
}

double LinkPower::SettledKm() const {
  const double settled = std::max(pulse_.SettledKm(), kTailPulses * model_.pulseKm);
  return model_.slowShare == 0.0 ? settled : std::max(settled, slow_.SettledKm());
}

// What may be left of a reflection behind the place where two simple paths of a receiver have forgotten it.
double LinkPower::TailOf(const LinkModel::Place& place, double s) const {
  if (place.reflection == 0.0 || s > kTailPulses * model_.pulseKm) return 0.0;
  return kTailShare * place.reflection * elementary::Exp(-s / model_.pulseKm);
}

double LinkPower::OfPoint(double s) const {
  const double fast = pulse_.OfPoint(s);
  return model_.slowShare == 0.0 ? fast : fast + model_.slowShare * (slow_.OfPoint(s) - fast);
}

double LinkPower::SlopeOfPoint(double s) const {
  const double fast = pulse_.SlopeOfPoint(s);
  return model_.slowShare == 0.0 ? fast : fast + model_.slowShare * (slow_.SlopeOfPoint(s) - fast);
}

double LinkPower::OfFibre(const Fibre& fibre, double t) const {
  const double fast = fibre.fast.At(t);
  return model_.slowShare == 0.0 ? fast : fast + model_.slowShare * (fibre.slow.At(t) - fast);
}

double LinkPower::LineAt(size_t section, double km) const {
  const LinkModel::Section& line = model_.sections[section];
  return elementary::Exp(line.level - line.decayPerKm * (km - line.anchorKm));
}

size_t LinkPower::FirstSeen(double km) const {
  const double settledKm = SettledKm();
  const auto gone = [&](const LinkModel::Place& place) { return place.km + settledKm < km; };
  const auto seen = std::partition_point(model_.places.begin(), model_.places.end(), gone);
  const auto index = static_cast<size_t>(seen - model_.places.begin());
  return index == 0 ? 0 : index - 1;
}

// The light of one section, from its begin to its end, with a decay of its own for derivatives.
double LinkPower::SectionAt(size_t section, const Fibre& fibre, double decay, double km) const {
  const LinkModel::Section& line = model_.sections[section];
  const double from = model_.places[section].km, to = model_.places[section + 1].km;
  const auto at = [&](double place) { return elementary::Exp(line.level - decay * (place - line.anchorKm)); };
  double power = at(from) * OfFibre(fibre, km - from);
  if (km > to) power -= at(to) * OfFibre(fibre, km - to);
  return power;
}

void LinkPower::AddDecay(size_t section, double km, double power,
                         std::vector<Derivative>& derivatives) const {
  const double decay = model_.sections[section].decayPerKm + kDecayStep;
  const double steeper = SectionAt(section, steeper_[section], decay, km);
  derivatives.push_back({NumberOf(section, Parameter::kDecay), (steeper - power) / kDecayStep});
}

LinkPower::At LinkPower::Power(double km) const {
  At at;
  double line = 0.0, tail = 0.0;
  for (size_t i = FirstSeen(km); i < model_.places.size() && model_.places[i].km < km; ++i) {
    const LinkModel::Place& place = model_.places[i];
    if (i < model_.sections.size()) {
      at.power += SectionAt(i, fibres_[i], model_.sections[i].decayPerKm, km);
      line = LineAt(i, km);
    } else {
      line = 0.0;
    }
    if (place.reflection != 0.0) at.power += place.reflection * OfPoint(km - place.km);
    tail += TailOf(place, km - place.km);
  }
  at.transient = std::fabs(at.power - line) + tail;
  return at;
}

LinkPower::At LinkPower::PowerAndSlopes(double km, std::vector<Derivative>& derivatives) const {
  derivatives.clear();
  At at;
  double line = 0.0, tail = 0.0;
  for (size_t i = FirstSeen(km); i < model_.places.size() && model_.places[i].km < km; ++i) {
    const LinkModel::Place& place = model_.places[i];
    const double s = km - place.km, seen = OfPoint(s);
    double lost = 0.0;  // scattered light a km in front of the place, less that behind it
    if (i > 0) lost += LineAt(i - 1, place.km) * fibres_[i - 1].fast.DensityPerKm();
    line = 0.0;
    if (i < model_.sections.size()) {
      const double power = SectionAt(i, fibres_[i], model_.sections[i].decayPerKm, km);
      at.power += power;
      line = LineAt(i, km);
      lost -= LineAt(i, place.km) * fibres_[i].fast.DensityPerKm();
      derivatives.push_back({NumberOf(i, Parameter::kLevel), power});
      AddDecay(i, km, power, derivatives);
    }
    tail += TailOf(place, s);
    if (seen == 0.0) continue;
    at.power += place.reflection * seen;
    derivatives.push_back({NumberOf(i, Parameter::kPlace), lost * seen - place.reflection * SlopeOfPoint(s)});
    if (place.reflects) derivatives.push_back({NumberOf(i, Parameter::kReflection), seen});
  }
  at.transient = std::fabs(at.power - line) + tail;
  return at;
}

}  // namespace reflyze
