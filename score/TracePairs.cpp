// SPDX-License-Identifier: Apache-2.0
#include "score/TracePairs.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "score/HardLinks.h"
#include "sim/Waveform.h"

namespace reflyze::score {
namespace {

using sim::Link;

// A comparison recognises the fibre by its level here. A change before this place makes it another fibre.
double RecognisedKm(const Link& link) {
  return link.pulseNs <= 300.0 ? 0.5 : link.pulseNs <= 1000.0 ? 1.0 : link.pulseNs <= 3000.0 ? 1.5 : 2.5;
}

double PulseKm(const Link& link) { return link.pulseNs * sim::KmPerNs(link.groupIndex); }

// Events that are this far apart have a section between them whose slope can be measured.
double ApartKm(const Link& link) { return std::max(10.0 * PulseKm(link), link.pulseNs < 100.0 ? 0.1 : 1.0); }

// What the kinds of monitored links differ in.
struct Cable {
  std::vector<double> pulsesNs = {100.0, 300.0, 500.0, 1000.0};
  double leastKm = 20.0, mostKm = 80.0;
  double leastSectionKm = 4.0, mostSectionKm = 10.0;
  std::optional<double> attenuation;  // dB/km, about which all sections lie; else one of usual fibre
};

Link LinkOf(const Cable& cable, Random& random) {
  Link link;
  link.name = kMonitored;
  link.pulseNs = cable.pulsesNs[static_cast<size_t>(random.Integer(0, 3))];
  link.launchLevelDb = -18.0;
  link.receiver.bandwidthMhz = 2000.0 / link.pulseNs;
  link.receiver.tailShare = random.Uniform(0.0, 5e-4);
  link.receiver.tailNs = 4.0 * link.pulseNs;
  link.launch = {random.Uniform(0.1, 0.5), random.Uniform(-55.0, -40.0)};
  const double lengthKm = random.Uniform(cable.leastKm, cable.mostKm);
  const double attenuation = cable.attenuation ? *cable.attenuation : random.Uniform(0.188, 0.205);
  for (double leftKm = lengthKm; leftKm > 0.0;) {
    sim::Section section;
    section.attenuationDbPerKm = attenuation + random.Uniform(-0.003, 0.003);
    section.lengthKm = random.Uniform(cable.leastSectionKm, cable.mostSectionKm);
    if (leftKm - section.lengthKm < cable.leastSectionKm) section.lengthKm = leftKm;
    leftKm -= section.lengthKm;
    link.sections.push_back(section);
    if (leftKm <= 0.0) break;
    if (random.Chance(0.25)) {
      link.joints.push_back({random.Uniform(0.1, 0.4), random.Uniform(-48.0, -38.0)});
    } else {
      link.joints.push_back({random.Uniform(0.02, 0.25), {}});
    }
  }
  link.end.reflectanceDb = random.Uniform(-45.0, -14.5);
  link.rangeKm = 1.4 * lengthKm;
  link.spacingM = std::max(PulseKm(link) * 1000.0 / 12.0, link.rangeKm * 1000.0 / 64000.0);
  link.points = static_cast<long>(std::ceil(link.rangeKm * 1000.0 / link.spacingM));
  return link;
}

Link DrawLink(const std::string& links, Random& random) {
  Cable cable;
  if (links == kMonitored) return LinkOf(cable, random);
  if (links == kEdgeSlopes) {
    cable.attenuation = random.Chance(0.5) ? 0.17 : 0.3;
    return LinkOf(cable, random);
  }
  if (links == kHalfKilometre) {
    cable = {{20.0, 30.0, 50.0, 80.0}, 3.0, 10.0, 0.4, 0.65, {}};
    return LinkOf(cable, random);
  }
  for (const LinkClass linkClass : AllLinkClasses())
    if (links == NameOf(linkClass)) return RandomLink(linkClass, random);
  for (const HardClass hardClass : AllHardClasses())
    if (links == NameOf(hardClass)) return HardLink(hardClass, random);
  throw std::runtime_error(links + " is no class of links");
}

void PutLeadBefore(Link& link, double leadKm) {
  constexpr long kMostPoints = 1000000;
  link.rangeKm += leadKm - link.leadKm;
  link.leadKm = leadKm;
  link.points = std::min(static_cast<long>(std::ceil(link.rangeKm * 1000.0 / link.spacingM)), kMostPoints);
  link.rangeKm = static_cast<double>(link.points) * link.spacingM / 1000.0;
}

double JointKm(const Link& link, size_t joint) {
  double km = 0.0;
  for (size_t i = 0; i <= joint; ++i) km += link.sections[i].lengthKm;
  return km;
}

// A place in the section with room on both sides, if it has one.
std::optional<double> PlaceIn(const Link& link, size_t section, Random& random) {
  const double beginKm = section == 0 ? 0.0 : JointKm(link, section - 1);
  const double fromKm = std::max(beginKm + ApartKm(link), RecognisedKm(link) + ApartKm(link));
  const double toKm = beginKm + link.sections[section].lengthKm - ApartKm(link);
  if (fromKm >= toKm) return std::nullopt;
  return random.Uniform(fromKm, toKm);
}

std::optional<double> PlaceBetweenJoints(const Link& link, Random& random) {
  const auto sections = static_cast<long>(link.sections.size());
  return PlaceIn(link, static_cast<size_t>(random.Integer(0, sections - 1)), random);
}

// The section in which a place lies.
size_t SectionAt(const Link& link, double km) {
  size_t section = 0;
  while (section + 1 < link.sections.size() && JointKm(link, section) < km) ++section;
  return section;
}

void PutJoint(Link& link, double km, const sim::Joint& joint) {
  const size_t section = SectionAt(link, km);
  const double beginKm = section == 0 ? 0.0 : JointKm(link, section - 1);
  sim::Section behind = link.sections[section];
  behind.lengthKm -= km - beginKm;
  link.sections[section].lengthKm = km - beginKm;
  link.sections.insert(link.sections.begin() + static_cast<long>(section) + 1, behind);
  link.joints.insert(link.joints.begin() + static_cast<long>(section), joint);
}

// Ends the fibre at the place. Clean breaks throw light back, crushed ones do not.
void BreakAt(Link& link, double km, Random& random) {
  const size_t section = SectionAt(link, km);
  link.sections.resize(section + 1);
  link.joints.resize(section);
  link.sections[section].lengthKm = km - (section == 0 ? 0.0 : JointKm(link, section - 1));
  link.end = {};
  if (random.Chance(0.5)) link.end.reflectanceDb = random.Uniform(-45.0, -14.5);
}

std::optional<size_t> DrawJoint(const Link& link, Random& random, bool reflective) {
  std::vector<size_t> joints;
  for (size_t i = 0; i < link.joints.size(); ++i) {
    if (JointKm(link, i) <= RecognisedKm(link) + PulseKm(link)) continue;
    if (!reflective || link.joints[i].reflectanceDb) joints.push_back(i);
  }
  if (joints.empty()) return std::nullopt;
  return joints[static_cast<size_t>(random.Integer(0, static_cast<long>(joints.size()) - 1))];
}

// Makes one kind of change to the current link of a pair. False where there is no room for it.
class Changer {
 public:
  Changer(TracePair& pair, const std::string& links, Random& random)
      : pair_(pair), link_(pair.current), links_(links), random_(random) {}

