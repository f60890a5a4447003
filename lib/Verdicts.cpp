// SPDX-License-Identifier: Apache-2.0
#include "lib/Verdicts.h"

#include <algorithm>
#include <cstdlib>

#include "lib/Text.h"

namespace reflyze {
namespace {

constexpr double kDeviationsOf95 = 1.96;  // 95 % of a normal distribution

double Printed(double value, int decimals) {
  return std::strtod(Format("%.*f", decimals, value).c_str(), nullptr);
}

// The limit of the narrowest band that holds the wavelength.
const Limit* BandFor(const std::vector<BandLimit>& bands, double nm) {
  const BandLimit* best = nullptr;
  for (const BandLimit& band : bands) {
    if (nm < band.fromNm || nm > band.toNm) continue;
    if (best == nullptr || band.toNm - band.fromNm < best->toNm - best->fromNm) best = &band;
  }
  return best == nullptr ? nullptr : &best->limit;
}

class LinkJudge {
 public:
  LinkJudge(const std::vector<JudgedJoint>& joints, const JudgedTotals& totals, size_t first, size_t last)
      : joints_(joints), totals_(totals), first_(first), last_(std::min(last, joints.size() - 1)) {}

  LinkVerdict Judged() {
    told_.events.resize(joints_.size());
    for (size_t i = first_; i <= last_; ++i) {
      if (i > first_) JudgeSection(i);
      if (joints_[i].joint) JudgeJoint(i);
    }
    JudgeTotals();
    return std::move(told_);
  }

 private:
  // Keeps a verdict, and says what is no pass.
  Verdict Keep(Verdict verdict, const std::string& what, double value, int decimals, const char* unit,
               const Limit& limit) {
    told_.verdict = std::max(told_.verdict, verdict);
    if (verdict > Verdict::kPass) {
      const double held = verdict == Verdict::kWarning ? *limit.warning : *limit.fail;
      told_.sentences.push_back(what + Format(" %.*f %s, limit %.*f: %s", decimals,
                                              NoMinusZero(value, decimals), unit, decimals, held,
                                              WordOf(verdict)));
    }
    return verdict;
  }
  Verdict Take(std::optional<double> value, std::optional<double> sd, const Limit& limit, int decimals,
               const std::string& what, const char* unit, bool atMost = true) {
    return Keep(Judge(value, sd, limit, decimals, atMost), what, value.value_or(0.0), decimals, unit, limit);
  }

  void JudgeSection(size_t i) {
    const Limit* own = BandFor(totals_.limits->attenuationDbPerKm, totals_.wavelengthNm);
    told_.events[i].attenuation = Take(joints_[i].attenuation, joints_[i].attenuationSd,
                                       own != nullptr ? *own : totals_.limits->sectionDbPerKm, kLossDecimals,
                                       Format("event %zu: section", i + 1), "dB/km");
  }

  const Limit& LossLimit(const JudgedJoint& joint) const {
    return joint.reflects ? joint.limits->connectorDb : joint.limits->spliceDb;
  }

  void JudgeJoint(size_t i) {
    const JudgedJoint& joint = joints_[i];
    EventVerdict& verdict = told_.events[i];
    const std::string event = Format("event %zu: ", i + 1);
    if (!joint.lossDb) {
      JudgeGroup(i);
    } else {
      verdict.loss =
          Take(joint.lossDb, joint.lossSdDb, LossLimit(joint), kLossDecimals, event + "loss", "dB");
    }
    const Limit& limit = joint.limits->reflectanceDb;
    Verdict reflects = Judge(joint.reflectanceDb, joint.reflectanceSdDb, limit, kReflectanceDecimals);
    // What is at least so much may be any more.
    if (joint.atLeast && limit.fail && reflects != Verdict::kNone)
      reflects = std::max(reflects, Verdict::kMarginal);
    verdict.reflectance = Keep(reflects, event + "reflectance", joint.reflectanceDb.value_or(0.0),
                               kReflectanceDecimals, "dB", limit);
  }

