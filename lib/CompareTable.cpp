// SPDX-License-Identifier: Apache-2.0
#include "lib/CompareTable.h"

#include <cmath>

#include "lib/EventRows.h"
#include "ref/figures/refAutoNoise.h"
#include "src/monitor/RFTSUParams.h"
#include "src/monitor/TraceComparison.h"

namespace reflyze {
namespace {

static_assert(kCompared == static_cast<int>(mrCompared) && kNoLink == static_cast<int>(mrNoLink) &&
              kNoActiveLevel == static_cast<int>(mrNoActiveLevel) &&
              kFibreBreak == static_cast<int>(mrFibreBreak));

constexpr double kThousandths = 1000.0;

// The limits of an event of the current trace: those of the baseline's event at its place.
const TThresholdsRFTSSet* LimitsAt(const TSorData& baseline, double km) {
  const TRFTSLevel* level = baseline.RFTSParams->GetActiveLevel();
  if (level == nullptr) return nullptr;
  int nearest = -1;
  double nearestKm = 0.0;
  for (int i = 0; i < baseline.KeyEvents->ListedEvents(); ++i) {
    const double apartKm = std::fabs(baseline.OwtToLen(baseline.KeyEvents->EventAt(i).EPT) - km);
    if (nearest >= 0 && apartKm >= nearestKm) continue;
    nearest = i;
    nearestKm = apartKm;
  }
  return nearest >= 0 && nearest < level->GetTNTS() ? level->GetThresholdsSet(nearest) : nullptr;
}

enum class Sign { kSigned, kUnsigned };

// An absolute reflectance or attenuation is stored in 16 bits without a sign.
double Value(short stored, bool absolute, Sign ofAbsolute) {
  const bool wide = absolute && ofAbsolute == Sign::kUnsigned;
  return (wide ? static_cast<unsigned short>(stored) : stored) / kThousandths;
}

Deviation DeviationOf(const TShortDeviation& stored, const TShortThreshold* threshold, Sign ofAbsolute) {
  Deviation deviation;
  deviation.absolute = stored.IsAbsolute();
  deviation.compared = stored.IsCompared();
  deviation.exceeded = stored.IsExceeded();
  deviation.value = Value(stored.GetDeviation(), deviation.absolute, ofAbsolute);
  if (threshold != nullptr)
    deviation.limit = Value(threshold->GetThreshold(), threshold->IsAbsolute(), ofAbsolute);
  return deviation;
}

ComparedEvent MakeCompareRow(const TSorData& baseline, const TSorData& current, const Event& event,
                             int index) {
  ComparedEvent row;
  row.event = event;
  const TSorBlockRFTSEvents& results = *current.RFTSEvents;
  if (index >= results.GetTNRFTSE()) return row;
  const TSorBlockRFTSEvents1E& entry = *results.GetEvent(index);
  row.monitored = entry.IsMonitored();
  row.isNew = entry.IsNew();
  row.fail = entry.IsFail();
  row.fiberBreak = entry.IsFiberBreak();
  const TThresholdsRFTSSet* limits = LimitsAt(baseline, row.event.distanceKm);
  row.loss = DeviationOf(entry.LT, limits != nullptr ? &limits->LT : nullptr, Sign::kSigned);
  row.reflectance = DeviationOf(entry.RT, limits != nullptr ? &limits->RT : nullptr, Sign::kUnsigned);
  row.attenuation = DeviationOf(entry.CT, limits != nullptr ? &limits->CT : nullptr, Sign::kUnsigned);
  return row;
}

LinkTest MakeLinkTest(const TSorData& baseline, const TSorData& current) {
  LinkTest test;
  TRFTSUParams settings;
  settings.Take(baseline);
  test.distanceKm = settings.NoLinkDistance;
  test.baselineDb = baseline.LenToLevel(test.distanceKm, 1);
  test.currentDb = current.LenToLevel(test.distanceKm, 1);
  TSorData scratch;  // a copy, because settling the noise floor writes into the record
  scratch.Assign(current);
  test.noLight = test.currentDb <= RefAutoReSetNF(&scratch);
  return test;
}

}  // namespace

Comparison MakeCompareTable(const LoadedRecord& baselineFile, const LoadedRecord& currentFile, int result,
                            Numbers numbers) {
  const TSorData &baseline = *baselineFile.record, &current = *currentFile.record;
  Comparison table;
  table.baselineFile = baselineFile.given;
  table.file = currentFile.given;
  table.result = result;
  table.numbers = numbers;
  table.fail = current.RFTSEvents->IsFail();
  if (const TRFTSLevel* level = baseline.RFTSParams->GetActiveLevel())
    table.level = baselineFile.texts.Utf8(level->GetName());
  const int last = baseline.KeyEvents->ListedEvents() - 1;
  if (last >= 0) table.baselineLengthKm = baseline.OwtToLen(baseline.KeyEvents->EventAt(last).EPT);
  if (result == mrNoLink) table.linkTest = MakeLinkTest(baseline, current);
  for (const Event& event : MakeEventRows(current, currentFile.texts, numbers))
    table.rows.push_back(MakeCompareRow(baseline, current, event, static_cast<int>(table.rows.size())));
  return table;
}

}  // namespace reflyze