  bool Run(Happening happening) {
    switch (happening) {
      case Happening::kNothing:
        return true;
      case Happening::kOtherAcquisition:
        return MeasureOtherwise();
      case Happening::kOtherGroupIndex:
        link_.groupIndex += random_.Uniform(0.0005, 0.002);
        return true;
      case Happening::kMoreLoss:
        return AddLoss();
      case Happening::kNewSplice:
        return PutIn({pair_.changeDb = 0.3, {}});
      case Happening::kNewReflection:
        return PutIn({pair_.changeDb = 0.3, random_.Uniform(-50.0, -35.0)});
      case Happening::kWorseReflectance:
        return WorsenReflectance();
      case Happening::kDeadFibre:
        link_.sections.clear();
        link_.joints.clear();
        link_.end = {};
        return true;
      case Happening::kOtherFibre:
      case Happening::kOtherFibreSameLevel:
        return ConnectOther(happening == Happening::kOtherFibre);
      default:
        return Break(happening);
    }
  }

 private:
  bool MeasureOtherwise() {
    link_.spacingM *= random_.Uniform(0.6, 1.6);
    link_.rangeKm *= random_.Uniform(1.05, 1.4);
    link_.points = static_cast<long>(std::ceil(link_.rangeKm * 1000.0 / link_.spacingM));
    return true;
  }
  bool AddLoss() {
    const std::optional<size_t> joint = DrawJoint(link_, random_, false);
    if (!joint) return false;
    pair_.placeKm = JointKm(link_, *joint);
    pair_.changeDb = random_.Uniform(0.3, 0.8);
    link_.joints[*joint].lossDb += pair_.changeDb;
    return true;
  }
  bool PutIn(const sim::Joint& joint) {
    const std::optional<double> km = PlaceBetweenJoints(link_, random_);
    if (!km) return false;
    pair_.placeKm = *km;
    PutJoint(link_, *km, joint);
    return true;
  }
  bool WorsenReflectance() {
    const std::optional<size_t> joint = DrawJoint(link_, random_, true);
    if (!joint) return false;
    pair_.placeKm = JointKm(link_, *joint);
    pair_.changeDb = 3.0;
    *link_.joints[*joint].reflectanceDb += pair_.changeDb;
    return true;
  }
  std::optional<double> BreakPlace(Happening happening) {
    switch (happening) {
      case Happening::kBreakBeforeFirst:
        return PlaceIn(link_, 0, random_);
      case Happening::kBreakInLastSection:
        return PlaceIn(link_, link_.sections.size() - 1, random_);
      case Happening::kBreakAtJoint:
        if (const std::optional<size_t> joint = DrawJoint(link_, random_, false))
          return JointKm(link_, *joint);
        return std::nullopt;
      default: {
        const double fromKm = RecognisedKm(link_) + PulseKm(link_), toKm = link_.LengthKm() - ApartKm(link_);
        if (fromKm >= toKm) return std::nullopt;
        return random_.Uniform(fromKm, toKm);
      }
    }
  }
  bool Break(Happening happening) {
    const std::optional<double> km = BreakPlace(happening);
    if (!km) return false;
    pair_.placeKm = *km;
    BreakAt(link_, *km, random_);
    return true;
  }
  // Another fibre, drawn anew and measured with the settings of the baseline.
  bool ConnectOther(bool otherLevel) {
    const Link other = DrawLink(links_, random_);
    link_.sections = other.sections;
    link_.joints = other.joints;
    link_.launch = other.launch;
    link_.end = other.end;
    if (otherLevel) link_.launchLevelDb += random_.Uniform(1.5, 5.0) * (random_.Chance(0.5) ? 1.0 : -1.0);
    return link_.LengthKm() < link_.rangeKm - link_.leadKm;
  }

