// SPDX-License-Identifier: Apache-2.0
#include "measure/SecondLook.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

// Standard deviations. Some thousand places of a trace are looked at, independent after a pulse or so: normal
// noise comes as far as this once in ten thousand traces. What lies below is left for receivers that the
// model does not describe.
constexpr double kSureStep = 6.0, kSureReflection = 8.0;
constexpr double kReflectionOfStep = 5.0;  // where an event is, anyway
constexpr double kLeastStep = 0.0046;      // nepers, 0.01 dB
constexpr double kLeastReflection = 0.03;  // of the backscatter
constexpr double kNothingStep = 3.0, kNothingReflection = 4.0;
constexpr double kTogetherPulses = 4.0;
constexpr double kLargestGain = 0.46;  // nepers, 1 dB: fibres do not differ by more

// A step or a reflection that the residuals of a section show.
struct Find {
  double km = 0.0, score = 0.0;
  double size = 0.0;  // nepers of a step, power of a reflection
};

// One block of settled fibre.
struct Term {
  double km, weight, off;  // off: residual as a share of the line
};

// Less than a pulse in front of a reflection a step could be what the model's edge lacks.
double RoomInFront(const LinkModel& model, size_t place, double spacingKm) {
  return model.places[place].reflects ? 1.1 * model.pulseKm : 2.0 * spacingKm;
}

// Whether a step stands so close to a reflection that an edge or a tail that is not quite the model's could
// be all of it: of both only the sum is known.
bool StandsInLight(const LinkModel& model, size_t place, double spacingKm) {
  constexpr double kPulsesBehind = 1.5;
  const std::vector<LinkModel::Place>& places = model.places;
  const double km = places[place].km;
  return places[place + 1].km - km < RoomInFront(model, place + 1, spacingKm) ||
         (places[place - 1].reflects && km - places[place - 1].km < kPulsesBehind * model.pulseKm);
}

class Looker {
 public:
  Looker(const Powers& powers, const std::vector<Sample>& samples, const NoiseModel& noise,
         const LinkModel& model, bool blindLaunch)
      : powers_(powers), samples_(samples), noise_(noise), model_(model), power_(model), lit_(model) {
    if (!blindLaunch) return;
    const long from = powers.At(model.places[0].km), to = powers.At(model.places[0].km + model.pulseKm) + 3;
    lit_.places[0].reflects = true;
    lit_.places[0].reflection = powers.Peak(from, std::min(to, powers.count()));
    launch_.emplace(lit_);
  }

  // The section has taken what is missing into its line as far as it can. What a step explains beside any
  // line is the score of the step with level and slope projected out, over its standard deviation (Rao's
  // test): with weights w and s = 1 behind the step, score = sum w (s - a - b x) off, information = sum w (s
  // - a - b x) s, where a + b x is the line through s itself.
  Find MissingStep(size_t section) const {
    const std::vector<Term> terms = TermsOf(section);
    Find best;
    if (terms.size() < 8) return best;
    Sums all, behind;
    for (const Term& t : terms) all.Add(t);
    const double determinant = all.w * all.wxx - all.wx * all.wx;
    if (determinant <= 0.0) return best;
    for (size_t i = terms.size() - 1; i > 2; --i) {
      behind.Add(terms[i]);
      if (terms.size() - i < 3) continue;
      const double a = (behind.w * all.wxx - behind.wx * all.wx) / determinant;
      const double b = (behind.wx * all.w - behind.w * all.wx) / determinant;
      const double score = behind.wy - a * all.wy - b * all.wxy;
      const double information = behind.w - a * behind.w - b * behind.wx;
      if (information <= 1e-9 * behind.w) continue;
      const double z = score / std::sqrt(information);
      if (std::fabs(z) <= std::fabs(best.score)) continue;
      const double middle = model_.sections[section].anchorKm + (terms[i].km + terms[i - 1].km) / 2.0;
      best = {middle, z, score / information};
    }
    return best;
  }

