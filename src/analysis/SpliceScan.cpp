// SPDX-License-Identifier: Apache-2.0

// The walk along a stretch: its windows and limits, how the event in front is left behind, and the tests that
// every point goes through.
//
// What stands out is the fall of the level over the dead zone, as that is the distance over which the
// receiver shows all of a step. The tests take the likeliest explanation first: noise, the flank of a larger
// step, the ringing of the receiver, a ripple, a change of slope. Only what is left is an event.

#include "src/analysis/SpliceScan.h"

#include <cmath>

#include "src/analysis/AutoNumerics.h"
#include "src/filter/AutoLimits.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr long kMostGrade = 30000;

// --- The event in front ---
constexpr int kSteepTailGrade = 16;        // from here on its receiver tail is steeper for longer
constexpr double kTailSlopes = 3.0;        // slopes of the fibre that still count as its tail ...
constexpr double kStrongTailSlopes = 5.0;  // ... behind a strong event
constexpr double kPlungeDb = 3.0;          // a fall like this in front of the stretch: the tail is new
constexpr int kGhostGrade = 7;             // from above this grade, a tall and lossy event
constexpr double kGhostFallDb = 5.0;       // echoes between its own ends ...
constexpr double kSureGhostFallDb = 8.0;
constexpr double kGhostKm = 0.018;  // ... which lie at most a patch cord apart
constexpr double kGhostStretch = 1.07;
constexpr double kGhostOverNoiseDb = 0.5;  // an echo of half its height that comes out of the noise is seen

// --- Noise measured again ---
constexpr double kWorthMeasuringDb = 0.02;  // less noise than this hides no splice
constexpr double kQuieter = 0.95;           // the new figure must be lower than this part of the old one
constexpr long kLongStretch = 100;          // in windows; on a shorter one the figure means little

}  // namespace

SpliceSearch::SpliceSearch(const SpliceTask& task)
    : scale_(task.scale),
      noise_(task.noise),
      sor_(task.scale.sor),
      levels_(task.scale.sor),
      filter_(task.filter),
      frontEvent_(task.front),
      find_(task.find),
      lossDb_(task.lossDb),
      winPulse_(std::max(levels_.Near(task.scale.winPulse), 1L)),
      winEvent_(std::max(levels_.Near(task.scale.winEvent), winPulse_)),
      winDead_(std::max(levels_.Near(task.scale.winDead), 1L)),
      sidePoints_(std::max(levels_.Near(task.sidePoints), 1L)),
      fibreDb_(task.scale.lossDS),
      first_(std::max(levels_.Near(task.first), 0L)),
      end_(std::min(levels_.Near(task.end), levels_.points() - 1)) {}

long SpliceSearch::MeanPoints(long point) const {
  return filter_.pointMap == nullptr ? 1 : std::max<long>(filter_.pointMap[Held(point)], 1);
}

int SpliceSearch::Grade(double steps) {
  return static_cast<int>(std::clamp(TruncToLong(steps), -kMostGrade, kMostGrade));
}

long SpliceSearch::FallingBy(double leastDb, double mostDb, long from, long to, long base, Side side) const {
  return RefAutoSearchStraightLoss2(sor_, from, to, base, static_cast<float>(mostDb),
                                    static_cast<float>(leastDb), static_cast<int>(side));
}

double SpliceSearch::LossBetween(long before, long behind, long low, long pointsBefore,
                                 long pointsBehind) const {
  return RefAutoGetSpl(sor_, before, low, behind, end_, pointsBefore, pointsBehind,
                       static_cast<float>(fibreDb_));
}

long StepScan::Run() {
  Verdict verdict = SearchStretch();
  if (verdict == Verdict::kScanned && NoiseIsLower()) {
    first_ = from_;
    verdict = SearchStretch();
  }
  return verdict == Verdict::kFound ? find_.begin : 0;
}

// A long stretch without a single ripple was searched with too much noise in mind. It is searched once
// more with the swing that it shows itself.
bool StepScan::NoiseIsLower() {
  if (noise_.peakCount != 0 || windows_.side * kLongStretch >= end_ - from_) return false;
  if (noise_.noiseAmp <= kWorthMeasuringDb) return false;
  long at = 0;
  const double swingDb = RefAutoCalcPolar(sor_, from_, end_, windows_.fall, static_cast<float>(fibreDb_), at);
  if (swingDb <= 0 || swingDb >= kQuieter * noise_.noiseAmp) return false;
  noise_.noiseAmp = swingDb;
  return true;
}

