// SPDX-License-Identifier: Apache-2.0
#include "reflyze/filter.h"

#include <algorithm>

#include "lib/Decimal.h"
#include "lib/EngineCall.h"
#include "lib/LoadedRecord.h"
#include "ref/math/ref_Math.h"
#include "src/filter/Filter.h"

namespace reflyze {
namespace {

constexpr long kMostFilterEvents = 100;     // the most that the automatic filter reports
constexpr double kLowestNoiseDb = -100.0;   // stands for noise that was not measured
constexpr double kFilterLevelSteps = 10.0;  // steps of 1 in which a record stores the strength

// A noise figure of 0 was not measured, and neither was one below every level.
std::optional<double> IfMeasured(float noiseDb) {
  if (noiseDb == 0.0F || noiseDb <= kLowestNoiseDb) return std::nullopt;
  return NearestDecimal(noiseDb);
}

FilterPoint PointAt(const TSorData& record, long point) {
  return {point, record.NumToLen(point), NearestDecimal(static_cast<float>(record.NumToLevel(point)))};
}

FilterEvent EventOf(const LoadedRecord& loaded, const TFEvent& found) {
  const TSorData& record = *loaded.record;
  FilterEvent event;
  if (found.type != 0) event.type = loaded.texts.Utf8(&found.type, 1);
  event.begin = PointAt(record, found.begin);
  event.peak = PointAt(record, found.peak);
  event.end = PointAt(record, found.end);
  event.rise = found.rise;
  event.tail = found.tail;
  event.gradeUp = found.gradeUp;
  event.gradeDown = found.gradeDown;
  event.width = found.width;
  return event;
}

// Makes rows of the `found` events, which the filter reports of the trace that it has left. There is room for
// kMostFilterEvents.
FilterTable MakeFilterTable(const LoadedRecord& loaded, FilterKind kind, const AutoFilterResultData& found) {
  const TSorData& record = *loaded.record;
  FilterTable table;
  table.file = loaded.given;
  table.kind = kind;
  table.filterLevel = NearestDecimal(record.QRTParams->GetFilterLevel(), kFilterLevelSteps);
  table.points = record.DataPts->GetPointsNum();
  table.spacingM = record.FxdParams->LenDS() * 1000.0;
  table.kernelPoints = record.QRTParams->TMC;
  table.count = found.count;
  table.firstBegin = found.firstBegin;
  table.ghostCount = found.ghostCount;
  table.ringCount = found.ringCount;
  table.rippleDb = NearestDecimal(found.polar);
  table.rippleToEndDb = NearestDecimal(found.polarEnd);
  table.noiseLowDb = IfMeasured(found.noiseLow);
  table.noiseHighDb = IfMeasured(found.noiseHigh);
  const long listed = std::clamp(found.count, 0L, kMostFilterEvents);
  for (long i = 0; i < listed; ++i) table.events.push_back(EventOf(loaded, found.events[i]));
  return table;
}

void CheckOptions(const FilterOptions& options) {
  const FilterKind kind = options.kind;
  if (kind != FilterKind::kKernel && kind != FilterKind::kFast && kind != FilterKind::kAuto)
    throw Error(ErrorKind::kUsage, "", Format("there is no filter of kind %d", static_cast<int>(kind)));
  const double level = options.level.value_or(1.0);
  if (level >= kLeastFilterLevel && level <= kLargestFilterLevel) return;
  throw Error(
      ErrorKind::kUsage, "",
      Format("the filter level %g is not between %g and %g", level, kLeastFilterLevel, kLargestFilterLevel));
}

void RequireRawTrace(const LoadedRecord& loaded) {
  constexpr int kFinal = 1;  // state of the filter story
  if (loaded.record->QRTParams->DataPointsFiltered == kFinal)
    throw Error(ErrorKind::kUnreadable, loaded.name, "is smoothed already, and its raw points are gone");
  if (RefEmbGetLinf(loaded.record.get()) == nullptr)
    throw Error(ErrorKind::kUnreadable, loaded.name, "holds no backscatter to smooth");
}

// A kernel of one coefficient or none does nothing; one that suits the pulse takes its place.
void GiveKernel(TSorData& record, TSorFilter& filter) {
  if (record.QRTParams->TMC > 1) return;
  record.QRTParams->SetTMC(0);
  filter.SetLvlK(record.QRTParams->GetFilterLevel());
}

// Leaves the record with smoothed levels only: a file holds one trace.
FilterTable Smooth(LoadedRecord& loaded, const FilterOptions& options) {
  TSorData& record = *loaded.record;
  TSorBlockQRTParameters& params = *record.QRTParams;
  if (options.level) params.SetFilterLevel(*options.level, params.isDynFilter() ? 1 : 0);
  std::vector<TFEvent> events(static_cast<size_t>(kMostFilterEvents));
  std::vector<short> pointMap(static_cast<size_t>(record.DataPts->GetPointsNum()));
  TSorFilter filter(&record);
  filter.result.events = events.data();
  filter.result.pointMap = pointMap.data();
  if (options.kind == FilterKind::kKernel) GiveKernel(record, filter);
  filter.SetFilter(static_cast<int>(options.kind));
  if (filter.result.count < 0) {
    throw Error(ErrorKind::kUnreadable, loaded.name, "is a trace that the automatic filter cannot work on");
  }
  filter.AutoFilterCalcNoise();
  filter.EraseFilterStory();
  return MakeFilterTable(loaded, options.kind, filter.result);
}

}  // namespace

const char* NameOf(FilterKind kind) {
  switch (kind) {
    case FilterKind::kKernel:
      return "kernel";
    case FilterKind::kFast:
      return "fast";
    case FilterKind::kAuto:
      break;
  }
  return "auto";
}

FilterTable Filter(Trace trace, const FilterOptions& options) {
  CheckOptions(options);
  LoadedRecord loaded = ForMeasuring(std::move(trace));
  RequireRawTrace(loaded);
  FilterTable table;
  CallEngine(loaded.name, "is not a trace that can be smoothed", [&] { table = Smooth(loaded, options); });
  table.warnings = WarningsOf(loaded);
  table.record = Keep(loaded);
  return table;
}

}  // namespace reflyze
