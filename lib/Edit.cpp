// SPDX-License-Identifier: Apache-2.0
#include "reflyze/edit.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include "lib/EditEvents.h"
#include "lib/EventRows.h"
#include "lib/FilePatch.h"
#include "lib/UserOffset.h"
#include "reflyze/text.h"
#include "util/timeutil.h"

namespace reflyze {
namespace {

constexpr double kLeastIndex = 1.0, kMostIndex = 3.0;
constexpr double kLeastBackscatterDb = -120.0, kMostBackscatterDb = -20.0;
constexpr double kLeastNm = 200.0, kMostNm = 2000.0;

// Texts of the record, by the names that users know.
struct TextField {
  const char* name;
  const char* label;
  TString TSorBlockGeneralParameters::*text;
};
constexpr TextField kTexts[] = {{"cable", "CID", &TSorBlockGeneralParameters::CID},
                                {"fibre", "FID", &TSorBlockGeneralParameters::FID},
                                {"cable-code", "CCD", &TSorBlockGeneralParameters::CCD},
                                {"from", "OL", &TSorBlockGeneralParameters::OL},
                                {"to", "TL", &TSorBlockGeneralParameters::TL},
                                {"operator", "OP", &TSorBlockGeneralParameters::OP},
                                {"comment", "CMT", &TSorBlockGeneralParameters::CMT}};

[[noreturn]] void Wrong(const std::string& name, const std::string& field, const std::string& why) {
  throw Error(ErrorKind::kUsage, name, field + ": " + why);
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string UtcText(long seconds) {
  const std::time_t time = seconds;
  std::tm utc{};
  char text[40] = "";
  if (gmtime_r(&time, &utc) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// The instant that a text names: by the clock of this place, or by the distance from UTC that stands behind.
std::optional<long long> InstantOf(const std::string& text) {
  std::tm time{};
  int year = 0, month = 0, read = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2d%*1[ T]%2d:%2d%n", &year, &month, &time.tm_mday, &time.tm_hour,
                  &time.tm_min, &read) != 5)
    return std::nullopt;
  std::string rest = text.substr(static_cast<size_t>(read));
  int seconds = 0, taken = 0;
  if (std::sscanf(rest.c_str(), ":%2d%n", &seconds, &taken) == 1)
    rest = rest.substr(static_cast<size_t>(taken));
  time.tm_year = year - 1900, time.tm_mon = month - 1, time.tm_sec = seconds;
  const std::tm asked = time;
  const auto same = [&](const std::tm& made) {
    return made.tm_mday == asked.tm_mday && made.tm_mon == asked.tm_mon && made.tm_hour == asked.tm_hour &&
           made.tm_min == asked.tm_min && made.tm_sec == asked.tm_sec;
  };
  if (rest.empty()) {
    long utc = 0;
    std::tm made{};
    return FromLocalTime(time, utc) && ToLocalTime(utc, made) && same(made) ? std::optional<long long>(utc)
                                                                            : std::nullopt;
  }
  constexpr int kHour = 3600, kMinute = 60;
  int hours = 0, minutes = 0;
  char sign = 0;
  int end = 0;
  const bool zone = std::sscanf(rest.c_str(), "%c%2d:%2d%n", &sign, &hours, &minutes, &end) == 3 &&
                    static_cast<size_t>(end) == rest.size() && (sign == '+' || sign == '-') && hours < 15 &&
                    minutes < 60 && hours >= 0 && minutes >= 0;
  if (rest != "Z" && !zone) return std::nullopt;
  const long long utc = timegm(&time);
  if (!same(time)) return std::nullopt;
  const int away = hours * kHour + minutes * kMinute;
  return utc - (zone ? (sign == '-' ? -away : away) : 0);
}

int Wrapped(int time, long long by) {
  return static_cast<int>(static_cast<unsigned>(time) + static_cast<unsigned>(by));
}

// The fields of one file that are no events, and what follows from them.
class FieldEditor {
 public:
  FieldEditor(const LoadedRecord& loaded, EditedFile& told) : loaded_(loaded), told_(told), patch_(loaded) {
    ReadPlaced(loaded, "GenParams", general_);
    ReadPlaced(loaded, "FxdParams", fixed_);
    ReadPlaced(loaded, "SupParams", supplier_);
    ReadPlaced(loaded, "LnkParams", links_);
    ReadPlaced(loaded, "QRTEvents", own_);
    table_.emplace(loaded);
  }

  void Set(const FieldEdit& edit) {
    const auto* const text = std::find_if(std::begin(kTexts), std::end(kTexts),
                                          [&](const TextField& field) { return edit.field == field.name; });
    if (text != std::end(kTexts)) return SetText(*text, edit);
    if (edit.field == "direction")
      SetLetters(fixed_, "TT", fixed_.values.TT, {"ST", "RT", "DT", "RF"}, edit);
    else if (edit.field == "state")
      SetLetters(general_, "CDF", general_.values.CDF, {"BC", "CC", "RC", "OT"}, edit);
    else if (edit.field == "fibre-type")
      SetFibreType(edit);
    else if (edit.field == "wavelength")
      SetWavelength(edit);
    else if (edit.field == "index")
      SetIndex(edit);
    else if (edit.field == "backscatter")
      SetBackscatter(edit);
    else if (edit.field == "user-offset")
      SetUserOffset(edit);
    else if (edit.field == "date")
      SetDate(edit);
    else
      Wrong(loaded_.name, edit.field, "is no field that can be edited");
  }

  std::string Finish() {
    table_->Put(patch_, told_);
    return patch_.Apply(told_.warnings);
  }

 private:
  template <class Block>
  const FieldPlace& PlaceOf(const PlacedBlock<Block>& block, const char* label,
                            const std::string& field) const {
    if (block.at.id.empty()) Wrong(loaded_.name, field, "the file has no block for it");
    if (!block.whole)
      throw Error(ErrorKind::kUnreadable, loaded_.name, field + ": its block is cut off or not in its place",
                  block.at.id, static_cast<long long>(block.at.start));
    if (!block.Has(label)) Wrong(loaded_.name, field, "records of this revision have no such field");
    return block.places.at(label);
  }

  void Tell(const std::string& field, const std::string& before, const std::string& after) {
    if (before != after) told_.changes.push_back({field, before, after});
  }

  double NumberOf(const FieldEdit& edit, double least, double most) const {
    const std::string wrong = WhyNoNumber(edit.value, least, most);
    if (!wrong.empty()) Wrong(loaded_.name, edit.field, wrong);
    return std::strtod(edit.value.c_str(), nullptr);
  }

  void SetText(const TextField& field, const FieldEdit& edit) {
    const FieldPlace& place = PlaceOf(general_, field.label, edit.field);
    const std::string bytes = TextForRecord(loaded_, edit);
    TString& text = general_.values.*field.text;
    const std::string before = loaded_.texts.Utf8(text);
    if (std::string(text.c_str()) == bytes) return;
    patch_.Put(place, bytes + '\0');
    Tell(edit.field, Quoted(before), Quoted(edit.value));
    text = bytes.c_str();
  }

  template <class Block>
  void SetLetters(PlacedBlock<Block>& block, const char* label, TString& value,
                  const std::vector<std::string>& known, const FieldEdit& edit) {
    const FieldPlace& place = PlaceOf(block, label, edit.field);
    if (std::find(known.begin(), known.end(), edit.value) == known.end()) {
      std::string all;
      for (const std::string& each : known) all += (all.empty() ? "" : ", ") + each;
      Wrong(loaded_.name, edit.field, Quoted(edit.value) + " is none of " + all);
    }
    Tell(edit.field, loaded_.texts.Utf8(value), edit.value);
    if (edit.value != value.c_str()) patch_.Put(place, edit.value);
    value = edit.value.c_str();
  }

  void SetFibreType(const FieldEdit& edit) {
    const FieldPlace& place = PlaceOf(general_, "FT", edit.field);
    const double type = NumberOf(edit, 0.0, std::numeric_limits<short>::max());
    if (type != std::floor(type)) Wrong(loaded_.name, edit.field, Quoted(edit.value) + " is no whole number");
    Tell(edit.field, std::to_string(general_.values.FT), Format("%.0f", type));
    general_.values.FT = static_cast<short>(type);
    patch_.PutNumber(place, general_.values.FT);
  }

  // A record has the nominal wavelength in whole nm, and the actual one in nm or in tenths, as its maker
  // likes, or as 0 where it is that.
  void SetWavelength(const FieldEdit& edit) {
    const FieldPlace& nominal = PlaceOf(general_, "NW", edit.field);
    const FieldPlace& actual = PlaceOf(fixed_, "AW", edit.field);
    const double nm = NumberOf(edit, kLeastNm, kMostNm);
    const double before = WavelengthNm(*loaded_.record);
    constexpr double kTenths = 10.0;
    const int stored = fixed_.values.AW < 0 ? fixed_.values.AW + 65536 : fixed_.values.AW;
    const double unit = stored != 0 && stored < static_cast<int>(kMostNm) ? 1.0 : kTenths;
    general_.values.NW = static_cast<short>(std::lround(nm));
    patch_.PutNumber(nominal, general_.values.NW);
    if (stored != 0) patch_.PutNumber(actual, std::lround(nm * unit));
    Tell(edit.field, Format("%.1f nm", before), Format("%.1f nm", nm));
  }

  // Places are times, which no index changes; lengths are times over it. What a section loses stays, so that
  // its loss a km grows with the index.
  void SetIndex(const FieldEdit& edit) {
    constexpr double kSteps = 100000.0;
    const FieldPlace& place = PlaceOf(fixed_, "GI", edit.field);
    const int before = fixed_.values.GI;
    const int index = static_cast<int>(std::lround(NumberOf(edit, kLeastIndex, kMostIndex) * kSteps));
    if (index == before) return;
    fixed_.values.GI = index;
    patch_.PutNumber(place, index);
    Tell(edit.field, Format("%.5f", before / kSteps), Format("%.5f", index / kSteps));
    if (before <= 0) return;
    for (TSorBlockKeyEvents1E& event : table_->events())
      event.ACI = ShortHeld(std::lround(static_cast<double>(event.ACI) * index / before));
  }

  // R = Bc + what the trace shows, so that a reflectance changes by what the coefficient does, and a return
  // loss by as much the other way. A file that stated none had its reflectances from a coefficient that
  // nobody knows.
  void SetBackscatter(const FieldEdit& edit) {
    const FieldPlace& place = PlaceOf(fixed_, "BC", edit.field);
    const int before = fixed_.values.BC;
    const int tenths =
        static_cast<int>(std::lround(NumberOf(edit, kLeastBackscatterDb, kMostBackscatterDb) * -10.0));
    if (tenths == before) return;
    fixed_.values.BC = static_cast<short>(tenths);
    patch_.PutNumber(place, tenths);
    const auto shown = [](int raw) { return raw == 0 ? std::string("-") : Format("%.1f dB", raw / -10.0); };
    Tell(edit.field, shown(before), shown(tenths));
    if (before == 0) {
      told_.warnings.push_back(
          {loaded_.name, "stated no backscatter coefficient; its reflectances stay as they are"});
      return;
    }
    const int change = (before - tenths) * 100;  // thousandths of a dB
    for (TSorBlockKeyEvents1E& event : table_->events()) {
      if (event.ER != 0) event.ER = Wrapped(event.ER, change);
    }
    table_->ChangeReturnLoss(-change);
  }

  // Events stay on their places, so that times which count from the user's zero change by what it does. A
  // negative offset is one that its maker has stored so, and means the same without its sign.
  void SetUserOffset(const FieldEdit& edit) {
    const FieldPlace& place = PlaceOf(general_, "UO", edit.field);
    const int before = general_.values.UO;
    const TSorData& record = *loaded_.record;
    const double index = fixed_.values.GetRI();
    constexpr double kFarthestOffsetKm = 1000.0;
    const double km = NumberOf(edit, 0.0, kFarthestOffsetKm);
    if (!(index > 0.0)) Wrong(loaded_.name, edit.field, "the record has no scale of distances");
    const double owt = std::round(fixed_.values.LenToOwt(km));
    if (owt > record.GetMaxOwt()) Wrong(loaded_.name, edit.field, edit.value + " km is behind the trace");
    const int offset = static_cast<int>(owt);
    if (offset == before) return;
    const TimesOfFile times = TimesOf(loaded_);
    // A host's table counts from the first sample, and goes on doing so.
    const bool fromZero = times.fromFirstSample && before > 0;
    const long long shift = fromZero ? 0 : static_cast<long long>(times.shift) - offset;
    ShiftTimes(shift);
    if (times.fromFirstSample && !fromZero && offset > 0) MarkTimes(edit.field);
    general_.values.UO = offset;
    patch_.PutNumber(place, offset);
    MoveDistance(before, offset);
    Tell(edit.field, Format("%.4f km", fixed_.values.OwtToLen(std::abs(static_cast<double>(before)))),
         Format("%.4f km", fixed_.values.OwtToLen(offset)));
  }

  void ShiftTimes(long long shift) {
    if (shift == 0) return;
    table_->ShiftTimes(shift);
    for (int i = 0; i < links_.values.ListedLandmarks() && links_.whole; ++i)
      patch_.PutNumber(links_.places.at(std::to_string(i) + ".LML"),
                       Wrapped(links_.values.LandmarkAt(i).LML, shift));
    for (int i = 0; i < own_.values.ListedEvents() && own_.whole; ++i) {
      const TSorBlockQRTEvents1E& event = own_.values.EventAt(i);
      const std::pair<const char*, int> markers[] = {
          {".ML0", event.ML0}, {".ML1", event.ML1}, {".ML2", event.ML2}};
      for (const auto& [label, time] : markers)
        patch_.PutNumber(own_.places.at(std::to_string(i) + label), Wrapped(time, shift));
    }
  }

  // A record that carries the stamp of the analysis says by a mark that its times count from the offset.
  void MarkTimes(const std::string& field) {
    const FieldPlace& place = PlaceOf(supplier_, "SR", field);
    patch_.Put(place, std::string(supplier_.values.SR.c_str()) + TimesMark() + '\0');
  }

  // Some makers keep the offset as a distance beside it, in a unit of their own.
  void MoveDistance(int before, int offset) {
    if (!general_.Has("UOD") || general_.values.UOD == 0 || before == 0) return;
    const double moved = std::round(static_cast<double>(general_.values.UOD) * offset / before);
    if (std::fabs(moved) < std::numeric_limits<int>::max())
      patch_.PutNumber(general_.places.at("UOD"), static_cast<long long>(moved));
  }

  void SetDate(const FieldEdit& edit) {
    const FieldPlace& place = PlaceOf(fixed_, "DTS", edit.field);
    const std::optional<long long> seconds = InstantOf(edit.value);
    if (!seconds)
      Wrong(loaded_.name, edit.field,
            Quoted(edit.value) + " is no date such as 2026-11-22 15:30 or 2026-11-22T15:30:00Z");
    if (*seconds < 0 || *seconds > std::numeric_limits<int>::max())
      Wrong(loaded_.name, edit.field, Quoted(edit.value) + " is not between 1970 and 2038");
    Tell(edit.field, UtcText(fixed_.values.DTS), UtcText(static_cast<long>(*seconds)));
    fixed_.values.DTS = static_cast<int>(*seconds);
    patch_.PutNumber(place, *seconds);
  }

  const LoadedRecord& loaded_;
  EditedFile& told_;
  FilePatch patch_;
  PlacedBlock<TSorBlockGeneralParameters> general_;
  PlacedBlock<TSorBlockFixedParameters> fixed_;
  PlacedBlock<TSorBlockSupplierParameters> supplier_;
  PlacedBlock<TSorBlockLinkParameters> links_;
  PlacedBlock<TSorBlockQRTEvents> own_;
  std::optional<EditedTable> table_;
};

bool IsOfEvents(const FieldEdit& edit) { return edit.field.rfind("event.", 0) == 0; }

Trace FromBytes(const LoadedRecord& loaded, const std::string& bytes) {
  OpenOptions options;
  options.encoding = loaded.texts.name();
  return Trace::FromBytes(loaded.given, {bytes.begin(), bytes.end()}, options);
}

}  // namespace

std::string TextForRecord(const LoadedRecord& loaded, const FieldEdit& edit) {
  constexpr std::size_t kMostBytes = 1023;  // readers take no more
  if (ValidUtf8(edit.value) != edit.value) Wrong(loaded.name, edit.field, "its text is no UTF-8");
  if (OneLine(edit.value) != edit.value)
    Wrong(loaded.name, edit.field, "a text is one line without control characters");
  const std::optional<std::string> bytes = loaded.texts.FromUtf8(edit.value);
  if (!bytes)
    Wrong(loaded.name, edit.field,
          Quoted(edit.value) + " has letters that " + loaded.texts.name() + " lacks");
  if (bytes->size() > kMostBytes)
    Wrong(loaded.name, edit.field,
          Format("a text has at most %zu bytes, this one %zu", kMostBytes, bytes->size()));
  return *bytes;
}

const std::vector<EditField>& EditFields() {
  static const std::vector<EditField> kFields = {
      {"cable", "name of the cable"},
      {"fibre", "name of the fibre"},
      {"cable-code", "code of the cable"},
      {"from", "where the fibre starts"},
      {"to", "where it ends"},
      {"operator", "who took the trace"},
      {"comment", "of the record"},
      {"direction", "ST as named, RT from the other end, DT a difference, RF a reference"},
      {"state", "BC as built, CC as it is, RC as repaired, OT other"},
      {"fibre-type", "number of its ITU-T recommendation: 652 for G.652"},
      {"wavelength", "nominal and actual, nm"},
      {"index", "group index of the fibre; lengths and attenuations follow"},
      {"backscatter", "coefficient for a pulse of 1 ns, dB, negative; reflectances follow"},
      {"user-offset", "the user's zero, km from the first sample; events stay on their places"},
      {"date", "YYYY-MM-DD hh:mm[:ss], local, or with Z or +hh:mm behind"},
      {"event.N.comment", "comment of the event of that number"},
      {"event.N.code", "its code, such as 1F9999"},
      {"event.N.at", "moves it to this place, km"},
      {"event.N.delete", "yes: deletes it"},
      {"event.add", "adds one at this place, km"},
  };
  return kFields;
}

EditedFile Edit(const Trace& trace, const std::vector<FieldEdit>& edits) {
  const Trace whole = trace.Loaded().bytes.empty() ? FromBytes(trace.Loaded(), trace.Bytes()) : trace;
  const LoadedRecord& loaded = whole.Loaded();
  EditedFile told;
  told.file = loaded.given;
  FieldEditor fields(loaded, told);
  std::vector<FieldEdit> ofEvents;
  for (const FieldEdit& edit : edits) {
    if (IsOfEvents(edit)) {
      ofEvents.push_back(edit);
    } else {
      fields.Set(edit);
    }
  }
  told.bytes = fields.Finish();
  if (!ofEvents.empty()) told.bytes = EditEvents(FromBytes(loaded, told.bytes), ofEvents, told);
  const std::string second = whole.SecondTableWarning();
  if (!told.changes.empty() && !second.empty()) told.warnings.push_back({loaded.name, second});
  return told;
}

}  // namespace reflyze
