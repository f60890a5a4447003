// SPDX-License-Identifier: Apache-2.0
#include "measure/Figures.h"

#include <algorithm>
#include <cmath>

#include "measure/Backscatter.h"
#include "measure/Echoes.h"
#include "measure/PulseResponse.h"
#include "measure/SecondLook.h"
#include "sor/sorData.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

// What no fibre link has, or what is told so vaguely that it says nothing, was not measured.
struct Bounds {
  double least, most, mostDeviation;
};
constexpr Bounds kLossDb = {-5.0, 60.0, 3.0}, kReflectanceDb = {-120.0, 0.0, 5.0},
                 kAttenuationDbPerKm = {0.0, 10.0, 2.0}, kTotalDb = {-5.0, 120.0, 5.0},
                 kReturnLossDb = {0.0, 120.0, 5.0};

std::optional<Measured> Within(const Bounds& bounds, double value, double deviation) {
  const bool holds = value >= bounds.least && value <= bounds.most && deviation <= bounds.mostDeviation;
  return holds ? std::optional<Measured>({value, deviation}) : std::nullopt;
}

// The probability that something is there which was seen `z` deviations large. Sizes of real ones are taken
// as normal around 0 with `usual`, that of noise is `deviation`; then, with k = usual / deviation, the odds
// grow by
//   exp(z^2 / 2 * k^2 / (1 + k^2)) / sqrt(1 + k^2)
// (the ratio of both densities at what was seen).
double ProbabilityOf(double size, double deviation, double usual, double oddsBefore) {
  if (deviation <= 0.0) return 1.0;
  if (!std::isfinite(size / deviation) || !std::isfinite(deviation)) return oddsBefore / (1.0 + oddsBefore);
  const double z = size / deviation, k2 = usual * usual / (deviation * deviation);
  const double odds =
      elementary::Log(oddsBefore) + z * z / 2.0 * k2 / (1.0 + k2) - elementary::Log(1.0 + k2) / 2.0;
  return odds > 40.0 ? 1.0 : 1.0 - 1.0 / (1.0 + elementary::Exp(odds));
}

class Teller {
 public:
  Teller(const TSorData& record, const NotedModel& noted, const LinkFit& fit, const DecayPrior& prior,
         const MeasureOptions& options)
      : record_(record), notes_(noted.notes), fit_(fit), model_(fit.model), prior_(prior), options_(options) {
    const Backscatter backscatter = BackscatterOf(record);
    backscatterDb_ = backscatter.db;
    backscatterDeviationDb_ = backscatter.deviationDb;
    if (backscatter.assumed) told_.assumedBackscatterDb = backscatterDb_;
    told_.riseKm = model_.riseKm;
    for (size_t i = 1; i + 1 < model_.places.size(); ++i) {
      Weights by;
      const double nepers = LossOf(model_, i, by);
      // Where both lines have different slopes, the loss depends on the place.
      by.emplace_back(NumberOf(i, Parameter::kPlace),
                      model_.sections[i].decayPerKm - model_.sections[i - 1].decayPerKm);
      losses_.push_back({kDbOfNeper * nepers, kDbOfNeper * DeviationOf(by)});
    }
  }

  MeasuredLink Tell() {
    if (EnergyNs() > 0.0)
      echoes_ = EchoesOf(notes_, fit_, backscatterDb_ + 10.0 * elementary::Log10(EnergyNs()));
    size_t before = 0;  // the place of the event in front
    for (size_t i = 0; i < model_.places.size(); ++i) {
      MeasuredEvent event = EventAt(i);
      const bool inner = i > 0 && i + 1 < model_.places.size();
      if (inner && !IsTold(event)) continue;
      if (i > 0) AddFront(before, i, event);
      if (!told_.events.empty()) {
        told_.events.back().behindFromKm = event.frontFromKm;
        told_.events.back().behindToKm = event.frontToKm;
      }
      before = i;
      told_.events.push_back(event);
    }
    AddTotals();
    return std::move(told_);
  }

 private:
  double DeviationOf(const Weights& by) const { return std::sqrt(fit_.certainty->VarianceOf(by)); }
  double DelayKm() const { return model_.pulseKm / 2.0 + model_.riseKm; }
  double SettledKm() const { return model_.pulseKm + 8.0 * model_.riseKm; }
  // Of the flat pulse of the same energy.
  double EnergyKm() const { return Growth(-model_.droopPerKm, model_.pulseKm); }
  double EnergyNs() const { return record_.FxdParams->GetNsPulse(0.0) * EnergyKm() / model_.pulseKm; }

