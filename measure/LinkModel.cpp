// SPDX-License-Identifier: Apache-2.0
#include "measure/LinkModel.h"

#include <algorithm>
#include <cmath>

#include "util/elementary.h"
#include "util/quickExp.h"

namespace reflyze {
namespace {

using elementary::QuickExp;

constexpr double kTailShare = 0.05, kTailPulses = 8.0;

// (exp(y) - 1) / y and its derivative, for y next to 0, where the quotients have no digits left.
constexpr double kSmall = 0.05;
double SmallGrowth(double y) {
  return 1.0 + y * (1.0 / 2 + y * (1.0 / 6 + y * (1.0 / 24 + y * (1.0 / 120 + y * (1.0 / 720 + y / 5040)))));
}
double SlopeOfSmallGrowth(double y) {
  return 1.0 / 2 + y * (1.0 / 3 + y * (1.0 / 8 + y * (1.0 / 30 + y * (1.0 / 144 + y / 840))));
}

}  // namespace

LinkPower::LinkPower(const LinkModel& model)
    : model_(model),
      pulse_(model.pulseKm, model.riseKm, model.droopPerKm),
      slow_(model.pulseKm, model.slowKm, model.droopPerKm),
      hasSlow_(model.slowShare != 0.0 || model.wholeReceiver),
      tailPerKm_(1.0 / model.pulseKm) {
  seen_.reserve(model.places.size());
  for (size_t i = 0; i < model.places.size(); ++i) {
    const LinkModel::Place& place = model.places[i];
    Seen seen{place.km, place.reflection, place.reflects, {}, {}, 0.0, 0.0, 0.0, 0.0};
    if (i > 0) seen.front = SideOf(i - 1, place.km);
    if (i < model.sections.size()) seen.behind = SideOf(i, place.km);
    seen.lost = seen.front.density - seen.behind.density;
    seen.untilKm = seen.lastKm = UntilKm(seen);
    // The end of a section shows by what is known of the section.
    if (i > 0) seen_[i - 1].lastKm = std::max(seen_[i - 1].lastKm, seen.untilKm);
    seen_.push_back(seen);
  }
  double goneKm = 0.0;
  for (Seen& seen : seen_) goneKm = seen.allGoneKm = std::max(goneKm, seen.lastKm);
}

// Behind the pulse the fast path forgets a place within some of its own lengths. What the slow path has of it
// falls as exp(-s / slow); it is followed down to where it is a hundred thousandth of the fibre's own light,
// far below ripple and rounding. A share that is not known yet is taken for some thousandths.
double LinkPower::UntilKm(const Seen& place) const {
  constexpr double kLeastLight = 1e-5, kLeastShare = 0.003;
  double until = pulse_.SettledKm();
  if (place.reflection != 0.0) until = std::max(until, kTailPulses * model_.pulseKm);
  if (hasSlow_) {
    const double share = std::max(std::fabs(model_.slowShare), kLeastShare);
    const double shown = share * (std::fabs(place.lost) * model_.slowKm + place.reflection);
    const double least = kLeastLight * model_.pulseKm * std::max(place.front.density, place.behind.density);
    const double over = shown > least ? elementary::Log(shown / least) : 0.0;
    until = std::max(until, std::min(slow_.SettledKm(), model_.pulseKm + over * model_.slowKm));
  }
  return place.km + until;
}

LinkPower::Side LinkPower::SideOf(size_t section, double km) const {
  const LinkModel::Section& line = model_.sections[section];
  const double over = line.decayPerKm - model_.droopPerKm, growth = Growth(over, model_.pulseKm);
  Side side;
  side.density = LineAt(section, km) / growth;
  side.decay = line.decayPerKm;
  side.grows = SlopeOfGrowth(over, model_.pulseKm) / growth;
  side.perGrowth = 1.0 / growth;
  side.awayKm = km - line.anchorKm;
  side.anchorKm = line.anchorKm;
  return side;
}

// What may be left of a reflection behind the place where two simple paths of a receiver have forgotten it.
double LinkPower::TailOf(const Seen& place, double s) const {
  if (place.reflection == 0.0 || s > kTailPulses * model_.pulseKm) return 0.0;
  return kTailShare * place.reflection * QuickExp(-s * tailPerKm_);
}

size_t LinkPower::FirstSeen(double km) const {
  const auto gone = [&](const Seen& place) { return place.allGoneKm < km; };
  return static_cast<size_t>(std::partition_point(seen_.begin(), seen_.end(), gone) - seen_.begin());
}

// Whether the pulse has left a section: then its line shows nowhere.
bool LinkPower::HasPassed(size_t section, double km) const {
  return section + 1 >= seen_.size() || km - seen_[section + 1].km >= model_.pulseKm;
}

double LinkPower::Driven(double s) const {
  if (s >= model_.pulseKm) return 0.0;
  return model_.droopPerKm == 0.0 ? 1.0 : QuickExp(-model_.droopPerKm * s);
}

LinkPower::Shown LinkPower::ShownOf(double s, double driven) const {
  const double fast = pulse_.OfPoint(s, driven), late = model_.riseKm * fast;
  if (model_.slowShare == 0.0) return {fast, late};
  const double slow = slow_.OfPoint(s, driven);
  return {fast + model_.slowShare * (slow - fast), late + model_.slowShare * (model_.slowKm * slow - late)};
}

// L(x) / G D(s) for s within the pulse, from the line L(z) = L(x) exp(-decay s).
double LinkPower::BegunLight(const Side& side, double s, double driven, double line) const {
  const double over = side.decay - model_.droopPerKm, faded = line * side.perGrowth;
  if (std::fabs(over * s) < kSmall) return faded * s * SmallGrowth(over * s);
  return (side.density * driven - faded) / over;
}

// The same with derivatives of D by decay and droop; that by the droop has the part of 1 / G, too.
LinkPower::Begun LinkPower::BegunSlopes(const Side& side, double s, double driven, double line) const {
  const double over = side.decay - model_.droopPerKm, faded = line * side.perGrowth;
  if (std::fabs(over * s) < kSmall) {
    const double light = faded * s * SmallGrowth(over * s);
    const double bend = faded * s * s * SlopeOfSmallGrowth(over * s);
    return {light, bend - s * light, side.grows * light - bend};
  }
  const double light = (side.density * driven - faded) / over;
  return {light, (s * faded - light) / over, side.grows * light + (light - s * side.density * driven) / over};
}

LinkPower::At LinkPower::Power(double km) const {
  At at;
  double line = 0.0, whole = 0.0, tail = 0.0;
  for (size_t i = FirstSeen(km); i < seen_.size() && seen_[i].km < km; ++i) {
    const Seen& place = seen_[i];
    if (km >= place.lastKm) continue;
    const double s = km - place.km, before = line;
    line = HasPassed(i, km) ? 0.0 : LineAt(i, km);
    if (km < place.untilKm) {
      const double driven = Driven(s);
      const Shown shown = ShownOf(s, driven);
      at.power += place.lost * shown.h + place.reflection * shown.g;
      tail += TailOf(place, s);
      if (s < model_.pulseKm)
        at.power += BegunLight(place.behind, s, driven, line) - BegunLight(place.front, s, driven, before);
    }
    if (s >= model_.pulseKm) whole = line;
  }
  at.power += whole;
  at.transient = std::fabs(at.power - line) + tail;
  return at;
}

// A side that shows sign (begun - density h), where the place's level grows by 1 and falls with the decay by
// its way from the anchor, and 1 / G by its share.
void LinkPower::AddSide(const Side& side, double sign, double h, const Begun& begun, double* levelAndDecay) {
  const double power = sign * (begun.light - side.density * h);
  levelAndDecay[0] += power;
  levelAndDecay[1] += sign * begun.byDecay - (side.awayKm + side.grows) * power;
}

// What a place shows by g and h, with its derivatives. Moved by a little, a place adds lost g, less
// what both sides fall on the way.
LinkPower::Shown LinkPower::AddShown(const Seen& place, double s, double driven, double* own,
                                     Slopes& slopes) const {
  const double share = model_.slowShare, lost = place.lost, light = place.reflection;
  const double rise = model_.riseKm, slowRise = model_.slowKm;
  const PulseResponse::Slopes fast = pulse_.SlopesOfPoint(s, driven);
  const PulseResponse::Slopes slow =
      hasSlow_ ? slow_.SlopesOfPoint(s, driven) : PulseResponse::Slopes{0.0, 0.0, 0.0, 0.0};
  const auto mixed = [share](double ofFast, double ofSlow) { return ofFast + share * (ofSlow - ofFast); };
  const double g = mixed(fast.value, slow.value), h = mixed(rise * fast.value, slowRise * slow.value);
  const double falls = place.front.density * place.front.decay - place.behind.density * place.behind.decay;
  own[0] += lost * g - falls * h - light * mixed(fast.byPlace, slow.byPlace);
  if (place.reflects) own[1] += g;
  const Side &front = place.front, &behind = place.behind;
  slopes.receiver[0] += (1.0 - share) * (lost * rise * (fast.value + fast.byRise) + light * fast.byRise);
  slopes.receiver[1] +=
      lost * (slowRise * slow.value - rise * fast.value) + light * (slow.value - fast.value);
  slopes.receiver[2] += share * (lost * slowRise * (slow.value + slow.byRise) + light * slow.byRise);
  slopes.receiver[3] += ((front.density * front.grows - behind.density * behind.grows) * h +
                         lost * mixed(rise * fast.byDroop, slowRise * slow.byDroop) +
                         light * mixed(fast.byDroop, slow.byDroop)) *
                        tailPerKm_;
  slopes.ofReceiver = true;
  return {g, h};
}

LinkPower::At LinkPower::PowerAndSlopes(double km, Slopes& slopes) const {
  At at;
  double line = 0.0, whole = 0.0, tail = 0.0;
  slopes.Begin();
  for (size_t i = FirstSeen(km); i < seen_.size() && seen_[i].km < km; ++i) {
    const Seen& place = seen_[i];
    if (km >= place.lastKm) continue;
    const double s = km - place.km, before = line;
    line = HasPassed(i, km) ? 0.0 : LineAt(i, km);
    if (km >= place.untilKm) {
      whole = line;
      double* const own = slopes.Add(i);
      own[2] = line;
      own[3] = (-s - place.behind.awayKm) * line;
      continue;
    }
    double* const own = slopes.Add(i);
    // What shows of a place shows the section in front of it, too, so that stands in front of it here.
    double* const front = slopes.count > 1 ? slopes.places[slopes.count - 2].by : nullptr;
    const double driven = Driven(s);
    const Shown shown = AddShown(place, s, driven, own, slopes);
    tail += TailOf(place, s);
    at.power += place.lost * shown.h + place.reflection * shown.g;
    Begun behind = {line, (place.behind.grows - s) * line, 0.0}, ahead = {0.0, 0.0, 0.0};
    if (s < model_.pulseKm) {
      behind = BegunSlopes(place.behind, s, driven, line);
      ahead = BegunSlopes(place.front, s, driven, before);
      at.power += behind.light - ahead.light;
      slopes.receiver[3] += (behind.byDroop - ahead.byDroop) * tailPerKm_;
    } else {
      whole = line;
    }
    AddSide(place.behind, 1.0, shown.h, behind, own + 2);
    if (front != nullptr) AddSide(place.front, -1.0, shown.h, ahead, front + 2);
  }
  at.power += whole;
  at.transient = std::fabs(at.power - line) + tail;
  return at;
}

}  // namespace reflyze
