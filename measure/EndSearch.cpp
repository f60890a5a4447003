// SPDX-License-Identifier: Apache-2.0
#include "measure/EndSearch.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kLit = 4.0;         // standard deviations over the dark, of the mean of a block
constexpr long kFewestPoints = 16;   // of a block
constexpr size_t kFirstBlocks = 12;  // that tell whether there is fibre

// Means of neighbouring blocks of points behind a place.
struct Blocks {
  long from = 0, length = 0;
  std::vector<double> overDark;  // mean power over that of the dark
  double deviation = 0.0;        // of each, in the dark

  bool IsLit(size_t i) const { return overDark[i] > kLit * deviation; }
  long EndOf(size_t i) const { return from + static_cast<long>(i + 1) * length; }
};

Blocks BlocksBehind(const Powers& powers, const NoiseModel& noise, const LinkModel& model, double km) {
  Blocks blocks;
  blocks.length = std::max(kFewestPoints, static_cast<long>(2.0 * model.pulseKm / powers.spacingKm()));
  blocks.from = powers.At(km);
  const double dark = StoredPower(0.0, noise).mean;
  blocks.deviation = std::sqrt(noise.VarianceOfMean(0.0, static_cast<double>(blocks.length)));
  for (long at = blocks.from; at + blocks.length <= powers.count(); at += blocks.length)
    blocks.overDark.push_back(powers.Mean(at, at + blocks.length) - dark);
  return blocks;
}

// Fibre lights all blocks and falls slowly; an echo lights one or two, and what a receiver remembers falls
// fast.
bool IsFibre(const Powers& powers, const Blocks& blocks) {
  constexpr double kSteepestDbPerKm = 2.0, kMoreDb = 1.0, kDbOfHalves = 5.0;
  if (blocks.overDark.size() < kFirstBlocks) return false;
  size_t lit = 0;
  double sums[2] = {0.0, 0.0};
  for (size_t i = 0; i < kFirstBlocks; ++i) {
    lit += blocks.IsLit(i) ? 1 : 0;
    sums[i * 2 / kFirstBlocks] += blocks.overDark[i];
  }
  if (lit * 4 < kFirstBlocks * 3 || sums[0] <= 0.0 || sums[1] <= 0.0) return false;
  const double apartKm =
      static_cast<double>(blocks.length) * static_cast<double>(kFirstBlocks / 2) * powers.spacingKm();
  return kDbOfHalves * elementary::Log10(sums[0] / sums[1]) < kSteepestDbPerKm * apartKm + kMoreDb;
}

// The last block of fibre: behind it fewer than half of the next ones are lit.
size_t LastLit(const Blocks& blocks) {
  constexpr size_t kNext = 6;
  size_t last = kFirstBlocks - 1;
  for (size_t i = last; i < blocks.overDark.size(); ++i) {
    size_t lit = 0, seen = 0;
    for (size_t k = i; k < std::min(i + kNext, blocks.overDark.size()); ++k, ++seen)
      lit += blocks.IsLit(k) ? 1 : 0;
    if (lit * 2 < seen) break;
    if (blocks.IsLit(i)) last = i;
  }
  return last;
}

// Whether a place reflects beyond doubt.
bool Reflects(const LinkFit& fit, size_t place) {
  const LinkModel::Place& at = fit.model.places[place];
  return at.reflects && at.reflection > kLit * fit.Deviation(place, Parameter::kReflection);
}

}  // namespace

bool ProlongFibre(const Powers& powers, const NoiseModel& noise, NotedModel& noted) {
  LinkModel& model = noted.model;
  const double endKm = model.places.back().km;
  const Blocks blocks = BlocksBehind(powers, noise, model, endKm + 3.0 * model.pulseKm + 12.0 * model.riseKm);
  if (!IsFibre(powers, blocks)) return false;
  LinkModel::Place end;
  end.km = powers.KmOf(std::min(blocks.EndOf(LastLit(blocks)), powers.count() - 1)) - model.pulseKm;
  if (end.km <= endKm + model.pulseKm) return false;
  model.sections.push_back(LineBetween(powers, model, endKm, end.km));
  model.places.push_back(end);
  PlaceNote note;
  note.toldKm = end.km;
  note.withinKm = static_cast<double>(blocks.length) * powers.spacingKm();
  noted.notes.push_back(note);
  return true;
}

bool CutDarkness(const Powers& powers, const NoiseModel& noise, const LinkFit& fit, NotedModel& noted) {
  LinkModel& model = noted.model;
  const size_t last = model.places.size() - 1;
  if (last < 2 || Reflects(fit, last)) return false;
  // Behind a bright reflection samples show its tail as well, but the fit tells that from the light of a
  // fibre. The deviation of a logarithm is a share.
  const bool unknown = Reflects(fit, last - 1) && kLit * fit.Deviation(last - 1, Parameter::kLevel) >= 1.0;
  const long from = powers.At(model.places[last - 1].km + 3.0 * model.pulseKm + 12.0 * model.riseKm);
  const long to = powers.At(model.places[last].km);
  if (!unknown) {
    if (to - from < kFewestPoints) return false;
    const double over = powers.Mean(from, to) - StoredPower(0.0, noise).mean;
    const double deviation = std::sqrt(noise.VarianceOfMean(0.0, static_cast<double>(to - from)));
    if (over > kLit * deviation) return false;
  }
  model.places.pop_back();
  model.sections.pop_back();
  noted.notes.pop_back();
  return true;
}

}  // namespace reflyze
