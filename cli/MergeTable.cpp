#include "cli/MergeTable.h"

#include <algorithm>

#include "cli/EventTable.h"
#include "cli/JsonText.h"
#include "cli/Text.h"
#include "ref/events/refEventBiDir.h"

namespace reflyze::cli {
namespace {

DirectionOfRow DirectionAt(const TSorData& record, const std::vector<EventRow>& rows, const OwnEvents& own,
                           int index) {
  DirectionOfRow direction;
  direction.listed = index >= 0 && static_cast<size_t>(index) < rows.size();
  if (!direction.listed) return direction;
  const EventRow& row = rows[static_cast<size_t>(index)];
  const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(index);
  direction.seen = own.count(&event) > 0;
  direction.code = row.code;
  // Hidden from this end, it has what the other end has measured.
  if (!direction.seen && !HasSections(record, event)) return direction;
  direction.reflectanceDb = row.reflectanceDb;
  direction.lossDb = row.lossDb;
  return direction;
}

const char* SeenFrom(const MergedRow& row) { return row.a.seen ? row.b.seen ? "both" : "a" : "b"; }

}  // namespace

OwnEvents OwnEventsOf(const TSorData& record) {
  OwnEvents own;
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) own.insert(&record.KeyEvents->EventAt(i));
  return own;
}

// Event i of the first is the last but i of the second. One that lies too near to the launch of the other
// direction to be told from it has no partner there: it stands before the end, where both meet again.
MergedTable MakeMergedTable(const TSorData& a, const OwnEvents& ownA, const TSorData& b,
                            const OwnEvents& ownB) {
  MergedTable table;
  const int countA = a.KeyEvents->ListedEvents(), countB = b.KeyEvents->ListedEvents();
  const std::vector<EventRow> rowsA = MakeEventRows(a, Numbers::kMeasured);
  const std::vector<EventRow> rowsB = MakeEventRows(b, Numbers::kMeasured);
  const int endOwt = a.KeyEvents->EventAt(countA - 1).EPT;
  table.pulseNs = a.FxdParams->GetNsPulse(0.0);
  table.lengthKm = a.OwtToLen(endOwt);
  const int count = std::max(countA, countB), partners = std::min(countA, countB) - 1;
  for (int i = 0; i < count; ++i) {
    const bool end = i + 1 == count, alone = i >= partners && !end;
    const int inA = end ? countA - 1 : alone && countA < countB ? -1 : i;
    const int inB = end ? 0 : alone && countB < countA ? -1 : countB - 1 - i;
    MergedRow row;
    row.a = DirectionAt(a, rowsA, ownA, inA);
    row.b = DirectionAt(b, rowsB, ownB, inB);
    const double owt = row.a.listed ? a.KeyEvents->EventAt(inA).EPT
                                    : static_cast<double>(endOwt) - b.KeyEvents->EventAt(inB).EPT;
    row.distanceKm = a.OwtToLen(owt);
    table.rows.push_back(row);
  }
  return table;
}

void TakeMeanLosses(const TSorData& a, MergedTable& table) {
  for (size_t i = 0; i < table.rows.size(); ++i) {
    MergedRow& row = table.rows[i];
    if (row.a.lossDb && row.b.lossDb) row.meanLossDb = a.KeyEvents->EventAt(static_cast<long>(i)).GetEL();
  }
}

std::string TextOf(const MergedTable& table) {
  std::string text;
  text += Format("A  %s\n", ShownName(table.fileA).c_str());
  text += Format("B  %s\n", ShownName(table.fileB).c_str());
  text += Format("Length %.4f km  Pulse %.0f ns\n\n", table.lengthKm, table.pulseNs);
  text += "  No  Distance  Loss A  Loss B    Mean  Refl. A  Refl. B  Seen from\n";
  text += "            km      dB      dB      dB       dB       dB\n";
  text += " ---  --------  ------  ------  ------  -------  -------  ---------\n";
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const MergedRow& row = table.rows[i];
    text += Format(" %3zu  %8.4f  %6s  %6s  %6s  %7s  %7s  %s\n", i + 1, NoMinusZero(row.distanceKm, 4),
                   NumberOrDash(row.a.lossDb, 3).c_str(), NumberOrDash(row.b.lossDb, 3).c_str(),
                   NumberOrDash(row.meanLossDb, 3).c_str(), NumberOrDash(row.a.reflectanceDb, 2).c_str(),
                   NumberOrDash(row.b.reflectanceDb, 2).c_str(), SeenFrom(row));
  }
  return text;
}

std::string JsonOf(const MergedTable& table) {
  nlohmann::ordered_json json;
  json["a"] = table.fileA;
  json["b"] = table.fileB;
  json["pulse_ns"] = table.pulseNs;
  json["length_km"] = table.lengthKm;
  json["events"] = nlohmann::ordered_json::array();
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const MergedRow& row = table.rows[i];
    nlohmann::ordered_json event;
    event["number"] = i + 1;
    event["distance_km"] = row.distanceKm;
    event["code"] = row.a.listed ? row.a.code : row.b.code;
    event["loss_a_db"] = NumberOrNull(row.a.lossDb);
    event["loss_b_db"] = NumberOrNull(row.b.lossDb);
    event["loss_db"] = NumberOrNull(row.meanLossDb);
    event["reflectance_a_db"] = NumberOrNull(row.a.reflectanceDb);
    event["reflectance_b_db"] = NumberOrNull(row.b.reflectanceDb);
    event["seen_from"] = SeenFrom(row);
    json["events"].push_back(std::move(event));
  }
  return JsonText(json) + "\n";
}

}  // namespace reflyze::cli
