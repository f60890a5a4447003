// SPDX-License-Identifier: Apache-2.0

// Whether a rise of the linear trace is a reflection, and of what grade.
//
// A reflection lifts the trace by the pulse as the receiver shows it: up within the receiver's recovery, a
// top as wide as the pulse, and back, by the receiver's exponential, to a level no higher than the fibre
// had before. Other rises are:
//  - noise, and the ripple on the tail of a strong event: a few samples wide, and no higher than the trace
//    in front;
//  - a spike of interference: narrower than the pulse, with a flank too steep for the receiver;
//  - a slow rise, such as the recovery from a dip: no top within a pulse, unless the receiver is
//    saturated;
//  - a step up, a gain: the trace stays where it rose to.
// So the rise is followed to its top, its width is taken at a third of its height, its foot and its end
// are found, and its height is measured over a pulse from the level on both sides.
//
// All heights are in linear power. `limit` is what noise and the swing of the backscatter may pretend.

#include <algorithm>
#include <cmath>
#include <optional>

#include "ref/math/traceLevels.h"
#include "src/filter/Filter.h"
#include "src/filter/LinearTrace.h"
#include "src/filter/Optics.h"

namespace {

using reflyze::GradeOfHeight;
using reflyze::LinearTrace;

constexpr long kNoReflection = -1;
constexpr long kUngraded = 0;  // a reflection too small to grade

constexpr long kMeanDelayPoints = reflyze::kNearMeanPoints / 2;  // of the running mean behind the trace
constexpr double kClearlyOver = 10.0;  // limits: higher than that is no matter of noise
constexpr long kFineTenthPulse = 100;  // points of pulse from which a twentieth is enough for a mean
constexpr long kWidePulse = 20;        // and from which there are samples enough for means at all
constexpr long kShortPulse = 8;        // points below which the pulse has no body to speak of
constexpr double kWidthTolerance = 1.05;

class RiseMeasure {
 public:
  RiseMeasure(const TSorFilter& filter, float* lin, float* mean, const TFEvent* prev, long pos, long last,
              long recover, long w2, double limitLin)
      : filter_(filter),
        sor_(*filter.pSorData),
        levels_(&sor_),
        lin_(lin, levels_.points()),
        mean_(mean, static_cast<long>(filter.LinfAvg.size())),
        prev_(prev),
        pulse_(lin_.Width(filter.pulseFallPoints)),
        light_(lin_.Width(filter.pulsePoints)),
        recovery_(std::max(lin_.Width(recover), 1L)),
        window_(lin_.Width(w2)),
        last_(lin_.Width(last) - 2),
        prevEnd_(prev != nullptr ? prev->end : 0),
        guarded_(prevEnd_ + (prev != nullptr ? lin_.Width((prev->Am() - 5) * window_ * 3) : 0)),
        seenAt_(std::clamp(pos, -lin_.count(), lin_.count())),
        limitLin_(limitLin),
        tenth_(pulse_ / 10),
        rise_(std::max(seenAt_, 0L)),
        placed_(rise_) {}

  long Run() {
    if (lin_.empty()) return kNoReflection;
    FindPeak();
    const auto early = CompareWithBefore();
    placed_ = rise_;
    if (early) return *early;
    FollowRise();
    if (IsSlow()) return kNoReflection;
    MeasureFlatTop();
    LowerBase();
    if (peakLin_ - baseLin_ < limitLin_) return kNoReflection;
    MeasureWidth();
    if (widePoints_ < 1) return kUngraded;
    CountTopPoints();
    if (const auto grade = JudgeSpike()) return *grade;
    if (IsRippleOnTail()) return kNoReflection;
    FindFoot();
    FindEnd();
    if (!HasEnd()) return kNoReflection;
    MeasureBody();
    if (bodyLin_ < limitLin_) return kNoReflection;
    GradeHeight();
    const bool staysUp = !(baseLin_ > behindLin_);
    if (!staysUp || prev_ == nullptr || end_ + window_ + pulse_ >= last_) return grade_;
    if (!FindSecondFall() || !GradeAgain()) return kNoReflection;
    return grade_;
  }

