// SPDX-License-Identifier: Apache-2.0

// What is more than noise and less than an event: ripples of the backscatter, small reflections, changes of
// slope, and splices whose fall over one window doesn't show all of their loss.

#include <cmath>
#include <limits>

#include "src/analysis/SpliceScan.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {

namespace {

// What RefAutoGetWidthPlr tells instead of a width.
constexpr long kOverlapping = -2;

constexpr double kLongestWindowNoise = 0.2;  // crests are measured while the window's own fall, so weighted,
                                             // stays below the noise

// The statistics are totals over a whole trace.
int AddHeld(int total, long more) {
  return static_cast<int>(std::min<long>(total + more, std::numeric_limits<int>::max()));
}

}  // namespace

bool StepScan::IsSmallStep(const Step& step) const {
  const bool beyondNoise = step.fallDb > limits_.highDb || step.fallDb < -limits_.lowDb;
  const bool inGhost = at_ >= ghostFrom_ && at_ <= ghostTo_;
  return beyondNoise && step.fallDb < limits_.eventFallDb && at_ > guard_ &&
         step.end < end_ - windows_.fall && !inGhost;
}

StepScan::Verdict StepScan::JudgeSmallStep(Step& step) {
  if (PassSmallRise(step) || PassSmallFall(step) || IsSlope(step)) return Verdict::kGoOn;
  if (step.fallDb <= ownFallDb_ && !ripple_) {
    const Verdict verdict = JudgeRipple(step);
    if (verdict != Verdict::kUndecided) return verdict;
  }
  return WeighSmallStep(step);
}

// On to where a rise is largest.
bool StepScan::PassSmallRise(const Step& step) {
  if (step.fallDb >= 0) return false;
  for (const long shift : {windows_.edge, windows_.stride}) {
    if (ShiftedFallDb(step, shift) >= step.fallDb) continue;
    at_ += shift - 1;
    return true;
  }
  return false;
}

// On to where a fall is largest; and past one that the trace in front of it shows as well.
bool StepScan::PassSmallFall(const Step& step) {
  if (step.fallDb <= limits_.highDb) return false;
  if (ShiftedFallDb(step, windows_.stride) > step.fallDb) {
    at_ += windows_.stride - 1;
    return true;
  }
  return FrontDb(at_ - winDead_) - step.frontDb > step.fallDb - (limits_.highDb - ownFallDb_);
}

// A fall of less than twice the fibre's own, on a stretch that is steeper than the nominal slope: what the
// lines in front of it and behind it lose is no event.
bool StepScan::IsSlope(const Step& step) {
  if (step.fallDb <= 0 || step.fallDb - ownFallDb_ >= ownFallDb_) return false;
  if (at_ - start_ <= windows_.fall / 2 || limits_.slopeDb <= fibreDb_) return false;
  const double inFrontDb = SlopeDb(start_, step.end);
  const double behindDb = SlopeDb(at_, end_);
  if (inFrontDb <= fibreDb_ || behindDb <= fibreDb_) return false;
  limits_.slopeDb = std::min(inFrontDb, behindDb);
  return step.fallDb < limits_.highDb - ownFallDb_ + static_cast<double>(windows_.fall) * limits_.slopeDb;
}

// A rise: a ripple of the backscatter, two reflections in one, a wide hump, or a reflection so steep that the
// fall behind it is judged by itself. Undecided for the last.
StepScan::Verdict StepScan::JudgeRipple(Step& step) {
  const Crest crest = MeasureCrest(step);
  tooSteepCrest_ = crest.width < 0;
  if (crest.width == kOverlapping) return TakeOverlappingReflections(step, crest);
  if (crest.width > 3 * windows_.fall && crest.width > windows_.side) {
    const Verdict verdict = JudgeWideCrest(step, crest);
    if (verdict != Verdict::kUndecided) return verdict;
  }
  if (crest.width > 0) NoteRipple(step, crest);
  if (crest.width >= 0) {
    at_ += windows_.fine;
    return Verdict::kGoOn;
  }
  at_ = std::max(crest.top - 1, at_);  // the crest may begin in front of where the walk stands
  step.end = std::min(at_ + windows_.fall, end_ - 1);
  return Verdict::kUndecided;
}

StepScan::Crest StepScan::MeasureCrest(const Step& step) const {
  Crest crest;
  crest.begin = crest.top = at_;
  if (kLongestWindowNoise * ownFallDb_ >= noise_.noiseAmp) return crest;
  crest.width = RefAutoGetWidthPlr(sor_, crest.begin, step.end, end_, MeanPoints(step.end),
                                   static_cast<float>(fibreDb_), static_cast<float>(noise_.noiseAmp),
                                   crest.top, crest.heightDb);
  if (crest.top - crest.width < frontEvent_.end) crest.width = 0;
  return crest;
}

// Two reflections in one: a doubled reflection with a loss where the level behind is lower than in front.
StepScan::Verdict StepScan::TakeOverlappingReflections(const Step& step, const Crest& crest) {
  find_.begin = Held(crest.begin - winPulse_ / 2);
  find_.rise = Held(find_.begin + winPulse_);
  find_.peak = Held(crest.top);
  find_.end = Held(step.end);
  find_.gradeDown = Grade(elementary::Log2(crest.heightDb / limits_.highDb) + 0.5);
  find_.gradeUp = 1;
  find_.type = 'N';
  at_ = find_.peak + winPulse_;
  if (at_ < end_ && LevelDb(find_.begin) > LevelDb(at_)) {
    find_.type = 'r';
    find_.gradeUp = find_.gradeDown;
    const long settled = FallingBy(0, limits_.tailSlopeDb, at_, end_, windows_.stride, Side::kLast);
    if (settled >= 0) find_.end = Held(settled);
  }
  lossDb_ = static_cast<float>(FindLossDb());
  return Verdict::kFound;
}

