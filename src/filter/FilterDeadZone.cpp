// SPDX-License-Identifier: Apache-2.0

// What the trace does behind the top of an event: how far it falls, and where the dead zone ends, in which
// the receiver still answers the event and nothing can be seen of the fibre.
//
// A receiver falls by a fixed rate in dB, so a fall of so many dB takes so many points, and the fibre shows
// again where the trace has slowed down to the rate of a fibre. Overload changes that: a saturated receiver
// needs twice as long, and a strong event leaves a tail above the backscatter, or an undershoot below it with
// a slow recovery.

#include <algorithm>
#include <cmath>
#include <limits>

#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "src/filter/Filter.h"
#include "src/filter/LinearTrace.h"
#include "src/filter/Optics.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::LinearTrace;
using reflyze::TruncToLong;

namespace {

// A ratio that is not positive has no logarithm: the smallest positive one stands for it.
double Log(double ratio) { return elementary::Log(ratio > 0.0 ? ratio : std::numeric_limits<double>::min()); }

// Natural logarithm of the ratio by which a level falls. A fall to nothing, or below, is as deep as one can
// be.
double LogOfFall(double fromLin, double toLin) { return toLin > 0.0 ? Log(fromLin / toLin) : -Log(0.0); }

}  // namespace

// Near the noise a sharp difference counts as much as the level behind; far above it, the trace is looked at
// where the receiver's exponential fall, which may still be under way, has come down.
long TSorFilter::FallAnalisys(long begin, long from, long to, long pw, long w, float T) const {
  constexpr long kShortestStretch = 5;
  constexpr long kNarrow = 6;          // points of pulse and window: below, single samples have to do
  constexpr double kNearLimits = 4.0;  // times the limit: nearer to the noise than that
  constexpr double kUnderWay = 3.0;    // ratio to the level behind from which the fall can't be over
  const LinearTrace lin(Linf, HeldLinf().count());
  if (lin.empty() || to - from < kShortestStretch) return 0;

  const long pulse = lin.Width(pw), window = lin.Width(w);
  const long last = std::min(to, lin.count()) - 1;
  const bool isNarrow = pulse + window < kNarrow;
  const double topLin = isNarrow ? lin[from] : lin.MeanOfTwo(from - 1);
  long foot = std::max(begin + pulse, from) + window + 1;
  double heightLin = 0.0;
  if (kNearLimits * T > topLin) {
    const long start = std::max(from, 0L), end = std::min(foot + 1, lin.count());
    long at = 0;
    heightLin = RefAutoSearchMaxLinFall(Linf, start, end, window, 1, 0.0F, at);
    heightLin = std::max(heightLin, topLin - lin.Mean(from + 1, isNarrow ? 2 : 4));
  } else {
    const double leftLin = lin[foot] + T;
    if (topLin / kUnderWay > leftLin) {
      const long further = TruncToLong(static_cast<double>(window) * LogOfFall(topLin, leftLin));
      foot += std::min(further, lin.count());
    }
    foot = std::min(foot, last);
    heightLin = topLin - (window < 2 ? lin[foot] : lin.MeanOfTwo(foot));
  }
  return heightLin > T ? -reflyze::GradeOfHeight(heightLin, T) : 0;
}

namespace {

// The search for the end of the dead zone of one event.
class DeadZone {
 public:
  DeadZone(const TSorFilter& filter, TSorData& sor, TFEvent& event, long limit)
      : filter_(filter),
        sor_(sor),
        levels_(&sor),
        lin_(filter.Linf, filter.HeldLinf().count()),
        event_(event),
        lastPoint_(std::max(levels_.points() - 1, 0L)),
        limit_(AsPoint(limit)),
        rise_(AsPoint(event.rise)),
        riseDb_(Db(rise_)),
        furthest_(2 * limit_ - rise_),
        isLaunch_(event.begin <= TruncToLong(std::ceil(sor.OwtTofNum(0.0))) + filter.pulsePoints + 2),
        strength_(event.Am()),
        peakDb_(Db(event.peak)),
        limitDb_(Db(limit_)) {}

