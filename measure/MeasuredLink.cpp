// SPDX-License-Identifier: Apache-2.0
#include "measure/MeasuredLink.h"

#include <algorithm>
#include <cmath>

#include "measure/EndSearch.h"
#include "measure/Figures.h"
#include "measure/Sampling.h"
#include "measure/SecondLook.h"
#include "sor/sorData.h"

namespace reflyze {
namespace {

constexpr int kMostEvents = 1000;
constexpr int kMostRounds = 14;
constexpr double kNoWorse = -20.0;  // that much cost tells nothing beside one place less

// Attenuation that fibre usually has, for links whose own sections are all too short to tell.
DecayPrior UsualDecay(double nm) {
  const auto of = [](double dbPerKm, double deviation) {
    return DecayPrior{dbPerKm / kDbOfNeper, deviation / kDbOfNeper};
  };
  if (nm < 1000.0) return of(2.5, 0.7);
  if (nm < 1400.0) return of(0.34, 0.04);
  return of(0.2, 0.03);
}

// Fibres of one cable are alike: what its sure sections have in common is known of each.
DecayPrior LearnDecay(const LinkFit& fit, DecayPrior prior) {
  constexpr double kSure = 0.01, kLeast = 0.005, kOfOne = 0.02;  // nepers a km
  double sum = 0.0, weights = 0.0, squares = 0.0;
  int sure = 0;
  for (size_t i = 0; i < fit.model.sections.size(); ++i) {
    const double own = fit.Deviation(i, Parameter::kDecay);
    if (own > kSure) continue;
    const double weight = 1.0 / (own * own + 1e-6), decay = fit.model.sections[i].decayPerKm;
    sum += weight * decay, weights += weight, squares += weight * decay * decay, ++sure;
  }
  if (sure == 0) return prior;
  const double mean = sum / weights, spread = std::sqrt(std::max(0.0, squares / weights - mean * mean));
  return {mean, sure > 1 ? std::max(kLeast, 2.0 * spread) : kOfOne};
}

// One pulse and one spacing: a model knows no others.
bool IsOneStretch(const TSorBlockFixedParameters& fixed) {
  for (int i = 1; i < fixed.TPW; ++i) {
    const bool same = fixed.PWU[i] == fixed.PWU[0] && fixed.DS[i] == fixed.DS[0];
    if (fixed.NPPW[i] != 0 && !same) return false;
  }
  return fixed.TPW > 0;
}

// Whether the events can be places along a fibre: in order, on the trace or a little in front of it, and not
// so close together that the light of all of them overlaps, which takes the third power of their number to
// untangle.
bool ListsALink(const TSorData& record, const Powers& powers) {
  constexpr std::size_t kMostTogether = 64;
  constexpr double kTogetherPulses = 8.0, kInFrontKm = 1.0;
  const double last = powers.KmOf(powers.count());
  const double pulseKm = record.FxdParams->OwtToLen(record.FxdParams->GetOwtPulse(0));
  const double togetherKm = std::max(kTogetherPulses * pulseKm, powers.KmOf(kMostTogether));
  std::vector<double> places;
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) {
    const double km = record.FxdParams->OwtToLen(record.KeyEvents->EventAt(i).EPT - record.NumToOwt(0));
    if (!(km >= -kInFrontKm && km <= last) || (i > 0 && !(km > places.back()))) return false;
    places.push_back(km);
    if (places.size() > kMostTogether && km - places[places.size() - 1 - kMostTogether] < togetherKm)
      return false;
  }
  return true;
}

// A link with its fit.
struct Understood {
  NotedModel noted;
  LinkFit fit;
};

// Fit, look, fit again, until nothing is missing and nothing is too much.
class Measuring {
 public:
  Measuring(const TSorData& record, const Powers& powers, bool keepsTable)
      : powers_(powers),
        keepsTable_(keepsTable),
        prior_(UsualDecay(record.GenParams->NW)),
        look_(powers, keepsTable) {
    link_.noted = FirstModel(record, powers);
    if (link_.noted.notes[0].blind) HideLaunch();
    noise_ = FirstNoise(powers, link_.noted.model);
  }