  // Where the rise was placed. The walk up to half its height is not part of it: what lies below that is
  // reflection already, and a section of fibre can not end on it.
  long placed() const { return placed_; }
  long width() const { return topPoints_; }
  long fallAt() const { return fallAt_; }

 private:
  // --- Readings ---

  double Db(long point) const { return levels_[point]; }
  bool IsSaturatedAt(long point) const {
    return !(Db(point) < sor_.GetMaxLevel() - reflyze::kClipsNearTopDb);
  }
  long GradeAboveLimit(double heightLin) const {
    return heightLin > limitLin_ ? GradeOfHeight(heightLin, limitLin_) : kNoReflection;
  }

  // --- The rise against what came before ---

  void FindPeak();
  std::optional<long> CompareWithBefore();
  std::optional<long> JudgeOnMean();
  void RestartOn(long front);

  // --- Shape ---

  void FollowRise();
  bool IsSlow() const;
  void MeasureFlatTop();
  void LowerBase();
  void MeasureWidth();
  void WidenByNoise();
  void CountTopPoints();
  std::optional<long> JudgeSpike() const;
  bool IsRippleOnTail() const;

  // --- Height ---

  void FindFoot();
  void FindEnd();
  bool HasEnd();
  void MeasureBody();
  void RefineByMeans();
  void GradeHeight();

  // --- What the trace does behind the top ---

  bool FindSecondFall();
  bool GradeAgain();

  const TSorFilter& filter_;
  const TSorData& sor_;
  const reflyze::TraceLevels levels_;
  const LinearTrace lin_, mean_;
  const TFEvent* const prev_;
  const long pulse_;     // points of the pulse with the receiver's fall
  const long light_;     // points of the pulse alone
  const long recovery_;  // points that the receiver needs for an edge
  const long window_;    // points of an event window
  const long last_;      // no walk goes further
  const long prevEnd_;   // end of the event before
  const long guarded_;   // up to there its strength still rules the trace
  const long seenAt_;    // where the scan saw the rise; before the trace for a rise that its start cuts

