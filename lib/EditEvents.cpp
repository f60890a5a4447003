// SPDX-License-Identifier: Apache-2.0
#include "lib/EditEvents.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

#include "lib/EngineCall.h"
#include "lib/EventRows.h"
#include "lib/MeterState.h"
#include "lib/UserOffset.h"
#include "reflyze/show.h"
#include "reflyze/text.h"
#include "util/convert.h"

namespace reflyze {
namespace {

using TimeField = int TSorBlockKeyEvents1E::*;
constexpr std::pair<const char*, TimeField> kTimes[] = {
    {"EPT", &TSorBlockKeyEvents1E::EPT}, {"ML0", &TSorBlockKeyEvents1E::ML0},
    {"ML1", &TSorBlockKeyEvents1E::ML1}, {"ML2", &TSorBlockKeyEvents1E::ML2},
    {"ML3", &TSorBlockKeyEvents1E::ML3}, {"ML4", &TSorBlockKeyEvents1E::ML4}};

constexpr double kFarthestEventKm = 10000.0;

long NearestThousandths(double value) { return std::lround(value * 1000.0); }

std::string Told(long thousandths, const char* unit) {
  return thousandths == 0 ? "-" : Format("%.3f %s", static_cast<double>(thousandths) / 1000.0, unit);
}

}  // namespace

short ShortHeld(long thousandths) {
  using Bounds = std::numeric_limits<short>;
  return static_cast<short>(std::clamp<long>(thousandths, Bounds::min(), Bounds::max()));
}

EditedTable::EditedTable(const LoadedRecord& loaded) : loaded_(loaded) {
  ReadPlaced(loaded, "KeyEvents", placed_);
  if (!placed_.whole) return;
  const TSorBlockKeyEvents& table = placed_.values;
  for (int i = 0; i < table.ListedEvents(); ++i) {
    stored_.push_back(table.EventAt(i));
    origins_.push_back(i);
  }
  events_ = stored_;
  eel_ = table.EEL, elmp1_ = table.ELMP1, elmp2_ = table.ELMP2;
  orl_ = table.ORL, rlmp1_ = table.RLMP1, rlmp2_ = table.RLMP2;
}

void EditedTable::ShiftTimes(long long shift) {
  const auto move = [shift](int& time) {
    time = static_cast<int>(static_cast<unsigned>(time) + static_cast<unsigned>(shift));
  };
  for (TSorBlockKeyEvents1E& event : events_) {
    for (const auto& [label, time] : kTimes) move(event.*time);
  }
  TSorBlockKeyEvents& table = placed_.values;
  for (int* time : {&table.ELMP1, &table.ELMP2, &table.RLMP1, &table.RLMP2}) move(*time);
}

void EditedTable::ChangeReturnLoss(int thousandths) {
  unsigned short& stored = placed_.values.ORL;
  if (stored == 0) return;
  constexpr int kMost = std::numeric_limits<unsigned short>::max();
  stored = static_cast<unsigned short>(std::clamp(stored + thousandths, 0, kMost));
}

void EditedTable::PutNumber(const std::string& label, long long before, long long after, FilePatch& patch) {
  if (before != after && placed_.Has(label)) patch.PutNumber(placed_.places.at(label), after);
}

void EditedTable::PutEvent(std::size_t index, FilePatch& patch, EditedFile& told) {
  const int origin = origins_[index];
  const TSorBlockKeyEvents1E &before = stored_[static_cast<std::size_t>(origin)], &after = events_[index];
  const std::string prefix = std::to_string(origin) + ".";
  const auto tell = [&](const char* what, const std::string& was, const std::string& is) {
    if (was != is) told.changes.push_back({Format("event %d %s", before.EN, what), was, is});
  };
  for (const auto& [label, time] : kTimes) PutNumber(prefix + label, before.*time, after.*time, patch);
  PutNumber(prefix + "EN", before.EN, after.EN, patch);
  PutNumber(prefix + "ACI", before.ACI, after.ACI, patch);
  PutNumber(prefix + "EL", before.EL, after.EL, patch);
  PutNumber(prefix + "ER", before.ER, after.ER, patch);
  tell("number", std::to_string(before.EN), std::to_string(after.EN));
  tell("section", Told(before.ACI, "dB/km"), Told(after.ACI, "dB/km"));
  tell("loss", Told(before.EL, "dB"), Told(after.EL, "dB"));
  tell("reflectance", Told(before.ER, "dB"), Told(after.ER, "dB"));
  const auto put = [&](const char* label, const TString& was, const TString& is, const char* end) {
    if (was == is) return;
    patch.Put(placed_.places.at(prefix + label), is.c_str() + std::string(end, *end == '0' ? 0 : 1));
    tell(label == std::string("CMT")  ? "comment"
         : label == std::string("EC") ? "code"
                                      : "technique",
         loaded_.texts.Utf8(was), loaded_.texts.Utf8(is));
  };
  put("EC", before.EC, after.EC, "0");
  put("LMT", before.LMT, after.LMT, "0");
  put("CMT", before.CMT, after.CMT, "");
}

void EditedTable::PutTotals(FilePatch& patch, EditedFile& told) {
  const TSorBlockKeyEvents& table = placed_.values;
  PutNumber("EEL", eel_, table.EEL, patch);
  PutNumber("ELMP1", elmp1_, table.ELMP1, patch);
  PutNumber("ELMP2", elmp2_, table.ELMP2, patch);
  PutNumber("ORL", orl_, table.ORL, patch);
  PutNumber("RLMP1", rlmp1_, table.RLMP1, patch);
  PutNumber("RLMP2", rlmp2_, table.RLMP2, patch);
  if (eel_ != table.EEL) told.changes.push_back({"end-to-end loss", Told(eel_, "dB"), Told(table.EEL, "dB")});
  if (orl_ != table.ORL) told.changes.push_back({"return loss", Told(orl_, "dB"), Told(table.ORL, "dB")});
}

std::string EditedTable::BytesOf(TSorBlockKeyEvents1E event) const {
  event.RevisionNo = placed_.values.RevisionNo;
  TSorFile memory(nullptr, "m");
  event.Write(&memory);
  const TSorFile& written = memory;
  return {written.GetData(), written.GetDataSize()};
}

// What was deleted goes; what is new comes in behind the event in front of it.
void EditedTable::Put(FilePatch& patch, EditedFile& told) {
  if (!placed_.whole) return;
  for (std::size_t i = 0; i < stored_.size(); ++i) {
    if (std::find(origins_.begin(), origins_.end(), static_cast<int>(i)) == origins_.end())
      patch.Put(placed_.places.at(std::to_string(i)), "");
  }
  std::size_t at = placed_.places.at("TNKE").end;
  std::string added;
  for (std::size_t i = 0; i < events_.size(); ++i) {
    if (origins_[i] < 0) {
      added += BytesOf(events_[i]);
    } else {
      if (!added.empty()) patch.Put({at, at}, added);
      added.clear();
      at = placed_.places.at(std::to_string(origins_[i])).end;
      PutEvent(i, patch, told);
    }
  }
  if (!added.empty()) patch.Put({at, at}, added);
  PutNumber("TNKE", static_cast<long long>(stored_.size()), static_cast<long long>(events_.size()), patch);
  PutTotals(patch, told);
}

namespace {

// The events of one file as its user edits them.
class EventEditor {
 public:
  EventEditor(const Trace& trace, EditedFile& told)
      : trace_(trace), loaded_(trace.Loaded()), told_(told), patch_(loaded_), table_(loaded_) {
    ReadPlaced(loaded_, "LnkParams", links_);
    times_ = TimesOf(loaded_);
  }

