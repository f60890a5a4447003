// SPDX-License-Identifier: Apache-2.0
#include "score/MergeScore.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "lib/AnalysedRecord.h"
#include "lib/Text.h"
#include "ref/events/refEventBiDir.h"
#include "ref/math/ref_Math.h"
#include "score/EventMatching.h"
#include "score/Statistics.h"

namespace reflyze::score {
namespace {

constexpr double kRightDb = 0.02;
constexpr double kClearSnrDb = 6.0;
constexpr double kClearPulses = 2.0, kRoomPulses = 5.0;
constexpr double kChangeOfFibreDb = 0.1;

double PercentOrAll(long part, long whole) {
  return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 100.0;
}

bool HasNeighbour(const TwoWays& ways, size_t joint, double withinPulses) {
  const auto near = [&](size_t other) {
    return std::fabs(ways.FromA(other).distanceKm - ways.FromA(joint).distanceKm) <
           withinPulses * ways.pulseKm;
  };
  return near(joint - 1) || near(joint + 1);
}

bool IsClear(const TwoWays& ways, size_t joint) {
  const sim::TrueEvent &fromA = ways.FromA(joint), &fromB = ways.FromB(joint);
  if (!IsFair(fromA) && !IsFair(fromB)) return false;
  if (std::min(fromA.snrDb, fromB.snrDb) < kClearSnrDb) return false;
  return !HasNeighbour(ways, joint, kClearPulses);
}

bool AreMirrored(const TwoWays& ways) {
  const TSorBlockKeyEvents &a = *ways.a.record->KeyEvents, &b = *ways.b.record->KeyEvents;
  const int count = a.ListedEvents();
  if (b.ListedEvents() != count) return false;
  const double toleranceOwt = ways.a.record->dLenToOwt(ways.ToleranceKm());
  for (int i = 0; i < count; ++i) {
    const double endOwt = a.EventAt(count - 1).EPT;
    if (std::fabs(a.EventAt(i).EPT + static_cast<double>(b.EventAt(count - 1 - i).EPT) - endOwt) >
        toleranceOwt)
      return false;
  }
  return true;
}

bool EndIsOff(const TSorData& record, const sim::Truth& truth, double toleranceKm) {
  const std::vector<FoundEvent> found = FoundEvents(record);
  return found.empty() || std::fabs(found.back().distanceKm - truth.events.back().distanceKm) > toleranceKm;
}

// Whether a joint other than that of the event lies within its sections.
bool HoldsOtherJoint(const sim::SimulatedTrace& trace, const TSorBlockKeyEvents1E& event, size_t own) {
  constexpr double kLeastStepDb = 0.005, kLeastPeakDb = 0.05;
  const double fromKm = trace.record->OwtToLen(event.ML0), toKm = trace.record->OwtToLen(event.ML3);
  const auto& joints = trace.truth.events;
  for (size_t i = 1; i + 1 < joints.size(); ++i) {
    if (i == own || joints[i].distanceKm <= fromKm || joints[i].distanceKm >= toKm) continue;
    if (std::fabs(joints[i].lossDb) >= kLeastStepDb || joints[i].peakDb >= kLeastPeakDb) return true;
  }
  return false;
}

// What the measurement of an event accepts as fibre. In place of anything else it puts usual fibre.
constexpr double kShortKm = 0.5, kLeastDbPerKm = 0.17, kMostDbPerKm = 0.3;

bool HasShortSection(const TSorData& record, const TSorBlockKeyEvents1E& event) {
  return std::min(event.ML1 - event.ML0, event.ML3 - event.ML2) < record.dLenToOwt(kShortKm);
}

bool TakesSectionsAsMeasured(TSorData& record, const TSorBlockKeyEvents1E& event) {
  const auto isFibre = [&](double fromOwt, double toOwt) {
    double slope = 0.0, intercept = 0.0;
    RefMathLSL(&record, fromOwt, toOwt, slope, intercept, 1.0);
    const double dbPerKm = -slope * record.dLenToOwt(1.0);
    return dbPerKm >= kLeastDbPerKm && dbPerKm <= kMostDbPerKm;
  };
  return !HasShortSection(record, event) && isFibre(event.ML0, event.ML1) && isFibre(event.ML2, event.ML3);
}

LossCause CauseOf(TwoWays& ways, TwoWays& clean, size_t joint, const TSorBlockKeyEvents1E& inA,
                  const TSorBlockKeyEvents1E& inB) {
  const double trueDb = ways.FromA(joint).insertionLossDb;
  const auto linesAreRight = [&](TwoWays& both) {
    const auto lossA = LossByLines(*both.a.record, inA), lossB = LossByLines(*both.b.record, inB);
    return lossA && lossB && std::fabs((*lossA + *lossB) / 2.0 - trueDb) <= kRightDb;
  };
  if (linesAreRight(ways)) {
    const bool isShort = HasShortSection(*ways.a.record, inA) || HasShortSection(*ways.b.record, inB);
    return isShort ? LossCause::kShortSection : LossCause::kSlopeNotBelieved;
  }
  if (linesAreRight(clean)) return LossCause::kNoise;
  const size_t last = ways.a.truth.events.size() - 1;
  const bool others = HoldsOtherJoint(ways.a, inA, joint) || HoldsOtherJoint(ways.b, inB, last - joint);
  if (others) return LossCause::kOtherJoint;
  return HasNeighbour(ways, joint, kRoomPulses) ? LossCause::kNoRoom : LossCause::kSections;
}

}  // namespace

void MeanLosses::AddAll(const MeanLosses& other) {
  errorDb.insert(errorDb.end(), other.errorDb.begin(), other.errorDb.end());
  for (size_t i = 0; i < kLossCauses; ++i) causes[i] += other.causes[i];
}

std::string MeanLosses::Text(const char* what) const {
  const auto right = std::count_if(errorDb.begin(), errorDb.end(),
                                   [](double error) { return std::fabs(error) <= kRightDb; });
  const auto count = static_cast<long>(errorDb.size());
  if (count == 0) return "";
  return Format(
      "  %-16s %4ld   within 0.02 dB %5.1f %%   median %.4f, 95 %% %.4f dB   off: slope %ld, short %ld, "
      "noise %ld, other joint %ld, no room %ld, sections %ld\n",
      what, count, PercentOrAll(right, count), MagnitudeQuantile(errorDb, 0.5),
      MagnitudeQuantile(errorDb, 0.95), causes[0], causes[1], causes[2], causes[3], causes[4], causes[5]);
}

MergeScore::JointOfEvent MergeScore::JointsOf(const TSorData& record, const sim::Truth& truth,
                                              double toleranceKm) {
  JointOfEvent joints;
  const Matching matching = Match(truth, FoundEvents(record), toleranceKm);
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) joints[&record.KeyEvents->EventAt(i)] = 0;
  for (const MatchedPair& pair : matching.pairs) {
    joints[&record.KeyEvents->EventAt(static_cast<long>(pair.found))] = pair.truth;
  }
  return joints;
}

