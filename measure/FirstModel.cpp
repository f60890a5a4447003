// SPDX-License-Identifier: Apache-2.0
#include "measure/FirstModel.h"

#include <algorithm>
#include <cmath>

#include "sor/sorData.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kUsualDecay = 0.2 / kDbOfNeper;  // nepers a km

// The first character of an event code says how the event looks (SR-4731).
char ShapeOf(const TSorBlockKeyEvents1E& event) { return event.EC.Len() > 0 ? event.EC.c_str()[0] : '0'; }
bool IsSaturated(char shape) { return shape == '2' || shape == 'D'; }

// The receiver's rise as its bandwidth says, else a usual share of the pulse.
double RiseKm(const TSorData& record, double pulseKm) {
  const short bandwidth = record.QRTParams->modes.empty() ? 0 : record.QRTParams->modes[0].BWU1;
  const double asked = bandwidth > 0 ? kDbOfNeper / bandwidth : pulseKm / 5.0;
  return std::clamp(asked, record.FxdParams->LenDS() / 50.0, pulseKm);
}

void GuessReflection(const Powers& powers, LinkModel& model, size_t index) {
  LinkModel::Place& place = model.places[index];
  if (!place.reflects) return;
  const long from = powers.At(place.km), to = powers.At(place.km + model.pulseKm) + 3;
  const double peak = powers.Peak(from, std::min(to, powers.count()));
  const size_t section = std::min(index, model.sections.size() - 1);
  place.reflection = std::max(0.0, peak - elementary::Exp(model.sections[section].level));
}

void MoveAnchor(LinkModel::Section& section, double km) {
  section.level -= section.decayPerKm * (km - section.anchorKm);
  section.anchorKm = km;
}

// A trace may begin in front of the launch, in a reel that is part of the instrument. Its light lies over
// that of the launch. So does that of a second reflection inside the pulse.
bool IsLit(const Powers& powers, const LinkModel& model) {
  constexpr double kShare = 0.05;
  const double launch = model.places[0].km, pulse = model.pulseKm;
  if (model.places.size() > 2 && model.places[1].km < launch + pulse) return true;
  const long from = powers.At(launch - 3.0 * pulse), to = powers.At(launch - 0.5 * pulse);
  if (to - from < 3) return false;
  const long behind = std::min(powers.At(launch + 2.0 * pulse), powers.count() - 1);
  return powers.Mean(from, to) > kShare * powers[behind];
}

}  // namespace

void NotedModel::Split(size_t section, const LinkModel::Place& place, double step, double withinKm) {
  const auto at = static_cast<std::ptrdiff_t>(section) + 1;
  LinkModel::Section behind = model.sections[section];
  LinkModel::Section& before = model.sections[section];
  MoveAnchor(before, (model.places[section].km + place.km) / 2.0);
  MoveAnchor(behind, (place.km + model.places[section + 1].km) / 2.0);
  before.level -= step / 2.0;
  behind.level += step / 2.0;
  model.places.insert(model.places.begin() + at, place);
  model.sections.insert(model.sections.begin() + at, behind);
  PlaceNote note;
  note.toldKm = place.km;
  note.withinKm = withinKm;
  notes.insert(notes.begin() + at, note);
}

void NotedModel::Join(size_t place) {
  const auto length = [&](size_t section) { return model.places[section + 1].km - model.places[section].km; };
  // The longer one knows its line better.
  const size_t longer = length(place) > length(place - 1) ? place : place - 1;
  LinkModel::Section joined = model.sections[longer];
  MoveAnchor(joined, (model.places[place - 1].km + model.places[place + 1].km) / 2.0);
  const auto at = static_cast<std::ptrdiff_t>(place);
  model.sections[place - 1] = joined;
  model.sections.erase(model.sections.begin() + at);
  model.places.erase(model.places.begin() + at);
  notes.erase(notes.begin() + at);
}

