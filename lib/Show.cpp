// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "lib/Decimal.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"
#include "lib/LoadedRecord.h"
#include "lib/StoredBlocks.h"
#include "reflyze/show.h"

namespace reflyze {
namespace {

constexpr int kFirstWithKinds =
    200;  // revision of the blocks that tell direction, averaging time, fibre type

// What a file states of a quantity that is never exactly 0.
std::optional<double> Stated(double value) {
  return value != 0.0 && std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

std::optional<double> Finite(double value) {
  return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

Thresholds StoredThresholds(const LoadedRecord& loaded) {
  const TSorData& record = *loaded.record;
  const TSorBlockFixedParameters& fixed = *record.FxdParams;
  return {Stated(fixed.GetLT()), Stated(fixed.GetRT()), Stated(fixed.GetET()),
          Stores(loaded, "QRTParams") ? Stated(record.QRTParams->GetCT()) : std::nullopt};
}

void TakeCard(const Trace& trace, const LoadedRecord& loaded, Sheet& sheet) {
  const TSorData& record = *loaded.record;
  const TSorBlockFixedParameters& fixed = *record.FxdParams;
  sheet.file = loaded.given;
  sheet.bytes = static_cast<long long>(trace.Loaded().bytes.size());
  sheet.revision = record.Map->RevisionNo;
  sheet.card = trace.GetCard();
  sheet.hasFibreType = record.GenParams->RevisionNo >= kFirstWithKinds;
  sheet.dataState = loaded.texts.Utf8(record.GenParams->CDF);
  sheet.nominalNm = record.GenParams->NW;
  if (fixed.RevisionNo >= kFirstWithKinds) {
    sheet.direction = loaded.texts.Utf8(fixed.TT);
    if (fixed.AT != 0) sheet.averagingTime = fixed.AT;
  }
  sheet.firstKm = Finite(record.GetMinLen());
  sheet.noiseFloorDb = Stated(NoiseFloorDb(record));
  sheet.thresholds = StoredThresholds(loaded);
}

// The rows of the file's own table. Its sums are those of its numbers: instruments add up what they list,
// with the connector at the begin of the link where they have measured that, behind a launch reel.
void TakeEvents(const LoadedRecord& loaded, Sheet& sheet) {
  const TSorData& record = *loaded.record;
  double launchDb = 0.0;
  for (Event& event : MakeEventRows(record, loaded.texts, Numbers::kAsStored)) {
    if (sheet.rows.empty()) launchDb = event.lossDb.value_or(0.0);
    event.cumulatedDb = event.cumulatedDb.value_or(0.0) + launchDb;
    SheetRow row;
    row.meaning = MeaningOf(event.code, event.technique);
    // At the end of a fibre the light itself is lost, whatever number stands there.
    event.lossDb = row.meaning.endsFibre ? std::nullopt : Stated(event.lossDb.value_or(0.0));
    event.reflectanceDb = Stated(event.reflectanceDb.value_or(0.0));
    event.attenuationDbPerKm = Stated(event.attenuationDbPerKm.value_or(0.0));
    if (!std::isfinite(event.distanceKm)) event.cumulatedDb.reset();
    row.stored = std::move(event);
    sheet.rows.push_back(std::move(row));
  }
  if (!sheet.rows.empty()) sheet.stored.lengthKm = Finite(sheet.rows.back().stored->distanceKm);
  sheet.stored.totalLossDb = Stated(record.KeyEvents->GetEEL());
  sheet.stored.returnLossDb = Stated(record.KeyEvents->ORL / 1000.0);
}

std::optional<double> Difference(std::optional<double> measured, std::optional<double> stored) {
  constexpr double kSteps = 1e6;  // so that 0.3 - 0.1 is 0.2
  if (!measured || !stored) return std::nullopt;
  return NearestDecimal(*measured - *stored, kSteps);
}

void SetBeside(const Event& measured, SheetRow& row) {
  const Event& stored = *row.stored;
  constexpr double kMetresPerKm = 1000.0;
  row.distanceOffM = Difference(measured.distanceKm * kMetresPerKm, stored.distanceKm * kMetresPerKm);
  row.lossOffDb = Difference(measured.lossDb, stored.lossDb);
  row.reflectanceOffDb = Difference(measured.reflectanceDb, stored.reflectanceDb);
  row.attenuationOffDbPerKm = Difference(measured.attenuationDbPerKm, stored.attenuationDbPerKm);
  row.measured = measured;
}

// Two tables are of one fibre. An event of both is where they are nearest to each other, and no farther apart
// than a pulse and a half, within which an instrument may set its place. Both go along the fibre, so no pair
// crosses another.
class Pairing {
 public:
  Pairing(std::vector<SheetRow>& rows, const std::vector<Event>& measured, double withinKm)
      : rows_(rows), measured_(measured), withinKm_(withinKm) {}

  void Run() {
    std::vector<SheetRow> both;
    size_t next = 0;  // the first measured event that has no row yet
    for (size_t i = 0; i < rows_.size(); ++i) {
      const size_t found = PartnerOf(i, next);
      const bool paired = found < measured_.size();
      for (; next < found && (paired || measured_[next].distanceKm < rows_[i].stored->distanceKm); ++next)
        both.push_back(Alone(measured_[next]));
      both.push_back(rows_[i]);
      if (!paired) continue;
      SetBeside(measured_[found], both.back());
      next = found + 1;
    }
    for (; next < measured_.size(); ++next) both.push_back(Alone(measured_[next]));
    rows_ = std::move(both);
  }

 private:
  double Apart(size_t row, size_t event) const {
    return std::fabs(rows_[row].stored->distanceKm - measured_[event].distanceKm);
  }
  // The number of events where there is none.
  size_t PartnerOf(size_t row, size_t next) const {
    size_t best = measured_.size();
    for (size_t j = next; j < measured_.size(); ++j) {
      if (!(Apart(row, j) <= withinKm_) || (best < measured_.size() && Apart(row, best) <= Apart(row, j)))
        continue;
      best = j;
    }
    const bool taken =
        best < measured_.size() && row + 1 < rows_.size() && Apart(row + 1, best) < Apart(row, best);
    return taken ? measured_.size() : best;
  }
  static SheetRow Alone(const Event& measured) {
    SheetRow row;
    row.measured = measured;
    row.meaning = MeaningOf(measured.code, measured.technique);
    return row;
  }

  std::vector<SheetRow>& rows_;
  const std::vector<Event>& measured_;
  double withinKm_;
};

void Measure(const Trace& trace, const LoadedRecord& loaded, Sheet& sheet) {
  EventTable table;
  try {
    table = Analyse(trace);
  } catch (const Error& error) {
    sheet.measurement = Measurement::kFailed;
    sheet.warnings.push_back({loaded.name, "can't be measured: " + error.sentence()});
    return;
  }
  sheet.measurement = table.measurement;
  sheet.measured = {table.lengthKm, table.totalLossDb, table.returnLossDb};
  constexpr double kPulses = 1.5, kPoints = 3.0;
  const TSorBlockFixedParameters& fixed = *loaded.record->FxdParams;
  const double withinKm = kPulses * fixed.OwtToLen(fixed.GetOwtPulse(0.0)) + kPoints * fixed.LenDS();
  Pairing(sheet.rows, table.events, withinKm).Run();
  for (const Warning& warning : table.warnings) {
    const auto same = [&](const Warning& known) { return known.text == warning.text; };
    if (std::none_of(sheet.warnings.begin(), sheet.warnings.end(), same)) sheet.warnings.push_back(warning);
  }
}

}  // namespace

Sheet SheetOf(const Trace& trace, const SheetOptions& options) {
  LoadedRecord loaded = CopyOfLoaded(trace.Loaded());
  RequireReadThrough(loaded);
  CountTimesFromFirstSample(loaded);
  Sheet sheet;
  CallEngine(loaded.name, "is not a record that can be listed", [&] {
    TakeCard(trace, loaded, sheet);
    TakeEvents(loaded, sheet);
  });
  sheet.warnings = WarningsOf(loaded);
  if (options.measure) Measure(trace, loaded, sheet);
  return sheet;
}

}  // namespace reflyze