  // Events in a row whose losses are known as a sum alone, seen at the first of them.
  void JudgeGroup(size_t i) {
    if (told_.events[i].group > 0) return;
    size_t end = i + 1;
    while (end <= last_ && (joints_[end].echo || (joints_[end].joint && !joints_[end].lossDb))) ++end;
    while (joints_[end - 1].echo) --end;
    ++groups_;
    const std::optional<double> sum = SumOf(i, end - 1);
    Limit limit{0.0, 0.0};
    for (size_t k = i; k < end; ++k) {
      if (joints_[k].echo) continue;
      const Limit& own = LossLimit(joints_[k]);
      limit.fail = limit.fail && own.fail ? std::optional<double>(*limit.fail + *own.fail) : std::nullopt;
      limit.warning =
          limit.warning && own.warning ? std::optional<double>(*limit.warning + *own.warning) : std::nullopt;
    }
    const Verdict verdict = Take(sum, std::nullopt, limit, kLossDecimals,
                                 Format("events %zu to %zu: sum of losses", i + 1, end), "dB");
    for (size_t k = i; k < end; ++k) {
      if (joints_[k].echo) continue;
      EventVerdict& part = told_.events[k];
      part.loss = verdict;
      part.group = groups_;
      part.groupLossDb = sum;
      part.groupLimitDb = limit.fail;
    }
  }

  // What is lost from before one event to behind another, less the sections between them: those are short,
  // and where they could not be measured they lose what the section before the first does.
  std::optional<double> SumOf(size_t from, size_t to) const {
    if (from == 0 || !joints_[from - 1].cumulatedDb || !joints_[to].cumulatedDb) return std::nullopt;
    double sum = *joints_[to].cumulatedDb - *joints_[from - 1].cumulatedDb;
    const std::optional<double> slope = joints_[from].attenuation;
    for (size_t k = from; k <= to; ++k) {
      const std::optional<double> own = joints_[k].attenuation ? joints_[k].attenuation : slope;
      if (!own) return std::nullopt;
      sum -= *own * (joints_[k].km - joints_[k - 1].km);
    }
    return sum;
  }

  void JudgeTotals() {
    const LimitSet& limits = *totals_.limits;
    const Verdict longest =
        Take(totals_.lengthKm, std::nullopt, limits.lengthKm, kLengthDecimals, "length", "km");
    told_.length = std::max(longest, Take(totals_.lengthKm, std::nullopt, limits.leastLengthKm,
                                          kLengthDecimals, "length", "km", false));
    told_.spanLoss =
        Take(totals_.lossDb, totals_.lossSdDb, limits.spanLossDb, kLossDecimals, "span loss", "dB");
    told_.returnLoss = Take(totals_.returnLossDb, std::nullopt, limits.returnLossDb, kReflectanceDecimals,
                            "return loss", "dB", false);
    const Limit* mean = BandFor(limits.linkDbPerKm, totals_.wavelengthNm);
    if (mean == nullptr || !totals_.lossDb || !totals_.lengthKm || !(*totals_.lengthKm > 0.0)) return;
    const double length = *totals_.lengthKm;
    const std::optional<double> sd =
        totals_.lossSdDb ? std::optional<double>(*totals_.lossSdDb / length) : std::nullopt;
    told_.linkAttenuation =
        Take(*totals_.lossDb / length, sd, *mean, kLossDecimals, "loss over length", "dB/km");
  }