  // Numbers are those of the file, whatever comes and goes: what is deleted goes last but for what is added.
  std::string Run(const std::vector<FieldEdit>& edits) {
    if (!table_.IsThere() || table_.events().empty())
      Wrong("event", "the file lists no events; reflyze analyse finds them");
    std::vector<Order> moves, additions;
    std::vector<int> deletions;
    for (const FieldEdit& edit : edits) {
      if (edit.field == "event.add") {
        additions.push_back({-1, edit});
        continue;
      }
      const auto [event, what] = Named(edit);
      if (what == "comment") {
        table_.events()[static_cast<std::size_t>(event)].CMT = TextForRecord(loaded_, edit).c_str();
      } else if (what == "code") {
        SetCode(event, edit);
      } else if (what == "at") {
        moves.push_back({event, edit});
      } else if (what == "delete") {
        if (edit.value != "yes") Wrong(edit.field, "\"" + edit.value + "\" is not yes");
        deletions.push_back(event);
      } else {
        Wrong(edit.field, "is no field that can be edited");
      }
    }
    for (const Order& move : moves) Move(move);
    std::sort(deletions.rbegin(), deletions.rend());
    deletions.erase(std::unique(deletions.begin(), deletions.end()), deletions.end());
    for (const int event : deletions) Delete(event);
    for (const Order& addition : additions) Add(addition.edit);
    if (!deletions.empty() || !additions.empty()) Renumber();
    table_.Put(patch_, told_);
    return patch_.Apply(told_.warnings);
  }