  // Where a step that blocks have shown is, to a point. Points that lie nearer to the line behind it speak
  // for a place in front of them: with `off` from the middle of both lines, the likelihood of a place is the
  // sum of size * off behind it. The middle of the step lies half a pulse behind its place.
  double StepKm(size_t section, const Find& step) const {
    const double blockKm = std::max(BlockKm(section), model_.pulseKm);
    const long from =
        powers_.At(std::max(step.km - 2.0 * blockKm, model_.places[section].km + model_.pulseKm));
    const long to = powers_.At(std::min(step.km + 2.0 * blockKm, model_.places[section + 1].km - FrontKm()));
    double sum = 0.0, most = 0.0, best = step.km;
    for (long i = to; i > from; --i) {
      const double line = power_.LineAt(section, powers_.KmOf(i));
      sum += step.size * (powers_[i] - StoredPower(line, noise_).mean) / line;
      if (i == to || sum > most) most = sum, best = powers_.KmOf(i) - powers_.spacingKm() / 2.0;
    }
    return best - model_.pulseKm / 2.0 - model_.riseKm;
  }

  // Where an event between two sections would stand with the most likelihood, as far as their lines go, and
  // what it reflects there: each point between two places counts for the line that is nearer, by half of the
  // difference of both squares over the variance. None where that says no more than chance. Nor
  // is a place looked for behind points that speak against all that lies beyond them.
  std::optional<LinkModel::Place> BetterPlace(std::size_t place) const {
    constexpr double kMore = 4.0, kHopeless = 30.0;  // logarithms of the likelihood
    const double delay = DelayKm(), km = model_.places[place].km + delay;
    const long here = powers_.At(km);
    const long first =
        powers_.At(model_.places[place - 1].km + 2.0 * model_.pulseKm + 8.0 * model_.riseKm) + 1;
    const double room = RoomInFront(model_, place + 1, powers_.spacingKm());
    const long last = powers_.At(model_.places[place + 1].km - std::max(FrontKm(), room - delay)) - 1;
    LinkModel::Place best = model_.places[place];
    double most = kMore + ReflectedAt(place, here, last).gain;
    for (const long way : {-1L, 1L}) {
      double sum = 0.0;
      for (long i = way < 0 ? here - 1 : here; i >= first && i <= last; i += way) {
        const double at = powers_.KmOf(i);
        const double before = power_.LineAt(place - 1, at), behind = power_.LineAt(place, at);
        const double toBefore = powers_[i] - StoredPower(before, noise_).mean;
        const double toBehind = powers_[i] - StoredPower(behind, noise_).mean;
        const double gain = toBefore * toBefore - toBehind * toBehind;
        sum += (way < 0 ? gain : -gain) / (2.0 * noise_.VarianceOfMean(before, 1.0));
        if (sum + kMostReflectionGain < most - kHopeless) break;
        if (sum + kMostReflectionGain < most) continue;
        const Reflected reflected = ReflectedAt(place, i, last);
        if (sum + reflected.gain <= most) continue;
        most = sum + reflected.gain;
        best.km = at - delay;
        best.reflection = reflected.power;
        best.reflects = reflected.gain > 0.0;
      }
    }
    const double leastKm = best.reflects ? 0.25 * model_.pulseKm : model_.pulseKm;
    if (std::fabs(best.km - model_.places[place].km) < leastKm) return std::nullopt;
    return best;
  }

