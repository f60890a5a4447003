// SPDX-License-Identifier: Apache-2.0
#include "sim/Link.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>

#include "sor/blocks/sorPoint.h"

namespace reflyze::sim {
namespace {

using Document = nlohmann::json;

constexpr long kMostPoints = TSorBlockDataPoints1SF::kMostPoints;
constexpr size_t kMostSections = 10000;
constexpr double kLongestKm = 1000.0;                    // of a range
constexpr double kFinestM = 0.001, kCoarsestM = 1000.0;  // spacing
constexpr long kMostSmoothed = 101;                      // points of one mean
constexpr size_t kMostEchoing = 100;  // reflections whose echoes are followed, each with every other

// A name from a document may hold a zero byte, at which the message would end.
[[noreturn]] void Fail(std::string field, const std::string& why) {
  for (size_t zero = field.find('\0'); zero != std::string::npos; zero = field.find('\0')) {
    field.replace(zero, 1, "\\u0000");
  }
  throw LinkError(field + ": " + why);
}

// One JSON object while it is read. It knows its place in the document, for messages. When it ends, every
// field must have been read, so that a misspelt field is an error and not a default.
class Object {
 public:
  Object(const Document& value, std::string place) : value_(value), place_(std::move(place)) {
    if (!value.is_object()) Fail(place_.empty() ? "link" : place_, "must be an object");
  }

  std::string Place(const std::string& field) const { return place_.empty() ? field : place_ + "." + field; }
  bool Has(const std::string& field) const { return value_.contains(field) && !value_.at(field).is_null(); }
  const Document* Child(const std::string& field) {
    read_.insert(field);
    return Has(field) ? &value_.at(field) : nullptr;
  }

  void Number(const std::string& field, double& out, double lowest, double highest) {
    const Document* child = Child(field);
    if (child == nullptr) return;
    if (!child->is_number()) Fail(Place(field), "must be a number");
    const double number = child->get<double>();
    if (!(number >= lowest && number <= highest)) {
      Fail(Place(field), "must lie between " + Plain(lowest) + " and " + Plain(highest));
    }
    out = number;
  }
  void OptionalNumber(const std::string& field, std::optional<double>& out, double lowest, double highest) {
    double number = 0.0;
    if (!Has(field)) {
      read_.insert(field);
      return;
    }
    Number(field, number, lowest, highest);
    out = number;
  }
  void Whole(const std::string& field, long& out, long lowest, long highest) {
    const Document* child = Child(field);
    if (child == nullptr) return;
    if (!child->is_number_integer()) Fail(Place(field), "must be a whole number");
    const double number = child->get<double>();
    if (!(number >= static_cast<double>(lowest) && number <= static_cast<double>(highest))) {
      Fail(Place(field), "must lie between " + std::to_string(lowest) + " and " + std::to_string(highest));
    }
    out = child->get<long>();
  }
  void Flag(const std::string& field, bool& out) {
    const Document* child = Child(field);
    if (child == nullptr) return;
    if (!child->is_boolean()) Fail(Place(field), "must be true or false");
    out = child->get<bool>();
  }
  void String(const std::string& field, std::string& out) {
    const Document* child = Child(field);
    if (child == nullptr) return;
    if (!child->is_string()) Fail(Place(field), "must be a text");
    out = child->get<std::string>();
  }
  const Document* List(const std::string& field) {
    const Document* child = Child(field);
    if (child == nullptr) return nullptr;
    if (!child->is_array()) Fail(Place(field), "must be a list");
    if (child->size() > kMostSections)
      Fail(Place(field), "has more than " + std::to_string(kMostSections) + " entries");
    return child;
  }
  void RefuseUnread() const {
    for (const auto& item : value_.items()) {
      if (read_.count(item.key()) == 0) Fail(Place(item.key()), "is not a field of a link");
    }
  }

 private:
  static std::string Plain(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", number);
    return text;
  }