  Understood Run() {
    FindReceiver();
    Learn();
    FindClipped();
    if (!keepsTable_) FindEnd();
    for (int round = 0; round < kMostRounds && Improve(); ++round) Learn();
    if (!keepsTable_) CutEnd();
    MoveSteps();
    if (keepsTable_) MoveListed();
    Learn(Residuals::kOfLine);
    CleanUp();
    return std::move(link_);
  }
  const NoiseModel& noise() const { return noise_; }
  const DecayPrior& prior() const { return prior_; }

 private:
  void Fit(Understood& link, const FitEffort& effort = {}) const {
    link.fit = FitLink(link.noted, SamplesFor(powers_, link.noted), noise_, prior_, effort);
    link.noted.model = link.fit.model;
  }

  // Where the table's end is none, a few times over: there may be more than one splitter.
  void FindEnd() {
    constexpr int kMostTimes = 4;
    for (int i = 0; i < kMostTimes; ++i) {
      Understood next = link_;
      if (!ProlongFibre(powers_, noise_, next.noted) || !Better(next)) break;
      link_ = std::move(next);
      Learn();
    }
    CutEnd();
  }

  void CutEnd() {
    while (CutDarkness(powers_, noise_, link_.fit, link_.noted)) Fit(link_);
  }

  // A fit that begins with a receiver far from the true one ends there. Some are tried, each for a few steps,
  // and the best goes on; its slow path comes last, since it can stand in for many faults.
  void FindReceiver() {
    const Understood start = link_;
    TryReceivers();
    if (link_.noted.notes[0].blind || FitsLaunch()) return;
    link_ = start;
    HideLaunch();
    TryReceivers();
  }

  // What is told inside the light of such a launch can't be measured.
  void HideLaunch() {
    NotedModel& noted = link_.noted;
    noted.notes[0].blind = true;
    noted.model.places[0].reflects = false;
    noted.model.places[0].reflection = 0.0;
    const double hiddenKm = noted.model.places[0].km + 2.0 * noted.model.pulseKm + 8.0 * noted.model.riseKm;
    while (noted.model.places.size() > 2 && noted.model.places[1].km < hiddenKm) noted.Join(1);
  }

  // Inside an instrument there is more than one reflection, and its receiver is only being switched on. Where
  // the light behind the launch is none that the model knows, it must not tell what the receiver is like.
  bool FitsLaunch() const {
    constexpr double kMostPerSample = 10.0, kMostOfOthers = 3.0;
    const LinkModel& model = link_.noted.model;
    std::vector<Sample> samples = SamplesFor(powers_, link_.noted);
    const double all = link_.fit.cost / static_cast<double>(samples.size());
    const double to = model.places[0].km + 2.0 * model.pulseKm;
    const auto isBehind = [&](const Sample& sample) { return sample.km > to; };
    samples.erase(std::remove_if(samples.begin(), samples.end(), isBehind), samples.end());
    if (samples.empty()) return true;
    const double here = CostOf(link_.noted, samples, noise_, prior_) / static_cast<double>(samples.size());
    return here < std::max(kMostPerSample, kMostOfOthers * all);
  }

  // A peak that is flat at the highest power of the trace may have been cut off there, though its record says
  // nothing of it. Then its edges alone are explained far better than with its top.
  void FindClipped() {
    constexpr double kFarBetter = 100.0;
    for (std::size_t i = 1; i < link_.noted.notes.size(); ++i) {
      const LinkModel& model = link_.noted.model;
      if (!model.places[i].reflects || link_.noted.notes[i].saturated || !EndsFlat(model.places[i].km))
        continue;
      Understood next = link_;
      next.noted.notes[i].saturated = true;
      next.noted.notes[i].seen = model.places[i].reflection;
      next.noted.model.places[i].km =
          LeadingEdgeKm(powers_, model.places[i].km, model.pulseKm, powers_.spacingKm());
      if (Better(next, kFarBetter)) link_ = std::move(next);
    }
  }

  bool EndsFlat(double km) const {
    constexpr long kFlatPoints = 4;
    const double highest = 0.98 * powers_.Peak(0, powers_.count());  // an amplifier may swing over first
    const long from = powers_.At(km),
               to = std::min(powers_.At(km + link_.noted.model.pulseKm) + 1, powers_.count());
    long flat = 0;
    for (long i = from; i < to && flat < kFlatPoints; ++i) flat = powers_[i] < highest ? 0 : flat + 1;
    return flat >= kFlatPoints;
  }