  // A reflection is as long as the pulse: the mean over that length stands out from the line.
  Find MissingReflection(size_t section) const {
    const long wide = std::max(1L, TruncToLong(model_.pulseKm / powers_.spacingKm()));
    const long from = powers_.At(ClearKm(section) + 2.0 * model_.riseKm) + 2;
    const long to = powers_.At(model_.places[section + 1].km - FrontKm()) - 2 - wide;
    Find best;
    long at = from;
    const auto look = [&](long i) {
      const double line = power_.LineAt(section, powers_.KmOf(i) + model_.pulseKm / 2.0);
      const double off = powers_.Mean(i, i + wide) - StoredPower(line, noise_).mean;
      const double variance = noise_.VarianceOfMean(line, static_cast<double>(wide));
      if (off <= 0.0 || off * off <= best.score * best.score * variance) return;
      best = {powers_.KmOf(i), off / std::sqrt(variance), off};
      at = i;
    };
    // Two that lie a small part of a pulse apart share nearly all of their light.
    const long step = std::max(1L, wide / 16), run = 64 * step;
    for (long first = from; first < to; first += run) {
      // None of these reaches over the least line among them by as much as counts.
      const long end = std::min(first + run, to);
      const double least = power_.LineAt(section, powers_.KmOf(end) + model_.pulseKm / 2.0);
      const double sure =
          kSureReflection * std::sqrt(noise_.VarianceOfMean(least, static_cast<double>(wide)));
      const double limit = (least + sure) * static_cast<double>(wide);
      for (long i = first; i < end; i += step) {
        if (powers_.Sum(i, i + wide) > limit) look(i);
      }
    }
    if (best.score == 0.0) return best;
    for (long i = std::max(from, at - step + 1), end = std::min(to, at + step); i < end; ++i) look(i);
    return best;
  }

  // The same at a place that is there and reflects nothing yet.
  Find ReflectionAt(size_t place) const {
    const long from = powers_.At(model_.places[place].km) + 1;
    const long to =
        std::min(powers_.At(model_.places[place].km + model_.pulseKm + model_.riseKm) + 1, powers_.count());
    if (to <= from) return {};
    double model = 0.0;
    for (long i = from; i < to; ++i) model += power_.Power(powers_.KmOf(i)).power;
    const double n = static_cast<double>(to - from);
    const double off = powers_.Mean(from, to) - StoredPower(model / n, noise_).mean;
    return {model_.places[place].km, off / std::sqrt(noise_.VarianceOfMean(model / n, n)), off};
  }

 private:
  struct Sums {
    double w = 0, wx = 0, wxx = 0, wy = 0, wxy = 0;
    void Add(const Term& t) {
      w += t.weight, wx += t.weight * t.km, wxx += t.weight * t.km * t.km;
      wy += t.weight * t.off, wxy += t.weight * t.km * t.off;
    }
  };

  // From where a section shows nothing but its fibre: what a bright reflection may have left in a receiver
  // that is not quite the model's would pass for steps, and for reflections.
  double ClearKm(size_t section) const {
    constexpr double kLeast = 0.002;   // of the line
    constexpr double kOfHidden = 0.1;  // of a peak that nobody could measure
    double km = model_.places[section].km + 1.5 * model_.pulseKm + 3.0 * model_.riseKm;
    const double most = model_.places[section + 1].km;
    const auto left = [&] {
      const double ofLaunch = section == 0 && launch_ ? kOfHidden * launch_->Power(km).transient : 0.0;
      return std::max(noise_.misfit * power_.Power(km).transient, ofLaunch);
    };
    while (km < most && left() > kLeast * power_.LineAt(section, km)) km += model_.pulseKm / 4.0;
    return km;
  }

  // The longest block of settled fibre that a section has.
  double BlockKm(size_t section) const {
    double most = 0.0;
    for (const Sample& sample : samples_) {
      if (sample.km > model_.places[section].km && sample.km < model_.places[section + 1].km)
        most = std::max(most, sample.points * powers_.spacingKm());
    }
    return most;
  }

  double DelayKm() const { return model_.pulseKm / 2.0 + model_.riseKm; }

  // What a pulse of light would explain at an event whose step has its middle at a point.
  struct Reflected {
    double gain = 0.0, power = 0.0;  // gain: logarithm of the likelihood; 0 for no reflection
  };
  static constexpr double kMostReflectionGain = 1e3;
  Reflected ReflectedAt(std::size_t place, long middle, long last) const {
    const double fromKm = powers_.KmOf(middle) - model_.pulseKm / 2.0;
    const long from = powers_.At(fromKm) + 1;
    const long to = std::min(powers_.At(fromKm + model_.pulseKm) + 1, last);
    if (to - from < 2) return {};
    const double at = powers_.KmOf(middle);
    const double line = (power_.LineAt(place - 1, at) + power_.LineAt(place, at)) / 2.0;
    const double off = powers_.Mean(from, to) - StoredPower(line, noise_).mean;
    const double score = off / std::sqrt(noise_.VarianceOfMean(line, static_cast<double>(to - from)));
    if (score < kReflectionOfStep || off < kLeastReflection * line) return {};
    return {std::min(score * score / 2.0, kMostReflectionGain), off};
  }

