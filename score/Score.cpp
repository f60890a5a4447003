// SPDX-License-Identifier: Apache-2.0
#include "score/Score.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"
#include "score/Statistics.h"

namespace reflyze::score {
namespace {

constexpr const char* kKindNames[kKinds] = {"splice", "gainer", "reflection"};
constexpr const char* kBandNames[kBands] = {"<3", "3-6", "6-10", ">10"};

size_t BandOf(double snrDb) { return snrDb < 3.0 ? 0 : snrDb < 6.0 ? 1 : snrDb < 10.0 ? 2 : 3; }

double Percentile(std::vector<double> values, double share, bool magnitude) {
  if (values.empty()) return 0.0;
  if (magnitude) {
    for (double& value : values) value = std::fabs(value);
  }
  std::sort(values.begin(), values.end());
  const auto last = static_cast<double>(values.size() - 1);
  return values[static_cast<size_t>(std::lround(share * last))];
}

double Share(long part, long whole) {
  return whole > 0 ? static_cast<double>(part) / static_cast<double>(whole) : 1.0;
}

nlohmann::ordered_json ErrorJson(const std::vector<double>& errors) {
  return {{"count", errors.size()},
          {"bias", Mean(errors)},
          {"median", Percentile(errors, 0.5, true)},
          {"p95", Percentile(errors, 0.95, true)},
          {"p99", Percentile(errors, 0.99, true)}};
}

}  // namespace

// Whether the event stands two pulse lengths from every other event that leaves a mark, and from the end.
bool Score::IsIsolated(const TraceResult& result, size_t index) {
  const auto& events = result.trace->truth.events;
  for (size_t i = 0; i < events.size(); ++i) {
    if (i == index) continue;
    if (std::fabs(events[i].distanceKm - events[index].distanceKm) < 2.0 * result.pulseKm) return false;
  }
  return true;
}

// Whether the end is found within a sample and a tenth of a pulse. Where nothing is connected, an end in the
// light of the launch is right.
bool Score::IsEndClose(const TraceResult& result) {
  constexpr double kLaunchPulses = 1.5;
  const double pulses = result.trace->truth.lengthKm > 0.0 ? 0.1 : kLaunchPulses;
  return result.matching.endFound &&
         std::fabs(result.matching.endErrorKm) <= result.spacingKm + pulses * result.pulseKm;
}

long Score::Badness(const TraceResult& result) {
  long bad = static_cast<long>(result.matching.invented.size());
  for (const size_t missed : result.matching.missed) {
    const sim::TrueEvent& event = result.trace->truth.events[missed];
    if (IsFair(event) && event.snrDb >= kClearSnrDb && IsIsolated(result, missed)) ++bad;
  }
  if (!IsEndClose(result)) bad += 2;
  return bad;
}

// A reported event has the signal-to-noise ratio of the place where it was reported.
void Score::CountReported(const TraceResult& result, size_t found, bool invented) {
  const FoundEvent& event = result.found[found];
  const std::vector<float>& levelDb = result.trace->cleanDb;
  const auto last = static_cast<double>(levelDb.size() - 1);
  const double point = std::clamp(event.distanceKm / result.spacingKm, 0.0, last);
  const double snrDb = levelDb[static_cast<size_t>(point)] - result.trace->truth.noiseDb;
  Report& report = reports_[static_cast<size_t>(KindOf(event))][BandOf(snrDb)];
  ++report.reported;
  report.invented += invented ? 1 : 0;
}

void Score::Add(const TraceResult& result) {
  const auto& truth = result.trace->truth;
  const Matching& matching = result.matching;
  ++traces_;
  exact_ += Badness(result) == 0 ? 1 : 0;
  invented_ += static_cast<long>(matching.invented.size());
  reported_ += static_cast<long>(matching.invented.size() + matching.pairs.size());
  endsFound_ += matching.endFound ? 1 : 0;
  endsWithin_ += IsEndClose(result) ? 1 : 0;
  if (matching.endFound) endErrorM_.push_back(matching.endErrorKm * 1000.0);
  const auto count = [&](size_t index, bool found) {
    const sim::TrueEvent& event = truth.events[index];
    if (!IsFair(event)) return false;
    const auto kind = static_cast<size_t>(KindOf(event));
    Tally& tally = tallies_[kind][BandOf(event.snrDb)];
    ++tally.present;
    tally.found += found ? 1 : 0;
    if (event.snrDb < kClearSnrDb || !IsIsolated(result, index)) return false;
    ++clear_[kind].present;
    clear_[kind].found += found ? 1 : 0;
    return found;
  };
  for (const size_t missed : matching.missed) count(missed, false);
  for (const size_t invented : matching.invented) CountReported(result, invented, true);
  for (const MatchedPair& pair : matching.pairs) {
    CountReported(result, pair.found, false);
    if (!count(pair.truth, true)) continue;
    const sim::TrueEvent& event = truth.events[pair.truth];
    const FoundEvent& found = result.found[pair.found];
    const double positionKm = found.distanceKm - event.distanceKm;
    positionErrorM_.push_back(positionKm * 1000.0);
    positionErrorPulses_.push_back(positionKm / result.pulseKm);
    positionExcessPulses_.push_back(std::max(std::fabs(positionKm) - result.spacingKm / 2.0, 0.0) /
                                    result.pulseKm);
    lossErrorDb_.push_back(found.lossDb - event.lossDb);
    if (event.reflectanceDb && !event.saturated && !found.saturated && found.reflectanceDb != 0.0 &&
        KindOf(event) == EventKind::kReflection) {
      // A height above the backscatter does not give the reflectance of a fibre that scatters otherwise than
      // the record says, and no trace shows how much it does.
      const double seenDb = *event.reflectanceDb - event.backscatterOffDb;
      reflectanceErrorDb_.push_back(found.reflectanceDb - seenDb);
    }
  }
}

void Score::AddAll(const Score& other) {
  traces_ += other.traces_;
  exact_ += other.exact_;
  invented_ += other.invented_;
  reported_ += other.reported_;
  endsFound_ += other.endsFound_;
  endsWithin_ += other.endsWithin_;
  for (size_t kind = 0; kind < kKinds; ++kind) {
    for (size_t band = 0; band < kBands; ++band) {
      tallies_[kind][band].present += other.tallies_[kind][band].present;
      tallies_[kind][band].found += other.tallies_[kind][band].found;
      reports_[kind][band].reported += other.reports_[kind][band].reported;
      reports_[kind][band].invented += other.reports_[kind][band].invented;
    }
    clear_[kind].present += other.clear_[kind].present;
    clear_[kind].found += other.clear_[kind].found;
  }
  Append(positionErrorM_, other.positionErrorM_);
  Append(positionErrorPulses_, other.positionErrorPulses_);
  Append(positionExcessPulses_, other.positionExcessPulses_);
  Append(lossErrorDb_, other.lossErrorDb_);
  Append(reflectanceErrorDb_, other.reflectanceErrorDb_);
  Append(endErrorM_, other.endErrorM_);
}

nlohmann::ordered_json Score::Json() const {
  nlohmann::ordered_json json = {
      {"traces", traces_},
      {"exact_share", Share(exact_, traces_)},
      {"false_events_per_trace", static_cast<double>(invented_) / std::max(traces_, 1L)},
      {"precision", Share(reported_ - invented_, reported_)},
      {"ends_found_share", Share(endsFound_, traces_)},
      {"ends_within_share", Share(endsWithin_, traces_)}};
  for (size_t kind = 0; kind < kKinds; ++kind) {
    nlohmann::ordered_json& entry = json["recall"][kKindNames[kind]];
    for (size_t band = 0; band < kBands; ++band) {
      entry[kBandNames[band]] = {{"present", tallies_[kind][band].present},
                                 {"found", tallies_[kind][band].found}};
    }
    entry["clear"] = {{"present", clear_[kind].present},
                      {"found", clear_[kind].found},
                      {"share", Share(clear_[kind].found, clear_[kind].present)}};
  }
  for (size_t kind = 0; kind < kKinds; ++kind) {
    nlohmann::ordered_json& entry = json["precision_by_kind"][kKindNames[kind]];
    for (size_t band = 0; band < kBands; ++band) {
      const Report& report = reports_[kind][band];
      entry[kBandNames[band]] = {{"reported", report.reported}, {"invented", report.invented}};
    }
  }
  json["position_error_m"] = ErrorJson(positionErrorM_);
  json["position_error_pulses"] = ErrorJson(positionErrorPulses_);
  json["position_beyond_half_sample_pulses"] = ErrorJson(positionExcessPulses_);
  json["loss_error_db"] = ErrorJson(lossErrorDb_);
  json["reflectance_error_db"] = ErrorJson(reflectanceErrorDb_);
  json["end_error_m"] = ErrorJson(endErrorM_);
  return json;
}

// In each band, how many of the true events were found, and how many of the reported ones are right.
std::string Score::KindText(size_t kind) const {
  long present = 0, reported = 0;
  std::string found, right;
  for (size_t band = 0; band < kBands; ++band) {
    const Tally& tally = tallies_[kind][band];
    const Report& report = reports_[kind][band];
    present += tally.present;
    reported += report.reported;
    found += Format("  %s dB %ld/%ld", kBandNames[band], tally.found, tally.present);
    right += Format("  %s dB %ld/%ld", kBandNames[band], report.reported - report.invented, report.reported);
  }
  std::string text;
  if (present > 0) {
    text += Format("  %-11s found%s   clear %.1f %%\n", kKindNames[kind], found.c_str(),
                   100.0 * Share(clear_[kind].found, clear_[kind].present));
  }
  if (reported > 0) text += Format("  %-11s right%s\n", "", right.c_str());
  return text;
}

std::string Score::Text(const std::string& name) const {
  std::string text;
  text += Format(
      "%-10s %4ld traces   exactly right %5.1f %%   false events %.2f a trace   ends %5.1f %% (close %5.1f "
      "%%)\n",
      name.c_str(), traces_, 100.0 * Share(exact_, traces_),
      static_cast<double>(invented_) / static_cast<double>(std::max(traces_, 1L)),
      100.0 * Share(endsFound_, traces_), 100.0 * Share(endsWithin_, traces_));
  for (size_t kind = 0; kind < kKinds; ++kind) text += KindText(kind);
  if (!lossErrorDb_.empty()) {
    text += Format("  position    median %.2f m, 95 %% %.2f m (%.3f and %.3f pulse lengths)\n",
                   Percentile(positionErrorM_, 0.5, true), Percentile(positionErrorM_, 0.95, true),
                   Percentile(positionErrorPulses_, 0.5, true), Percentile(positionErrorPulses_, 0.95, true));
    text +=
        Format("  loss        median %.4f dB, 95 %% %.4f dB, bias %+.4f dB\n",
               Percentile(lossErrorDb_, 0.5, true), Percentile(lossErrorDb_, 0.95, true), Mean(lossErrorDb_));
  }
  if (!reflectanceErrorDb_.empty()) {
    text += Format("  reflectance median %.3f dB, 95 %% %.3f dB, bias %+.3f dB\n",
                   Percentile(reflectanceErrorDb_, 0.5, true), Percentile(reflectanceErrorDb_, 0.95, true),
                   Mean(reflectanceErrorDb_));
  }
  if (!endErrorM_.empty()) {
    text +=
        Format("  end         median %.2f m, 95 %% %.2f m, 99 %% %.2f m\n", Percentile(endErrorM_, 0.5, true),
               Percentile(endErrorM_, 0.95, true), Percentile(endErrorM_, 0.99, true));
  }
  return text;
}

}  // namespace reflyze::score