  // The point of half the height; the event gets its end.
  long Run() {
    PassOverload();
    MoveToHigherPeak();
    SetScales();
    if (IsPulseShort()) {
      const long half = EndWhereFibreShows();
      if (half >= 0) return half;
    }
    return EndOfFall();
  }

 private:
  static constexpr long kSmallGrade = 5;  // a weaker event is over with the receiver's first fall

  double Db(long point) const { return levels_[point]; }
  long AsPoint(long point) const { return std::clamp(point, 0L, lastPoint_); }
  double FibreDb() const { return filter_.dbOnDS; }
  // Points that the receiver needs for a fall, before truncation.
  double ReceiverPoints(double db) const {
    return db / static_cast<double>(filter_.dbOnOwt) / static_cast<double>(filter_.owtDS);
  }
  void SetEnd(long point) { event_.end = static_cast<int>(AsPoint(point)); }
  long FirstBelow(long from, double db) const {
    return RefAutoSearchStraightLess(&sor_, from, static_cast<float>(db));
  }
  // First stretch over `base` points that falls by the fibre's rate to `mostDb` a point; -1 for none.
  long FibreFrom(long from, long base, double mostDb) const {
    return RefAutoSearchStraightLoss2(&sor_, from, limit_, base, static_cast<float>(mostDb), filter_.dbOnDS,
                                      0);
  }

  void PassOverload();
  void MoveToHigherPeak();
  void SetScales();
  bool IsPulseShort() const;
  long EndWhereFibreShows();
  long ExpectedEnd();
  long EndOfSlowFall(long& end, double steepDb);
  long EndOfFall();
  void PassUndershoot();
  long EndBehind(long half);