void MergeScore::CountTables(const TwoWays& ways, const JointOfEvent& ownA, const JointOfEvent& ownB) {
  std::set<size_t> inA, inB;
  for (const auto& [event, joint] : ownA) inA.insert(joint);
  for (const auto& [event, joint] : ownB) inB.insert(joint);
  const auto falseEvents = [](const JointOfEvent& own) {  // without launch and end
    return std::count_if(own.begin(), own.end(), [](const auto& entry) { return entry.second == 0; }) - 2;
  };
  ownFalse_ += falseEvents(ownA) + falseEvents(ownB);
  for (size_t joint = 1; joint + 1 < ways.a.truth.events.size(); ++joint) {
    if (!IsClear(ways, joint)) continue;
    ++joints_;
    const bool byA = inA.count(joint) > 0, byB = inB.count(joint) > 0;
    inBoth_ += byA && byB ? 1 : 0;
    inOne_ += byA != byB ? 1 : 0;
  }
}

void MergeScore::CountRow(TwoWays& ways, TwoWays& clean, int row, size_t joint, bool seenByBoth) {
  const TSorBlockKeyEvents &a = *ways.a.record->KeyEvents, &b = *ways.b.record->KeyEvents;
  const TSorBlockKeyEvents1E &inA = a.EventAt(row), &inB = b.EventAt(b.ListedEvents() - 1 - row);
  ++merged_;
  const double errorDb = inA.GetEL() - ways.FromA(joint).insertionLossDb;
  MeanLosses one;
  one.errorDb.push_back(errorDb);
  if (std::fabs(errorDb) > kRightDb) ++one.causes[static_cast<size_t>(CauseOf(ways, clean, joint, inA, inB))];
  (seenByBoth ? seenByBoth_ : seenByOne_).AddAll(one);
  if (!seenByBoth) return;
  if (TakesSectionsAsMeasured(*ways.a.record, inA) && TakesSectionsAsMeasured(*ways.b.record, inB)) {
    believed_.AddAll(one);
  }
  if (std::fabs(ways.FromA(joint).lossDb - ways.FromB(joint).lossDb) >= 2.0 * kChangeOfFibreDb) {
    changesOfFibre_.AddAll(one);
  }
}