  // Where the place behind is told a little late, its light shows in front of it.
  double FrontKm() const { return 0.3 * model_.pulseKm + powers_.spacingKm(); }

  // Places count from the anchor of the section.
  std::vector<Term> TermsOf(size_t section) const {
    const double from = ClearKm(section), to = model_.places[section + 1].km - FrontKm();
    std::vector<Term> terms;
    const auto before = [](const Sample& sample, double km) { return sample.km < km; };
    for (auto sample = std::lower_bound(samples_.begin(), samples_.end(), from, before);
         sample != samples_.end() && sample->km <= to; ++sample) {
      const double line = power_.LineAt(section, sample->km);
      const StoredPower stored(line, noise_);
      const double grows = line * stored.share;  // by a neper
      terms.push_back({sample->km - model_.sections[section].anchorKm,
                       grows * grows / noise_.VarianceOfMean(line, sample->points),
                       (sample->power - stored.mean) / grows});
    }
    return terms;
  }

  const Powers& powers_;
  const std::vector<Sample>& samples_;
  const NoiseModel& noise_;
  const LinkModel& model_;
  const LinkPower power_;
  LinkModel lit_;                    // the same with what a launch shows that was left out of the fit
  std::optional<LinkPower> launch_;  // of that; none where the fit has the launch
};

}  // namespace

double LossOf(const LinkModel& model, size_t place, Weights& by) {
  const double at = model.places[place].km + model.pulseKm / 2.0 + model.riseKm;
  double nepers = 0.0;
  for (const size_t section : {place - 1, place}) {
    const LinkModel::Section& line = model.sections[section];
    const double sign = section == place ? -1.0 : 1.0, away = at - line.anchorKm;
    by.emplace_back(NumberOf(section, Parameter::kLevel), sign);
    by.emplace_back(NumberOf(section, Parameter::kDecay), -sign * away);
    nepers += sign * (line.level - line.decayPerKm * away);
  }
  return nepers;
}

bool SecondLook::IsFree(const LinkModel& model, size_t section, double km) const {
  const auto isHere = [&](double empty) { return std::fabs(empty - km) < model.pulseKm; };
  return km > model.places[section].km + 0.5 * model.pulseKm &&
         km < model.places[section + 1].km - RoomInFront(model, section + 1, powers_.spacingKm()) &&
         std::none_of(emptyKm_.begin(), emptyKm_.end(), isHere);
}

bool SecondLook::IsDark(const PlaceNote& note) const {
  return std::find(darkKm_.begin(), darkKm_.end(), note.toldKm) != darkKm_.end();
}

// Sections beside a missing step take it into their lines as well, and seem to lack one far from it. So of
// neighbours the clearer goes first. Those that stand close together, for their sections, are a row of
// joints.
std::vector<SecondLook::Missing> SecondLook::LeaveOutNeighbours(const std::vector<Missing>& clearestFirst,
                                                                const LinkModel& model) {
  constexpr double kCloseShare = 0.25;
  std::vector<Missing> kept;
  for (const Missing& missing : clearestFirst) {
    const auto isBeside = [&](const Missing& other) {
      if (other.isThere || missing.isThere) return false;
      const size_t first = std::min(missing.at, other.at), last = std::max(missing.at, other.at);
      const double bothKm = model.places[last + 1].km - model.places[first].km;
      return last - first <= 1 && std::fabs(missing.place.km - other.place.km) > kCloseShare * bothKm;
    };
    if (std::none_of(kept.begin(), kept.end(), isBeside)) kept.push_back(missing);
  }
  return kept;
}