 private:
  struct Order {
    int event;
    FieldEdit edit;
  };

  [[noreturn]] void Wrong(const std::string& field, const std::string& why) const {
    throw Error(ErrorKind::kUsage, loaded_.name, field + ": " + why);
  }

  // "event.N.WHAT": the event of that number, and what.
  std::pair<int, std::string> Named(const FieldEdit& edit) const {
    const std::size_t from = std::string("event.").size(), dot = edit.field.find('.', from);
    const std::string number = edit.field.substr(from, dot == std::string::npos ? dot : dot - from);
    if (dot == std::string::npos || !WhyNoNumber(number, -32768.0, 32767.0).empty())
      Wrong(edit.field, "is no field that can be edited; events are named as in event.2.comment");
    const long asked = std::strtol(number.c_str(), nullptr, 10);
    const std::vector<TSorBlockKeyEvents1E>& events = const_cast<EditedTable&>(table_).events();
    for (std::size_t i = 0; i < events.size(); ++i) {
      if (events[i].EN == asked) return {static_cast<int>(i), edit.field.substr(dot + 1)};
    }
    Wrong(edit.field, "the file lists no event " + number);
  }

  void SetCode(int event, const FieldEdit& edit) {
    const std::string& code = edit.value;
    if (code.size() != 6 || !MeaningOf(code).known)
      Wrong(edit.field, "\"" + code + "\" is no event code of SR-4731, such as 1F9999");
    table_.events()[static_cast<std::size_t>(event)].EC = code.c_str();
  }

  // --- Places and times ---

  // The time of the file at a place that counts from the user's zero.
  int TimeAt(const FieldEdit& edit) const {
    const std::string wrong = WhyNoNumber(edit.value, -kFarthestEventKm, kFarthestEventKm);
    if (!wrong.empty()) Wrong(edit.field, wrong);
    const TSorData& record = *Meter().loaded.record;
    const double owt = std::round(record.LenToOwt(std::strtod(edit.value.c_str(), nullptr)));
    if (owt < record.GetMinOwt() || owt > record.GetMaxOwt())
      Wrong(edit.field, edit.value + " km is not on the trace");
    return static_cast<int>(owt) - times_.shift;
  }
  double KmOf(const TSorBlockKeyEvents1E& event) const {
    return Meter().loaded.record->OwtToLen(static_cast<double>(event.EPT) + times_.shift);
  }
  long PointAt(double fileTime) const {
    const TSorData& record = *Meter().loaded.record;
    return std::clamp(record.OwtToNearestNum(fileTime + times_.shift), 0L,
                      record.DataPts->GetPointsNum() - 1);
  }
  int TimeOf(long point) const {
    return TruncToInt(std::round(Meter().loaded.record->NumToOwt(point))) - times_.shift;
  }
  double TimeOfKm(double km) const { return Meter().loaded.record->dLenToOwt(km); }

  // The trace is analysed when the first event has to be measured.
  const MeterState& Meter() const {
    if (!meter_) meter_ = MakeMeterState(trace_);
    return *meter_;
  }
  const PlaceFigures& Figures() const { return *Meter().figures; }

  // --- What is measured ---

  // Points of settled fibre in front of an event and behind it, between its neighbours.
  struct Sections {
    long a, front, place, behind, b;
  };
  Sections SectionsOf(std::size_t i) const {
    const std::vector<TSorBlockKeyEvents1E>& events = const_cast<EditedTable&>(table_).events();
    const double settled = TimeOfKm(Figures().SettledKm());
    const double early = TimeOfKm(Figures().EarlyKm());
    const double place = events[i].EPT;
    const double before = i > 0 ? events[i - 1].EPT + settled : place;
    const bool last = i + 1 == events.size();
    const double after = last ? place : events[i + 1].EPT - early;
    const long at = PointAt(place),
               front = std::max(PointAt(place - early), PointAt(std::min(before, place)));
    return {PointAt(std::min(before, place)) + 1, front, at, last ? at : PointAt(place + settled) + 1,
            PointAt(after)};
  }