  // The line of a section at a place in nepers, with `sign`, and its weights.
  double Line(size_t section, double km, double sign, Weights& by) const {
    const LinkModel::Section& line = model_.sections[section];
    by.emplace_back(NumberOf(section, Parameter::kLevel), sign);
    by.emplace_back(NumberOf(section, Parameter::kDecay), -sign * (km - line.anchorKm));
    return sign * (line.level - line.decayPerKm * (km - line.anchorKm));
  }

  bool IsTold(const MeasuredEvent& event) const {
    if (event.listed >= 0) return true;
    if (options_.keepsTable) return false;
    const bool loses = event.lossDb && std::fabs(event.lossDb->value) >= options_.leastLossDb;
    return loses || (event.reflectanceDb && event.reflectanceDb->value >= options_.leastReflectanceDb);
  }

  MeasuredEvent EventAt(size_t i) const {
    MeasuredEvent event;
    event.listed = notes_[i].listed;
    event.km = {model_.places[i].km, fit_.Deviation(i, Parameter::kPlace)};
    event.reflects = model_.places[i].reflects;
    event.reflectanceAtLeast = notes_[i].saturated;
    event.echo = !echoes_.empty() && echoes_[i];
    const double oddsBefore = event.listed >= 0 ? 10.0 : 0.02;
    if (i > 0 && i + 1 < model_.places.size()) {
      const Measured loss = losses_[i - 1];
      event.lossDb = Within(kLossDb, loss.value, loss.deviation);
      constexpr double kUsualLossDb = 0.3;
      event.probability = ProbabilityOf(loss.value, loss.deviation, kUsualLossDb, oddsBefore);
    }
    if (event.reflects && model_.places[i].reflection > 0.0 && EnergyNs() > 0.0)
      AddReflectance(i, oddsBefore, event);
    return event;
  }

  // The section from the event in front, with what small steps it has.
  void AddFront(size_t before, size_t i, MeasuredEvent& event) const {
    const double from = model_.places[before].km, to = model_.places[i].km;
    event.frontFromKm = std::min(from + SettledKm(), to);
    event.frontToKm = to;
    Weights by;
    const double nepers = Line(before, from + DelayKm(), 1.0, by) + Line(i - 1, to + DelayKm(), -1.0, by);
    for (auto& weight : by) weight.second /= to - from;
    const double deviation = DeviationOf(by);
    // What the section itself says must be more than what was known before.
    constexpr double kOwnShare = 0.8;
    if (event.frontFromKm >= event.frontToKm || deviation > kOwnShare * prior_.deviation) return;
    event.attenuationDbPerKm =
        Within(kAttenuationDbPerKm, kDbOfNeper * nepers / (to - from), kDbOfNeper * deviation);
  }

  // A record states one coefficient, but spans differ. Fibre that scatters more lifts the trace by half of
  // the difference: a splice that gains shows a rise of twice its gain at least. How far the coefficient has
  // come back further on nobody sees, as a splice that loses may hide a fall: now and then, that of its whole
  // loss.
  double BackscatterDeviationAt(size_t place) const {
    constexpr double kSureGain = 3.0, kHiddenShare = 0.2, kLargestHiddenDb = 0.5;
    double gainedDb = 0.0, variance = backscatterDeviationDb_ * backscatterDeviationDb_;
    for (size_t i = 1; i < place; ++i) {
      if (model_.places[i].reflects) continue;
      const auto [lossDb, deviation] = losses_[i - 1];
      if (lossDb < -kSureGain * deviation) {
        gainedDb -= lossDb;
      } else {
        const double hidden = 2.0 * std::min(std::fabs(lossDb), kLargestHiddenDb);
        variance += kHiddenShare * hidden * hidden;
      }
    }
    return std::sqrt(variance + 4.0 * gainedDb * gainedDb);
  }

  // The rise alone tells little of how high a saturated peak would have come. It has come as high as it
  // shows.
  bool HidesHeight(size_t i) const {
    constexpr double kVague = 0.2;
    const double reflection = model_.places[i].reflection;
    return notes_[i].saturated && notes_[i].seen > 0.0 &&
           !(fit_.Deviation(i, Parameter::kReflection) < kVague * reflection);
  }