std::size_t SecondLook::AddMissing(const std::vector<Sample>& samples, const NoiseModel& noise,
                                   const LinkFit& fit, int most, NotedModel& noted) {
  std::vector<Missing> all = AllMissing(samples, noise, fit, noted);
  const auto clearer = [](const Missing& one, const Missing& other) { return one.score > other.score; };
  std::stable_sort(all.begin(), all.end(), clearer);
  all = LeaveOutNeighbours(all, fit.model);
  if (all.size() > static_cast<size_t>(most)) all.resize(static_cast<size_t>(most));
  // From the end, so that those in front keep their numbers.
  std::sort(all.begin(), all.end(),
            [](const Missing& one, const Missing& other) { return one.at > other.at; });
  for (const Missing& missing : all) {
    if (missing.isThere) {
      noted.model.places[missing.at].reflects = true;
      noted.model.places[missing.at].reflection = missing.place.reflection;
    } else {
      noted.Split(missing.at, missing.place, missing.step, missing.withinKm);
    }
  }
  return all.size();
}

std::vector<SecondLook::Missing> SecondLook::AllMissing(const std::vector<Sample>& samples,
                                                        const NoiseModel& noise, const LinkFit& fit,
                                                        const NotedModel& noted) const {
  const Looker looker(powers_, samples, noise, fit.model, noted.notes[0].blind);
  const LinkPower power(fit.model);
  std::vector<Missing> all;
  for (size_t i = 1; i + 1 < fit.model.places.size(); ++i) {
    LinkModel::Place place = noted.model.places[i];
    if (place.reflects || noted.notes[i].saturated || IsDark(noted.notes[i])) continue;
    const Find find = looker.ReflectionAt(i);
    const double least = kLeastReflection * power.LineAt(i, place.km);
    if (!(find.score >= kSureReflection && find.size >= least)) continue;
    place.reflection = find.size;
    all.push_back({i, true, find.score, place, 0.0, 0.0});
  }
  for (size_t i = 0; i < fit.model.sections.size(); ++i) {
    const Find step = looker.MissingStep(i), peak = looker.MissingReflection(i);
    const double line = power.LineAt(i, peak.km);
    const bool stands = std::fabs(step.score) > kSureStep && std::fabs(step.size) > kLeastStep;
    const bool reflects = peak.score > kSureReflection && peak.size > kLeastReflection * line &&
                          peak.size > 1.5 * std::fabs(step.size) * line;
    if (!stands && !reflects) continue;
    LinkModel::Place place;
    place.km = reflects ? peak.km : looker.StepKm(i, step);
    place.reflects = reflects;
    place.reflection = reflects ? peak.size : 0.0;
    if (!IsFree(fit.model, i, place.km)) continue;
    // The less a step stands out from the noise, the further off it may be told.
    const double offKm = reflects ? 0.0 : 4.0 * fit.model.pulseKm / std::fabs(step.score);
    all.push_back({i, false, reflects ? peak.score : std::fabs(step.score), place, reflects ? 0.0 : step.size,
                   std::max(fit.model.pulseKm, offKm)});
  }
  return all;
}

void SecondLook::Forget(const NotedModel& kept, const NotedModel& tried) {
  for (size_t i = 1; i + 1 < tried.model.places.size(); ++i) {
    const double told = tried.notes[i].toldKm;
    const auto isKept = [&](const PlaceNote& note) { return note.toldKm == told; };
    if (std::none_of(kept.notes.begin(), kept.notes.end(), isKept))
      emptyKm_.push_back(told);
    else if (tried.model.places[i].reflects)
      darkKm_.push_back(told);
  }
}

bool SecondLook::MoveSteps(const NoiseModel& noise, const LinkFit& fit, NotedModel& noted) const {
  const std::vector<Sample> none;
  const Looker looker(powers_, none, noise, fit.model, noted.notes[0].blind);
  bool moved = false;
  for (size_t i = 1; i + 1 < fit.model.places.size(); ++i) {
    if (noted.model.places[i].reflects || noted.notes[i].saturated) continue;
    const std::optional<LinkModel::Place> better = looker.BetterPlace(i);
    if (!better) continue;
    noted.model.places[i] = *better;
    noted.notes[i].toldKm = better->km;
    noted.notes[i].withinKm = std::max(noted.notes[i].withinKm, fit.model.pulseKm);
    moved = true;
  }
  return moved;
}