// A hump longer than three windows is no ripple. When the level stays up behind it, it is a gain: two fibres
// of unlike backscatter meet. Undecided when it is counted as a ripple after all.
StepScan::Verdict StepScan::JudgeWideCrest(const Step& step, const Crest& crest) {
  find_.peak = Held(RefAutoSearchRef(sor_, crest.begin, crest.top));
  if (noise_.peakCount > kRippledStretch) windows_.side = std::max<long>(windows_.side, noise_.peakWidthMax);
  const double lossDb = LossAt(step.end, 2 * (windows_.fall + windows_.side));
  if (-lossDb > limits_.highDb) {
    lossDb_ = static_cast<float>(lossDb);
    long begin = Held(find_.peak - winPulse_ / 2);
    while (begin < find_.peak && LevelDb(begin + 1) < LevelDb(begin)) ++begin;
    find_.begin = Held(begin);
    find_.rise = Held(find_.peak + winPulse_ / 2);
    find_.end = Held(step.end);
    find_.gradeUp = 1;
    find_.gradeDown = Grade(lossDb / limits_.highDb + 0.5);
    find_.type = 'N';
    return Verdict::kFound;
  }
  if (lossDb < limits_.lowDb && crest.width > 2L * noise_.peakWidthMax) {
    at_ += crest.width - 1;
    return Verdict::kGoOn;
  }
  return Verdict::kUndecided;
}

// Notes how the trace swings. A ripple that ends at the level at which it began is passed.
void StepScan::NoteRipple(const Step& step, const Crest& crest) {
  const float fallDb = static_cast<float>(step.fallDb);
  noise_.peakWidthMax = static_cast<int>(std::max<long>(noise_.peakWidthMax, crest.width));
  noise_.peakWidthSum = AddHeld(noise_.peakWidthSum, crest.width);
  noise_.peakCount = AddHeld(noise_.peakCount, 1);
  noise_.peakFallMin = std::min(noise_.peakFallMin, fallDb);
  noise_.peakFallSum += fallDb;
  noise_.peakRiseMax = std::max(noise_.peakRiseMax, crest.heightDb);
  noise_.peakRiseSum += crest.heightDb;
  ripple_ = true;
  const double leftDb = PointFallDb(at_, at_ + crest.width) - static_cast<double>(crest.width) * fibreDb_;
  if (crest.width > windows_.fine && std::fabs(leftDb) < limits_.highDb - ownFallDb_) {
    at_ += crest.width - windows_.fine - 1;
  }
}

// A small fall is measured from the levels on both sides, over two ripples where there are any. Where the
// sides confirm it, it counts as twice its size if the trace in front of it is straight, or if the filter
// has averaged fewer points behind it.
StepScan::Verdict StepScan::WeighSmallStep(Step& step) {
  if (step.fallDb > ownFallDb_) {
    const float excessDb = static_cast<float>(step.fallDb - ownFallDb_);
    noise_.overCount = AddHeld(noise_.overCount, 1);
    noise_.overMax = std::max(noise_.overMax, excessDb);
    noise_.overSum += excessDb;
  }
  const long twoRipples =
      noise_.peakCount > 1 ? 2L * noise_.peakWidthSum / noise_.peakCount + 1 : windows_.fall;
  const long points = std::min(twoRipples, end_ - step.end - 1);
  if (step.fallDb > limits_.highDb && ShiftedFallDb(step, points) > 1.1 * step.fallDb && !wide_) {
    long steepest = at_;
    RefAutoSearchMaxdbFall(sor_, at_, step.end + points, windows_.fine, steepest,
                           static_cast<float>(limits_.eventFallDb));
    if (at_ + windows_.fine < steepest - windows_.fine) {
      at_ = steepest - windows_.fine;
      return Verdict::kGoOn;
    }
  }
  const double lossDb = LossAt(wide_ ? step.end + winDead_ : step.end, points);
  if (lossDb < limits_.highDb - 0.9 * ownFallDb_) {
    at_ += wide_ ? 2 * windows_.fine : windows_.fine;
    wide_ = false;
    return Verdict::kGoOn;
  }
  // A loss this large exceeds the limit of small falls without their slope too, so that is not asked again.
  if (IsOnStraightFibre(step, lossDb)) {
    step.fallDb = 2 * lossDb + ownFallDb_;
  } else if (MeanPoints(step.end) < MeanPoints(at_) && step.end + windows_.fine < end_ &&
             ShiftedFallDb(step, windows_.fine) < limits_.eventFallDb) {
    step.fallDb *= 2;
  }
  return Verdict::kUndecided;
}

// Whether the trace in front keeps to the fibre's slope three times better than the step leaves it.
bool StepScan::IsOnStraightFibre(const Step& step, double lossDb) const {
  const long walked = at_ - start_;
  if (at_ <= guard_ || step.end - at_ >= walked) return false;
  const double points = static_cast<double>(walked);
  const double strayDb = std::fabs(LevelDb(start_) - step.frontDb - fibreDb_ * points) / points;
  return 3 * strayDb < std::fabs(lossDb - ownFallDb_) / static_cast<double>(windows_.fall);
}

}  // namespace reflyze