StepScan::Verdict StepScan::SearchStretch() {
  if (end_ <= first_) return Verdict::kNothing;
  SetWindows();
  SetLimits();
  PlaceFront();
  PassGhost();
  if (!LeaveFront()) return Verdict::kNothing;
  return Walk();
}

void StepScan::SetWindows() {
  widthAt_ = first_ + winDead_;
  const long mean = MeanPoints(widthAt_);
  windows_.fall = std::max(winDead_, mean);
  windows_.fine = std::max(FineWindow(), 1L);
  windows_.edge = winEvent_ - winPulse_ + 1 + winPulse_ / rules_.pulseOfEdgePoint;
  windows_.stride = std::max(windows_.fine, windows_.edge);
  windows_.limit = std::max(mean / 2, 4 * windows_.fine);
  windows_.mean = LeastMeanWindow();
  windows_.side = std::max(windows_.mean, windows_.fine);
  ownFallDb_ = fibreDb_ * static_cast<double>(windows_.fall);
  scanEnd_ = end_ - windows_.fall;
  twoFallsEnd_ = scanEnd_ - windows_.fall;
}

void StepScan::SetLimits() {
  const Faults faults = FaultsAt(LevelDb(widthAt_), widthAt_);
  limits_.leastDb = static_cast<float>(LeastLossDb());  // the precision of the find's loss
  limits_.faultDb = faults.eventDb;
  limits_.eventDb = limits_.leastDb + faults.eventDb;
  limits_.eventFallDb = limits_.eventDb + ownFallDb_;
  limits_.highDb = faults.sideDb + ownFallDb_;
  limits_.lowDb = rules_.readsMeans ? faults.sideDb : faults.sideDb - ownFallDb_ / 2;
  limits_.firstHighDb = limits_.highDb + ownFallDb_;
  limits_.quarterDb = limits_.eventDb / 4 + ownFallDb_;
  limits_.thirdDb = limits_.eventDb / 3 + ownFallDb_;
  limits_.renewDb = scale_.nf + RequirePower(limits_.leastDb, 1);
  limits_.noiseDb = scale_.nf - rules_.belowNoiseDb;
  limits_.tailSlopeDb = fibreDb_ * (frontEvent_.Am() < kSteepTailGrade ? kTailSlopes : kStrongTailSlopes);
  limits_.slopeDb = fibreDb_;
  limits_.baseDb = 1.5 * ownFallDb_;
  limits_.leastPerOwnFall = limits_.leastDb / static_cast<double>(winEvent_) / fibreDb_;
}

// How far the event in front may still be felt: behind its end for as many points as lie between its top
// and its end.
void StepScan::PlaceFront() {
  const long fall = windows_.fall;
  tail_ = 2L * frontEvent_.end - frontEvent_.rise;
  if (fall < first_ && tail_ < first_ && PointFallDb(first_ - fall, first_) > kPlungeDb) {
    tail_ = first_ + winDead_ - winPulse_;
  }
  guard_ = std::max({first_ + fall, tail_, windows_.mean});
  tail_ = std::min(tail_, end_ - 1);
}

// A tall event with a large loss, as a patch panel makes it, sends echoes between its connectors: nothing is
// searched where they lie.
void StepScan::PassGhost() {
  from_ = first_;
  ghostFrom_ = ghostTo_ = 0;
  const double fallDb = PointFallDb(frontEvent_.begin, frontEvent_.end);
  if (frontEvent_.Am() <= kGhostGrade || fallDb <= kGhostFallDb) return;
  const long cord = HeldShift(sor_->dLenToOwt(kGhostKm) / scale_.owtDS, levels_.points());
  ghostFrom_ = frontEvent_.begin + cord;
  ghostTo_ = TruncToLong(frontEvent_.end + kGhostStretch * static_cast<double>(cord));
  const double overNoiseDb = LevelDb(ghostTo_) - scale_.nf;
  const bool disturbs = fallDb > kSureGhostFallDb || overNoiseDb - fallDb / 2 < kGhostOverNoiseDb;
  if (disturbs && first_ < ghostTo_) from_ = ghostTo_;
}

// To the first point behind the tail of the event in front. False when the stretch ends before.
bool StepScan::LeaveFront() {
  at_ = from_;
  const long recovery = RecoveryPoints();
  const long stop = at_ + winDead_ + recovery + windows_.stride;
  if (stop >= end_) return false;
  const double largestDb = LargestStepInFront(stop);
  if (windows_.stride > 1 && largestDb < limits_.eventDb) PassUnquiet(stop);
  PassTail();
  if (at_ >= scanEnd_ - windows_.stride) return false;
  limits_.baseDb = std::max(PointFallDb(at_, at_ + windows_.fall), ownFallDb_);
  MoveFrontEnd(stop, recovery);
  find_.tail = 0;
  start_ = at_;
  if (2 * windows_.fall < end_ - at_) limits_.slopeDb = SlopeDb(at_, end_);
  wide_ = ripple_ = tooSteepCrest_ = false;
  return true;
}

