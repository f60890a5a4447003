// SPDX-License-Identifier: Apache-2.0
#include "ref/events/refEventEdit.h"

#include <algorithm>
#include <memory>

#include "util/assertion.h"

using namespace reflyze;

namespace {

// The four blocks that keep an entry for each key event, always told in this order.
void TellAdded(TSorData& sor, int index) {
  sor.KeyEvents->OnKeyEventAdd(index);
  sor.RFTSParams->OnKeyEventAdd(index);
  sor.RFTSEvents->OnKeyEventAdd(index);
  sor.LnkParams->OnKeyEventAdd(index);
}

void TellDeleted(TSorData& sor, int index) {
  sor.KeyEvents->OnKeyEventDel(index);
  sor.RFTSParams->OnKeyEventDel(index);
  sor.RFTSEvents->OnKeyEventDel(index);
  sor.LnkParams->OnKeyEventDel(index);
}

bool OnTrace(const TSorData& sor, int owt) {
  const double km = sor.OwtToLen(owt);
  return km >= sor.GetMinLen() && km <= sor.GetMaxLen();
}

void SetCount(TSorBlockKeyEvents& table) { table.TNKE = static_cast<short>(table.events->GetSize()); }

void DeleteOwnEvent(TSorBlockQRTEvents& table, int index) {
  Require(index >= 0 && index < table.events->GetSize(), "index < TNE");
  table.events->DelData(index);
  table.TNE = static_cast<short>(table.events->GetSize());
}

}  // namespace

int RefEventGetNumEvent(TSorData* sor, TSorBlockKeyEvents1E* event) {
  const auto& events = *sor->KeyEvents->events;
  for (int i = 0; i < events.GetSize(); ++i) {
    if (events.GetData(i) == event) return i;
  }
  return -1;
}

TSorBlockKeyEvents1E* RefEventGetNextEvent(TSorData* sor, TSorBlockKeyEvents1E* event) {
  const int index = RefEventGetNumEvent(sor, event);
  if (index < 0 || index + 1 >= sor->KeyEvents->events->GetSize()) return nullptr;
  return sor->KeyEvents->events->GetData(index + 1);
}

int RefEventAdd(TSorData* sor, TSorBlockKeyEvents1E* event, int recalculate) {
  if (sor->OwtToLen(event->EPT + 1.0) < sor->GetMinLen() || sor->OwtToLen(event->EPT) > sor->GetMaxLen())
    return -1;
  auto& events = *sor->KeyEvents->events;
  int index = 0;
  while (index < events.GetSize() && events.GetData(index)->EPT <= event->EPT) ++index;
  events.InsData(event, index);
  SetCount(*sor->KeyEvents);
  event->EN = static_cast<short>(index + 1);
  TellAdded(*sor, index);
  if (recalculate != 0 && RefEventRecalculate(sor, event, 0) != 0) return -1;
  return index;
}

int RefEventAdd(TSorData* sor, TSorBlockQRTEvents1E* event) {
  for (const int owt : {event->ML0, event->ML1, event->ML2}) {
    if (owt != 0 && !OnTrace(*sor, owt)) return 1;
  }
  auto& events = *sor->QRTEvents->events;
  int index = 0;
  while (index < events.GetSize() && events.GetData(index)->ML0 <= event->ML0) ++index;
  RefEventRecalculate(sor, event);
  events.InsData(event, index);
  sor->QRTEvents->TNE = static_cast<short>(events.GetSize());
  return 0;
}

void RefEventDel(TSorData* sor, int index, int keyEvents) {
  if (keyEvents == 0) {
    DeleteOwnEvent(*sor->QRTEvents, index);
    return;
  }
  if (index == 0) return;
  auto& events = *sor->KeyEvents->events;
  Require(index > 0 && index < events.GetSize(), "index < TNKE");
  events.DelData(index);
  SetCount(*sor->KeyEvents);
  RefEventENSync(sor);
  TellDeleted(*sor, index);
  // The section before the next event has grown.
  if (index > 0 && index < sor->KeyEvents->TNKE) RefEventACICalculate(sor, events.GetData(index));
}

void RefEventSorDelete(TSorData* sor, int from) {
  auto& events = *sor->KeyEvents->events;
  from = std::max(from, 0);
  if (events.GetSize() > from) events.SetSize(from);
  if (sor->KeyEvents->TNKE > from) sor->KeyEvents->TNKE = static_cast<short>(from);
}

int RefEventDeleteAllButFirstAndLast(TSorData* sor) {
  while (sor->KeyEvents->TNKE > 2) RefEventDel(sor, 1, 1);
  return 1;
}

void RefEventRFTSSync(TSorData* sor) {
  sor->KeyEvents->OnKeyEventsClear();
  sor->RFTSParams->OnKeyEventsClear();
  sor->RFTSEvents->OnKeyEventsClear();
  sor->LnkParams->OnKeyEventsClear();
  for (int i = 0; i < sor->KeyEvents->TNKE; ++i) TellAdded(*sor, i);
}

int RefEventENSync(TSorData* sor) {
  if (sor != nullptr) sor->KeyEvents->ENSync();
  return 0;
}

void RefEventSORToQRTSync(TSorData* sor) {
  sor->QRTEvents->events->Clear();
  sor->QRTEvents->TNE = 0;
  for (int i = 1; i < sor->KeyEvents->events->GetSize(); ++i) {
    const TSorBlockKeyEvents1E& event = *sor->KeyEvents->events->GetData(i);
    auto section = std::make_unique<TSorBlockQRTEvents1E>();
    section->ML0 = event.ML0;
    section->ML1 = event.ML1;
    section->LMT = "LS";
    section->EC = "DU9999";
    if (RefEventAdd(sor, section.get()) == 0) section.release();
  }
}

int RefEventGetMainEventOfMergedGroup(TSorData* sor, int index) {
  const auto& events = *sor->KeyEvents->events;
  const TSorBlockKeyEvents1E& event = *events.GetData(index);
  int main = index;
  while (main > 0) {
    const TSorBlockKeyEvents1E& before = *events.GetData(main - 1);
    if (!(before.EPT < event.EPT && event.EPT < before.ML2)) break;
    --main;
  }
  return main;
}

int RefEventGetLastEventOfMergedGroup(const TSorData* sor, int index) {
  const auto& events = *sor->KeyEvents->events;
  const TSorBlockKeyEvents1E& event = *events.GetData(index);
  int last = index;
  while (last + 1 < events.GetSize()) {
    const TSorBlockKeyEvents1E& behind = *events.GetData(last + 1);
    if (!(behind.EPT > event.EPT && behind.EPT < event.ML2)) break;
    ++last;
  }
  return last;
}
