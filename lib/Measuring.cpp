// SPDX-License-Identifier: Apache-2.0
#include "lib/Measuring.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include "lib/Decimal.h"
#include "lib/EventRows.h"
#include "lib/Text.h"
#include "ref/events/refEventEdit.h"
#include "util/assertion.h"
#include "util/convert.h"

namespace reflyze {
namespace {

constexpr const char* kLossInDoubt = "Splice value is not accurate";
constexpr const char* kEcho = "Echo";

// Thousandths of a unit, as the record counts.
int Thousandths(double value) { return TruncToInt(std::round(value * 1000.0)); }
template <class Field>
Field Held(int thousandths) {
  using Limits = std::numeric_limits<Field>;
  return static_cast<Field>(std::clamp<int>(thousandths, Limits::min(), Limits::max()));
}

// Whether times grow along the trace. A broken record may say otherwise.
bool HasRoom(const TSorData& record) {
  return std::ceil(record.GetMinOwt()) < std::floor(record.GetMaxOwt());
}

// The one-way time of a place that counts from the first point, within the trace.
int OwtAt(const TSorData& record, double km) {
  const double owt = std::round(record.NumToOwt(0) + record.dLenToOwt(km));
  return TruncToInt(std::clamp(owt, std::ceil(record.GetMinOwt()), std::floor(record.GetMaxOwt())));
}

// Which event of the table each measured one is, in ascending order; -1 for one to be added. The first is the
// launch, whatever stood there.
std::vector<int> ListedAt(const MeasuredLink& link, int count) {
  std::vector<int> listed;
  int last = -1;
  for (const MeasuredEvent& event : link.events) {
    const int asked = listed.empty() && count > 0 ? 0 : event.listed;
    const bool free = asked > last && asked < count;
    listed.push_back(free ? asked : -1);
    if (free) last = asked;
  }
  return listed;
}

// Whether an event of the link is one that was asked for: what the search has not listed counts from the same
// thresholds as what it has. The launch and the end always do.
bool IsAskedFor(const TSorData& record, const MeasuredLink& link, size_t i) {
  const MeasuredEvent& event = link.events[i];
  if (i == 0 || i + 1 == link.events.size() || event.listed >= 0) return true;
  if (event.lossDb && std::fabs(event.lossDb->value) >= record.FxdParams->GetLT()) return true;
  if (!event.reflectanceDb) return event.reflects;
  return event.reflectanceDb->value >= record.FxdParams->GetRT();
}

// Takes out what nobody has asked for. It has been measured all the same: sums have its part.
void DropUnasked(const TSorData& record, MeasuredLink& link,
                 std::vector<std::optional<double>>& cumulatedDb) {
  std::vector<MeasuredEvent> events;
  std::vector<std::optional<double>> sums;
  for (size_t i = 0; i < link.events.size(); ++i) {
    if (!IsAskedFor(record, link, i)) continue;
    events.push_back(link.events[i]);
    sums.push_back(cumulatedDb[i]);
  }
  link.events = std::move(events);
  cumulatedDb = std::move(sums);
}

// One-way times of the events, each behind the one before it; none where the trace has no room for them. The
// launch stays where the record has it, which is where its distances begin, unless it is elsewhere by more
// than a pulse.
std::vector<int> PlacesOf(const TSorData& record, const MeasuredLink& link) {
  std::vector<int> places;
  if (!HasRoom(record)) return places;
  for (const MeasuredEvent& event : link.events) {
    if (!std::isfinite(event.km.value)) return {};
    const int measured = OwtAt(record, event.km.value);
    const long long least = places.empty() ? measured : places.back() + 1LL;
    if (least > record.GetMaxOwt() || least > std::numeric_limits<int>::max()) return {};
    places.push_back(std::max(measured, static_cast<int>(least)));
  }
  if (record.KeyEvents->ListedEvents() == 0) return places;
  const int launch = record.KeyEvents->EventAt(0).EPT;
  if (std::fabs(static_cast<double>(launch) - places[0]) <= record.FxdParams->GetOwtPulse(0) &&
      launch < places[1])
    places[0] = launch;
  return places;
}

std::optional<ModuleAnswer> AnswerAt(const TSorData& record, int index) {
  if (index < 0) return std::nullopt;
  const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(index);
  ModuleAnswer answer;
  answer.eptOwt = event.EPT;
  answer.lossDb = event.GetEL();
  if (event.ER != 0) answer.reflectanceDb = event.GetER();
  answer.attenuationDbPerKm = event.GetACI();
  return answer;
}

// Makes the table one of these events: deletes, moves, and adds. All blocks with an entry an event follow.
void EditTable(TSorData& record, const std::vector<int>& listed, const std::vector<int>& places) {
  TSorBlockKeyEvents& table = *record.KeyEvents;
  for (int i = table.ListedEvents() - 1; i > 0; --i) {
    if (std::find(listed.begin(), listed.end(), i) == listed.end()) RefEventDel(&record, i, 1);
  }
  int kept = 0;
  for (size_t i = 0; i < places.size(); ++i) {
    if (listed[i] >= 0) table.EventAt(kept++).EPT = places[i];
  }
  for (size_t i = 0; i < places.size(); ++i) {
    if (listed[i] >= 0) continue;
    auto event = std::make_unique<TSorBlockKeyEvents1E>();
    event->EPT = places[i];
    const int index = RefEventAdd(&record, event.get(), 0);
    if (index >= 0) event.release();  // the table owns it
    Require(index == static_cast<int>(i), "an event has its place in the table");
  }
  Require(table.ListedEvents() == static_cast<int>(places.size()), "the table has the events of the link");
}

void StoreReflectance(TSorBlockKeyEvents1E& event, const MeasuredEvent& measured) {
  event.ER = measured.reflectanceDb ? Thousandths(measured.reflectanceDb->value) : 0;
}

void StoreAttenuation(TSorBlockKeyEvents1E& event, const MeasuredEvent& measured) {
  event.ACI = measured.attenuationDbPerKm ? Held<short>(Thousandths(measured.attenuationDbPerKm->value)) : 0;
}

void StoreMeasuredLoss(TSorBlockKeyEvents1E& event, const MeasuredEvent& measured) {
  StoreLoss(event, measured.lossDb ? measured.lossDb->value : 0.0);
  if (!measured.lossDb) return;
  event.LMT = "LS";
  if (event.CMT == kLossInDoubt) event.CMT = " ";
}

// An echo takes no light, and reflects none: others do.
void StoreEcho(TSorBlockKeyEvents1E& event) {
  StoreLoss(event, 0.0);
  event.ER = 0;
  event.CMT = kEcho;
}

// The code of an event as it was measured: how it looks, and where it stands (SR-4731).
void StoreCode(TSorBlockKeyEvents1E& event, const MeasuredEvent& measured, bool end) {
  const bool wasSaturated = event.EC.Len() > 0 && event.EC.c_str()[0] == '2';
  const bool wasEnd = event.IsEOF();
  std::string code = !measured.reflects ? "0" : wasSaturated || measured.reflectanceAtLeast ? "2" : "1";
  code += !end ? 'F' : measured.fades ? 'O' : wasEnd ? event.EC.c_str()[1] : 'E';
  event.EC = (code + "9999").c_str();
}

// Bounds of a section, one-way times.
using Section = std::optional<std::pair<int, int>>;

Section SectionOf(const TSorData& record, double fromKm, double toKm) {
  if (!(fromKm < toKm)) return std::nullopt;
  return std::pair(OwtAt(record, fromKm), OwtAt(record, toKm));
}

// The sections in front of the events and behind them. Where none was measured between two events, they share
// what lies before and behind both, as events of a group do: whoever measures from the markers then gets the
// loss of the group, and not a line through nothing. The launch and the end share nothing with others.
void ShareSections(std::vector<Section>& front, std::vector<Section>& behind) {
  for (size_t i = 2; i < front.size(); ++i) {
    if (!front[i]) front[i] = front[i - 1];
  }
  for (size_t i = behind.size() - 1; i-- > 1;) {
    if (!behind[i - 1]) behind[i - 1] = behind[i];
  }
}

void StoreMarkers(TSorData& record, const MeasuredLink& link, const std::vector<int>& listed) {
  std::vector<Section> front, behind;
  for (const MeasuredEvent& event : link.events) {
    front.push_back(SectionOf(record, event.frontFromKm, event.frontToKm));
    behind.push_back(SectionOf(record, event.behindFromKm, event.behindToKm));
  }
  ShareSections(front, behind);
  const size_t last = link.events.size() - 1;
  for (size_t i = 0; i <= last; ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(static_cast<long>(i));
    if (i > 0 && front[i]) std::tie(event.ML0, event.ML1) = *front[i];
    // Without a section in front a loss can't be measured anew, and ML3 of 0 says so.
    const bool measurable = i == 0 || front[i] || listed[i] >= 0;
    if (i < last && behind[i] && measurable) std::tie(event.ML2, event.ML3) = *behind[i];
    if (i == 0 || i == last) continue;
    const int next = record.KeyEvents->EventAt(static_cast<long>(i) + 1).EPT;
    long peak = event.EPT;
    record.GetMax(event.EPT, event.ML2 > event.EPT ? std::min(event.ML2, next) : next, peak);
    event.ML4 = static_cast<int>(peak);
  }
}

void StoreTotals(TSorData& record, const MeasuredLink& link) {
  TSorBlockKeyEvents& table = *record.KeyEvents;
  table.EEL = link.totalLossDb ? Thousandths(link.totalLossDb->value) : 0;
  table.ORL = link.returnLossDb ? Held<unsigned short>(Thousandths(link.returnLossDb->value)) : 0;
  table.ELMP1 = table.RLMP1 = table.EventAt(0).EPT;
  table.ELMP2 = table.RLMP2 = table.EventAt(table.ListedEvents() - 1).EPT;
}

// Sums from the launch, and behind what was not measured those from the end backwards, as the total has them.
std::vector<std::optional<double>> Cumulated(const MeasuredLink& link) {
  const std::vector<MeasuredEvent>& events = link.events;
  const size_t last = events.size() - 1;
  std::vector<std::optional<double>> sums(events.size());
  const auto section = [&](size_t i) -> std::optional<double> {  // in front of an event
    if (!events[i].attenuationDbPerKm) return std::nullopt;
    return events[i].attenuationDbPerKm->value * (events[i].km.value - events[i - 1].km.value);
  };
  const auto joint = [&](size_t i) -> std::optional<double> {
    if (i == last) return 0.0;  // what is lost there is the light itself
    if (!events[i].lossDb) return std::nullopt;
    return events[i].lossDb->value;
  };
  sums[0] = 0.0;
  for (size_t i = 1; i <= last && section(i) && joint(i); ++i)
    sums[i] = *sums[i - 1] + *section(i) + *joint(i);
  if (link.totalLossDb) sums[last] = link.totalLossDb->value;
  for (size_t i = last; i > 1 && sums[i] && section(i) && joint(i) && !sums[i - 1]; --i)
    sums[i - 1] = *sums[i] - *section(i) - *joint(i);
  return sums;
}

// Nothing but the launch, which loses nothing.
void StoreNoFibre(TSorData& record) {
  TSorBlockKeyEvents& table = *record.KeyEvents;
  for (int i = table.ListedEvents() - 1; i > 0; --i) RefEventDel(&record, i, 1);
  table.EEL = 0;
  table.ORL = 0;
  if (table.ListedEvents() == 0) return;
  TSorBlockKeyEvents1E& launch = table.EventAt(0);
  StoreLoss(launch, 0.0);
  launch.ER = 0;  // without backscatter there is nothing to hold a reflection against
  launch.CMT = " ";
  table.ELMP1 = table.ELMP2 = table.RLMP1 = table.RLMP2 = launch.EPT;
}

// All that a table has of the measured link. The end's own loss is the fall of the trace, as ever: it is
// measured where another event has become the end.
void StoreEvents(TSorData& record, const MeasuredLink& link, const std::vector<int>& listed,
                 int countBefore) {
  StoreMarkers(record, link, listed);
  const size_t last = link.events.size() - 1;
  for (size_t i = 0; i <= last; ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(static_cast<long>(i));
    const MeasuredEvent& measured = link.events[i];
    StoreCode(event, measured, i == last);
    const std::string code = event.EC.c_str();
    if (i == last && listed[i] + 1 != countBefore) RefEventECalculate(&record, &event);
    event.EC = code.c_str();
    StoreReflectance(event, measured);
    if (i > 0) StoreAttenuation(event, measured);
    if (i < last) StoreMeasuredLoss(event, measured);
    if (measured.echo) StoreEcho(event);
  }
  StoreTotals(record, link);
}

// A value and its deviation, or neither.
void Tell(const std::optional<Measured>& measured, std::optional<double>& value, std::optional<double>& sd) {
  value.reset();
  sd.reset();
  if (!measured) return;
  value = Millionths(measured->value);
  sd = Millionths(measured->deviation);
}

void TakeMeasured(const TSorData& record, const MeasuredEvent& measured, Event& row) {
  // An error of rounding lies anywhere within a step: its variance is a twelfth of the step squared.
  const double stepM = record.dOwtToLen(1.0) * 1000.0, ownM = measured.km.deviation * 1000.0;
  row.distanceSdM = Millionths(std::sqrt(ownM * ownM + stepM * stepM / 12.0));
  Tell(measured.lossDb, row.lossDb, row.lossSdDb);
  Tell(measured.reflectanceDb, row.reflectanceDb, row.reflectanceSdDb);
  Tell(measured.attenuationDbPerKm, row.attenuationDbPerKm, row.attenuationSdDbPerKm);
  row.reflectanceAtLeast = measured.reflectanceAtLeast;
  if (measured.echo) {
    row.type = "echo";
    for (auto* none : {&row.lossDb, &row.lossSdDb, &row.reflectanceDb, &row.reflectanceSdDb}) none->reset();
    row.reflectanceAtLeast = false;
  }
  row.probability = Millionths(measured.probability);
}

}  // namespace

void StoreLoss(TSorBlockKeyEvents1E& event, double lossDb) {
  event.ELWide = Thousandths(lossDb);
  event.EL = Held<short>(event.ELWide);
}

std::optional<MeasuredTable> MeasureTable(TSorData& record) {
  // What the search has not listed counts from the same thresholds as what it has.
  MeasureOptions asked;
  asked.leastLossDb = record.FxdParams->GetLT();
  asked.leastReflectanceDb = record.FxdParams->GetRT();
  std::optional<MeasuredLink> link = MeasureLink(record, asked);
  if (!link) return std::nullopt;
  return StoreMeasured(record, std::move(*link));
}

std::optional<MeasuredTable> StoreMeasured(TSorData& record, MeasuredLink link) {
  MeasuredTable table;
  if (!link.fibre) {
    StoreNoFibre(record);
    table.link = std::move(link);
    return table;
  }
  if (link.events.size() < 2) return std::nullopt;
  table.cumulatedDb = Cumulated(link);
  DropUnasked(record, link, table.cumulatedDb);
  if (link.events.size() > kMostTableEvents) return std::nullopt;
  const int countBefore = record.KeyEvents->ListedEvents();
  const std::vector<int> listed = ListedAt(link, countBefore), places = PlacesOf(record, link);
  if (places.empty()) return std::nullopt;
  for (const int index : listed) table.module.push_back(AnswerAt(record, index));
  EditTable(record, listed, places);
  StoreEvents(record, link, listed, countBefore);
  table.link = std::move(link);
  for (size_t i = 0; i < table.link.events.size(); ++i) table.link.events[i].listed = static_cast<int>(i);
  return table;
}

void KeepMeasuredEnds(TSorData& record, MeasuredTable& table) {
  std::vector<MeasuredEvent>& events = table.link.events;
  if (events.size() <= 2) return;
  RefEventDeleteAllButFirstAndLast(&record);
  events.erase(events.begin() + 1, events.end() - 1);
  table.module.erase(table.module.begin() + 1, table.module.end() - 1);
  table.cumulatedDb.erase(table.cumulatedDb.begin() + 1, table.cumulatedDb.end() - 1);
  events.back().listed = 1;
  StoreAttenuation(record.KeyEvents->EventAt(1), events.back());
}

std::optional<MeasuredLink> MeasureListed(TSorData& record) {
  MeasureOptions asked;
  asked.keepsTable = true;
  std::optional<MeasuredLink> link = MeasureLink(record, asked);
  if (!link) return std::nullopt;
  return StoreListed(record, std::move(*link));
}

std::optional<MeasuredLink> StoreListed(TSorData& record, MeasuredLink link) {
  TSorBlockKeyEvents& table = *record.KeyEvents;
  const int count = table.ListedEvents();
  std::vector<MeasuredEvent>& events = link.events;
  events.erase(
      std::remove_if(events.begin(), events.end(),
                     [&](const MeasuredEvent& event) { return event.listed < 0 || event.listed >= count; }),
      events.end());
  if (!link.fibre || count < 2 || !HasRoom(record)) return std::nullopt;
  for (const MeasuredEvent& measured : events) {
    TSorBlockKeyEvents1E& event = table.EventAt(measured.listed);
    const bool launch = measured.listed == 0, end = measured.listed + 1 == count;
    const Section front = SectionOf(record, measured.frontFromKm, measured.frontToKm);
    const Section behind = SectionOf(record, measured.behindFromKm, measured.behindToKm);
    if (!launch && front) std::tie(event.ML0, event.ML1) = *front;
    if (!end && behind) std::tie(event.ML2, event.ML3) = *behind;
    if (measured.reflectanceDb) StoreReflectance(event, measured);
    if (!launch && measured.attenuationDbPerKm) StoreAttenuation(event, measured);
    if (!launch && !end && measured.lossDb) StoreMeasuredLoss(event, measured);
  }
  if (link.totalLossDb) table.EEL = Thousandths(link.totalLossDb->value);
  if (link.returnLossDb) table.ORL = Held<unsigned short>(Thousandths(link.returnLossDb->value));
  return link;
}

void TakeMeasured(const TSorData& record, const MeasuredLink& link, std::vector<Event>& rows) {
  for (const MeasuredEvent& measured : link.events) {
    if (measured.listed >= 0 && static_cast<size_t>(measured.listed) < rows.size())
      TakeMeasured(record, measured, rows[static_cast<size_t>(measured.listed)]);
  }
}

void TakeMeasured(const TSorData& record, const MeasuredTable& measured, EventTable& table) {
  const MeasuredLink& link = measured.link;
  table.measurement = Measurement::kDone;
  if (!link.fibre) return;
  TakeMeasured(record, link, table.events);
  for (size_t i = 0; i < table.events.size(); ++i) {
    table.events[i].module = measured.module[i];
    table.events[i].cumulatedDb.reset();
    if (measured.cumulatedDb[i]) table.events[i].cumulatedDb = Millionths(*measured.cumulatedDb[i]);
  }
  Tell(link.totalLossDb, table.totalLossDb, table.totalLossSdDb);
  // The record's own, so that a file and its listing agree to the last digit.
  if (table.totalLossDb) table.totalLossDb = record.KeyEvents->GetEEL();
  table.returnLossDb.reset();
  if (link.returnLossDb) table.returnLossDb = record.KeyEvents->ORL / 1000.0;
}

void TakeUnmeasured(const TSorData& record, EventTable& table) {
  table.measurement = Measurement::kFailed;
  for (size_t i = 0; i < table.events.size(); ++i)
    table.events[i].module = AnswerAt(record, static_cast<int>(i));
}

const MeasuredEvent* MeasuredAt(const MeasuredLink& link, int index) {
  const auto found = std::find_if(link.events.begin(), link.events.end(),
                                  [&](const MeasuredEvent& event) { return event.listed == index; });
  return found == link.events.end() ? nullptr : &*found;
}

Warning NotMeasured(const std::string& name) {
  return {
      name,
      "its trace can't be understood as one link: its numbers are those of the search, and nothing tells how "
      "far they can be trusted"};
}

std::vector<Warning> WarningsOfBackscatter(const std::string& name, const TSorData& record,
                                           const MeasuredLink* link) {
  if (link != nullptr && link->assumedBackscatterDb) {
    return {{name,
             Format("states no backscatter coefficient; reflectances count from %.1f dB for a pulse of 1 ns, "
                    "the usual one at its wavelength",
                    *link->assumedBackscatterDb)}};
  }
  if (KnowsBackscatter(record)) return {};
  return {{name, "states no backscatter coefficient, without which no reflectance can be told"}};
}

}  // namespace reflyze
