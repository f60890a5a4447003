#include "cli/CompareTable.h"

#include <cmath>

#include "cli/JsonText.h"
#include "cli/Text.h"
#include "ref/figures/refAutoNoise.h"
#include "src/monitor/RFTSUParams.h"

namespace reflyze::cli {
namespace {

constexpr double kThousandths = 1000.0;

// The limits that an event of the current trace was held against: those of the baseline's event at its place.
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

// An absolute reflectance or attenuation uses all 16 bits without a sign.
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

CompareRow MakeCompareRow(const TSorData& baseline, const TSorData& current, const EventRow& event,
                          int index) {
  CompareRow row;
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
  TSorData scratch;  // settling the noise floor writes into the record
  scratch.Assign(current);
  test.noLight = test.currentDb <= RefAutoReSetNF(&scratch);
  return test;
}

const char* StateInWords(const CompareRow& row) {
  if (row.fiberBreak) return "broken";
  if (row.isNew) return "new";
  if (row.loss.exceeded || row.reflectance.exceeded || row.attenuation.exceeded) return "alarm";
  return row.monitored ? "ok" : "-";
}

// "+0.420!" where the limit is exceeded.
std::string DeviationText(const Deviation& deviation, int digits) {
  if (!deviation.compared) return "- ";
  return Format(deviation.absolute ? "%.*f" : "%+.*f", digits, NoMinusZero(deviation.value, digits)) +
         (deviation.exceeded ? "!" : " ");
}

nlohmann::ordered_json JsonOf(const Deviation& deviation, Numbers numbers) {
  const bool told = deviation.compared || numbers == Numbers::kAsStored;
  return {{"deviation_db", told ? nlohmann::ordered_json(deviation.value) : nlohmann::ordered_json(nullptr)},
          {"absolute", deviation.absolute},
          {"compared", deviation.compared},
          {"exceeded", deviation.exceeded}};
}

}  // namespace

CompareTable MakeCompareTable(const TSorData& baseline, const TSorData& current, int result,
                              Numbers numbers) {
  CompareTable table;
  table.result = result;
  table.numbers = numbers;
  table.fail = current.RFTSEvents->IsFail();
  if (const TRFTSLevel* level = baseline.RFTSParams->GetActiveLevel()) table.level = Utf8(level->GetName());
  const int last = baseline.KeyEvents->ListedEvents() - 1;
  if (last >= 0) table.baselineLengthKm = baseline.OwtToLen(baseline.KeyEvents->EventAt(last).EPT);
  if (result == mrNoLink) table.linkTest = MakeLinkTest(baseline, current);
  for (const EventRow& event : MakeEventRows(current, numbers))
    table.rows.push_back(MakeCompareRow(baseline, current, event, static_cast<int>(table.rows.size())));
  return table;
}

std::string TextOf(const CompareTable& table) {
  std::string text;
  for (const std::string& change : ChangesOf(table)) text += OneLine(change) + "\n";
  text += Format("\nBaseline     %s\nFile         %s\n", ShownName(table.baselineFile).c_str(),
                 ShownName(table.file).c_str());
  if (!table.level.empty()) text += Format("Alarm level  %s\n", OneLine(table.level).c_str());
  text += "\n  No Distance  Type                  Loss  Change   Refl.  Change Section  State\n";
  text += "           km                         dB      dB      dB      dB  change\n";
  text += " --- --------  ------------------- ------ ------- ------- ------- ------- ------\n";
  for (const CompareRow& row : table.rows) {
    text += Format(" %3d %8.4f  %-19s %6s %7s %7s %7s %7s %s\n", row.event.number,
                   NoMinusZero(row.event.distanceKm, 4), row.event.type.c_str(),
                   NumberOrDash(row.event.lossDb, 3).c_str(), DeviationText(row.loss, 3).c_str(),
                   ReflectanceText(row.event).c_str(), DeviationText(row.reflectance, 2).c_str(),
                   DeviationText(row.attenuation, 3).c_str(), StateInWords(row));
  }
  if (table.rows.empty()) text += " no events\n";
  return text;
}

std::string JsonOf(const CompareTable& table) {
  nlohmann::ordered_json json;
  json["file"] = table.file;
  json["baseline"] = table.baselineFile;
  json["result"] = table.result;
  json["fail"] = table.fail;
  json["level"] = table.level;
  json["sentences"] = ChangesOf(table);
  json["events"] = nlohmann::ordered_json::array();
  for (const CompareRow& row : table.rows) {
    nlohmann::ordered_json event = JsonOfRow(row.event);
    event["monitored"] = row.monitored;
    event["new"] = row.isNew;
    event["fail"] = row.fail;
    event["fiber_break"] = row.fiberBreak;
    event["lt"] = JsonOf(row.loss, table.numbers);
    event["rt"] = JsonOf(row.reflectance, table.numbers);
    event["ct"] = JsonOf(row.attenuation, table.numbers);
    json["events"].push_back(std::move(event));
  }
  return JsonText(json) + "\n";
}

}  // namespace reflyze::cli
