// SPDX-License-Identifier: Apache-2.0
#include "reflyze/measure.h"

#include <algorithm>
#include <cmath>

#include "lib/AnalysedRecord.h"
#include "lib/Decimal.h"
#include "lib/Engine.h"
#include "lib/EngineCall.h"
#include "lib/MeterState.h"
#include "util/convert.h"

namespace reflyze {

namespace {

struct KindOfMeasure {
  const char* name;
  size_t places;
};
constexpr KindOfMeasure kKinds[] = {
    {"at", 1}, {"two-point", 2}, {"least-squares", 2}, {"return-loss", 2}, {"event", 4}};

const KindOfMeasure& KindOf(MeasureKind kind) {
  const auto index = static_cast<size_t>(kind);
  if (index >= std::size(kKinds)) throw Error(ErrorKind::kUsage, "", "there is no measure of that kind");
  return kKinds[index];
}

void TellFinite(const std::optional<Measured>& measured, std::optional<double>& value,
                std::optional<double>& sd) {
  if (!measured || !std::isfinite(measured->value) || !std::isfinite(measured->deviation)) return;
  value = Millionths(measured->value);
  sd = Millionths(measured->deviation);
}

// One measurement.
class Answering {
 public:
  Answering(const MeterState& state, const MeasureRequest& request)
      : record_(*state.loaded.record),
        name_(state.loaded.name),
        link_(state.link),
        figures_(*state.figures),
        points_(PointsFor(state, request)) {
    told_.file = state.loaded.given;
    told_.kind = request.kind;
    for (const long point : points_) told_.placesKm.push_back(Millionths(record_.NumToLen(point)));
  }

  PlaceMeasure Tell() {
    switch (told_.kind) {
      case MeasureKind::kAt:
        TellPlace();
        break;
      case MeasureKind::kTwoPoint:
        TellFinite(figures_.TwoPointLossDb(points_[0], points_[1]), told_.lossDb, told_.lossSdDb);
        SpreadLoss();
        break;
      case MeasureKind::kLeastSquares:
        TellLine();
        break;
      case MeasureKind::kReturnLoss:
        TellReturnLoss();
        break;
      case MeasureKind::kEvent:
        TellFinite(figures_.EventLossDb(points_[0], points_[1], points_[2], points_[3]), told_.lossDb,
                   told_.lossSdDb);
        WarnOfEventsIn(points_[0], points_[1]);
        WarnOfEventsIn(points_[2], points_[3]);
        break;
    }
    WarnOfEnd();
    if (IsHidden()) Warn("the light there is lost in the noise");
    return std::move(told_);
  }

 private:
  static std::vector<long> PointsFor(const MeterState& state, const MeasureRequest& request) {
    const TSorData& record = *state.loaded.record;
    const KindOfMeasure& kind = KindOf(request.kind);
    const auto wrong = [&](const std::string& why) {
      throw Error(ErrorKind::kUsage, state.loaded.name, why);
    };
    if (request.placesKm.size() != kind.places)
      wrong(Format("a measure of the kind \"%s\" takes %zu places, not %zu", kind.name, kind.places,
                   request.placesKm.size()));
    const long last = record.DataPts->GetPointsNum() - 1;
    const double leastKm = record.NumToLen(0), mostKm = record.NumToLen(last);
    std::vector<long> points;
    for (const double km : request.placesKm) {
      constexpr double kHalfPoint = 0.5;
      const double slackKm = record.NumToLen(1) - leastKm;
      if (!(km >= leastKm - slackKm && km <= mostKm + slackKm))
        wrong(Format("%g km is not on the trace, which goes from %.4f to %.4f km", km, leastKm, mostKm));
      const long point = TruncToLong(record.LenToNum(std::clamp(km, leastKm, mostKm)) + kHalfPoint);
      if (!points.empty() && point <= points.back())
        wrong(Format("places follow each other along the fibre, by a point at least; %g km does not", km));
      points.push_back(std::clamp(point, 0L, last));
    }
    return points;
  }

  double LengthKm() const { return figures_.KmOf(points_.back()) - figures_.KmOf(points_.front()); }

  void TellPlace() {
    TellFinite(figures_.LevelDb(points_[0]), told_.levelDb, told_.levelSdDb);
    const auto reflectance = figures_.ReflectanceDb(points_[0]);
    if (!reflectance) return;
    TellFinite(reflectance->db, told_.reflectanceDb, told_.reflectanceSdDb);
    told_.reflectanceAtLeast = reflectance->saturated;
    WarnOfBackscatter();
  }