double LeadingEdgeKm(const Powers& powers, double km, double pulseKm, double riseKm) {
  const double spacing = powers.spacingKm(), far = std::max(0.7 * pulseKm, 3.0 * spacing);
  const long from = std::max(1L, powers.At(km - far)),
             to = std::min(powers.count() - 1, powers.At(km + far) + 1);
  const long wide = std::max(1L, TruncToLong(2.0 * riseKm / spacing));
  long steepest = from;
  double most = 0.0;
  for (long i = from; i + wide <= to; ++i) {
    const double rise = powers[i + wide] - powers[i - 1];
    if (rise > most) most = rise, steepest = i;
  }
  if (most <= 0.0) return km;
  // The middle of the rise, less what the receiver is late by then: rise * ln 2.
  const double half = powers[steepest - 1] + most / 2.0;
  long i = steepest;
  while (i < steepest + wide && powers[i] < half) ++i;
  const double step = powers[i] - powers[i - 1];
  const double share = step > 0.0 ? std::clamp((half - powers[i - 1]) / step, 0.0, 1.0) : 0.5;
  return (static_cast<double>(i - 1) + share) * spacing - 0.69 * riseKm;
}

LinkModel::Section LineBetween(const Powers& powers, const LinkModel& model, double fromKm, double toKm) {
  constexpr long kEnoughForSlope = 40;
  LinkModel::Section section;
  section.anchorKm = (fromKm + toKm) / 2.0;
  section.decayPerKm = kUsualDecay;
  const double clear = std::min(model.pulseKm + 4.0 * model.riseKm, 0.7 * (toKm - fromKm));
  const long first = std::min(powers.At(fromKm + clear) + 1, powers.count() - 1);
  const long last = std::clamp(powers.At(toKm) - 1, first + 1, powers.count());
  section.level = elementary::Log(std::max(powers.Mean(first, last), 1e-20));
  if (last - first <= kEnoughForSlope) return section;
  // The logarithms of the means of two halves.
  const long middle = (first + last) / 2;
  const double one = powers.Mean(first, middle), other = powers.Mean(middle, last);
  const double apart = static_cast<double>(last - first) / 2.0 * powers.spacingKm();
  if (one > 0.0 && other > 0.0)
    section.decayPerKm = std::clamp(elementary::Log(one / other) / apart, 0.005, 1.5);
  const double centre = static_cast<double>(first + last) / 2.0 * powers.spacingKm();
  section.level += section.decayPerKm * (centre - section.anchorKm);
  return section;
}

NotedModel FirstModel(const TSorData& record, const Powers& powers) {
  NotedModel first;
  LinkModel& model = first.model;
  model.pulseKm = record.FxdParams->GetOwtPulse(0) * record.FxdParams->OwtToLen(1.0);
  model.pulseKm = std::max(model.pulseKm, powers.spacingKm());
  model.riseKm = RiseKm(record, model.pulseKm);
  model.slowKm = std::max(10.0 * model.riseKm, model.pulseKm);
  const int count = record.KeyEvents->ListedEvents();
  for (int i = 0; i < count; ++i) {
    const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    LinkModel::Place place;
    place.km = record.FxdParams->OwtToLen(event.EPT - record.NumToOwt(0));
    place.reflects = i == 0 || ShapeOf(event) != '0';
    if (place.reflects && i > 0) place.km = LeadingEdgeKm(powers, place.km, model.pulseKm, model.riseKm);
    if (i > 0) place.km = std::max(place.km, model.places.back().km + powers.spacingKm());
    model.places.push_back(place);
    first.notes.push_back({place.km, model.pulseKm / 2.0, i, i > 0 && IsSaturated(ShapeOf(event))});
  }
  first.notes[0].blind = IsLit(powers, model);
  if (!first.notes[0].blind)
    model.places[0].km = std::min(LeadingEdgeKm(powers, model.places[0].km, model.pulseKm, model.riseKm),
                                  model.places[1].km - powers.spacingKm());
  first.notes[0].toldKm = model.places[0].km;
  first.notes[0].withinKm = 2.0 * powers.spacingKm();  // instruments know where they send their light from
  for (size_t i = 0; i + 1 < model.places.size(); ++i)
    model.sections.push_back(LineBetween(powers, model, model.places[i].km, model.places[i + 1].km));
  for (size_t i = 0; i < model.places.size(); ++i) {
    GuessReflection(powers, model, i);
    if (first.notes[i].saturated) first.notes[i].seen = model.places[i].reflection;
  }
  return first;
}

}  // namespace reflyze
