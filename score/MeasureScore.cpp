// SPDX-License-Identifier: Apache-2.0
#include "score/MeasureScore.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"
#include "score/LossBound.h"

namespace reflyze::score {
namespace {

constexpr double kFarPulses = 3.0;  // from the nearest other event, for losses that neighbours don't disturb
constexpr const char* kQuantityKeys[] = {"loss",       "place",     "reflectance", "slope",
                                         "total_loss", "end_place", "launch"};
constexpr int kPrintedLevels[] = {50, 80, 95, 99};
constexpr double kMedianOfSquare = 0.454936;  // of a normal error

// The variance by the least 95 % of the squared errors, which a few that went wrong altogether don't move.
// For normal errors z the mean of z^2 within +-c, where 95 % are, is 1 - 2 c p(c) / 0.95 with the density p:
// 0.7588.
double InnerVariance(std::vector<double> squares) {
  constexpr double kInnerOfNormal = 0.7588;
  std::sort(squares.begin(), squares.end());
  squares.resize(static_cast<size_t>(std::ceil(0.95 * static_cast<double>(squares.size()))));
  return Mean(squares) / kInnerOfNormal;
}

double Percent(long part, long whole) {
  return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0;
}

bool IsClear(const sim::TrueEvent& event) { return IsFair(event) && event.snrDb >= kClearSnrDb; }

// A table says so by an end in the light of the launch. What was measured says it in so many words.
bool SaysNoFibre(const TraceResult& table) {
  constexpr double kLaunchPulses = 1.5;
  return table.found.empty() ||
         (table.found.back().end &&
          table.found.back().distanceKm <= table.spacingKm + kLaunchPulses * table.pulseKm);
}

nlohmann::ordered_json MeasuredErrorJson(const std::vector<double>& errors) {
  return {{"count", errors.size()},
          {"bias", Mean(errors)},
          {"median", MagnitudeQuantile(errors, 0.5)},
          {"p95", MagnitudeQuantile(errors, 0.95)}};
}

std::string Line(const char* what, const std::string& table, const std::string& shown, const char* wanted) {
  return Format("  %-30s%-28s %-28s %s\n", what, table.c_str(), shown.c_str(), wanted);
}

std::string ErrorLine(const char* what, const std::vector<double>& table, const std::vector<double>& shown,
                      const char* wanted) {
  if (table.empty() && shown.empty()) return "";
  const auto side = [](const std::vector<double>& of) {
    return Format("%6zu %.4f %.3f %+.4f", of.size(), MagnitudeQuantile(of, 0.5), MagnitudeQuantile(of, 0.95),
                  Mean(of));
  };
  return Line(what, side(table), side(shown), wanted);
}

std::string ShareLine(const char* what, const Tally& table, const Tally& shown, const char* wanted) {
  if (table.present == 0 && shown.present == 0) return "";
  const auto side = [](const Tally& of) {
    return Format("%5.1f %% (%ld of %ld)", Percent(of.found, of.present), of.found, of.present);
  };
  return Line(what, side(table), side(shown), wanted);
}

bool HasPlainReflectance(const sim::TrueEvent& event, const FoundEvent& found) {
  return event.reflectanceDb && !event.saturated && !found.saturated && found.reflectanceDb != 0.0 &&
         KindOf(event) == EventKind::kReflection;
}

}  // namespace

const char* NameOf(Quantity quantity) {
  constexpr const char* kNames[kQuantities] = {"loss",       "place",     "reflectance",    "slope",
                                               "total loss", "end place", "launch reflects"};
  return kNames[quantity];
}

void Figures::Add(const TraceResult& result, bool saysNoFibre) {
  const auto& truth = result.trace->truth;
  ++traces;
  invented += static_cast<long>(result.matching.invented.size());
  bool right = Score::Badness(result) == 0, endRight = Score::IsEndClose(result);
  if (HasFibre(result)) {
    fibreDenied += saysNoFibre ? 1 : 0;
  } else {
    ++fibreless;
    fibrelessTold += saysNoFibre ? 1 : 0;
    right = endRight = saysNoFibre;
  }
  exact += right ? 1 : 0;
  endsRight += endRight ? 1 : 0;
  const auto count = [&](size_t index, bool found) {
    if (!IsClear(truth.events[index]) || !Score::IsIsolated(result, index)) return;
    Tally& tally = clear[static_cast<size_t>(KindOf(truth.events[index]))];
    ++tally.present;
    tally.found += found ? 1 : 0;
  };
  for (const size_t missed : result.matching.missed) count(missed, false);
  for (const MatchedPair& pair : result.matching.pairs) {
    count(pair.truth, true);
    const sim::TrueEvent& event = truth.events[pair.truth];
    const FoundEvent& found = result.found[pair.found];
    if (!IsClear(event)) continue;
    lossDb.push_back(found.lossDb - event.lossDb);
    if (NearestPulses(result, pair.truth) >= kFarPulses) lossFarDb.push_back(lossDb.back());
    placePulses.push_back((found.distanceKm - event.distanceKm) / result.pulseKm);
    if (!HasPlainReflectance(event, found)) continue;
    reflectanceDb.push_back(found.reflectanceDb - *event.reflectanceDb);
    reflectanceSeenDb.push_back(reflectanceDb.back() + event.backscatterOffDb);
  }
}

void Figures::AddAll(const Figures& other) {
  Append(lossFarDb, other.lossFarDb);
  Append(lossDb, other.lossDb);
  Append(placePulses, other.placePulses);
  Append(reflectanceDb, other.reflectanceDb);
  Append(reflectanceSeenDb, other.reflectanceSeenDb);
  for (size_t kind = 0; kind < kKinds; ++kind) {
    clear[kind].present += other.clear[kind].present;
    clear[kind].found += other.clear[kind].found;
  }
  traces += other.traces;
  invented += other.invented;
  endsRight += other.endsRight;
  exact += other.exact;
  fibreless += other.fibreless;
  fibrelessTold += other.fibrelessTold;
  fibreDenied += other.fibreDenied;
}

nlohmann::ordered_json Figures::Json() const {
  nlohmann::ordered_json json = {{"loss_far_db", MeasuredErrorJson(lossFarDb)},
                                 {"loss_db", MeasuredErrorJson(lossDb)},
                                 {"place_pulses", MeasuredErrorJson(placePulses)},
                                 {"reflectance_db", MeasuredErrorJson(reflectanceDb)},
                                 {"reflectance_as_seen_db", MeasuredErrorJson(reflectanceSeenDb)}};
  constexpr const char* kNames[kKinds] = {"splices", "gains", "reflections"};
  for (size_t kind = 0; kind < kKinds; ++kind) {
    json["found"][kNames[kind]] = {{"present", clear[kind].present}, {"found", clear[kind].found}};
  }
  json["ends_right"] = endsRight;
  json["false_events"] = invented;
  json["exactly_right"] = exact;
  json["no_fibre"] = {{"present", fibreless}, {"told", fibrelessTold}, {"told_wrongly", fibreDenied}};
  return json;
}

std::vector<JudgedNumber> JudgedNumbers(const MeasuredTrace& trace) {
  std::vector<JudgedNumber> judged;
  if (trace.measured == nullptr) return judged;
  const auto& truth = trace.simulated->truth;
  const TraceResult& shown = trace.shown;
  const MeasuredLink& link = *trace.measured;
  const auto add = [&judged](Quantity quantity, const sim::TrueEvent& event, const Measured& measured,
                             double truly) {
    judged.push_back({quantity, event.distanceKm, measured.value - truly, measured.deviation, event.snrDb});
  };
  const std::vector<int> truthOf = TruthOf(shown);
  for (size_t i = 0; i < truthOf.size(); ++i) {
    if (truthOf[i] < 0) continue;
    const sim::TrueEvent& event = truth.events[static_cast<size_t>(truthOf[i])];
    const MeasuredEvent& measured = link.events[i];
    const bool launch = i == 0, end = !launch && i + 1 == truthOf.size();
    const bool inRange = HasFibre(shown) && truth.endInRange && Score::IsEndClose(shown);
    if (end ? !inRange : !launch && !IsFair(event)) continue;
    if (!launch) {
      add(end ? kEnd : kPlace, event, {shown.found[i].distanceKm, measured.km.deviation}, event.distanceKm);
    }
    if (!launch && !end && measured.lossDb) add(kLoss, event, *measured.lossDb, event.lossDb);
    if (!end && measured.reflectanceDb && HasPlainReflectance(event, shown.found[i])) {
      add(launch ? kLaunch : kReflectance, event, *measured.reflectanceDb, *event.reflectanceDb);
    }
    // A slope is true of a section only if both its ends are those of a true one.
    if (!launch && measured.attenuationDbPerKm && truthOf[i - 1] == truthOf[i] - 1) {
      add(kSlope, event, *measured.attenuationDbPerKm, event.attenuationDbPerKm);
    }
    if (end && link.totalLossDb) add(kTotal, event, *link.totalLossDb, truth.totalLossDb);
  }
  return judged;
}

void MeasureScore::AddBound(const MeasuredTrace& trace, size_t truth, double lossErrorDb) {
  const double least = LeastLossVariance(*trace.link, *trace.simulated, truth);
  if (std::isfinite(least) && least > 0.0) boundRatios_.push_back(lossErrorDb * lossErrorDb / least);
}

void MeasureScore::Add(const MeasuredTrace& trace) {
  analysisS_ += trace.analysisS;
  measuringS_ += trace.measuringS;
  table_.Add(trace.table, SaysNoFibre(trace.table));
  shown_.Add(trace.shown, trace.measured != nullptr ? !trace.measured->fibre : SaysNoFibre(trace.table));
  if (trace.measured == nullptr) {
    ++withoutResult_;
    return;
  }
  for (const JudgedNumber& number : JudgedNumbers(trace)) {
    intervals_[number.quantity].Add(number.error, number.deviation, number.snrDb);
  }
  for (const MatchedPair& pair : trace.shown.matching.pairs) {
    const sim::TrueEvent& event = trace.simulated->truth.events[pair.truth];
    const auto& lossDb = trace.measured->events[pair.found].lossDb;
    if (!IsClear(event) || !lossDb || NearestPulses(trace.shown, pair.truth) < kFarPulses) continue;
    AddBound(trace, pair.truth, lossDb->value - event.lossDb);
  }
}

void MeasureScore::AddAll(const MeasureScore& other) {
  table_.AddAll(other.table_);
  shown_.AddAll(other.shown_);
  for (size_t i = 0; i < kQuantities; ++i) intervals_[i].AddAll(other.intervals_[i]);
  Append(boundRatios_, other.boundRatios_);
  withoutResult_ += other.withoutResult_;
  analysisS_ += other.analysisS_;
  measuringS_ += other.measuringS_;
}

double MeasureScore::Badness(const MeasuredTrace& trace) {
  constexpr double kFarOff = 4.0;
  if (trace.measured == nullptr) return 10.0 + static_cast<double>(Score::Badness(trace.table));
  const bool fibre = HasFibre(trace.shown);
  if (trace.measured->fibre != fibre) return 10.0;
  if (!fibre) return 0.0;
  auto bad = static_cast<double>(Score::Badness(trace.shown));
  for (const MatchedPair& pair : trace.shown.matching.pairs) {
    const auto& lossDb = trace.measured->events[pair.found].lossDb;
    if (!lossDb) continue;
    const double error = lossDb->value - trace.simulated->truth.events[pair.truth].lossDb;
    bad += std::fabs(error) > kFarOff * lossDb->deviation ? 1.0 : 0.0;
  }
  return bad;
}

nlohmann::ordered_json MeasureScore::Json() const {
  nlohmann::ordered_json json = {
      {"traces", table_.traces},
      {"without_result", withoutResult_},
      {"table", table_.Json()},
      {"measured", shown_.Json()},
      {"loss_variance_over_bound",
       {{"count", boundRatios_.size()},
        {"mean", Mean(boundRatios_)},
        {"inner", InnerVariance(boundRatios_)},
        {"by_median", MagnitudeQuantile(boundRatios_, 0.5) / kMedianOfSquare}}},
      {"measuring_over_analysis", analysisS_ > 0.0 ? measuringS_ / analysisS_ : 0.0}};
  for (size_t i = 0; i < kQuantities; ++i) {
    nlohmann::ordered_json& entry = json["coverage"][kQuantityKeys[i]];
    entry["count"] = intervals_[i].count();
    entry["scale"] = intervals_[i].Scale();
    for (const NominalLevel& level : kNominalLevels) {
      entry["nominal"][std::to_string(level.percent)] = intervals_[i].Coverage(level.percent);
    }
    for (size_t quartile = 0; quartile < 4; ++quartile) {
      entry["quartiles_of_95"].push_back(intervals_[i].QuartileCoverage(95, quartile));
    }
  }
  return json;
}

std::string MeasureScore::CoverageText() const {
  std::string text = Format("  %-18s%6s %6s %6s %6s %6s   %-29s %s\n", "intervals hold, %", "n", "50", "80",
                            "95", "99", "95 by quartile, dark first", "errors over stated");
  for (size_t i = 0; i < kQuantities; ++i) {
    const Intervals& intervals = intervals_[i];
    if (intervals.count() == 0) continue;
    text += Format("    %-16s%6zu", NameOf(static_cast<Quantity>(i)), intervals.count());
    for (const int level : kPrintedLevels) text += Format(" %6.1f", 100.0 * intervals.Coverage(level));
    text += "  ";
    for (size_t quartile = 0; quartile < 4; ++quartile) {
      text += Format(" %6.1f", 100.0 * intervals.QuartileCoverage(95, quartile));
    }
    text += Format("   %.2f\n", intervals.Scale());
  }
  return text;
}

std::string MeasureScore::ErrorText() const {
  const Figures &t = table_, &m = shown_;
  return Line("median / 95 % / bias", "table", "measured", "wanted") +
         ErrorLine("loss dB, 3 pulses from others", t.lossFarDb, m.lossFarDb,
                   "0.003 0.03 0.001; noisy, access 0.005 0.05 0.003") +
         ErrorLine("loss dB, all", t.lossDb, m.lossDb, "0.004 0.08") +
         ErrorLine("place, pulses", t.placePulses, m.placePulses, "0.03 0.2") +
         ErrorLine("reflectance dB, as it is seen", t.reflectanceSeenDb, m.reflectanceSeenDb, "0.1 0.5") +
         ErrorLine("  as it is", t.reflectanceDb, m.reflectanceDb, "");
}

std::string MeasureScore::ShareText() const {
  const Figures &t = table_, &m = shown_;
  constexpr const char* kFound[] = {"splices found", "gains found", "reflections found"};
  constexpr const char* kFoundWanted[] = {"98.5", "97.5", "99.5"};
  std::string text;
  for (size_t kind = 0; kind < kKinds; ++kind) {
    text += ShareLine(kFound[kind], t.clear[kind], m.clear[kind], kFoundWanted[kind]);
  }
  text += ShareLine("ends right", {t.traces, t.endsRight}, {m.traces, m.endsRight}, "99; noisy 92");
  text += ShareLine("exactly right", {t.traces, t.exact}, {m.traces, m.exact}, "92; noisy 75, close 88");
  const auto perTrace = [](const Figures& of) {
    return Format("%.3f", static_cast<double>(of.invented) / static_cast<double>(std::max(of.traces, 1L)));
  };
  text += Line("false events a trace", perTrace(t), perTrace(m), "0.05; noisy 0.15");
  text += ShareLine("no fibre, where there is none", {t.fibreless, t.fibrelessTold},
                    {m.fibreless, m.fibrelessTold}, "99.5");
  return text + ShareLine("no fibre, where there is one", {t.traces - t.fibreless, t.fibreDenied},
                          {m.traces - m.fibreless, m.fibreDenied}, "0");
}

std::string MeasureScore::Text(const std::string& name) const {
  std::string text =
      Format("%-12s %ld traces, without a result %.1f %%, measuring takes %.2f of the analysis\n",
             name.c_str(), table_.traces, Percent(withoutResult_, table_.traces),
             analysisS_ > 0.0 ? measuringS_ / analysisS_ : 0.0);
  text += ErrorText() + ShareText();
  if (!boundRatios_.empty()) {
    text += Format(
        "  loss variance over the bound  %zu: inner 95 %% %.2f, by the median %.2f; wanted 1.5, 5 with "
        "ripple\n",
        boundRatios_.size(), InnerVariance(boundRatios_),
        MagnitudeQuantile(boundRatios_, 0.5) / kMedianOfSquare);
  }
  return text + CoverageText();
}

}  // namespace reflyze::score