  TracePair& pair_;
  Link& link_;
  const std::string& links_;
  Random& random_;
};

}  // namespace

const std::vector<Happening>& AllHappenings() {
  static const std::vector<Happening> all = {
      Happening::kNothing,          Happening::kOtherAcquisition,   Happening::kOtherGroupIndex,
      Happening::kMoreLoss,         Happening::kNewSplice,          Happening::kNewReflection,
      Happening::kWorseReflectance, Happening::kBreakBeforeFirst,   Happening::kBreakInLastSection,
      Happening::kBreakAtJoint,     Happening::kBreakAnywhere,      Happening::kDeadFibre,
      Happening::kOtherFibre,       Happening::kOtherFibreSameLevel};
  return all;
}

const char* NameOf(Happening happening) {
  static const char* const names[] = {
      "nothing",     "acquisition",        "group-index",   "loss",           "splice",         "reflection",
      "reflectance", "break-before-first", "break-in-last", "break-at-joint", "break-anywhere", "dead",
      "other-fibre", "other-same-level"};
  return names[static_cast<size_t>(happening)];
}

bool IsAtJoint(Happening happening) {
  return happening == Happening::kMoreLoss || happening == Happening::kWorseReflectance;
}

std::optional<TracePair> DrawPair(Happening happening, const std::string& links, const PairOptions& options,
                                  Random& random) {
  constexpr double kLeastLeadKm = 0.02, kMostDark = 3.0;
  TracePair pair;
  pair.baseline = DrawLink(links, random);
  const auto leadKm = [&] { return random.Uniform(kLeastLeadKm, options.mostLeadKm); };
  if (options.mostLeadKm > 0.0) PutLeadBefore(pair.baseline, leadKm());
  SettleNoise(pair.baseline, options.marginDb);
  pair.current = pair.baseline;
  if (options.mostLeadKm > 0.0) {
    PutLeadBefore(pair.current, leadKm());
    if (random.Chance(0.5)) pair.current.receiver.offsetOfNoise = random.Uniform(0.0, kMostDark);
  }
  if (!Changer(pair, links, random).Run(happening)) return std::nullopt;
  return pair;
}

}  // namespace reflyze::score
