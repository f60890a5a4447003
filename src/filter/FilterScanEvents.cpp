// SPDX-License-Identifier: Apache-2.0

// Opening and closing of events: where a reflection begins, whether two of them share one rise, how strong it
// is, where it ends and what kind it is.

#include <cmath>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/EventLetters.h"
#include "src/filter/FilterScan.h"
#include "src/filter/LinearTrace.h"
#include "src/filter/Optics.h"
#include "util/convert.h"

namespace reflyze {

namespace {

// Grades of reflections, in doublings above the limit.
constexpr long kOverloadGrade = 15;  // above, the strongest reflection casts doubt on weaker ones
constexpr long kExtremeGrade = 19;   // above, on all but strong ones
constexpr long kTailedGrade = 11;    // the same behind an event with a tail

}  // namespace

void AutoFilterScan::TakeEdge(Differences& diff) {
  if (edge_.HasTurnedFrom(lastEdge_)) TakeTurn(diff);
  NarrowAtEdge(diff);
}

// A turn that makes no event leaves the last decision as it was. The next point is tested again.
void AutoFilterScan::TakeTurn(Differences& diff) {
  if (edge_.isRising()) {
    if (!OpenEvent(diff)) return;
    MeasureRise(diff);
  } else {
    SplitCloseReflections();
    events_.current().rise = trace_.Held(at_);
    MeasureFall(diff);
  }
  if (Counts()) SettleEvent();
}

// --- Opening ---

// Begins an event here, or finds a reason not to: the launch was passed over and comes first, there is no
// light or no room, or the rise belongs to a stronger one that follows.
bool AutoFilterScan::OpenEvent(const Differences& diff) {
  constexpr long kLeastWindow = 2;
  if (IsPastLaunch()) {
    BuildPassedLaunch();
    return false;
  }
  if (!(Lin(at_) > 0.0F) || events_.isFull()) return false;
  TFEvent& event = events_.current();
  event = TFEvent();
  if (launchIsDouble_ && events_.isUntouched()) event.type = letter::kDouble;
  event.begin = trace_.Held(at_);
  top_ = at_;
  if (scales_.midPoints > 3 && mean_.width() > 2) RefineBegin(diff);
  if (scales_.midPoints >= kLeastWindow && strongest_.grade < kRulingGrade) {
    const long second = filter_.DoubleRDetect(at_, scales_.recoverPoints, scales_.midPoints,
                                              static_cast<float>(limits_.rise));
    if (second > at_) {
      if (HoldsBack(diff, second)) {
        heldBackAt_ = second;
        edge_ = Edge::Fall();
        return false;
      }
      CloseFirstOfTwo(second);
    }
  }
  MoveBeginBack();
  return true;
}

// Whether the first rise stands so far into the fibre that the launch pulse must have been taken for fibre.
bool AutoFilterScan::IsPastLaunch() const {
  return events_.isUntouched() && launch_ == 0 &&
         at_ > scales_.zeroPoint + scales_.pulsePoints + std::max(scales_.nearPoints, scales_.midPoints);
}

// Makes the launch pulse the first event, with its levels as they were measured, and goes back behind it. The
// scan stands beyond the windows used here.
void AutoFilterScan::BuildPassedLaunch() {
  const long zero = scales_.zeroPoint, stop = zero + scales_.pulsePoints + scales_.midPoints;
  TFEvent& event = events_.current();
  event = TFEvent();
  event.begin = trace_.Held(zero);
  event.peak = event.rise = trace_.Held(trace_.Highest(zero, stop));
  event.gradeUp = 1;
  event.type = letter::kReflection;
  event.width = trace_.Held(scales_.pulsePoints);
  long end = stop;
  float lowestDb = 0.0F;
  RefAutoGetMin(&sor_, zero + 1, stop, lowestDb);
  if (lowestDb > scales_.noiseDb) {
    const double fibreDb = Db(stop + scales_.farPoints) + scales_.rippleDb;
    end = trace_.Held(trace_.FirstBelow(stop, fibreDb, scales_.slopeDb));
    const long back = trace_.LastMeanAbove(end, scales_.pulsePoints, trace_.ToLin(fibreDb));
    if (back >= 0) end = back;
  }
  event.end = trace_.Held(end);
  RestoreLevels(zero, event.end);
  at_ = event.end - 1;
  events_.Step();
}

// Behind a wide mean the rise is noticed late, or early where a sample merely sticks out.
void AutoFilterScan::RefineBegin(const Differences& diff) {
  TFEvent& event = events_.current();
  if (Lin(at_ + 1) < Lin(at_) && diff.now < 2.0 * limits_.rise) {
    event.begin = trace_.Held(at_ + 2);
    return;
  }
  const double least = mean_.width() <= scales_.recoverPoints ? limits_.rise / 2.0 : limits_.rise;
  const long limit = at_ - scales_.midPoints;
  event.begin =
      trace_.Held(std::max(trace_.LastBelow(at_, mean_.mean() + least, limit), std::max(limit, 0L)));
  const double step = static_cast<double>(Lin(event.begin + 1)) - Lin(event.begin);
  const double next = static_cast<double>(Lin(event.begin + 2)) - Lin(event.begin + 1);
  if (step > next / 5.0 && step > limits_.rise / 2.0) event.begin = trace_.Held(event.begin + 1);
}

// A small rise right in front of a large one is its foot, and no event of its own.
bool AutoFilterScan::HoldsBack(const Differences& diff, long second) const {
  constexpr double kMuchHigher = 10.0;
  return second - at_ < scales_.pulsePoints / 2 + scales_.recoverPoints && diff.now < 2.0 * limits_.rise &&
         Above(second - 1) < 2.0 * limits_.strongRise &&
         Above(second + scales_.recoverPoints) > kMuchHigher * diff.ahead;
}

// Of two reflections that share one rise the first ends where the second begins, and the scan goes on there.
void AutoFilterScan::CloseFirstOfTwo(long second) {
  constexpr double kPeakSharePerDb = 1.0 / 22.0;  // that ripple may pretend, for each dB of it
  TFEvent& first = events_.current();
  second = std::min(second, scales_.lastPoint);
  first.rise = first.end = trace_.Held(second);
  first.peak = trace_.Held(trace_.Highest(first.begin, second));
  first.width = std::max(first.end - first.begin, 0);
  const double height = (1.0 - scales_.rippleDb * kPeakSharePerDb) * Lin(first.peak) - Lin(first.begin) -
                        scales_.noiseLin / 2.0;
  first.gradeUp = height < scales_.noiseLin ? 0 : static_cast<int>(GradeOfHeight(height, scales_.noiseLin));
  first.type = first.gradeUp < 1 ? letter::kStep : letter::kReflection;
  events_.Step();
  at_ = top_ = std::min(second + 1, scales_.lastPoint);
  events_.current() = TFEvent();
  events_.current().begin = trace_.Held(at_);
  events_.current().type = letter::kDouble;
}

// Where the trace was rising before it was noticed, the event begins with the first sample that stands out.
void AutoFilterScan::MoveBeginBack() {
  if (!(Lin(at_) > Lin(at_ - 1) && Lin(at_ - 1) > Lin(at_ - 2))) return;
  TFEvent& event = events_.current();
  const double least = limits_.rise / 2.0 + limits_.rise / static_cast<double>(scales_.eventPoints);
  for (long moved = 0; moved < scales_.stepPoints; ++moved) {
    const long before = event.begin - 1;
    const bool standsOut = Above(before) > 0.0 &&
                           static_cast<double>(Lin(before)) - Lin(before - 1) > least &&
                           Lin(before - 2) < Lin(before);
    if (before <= heldBackAt_ || !standsOut) return;
    event.begin = trace_.Held(before);
  }
}

// --- Measuring ---

void AutoFilterScan::MeasureRise(Differences& diff) {
  TFEvent& event = events_.current();
  const long reach = 3 * scales_.recoverPoints / 2 + 2 * scales_.eventPoints / 3;
  long peak = at_ + 1;
  while (peak - at_ < reach && Lin(peak + 1) > Lin(peak)) ++peak;
  event.peak = trace_.Held(peak);
  if (!edge_.isSurge()) diff.now = Above(event.peak);
  GradeRise(diff);
  SuspectFibreEnd();
  const long passMark = PassMark();
  if (!IsNoise(event.gradeUp, passMark)) return;
  const bool isRise = event.gradeUp >= 0;
  Note(Choice::kDropped, event.begin, event.gradeUp, isRise ? static_cast<double>(passMark) : kNoLimit,
       "grade",
       isRise ? "too low beside the strongest reflection" : "a rise of the trace that is no reflection");
  RejectNoise();
}

// The grade of the rise; -1 for none. A rise that is weak against the noise is judged by two samples.
void AutoFilterScan::GradeRise(Differences& diff) {
  constexpr double kNearNoiseRise = 10.0;  // times the noise
  TFEvent& event = events_.current();
  if (mean_.width() < scales_.eventPoints && diff.now / scales_.noiseLin < kNearNoiseRise &&
      at_ + mean_.width() < scales_.lastPoint) {
    diff.now = (Above(at_) + Above(at_ + mean_.width())) / 2.0;
  }
  long foot = Lin(event.begin) < Lin(event.begin - 1) ? event.begin : event.begin - 1, width = 0;
  foot = std::max(foot, heldBackAt_);
  long grade = filter_.RflAnalisys(events_.lastOrNull(), foot, scales_.lastPoint, scales_.recoverPoints,
                                   scales_.midPoints, static_cast<float>(limits_.rise + scales_.noiseLin),
                                   secondFallAt_, width);
  if (event.type == letter::kDouble) grade = std::max(grade, 1L);
  event.begin = trace_.Held(foot + 1);
  event.width = trace_.Held(width);
  if (event.begin == 1 && grade < 1) ++launch_;
  event.gradeUp = diff.now > 0.0 ? static_cast<int>(grade) : -1;
}

// The grade that a rise needs while the strongest reflection is very strong. It needs more close behind
// that, if it is wider than that, as long as the trace is not back on its slope, and where the
// instrument's own pair of echoes may stand.
long AutoFilterScan::PassMark() {
  constexpr long kFar = 7, kNear = 9, kHarder = 2;
  constexpr double kWider = 1.1;      // than the strong one, and two points
  constexpr double kPairWays = 1.15;  // of the way to the pair, to which it may reach
  constexpr int kHighGrade = 6;
  const TFEvent& event = events_.current();
  const TFEvent& strong = events_[strongest_.index];
  long mark = at_ - strong.end <= scales_.farPoints ? kNear : kFar;
  if (event.width > kWider * strong.width + 2.0) mark += kHarder;
  if (events_.closed() > 1 && event.gradeUp > kHighGrade) {
    const long behind = events_.last().end + scales_.farPoints;
    const double level = static_cast<double>(Lin(at_)) + Lin(at_ + scales_.pulsePoints) - Lin(at_ - 1);
    if (at_ > behind && Lin(behind) > level) mark += kHarder;
  }
  const double pairReach = strong.rise + kPairWays * static_cast<double>(scales_.pairPoints);
  if (at_ >= strong.begin + scales_.pairPoints && static_cast<double>(at_) <= pairReach) mark += kHarder;
  return mark;
}

// A rise out of the noise, behind a reflection that outshines everything: the fibre may have ended there.
void AutoFilterScan::SuspectFibreEnd() {
  if (!events_.isPastFirst() || strongest_.suspectAt != 0 || !IsNearNoise()) return;
  const bool isTailed = events_.last().tail != 0 && strongest_.grade >= kTailedGrade;
  if (!(strongest_.grade >= kRulingGrade || isTailed)) return;
  strongest_.suspectAt = events_.closed();
  Note(Choice::kNoEnd, at_, static_cast<double>(strongest_.grade),
       static_cast<double>(isTailed ? kTailedGrade : kRulingGrade), "grade",
       "a rise out of the noise behind so strong a reflection: the fibre may have ended in front");
}

bool AutoFilterScan::IsNoise(int grade, long passMark) const {
  return grade < 0 ||
         (strongest_.grade > kOverloadGrade && strongest_.grade - grade >= kExtremeGrade - passMark / 2) ||
         (strongest_.grade > kExtremeGrade && grade < passMark);
}

// For a pulse the trace is guarded like a dead zone. The first event may still be the launch.
void AutoFilterScan::RejectNoise() {
  events_.current().gradeUp = 0;
  edge_ = events_.isUntouched() ? Edge::Rise() : Edge::None();
  dead_.end = std::max(at_ + scales_.pulsePoints, dead_.pairEnd);
}

void AutoFilterScan::MeasureFall(const Differences& diff) {
  TFEvent& event = events_.current();
  const double limit =
      scales_.noiseLin + limits_.rippleLin / 2.0 + static_cast<double>(Lin(at_ + 1)) * scales_.slopeDb;
  event.gradeDown = 0;
  if (diff.now < 0.0) {
    event.gradeDown =
        static_cast<int>(filter_.FallAnalisys(event.begin, at_ - 1, scales_.lastPoint, scales_.pulsePoints,
                                              3 * scales_.nearPoints, static_cast<float>(limit)));
  }
  if (strongest_.ghosts != 0 && event.gradeDown == 0) edge_ = Edge::None();
}

// Two reflections that stand close look like one with a late top: the steep part is at the end of the
// rise.
void AutoFilterScan::SplitCloseReflections() {
  TFEvent& first = events_.current();
  if (top_ - scales_.recoverPoints * (3 + first.gradeUp / 4) <= first.begin + 1) return;
  if (first.begin < scales_.zeroPoint) return;
  if (!(static_cast<double>(Lin(top_)) - Lin(first.peak) > limits_.strongRise)) return;
  long foot = FootOfLateTop(first);
  if (foot < 0) return;

  const bool isLong = foot - first.begin > scales_.pulsePoints;
  first.rise = first.end = trace_.Held(isLong ? first.begin + scales_.pulsePoints : foot);
  first.type = foot - first.begin > scales_.eventPoints ? letter::kWide : letter::kReflection;
  first.peak = trace_.Held(trace_.Highest(first.begin, foot, -1));
  first.gradeDown = 0;
  events_.Step();
  TFEvent& second = events_.current();
  second = TFEvent();
  long width = 0;
  second.gradeUp = static_cast<int>(
      filter_.RflAnalisys(&first, foot, scales_.lastPoint, scales_.recoverPoints, scales_.midPoints,
                          static_cast<float>(scales_.noiseLin), secondFallAt_, width));
  second.begin = trace_.Held(foot + 1);
  second.peak = trace_.Held(top_);
  second.width = trace_.Held(width);
}

// Where the steep part of a late top begins; -1 where the event is steep at its begin or half-way.
long AutoFilterScan::FootOfLateTop(const TFEvent& event) const {
  const long recover = scales_.recoverPoints;
  const auto riseFrom = [&](long point) { return static_cast<double>(Lin(point + recover)) - Lin(point); };
  const double early = std::max(riseFrom((event.begin + top_ - recover) / 2), riseFrom(event.begin));
  if (!(2.0 * early < riseFrom(top_ - recover))) return -1;
  long foot = top_ - 1;
  while (foot > top_ - 2 * recover && !(Db(foot + 1) - Db(foot) > Db(foot) - Db(foot - 1))) --foot;
  return foot;
}

// --- Settling ---

// Whether the turn makes or ends an event: it has a grade, is beyond doubt, or is the launch that has to be
// there.
bool AutoFilterScan::Counts() {
  const TFEvent& event = events_.current();
  const int grade = events_.isOpen() ? event.gradeDown : event.gradeUp;
  return grade != 0 || edge_.isStrong() || (launch_ != 0 && events_.closed() == 0);
}

void AutoFilterScan::SettleEvent() {
  TFEvent& event = events_.current();
  if (edge_.isRising()) {
    SettleTail();
  } else {
    dead_.tailEnd = 0;
  }
  if (IsGhostSource()) ++strongest_.ghosts;
  // Behind a surge the tail is longer, by the fall of the event before it.
  if (edge_.isSurge() && events_.isPastFirst()) {
    dead_.tailEnd += scales_.eventPoints * std::abs(events_.last().gradeDown);
  }
  const bool isOpenBehindFirst = events_.isOpen() && events_.isPastFirst();
  if (isOpenBehindFirst && event.rise - event.begin < scales_.leastPoints) {
    event.begin = event.rise;  // too short for an event: none
    events_.TakeBackHalfStep();
  } else {
    events_.HalfStep();
    if (edge_.isFalling() && at_ > scales_.zeroPoint) FinishEvent();
  }
  lastEdge_ = edge_;
}

// How far behind the begin a reflection only falls: the stronger, the farther, and much farther where the
// receiver is saturated.
void AutoFilterScan::SettleTail() {
  constexpr double kHighLaunchDb = -1.0;
  const TFEvent& event = events_.current();
  const bool isFirst = events_.closed() == 0;
  long tail = event.gradeUp * std::min(scales_.midPoints, scales_.eventPoints);
  if (Db(event.begin + scales_.eventPoints / 2 + 1) > kFlatLevelDb) {
    tail += scales_.farPoints * event.gradeUp;
  } else if (isFirst && Db(event.begin + scales_.eventPoints + scales_.recoverPoints) < kHighLaunchDb) {
    tail = scales_.recoverPoints;
  }
  tail += event.begin + scales_.eventPoints + scales_.nearPoints;
  if (isFirst && Lin(tail) > Lin(tail + 1)) ++tail;
  dead_.tailEnd = tail;
}

// A strong reflection out of near darkness, behind which the trace stays up, throws ghosts on what follows.
bool AutoFilterScan::IsGhostSource() {
  constexpr int kGhostSourceGrade = 9;
  constexpr double kDarkNoises = 10.0;  // times the noise
  const TFEvent& event = events_.current();
  const bool isSecond = events_.closed() == 1 && !events_.isOpen();
  if (!isSecond && !(events_.isPastFirst() && strongest_.ghosts != 0)) return false;
  const long behind = at_ + scales_.eventPoints + scales_.farPoints;
  return event.gradeUp > kGhostSourceGrade &&
         Lin(event.begin - scales_.nearPoints) < kDarkNoises * scales_.noiseLin &&
         Lin(behind) > Lin(event.peak) / 2.0F;
}

void AutoFilterScan::FinishEvent() {
  constexpr int kMostLaunchGrade = 5;
  TFEvent& event = events_.last();
  if (launch_ >= 1 && event.Am() <= kMostLaunchGrade) {
    FinishLaunch(event);
  } else {
    FinishReflection(event);
  }
}

// A weak launch is taken by the pulse and the receiver, not by its shape.
void AutoFilterScan::FinishLaunch(TFEvent& event) {
  if (launch_ > 1) {
    event.begin = event.end = trace_.Held(event.rise + 1);
    event.type = letter::kInstrument;
  } else {
    event.peak =
        trace_.Held(trace_.Highest(event.begin, event.begin + scales_.eventPoints + scales_.recoverPoints));
    const long pulseEnd = event.begin + scales_.eventPoints;
    event.rise = trace_.Held(pulseEnd > event.peak ? pulseEnd : event.peak + scales_.nearPoints);
    long end = trace_.Lowest(event.rise + 1, event.rise + 1 + scales_.midPoints);
    while (static_cast<double>(Lin(end)) - Lin(end + 1) > scales_.noiseLin) ++end;
    event.end = trace_.Held(end);
    if (event.type != letter::kDouble || events_.closed() == 1) event.type = letter::kStep;
  }
  event.gradeDown = 0;
  launch_ = 0;
}

void AutoFilterScan::FinishReflection(TFEvent& event) {
  constexpr int kLongTailGrade = 10;
  constexpr int kPairGrade = 8;
  constexpr double kPairReach = 1.07;
  const long index = events_.closed() - 1;
  TFEvent* before = index > 0 ? &events_[index - 1] : nullptr;
  event.peak = trace_.Held(top_);
  const long over = std::max(event.Am() - kLongTailGrade, 0);
  long stop =
      std::max(at_, event.begin + scales_.pulsePoints) + scales_.nearPoints * event.Am() + scales_.farPoints;
  if (over > 0) {
    stop += scales_.farPoints < scales_.pulsePoints ? scales_.farPoints * over
                                                    : scales_.pulsePoints * over + scales_.farPoints;
  }
  const long halfFallen = filter_.SearchDZ(&sor_, &event, trace_.Held(stop), dead_.fallDb);
  dead_.end = event.end;

  weakRun_.Add(event, before, index, scales_.farPoints);
  NameReflection(event, index);
  if (before != nullptr && IsRipple(event, *before, halfFallen)) {
    Note(Choice::kDropped, event.begin, event.Am(), kNoLimit, "grade",
         "a low and long hump close behind an event is the ripple of its tail");
    events_.TakeBackStep();
  } else {
    Note(Choice::kFound, event.begin, event.Am(), kNoLimit, "grade", "a rise and a fall of the trace");
  }
  if (event.gradeUp > kPairGrade) {
    dead_.pairBegin = event.begin + scales_.pairPoints;
    dead_.pairEnd = std::min(
        TruncToLong(static_cast<double>(dead_.end) + kPairReach * static_cast<double>(scales_.pairPoints)),
        scales_.lastPoint - 1);
  }
}

void AutoFilterScan::NameReflection(TFEvent& event, long index) {
  constexpr int kFirstStrongGrade = 14;  // the first strong reflection has to exceed it
  event.type = strongest_.ghosts != 0 ? letter::kAmongGhosts : letter::kReflection;
  const bool isStrong =
      strongest_.grade == 0 ? event.Am() > kFirstStrongGrade : event.Am() >= strongest_.grade;
  if (!isStrong && !(sor_.GetMaxLevel() - Db(event.peak) < kFlatNearTopDb)) return;
  event.type = letter::kStrongReflection;
  strongest_.grade = event.Am();
  strongest_.index = index;
}

// A low and long hump close behind an event is the ripple of its tail.
bool AutoFilterScan::IsRipple(const TFEvent& event, const TFEvent& before, long halfFallen) const {
  constexpr int kClearFall = 4;
  const double fallDb = Db(event.peak) - Db(halfFallen);
  return std::abs(event.gradeDown) < kClearFall &&
         3.0 * fallDb * static_cast<double>(scales_.midPoints) <
             static_cast<double>(halfFallen - event.rise) &&
         event.begin - before.rise < scales_.midPoints * before.gradeUp;
}

}  // namespace reflyze