  double limitLin_;
  long tenth_;   // of the pulse, in points: the length of a mean
  long rise_;    // last point before the rise
  long placed_;  // the same before the walk to half its height
  long top_ = 0;
  long look_ = 0;  // points in front that the rise is compared with
  long peak_ = 0;
  double baseLin_ = 0.0, peakLin_ = 0.0;  // level in front, and at the top
  long flatPoints_ = 0;                   // by which a flat top is longer than it should be
  bool isLow_ = false;                    // so near the noise that single samples may lie anywhere
  double midLin_ = 0.0;
  long front_ = 0, back_ = 0;  // the points around the width at a third of the height
  long widePoints_ = 0;
  long topPoints_ = 0;  // points within the upper third
  long foot_ = 0, end_ = 0;
  double behindLin_ = 0.0;  // level behind the event
  double bodyLin_ = 0.0;    // level over a pulse, then its height
  double heightLin_ = 0.0;
  long grade_ = kNoReflection;
  long second_ = 0;  // where the trace falls for the second time
  long fallAt_ = 0;
};

// --- The rise against what came before ---

void RiseMeasure::FindPeak() {
  constexpr double kVisibleLossDb = 0.05;  // of the fibre over the stretch looked at: too far to compare
  const double beforeLin = rise_ < 1 ? lin_[rise_] : lin_[rise_ - 1];
  baseLin_ = rise_ < 1 ? beforeLin : lin_.MeanOfTwo(rise_ - 1);
  top_ = rise_ + recovery_ + (recovery_ < tenth_ ? 1 + tenth_ : pulse_);
  look_ = rise_ > guarded_ ? pulse_ + recovery_ : recovery_;
  const LinearTrace::Found highest = lin_.Highest(rise_, top_, 1);
  peak_ = highest.at;
  peakLin_ = highest.lin;
  if (tenth_ > 2 && tenth_ < look_ && lin_[peak_] - beforeLin > kClearlyOver * limitLin_ &&
      static_cast<double>(filter_.dbOnDS) * static_cast<double>(look_) > kVisibleLossDb) {
    look_ = tenth_;
  }
}

// Only a rise that stands clear of the last event has something before it to be compared with. Where its
// top does not stand out of that by more than the limit, the running mean of 16 samples decides, which
// sees what single samples hide in noise. It does not judge other rises: it would leave a fraction of the
// height of a short pulse, place every rise where the mean has followed it, and take a gain for a
// reflection without an end.
std::optional<long> RiseMeasure::CompareWithBefore() {
  if (prev_ == nullptr || look_ <= 2 || rise_ <= look_ + pulse_ + prevEnd_) return std::nullopt;
  const LinearTrace::Found before = lin_.HighestMean(rise_ - look_, rise_, recovery_);
  if (2.0 * limitLin_ + before.lin > peakLin_ && recovery_ > 1) {
    const LinearTrace::Found top = lin_.HighestMean(rise_, top_, recovery_);
    peak_ = top.at;
    peakLin_ = top.lin;
  }
  const bool isNoHigher = before.lin + limitLin_ > peakLin_;
  if (isNoHigher && (peak_ - before.at >= pulse_ || before.at < guarded_ + look_)) return kNoReflection;
  if (!isNoHigher) return std::nullopt;
  return JudgeOnMean();
}

// The running mean lags behind the trace by half its window. A hump of it that is as wide as a pulse is
// graded as it is; a narrower one sends the samples back to be measured from where it rises.
std::optional<long> RiseMeasure::JudgeOnMean() {
  const long front = peak_ - pulse_;
  const LinearTrace::Found before = lin_.Highest(front - look_, front - 1, 1);
  const double beforeLin = mean_[before.at];
  const bool isHidden =
      before.lin + limitLin_ > peakLin_ || beforeLin + limitLin_ > mean_[peak_ + kMeanDelayPoints];
  if (isHidden && (lin_[peak_ + pulse_] + before.lin) / 2 + limitLin_ > peakLin_) return kNoReflection;

  const LinearTrace::Found hump = mean_.Highest(before.at, peak_ + pulse_ / 2, 1);
  peak_ = hump.at;
  peakLin_ = hump.lin;
  const double halfLin = (beforeLin + mean_[peak_ + kMeanDelayPoints]) / 2;
  const double thirdLin = (2.0 * beforeLin + peakLin_) / 3;
  long lo = before.at + 1, hi = peak_ + 1;
  while (lo < lin_.count() - 1 && mean_[lo] < halfLin) ++lo;
  while (hi < last_ && mean_[hi] > thirdLin) ++hi;

  long wide = hi - lo;
  rise_ = std::max(lo - recovery_ / 2, 0L);
  while (rise_ > peak_ - pulse_ - recovery_ && rise_ > guarded_ &&
         (lin_[rise_ - 1] < lin_[rise_] || lin_[rise_ - 2] < lin_[rise_])) {
    --rise_;
  }
  if (wide < pulse_ && hi - rise_ >= pulse_) wide = pulse_ - 1;
  if (wide >= pulse_ - 1) {
    topPoints_ = wide;
    return GradeAboveLimit(peakLin_ - beforeLin);
  }
  RestartOn(front);
  return std::nullopt;
}

// Noise in front of the rise that reaches further than the limit is the limit, unless the rise exceeds it
// anyway.
void RiseMeasure::RestartOn(long front) {
  top_ = rise_ + recovery_ + 1 + tenth_;
  const LinearTrace::Found lowest = lin_.Lowest(rise_ - look_, rise_ - 1, 1);
  baseLin_ = lin_.Mean(rise_ - look_, look_);
  const double noiseLin = lin_[front] - lowest.lin;
  if (noiseLin > limitLin_ && lin_[peak_] - baseLin_ < 3.0 * noiseLin) limitLin_ = noiseLin;
}

// --- Shape ---

// A receiver at the top of its scale hides how long it takes.
void RiseMeasure::FollowRise() {
  long far = top_ + pulse_;
  if (Db(far) > sor_.GetMaxLevel() - reflyze::kClipsNearTopDb) far += pulse_ + window_;
  while (lin_[peak_ + 1] > lin_[peak_] && peak_ < far && peak_ < last_ - window_) {
    ++peak_;
    ++top_;
  }
  peakLin_ = lin_[peak_];
}

bool RiseMeasure::IsSlow() const { return peak_ > rise_ + recovery_ + pulse_ + 1 && !IsSaturatedAt(peak_); }

// A top at the very end of the search is a plateau: its last point is the peak. At the end of the trace,
// where nothing is left to walk on, that is the point before.
void RiseMeasure::MeasureFlatTop() {
  if (peak_ != top_) return;
  while (peak_ < last_ && lin_[peak_] == lin_[top_]) ++peak_;
  --peak_;
  flatPoints_ = peak_ - top_;
}

// Whatever stands less than ten limits high is low. In noise, the level in front is better known from four
// samples than from two, and rather too low than too high.
void RiseMeasure::LowerBase() {
  constexpr long kSamples = 4;
  isLow_ = kClearlyOver * limitLin_ > peakLin_;
  if (3.0 * limitLin_ > baseLin_ && rise_ > 5) {
    baseLin_ = std::min(baseLin_, lin_.Mean(rise_ - kSamples, kSamples));
  }
}

// Moves the rise to the last point that lies below half the height, and takes the width at a third of it.
// In a low event noise may leave a sample without any light on the way; that alone is not its back.
void RiseMeasure::MeasureWidth() {
  midLin_ = (peakLin_ + baseLin_) / 2;
  const long steepEnd = std::min(rise_ + pulse_, last_);
  while (rise_ < steepEnd && lin_[rise_ + 1] < midLin_ && lin_[rise_ + 1] > lin_[rise_]) ++rise_;

  const double thirdLin = (2.0 * baseLin_ + peakLin_) / 3;
  const long firstFront = std::max(rise_ - 1, 0L);
  for (front_ = peak_; front_ >= firstFront && lin_[front_] > thirdLin;) --front_;
  const long stop = std::min(last_, peak_ + (pulse_ + light_ + 3 * window_) * (flatPoints_ + 1));
  for (back_ = peak_ + 1; back_ < stop; ++back_) {
    const bool isDark = lin_[back_] <= 0.0;
    if (lin_[back_] < thirdLin && !(isLow_ && isDark)) break;
  }
  if (back_ - front_ < pulse_) WidenByNoise();
  widePoints_ = back_ - front_ - 1;
}

// Each side takes in the sample at which it ended, where that is lower than its neighbour by no more than
// noise: on the steep front with half the height as its level, on the back with a third.
void RiseMeasure::WidenByNoise() {
  const double noiseLin = limitLin_ / 2;
  const double thirdLin = (2.0 * baseLin_ + peakLin_) / 3;
  if (front_ >= 0 && lin_[front_ + 1] - lin_[front_] < noiseLin && lin_[front_] > midLin_ - noiseLin)
    --front_;
  if (back_ < last_ && lin_[back_ - 1] - lin_[back_] < noiseLin && lin_[back_] > thirdLin - noiseLin) ++back_;
}

void RiseMeasure::CountTopPoints() {
  if (!(2.0 * baseLin_ + limitLin_ < peakLin_ && 2.0 * lin_[back_] + limitLin_ < peakLin_)) return;
  const double levelLin = (peakLin_ + std::max(lin_[peak_ - 1], lin_[peak_ + 1])) / 3;
  for (long i = front_; i <= back_; ++i) {
    if (lin_[i] > levelLin) ++topPoints_;
  }
}

// What is narrower than the light itself did not come through the receiver with it, unless it falls off as
// the receiver does. A spike has to be the higher the narrower it is.
std::optional<long> RiseMeasure::JudgeSpike() const {
  const double wide = kWidthTolerance * static_cast<double>(widePoints_);
  const double light = static_cast<double>(light_ - 1);
  if (!(wide < light && 2 * widePoints_ + peak_ < last_)) return std::nullopt;

  const double behindLin = lin_[front_ + pulse_];
  const double halfLin = (behindLin + peakLin_) / 2;
  long half = back_;
  while (half <= front_ + pulse_ && lin_[half] > halfLin) ++half;
  const double firstFallLin = lin_[peak_] - lin_[back_];
  const double nextFallLin = lin_[back_] - lin_[2 * back_ - peak_];
  const bool fallsAtOnce = firstFallLin > 1.5 * nextFallLin;
  const bool isSlim =
      3.0 * lin_[half] * static_cast<double>(half - peak_) < behindLin * static_cast<double>(pulse_);
  if (!fallsAtOnce && !isSlim) return std::nullopt;

  constexpr double kSpikeLimits = 100.0;  // tuned: what a spike of one sample has to reach
  const double heightLin = peakLin_ - midLin_;
  const double needLin =
      kSpikeLimits * limitLin_ * (1.0 - wide / light) / std::sqrt(static_cast<double>(widePoints_));
  if (heightLin < needLin) return kNoReflection;
  constexpr long kTellingPulse = 7;  // points: a shorter one looks like the ripple of the event before
  return pulse_ > kTellingPulse || front_ >= prevEnd_ ? GradeOfHeight(heightLin, limitLin_) : kUngraded;
}

// Inside the event before, a rise to less than the trace had three points ago is a dent in a falling tail,
// unless the dent itself is the odd one: the three samples in front of it then bulge.
bool RiseMeasure::IsRippleOnTail() const {
  constexpr double kBulge = 1.2;
  if (!(rise_ < prevEnd_ && rise_ > 3 && lin_[rise_ - 1] < lin_[rise_] && lin_[rise_ - 3] > lin_[peak_])) {
    return false;
  }
  return lin_[rise_ - 4] * lin_[rise_ - 2] < kBulge * lin_[rise_ - 3] * lin_[rise_ - 3];
}

// --- Height ---

// A low event begins earlier than the scan could see, even in front of the trace.
void RiseMeasure::FindFoot() {
  constexpr double kStillLit = 0.7;  // limits
  foot_ = seenAt_;
  if (!isLow_) return;
  while (foot_ > 0 && lin_[foot_ - 1] < lin_[foot_] && lin_[foot_] > kStillLit * limitLin_) --foot_;
}

// The event lasts a pulse from the middle of its rise, and as much longer as the rise took and the top is
// flat.
void RiseMeasure::FindEnd() {
  end_ = std::max(2 * rise_ + pulse_ + 1 - foot_ + flatPoints_, rise_ + widePoints_);
  if (!isLow_) end_ = std::max(end_, rise_ + window_);
  end_ = std::max(end_, peak_ + 2);
  if (!isLow_ && flatPoints_ == 0) return;
  while (end_ + 1 < last_ && end_ <= peak_ + pulse_ + 3 * window_ && lin_[end_] < lin_[end_ - 1]) ++end_;
}

bool RiseMeasure::HasEnd() {
  if (isLow_ && widePoints_ > pulse_ + recovery_ + 2 * window_) return false;
  if (end_ + window_ >= last_) return false;
  behindLin_ = lin_.MeanOfTwo(end_);
  return !(isLow_ && limitLin_ / 2 + behindLin_ > peakLin_);
}

// The mean of a long body counts twice, so that it holds a height down only where most of the pulse is dark.
void RiseMeasure::MeasureBody() {
  if (pulse_ >= kShortPulse) {
    if (pulse_ > kWidePulse && end_ + tenth_ < last_) RefineByMeans();
    bodyLin_ = 2.0 * lin_.Mean(rise_ + tenth_, pulse_ - 2 * tenth_);
  } else if (peak_ > rise_ + pulse_) {
    bodyLin_ = peakLin_;
  } else {
    bodyLin_ = pulse_ < 2 ? lin_[rise_ + 1] : lin_.Mean(rise_, pulse_);
  }
}

// At the start of the trace there is nothing in front to take a mean of: the fibre behind, carried back along
// its slope, tells the level as well.
void RiseMeasure::RefineByMeans() {
  if (pulse_ > kFineTenthPulse) tenth_ = pulse_ / 20;
  peakLin_ = lin_.Mean(peak_ - 1, tenth_);
  behindLin_ = lin_.Mean(end_, tenth_);
  if (rise_ < tenth_) {
    const double furtherLin = lin_.Mean(end_ + tenth_, tenth_);
    baseLin_ = lin_.Mean(0, tenth_);
    if (!(furtherLin < behindLin_ && furtherLin < baseLin_)) return;
    const double slopeLin = (behindLin_ - furtherLin) / static_cast<double>(tenth_);
    baseLin_ = std::min(baseLin_, slopeLin * static_cast<double>(end_ - rise_) + behindLin_);
    return;
  }
  const long samples = std::min(pulse_ > kFineTenthPulse ? pulse_ / 3 : pulse_ / 2, rise_);
  if (rise_ > guarded_ && lin_[rise_ - samples] < peakLin_) baseLin_ = lin_.Mean(foot_ - samples, samples);
}

// Without an event before, the fall behind a first pulse that the receiver hardly rounds is the launch: its
// height is that fall, since nothing lies in front of it.
void RiseMeasure::GradeHeight() {
  bodyLin_ -= std::max(baseLin_, (baseLin_ + behindLin_) / 2);
  const double peakHeightLin = peakLin_ - baseLin_;
  const bool isNarrow = 2.0 * bodyLin_ < peakHeightLin && bodyLin_ > limitLin_;
  heightLin_ = isNarrow ? peakHeightLin : std::min(peakHeightLin, bodyLin_);
  if (prev_ == nullptr && window_ < tenth_) {
    const double launchLin = lin_[pulse_] - lin_[pulse_ + tenth_ + window_];
    if (launchLin > kClearlyOver * limitLin_) heightLin_ = launchLin;
  }
  grade_ = GradeAboveLimit(heightLin_);
}

// --- What the trace does behind the top ---

// A trace that stays as high as it rose may be two reflections in a row. Follows the first one down to where
// the next fall begins. False where the level in between lies below that in front: noise that jumped up.
bool RiseMeasure::FindSecondFall() {
  const long slowest = pulse_ / 2 + recovery_;
  long s = rise_;
  while (s < rise_ + pulse_ + recovery_ && lin_[s + 1] > lin_[s]) ++s;
  if (s - rise_ < slowest) s = lin_.Highest(s, rise_ + slowest, 1).at;
  peak_ = s;

  const long stop = std::min(last_, peak_ + pulse_ + window_ * grade_);
  const long ahead = (window_ + 2) / 3;
  while (s < stop && (lin_[s + 1] <= lin_[s] || lin_[s + ahead] < lin_[s])) ++s;
  second_ = s;
  if (pulse_ <= 10 || s >= end_) return true;

  second_ = lin_.Highest(end_ - pulse_ / 2, end_ - 1, 1).at;
  while (second_ > s && lin_[second_ - 1] <= lin_[second_] && lin_[second_] > lin_[s] + limitLin_) --second_;
  const long between = second_ - rise_ - 1;
  return between <= 1 || !(lin_.Mean(rise_ + 1, between) < baseLin_);
}

// Measures the height again, from the level where the second fall begins. False where, inside the event
// before, the trace has not come back.
bool RiseMeasure::GradeAgain() {
  behindLin_ = std::max(lin_.MeanOfTwo(second_), 0.0);
  if (rise_ < prevEnd_ && behindLin_ - heightLin_ / 10 > baseLin_) return false;
  heightLin_ = lin_[peak_] - std::max(behindLin_, baseLin_);
  grade_ = GradeAboveLimit(heightLin_);

  // The receiver cuts a flat top off: the longer it is, the higher the reflection was.
  const bool isCutOff = Db(peak_) > sor_.GetMaxLevel() - reflyze::kFlatNearTopDb ||
                        (sor_.QRTParams->ZERO == 0 && flatPoints_ >= 2);
  if (flatPoints_ > 0 && isCutOff) {
    grade_ += (pulse_ / 2 + flatPoints_) / std::max(pulse_, 1L) + 1;
    if (lin_[end_] > baseLin_) ++grade_;
  }
  if (lin_[peak_] - lin_[second_] >= limitLin_ && second_ - peak_ >= window_ + recovery_ + 1 &&
      second_ - rise_ > 1) {
    fallAt_ = second_;
  }
  return true;
}

}  // namespace

long TSorFilter::RflAnalisys(TFEvent* prev, long& pos, long last, long recover, long w2, float T,
                             long& fallAt, long& width) {
  fallAt = 0;
  width = 0;
  if (pSorData == nullptr) return kNoReflection;
  RiseMeasure measure(*this, Linf, LinfAvg.data(), prev, pos, last, recover, w2, T);
  const long grade = measure.Run();
  pos = measure.placed();
  fallAt = measure.fallAt();
  width = measure.width();
  return grade;
}