  // R = Bc + 10 log10(height T), with the height of the peak over the backscatter in front of it as powers,
  // and the pulse T in ns (IEC 61746-1). At the launch the backscatter is that behind it.
  void AddReflectance(size_t i, double oddsBefore, MeasuredEvent& event) const {
    const bool atLeast = HidesHeight(i);
    const double reflection = atLeast ? notes_[i].seen : model_.places[i].reflection;
    const double relative = atLeast ? 0.0 : fit_.Deviation(i, Parameter::kReflection) / reflection;
    const double at = model_.places[i].km + (i == 0 ? DelayKm() : model_.riseKm);
    Weights by;
    if (!atLeast) by.emplace_back(NumberOf(i, Parameter::kReflection), 1.0 / reflection);
    const double nepers = elementary::Log(reflection) + Line(i == 0 ? 0 : i - 1, at, -1.0, by);
    const double db = backscatterDb_ + 2.0 * kDbOfNeper * nepers + 10.0 * elementary::Log10(EnergyNs());
    const double own = 2.0 * kDbOfNeper * DeviationOf(by);
    const double of = BackscatterDeviationAt(i) + (i == 0 ? kLaunchDeviationDb : 0.0);
    event.reflectanceDb = Within(kReflectanceDb, db, std::sqrt(own * own + of * of));
    const double deviation = relative * reflection;
    const double reflects = ProbabilityOf(reflection, deviation, 10.0 * deviation, oddsBefore);
    const bool joins = i > 0 && i + 1 < model_.places.size();
    event.probability = joins ? std::max(event.probability, reflects) : reflects;
  }

  void AddTotals() {
    const size_t last = model_.places.size() - 1;
    Weights by;
    const double nepers = Line(0, model_.places[0].km + DelayKm(), 1.0, by) +
                          Line(last - 1, model_.places[last].km + DelayKm(), -1.0, by);
    told_.totalLossDb = Within(kTotalDb, kDbOfNeper * nepers, kDbOfNeper * DeviationOf(by));
    AddReturnLoss();
  }

  // All light that comes back, over that which a mirror at the launch would give. A mirror shows as
  // line / (10^(Bc / 10) T), with the energy of the pulse for T; the fibre gives line / energy a km. With the
  // decay the integral of exp(level - decay x) falls by that of x exp(level - decay x), which is
  //   (begin line(begin) - end line(end) + integral of line) / decay.
  void AddReturnLoss() {
    Weights by, shares;
    const double ns = EnergyNs(), energyKm = EnergyKm();
    double sum = 0.0;
    for (size_t i = 0; i < model_.places.size(); ++i) {
      if (model_.places[i].reflects && HidesHeight(i)) {
        sum += notes_[i].seen;
      } else if (model_.places[i].reflects) {
        sum += model_.places[i].reflection;
        shares.emplace_back(NumberOf(i, Parameter::kReflection), model_.places[i].reflection);
      }
      if (i + 1 == model_.places.size()) break;
      const LinkModel::Section& line = model_.sections[i];
      const double from = model_.places[i].km + DelayKm(), to = model_.places[i + 1].km + DelayKm();
      const auto at = [&](double km) {
        return elementary::Exp(line.level - line.decayPerKm * (km - line.anchorKm));
      };
      const double decay = std::max(line.decayPerKm, 1e-6), begin = from - line.anchorKm,
                   end = to - line.anchorKm;
      const double scattered = (at(from) - at(to)) / decay;
      const double byDecay = -(begin * at(from) - end * at(to) + scattered) / decay;
      sum += scattered / energyKm;
      shares.emplace_back(NumberOf(i, Parameter::kLevel), scattered / energyKm);
      shares.emplace_back(NumberOf(i, Parameter::kDecay), byDecay / energyKm);
    }
    if (!(sum > 0.0 && ns > 0.0)) return;
    for (const auto& [parameter, share] : shares) by.emplace_back(parameter, share / sum);
    const double nepers = elementary::Log(sum) + Line(0, model_.places[0].km + DelayKm(), -1.0, by);
    const double db = -(backscatterDb_ + 2.0 * kDbOfNeper * nepers + 10.0 * elementary::Log10(ns));
    const double own = 2.0 * kDbOfNeper * DeviationOf(by), of = backscatterDeviationDb_;
    // A saturated peak bounds it from one side all the same.
    const auto isSaturated = [](const PlaceNote& note) { return note.saturated; };
    const bool bounded = std::any_of(notes_.begin(), notes_.end(), isSaturated);
    const double deviation = std::sqrt(own * own + of * of);
    told_.returnLossDb =
        Within(kReturnLossDb, db, bounded ? std::min(deviation, kReturnLossDb.mostDeviation) : deviation);
  }

  const TSorData& record_;
  const std::vector<PlaceNote>& notes_;
  const LinkFit& fit_;
  const LinkModel& model_;
  const DecayPrior& prior_;
  const MeasureOptions& options_;
  double backscatterDb_, backscatterDeviationDb_;
  std::vector<bool> echoes_;      // whether a place is one; empty where nobody can tell
  std::vector<Measured> losses_;  // of the places between launch and end
  MeasuredLink told_;
};

}  // namespace

MeasuredLink FiguresOf(const TSorData& record, const NotedModel& noted, const LinkFit& fit,
                       const DecayPrior& prior, const MeasureOptions& options) {
  return Teller(record, noted, fit, prior, options).Tell();
}

}  // namespace reflyze
