// SPDX-License-Identifier: Apache-2.0
#include "lib/MergeTable.h"

#include <algorithm>
#include <cmath>

#include "lib/Decimal.h"
#include "lib/EventRows.h"
#include "lib/Text.h"
#include "ref/events/refEventBiDir.h"

namespace reflyze {
namespace {

DirectionOfEvent DirectionAt(const TSorData& record, const std::vector<Event>& rows, const OwnEvents& own,
                             int index) {
  DirectionOfEvent direction;
  direction.listed = index >= 0 && static_cast<size_t>(index) < rows.size();
  if (!direction.listed) return direction;
  const Event& row = rows[static_cast<size_t>(index)];
  const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(index);
  direction.seen = own.count(&event) > 0;
  direction.code = row.code;
  // The event can't be seen from this end, and has the reflectance that the other end has measured.
  if (!direction.seen && !row.lossSdDb && !HasSections(record, event)) return direction;
  direction.reflectanceDb = row.reflectanceDb;
  direction.lossDb = row.lossDb;
  direction.lossSdDb = row.lossSdDb;
  return direction;
}

std::vector<Event> RowsOf(const MatchedDirection& direction) {
  const TSorData& record = *direction.file.record;
  std::vector<Event> rows = MakeEventRows(record, direction.file.texts, Numbers::kMeasured);
  if (direction.link) TakeMeasured(record, *direction.link, rows);
  return rows;
}

}  // namespace

OwnEvents OwnEventsOf(const TSorData& record) {
  OwnEvents own;
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) own.insert(&record.KeyEvents->EventAt(i));
  return own;
}

// Event i of the first direction is event (last - i) of the second. One that lies too near to the launch of
// the other direction has no partner there. It stands right before the end, and at the end both counts agree
// again.
MergedTable MakeMergedTable(const MatchedDirection& directionA, const MatchedDirection& directionB) {
  const TSorData &a = *directionA.file.record, &b = *directionB.file.record;
  const OwnEvents &ownA = directionA.own, &ownB = directionB.own;
  MergedTable table;
  table.fileA = directionA.file.given;
  table.fileB = directionB.file.given;
  const int countA = a.KeyEvents->ListedEvents(), countB = b.KeyEvents->ListedEvents();
  const std::vector<Event> rowsA = RowsOf(directionA), rowsB = RowsOf(directionB);
  const int endOwt = a.KeyEvents->EventAt(countA - 1).EPT;
  table.pulseNs = a.FxdParams->GetNsPulse(0.0);
  table.lengthKm = a.OwtToLen(endOwt);
  const int count = std::max(countA, countB), partners = std::min(countA, countB) - 1;
  for (int i = 0; i < count; ++i) {
    const bool end = i + 1 == count, alone = i >= partners && !end;
    const int inA = end ? countA - 1 : alone && countA < countB ? -1 : i;
    const int inB = end ? 0 : alone && countB < countA ? -1 : countB - 1 - i;
    MergedEvent row;
    row.a = DirectionAt(a, rowsA, ownA, inA);
    row.b = DirectionAt(b, rowsB, ownB, inB);
    const double owt = row.a.listed ? a.KeyEvents->EventAt(inA).EPT
                                    : static_cast<double>(endOwt) - b.KeyEvents->EventAt(inB).EPT;
    row.distanceKm = a.OwtToLen(owt);
    table.rows.push_back(row);
  }
  return table;
}

// Both directions are measurements of their own: the variance of their mean is a quarter of the sum of
// theirs.
void TakeMeanLosses(TSorData& a, MergedTable& table) {
  for (size_t i = 0; i < table.rows.size(); ++i) {
    MergedEvent& row = table.rows[i];
    if (!row.a.lossDb || !row.b.lossDb) continue;
    TSorBlockKeyEvents1E& event = a.KeyEvents->EventAt(static_cast<long>(i));
    if (row.a.lossSdDb && row.b.lossSdDb) {
      constexpr double kSteps = 1e6;  // in a dB, as the losses have
      row.meanLossDb = NearestDecimal((*row.a.lossDb + *row.b.lossDb) / 2.0, kSteps);
      const double variance = *row.a.lossSdDb * *row.a.lossSdDb + *row.b.lossSdDb * *row.b.lossSdDb;
      row.meanLossSdDb = NearestDecimal(std::sqrt(variance) / 2.0, kSteps);
      StoreLoss(event, *row.meanLossDb);
    } else {
      row.meanLossDb = event.GetEL();
    }
  }
}

}  // namespace reflyze
