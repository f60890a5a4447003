// SPDX-License-Identifier: Apache-2.0
#include "lib/MergeTable.h"

#include <algorithm>

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
  if (!direction.seen && !HasSections(record, event)) return direction;
  direction.reflectanceDb = row.reflectanceDb;
  direction.lossDb = row.lossDb;
  return direction;
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
MergedTable MakeMergedTable(const LoadedRecord& fileA, const OwnEvents& ownA, const LoadedRecord& fileB,
                            const OwnEvents& ownB) {
  const TSorData &a = *fileA.record, &b = *fileB.record;
  MergedTable table;
  table.fileA = fileA.given;
  table.fileB = fileB.given;
  const int countA = a.KeyEvents->ListedEvents(), countB = b.KeyEvents->ListedEvents();
  const std::vector<Event> rowsA = MakeEventRows(a, fileA.texts, Numbers::kMeasured);
  const std::vector<Event> rowsB = MakeEventRows(b, fileB.texts, Numbers::kMeasured);
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

void TakeMeanLosses(const TSorData& a, MergedTable& table) {
  for (size_t i = 0; i < table.rows.size(); ++i) {
    MergedEvent& row = table.rows[i];
    if (row.a.lossDb && row.b.lossDb) row.meanLossDb = a.KeyEvents->EventAt(static_cast<long>(i)).GetEL();
  }
}

}  // namespace reflyze