  const Document& value_;
  std::string place_;
  std::set<std::string> read_;
};

Joint ReadJoint(const Document& value, const std::string& place) {
  Object object(value, place);
  Joint joint;
  object.Number("loss_db", joint.lossDb, 0.0, 100.0);
  object.OptionalNumber("reflectance_db", joint.reflectanceDb, -100.0, 0.0);
  object.RefuseUnread();
  return joint;
}

Section ReadSection(const Document& value, const std::string& place) {
  Object object(value, place);
  if (!object.Has("length_km")) Fail(object.Place("length_km"), "is missing");
  Section section;
  object.Number("length_km", section.lengthKm, 1e-4, 1000.0);
  object.Number("attenuation_db_per_km", section.attenuationDbPerKm, 0.0, 100.0);
  object.Number("backscatter_db", section.backscatterDb, -100.0, -40.0);
  object.RefuseUnread();
  return section;
}

Receiver ReadReceiver(const Document& value) {
  Object object(value, "receiver");
  Receiver receiver;
  object.Number("bandwidth_mhz", receiver.bandwidthMhz, 0.01, 10000.0);
  object.Number("tail_share", receiver.tailShare, 0.0, 0.5);
  object.Number("tail_ns", receiver.tailNs, 0.1, 1e6);
  object.Number("saturation_db", receiver.saturationDb, -60.0, 0.0);
  object.Number("noise_db", receiver.noiseDb, -200.0, 0.0);
  object.Number("floor_db", receiver.floorDb, -65.535, -1.0);
  object.Number("ripple_db", receiver.rippleDb, 0.0, 1.0);
  object.Number("ripple_period_km", receiver.ripplePeriodKm, 1e-3, 1000.0);
  object.Number("fading_db", receiver.fadingDb, 0.0, 1.0);
  object.Number("undershoot_share", receiver.undershootShare, 0.0, 0.5);
  object.Number("undershoot_ns", receiver.undershootNs, 0.1, 1e6);
  object.Number("noise_correlation", receiver.noiseCorrelation, 0.0, 0.99);
  object.Whole("smoothing_points", receiver.smoothingPoints, 1, kMostSmoothed);
  if (receiver.smoothingPoints % 2 == 0) Fail(object.Place("smoothing_points"), "must be odd");
  object.Number("offset_of_noise", receiver.offsetOfNoise, -10.0, 10.0);
  object.RefuseUnread();
  return receiver;
}

void ReadFibre(Object& object, Link& link) {
  const Document* sections = object.List("sections");
  if (sections != nullptr) {
    for (size_t i = 0; i < sections->size(); ++i) {
      link.sections.push_back(ReadSection((*sections)[i], "sections[" + std::to_string(i) + "]"));
    }
  }
  const Document* joints = object.List("joints");
  if (joints != nullptr) {
    for (size_t i = 0; i < joints->size(); ++i) {
      link.joints.push_back(ReadJoint((*joints)[i], "joints[" + std::to_string(i) + "]"));
    }
  }
  const size_t between = link.sections.empty() ? 0 : link.sections.size() - 1;
  if (link.joints.size() != between) {
    Fail("joints", "must have one entry less than sections, " + std::to_string(between) + " and not " +
                       std::to_string(link.joints.size()));
  }
  if (const Document* launch = object.Child("launch")) link.launch = ReadJoint(*launch, "launch");
  if (const Document* end = object.Child("end")) link.end = ReadJoint(*end, "end");
}

// Two of spacing, points and range give the third.
void SettleSampling(Link& link) {
  if (link.spacingM == 0.0 && link.points == 0) Fail("spacing_m", "is missing, and so is points");
  if (link.rangeKm == 0.0 && (link.spacingM == 0.0 || link.points == 0)) Fail("range_km", "is missing");
  if (link.points == 0) {
    const double points = std::ceil(link.rangeKm * 1000.0 / link.spacingM);
    if (points > static_cast<double>(kMostPoints))
      Fail("spacing_m", "gives more than 1000000 points over the range");
    link.points = static_cast<long>(points);
  }
  const double steppedKm = link.spacingM * static_cast<double>(link.points) / 1000.0;
  if (link.rangeKm != 0.0 && link.spacingM != 0.0 &&
      std::abs(steppedKm - link.rangeKm) * 1000.0 > 1.01 * link.spacingM)
    Fail("range_km", "is not spacing_m times points; leave one of the three out");
  if (link.spacingM == 0.0) link.spacingM = link.rangeKm * 1000.0 / static_cast<double>(link.points);
  if (link.rangeKm == 0.0) link.rangeKm = steppedKm;
  if (!(link.spacingM >= kFinestM && link.spacingM <= kCoarsestM))
    Fail("points", "lie closer than 1 mm or wider than 1 km over the range");
  if (link.rangeKm > kLongestKm) Fail("points", "reach further than 1000 km with this spacing_m");
  if (link.points < 16) Fail("points", "are fewer than 16");
  if (link.leadKm >= link.rangeKm) Fail("lead_km", "leaves nothing of the range behind the launch");
}

// The work on echoes grows with the square of the reflections.
void CheckEchoes(const Link& link) {
  size_t reflecting = (link.launch.reflectanceDb ? 1 : 0) + (link.end.reflectanceDb ? 1 : 0);
  for (const Joint& joint : link.joints) reflecting += joint.reflectanceDb ? 1 : 0;
  if (link.ghosts && reflecting > kMostEchoing)
    Fail("ghosts", "are followed between at most " + std::to_string(kMostEchoing) + " reflections");
}

}  // namespace

double Link::LengthKm() const {
  double length = 0.0;
  for (const Section& section : sections) length += section.lengthKm;
  return length;
}

Link LinkFromJson(const Document& value) {
  Object object(value, "");
  Link link;
  object.String("name", link.name);
  object.String("fibre", link.fibre);
  object.String("from", link.from);
  object.String("to", link.to);
  object.Number("wavelength_nm", link.wavelengthNm, 200.0, 1999.0);
  object.Number("pulse_ns", link.pulseNs, 1.0, 32000.0);
  object.Number("group_index", link.groupIndex, 1.0, 2.0);
  object.Number("spacing_m", link.spacingM, kFinestM, kCoarsestM);
  object.Whole("points", link.points, 16, kMostPoints);
  object.Number("range_km", link.rangeKm, 0.001, kLongestKm);
  object.Number("lead_km", link.leadKm, 0.0, 100.0);
  object.Whole("averages", link.averages, 1, 2000000000L);
  object.Whole("date_utc", link.dateUtc, 0, 2147483647L);
  object.Number("launch_level_db", link.launchLevelDb, -60.0, 0.0);
  object.Number("loss_threshold_db", link.lossThresholdDb, 0.0, 65.0);
  object.Number("reflectance_threshold_db", link.reflectanceThresholdDb, -65.0, 0.0);
  object.Number("end_threshold_db", link.endThresholdDb, 0.0, 65.0);
  object.Flag("stores_backscatter", link.storesBackscatter);
  object.Flag("stores_noise_floor", link.storesNoiseFloor);
  object.Flag("ghosts", link.ghosts);
  ReadFibre(object, link);
  if (const Document* receiver = object.Child("receiver")) link.receiver = ReadReceiver(*receiver);
  object.RefuseUnread();
  SettleSampling(link);
  CheckEchoes(link);
  return link;
}

Link LinkFromText(const std::string& text) {
  Document value;
  try {
    value = Document::parse(text, nullptr, true, true);
  } catch (const Document::parse_error& error) {
    const size_t read = std::min(error.byte, text.size());
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(read), '\n');
    Fail("link", "is not a JSON document (line " + std::to_string(line) + ")");
  } catch (const Document::out_of_range&) {
    Fail("link", "holds a number that is too large");
  }
  return LinkFromJson(value);
}

