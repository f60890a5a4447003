// SPDX-License-Identifier: Apache-2.0
#include "measure/Echoes.h"

#include <algorithm>
#include <cmath>

#include "measure/SecondLook.h"
#include "util/elementary.h"

// Light that comes back from a reflection B may be reflected again by A in front of it, and once more by B,
// or by another C, before it arrives. It is late by the way from A to there and back, so it seems to come
// from
//
//   x = B + C - A.
//
// With P0 for the light that is launched, T(a, b) for what passes from a to b one way, and R for
// reflectances, a reflection at B shows as P_B = P0 T(0, B)^2 R_B. The echo has passed T(0, C) T(C, A) T(A,
// B) T(B, 0), which is T(0, C)^2 T(0, B)^2 / T(0, A)^2, so that
//
//   P = P_B P_C R_A / M_A, twice that for two ways (first B, or first C),
//
// with M_A = P0 T(0, A)^2 for what a mirror at A would show, and R_A = P_A / M_A. An echo takes nothing from
// the light that goes on: beside its place there is no loss.

namespace reflyze {
namespace {

constexpr double kSureEcho = 3.0;           // standard deviations
constexpr double kMostLossNepers = 0.0115;  // 0.05 dB
constexpr double kTimesOff = 4.0;  // spans scatter differently, and loss and height share what is misread
constexpr double kMostReflectance = 0.05;  // glass and air, well polished
// An echo needs bright reflections, and the work grows with the third power of their number.
constexpr std::size_t kMostBright = 24;

class EchoSearch {
 public:
  EchoSearch(const std::vector<PlaceNote>& notes, const LinkFit& fit, double mirrorDb)
      : notes_(notes), fit_(fit), places_(fit.model.places) {
    const LinkPower power(fit.model);
    const double overLine = elementary::Exp10(-mirrorDb / 10.0);
    for (std::size_t i = 0; i < places_.size(); ++i) {
      const double km = places_[i].km + (i == 0 ? power.DelayKm() : 0.0);
      mirror_.push_back(power.LineAt(i == 0 ? 0 : i - 1, km) * overLine);
      if (i > 0 && i + 1 < places_.size() && places_[i].reflects) bright_.push_back(i);
    }
    const auto brighter = [&](std::size_t one, std::size_t other) {
      return places_[one].reflection > places_[other].reflection;
    };
    std::stable_sort(bright_.begin(), bright_.end(), brighter);
    if (bright_.size() > kMostBright) bright_.resize(kMostBright);
  }

  bool IsEcho(std::size_t place) const {
    if (!places_[place].reflects || notes_[place].saturated || Loses(place)) return false;
    for (const std::size_t far : bright_) {
      for (const std::size_t other : bright_) {
        if (far >= place || other > far) continue;
        if (Comes(place, 0, other, far)) return true;
        for (const std::size_t near : bright_) {
          if (near < other && Comes(place, near, other, far)) return true;
        }
      }
    }
    return false;
  }

 private:
  bool Loses(std::size_t place) const {
    Weights by;
    const double nepers = LossOf(fit_.model, place, by);
    const double sure = kSureEcho * std::sqrt(fit_.certainty->VarianceOf(by));
    return std::fabs(nepers) > std::max(sure, kMostLossNepers);
  }

  bool Comes(std::size_t place, std::size_t near, std::size_t other, std::size_t far) const {
    const double km = places_[far].km + places_[other].km - places_[near].km;
    double variance = 0.0;  // with far == other counted as one place twice as heavy: 2 + 2 is 2 squared
    for (const std::size_t at : {place, near, other, far}) {
      const double deviation = fit_.Deviation(at, Parameter::kPlace);
      variance += deviation * deviation * (far == other && at == far ? 2.0 : 1.0);
    }
    const double leastKm = 0.05 * fit_.model.pulseKm;  // what an edge of the model may be off
    if (!(std::fabs(places_[place].km - km) < leastKm + kSureEcho * std::sqrt(variance))) return false;
    // A launch may hide its reflection, and saturated ones theirs: then only the most is known.
    const bool known = (near > 0 || places_[0].reflects) && !notes_[near].saturated;
    const bool whole = !notes_[far].saturated && !notes_[other].saturated;
    const double reflectance = known ? places_[near].reflection / mirror_[near] : kMostReflectance;
    const double most = places_[far].reflection * places_[other].reflection * reflectance / mirror_[near] *
                        (far == other ? 1.0 : 2.0);
    const double power = places_[place].reflection;
    return (!whole || power < kTimesOff * most) && (!known || !whole || power * kTimesOff > most);
  }

  const std::vector<PlaceNote>& notes_;
  const LinkFit& fit_;
  const std::vector<LinkModel::Place>& places_;
  std::vector<double> mirror_;  // what would be seen of one at each place
  std::vector<std::size_t> bright_;
};

}  // namespace

std::vector<bool> EchoesOf(const std::vector<PlaceNote>& notes, const LinkFit& fit, double mirrorDb) {
  std::vector<bool> echoes(fit.model.places.size(), false);
  const EchoSearch search(notes, fit, mirrorDb);
  for (std::size_t i = 2; i + 1 < echoes.size(); ++i) echoes[i] = search.IsEcho(i);
  return echoes;
}

}  // namespace reflyze