  void TryReceivers() {
    constexpr int kFewSteps = 6;
    constexpr double kRoughly = 0.01, kSame = 0.03;
    const std::vector<Sample> samples = SamplesFor(powers_, link_.noted, Sampling::kHalf);
    Understood best;
    for (const double share : {0.07, 0.2, 0.02}) {
      Understood next = link_;
      next.noted.model.riseKm = share * next.noted.model.pulseKm;
      next.fit = FitLink(next.noted, samples, noise_, prior_, {kFewSteps, kRoughly});
      next.noted.model = next.fit.model;
      const bool first = best.noted.notes.empty();
      const bool same = !first && std::fabs(next.fit.model.riseKm / best.fit.model.riseKm - 1.0) < kSame;
      if (first || next.fit.cost < best.fit.cost) best = std::move(next);
      if (same) break;  // two that began apart have found it
    }
    link_ = std::move(best);
    Fit(link_, {12, 0.003});
    LinkModel& model = link_.noted.model;
    model.wholeReceiver = true;
    model.slowKm = std::max(10.0 * model.riseKm, model.pulseKm);
    Fit(link_, {20, 0.001});
  }

  void Learn(Residuals residuals = Residuals::kOfNeighbours) {
    noise_ = LearnNoise(powers_, link_.fit.model, residuals, noise_);
    noise_.misfit = MisfitOf(link_.fit, SamplesFor(powers_, link_.noted), noise_);
    prior_ = LearnDecay(link_.fit, prior_);
    Fit(link_);
  }

  // Whether anything was changed.
  bool Improve() {
    Understood next = link_;
    if (look_.RemoveNothing(link_.fit, next.noted)) {
      link_ = std::move(next);
      return true;
    }
    const std::vector<Sample> samples = SamplesFor(powers_, link_.noted);
    const int room = kMostEvents - static_cast<int>(link_.noted.notes.size());
    if (room <= 0) return false;
    for (const int most : {room, 1}) {
      next = link_;
      const std::size_t added = look_.AddMissing(samples, noise_, link_.fit, most, next.noted);
      if (added == 0) return false;
      if (Better(next)) {
        link_ = std::move(next);
        return true;
      }
      if (added == 1) break;
    }
    look_.Forget(link_.noted, next.noted);
    return true;
  }

  // What the last fit has moved, or the noise of the whole model has shown, to be nothing.
  void CleanUp() {
    constexpr int kMostTimes = 4;
    for (int i = 0; i < kMostTimes && look_.RemoveNothing(link_.fit, link_.noted); ++i) Fit(link_);
  }

  void MoveSteps() {
    Understood next = link_;
    if (!look_.MoveSteps(noise_, link_.fit, next.noted) || !Better(next, 2.0)) return;
    link_ = std::move(next);
    Learn();
  }

  // Where a table that must be kept has an event beside its place, its light was added as another. Both are
  // one if the added one explains the trace as well alone.
  void MoveListed() {
    constexpr double kWithinPulses = 1.5;
    for (std::size_t i = link_.noted.notes.size() - 2; i > 0 && i < link_.noted.notes.size(); --i) {
      for (const std::size_t added : {i - 1, i + 1}) {
        const std::vector<LinkModel::Place>& places = link_.noted.model.places;
        const bool inner = added > 0 && added + 1 < places.size();
        if (!inner || link_.noted.notes[i].listed < 0 || link_.noted.notes[added].listed >= 0) continue;
        if (std::fabs(places[added].km - places[i].km) > kWithinPulses * link_.noted.model.pulseKm) continue;
        Understood next = link_;
        next.noted.notes[added].listed = next.noted.notes[i].listed;
        next.noted.Join(i);
        if (!Better(next, kNoWorse)) continue;
        link_ = std::move(next);
        break;
      }
    }
  }

  // What is added has to explain the trace better by far than what was there: a fit that goes astray does
  // not.
  bool Better(Understood& next, double least = 20.0) const {
    Fit(next, {20, 0.001});
    const std::vector<Sample> samples = SamplesFor(powers_, next.noted);
    return CostOf(next.noted, samples, noise_, prior_) < CostOf(link_.noted, samples, noise_, prior_) - least;
  }