namespace {

nlohmann::ordered_json JsonOfJoint(const Joint& joint) {
  nlohmann::ordered_json json = {{"loss_db", joint.lossDb}};
  json["reflectance_db"] = joint.reflectanceDb ? nlohmann::ordered_json(*joint.reflectanceDb) : nullptr;
  return json;
}

}  // namespace

nlohmann::ordered_json JsonOfLink(const Link& link) {
  nlohmann::ordered_json json = {{"name", link.name},
                                 {"wavelength_nm", link.wavelengthNm},
                                 {"pulse_ns", link.pulseNs},
                                 {"group_index", link.groupIndex},
                                 {"spacing_m", link.spacingM},
                                 {"points", link.points},
                                 {"range_km", link.rangeKm},
                                 {"lead_km", link.leadKm},
                                 {"averages", link.averages},
                                 {"date_utc", link.dateUtc},
                                 {"launch_level_db", link.launchLevelDb},
                                 {"loss_threshold_db", link.lossThresholdDb},
                                 {"reflectance_threshold_db", link.reflectanceThresholdDb},
                                 {"end_threshold_db", link.endThresholdDb},
                                 {"stores_backscatter", link.storesBackscatter},
                                 {"stores_noise_floor", link.storesNoiseFloor},
                                 {"ghosts", link.ghosts},
                                 {"launch", JsonOfJoint(link.launch)}};
  json["sections"] = nlohmann::ordered_json::array();
  for (const Section& section : link.sections) {
    json["sections"].push_back({{"length_km", section.lengthKm},
                                {"attenuation_db_per_km", section.attenuationDbPerKm},
                                {"backscatter_db", section.backscatterDb}});
  }
  json["joints"] = nlohmann::ordered_json::array();
  for (const Joint& joint : link.joints) json["joints"].push_back(JsonOfJoint(joint));
  json["end"] = JsonOfJoint(link.end);
  const Receiver& receiver = link.receiver;
  json["receiver"] = {{"bandwidth_mhz", receiver.bandwidthMhz},
                      {"tail_share", receiver.tailShare},
                      {"tail_ns", receiver.tailNs},
                      {"saturation_db", receiver.saturationDb},
                      {"noise_db", receiver.noiseDb},
                      {"floor_db", receiver.floorDb},
                      {"ripple_db", receiver.rippleDb},
                      {"ripple_period_km", receiver.ripplePeriodKm},
                      {"fading_db", receiver.fadingDb},
                      {"undershoot_share", receiver.undershootShare},
                      {"undershoot_ns", receiver.undershootNs},
                      {"noise_correlation", receiver.noiseCorrelation},
                      {"smoothing_points", receiver.smoothingPoints},
                      {"offset_of_noise", receiver.offsetOfNoise}};
  return json;
}

}  // namespace reflyze::sim