void MergeScore::Add(TwoWays& ways) {
  TSorData &a = *ways.a.record, &b = *ways.b.record;
  const size_t last = ways.a.truth.events.size() - 1;
  const JointOfEvent ownA = JointsOf(a, ways.a.truth, ways.ToleranceKm());
  const JointOfEvent ownB = [&] {
    JointOfEvent joints = JointsOf(b, ways.b.truth, ways.ToleranceKm());
    for (auto& [event, joint] : joints) joint = joint == 0 ? 0 : last - joint;
    return joints;
  }();
  ++pairs_;
  const double endToleranceKm = ways.spacingKm + 0.1 * ways.pulseKm;
  const bool endWrong =
      EndIsOff(a, ways.a.truth, endToleranceKm) || EndIsOff(b, ways.b.truth, endToleranceKm);
  {
    const UnmeasuredReflectances unmeasuredA(a), unmeasuredB(b);
    if (MatchBiDir(&a, &b) != 0) {
      ++refused_;
      endsWrong_ += endWrong ? 1 : 0;
      return;
    }
  }
  AverageBiDir(&a, &b);
  CountTables(ways, ownA, ownB);
  mirrored_ += AreMirrored(ways) ? 1 : 0;
  constexpr double kNoNoiseDb = -200.0;
  sim::Link quiet = ways.link;
  quiet.receiver.noiseDb = kNoNoiseDb;
  TwoWays clean = MeasureBothWays(quiet, 1);
  std::set<size_t> listed;
  const int lastA = a.KeyEvents->ListedEvents() - 1, lastB = b.KeyEvents->ListedEvents() - 1;
  for (int i = 1; i < lastA && i < lastB; ++i) {
    const auto inA = ownA.find(&a.KeyEvents->EventAt(i)), inB = ownB.find(&b.KeyEvents->EventAt(lastB - i));
    const bool seenByA = inA != ownA.end(), seenByB = inB != ownB.end();
    const size_t jointA = seenByA ? inA->second : 0, jointB = seenByB ? inB->second : 0;
    const size_t joint = jointA != 0 ? jointA : jointB;
    if (joint == 0) ++rowsFalse_;
    if (joint == 0) continue;
    if (jointA != 0 && jointB != 0 && jointA != jointB) ++rowsMixed_;
    const bool first = listed.insert(joint).second;
    if (!first) ++rowsTwice_;
    if (first && IsClear(ways, joint)) CountRow(ways, clean, i, joint, seenByA && seenByB);
  }
}

void MergeScore::AddAll(const MergeScore& other) {
  pairs_ += other.pairs_;
  refused_ += other.refused_;
  endsWrong_ += other.endsWrong_;
  mirrored_ += other.mirrored_;
  ownFalse_ += other.ownFalse_;
  rowsFalse_ += other.rowsFalse_;
  rowsTwice_ += other.rowsTwice_;
  rowsMixed_ += other.rowsMixed_;
  joints_ += other.joints_;
  inBoth_ += other.inBoth_;
  inOne_ += other.inOne_;
  merged_ += other.merged_;
  seenByBoth_.AddAll(other.seenByBoth_);
  seenByOne_.AddAll(other.seenByOne_);
  changesOfFibre_.AddAll(other.changesOfFibre_);
  believed_.AddAll(other.believed_);
}

std::string MergeScore::Text(const std::string& name) const {
  if (pairs_ == 0) return "";
  std::string text = Format(
      "%-22s %3ld pairs   refused %ld (end wrong %ld)   mirrored %ld   false before %ld, after %ld   twice "
      "%ld   "
      "mixed %ld\n",
      name.c_str(), pairs_, refused_, endsWrong_, mirrored_, ownFalse_, rowsFalse_, rowsTwice_, rowsMixed_);
  text +=
      Format("  clear joints %ld   listed by both %.1f %%, by one %.1f %%   merged %.1f %%\n", joints_,
             PercentOrAll(inBoth_, joints_), PercentOrAll(inOne_, joints_), PercentOrAll(merged_, joints_));
  text += seenByBoth_.Text("seen from both") + seenByOne_.Text("taken over");
  return text + changesOfFibre_.Text("changes of fibre") + believed_.Text("believed");
}

}  // namespace reflyze::score