// Points that the receiver needs for the fall behind the top of the event in front, with a half for safety;
// three times that where a disturbance follows. None when the search starts far behind it.
long StepScan::RecoveryPoints() const {
  constexpr double kHalfMore = 1.5;
  const double fallDb = PointFallDb(frontEvent_.peak, frontEvent_.end);
  long points = HeldShift(std::ceil(kHalfMore * fallDb / scale_.dbOnOwt / scale_.owtDS), levels_.points());
  if (frontEvent_.tail != 0) points *= 3;
  if (2 * points < at_ - frontEvent_.end) points = 0;
  return std::max(points, 0L);
}

// The largest step up to `stop`, 0 when there is none but the tail's own. A steep start raises the limit.
double StepScan::LargestStepInFront(long stop) {
  long at = 0;
  double stepDb = RefAutoSearchRefdbFall(sor_, at_, stop, windows_.stride, static_cast<float>(fibreDb_),
                                         static_cast<float>(limits_.eventDb), at);
  if (at < at_ + windows_.stride) {
    stepDb = 0;
    if (at_ < stop) limits_.baseDb = SlopeDb(at_, stop) * static_cast<double>(windows_.fall);
  }
  limits_.eventDb = std::max(limits_.eventDb, 1.5 * std::fabs(limits_.baseDb));
  return stepDb;
}

// Moves forward while neighbouring points differ by more than noise. Where a step was passed so, goes back
// to `stop`.
void StepScan::PassUnquiet(long stop) {
  const double noiseDb = std::max(noise_.noiseAmp, limits_.faultDb);
  const long stride = windows_.stride;
  const float slope = static_cast<float>(fibreDb_);
  while (at_ < scanEnd_ - stride && RefAutoSearchMaxdbRiseFall(sor_, at_, at_ + stride, 1, slope) > noiseDb) {
    at_ += std::max(stride / 3, 1L);
  }
  long passed = 0;
  const double stepDb =
      RefAutoSearchRefdbFall(sor_, stop, at_, stride, slope, static_cast<float>(limits_.eventDb), passed);
  if (stepDb > limits_.eventDb) at_ = stop;
}

// Forward while the trace falls as a tail does, but not over a step.
void StepScan::PassTail() {
  while (at_ < scanEnd_ - windows_.fall && PointFallDb(at_, at_ + windows_.fall) < limits_.eventDb &&
         IsTailAt(at_)) {
    at_ += std::max(windows_.stride / 3, 1L);
  }
}

// A tail is steeper than fibre, or is still getting flatter.
bool StepScan::IsTailAt(long point) const {
  const long m = windows_.stride;
  const double tailFallDb = static_cast<double>(m) * limits_.tailSlopeDb;
  if (PointFallDb(point, point + m) > tailFallDb) return true;
  const double beforeDb = PointFallDb(point - m, point);
  if (PointFallDb(point + m, point + 2 * m) < beforeDb) return true;
  return PointFallDb(point + m, point + m + winDead_) < limits_.eventFallDb && beforeDb > 2 * tailFallDb;
}

// The event in front ends where its tail does.
void StepScan::MoveFrontEnd(long stop, long recovery) {
  if (frontEvent_.end < at_ && at_ < twoFallsEnd_ && from_ <= frontEvent_.end) frontEvent_.end = Held(at_);
  if (stop + 2 * recovery < frontEvent_.tail) frontEvent_.tail = Held(stop + 2 * recovery);
  at_ = std::max<long>(at_, frontEvent_.tail);
}

StepScan::Verdict StepScan::Walk() {
  for (; at_ < scanEnd_; ++at_) {
    const Verdict verdict = JudgePoint();
    if (verdict != Verdict::kGoOn) return verdict;
  }
  return Verdict::kScanned;
}

StepScan::Verdict StepScan::JudgePoint() {
  Step step = Measure(at_);
  if (step.behindDb < limits_.noiseDb &&
      step.frontDb - scale_.nf + step.fallDb / 2 < 2 * limits_.eventFallDb) {
    return Verdict::kNothing;
  }
  if (PassDoubleStep(step)) return Verdict::kGoOn;
  if (!RenewLimits(step)) return Verdict::kScanned;
  BoundEventLimit();
  if (step.fallDb > ownFallDb_) ripple_ = false;
  if (PassRinging(step)) return Verdict::kGoOn;
  if (IsSmallStep(step)) {
    const Verdict verdict = JudgeSmallStep(step);
    if (verdict != Verdict::kUndecided) return verdict;
  }
  if (step.fallDb > limits_.eventFallDb) return JudgeEvent(step);
  // Plain fibre for one more window: no need to look at every point.
  if (FrontDb(step.end) - BehindDb(step.end + windows_.fall) < limits_.thirdDb) at_ += windows_.stride;
  return Verdict::kGoOn;
}

