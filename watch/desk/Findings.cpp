// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Findings.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "watch/store/JsonLine.h"

namespace reflyze::watch {
namespace {

using nlohmann::json;

constexpr double kMetresPerKm = 1000.0;
constexpr double kTwoSided95 = 1.96;
constexpr double kMajorTimesLimit = 2.0;

json NumberOrNull(const std::optional<double>& value) { return value ? json(*value) : json(nullptr); }

// The event of the baseline that a monitored row was laid on: the nearest. -1 for none.
int BaselineIndex(const ComparedEvent& row, const EventTable& baseline) {
  if (!row.monitored) return -1;
  int nearest = -1;
  double least = HUGE_VAL;
  for (std::size_t i = 0; i < baseline.events.size(); ++i) {
    const double off = std::abs(baseline.events[i].distanceKm - row.event.distanceKm);
    if (off < least) {
      least = off;
      nearest = static_cast<int>(i);
    }
  }
  return nearest;
}

Severity SeverityOf(const Deviation& deviation) {
  const double value = std::abs(deviation.measured.value_or(deviation.value)),
               limit = std::abs(deviation.limit);
  if (deviation.absolute) return Severity::kMinor;
  if (value - kTwoSided95 * deviation.measuredSd.value_or(0.0) < limit) return Severity::kWarning;
  return value > kMajorTimesLimit * limit ? Severity::kMajor : Severity::kMinor;
}

Finding At(const ComparedEvent& row, const EventTable& baseline, AlarmKind kind, Severity severity) {
  Finding finding;
  finding.kind = kind;
  finding.severity = severity;
  finding.event = BaselineIndex(row, baseline);
  finding.km = row.event.distanceKm;
  finding.sdKm = row.event.distanceSdM.value_or(0.0) / kMetresPerKm;
  return finding;
}

void AddDeviation(std::vector<Finding>& findings, const ComparedEvent& row, const EventTable& baseline,
                  AlarmKind kind, const Deviation& deviation) {
  if (!deviation.exceeded) return;
  Finding finding = At(row, baseline, kind, SeverityOf(deviation));
  finding.value = deviation.measured.value_or(deviation.value);
  finding.limit = deviation.limit;
  findings.push_back(finding);
}

void AddRow(std::vector<Finding>& findings, const ComparedEvent& row, const EventTable& baseline) {
  if (row.fiberBreak) {
    findings.push_back(At(row, baseline, AlarmKind::kBroken, Severity::kCritical));
    return;  // whatever else differs there is a consequence
  }
  if (row.isNew) {
    findings.push_back(At(row, baseline, AlarmKind::kNewEvent, Severity::kMinor));
    findings.back().value = row.event.lossDb.value_or(0.0);
  }
  AddDeviation(findings, row, baseline, AlarmKind::kLoss, row.loss);
  AddDeviation(findings, row, baseline, AlarmKind::kReflectance, row.reflectance);
  AddDeviation(findings, row, baseline, AlarmKind::kAttenuation, row.attenuation);
}

// The whole fibre: the level says that it is another one, or nothing that has a place says what changed.
Finding Whole(const Comparison& comparison) {
  Finding finding;
  finding.severity = Severity::kCritical;
  finding.kind = comparison.result == kFibreBreak ? AlarmKind::kBroken : AlarmKind::kOtherFibre;
  if (comparison.result == kCompared) {
    finding.kind = AlarmKind::kLoss;
    finding.severity = Severity::kMajor;
  }
  if (comparison.linkTest) finding.value = comparison.linkTest->currentDb - comparison.linkTest->baselineDb;
  return finding;
}

}  // namespace

std::vector<Finding> FindingsOf(const Comparison& comparison, const EventTable& baseline) {
  std::vector<Finding> findings;
  if (!comparison.Changed()) return findings;
  if (comparison.result == kCompared || comparison.result == kFibreBreak) {
    for (const ComparedEvent& row : comparison.rows) AddRow(findings, row, baseline);
  }
  if (findings.empty()) findings.push_back(Whole(comparison));
  // The library tells one sentence for each of these, in the same order.
  const std::vector<std::string> sentences = ChangesOf(comparison);
  for (std::size_t i = 0; i < findings.size() && i < sentences.size(); ++i)
    findings[i].sentence = sentences[i];
  return findings;
}

void MeasureBreaks(std::vector<Finding>& findings, const Trace& current) {
  // The comparison and the analysis may place an end some points apart, no more.
  constexpr double kSamePlaceKm = 0.05;
  constexpr double kUniform = 0.2887;  // deviation of a place between two points, in their distance
  for (Finding& finding : findings) {
    if (finding.kind != AlarmKind::kBroken || finding.km < 0.0) continue;
    const EventTable table = Analyse(current);
    finding.sdKm = kUniform * table.spacingM / kMetresPerKm;
    for (const Event& event : table.events) {
      if (std::abs(event.distanceKm - finding.km) > kSamePlaceKm || !event.distanceSdM) continue;
      finding.km = event.distanceKm;
      finding.sdKm = std::max(finding.sdKm, *event.distanceSdM / kMetresPerKm);
    }
  }
}

std::string EventsJson(const Comparison& comparison, const EventTable& baseline) {
  json rows = json::array();
  for (const ComparedEvent& row : comparison.rows) {
    const Event& event = row.event;
    rows.push_back({{"event", BaselineIndex(row, baseline)},
                    {"km", event.distanceKm},
                    {"type", event.type},
                    {"loss_db", NumberOrNull(event.lossDb)},
                    {"loss_sd_db", NumberOrNull(event.lossSdDb)},
                    {"reflectance_db", NumberOrNull(event.reflectanceDb)},
                    {"fail", row.fail}});
  }
  return JsonLine(rows);
}

std::vector<EventDay> DaysFrom(const Comparison& comparison, const EventTable& baseline, Millis takenAt) {
  std::vector<EventDay> days;
  if (comparison.result != kCompared) return days;
  for (const ComparedEvent& row : comparison.rows) {
    const int index = BaselineIndex(row, baseline);
    if (row.fiberBreak) break;
    if (index < 0 || !row.event.lossDb) continue;
    EventDay day;
    day.event = index;
    day.day = static_cast<long>(takenAt / kMillisPerDay);
    day.count = 1;
    day.lossDb = *row.event.lossDb;
    // A saturated receiver tells the least that a reflectance can be, which is no measurement.
    if (row.event.reflectanceDb && !row.event.reflectanceAtLeast) {
      day.reflectanceCount = 1;
      day.reflectanceDb = *row.event.reflectanceDb;
    }
    days.push_back(day);
  }
  return days;
}

std::string BaselineEventsJson(const EventTable& baseline) {
  json rows = json::array();
  for (std::size_t i = 0; i < baseline.events.size(); ++i) {
    const Event& event = baseline.events[i];
    rows.push_back({{"event", i},
                    {"km", event.distanceKm},
                    {"type", event.type},
                    {"loss_db", NumberOrNull(event.lossDb)},
                    {"reflectance_db", NumberOrNull(event.reflectanceDb)}});
  }
  return JsonLine(rows);
}

std::string CardJson(const Card& card) {
  return JsonLine({{"cable", card.cable},
                   {"fibre", card.fibre},
                   {"from", card.from},
                   {"to", card.to},
                   {"instrument", card.instrument},
                   {"serial", card.instrumentSerial},
                   {"date_utc", card.dateUtc},
                   {"wavelength_nm", card.wavelengthNm},
                   {"pulse_ns", card.pulseNs},
                   {"points", card.points},
                   {"range_km", card.rangeKm},
                   {"averages", card.averages}});
}

std::string SentencesJson(const std::vector<std::string>& sentences) { return JsonLine(json(sentences)); }

}  // namespace reflyze::watch