// A saturated place stays, as it is there whatever the fit makes of its shadow. Where it seems to gain, a
// place in that shadow loses what it gains.
bool SecondLook::LosesToShadow(const LinkModel& model, size_t place) {
  Weights by;
  return place + 2 < model.places.size() && LossOf(model, place, by) < -kLargestGain &&
         model.places[place + 1].km - model.places[place].km < kTogetherPulses * model.pulseKm;
}

// Where the fit has pushed a place into the one behind it, both are one: what is lost and reflected between
// them nobody can tell apart.
bool SecondLook::JoinTouching(NotedModel& noted) {
  constexpr double kTouchKm = 1e-5;
  std::vector<LinkModel::Place>& places = noted.model.places;
  bool any = false;
  for (size_t i = places.size() - 2; i > 0; --i) {
    if (places[i + 1].km - places[i].km > kTouchKm || noted.notes[i].saturated) continue;
    if (IsKept(noted.notes[i])) {
      if (noted.notes[i + 1].listed >= 0) continue;
      noted.notes[i + 1].listed = noted.notes[i].listed;
    }
    places[i + 1].reflects = places[i + 1].reflects || places[i].reflects;
    places[i + 1].reflection += places[i].reflection;
    Remove(i, true, noted);
    any = true;
  }
  return any;
}

bool SecondLook::RemoveNothing(const LinkFit& fit, NotedModel& noted) {
  if (JoinTouching(noted)) return true;
  // Of places whose light overlaps each may seem to be nothing, as the other could be all. So the weakest of
  // them goes alone.
  struct Weak {
    size_t place;
    double score, km;  // score below 0: it must go altogether
  };
  std::vector<Weak> all;
  for (size_t i = 1; i + 1 < fit.model.places.size(); ++i) {
    if (noted.notes[i].saturated) {
      if (LosesToShadow(fit.model, i) && !IsKept(noted.notes[i + 1]))
        all.push_back({i + 1, -1.0, noted.model.places[i + 1].km});
      continue;
    }
    if (IsKept(noted.notes[i])) continue;
    const LinkModel::Place& place = noted.model.places[i];
    const double bright = place.reflects ? place.reflection / fit.Deviation(i, Parameter::kReflection) : 0.0;
    Weights by;
    const double nepers = LossOf(fit.model, i, by);
    const double loss = std::fabs(nepers) / std::sqrt(fit.certainty->VarianceOf(by));
    const bool goes = place.reflects ? bright < kNothingReflection : loss < kNothingStep;
    // Of two places too close to be told apart one gains what the other loses.
    const bool gains = nepers < -kLargestGain;
    const bool crowds =
        noted.notes[i].listed < 0 && !place.reflects && StandsInLight(fit.model, i, powers_.spacingKm());
    if (goes || gains || crowds)
      all.push_back({i, gains || crowds ? -1.0 : std::max(bright, loss), place.km});
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const Weak& one, const Weak& other) { return one.score < other.score; });
  std::vector<Weak> going;
  for (const Weak& weak : all) {
    const auto isNear = [&](const Weak& other) {
      return std::fabs(other.km - weak.km) < kTogetherPulses * fit.model.pulseKm;
    };
    if (std::none_of(going.begin(), going.end(), isNear)) going.push_back(weak);
  }
  std::sort(going.begin(), going.end(),
            [](const Weak& one, const Weak& other) { return one.place > other.place; });
  for (const Weak& weak : going) Remove(weak.place, weak.score < 0.0, noted);
  return !going.empty();
}

void SecondLook::Remove(size_t place, bool wholly, NotedModel& noted) {
  LinkModel::Place& at = noted.model.places[place];
  if (at.reflects && !wholly) {
    at.reflects = false;
    at.reflection = 0.0;
    darkKm_.push_back(noted.notes[place].toldKm);
    return;
  }
  emptyKm_.push_back(at.km);
  noted.Join(place);
}

}  // namespace reflyze