StepScan::Step StepScan::Measure(long point) const {
  Step step;
  step.end = point + windows_.fall;
  step.frontDb = FrontDb(point);
  step.behindDb = BehindDb(step.end);
  step.fallDb = step.frontDb - step.behindDb;
  return step;
}

// The same fall, some points on.
double StepScan::ShiftedFallDb(const Step& step, long points) const {
  return FrontDb(at_ + points) - BehindDb(step.end + points);
}

// Two small steps close to each other are one event. The walk moves on to where the first is largest; when
// the next window falls as well, and both together exceed what noise explains, the fall over both counts.
// True when the walk has moved.
bool StepScan::PassDoubleStep(Step& step) {
  const bool maybe = step.fallDb > limits_.quarterDb && step.fallDb < limits_.highDb &&
                     2 * winDead_ > windows_.fall && step.end < twoFallsEnd_ &&
                     step.behindDb > limits_.renewDb;
  if (!maybe) return false;
  if (ShiftedFallDb(step, windows_.edge) > step.fallDb || ShiftedFallDb(step, -windows_.edge) > step.fallDb) {
    at_ += windows_.edge;
    return true;
  }
  const double nextDb = step.behindDb - BehindDb(step.end + windows_.fall);
  if (step.fallDb + nextDb <= limits_.highDb + ownFallDb_ || nextDb >= limits_.highDb) return false;
  if (step.end + windows_.side >= twoFallsEnd_) return false;
  const double bothDb = step.frontDb - BehindDb(step.end + windows_.fall + windows_.side);
  if (bothDb > static_cast<double>(windows_.side) * fibreDb_ + limits_.firstHighDb) {
    step.fallDb = bothDb;
    wide_ = true;
  }
  return false;
}

// Limits hold for a level and for a width of the filter's mean. Nearer to the noise they have to grow. False
// when the new window no longer fits into the stretch.
bool StepScan::RenewLimits(const Step& step) {
  const long mean = MeanPoints(at_);
  const long knownMean = MeanPoints(widthAt_);
  if (step.behindDb >= limits_.renewDb && 5 * knownMean >= 4 * mean) return true;
  if (mean == knownMean) {
    limits_.renewDb = step.behindDb - rules_.deeperLevelDb;
  } else {
    widthAt_ = at_;
  }
  windows_.fall = mean > winDead_ ? mean : winDead_ + mean;
  ownFallDb_ = fibreDb_ * static_cast<double>(windows_.fall);
  scanEnd_ = end_ - windows_.fall;
  if (at_ + windows_.fall >= end_) return false;
  const double fallDb = FrontDb(at_) - BehindDb(at_ + windows_.fall);
  limits_.baseDb = std::max(std::min(limits_.baseDb, fallDb), ownFallDb_);
  const Faults faults = FaultsAt(step.behindDb, at_);
  limits_.eventDb = limits_.leastDb + faults.eventDb;
  limits_.eventFallDb = limits_.eventDb + limits_.baseDb;
  limits_.highDb = faults.sideDb + ownFallDb_;
  limits_.lowDb = rules_.readsMeans ? faults.sideDb : (limits_.highDb - 3 * ownFallDb_) / 2;
  return true;
}

// An event need not be larger than three times what noise can do to a small one.
void StepScan::BoundEventLimit() {
  const double mostDb = 3 * (limits_.highDb + 0.5 * noise_.noiseAmp);
  if (limits_.eventFallDb <= mostDb) return;
  limits_.eventFallDb = mostDb;
  limits_.eventDb = mostDb - ownFallDb_;
}

// A receiver that rings goes up and down behind the event in front. True when the point lies there.
bool StepScan::PassRinging(const Step& step) {
  if (at_ >= guard_ || step.fallDb >= -limits_.lowDb || filter_.ringCount == 0) return false;
  const long ringEnd = std::min(tail_ + levels_.Near(filter_.ringCount), end_);
  if (at_ < ringEnd) {
    at_ = ringEnd;
    if (frontEvent_.end < ringEnd) frontEvent_.end = Held(ringEnd);
  }
  return true;
}

}  // namespace reflyze