  const Powers& powers_;
  bool keepsTable_;
  DecayPrior prior_;
  SecondLook look_;
  NoiseModel noise_;
  Understood link_;
};

// Whether each place is known, behind the one in front of it and on the trace.
bool HasPlaces(const Understood& link, double lastKm) {
  const std::vector<LinkModel::Place>& places = link.fit.model.places;
  for (size_t i = 0; i < places.size(); ++i) {
    if (!std::isfinite(link.fit.Deviation(i, Parameter::kPlace))) return false;
    if (i > 0 && !(places[i].km > std::max(0.0, places[i - 1].km) && places[i].km <= lastKm)) return false;
  }
  return true;
}

// Fibre scatters light back along a section that falls no faster than fibre does. What a launch without a
// fibre leaves in the receiver falls faster, and is gone after some pulses.
bool ShowsFibre(const Understood& link, const NoiseModel& noise, double nm) {
  constexpr double kSure = 6.0, kShortestPulses = 3.0;
  const double steepest = (nm < 1000.0 ? 8.0 : 2.0) / kDbOfNeper;
  const LinkModel& model = link.fit.model;
  const LinkPower power(model);
  for (size_t i = 0; i < model.sections.size(); ++i) {
    const double from = model.places[i].km, to = model.places[i + 1].km;
    if (to - from < kShortestPulses * model.pulseKm || model.sections[i].decayPerKm > steepest) continue;
    if (power.LineAt(i, (from + to) / 2.0) > kSure * std::sqrt(noise.VarianceOfMean(0.0, 24.0))) return true;
  }
  return model.places.back().reflects &&
         model.places.back().km - model.places.front().km > kShortestPulses * model.pulseKm;
}

// An end without a reflection is seen where light is that could be gone behind it.
bool Fades(const Powers& powers, const Understood& link, const NoiseModel& noise) {
  constexpr double kSeen = 8.0;  // standard deviations of the mean over two pulses
  const LinkModel& model = link.fit.model;
  const double points = std::max(16.0, 2.0 * model.pulseKm / powers.spacingKm());
  const double line = LinkPower(model).LineAt(model.sections.size() - 1, model.places.back().km);
  return !model.places.back().reflects && line < kSeen * std::sqrt(noise.VarianceOfMean(0.0, points));
}

// A real receiver does not begin to rise at once, as one of a single rate does: the fit places an edge by up
// to a rise time behind its first light. How far the samples of edges and tails differ from the model says
// how much of that there is; the relation is tuned on instruments whose tables are known, and nothing is
// added where the model holds.
double EdgeDeviationKm(const LinkModel& model, double misfit) {
  constexpr double kModelHolds = 0.005, kOtherReceiver = 0.02, kOfRise = 0.6;
  const double share = (misfit - kModelHolds) / (kOtherReceiver - kModelHolds);
  return kOfRise * model.riseKm * std::clamp(share, 0.0, 1.0);
}

}  // namespace

std::optional<MeasuredLink> MeasureLink(const TSorData& record, const MeasureOptions& options) {
  const int count = record.KeyEvents->ListedEvents();
  if (count < 2 || count > kMostEvents || !IsOneStretch(*record.FxdParams)) return std::nullopt;
  const Powers powers(record);
  if (!powers.IsUsable() || !ListsALink(record, powers)) return std::nullopt;
  Measuring measuring(record, powers, options.keepsTable);
  const Understood link = measuring.Run();
  if (!ShowsFibre(link, measuring.noise(), record.GenParams->NW)) {
    MeasuredLink none;
    none.fibre = false;
    none.noise = measuring.noise();
    return none;
  }
  if (!link.fit.converged || !HasPlaces(link, powers.KmOf(powers.count()))) return std::nullopt;
  MeasuredLink told = FiguresOf(record, link.noted, link.fit, measuring.prior(), options);
  told.noise = measuring.noise();
  const double edgeKm = EdgeDeviationKm(link.fit.model, measuring.noise().misfit);
  for (MeasuredEvent& event : told.events)
    event.km.deviation = std::sqrt(event.km.deviation * event.km.deviation + edgeKm * edgeKm);
  if (!told.events.empty()) told.events.back().fades = Fades(powers, link, measuring.noise());
  return told;
}

}  // namespace reflyze
