// SPDX-License-Identifier: Apache-2.0
#include "lib/EventRows.h"

#include <algorithm>

#include "lib/Decimal.h"
#include "ref/figures/refAutoNoise.h"

namespace reflyze {
namespace {

// Stored wavelengths below this are in nm, the others in tenths of a nm.
constexpr int kLargestStoredNm = 2000;

// The event code's first character says how the event looks, the second where it stands (SR-4731).
std::string TypeInWords(const TSorBlockKeyEvents1E& event, bool first) {
  const char shape = event.EC.Len() > 0 ? event.EC.c_str()[0] : '?';
  const char place = event.EC.Len() > 1 ? event.EC.c_str()[1] : '?';
  if (place == 'O') return "out of range";
  const bool saturated = shape == '2' || shape == 'D';
  const bool reflective = saturated || shape == '1' || shape == 'd';
  std::string words = saturated ? "saturated" : reflective ? "reflective" : "non-reflective";
  if (event.IsEOF()) return "end, " + words;
  if (first) return "launch";
  if (!reflective && event.GetEL() < 0.0) return "gain";
  return words;
}

// The event code's first character says how the event looks (SR-4731).
bool IsSaturated(const std::string& code) { return !code.empty() && (code[0] == '2' || code[0] == 'D'); }
bool Reflects(const std::string& code) { return !code.empty() && code[0] != '0'; }

Event MakeEventRow(const TSorData& record, const TextEncoding& texts, int index, Numbers numbers) {
  const TSorBlockKeyEvents1E& event = *record.KeyEvents->events->GetData(index);
  const bool all = numbers == Numbers::kAsStored;
  const bool launch = index == 0, end = index + 1 == record.KeyEvents->events->GetSize();
  Event row;
  row.number = event.EN;
  row.eptOwt = event.EPT;
  row.distanceKm = record.OwtToLen(event.EPT);
  row.code = texts.Utf8(event.EC);
  row.technique = texts.Utf8(event.LMT);
  row.type = TypeInWords(event, launch);
  if (all || !(launch || end)) row.lossDb = event.GetEL();
  if (event.ER != 0 && (all || (Reflects(row.code) && KnowsBackscatter(record)))) {
    row.reflectanceDb = event.GetER();
    row.reflectanceAtLeast = IsSaturated(row.code);
  }
  if (all || !launch) row.attenuationDbPerKm = event.GetACI();
  row.markersOwt = {event.ML0, event.ML1, event.ML2, event.ML3, event.ML4};
  row.comment = texts.Utf8(event.CMT);
  return row;
}

void TakeThresholds(const TTH& asked, Thresholds& held) {
  held.lossDb = asked.THLoss;
  held.reflectanceDb = asked.THRef <= TTH::kLowestReflectanceDb ? TTH::kEveryReflectanceDb : asked.THRef;
  held.endDb = std::max(asked.THEnd, TTH::kLeastEndDb);
  held.slopeDbPerKm = asked.dBkm;
}

// A stored 0 was never set.
void TakeStoredThresholds(const TSorData& record, Thresholds& held) {
  const auto set = [](std::optional<double>& threshold, double stored) {
    if (stored != 0.0) threshold = stored;
  };
  set(held.lossDb, record.FxdParams->GetLT());
  set(held.reflectanceDb, record.FxdParams->GetRT());
  set(held.endDb, record.FxdParams->GetET());
  set(held.slopeDbPerKm, record.QRTParams->GetCT());
}

}  // namespace

double WavelengthNm(const TSorData& record) {
  const int stored = record.FxdParams->AW;
  if (stored == 0) return record.GenParams->NW;
  // The field has a sign in a file, but a wavelength in tenths of a nm may be too large for that.
  const int actual = stored < 0 ? stored + 65536 : stored;
  return actual < kLargestStoredNm ? actual : actual / 10.0;
}

// Noise stands as high as its floor, and by chance a little higher. Light that comes back from a fibre stands
// higher, at least where it is launched. A noise floor that another instrument has stored may be anything, so
// it is measured on the trace before a trace is called dark.
bool ShowsFibre(const TSorData& record) {
  if (record.KeyEvents->ListedEvents() < 2) return false;
  constexpr double kOverNoiseDb = 3.0;
  double highestDb = record.NumToLevel(0);
  for (long i = 1; i < record.DataPts->GetPointsNum(); ++i)
    highestDb = std::max<double>(highestDb, record.NumToLevel(i));
  if (highestDb > record.FxdParams->GetNF() + kOverNoiseDb) return true;
  TSorData scratch;  // a copy, because settling the noise floor writes into the record
  scratch.Assign(record);
  RefAutoReSetNF(&scratch);
  return highestDb > scratch.FxdParams->GetNF() + kOverNoiseDb;
}

double NoiseFloorDb(const TSorData& record) {
  constexpr double kSteps = 1e6;  // in a dB, of a raw level times its scale factor
  return NearestDecimal(record.FxdParams->GetNF(), kSteps);
}

bool KnowsBackscatter(const TSorData& record) { return record.FxdParams->BC != 0; }

std::vector<Event> MakeEventRows(const TSorData& record, const TextEncoding& texts, Numbers numbers) {
  std::vector<Event> rows;
  double cumulatedDb = 0.0;
  const int count = static_cast<int>(record.KeyEvents->events->GetSize());
  for (int i = 0; i < count; ++i) {
    Event row = MakeEventRow(record, texts, i, numbers);
    // Before the launch there is no fibre to measure a loss against. What is lost at the last event is the
    // light itself, which is no loss on the way.
    if (i > 0) cumulatedDb += *row.attenuationDbPerKm * (row.distanceKm - rows.back().distanceKm);
    if (i > 0 && i + 1 < count) cumulatedDb += *row.lossDb;
    row.cumulatedDb = cumulatedDb;
    rows.push_back(std::move(row));
  }
  return rows;
}

EventTable MakeEventTable(const LoadedRecord& loaded, const std::optional<TTH>& asked, Numbers numbers,
                          std::optional<bool> showsFibre) {
  const TSorData& record = *loaded.record;
  EventTable table;
  table.file = loaded.given;
  table.points = record.DataPts->GetPointsNum();
  table.wavelengthNm = WavelengthNm(record);
  table.pulseNs = record.FxdParams->GetNsPulse(0.0);
  table.spacingM = record.FxdParams->LenDS() * 1000.0;
  table.rangeKm = record.GetMaxLen() - record.GetMinLen();
  table.groupIndex = record.FxdParams->GetRI();
  if (asked) {
    TakeThresholds(*asked, table.thresholds);
  } else {
    TakeStoredThresholds(record, table.thresholds);
  }
  table.noiseFloorDb = NoiseFloorDb(record);
  table.events = MakeEventRows(record, loaded.texts, numbers);
  const bool all = numbers == Numbers::kAsStored;
  table.fibre = showsFibre ? *showsFibre : ShowsFibre(record);
  if (!table.fibre && !all) {
    table.events.clear();
    return table;
  }
  if (!table.events.empty()) table.lengthKm = table.events.back().distanceKm;
  table.totalLossDb = record.KeyEvents->GetEEL();
  const bool measured = record.KeyEvents->ORL != 0 && KnowsBackscatter(record);
  if (all || measured) table.returnLossDb = record.KeyEvents->ORL / 1000.0;
  return table;
}

}  // namespace reflyze