  static bool IsSection(long from, long to) { return to - from >= 8; }

  long SlopeOf(long from, long to) const {
    if (!IsSection(from, to)) return 0;
    // A line that no fibre has goes through something else, such as an event that was deleted.
    constexpr double kSteepest = 10.0, kVague = 2.0;  // dB/km
    const std::optional<Measured> slope = Figures().AttenuationDbPerKm(from, to);
    const bool fibre =
        slope && slope->value >= 0.0 && slope->value <= kSteepest && slope->deviation <= kVague;
    return fibre ? NearestThousandths(slope->value) : 0;
  }

  // Measures an event where it now stands. What the trace does not tell is 0, as in all files.
  void Measure(std::size_t i) {
    TSorBlockKeyEvents1E& event = table_.events()[i];
    const Sections at = SectionsOf(i);
    const bool last = i + 1 == table_.events().size();
    if (i > 0) event.ACI = ShortHeld(SlopeOf(at.a, at.front));
    if (!last) MeasureLoss(at, event);
    const auto reflectance = Figures().ReflectanceDb(at.place);
    event.ER = reflectance ? static_cast<int>(NearestThousandths(reflectance->db.value)) : 0;
    event.EC.SetAt(0, !reflectance ? '0' : reflectance->saturated ? '2' : '1');
    if (i > 0) event.ML0 = TimeOf(at.a), event.ML1 = TimeOf(at.front);
    if (!last) event.ML2 = TimeOf(at.behind), event.ML3 = TimeOf(at.b);
    event.ML4 = reflectance ? TimeOf(HighestPoint(at)) : event.EPT;
  }

  void MeasureLoss(const Sections& at, TSorBlockKeyEvents1E& event) {
    std::optional<Measured> loss;
    if (IsSection(at.a, at.front) && IsSection(at.behind, at.b))
      loss = Figures().EventLossDb(at.a, at.front, at.behind, at.b);
    event.SetEL(0.0);
    event.EL = ShortHeld(loss ? NearestThousandths(loss->value) : 0);
    event.LMT = "LS";
    if (!loss)
      told_.warnings.push_back({loaded_.name, Format("nothing tells what is lost at %.4f km", KmOf(event))});
  }

  long HighestPoint(const Sections& at) const {
    const TSorBlockDataPoints& points = *Meter().loaded.record->DataPts;
    long highest = at.place;
    for (long i = at.place; i < at.behind; ++i)
      if (points.numToLevel(i) > points.numToLevel(highest)) highest = i;
    return highest;
  }

  // The section in front of an event begins behind the one before it, which has come, gone or moved.
  void MeasureSection(std::size_t i) {
    if (i == 0 || i >= table_.events().size()) return;
    TSorBlockKeyEvents1E& event = table_.events()[i];
    const Sections at = SectionsOf(i);
    event.ACI = ShortHeld(SlopeOf(at.a, at.front));
    if (event.ML0 < event.ML1 && event.ML1 > 0) event.ML0 = TimeOf(at.a);
  }

  // --- What is asked for ---

  std::size_t IndexOf(int origin) {
    const std::vector<int>& origins = table_.origins();
    return static_cast<std::size_t>(std::find(origins.begin(), origins.end(), origin) - origins.begin());
  }

  void Move(const Order& order) {
    std::vector<TSorBlockKeyEvents1E>& events = table_.events();
    const std::size_t i = IndexOf(order.event);
    TSorBlockKeyEvents1E& event = events[i];
    if (i == 0) Wrong(order.edit.field, "the first event is where the fibre starts, and stays there");
    const int time = TimeAt(order.edit), before = event.EPT;
    const bool last = i + 1 == events.size();
    if (time <= events[i - 1].EPT || (!last && time >= events[i + 1].EPT))
      Wrong(order.edit.field, order.edit.value + " km is not between the events next to it");
    const double beforeKm = KmOf(event);
    const long aciBefore = event.ACI;
    event.EPT = time;
    Measure(i);
    if (event.EC.c_str()[1] != 'A') event.EC.SetAt(1, event.IsEOF() ? 'D' : 'M');
    if (last) {
      MoveTotals(before, time, beforeKm, KmOf(event), event.ACI != 0 ? event.ACI : aciBefore);
    } else {
      MeasureSection(i + 1);
    }
    told_.changes.push_back(
        {Format("event %d place", event.EN), Format("%.4f km", beforeKm), Format("%.4f km", KmOf(event))});
  }