  const TSorFilter& filter_;
  TSorData& sor_;
  const reflyze::TraceLevels levels_;
  const LinearTrace lin_;
  TFEvent& event_;
  const long lastPoint_;
  long limit_;           // the dead zone ends before
  long rise_;            // where the rise is over, later where the fall begins
  double riseDb_;        // level there; of several equal maxima, theirs and not that of the middle between
  const long furthest_;  // to which the limit may be moved
  const bool isLaunch_;
  long strength_;
  const double peakDb_;
  double limitDb_;
  bool isSaturated_ = false;
  bool isSmallLaunch_ = false;
  long base_ = 0;      // points over which a rate is taken
  long fullBase_ = 0;  // the same before it was shortened
  long lowest_ = 0;
  double lowestDb_ = 0.0;
};

// The tail of an overload stands above the backscatter that is to be expected there.
void DeadZone::PassOverload() {
  constexpr long kOverload = 14;
  if (strength_ <= kOverload) return;
  const double startDb = sor_.QRTParams->begLevel / -100.0;  // stored as a loss, in 0.01 dB
  const double expectedDb = std::max(
      startDb - static_cast<double>(RefAutoGetLoss(&sor_)) * sor_.NumToALen(rise_), Db(event_.begin - 1));
  while (limit_ < lastPoint_ && limit_ < furthest_ && Db(limit_) > expectedDb) ++limit_;
}

// What stands higher than the event's own peak belongs to the next one.
void DeadZone::MoveToHigherPeak() {
  if (!(peakDb_ < limitDb_)) return;
  long higher = rise_;
  while (higher < limit_ && !(Db(higher) > peakDb_)) ++higher;
  limit_ = AsPoint(RefAutoOtkatEnd(&sor_, higher, rise_ + 1, 0.0));
  limitDb_ = Db(limit_);
}

void DeadZone::SetScales() {
  constexpr double kBaseDb = 2.5;             // fall of the receiver
  constexpr double kSmallLaunchFallDb = 2.5;  // behind a launch that falls less, the fibre shows early
  constexpr double kLaunchGradeDb = 1.5;      // fall that makes a grade
  isSaturated_ = !(peakDb_ < sor_.GetMaxLevel() - reflyze::kMayClipNearTopDb);
  base_ = std::min(TruncToLong(ReceiverPoints(kBaseDb) + 1.0), lastPoint_);
  if (base_ < 2) base_ = 3;
  if (isSaturated_) base_ *= 2;
  fullBase_ = base_;
  if (!isLaunch_) return;
  const double fallDb = peakDb_ - Db(rise_ + 2 * base_);
  if (!(fallDb < kSmallLaunchFallDb)) return;
  isSmallLaunch_ = true;
  strength_ = TruncToLong(std::ceil(fallDb / kLaunchGradeDb));
}

// Whether the pulse is short against the receiver's fall. A long one fills the dead zone itself.
bool DeadZone::IsPulseShort() const {
  return limit_ - rise_ > 4 * base_ && (filter_.pulsePoints <= 3 * base_ || isSmallLaunch_);
}

// Where the receiver should have finished its fall. While the trace stands above the level in front of the
// event, it has not.
long DeadZone::ExpectedEnd() {
  constexpr long kLastingGrade = 15;
  constexpr double kGradeDb = 1.5;  // a doubling in linear power
  const long run = AsPoint(rise_ + (isSaturated_ ? strength_ * base_ : strength_ * base_ / 2));
  if (strength_ < kLastingGrade && !isSaturated_ && run < limit_) limitDb_ = Db(run);
  const double fallDb = std::min(peakDb_ - limitDb_, kGradeDb * static_cast<double>(strength_));
  long points = std::clamp(TruncToLong(ReceiverPoints(fallDb) + 0.5), -lastPoint_, lastPoint_);
  if (isSaturated_) points *= 2;
  if (strength_ < kSmallGrade && points < base_) points = base_;
  long end = AsPoint(std::min(limit_, rise_ + points + 1));
  while (!isLaunch_ && end < lastPoint_ && end < furthest_ && Db(event_.begin - 1) < Db(end)) ++end;
  return end;
}

// Behind the steepest part of the fall, the fibre begins where the trace falls by no more than its rate and a
// share of the steepest. -1 where it doesn't show.
long DeadZone::EndWhereFibreShows() {
  long end = ExpectedEnd();
  if (end - rise_ <= base_ && base_ > 3 && strength_ < kSmallGrade) {
    base_ /= 2;
    end = AsPoint(end + base_);
  }
  if (end - rise_ <= base_) return -1;

  long steepest = 0;
  RefAutoSearchMaxFall(&sor_, rise_, end, base_, steepest);
  const double base = static_cast<double>(base_);
  const double steepDb = std::max((Db(steepest) - Db(steepest + base_)) / base, FibreDb());
  end = FibreFrom(steepest, base_, FibreDb() + steepDb / 10);
  if (end <= 0) return -1;

  const long settled = strength_ < kSmallGrade ? end + base_ : EndOfSlowFall(end, steepDb);
  const double halfDb = (Db(end + base_) + peakDb_) / 2;
  SetEnd(settled > 0 ? settled : end);
  return FirstBelow(rise_, halfDb);
}

// The tail of a strong event has to slow down further: to the mean of both rates. Where it never does, and
// the rest falls no steeper and nowhere rises, the end lies behind the flattest part, and `end` moves there.
long DeadZone::EndOfSlowFall(long& end, double steepDb) {
  const double base = static_cast<double>(base_);
  const double rippleDb = static_cast<double>(filter_.result.polar) / base / 2;
  constexpr double kSteepTailSlopes = 20.0;  // a fall that is nowhere steeper leaves no tail
  const double meanDb = std::sqrt(FibreDb() * steepDb / 10);
  if (!(kSteepTailSlopes * FibreDb() + rippleDb < steepDb)) return 0;
  const long settled = FibreFrom(end, fullBase_, meanDb + rippleDb);
  if (settled >= 0 || limit_ - end <= base_) return settled;
  constexpr double kNoSteeper = 1.1;
  float fallDb = 0.0F, riseDb = 0.0F;
  long atFall = 0, atRise = 0;
  RefAutoSearchMaxdbRiseFall(&sor_, end, limit_, base_, fallDb, atFall, riseDb, atRise, 0.0F);
  if (-fallDb < kNoSteeper * (FibreDb() + steepDb / 10) * base && -meanDb * base > riseDb)
    end = atRise + base_;
  return settled;
}

// Without a fibre to be seen, the dead zone ends with the fall itself: at twice the way to nine tenths of
// its depth.
long DeadZone::EndOfFall() {
  constexpr double kJitterDb = 0.01, kLeft = 0.1, kDepth = 0.9;
  limit_ = AsPoint(RefAutoOtkatEnd(&sor_, limit_, rise_, kJitterDb));
  float highestDb = 0.0F, lowestDb = 0.0F;
  const long highest = RefAutoGetMax(&sor_, rise_, limit_, highestDb, 0);
  if (highestDb > peakDb_) limit_ = highest;
  lowest_ = RefAutoGetMin(&sor_, rise_, limit_, lowestDb);
  lowestDb_ = lowestDb;
  while (lowest_ < lastPoint_ && Db(lowest_ + 1) == lowestDb_) ++lowest_;
  PassUndershoot();

  const long half = FirstBelow(rise_, (riseDb_ + lowestDb_) / 2);
  const long deep = FirstBelow(rise_ + 2, kLeft * Db(rise_) + kDepth * Db(lowest_));
  const long twice = 2 * deep - rise_;
  SetEnd(EndBehind(std::max(twice < lowest_ ? twice : lowest_, half)));
  return half;
}

// Behind an undershoot the trace recovers, and it is from there that it falls to the fibre.
void DeadZone::PassUndershoot() {
  constexpr double kUndershootDb = 0.2;
  constexpr long kUndershootGrade = 10;
  if (!(lowestDb_ < limitDb_ - kUndershootDb && event_.Am() >= kUndershootGrade)) return;
  if (!lin_.empty() && lin_[lowest_] <= 0.0 && lin_[limit_] > 0.0) {
    const double halfDb = (sor_.GetMinLevel() + Db(limit_)) / 2;
    lowest_ = AsPoint(RefAutoSearchBackLess(&sor_, limit_, static_cast<float>(halfDb), 0));
  }
  float highestDb = 0.0F, lowestDb = 0.0F;
  rise_ = AsPoint(RefAutoGetMax(&sor_, lowest_ + 1, limit_, highestDb, 0));
  riseDb_ = highestDb;
  lowest_ = RefAutoGetMin(&sor_, rise_, limit_, lowestDb);
  lowestDb_ = lowestDb;
}

// A fall to light far below that in front stretches the end, by the pulse and the logarithm of the fall. A
// lowest point without any light has no such measure.
long DeadZone::EndBehind(long end) {
  constexpr double kDeepFall = 25.0;
  constexpr double kLogOfPlainFall = 3.0;  // a fall to a twentieth stretches nothing yet
  const double beginLin = lin_[event_.begin], lowestLin = lin_[lowest_];
  if (!(lowestDb_ > sor_.FxdParams->GetNF() && beginLin > kDeepFall * lowestLin)) return end;
  const double stretch =
      static_cast<double>(filter_.pulsePoints / 4) * (Log(beginLin / lowestLin) - kLogOfPlainFall);
  return end + std::clamp(TruncToLong(stretch), 0L, lastPoint_);
}

}  // namespace

long TSorFilter::SearchDZ(TSorData* sor, TFEvent* ev, long limit, float& /*deadFall*/) const {
  if (sor == nullptr) sor = pSorData;
  if (sor == nullptr || ev == nullptr) return 0;
  return DeadZone(*this, *sor, *ev, limit).Run();
}
