// SPDX-License-Identifier: Apache-2.0
#include "score/RandomLinks.h"

#include <algorithm>
#include <cmath>

#include "sim/Waveform.h"
#include "util/elementary.h"

namespace reflyze::score {
namespace {

using sim::Joint;
using sim::Link;
using sim::Section;

// What one class draws from.
struct Recipe {
  double shortestKm, longestKm;
  std::vector<double> pulsesNs;
  long fewestJoints, mostJoints;
  double reflectiveShare;  // of the joints
  double gainerShare;      // of the splices
  double marginDb;         // level of the far end above the noise of the averaged trace
  double rangeFactor;      // range over length
};

Recipe RecipeOf(LinkClass linkClass) {
  switch (linkClass) {
    case LinkClass::kAccess:
      return {0.5, 5.0, {5.0, 10.0, 30.0}, 1, 5, 0.6, 0.1, 12.0, 1.6};
    case LinkClass::kMetro:
      return {20.0, 60.0, {100.0, 300.0, 500.0}, 4, 12, 0.2, 0.25, 10.0, 1.4};
    case LinkClass::kLongHaul:
      return {60.0, 120.0, {1000.0, 3000.0, 10000.0}, 6, 20, 0.15, 0.25, 9.0, 1.3};
    case LinkClass::kNoisy:
      return {20.0, 80.0, {100.0, 500.0, 1000.0}, 4, 10, 0.25, 0.2, 2.5, 1.4};
    case LinkClass::kCloseEvents:
      return {5.0, 30.0, {50.0, 100.0, 300.0}, 4, 8, 0.5, 0.1, 11.0, 1.4};
    case LinkClass::kBroken:
      return {5.0, 60.0, {50.0, 300.0, 1000.0}, 2, 8, 0.2, 0.2, 10.0, 1.6};
    case LinkClass::kNothingConnected:
      return {1.0, 1.0, {10.0, 100.0, 1000.0}, 0, 0, 0.0, 0.0, 0.0, 40.0};
  }
  return {};
}

double SpacingFor(double pulseNs, double rangeKm, double groupIndex) {
  // A dozen points in each pulse, as instruments take them, within 4 k to 64 k points.
  const double pulseKm = pulseNs * sim::KmPerNs(groupIndex);
  const double points = std::clamp(rangeKm / (pulseKm / 12.0), 4000.0, 64000.0);
  return rangeKm * 1000.0 / points;
}

Joint RandomJoint(const Recipe& recipe, Random& random, Section& behind) {
  Joint joint;
  if (random.Chance(recipe.reflectiveShare)) {
    joint.lossDb = random.Uniform(0.05, 0.6);
    joint.reflectanceDb = random.Uniform(-60.0, -35.0);
    return joint;
  }
  joint.lossDb = random.Uniform(0.02, 0.4);
  if (random.Chance(recipe.gainerShare)) {
    joint.lossDb = random.Uniform(0.0, 0.05);
    behind.backscatterDb += random.Uniform(0.2, 0.8);
  } else if (random.Chance(0.3)) {
    behind.backscatterDb += random.Uniform(-0.2, 0.2);
  }
  return joint;
}

// Positions of joints: at least a bit more than a pulse apart, or in pairs where events are to stand close.
std::vector<double> RandomPositions(LinkClass linkClass, const Recipe& recipe, Random& random,
                                    double lengthKm, double pulseKm) {
  std::vector<double> positions;
  const long count = random.Integer(recipe.fewestJoints, recipe.mostJoints);
  const bool pairs = linkClass == LinkClass::kCloseEvents;
  const double apartKm = std::max((pairs ? 2.0 : 2.2) * pulseKm, 0.002);
  for (long tries = 0; static_cast<long>(positions.size()) < count && tries < 400; ++tries) {
    double km = random.Uniform(3.0 * apartKm, lengthKm - 3.0 * apartKm);
    if (pairs && !positions.empty() && random.Chance(0.6)) {
      km = positions.back() + random.Uniform(2.0, 4.0) * pulseKm;
    }
    const bool free = std::all_of(positions.begin(), positions.end(),
                                  [&](double other) { return std::fabs(other - km) >= apartKm; });
    if (free && km > 2.0 * apartKm && km < lengthKm - 2.0 * apartKm) positions.push_back(km);
  }
  std::sort(positions.begin(), positions.end());
  return positions;
}

}  // namespace

const std::vector<LinkClass>& AllLinkClasses() {
  static const std::vector<LinkClass> classes = {
      LinkClass::kAccess,      LinkClass::kMetro,  LinkClass::kLongHaul,        LinkClass::kNoisy,
      LinkClass::kCloseEvents, LinkClass::kBroken, LinkClass::kNothingConnected};
  return classes;
}

const char* NameOf(LinkClass linkClass) {
  switch (linkClass) {
    case LinkClass::kAccess:
      return "access";
    case LinkClass::kMetro:
      return "metro";
    case LinkClass::kLongHaul:
      return "long-haul";
    case LinkClass::kNoisy:
      return "noisy";
    case LinkClass::kCloseEvents:
      return "close";
    case LinkClass::kBroken:
      return "broken";
    case LinkClass::kNothingConnected:
      return "nothing";
  }
  return "?";
}

Link RandomLink(LinkClass linkClass, Random& random) {
  const Recipe recipe = RecipeOf(linkClass);
  Link link;
  link.name = NameOf(linkClass);
  link.pulseNs =
      recipe.pulsesNs[static_cast<size_t>(random.Integer(0, static_cast<long>(recipe.pulsesNs.size()) - 1))];
  const bool at1310 = random.Chance(0.3);
  link.wavelengthNm = at1310 ? 1310.0 : 1550.0;
  const double attenuation = at1310 ? random.Uniform(0.31, 0.36) : random.Uniform(0.18, 0.22);
  const double backscatterDb = at1310 ? -79.5 : -81.9;
  link.launchLevelDb = -18.0;
  // The receiver suits the pulse: it rises in a small part of it.
  link.receiver.bandwidthMhz = std::min(2000.0 / link.pulseNs, 100.0);
  link.receiver.tailShare = random.Uniform(0.0, 5e-4);
  link.receiver.tailNs = 4.0 * link.pulseNs;
  link.launch = {random.Uniform(0.1, 0.5), random.Uniform(-55.0, -40.0)};
  const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  const double lengthKm = std::max(random.Uniform(recipe.shortestKm, recipe.longestKm), 25.0 * pulseKm);
  link.rangeKm = lengthKm * recipe.rangeFactor;
  link.spacingM = SpacingFor(link.pulseNs, link.rangeKm, link.groupIndex);
  link.points = static_cast<long>(std::ceil(link.rangeKm * 1000.0 / link.spacingM));
  if (linkClass == LinkClass::kNothingConnected) {
    link.launch = {0.0, random.Uniform(-45.0, -14.0)};
    link.averages = 20000;
    link.receiver.noiseDb = random.Uniform(-40.0, -25.0);
    return link;
  }
  const std::vector<double> positions = RandomPositions(linkClass, recipe, random, lengthKm, pulseKm);
  Section section{0.0, attenuation, backscatterDb};
  double fromKm = 0.0;
  for (const double km : positions) {
    section.lengthKm = km - fromKm;
    link.sections.push_back(section);
    link.joints.push_back(RandomJoint(recipe, random, section));
    fromKm = km;
  }
  section.lengthKm = lengthKm - fromKm;
  link.sections.push_back(section);
  if (linkClass != LinkClass::kBroken) link.end.reflectanceDb = random.Uniform(-45.0, -14.5);
  SettleNoise(link, recipe.marginDb);
  return link;
}

void SettleNoise(Link& link, double marginDb) {
  double levelDb = link.launchLevelDb;
  for (size_t i = 0; i < link.sections.size(); ++i) {
    levelDb -= link.sections[i].lengthKm * link.sections[i].attenuationDbPerKm;
    if (i < link.joints.size()) levelDb -= link.joints[i].lossDb;
  }
  const double averagedDb = std::max(levelDb - marginDb, -60.0);
  link.averages = 20000;
  link.receiver.noiseDb = averagedDb + 2.5 * elementary::Log10(static_cast<double>(link.averages));
}

Link Reversed(const Link& link) {
  Link reversed = link;
  std::reverse(reversed.sections.begin(), reversed.sections.end());
  std::reverse(reversed.joints.begin(), reversed.joints.end());
  return reversed;
}

}  // namespace reflyze::score
