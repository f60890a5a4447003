// SPDX-License-Identifier: Apache-2.0

// Whether the scan stands at an edge, and the guard of the dead zone.
//
// A strong reflection lifts the mean behind it and makes the receiver ring, so its whole tail looks like one
// edge after another. There, a rise has to beat the sample before it and not the mean only, what the receiver
// still falls by is made up for, and a damped oscillation is told from events by its shape.

#include <cmath>

#include "sor/sorData.h"
#include "src/filter/FilterScan.h"
#include "src/filter/Optics.h"

namespace reflyze {

// --- The dead zone ---

AutoFilterScan::Verdict AutoFilterScan::GuardDeadZone(Differences& diff) {
  const bool isInDeadZone = at_ < dead_.end + scales_.pulsePoints && lastEdge_.isFalling();
  if (at_ <= 0 || !(isInDeadZone || at_ < dead_.ringEnd)) return Verdict::kGoOn;
  const double before = Lin(at_ - 1), step = Lin(at_) - before;
  if (!(before > 0.0) || !(step > 0.0 || diff.now > 0.0)) return Verdict::kGoOn;

  const double recovery = RecoveryLin();
  JudgeBySampleBefore(diff, step, recovery);
  if (GuardRinging(diff) == Verdict::kFibreEnded) return Verdict::kFibreEnded;
  DampInDeadZone(diff);
  if (IsSurge(diff, recovery)) edge_ = Edge::Surge();
  return Verdict::kGoOn;
}

// What the sample would have lost by now if nothing had risen: the fall of the receiver over a point.
double AutoFilterScan::RecoveryLin() const {
  constexpr double kKnownFallDb = 0.001;
  if (std::fabs(dead_.fallDb) < kKnownFallDb) return 0.0;
  return Lin(at_) - trace_.ToLin(Db(at_) - dead_.fallDb);
}

void AutoFilterScan::JudgeBySampleBefore(Differences& diff, double step, double recovery) {
  constexpr double kNearEventShare = 0.05;  // of the sample: close behind an event it takes more
  diff.now = std::max(diff.now, step);
  if (diff.now > limits_.rise && events_.closed() > 0 && at_ <= events_.last().rise + scales_.recoverPoints) {
    diff.now -= kNearEventShare * Lin(at_);
  }
  const bool isBetweenPair = at_ > dead_.pairBegin && at_ < dead_.pairEnd;
  if (!isBetweenPair) {
    diff.ahead = std::max(diff.ahead, static_cast<double>(Lin(at_ + 1)) - Lin(at_ - 1));
  }
  diff.now += recovery;
}

// Whether the last event is strong enough, and near enough, for the receiver to ring.
bool AutoFilterScan::MayRing() {
  constexpr long kRingingGrade = 12;
  constexpr long kRingingPeriods = 10;
  if (events_.closed() < 1 || events_.last().Am() + scales_.pulseGrade < kRingingGrade) return false;
  const long behind = at_ - events_.last().end;
  return behind <= kRingingPeriods * filter_.result.ringCount ||
         static_cast<double>(behind) <= scales_.ringReach;
}

// While the receiver rings, no rise counts. Where it rings and the backscatter is gone, the fibre has
// ended.
AutoFilterScan::Verdict AutoFilterScan::GuardRinging(Differences& diff) {
  // A trace asks for a few hundred tests; where the figures of a broken record ask for one at each point, and
  // each looks at much of the trace, this is a second of work.
  constexpr long kMostRingTests = 30000;
  if (!MayRing()) return Verdict::kGoOn;
  if (at_ >= dead_.ringEnd && ++dead_.ringTests <= kMostRingTests) {
    dead_.ringEnd = filter_.ZvonDetect(
        trace_.Held(at_), trace_.Held(scales_.lastPoint), static_cast<float>(scales_.pulsePoints),
        static_cast<int>(scales_.nearPoints), static_cast<float>(limits_.rise));
  }
  if (at_ >= dead_.ringEnd) return Verdict::kGoOn;
  TFEvent& last = events_.last();
  last.tail = std::max(last.tail, trace_.Held(dead_.ringEnd));
  if (events_.isPastFirst() && FibreEndedInRinging()) {
    Note(Choice::kEnd, last.begin, trace_.ToDb(trace_.NearMean(at_)),
         trace_.ToDb(static_cast<float>(kNearNoises * scales_.noiseLin)), "dB",
         "the receiver rings behind it and the backscatter is gone: the scan stops");
    return Verdict::kFibreEnded;
  }
  diff.now = 0.0;
  return Verdict::kGoOn;
}

bool AutoFilterScan::FibreEndedInRinging() {
  constexpr long kEndsHereGrade = 13;      // of the strongest reflection
  constexpr int kEndsIfClippedGrade = 10;  // the last event has to exceed it, at the top of the scale
  const TFEvent& last = events_.last();
  const bool isStrong = strongest_.grade >= kEndsHereGrade ||
                        (last.Am() > kEndsIfClippedGrade && Db(last.peak) > kClipsLevelDb);
  return isStrong && IsNearNoise();
}

// Whether the backscatter has come near the noise.
bool AutoFilterScan::IsNearNoise() const { return trace_.NearMean(at_) < kNearNoises * scales_.noiseLin; }

void AutoFilterScan::DampInDeadZone(Differences& diff) {
  constexpr int kDampingGrade = 5;
  if (Lin(at_ + 2) < Lin(at_)) diff.now /= 2.0;
  if (at_ < dead_.end && diff.now > limits_.rise) {
    if (!events_.isPastFirst()) {
      diff.now /= 2.0;
    } else if (events_.last().Am() > kDampingGrade) {
      diff.now /= events_.last().Am() / kDampingGrade;
    }
  }
  if (events_.closed() > 0 && at_ < events_.last().rise) diff.now = 0.0;
}

// A rise that is beyond doubt even here: well above the noise, and behind an event that is either not strong
// or clearly exceeded.
bool AutoFilterScan::IsSurge(const Differences& diff, double recovery) {
  constexpr double kClearOfNoise = 10.0;
  constexpr int kExceededGrade = 10;  // from here on a surge has to exceed the event
  constexpr int kNoSurgeGrade = 15;   // and from here on none is believed
  constexpr double kRiseDbPerGrade = 0.05;
  constexpr double kMostFallDb = 8.0;
  if (events_.closed() < 1 || !(diff.now > limits_.rise)) return false;
  if (!(2.0 * recovery + diff.ahead > 1.5 * limits_.rise) || !(Lin(at_) > kClearOfNoise * scales_.noiseLin)) {
    return false;
  }
  const TFEvent& last = events_.last();
  const double riseDb = Db(at_ + scales_.pulsePoints / 2) - Db(at_ - 1);
  return (last.Am() < kExceededGrade || riseDb > kRiseDbPerGrade * last.Am()) &&
         Db(last.begin) - Db(last.end) < kMostFallDb && last.Am() < kNoSurgeGrade &&
         (at_ > last.end || diff.now > 3.0 * limits_.rise);
}

// --- Edges ---

void AutoFilterScan::DecideEdge(Differences& diff) {
  if (events_.closed() > 0 && !edge_.isRising() && diff.now > limits_.rise) DampBehindEvent(diff);
  if (edge_.isSurge()) return;
  if (IsRise(diff)) {
    TakeRise(diff);
  } else if (IsFall(diff)) {
    TakeFall(diff);
  } else if (edge_.isPendingFall()) {
    events_.current().rise = trace_.Held(at_);
    edge_.Weaken();
  } else {
    edge_ = Edge::None();
  }
}

// A rise that does not last is damped: behind a trace that has sunk far below its level of a pulse ago it
// is likely noise, and close behind an event it is likely its tail.
void AutoFilterScan::DampBehindEvent(Differences& diff) {
  constexpr double kSunk = 10.0, kRatherNoise = 3.0;
  const TFEvent& last = events_.last();
  if (!(diff.ahead < 2.0 * limits_.strongRise) && !(Lin(last.end) > Lin(at_ + 1))) return;
  const long behind = at_ - last.end, look = scales_.pulsePoints + scales_.farPoints;
  if (behind > look && kSunk * Lin(at_) < Lin(at_ - look)) {
    diff.now /= kRatherNoise;
    diff.ahead /= kRatherNoise;
  }
  if (behind < scales_.farPoints || last.rise + at_ < 2L * last.end) {
    const double share = at_ < dead_.end ? 0.0 : 2.0 / static_cast<double>(strongest_.grade / 5 + 3);
    diff.now *= share;
    diff.ahead *= share;
  }
}

// A sharp rise, one that grows and lasts, or, with a pulse of a single point, a high one.
bool AutoFilterScan::IsRise(const Differences& diff) const {
  if (diff.now > 2.0 * limits_.rise && diff.ahead > 5.0 * limits_.strongRise) return true;
  if (diff.now > limits_.rise && diff.ahead > limits_.strongRise &&
      Above(at_ + scales_.midPoints) > limits_.rise && diff.ahead > diff.now) {
    return true;
  }
  return diff.now > limits_.strongRise && scales_.pulsePoints <= 1;
}

// A rise has to lift the trace over a pulse above what the fibre loses there. Otherwise the edge stays
// what it was.
void AutoFilterScan::TakeRise(const Differences& diff) {
  const long half = scales_.pulsePoints / 2;
  const double lossDb = static_cast<double>(scales_.pulsePoints) * scales_.slopeDb;
  const bool lifts = Db(at_ - half) - lossDb < Db(at_ + half);
  if (lifts || events_.isUntouched() || scales_.pulsePoints > scales_.farPoints ||
      (scales_.pulsePoints > 4 && diff.now > 3.0 * limits_.rise)) {
    edge_ = Edge::Rise();
  }
}

// Whether the trace falls inside an event: below the mean, or below the top but not far below the begin.
// The fall has to lie some way behind the begin; a deep one may be nearer.
bool AutoFilterScan::IsFall(const Differences& diff) {
  if (!lastEdge_.isRising() || !(diff.ahead < limits_.strongFall)) return false;
  const TFEvent& event = events_.current();
  const double pulse = static_cast<double>(scales_.pulsePoints);
  const double least =
      static_cast<double>(scales_.pulsePoints / 2) + pulse * limits_.strongFall / 2.0 / diff.ahead;
  if (static_cast<double>(at_ - event.begin) < least) return false;
  const double lin = Lin(at_);
  return diff.now < limits_.fall ||
         (lin - Lin(top_) < limits_.fall && lin - Lin(event.begin) > 1.5 * limits_.strongFall);
}

// A fall counts once the samples ahead confirm it, and for certain where the reflection was expected to fall.
// The end of a strong reflection is not looked for within the pulse, unless there are ghosts.
void AutoFilterScan::TakeFall(const Differences& diff) {
  constexpr double kAtNoise = 1.5;
  constexpr int kLastsAPulseGrade = 9;  // a stronger event lasts a pulse at least
  const TFEvent& event = events_.current();
  const long inside = at_ - event.begin;
  if (edge_.isNone() && Lin(at_) < kAtNoise * scales_.noiseLin && inside < scales_.pulsePoints - 1) {
    limits_.strongFall *= 2.0;
  }
  if (at_ == secondFallAt_) {
    edge_ = Edge::Fall();
    return;
  }
  if (!(diff.now < 0.0) || !FallGoesOn()) return;
  if (edge_.isFalling()) {
    edge_.ConfirmFall();
  } else if (strongest_.ghosts != 0 || inside > scales_.pulsePoints - 1 ||
             event.gradeUp <= kLastsAPulseGrade) {
    edge_ = Edge::Fall();
  }
}

// Whether the samples in all windows ahead stay fallen, or have risen again by far.
bool AutoFilterScan::FallGoesOn() const {
  const auto agrees = [this](long ahead, double fall) {
    const double lin = Above(at_ + ahead);
    return lin < fall || lin > limits_.strongRise;
  };
  return Above(at_ + scales_.midPoints) < limits_.strongFall &&
         agrees(2 * scales_.nearPoints, limits_.strongFall) && agrees(2 * scales_.midPoints, limits_.fall) &&
         agrees(scales_.farPoints, limits_.fall);
}

}  // namespace reflyze
