// SPDX-License-Identifier: Apache-2.0
#include "reflyze/quality.h"

#include <cmath>

#include "lib/AnalysedRecord.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"
#include "ref/events/refEvent.h"

namespace reflyze {
namespace {

constexpr double kNotInNoise = -1.0;  // stands for a loss where the longer pulse shows noise only

// By how many metres an event may lie elsewhere than its table says: what the table is off, and twice the
// deviation of the place that was measured.
double TrustM(const TSorData& record, const MeasuredEvent& measured, const Event& event) {
  constexpr double kDeviations = 1.96;  // 95 % of a normal error lie within
  const double km = record.OwtToLen(record.NumToOwt(0) + record.dLenToOwt(measured.km.value));
  return std::fabs(km - event.distanceKm) * 1000.0 +
         kDeviations * event.distanceSdM.value_or(measured.km.deviation * 1000.0);
}

void TakeMeasuredRow(const TSorData& record, const MeasuredEvent& measured, const Event& event,
                     JudgedEvent& row) {
  row.distanceSdM = event.distanceSdM;
  row.lossSdDb = event.lossSdDb;
  row.probability = event.probability;
  row.trustM = TrustM(record, measured, event);
  // The levels beside an event may stand above the noise and yet not tell what it loses.
  if (row.measurable == Measurable::kYes && !row.lossDb) row.measurable = Measurable::kNo;
}

JudgedEvent RowOf(TSorData& record, const TSorData* longPulse, const Event& event, int index) {
  JudgedEvent row;
  row.number = event.number;
  row.distanceKm = event.distanceKm;
  row.code = event.code;
  row.lossDb = event.lossDb;
  row.trustM = RefEventTrusting(&record, index) * record.FxdParams->LenDS() * 1000.0;
  row.measurable = static_cast<Measurable>(RefEventLossMeasurable(&record, index));
  // Launch and end are no joints.
  if (longPulse != nullptr && index > 0 && index + 1 < record.KeyEvents->ListedEvents()) {
    const double lossDb = RefEventGetEventLossFromTwoSorPulses(&record, index, {longPulse});
    if (lossDb != kNotInNoise) row.twoPulseLossDb = lossDb;
  }
  return row;
}

// Nothing is lost at the launch, so it can't end the range of the measurement.
void SettleRange(QualityTable& table) {
  table.allMeasurable = true;
  table.measurableKm = table.lengthKm;
  for (size_t i = 1; i < table.rows.size(); ++i) {
    if (table.rows[i].measurable == Measurable::kYes) continue;
    table.allMeasurable = false;
    table.measurableKm = table.rows[i].distanceKm;
    return;
  }
}

void JudgeLaunch(TSorData& record, QualityTable& table) {
  float quality = 0.0f, levelDb = 0.0f;
  // The level and the loss of the fibre come from the record.
  table.launch = static_cast<LaunchState>(RefEventLinkQuality(&record, quality, levelDb, 0.0f, 0.0f, 0.0f));
  table.launchQuality = quality;
  table.launchLevelDb = levelDb;
}

// The events of the record; those that were measured with what was measured.
std::vector<JudgedEvent> JudgedRows(const LoadedRecord& loaded, const TSorData* longPulse,
                                    const std::optional<MeasuredLink>& link) {
  TSorData& record = *loaded.record;
  std::vector<Event> events = MakeEventRows(record, loaded.texts, Numbers::kMeasured);
  if (link) TakeMeasured(record, *link, events);
  std::vector<JudgedEvent> rows;
  for (const Event& event : events) {
    const int index = static_cast<int>(rows.size());
    rows.push_back(RowOf(record, longPulse, event, index));
    const MeasuredEvent* measured = link ? MeasuredAt(*link, index) : nullptr;
    if (measured != nullptr) TakeMeasuredRow(record, *measured, event, rows.back());
  }
  return rows;
}

QualityTable MakeQualityTable(const LoadedRecord& loaded, const TSorData* longPulse, int lastPercent,
                              const std::optional<MeasuredLink>& link) {
  TSorData& record = *loaded.record;
  QualityTable table;
  table.file = loaded.given;
  table.pulseNs = record.FxdParams->GetNsPulse(0.0);
  table.noiseFloorDb = NoiseFloorDb(record);
  table.lastPercent = lastPercent;
  table.measurement = link ? Measurement::kDone : Measurement::kFailed;
  table.fibre = link ? link->fibre : ShowsFibre(record);
  if (!table.fibre) return table;
  table.rows = JudgedRows(loaded, longPulse, link);
  table.lengthKm = table.rows.empty() ? 0.0 : table.rows.back().distanceKm;
  table.noiseFloorDb = NoiseFloorDb(record);  // it was settled when the events were judged
  SettleRange(table);
  JudgeLaunch(record, table);
  table.endInLastPercent = RefEventIsEofInLastNpercent(&record, lastPercent, 0.0) != 0;
  return table;
}

// What the trace shows of its events. A table that was found here takes it over; one that somebody else has
// made keeps its events and their places.
std::optional<MeasuredLink> MeasuredLinkOf(const AnalysedRecord& analysed) {
  TSorData& record = *analysed.loaded.record;
  if (!analysed.thresholds) {
    MeasureOptions asked;
    asked.keepsTable = true;
    return MeasureLink(record, asked);
  }
  std::optional<MeasuredTable> table = MeasureTable(record);
  if (!table) return std::nullopt;
  return std::move(table->link);
}

void WarnIfNotLonger(const LoadedRecord& loaded, const LoadedRecord& longer, std::vector<Warning>& warnings) {
  const double ns = loaded.record->FxdParams->GetNsPulse(0.0);
  const double longerNs = longer.record->FxdParams->GetNsPulse(0.0);
  if (longerNs > ns) return;
  warnings.push_back({longer.name, Format("its pulse of %.0f ns is no longer than the %.0f ns of %s",
                                          longerNs, ns, loaded.name.c_str())});
}

void WarnOfLongPulse(const AnalysedRecord& analysed, const AnalysedRecord& longer,
                     std::vector<Warning>& warnings) {
  for (Warning& warning : WarningsOf(longer)) warnings.push_back(std::move(warning));
  WarnIfNotLonger(analysed.loaded, longer.loaded, warnings);
  WarnIfOtherWavelength(analysed.loaded, longer.loaded, warnings);
}

}  // namespace

QualityTable Quality(Trace trace, const QualityOptions& options) {
  if (options.lastPercent < 0 || options.lastPercent > 100)
    throw Error(ErrorKind::kUsage, "", Format("%d %% is no part of the range", options.lastPercent));
  const AnalysedRecord analysed = WithEvents(std::move(trace), {}, false);
  std::optional<AnalysedRecord> longer;
  if (options.longPulse) longer = WithEvents(*options.longPulse, {}, false);
  QualityTable table;
  CallEngine(analysed.loaded.name, "is not a trace that can be judged", [&] {
    const std::optional<MeasuredLink> link = MeasuredLinkOf(analysed);
    const UnmeasuredReflectances unmeasured(*analysed.loaded.record);
    table = MakeQualityTable(analysed.loaded, longer ? longer->loaded.record.get() : nullptr,
                             options.lastPercent, link);
  });
  table.warnings = WarningsOf(analysed);
  if (table.fibre && table.measurement == Measurement::kFailed)
    table.warnings.push_back(NotMeasured(analysed.loaded.name));
  if (!longer) return table;
  table.longPulseFile = longer->loaded.given;
  WarnOfLongPulse(analysed, *longer, table.warnings);
  return table;
}

}  // namespace reflyze
