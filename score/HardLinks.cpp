// SPDX-License-Identifier: Apache-2.0
#include "score/HardLinks.h"

#include <algorithm>
#include <cmath>

#include "sim/Waveform.h"
#include "util/elementary.h"

namespace reflyze::score {
namespace {

using sim::Joint;
using sim::Link;
using sim::Section;

constexpr double kShortestKm = 0.03;  // of a section

// What one class draws from.
struct HardRecipe {
  std::vector<double> pulsesNs;
  long fewestSections, mostSections;
  double longestSectionKm, longestKm;
  double reflectiveShare;
  double marginDb;  // level of the far end above the noise of the averaged trace
};

HardRecipe RecipeOf(HardClass hardClass) {
  switch (hardClass) {
    case HardClass::kAccess:
      return {{5.0, 10.0, 30.0}, 1, 4, 1.0, 3.0, 0.5, 11.0};
    case HardClass::kPatchPanel:
      return {{5.0, 10.0, 30.0, 100.0}, 1, 3, 3.0, 8.0, 0.4, 11.0};
    case HardClass::kSplitter:
      return {{5.0, 10.0, 30.0}, 1, 3, 4.0, 8.0, 0.3, 8.0};
    case HardClass::kMetro:
      return {{30.0, 100.0, 300.0, 500.0}, 3, 12, 25.0, 60.0, 0.25, 10.0};
    case HardClass::kLongHaul:
      return {{1000.0, 3000.0, 10000.0}, 5, 18, 25.0, 120.0, 0.15, 8.0};
    case HardClass::kNoisy:
      return {{100.0, 500.0, 1000.0}, 3, 9, 25.0, 80.0, 0.25, 2.5};
    case HardClass::kBroken:
      return {{30.0, 100.0, 300.0, 1000.0}, 1, 7, 15.0, 50.0, 0.25, 9.0};
    case HardClass::kNothingConnected:
      return {{5.0, 10.0, 100.0, 1000.0}, 0, 0, 1.0, 1.0, 0.0, 0.0};
  }
  return {};
}

// Even on a scale of ratios.
double LogUniform(Random& random, double low, double high) {
  return low * elementary::Exp(random.Uniform(0.0, 1.0) * elementary::Log(high / low));
}

// A fibre of the drawn wavelength. The shorter that is, the more it scatters and the steeper it falls.
Section DrawnFibre(Link& link, Random& random) {
  const struct {
    double nm, shallowest, steepest, backscatterDb;
  } kFibres[] = {{1310.0, 0.30, 0.45, -79.5},
                 {1490.0, 0.20, 0.30, -81.0},
                 {1550.0, 0.17, 0.26, -81.9},
                 {1625.0, 0.15, 0.28, -82.3}};
  const auto& fibre = kFibres[random.Integer(0, 3)];
  link.wavelengthNm = fibre.nm;
  return {0.0, random.Uniform(fibre.shallowest, fibre.steepest), fibre.backscatterDb};
}

Joint Connector(Random& random) { return {random.Uniform(0.05, 0.6), random.Uniform(-60.0, -35.0)}; }

// The joint behind the last section, and the fibre behind it: half of the times from another drum.
void AddJoint(Link& link, const HardRecipe& recipe, Random& random, Section& behind) {
  if (random.Chance(0.5)) {
    behind.attenuationDbPerKm =
        std::clamp(behind.attenuationDbPerKm + random.Uniform(-0.02, 0.02), 0.15, 0.45);
  }
  if (random.Chance(recipe.reflectiveShare)) {
    link.joints.push_back(Connector(random));
    return;
  }
  Joint splice{random.Uniform(0.02, 0.4), {}};
  if (random.Chance(0.25)) {
    splice.lossDb = random.Uniform(0.0, 0.05);
    behind.backscatterDb += random.Uniform(0.2, 1.0);  // seen as a gain of up to half a dB
  } else if (random.Chance(0.3)) {
    behind.backscatterDb += random.Uniform(-0.3, 0.3);
  }
  link.joints.push_back(splice);
}

// Sections from 30 m on, long ones as rare as short ones, with a joint behind each but the last.
void AddSections(Link& link, const HardRecipe& recipe, Random& random, Section& fibre) {
  const double leastKm = std::max(kShortestKm, 2.2 * link.pulseNs * sim::KmPerNs(link.groupIndex));
  const long count = random.Integer(recipe.fewestSections, recipe.mostSections);
  for (long i = 0; i < count; ++i) {
    if (i > 0) AddJoint(link, recipe, random, fibre);
    const double leftKm = std::max(recipe.longestKm - link.LengthKm(), leastKm);
    fibre.lengthKm =
        LogUniform(random, leastKm, std::max(std::min(recipe.longestSectionKm, leftKm), 1.1 * leastKm));
    link.sections.push_back(fibre);
  }
}

// A row of connectors with a patch cord between each two, then the fibre goes on.
void AddRow(Link& link, Random& random, Section fibre) {
  const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  const long count = random.Integer(3, 6);
  for (long i = 0; i < count; ++i) {
    link.joints.push_back(Connector(random));
    fibre.lengthKm = i + 1 < count ? random.Uniform(1.1, 5.0) * pulseKm : random.Uniform(0.1, 2.0);
    link.sections.push_back(fibre);
  }
}

void AddReel(Link& link, Random& random, bool front) {
  Section reel = front ? link.sections.front() : link.sections.back();
  reel.lengthKm = random.Uniform(0.1, 2.0);
  link.sections.insert(front ? link.sections.begin() : link.sections.end(), reel);
  link.joints.insert(front ? link.joints.begin() : link.joints.end(), Connector(random));
}

void AddSplitter(Link& link, Random& random) {
  const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  std::vector<Branch> branches(static_cast<size_t>(1L << random.Integer(1, 3)));
  double km = 0.0;
  for (Branch& branch : branches) {
    km += std::max(random.Uniform(1.1, 30.0) * pulseKm, 0.01);
    branch.lengthKm = km;
    if (random.Chance(0.8)) branch.endReflectanceDb = random.Uniform(-55.0, -14.5);
  }
  EndInSplitter(link, random.Uniform(0.3, 1.5), branches);
}

// An instrument as they are: each of these is found in records.
void DrawInstrument(Link& link, Random& random) {
  sim::Receiver& receiver = link.receiver;
  receiver.bandwidthMhz = std::min(random.Uniform(1000.0, 4000.0) / link.pulseNs, 200.0);
  receiver.tailShare = random.Uniform(0.0, 5e-4);
  receiver.tailNs = random.Uniform(2.0, 8.0) * link.pulseNs;
  if (random.Chance(0.25)) {
    receiver.undershootShare = LogUniform(random, 1e-4, 5e-3);
    receiver.undershootNs = random.Uniform(3.0, 20.0) * link.pulseNs;
  }
  if (random.Chance(0.25)) receiver.smoothingPoints = 1 + 2 * random.Integer(1, 3);
  if (random.Chance(0.25)) receiver.noiseCorrelation = random.Uniform(0.2, 0.7);
  if (random.Chance(0.25)) receiver.fadingDb = LogUniform(random, 0.002, 0.02);
  if (random.Chance(0.1)) {
    receiver.rippleDb = LogUniform(random, 0.002, 0.02);
    receiver.ripplePeriodKm = random.Uniform(0.3, 3.0);
  }
  if (random.Chance(0.15)) receiver.offsetOfNoise = random.Uniform(-0.5, 0.5);
  if (random.Chance(0.2)) link.leadKm = random.Uniform(0.05, 2.0);
  link.storesBackscatter = !random.Chance(0.15);
  link.storesNoiseFloor = !random.Chance(0.15);
  if (random.Chance(0.15)) link.reflectanceThresholdDb = 0.0;
  if (random.Chance(0.15)) link.lossThresholdDb = 0.0;
}

// Three to forty points a pulse length, 2 k to 128 k points; one trace of a hundred has a million.
void DrawSampling(Link& link, Random& random) {
  const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  const double lengthKm = std::max(link.LengthKm(), 25.0 * pulseKm);
  link.rangeKm = link.leadKm + lengthKm * random.Uniform(1.15, 2.5);
  double points = std::clamp(LogUniform(random, 3.0, 40.0) * link.rangeKm / pulseKm, 2000.0, 128000.0);
  if (random.Chance(0.01)) points = 1e6;
  link.points = static_cast<long>(points);
  link.spacingM = link.rangeKm * 1000.0 / static_cast<double>(link.points);
  // No instrument smooths over more than half of its pulse.
  const auto half = static_cast<long>(pulseKm / link.spacingM * 500.0);
  link.receiver.smoothingPoints =
      std::min(link.receiver.smoothingPoints, std::max(1L, (half - 1) / 2 * 2 + 1));
}

}  // namespace

const std::vector<HardClass>& AllHardClasses() {
  static const std::vector<HardClass> classes = {
      HardClass::kAccess,   HardClass::kPatchPanel, HardClass::kSplitter, HardClass::kMetro,
      HardClass::kLongHaul, HardClass::kNoisy,      HardClass::kBroken,   HardClass::kNothingConnected};
  return classes;
}

const char* NameOf(HardClass hardClass) {
  switch (hardClass) {
    case HardClass::kAccess:
      return "hard-access";
    case HardClass::kPatchPanel:
      return "hard-panel";
    case HardClass::kSplitter:
      return "hard-splitter";
    case HardClass::kMetro:
      return "hard-metro";
    case HardClass::kLongHaul:
      return "hard-long-haul";
    case HardClass::kNoisy:
      return "hard-noisy";
    case HardClass::kBroken:
      return "hard-broken";
    case HardClass::kNothingConnected:
      return "hard-nothing";
  }
  return "?";
}

// Down each of n branches goes 1/n of the light, and of what each sends back, 1/n passes: 10 log10 n on the
// level of one branch. All n are seen together, which lifts the level by 5 log10 n. Where the first of k
// branches ends, 1/k of the level goes, and a reflection there is that of one branch over the backscatter of
// k.
void EndInSplitter(Link& link, double excessLossDb, std::vector<Branch> branches) {
  std::sort(branches.begin(), branches.end(),
            [](const Branch& a, const Branch& b) { return a.lengthKm < b.lengthKm; });
  link.joints.push_back({5.0 * elementary::Log10(static_cast<double>(branches.size())) + excessLossDb, {}});
  Section fibre = link.sections.back();
  double fromKm = 0.0;
  for (size_t i = 0; i < branches.size(); ++i) {
    const auto left = static_cast<double>(branches.size() - i);
    fibre.lengthKm = branches[i].lengthKm - fromKm;
    fromKm = branches[i].lengthKm;
    link.sections.push_back(fibre);
    Joint end;
    if (branches[i].endReflectanceDb) {
      end.reflectanceDb = *branches[i].endReflectanceDb - 10.0 * elementary::Log10(left);
    }
    if (i + 1 == branches.size()) {
      link.end = end;
    } else {
      end.lossDb = 5.0 * elementary::Log10(left / (left - 1.0));
      link.joints.push_back(end);
    }
  }
}

Link HardLink(HardClass hardClass, Random& random) {
  const HardRecipe recipe = RecipeOf(hardClass);
  Link link;
  link.name = NameOf(hardClass);
  link.pulseNs =
      recipe.pulsesNs[static_cast<size_t>(random.Integer(0, static_cast<long>(recipe.pulsesNs.size()) - 1))];
  link.launchLevelDb = random.Uniform(-22.0, -14.0);
  link.launch = {random.Uniform(0.1, 0.5), random.Uniform(-55.0, -40.0)};
  Section fibre = DrawnFibre(link, random);
  DrawInstrument(link, random);
  if (hardClass == HardClass::kNothingConnected) {
    link.launch = {0.0, random.Uniform(-45.0, -14.0)};
    link.rangeKm = link.leadKm + random.Uniform(2.0, 60.0);
    link.points = static_cast<long>(LogUniform(random, 2000.0, 64000.0));
    link.spacingM = link.rangeKm * 1000.0 / static_cast<double>(link.points);
    link.averages = 20000;
    link.receiver.noiseDb = random.Uniform(-40.0, -25.0);
    return link;
  }
  AddSections(link, recipe, random, fibre);
  if (hardClass == HardClass::kPatchPanel) AddRow(link, random, fibre);
  const bool reels = hardClass == HardClass::kAccess;
  if (reels || random.Chance(0.15)) AddReel(link, random, true);
  if (hardClass == HardClass::kSplitter) {
    AddSplitter(link, random);
  } else {
    if (reels ? random.Chance(0.7) : random.Chance(0.1)) AddReel(link, random, false);
    if (hardClass != HardClass::kBroken) link.end.reflectanceDb = random.Uniform(-45.0, -14.5);
  }
  DrawSampling(link, random);
  SettleNoise(link, recipe.marginDb);
  return link;
}

}  // namespace reflyze::score