  void SpreadLoss() {
    if (!told_.lossDb) return;
    told_.attenuationDbPerKm = Millionths(*told_.lossDb / LengthKm());
    told_.attenuationSdDbPerKm = Millionths(*told_.lossSdDb / LengthKm());
  }

  void TellLine() {
    const std::optional<Measured> slope = figures_.AttenuationDbPerKm(points_[0], points_[1]);
    TellFinite(slope, told_.attenuationDbPerKm, told_.attenuationSdDbPerKm);
    WarnOfEventsIn(points_[0], points_[1]);
    if (!slope) return;
    TellFinite(Measured{slope->value * LengthKm(), slope->deviation * LengthKm()}, told_.lossDb,
               told_.lossSdDb);
  }

  void TellReturnLoss() {
    const auto loss = figures_.ReturnLossDb(points_[0], points_[1]);
    if (!loss) return;
    TellFinite(loss->db, told_.returnLossDb, told_.returnLossSdDb);
    told_.returnLossAtMost = loss->saturated;
    WarnOfBackscatter();
  }

  bool IsHidden() const {
    return !told_.levelDb && !told_.lossDb && !told_.returnLossDb && !told_.reflectanceDb;
  }

  void Warn(const std::string& text) { told_.warnings.push_back({name_, text}); }

  void WarnOfBackscatter() {
    if (!figures_.backscatter().assumed) return;
    Warn(Format(
        "states no backscatter coefficient; this counts from %.1f dB for a pulse of 1 ns, the usual one "
        "at its wavelength",
        figures_.backscatter().db));
  }

  // A line through an event is none of the fibre's. The light of an event goes on behind it for a while.
  void WarnOfEventsIn(long from, long to) {
    if (!link_) return;
    for (const MeasuredEvent& event : link_->events) {
      const double km = event.km.value, lengthKm = figures_.KmOf(to) - figures_.KmOf(from);
      const bool inside =
          km < figures_.KmOf(to) - lengthKm / 100.0 && km + figures_.SettledKm() > figures_.KmOf(from);
      if (inside && event.probability > 0.5)
        Warn(Format("the line from %.4f to %.4f km goes through the light of the event at %.4f km",
                    record_.NumToLen(from), record_.NumToLen(to), record_.NumToLen(0) + km));
    }
  }

  void WarnOfEnd() {
    if (!link_ || link_->events.size() < 2) return;
    const double endKm = link_->events.back().km.value;
    if (figures_.KmOf(points_.back()) > endKm + figures_.SettledKm() && !link_->events.back().fades)
      Warn(Format("the fibre ends at %.4f km", record_.NumToLen(0) + endKm));
  }

  const TSorData& record_;
  const std::string& name_;
  const std::optional<MeasuredLink>& link_;
  const PlaceFigures& figures_;
  const std::vector<long> points_;
  PlaceMeasure told_;
};

// A link of which no light of a fibre is known tells noise and no more.
std::optional<MeasuredLink> LinkOf(const LoadedRecord& loaded) {
  LoadedRecord searched = CopyOfLoaded(loaded);
  CountTimesFromFirstSample(searched);
  TTH thresholds = ThresholdsFor(*searched.record, {});
  AnalyseBest(Engine(), searched, thresholds, false);
  return MeasureLink(*searched.record);
}

}  // namespace

const char* NameOf(MeasureKind kind) { return KindOf(kind).name; }

std::shared_ptr<const MeterState> MakeMeterState(Trace trace) {
  auto state = std::make_shared<MeterState>();
  state->loaded = ForMeasuring(std::move(trace));
  CallEngine(state->loaded.name, "is not a trace that can be measured", [&] {
    state->link = LinkOf(state->loaded);
    state->figures.emplace(*state->loaded.record, state->link);
  });
  return state;
}

Meter::Meter(Trace trace) : state_(MakeMeterState(std::move(trace))) {}

PlaceMeasure Meter::Measure(const MeasureRequest& request) const {
  PlaceMeasure told = Answering(*state_, request).Tell();
  std::vector<Warning> all = WarningsOf(state_->loaded);
  all.insert(all.end(), told.warnings.begin(), told.warnings.end());
  told.warnings = std::move(all);
  return told;
}

PlaceMeasure Measure(Trace trace, const MeasureRequest& request) {
  return Meter(std::move(trace)).Measure(request);
}

}  // namespace reflyze
