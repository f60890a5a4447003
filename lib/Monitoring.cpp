// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "lib/AnalysedRecord.h"
#include "lib/Baseline.h"
#include "lib/EngineCall.h"
#include "lib/EventRows.h"
#include "lib/StoredBlocks.h"
#include "reflyze/monitor.h"
#include "src/monitor/RFTSUParams.h"

namespace reflyze {
namespace {

[[noreturn]] void Refuse(const std::string& why) { throw Error(ErrorKind::kUsage, "", why); }

// A level without a name tells a record that there was no comparison.
void CheckMonitoring(const Monitoring& monitoring) {
  const std::string& name = monitoring.level;
  if (name.find_first_not_of(' ') == std::string::npos) Refuse("the alarm level has no name");
  if (OneLine(name) != name) Refuse("the name of an alarm level is one line of text");
  for (const double limit : {monitoring.ltDb, monitoring.rtDb, monitoring.ctDbPerKm, monitoring.eelDb}) {
    if (!(limit >= 0.0 && limit <= kLargestLimit))
      Refuse(Format("the limit %g is not between 0 and %g", limit, kLargestLimit));
  }
  for (const Stretch& stretch : monitoring.search) {
    if (!(stretch.fromKm < stretch.toKm))
      Refuse(Format("the stretch from %g to %g km has no length", stretch.fromKm, stretch.toKm));
  }
  for (const auto& [setting, value] : monitoring.settings) {
    const ComparisonSetting* known = FindComparisonSetting(setting);
    if (known == nullptr) Refuse("the comparison has no setting \"" + setting + "\"");
    if (!(value >= known->least && value <= known->most))
      Refuse(Format("%s: %g is not between %g and %g", setting.c_str(), value, known->least, known->most));
  }
}

// The loss threshold for the analysis of a baseline is at most half of what the search for new events takes.
// A joint that the baseline does not list would be reported as new by the first search, and near the
// threshold noise decides whether a joint is listed.
AnalyseOptions FineEnough(const Monitoring& monitoring) {
  constexpr double kShareOfSearch = 0.5;
  double searchLtDb = TRFTSUParams().AutoLT;
  for (const auto& [name, value] : monitoring.settings)
    if (name == "AutoLT") searchLtDb = value;
  AnalyseOptions options;
  options.mostLossDb = kShareOfSearch * searchLtDb;
  return options;
}

// How the fibre is watched, as the record says it: limits are stored in thousandths.
Monitoring Held(const LoadedRecord& loaded) {
  constexpr double kThousandths = 1000.0;
  const TSorData& record = *loaded.record;
  const TRFTSLevel& level = *record.RFTSParams->GetActiveLevel();
  const TThresholdsRFTSSet& limits = *level.GetThresholdsSet(0);
  Monitoring held;
  held.level = loaded.texts.Utf8(level.GetName());
  held.ltDb = limits.GetLT().GetThreshold() / kThousandths;
  held.rtDb = limits.GetRT().GetThreshold() / kThousandths;
  held.ctDbPerKm = limits.GetCT().GetThreshold() / kThousandths;
  held.eelDb = level.GetEELT().GetThreshold() / kThousandths;
  for (int i = 0; i < record.QRTEvents->events->GetSize(); ++i) {
    const TSorBlockQRTEvents1E& section = *record.QRTEvents->events->GetData(i);
    held.search.push_back({record.OwtToLen(section.ML0), record.OwtToLen(section.ML1)});
  }
  for (int i = 0; i < record.RFTSParams->GetTNUP(); ++i) {
    TRFTSUniversalParameter& setting = *record.RFTSParams->GetUParameter(i);
    held.settings.emplace_back(setting.GetName().c_str(), setting.GetValue());
  }
  return held;
}

}  // namespace

const std::vector<ComparisonSetting>& ComparisonSettings() {
  static const std::vector<ComparisonSetting> settings = {
      {"EvtDetectDeltaCT", 0.0, 10.0, "dB/km of change of slope from which new events are searched (0)"},
      {"EvtSearchStep", 0.01, 1000.0, "km of fibre whose slopes are compared at a time (8)"},
      {"EvtDetectDeltaLen", 0.0, 100.0, "km by which places of a splice may differ (a third of the pulse)"},
      {"EvtRDetectDeltaLen", 0.0, 100.0, "km by which places of a reflection may differ (three points)"},
      {"AutoLT", 0.0, 60.0, "dB of loss from which an event is new (the limit of loss, at least 0.1)"},
      {"AutoRT", -65.0, 0.0, "dB of reflectance from which the search sees reflections (-65)"},
      {"AutoCT", 0.0, 60.0, "dB/km, slope threshold of the search (0.25)"},
      {"AutoET", 0.0, 60.0, "dB of loss that ends the fibre (6)"},
      {"NoLinkDistance", 0.0, 1000.0, "km, where the fibre is recognised (0.5 to 5, by the pulse)"},
      {"NoLinkDeltaDB", 0.0, 60.0, "dB by which the levels there may differ (1)"},
      {"EventRT", 0.0, 60.0, "dB of height from which an event counts as reflective (1)"},
      {"CorrectMarkers", 0.0, 1.0, "whether neighbours make room for a new event (1)"},
      {"EvtChangeLT", 0.0, 60.0, "dB of change of loss from which the fibre may end at an event (1)"},
      {"EvtChangeET", 0.0, 60.0, "the same for the end of the fibre (1)"},
      {"EvtChangeCT", 0.0, 10.0, "dB/km, the same for the sections beside an event (0.5)"},
      {"EOFLMN", -1.0, 32767.0, "number of the landmark where monitoring ends, -1 for the end (-1)"}};
  return settings;
}

const ComparisonSetting* FindComparisonSetting(const std::string& name) {
  const std::vector<ComparisonSetting>& all = ComparisonSettings();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const ComparisonSetting& s) { return name == s.name; });
  return found == all.end() ? nullptr : &*found;
}

Baseline MakeBaseline(Trace trace, const Monitoring& monitoring) {
  CheckMonitoring(monitoring);
  AnalysedRecord analysed = WithEvents(std::move(trace), FineEnough(monitoring), false);
  LoadedRecord& loaded = analysed.loaded;
  if (!ShowsFibre(*loaded.record)) {
    throw Error(ErrorKind::kUnreadable, loaded.name, "shows no fibre: nothing to watch behind the launch");
  }
  CallEngine(loaded.name, "is not a trace that can be watched",
             [&] { MakeBaselineOf(*loaded.record, monitoring); });
  Baseline baseline;
  baseline.events = MakeEventTable(loaded, analysed.thresholds, Numbers::kMeasured);
  baseline.monitoring = Held(loaded);
  baseline.warnings = WarningsOf(analysed);
  const std::string stays = UnknownBlocksStay(*loaded.record, loaded.texts);
  if (!stays.empty()) baseline.warnings.push_back({loaded.name, stays});
  baseline.record = Keep(loaded);
  return baseline;
}

}  // namespace reflyze