  const std::vector<JudgedJoint>& joints_;
  const JudgedTotals& totals_;
  const size_t first_, last_;
  int groups_ = 0;
  LinkVerdict told_;
};

}  // namespace

const char* WordOf(Verdict verdict) {
  constexpr const char* kWords[] = {"", "pass", "warning", "marginal", "fail"};
  return kWords[static_cast<int>(verdict)];
}

bool ReflectsBy(const std::string& code) { return !code.empty() && code[0] != '0'; }

Verdict Judge(std::optional<double> value, std::optional<double> deviation, const Limit& limit, int decimals,
              bool atMost) {
  if (!value || (!limit.fail && !limit.warning)) return Verdict::kNone;
  const double shown = Printed(*value, decimals), sign = atMost ? 1.0 : -1.0;
  const auto beyond = [&](std::optional<double> bound, double number) {
    return bound && sign * number > sign * *bound;
  };
  if (beyond(limit.fail, shown)) return Verdict::kFail;
  if (deviation && beyond(limit.fail, *value + sign * kDeviationsOf95 * *deviation))
    return Verdict::kMarginal;
  return beyond(limit.warning, shown) ? Verdict::kWarning : Verdict::kPass;
}

LinkVerdict JudgeJoints(const std::vector<JudgedJoint>& joints, const JudgedTotals& totals, size_t first,
                        size_t last) {
  if (joints.empty()) return {};
  return LinkJudge(joints, totals, std::min(first, joints.size() - 1), last).Judged();
}

LinkVerdict Judge(const EventTable& table, const Limits& limits, size_t first, size_t last) {
  std::vector<JudgedJoint> joints;
  for (size_t i = 0; i < table.events.size(); ++i) {
    const Event& event = table.events[i];
    JudgedJoint joint;
    joint.km = event.distanceKm;
    joint.echo = event.type == "echo";
    joint.joint = !joint.echo && i > 0 && i + 1 < table.events.size();
    joint.reflects = ReflectsBy(event.code);
    joint.lossDb = event.lossDb;
    joint.lossSdDb = event.lossSdDb;
    joint.reflectanceDb = event.reflectanceDb;
    joint.reflectanceSdDb = event.reflectanceSdDb;
    joint.atLeast = event.reflectanceAtLeast;
    joint.attenuation = event.attenuationDbPerKm;
    joint.attenuationSd = event.attenuationSdDbPerKm;
    joint.cumulatedDb = event.cumulatedDb;
    joint.limits = &limits.oneWay;
    joints.push_back(joint);
  }
  const JudgedTotals totals = {table.wavelengthNm,  table.lengthKm,     table.totalLossDb,
                               table.totalLossSdDb, table.returnLossDb, &limits.oneWay};
  return JudgeJoints(joints, totals, first, last);
}

LinkVerdict Judge(const MergedLink& link, const Limits& limits) {
  const MergedTable& table = link.table;
  const bool startsReel = link.spanA && link.spanA->launchFound,
             endsReel = link.spanA && link.spanA->receiveFound;
  std::vector<JudgedJoint> joints;
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const MergedEvent& row = table.rows[i];
    JudgedJoint joint;
    joint.km = row.distanceKm;
    joint.joint = (i > 0 || startsReel) && (i + 1 < table.rows.size() || endsReel);
    joint.reflects = ReflectsBy(row.a.code) || ReflectsBy(row.b.code);
    joint.limits = row.meanLossDb ? &limits.meanOfTwo : &limits.oneWay;
    const DirectionOfEvent& alone = row.a.lossDb ? row.a : row.b;
    joint.lossDb = row.meanLossDb ? row.meanLossDb : alone.lossDb;
    joint.lossSdDb = row.meanLossDb ? row.meanLossSdDb : alone.lossSdDb;
    joint.attenuation = row.attenuationDbPerKm;
    joint.attenuationSd = row.attenuationSdDbPerKm;
    joint.reflectanceDb = row.a.reflectanceDb;
    if (row.b.reflectanceDb && (!joint.reflectanceDb || *row.b.reflectanceDb > *joint.reflectanceDb))
      joint.reflectanceDb = row.b.reflectanceDb;
    joints.push_back(joint);
  }
  const JudgedTotals totals = {link.wavelengthNm, table.lengthKm,    link.lossDb,
                               link.lossSdDb,     link.returnLossDb, &limits.meanOfTwo};
  return JudgeJoints(joints, totals, 0, joints.size());
}

}  // namespace reflyze