  // The loss from end to end has the fibre up to the end.
  void MoveTotals(int before, int after, double beforeKm, double afterKm, long slope) {
    TSorBlockKeyEvents& table = table_.values();
    for (int* marker : {&table.ELMP2, &table.RLMP2}) {
      if (*marker == before) *marker = after;
    }
    if (table.EEL != 0)
      table.EEL += static_cast<int>(std::lround(static_cast<double>(slope) * (afterKm - beforeKm)));
  }

  // Alarm levels of a baseline have limits for each event, in its order.
  void RequireNoLevels(const std::string& field) const {
    if (Stores(loaded_, "RFTSParams") || Stores(loaded_, "RFTSEvents"))
      Wrong(field, "the file watches its events by number; make its baseline anew");
  }

  void Delete(int origin) {
    const std::size_t i = IndexOf(origin);
    std::vector<TSorBlockKeyEvents1E>& events = table_.events();
    const std::string field = Format("event.%d.delete", events[i].EN);
    RequireNoLevels(field);
    if (i == 0) Wrong(field, "the first event is where the fibre starts");
    if (i + 1 == events.size()) Wrong(field, "the last event is the end; it can be moved");
    told_.changes.push_back({Format("event %d", events[i].EN), Format("%.4f km", KmOf(events[i])), "-"});
    events.erase(events.begin() + static_cast<std::ptrdiff_t>(i));
    table_.origins().erase(table_.origins().begin() + static_cast<std::ptrdiff_t>(i));
    MeasureSection(i);
  }

  void Add(const FieldEdit& edit) {
    RequireNoLevels(edit.field);
    std::vector<TSorBlockKeyEvents1E>& events = table_.events();
    if (events.size() >= kMostTableEvents) Wrong(edit.field, "the table is full");
    const int time = TimeAt(edit);
    std::size_t i = 0;
    while (i < events.size() && events[i].EPT <= time) ++i;
    const bool taken = i > 0 && events[i - 1].EPT == time;
    if (i == 0 || i == events.size() || taken)
      Wrong(edit.field, edit.value + " km is not between the first event and the last, or is one of them");
    TSorBlockKeyEvents1E event;
    event.EPT = time;
    event.EC = "0A9999";
    events.insert(events.begin() + static_cast<std::ptrdiff_t>(i), event);
    table_.origins().insert(table_.origins().begin() + static_cast<std::ptrdiff_t>(i), -1);
    Measure(i);
    MeasureSection(i + 1);
    const TSorBlockKeyEvents1E& made = events[i];
    told_.changes.push_back({"event added", "-",
                             Format("%.4f km, %s, ", KmOf(made), made.EC.c_str()) + Told(made.EL, "dB") +
                                 ", " + Told(made.ER, "dB")});
  }

  // Numbers go on from that of the first event; landmarks follow theirs.
  void Renumber() {
    std::vector<TSorBlockKeyEvents1E>& events = table_.events();
    const short first = events[0].EN;
    std::vector<std::pair<short, short>> renamed;
    for (std::size_t i = 0; i < events.size(); ++i) {
      const short now = static_cast<short>(first + static_cast<int>(i));
      if (table_.origins()[i] >= 0) renamed.emplace_back(events[i].EN, now);
      events[i].EN = now;
    }
    for (int i = 0; i < links_.values.ListedLandmarks() && links_.whole; ++i) {
      const short event = links_.values.LandmarkAt(i).REN;
      const auto found =
          std::find_if(renamed.begin(), renamed.end(),
                       [event](const std::pair<short, short>& each) { return each.first == event; });
      const short now = event == 0 ? short{0} : found != renamed.end() ? found->second : short{0};
      if (now != event) patch_.PutNumber(links_.places.at(std::to_string(i) + ".REN"), now);
    }
  }

  const Trace& trace_;
  const LoadedRecord& loaded_;
  EditedFile& told_;
  FilePatch patch_;
  EditedTable table_;
  PlacedBlock<TSorBlockLinkParameters> links_;
  TimesOfFile times_;
  mutable std::shared_ptr<const MeterState> meter_;
};

}  // namespace

std::string EditEvents(const Trace& trace, const std::vector<FieldEdit>& edits, EditedFile& told) {
  std::string bytes;
  CallEngine(trace.Loaded().name, "is not a record whose events can be edited",
             [&] { bytes = EventEditor(trace, told).Run(edits); });
  return bytes;
}

}  // namespace reflyze
