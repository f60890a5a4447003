// SPDX-License-Identifier: Apache-2.0
#include "src/filter/FilterScan.h"

#include <cmath>

#include "sor/sorData.h"
#include "src/filter/LinearTrace.h"
#include "src/filter/Optics.h"
#include "util/convert.h"

long TSorFilter::AutoFilter(TSorData* data, TFEvent* events, short* pointMap) {
  constexpr long kNotWorkable = -1;
  TSorData* sor = data != nullptr ? data : pSorData;
  if (sor == nullptr) return kNotWorkable;
  const auto scales = reflyze::MeasureScanScales(*this, *sor);
  if (!scales) return kNotWorkable;
  reflyze::AutoFilterScan scan(*this, *sor, pointMap, *scales);
  scan.Run();
  return reflyze::FinishAutoFilter(*this, *sor, *scales, scan, events);
}

namespace reflyze {

// --- Running mean ---

void RunningMean::Start(float lin) {
  startLin_ = lin;
  Restart(lin);
}

void RunningMean::Restart(float lin) {
  width_ = 1;
  sum_ = mean_ = lin;
}

void RunningMean::Narrow(const HeldSamples& lin, long at, long drop) {
  sum_ += lin[at];
  for (long k = 0; k < drop; ++k) sum_ -= lin[at - width_ + k];
  width_ -= drop - 1;
}

void RunningMean::CutTo(long width, long at, const TSorFilter& filter) {
  width_ = filter.ReCalcSum(at, width_, width, sum_);
  Settle();
}

void RunningMean::Set(float mean, long width) {
  width_ = width;
  mean_ = mean;
  sum_ = mean * static_cast<float>(width);
}

// --- Limits ---

void EdgeLimits::Renew(const ScanScales& scales, long restarts, bool isInNoise, bool hasGhosts) {
  const double noise = scales.noiseLin + rippleLin;
  // Tuned: shares of noise and ripple, and what makes an edge a strong one.
  constexpr double kRiseShare = 0.5, kFallShare = 0.7;
  constexpr double kMoreInNoise = 1.2, kWithGhosts = 3.0;
  constexpr double kStrongRise = 4.0, kStrongRiseOfFastReceiver = 3.0, kStrongFall = 1.5;
  rise = noise * (static_cast<double>(restarts) + kRiseShare);
  if (isInNoise) rise *= kMoreInNoise;
  strongRise = (scales.nearPoints < scales.midPoints ? kStrongRise : kStrongRiseOfFastReceiver) * rise;
  fall = -noise * (static_cast<double>(restarts) + kFallShare);
  strongFall = kStrongFall * fall;
  if (hasGhosts) {
    fall *= kWithGhosts;
    strongFall *= kWithGhosts;
  }
}

void EdgeLimits::CentreOn(double lin, const ScanScales& scales) {
  constexpr double kHighest = 1.3, kLowest = 0.75;
  bandHigh = kHighest * lin + scales.noiseLin / 2.0;
  bandLow = kLowest * lin;
}

// --- Weak events ---

void WeakRun::Add(const TFEvent& event, const TFEvent* before, long index, long closelyPoints) {
  const bool isBehindStrong =
      before != nullptr && before->Am() > kTrailedGrade && event.begin - before->end <= closelyPoints;
  if (event.Am() >= kCertainGrade || isBehindStrong) {
    events_ = gapPoints_ = 0;
    kept_ = index + 1;
    return;
  }
  if (events_ > 0 && before != nullptr) gapPoints_ += std::max(event.begin - before->end, 0);
  ++events_;
}

long WeakRun::Restart() {
  events_ = gapPoints_ = 0;
  ++restarts_;
  return kept_;
}

// --- Levels ---

// d(5 log10 x) = 5 / ln 10 * (dx / x - (dx / x)^2 / 2). The offset of larger steps is tuned.
float LevelWriter::LevelDb(float mean, float lin, const ScanTrace& trace) {
  constexpr double kDbPerRatio = 2.171472311;
  constexpr double kSmallStep = 20.0;  // a step of less than 1/20 is small
  constexpr double kLargeStepLin = 2.0, kLargeStepOffsetLin = 0.27;
  constexpr int kMostQuickSteps = 10;
  const double step = static_cast<double>(mean) - lastMean_;
  const bool isQuick = !(kSmallStep * std::fabs(step) > lastMean_) && quickSteps_ <= kMostQuickSteps &&
                       lin != 0.0F && lastMean_ != 0.0F;
  if (isQuick) {
    // Small steps take an offset of 0 instead of a branch, which is slow where noise decides.
    const double x = (step + (std::fabs(step) > kLargeStepLin ? kLargeStepOffsetLin : 0.0)) / lastMean_;
    lastDb_ = static_cast<float>(lastDb_ + kDbPerRatio * x * (1.0 - x / 2.0));
    ++quickSteps_;
  } else {
    lastDb_ = trace.ToDb(mean);
    quickSteps_ = 0;
  }
  lastMean_ = mean;
  return lastDb_;
}

// --- The scan ---

AutoFilterScan::AutoFilterScan(TSorFilter& filter, TSorData& sor, short* pointMap, const ScanScales& scales)
    : filter_(filter),
      sor_(sor),
      setLevel_(*sor.DataPts),
      scales_(scales),
      trace_(filter, sor),
      widths_(pointMap, scales.points) {
  widths_.Clear(0, scales.points - 1);
}

void AutoFilterScan::Run() {
  FindFibreStart();
  StartMean();
  for (; at_ <= scales_.lastPoint; ++at_) {
    widths_.Set(at_ - 1, mean_.width());
    RescanIfEventsAreNoise();
    if (events_.isOpen() && Lin(at_) > Lin(top_)) top_ = at_;
    if (limits_.isStale) RenewLimits();
    Differences diff;
    if (!TakePlainPoint(diff)) {
      diff = LookAhead();
      LookBetweenPair(diff);
      if (GuardDeadZone(diff) == Verdict::kFibreEnded) return;
      DecideEdge(diff);
    }
    if (edge_.isNone()) {
      FollowTrace(diff);
    } else {
      TakeEdge(diff);
    }
    WritePoint();
    SetTarget();
  }
}

void AutoFilterScan::Note(Choice choice, long point, double value, double limit, const char* unit,
                          const char* reason) const {
  DecisionSink* const sink = filter_.result.decisions;
  if (sink == nullptr) return;
  sink->Note({Stage::kScan, choice, sor_.dLenToOwt(sor_.NumToALen(point)), value, limit, unit, reason});
}

// A run of weak events over quiet stretches is noise that the limits let through: all of it is scanned again
// with higher ones, from the untouched levels.
inline void AutoFilterScan::RescanIfEventsAreNoise() {
  if (!weakRun_.IsNoise()) return;
  const long kept = std::min(weakRun_.Restart(), events_.closed());
  const long from = std::max(events_[kept].begin, 0);
  Note(Choice::kDropped, from, static_cast<double>(events_.closed() - kept), kNoLimit, "events",
       "weak events in a row are noise: scanned again with higher limits");
  RestoreLevels(from, at_);
  events_.ReturnTo(kept);
  at_ = from;
  mean_.Restart(Lin(at_ - 1));
  limits_.isStale = true;
}

// Undoes all smoothing between two points.
void AutoFilterScan::RestoreLevels(long from, long to) {
  to = std::min(to, scales_.points - 1);
  for (long i = std::max(from, 0L); i <= to; ++i) {
    setLevel_(i, trace_.ToDb(Lin(i)));
  }
  widths_.Clear(from, to);
}

// --- Limits ---

void AutoFilterScan::RenewLimits() {
  constexpr double kInsideNoiseDb = 2.0;
  if (!edge_.isRising()) MeasureRipple();
  limits_.Renew(scales_, weakRun_.restarts(), Db(at_ - 1) < scales_.noiseDb - kInsideNoiseDb,
                strongest_.ghosts != 0);
}

// The backscatter swings in proportion to itself. Where it sinks into the noise, the share that the noise
// adds to the sample is not fibre and is taken off.
void AutoFilterScan::MeasureRipple() {
  constexpr double kGhostRippleDb = 0.1;
  constexpr double kGhostRipple = 0.045454545455;  // 0.1 / 2.2: the same as a share of the sample
  const double lin = Lin(at_);
  const bool isAtLaunch = at_ < scales_.settledPoint && events_.isUntouched();
  double ripple = scales_.rippleDb / kRippleToLin * (isAtLaunch ? Lin(scales_.settledPoint) : lin);
  if (strongest_.ghosts != 0 && scales_.rippleDb < kGhostRippleDb) ripple = lin * kGhostRipple;
  const double withReference = lin + scales_.referenceLin;
  if (lin != 0.0 && withReference > 1.0) ripple -= lin * scales_.noiseLin / withReference;
  limits_.rippleLin = std::max(ripple, 0.0);
}

// --- Looking ahead ---

namespace {

constexpr double kUndecidedLin = -1.0;  // neither a rise nor a fall

}  // namespace

// Most points are backscatter or noise between events, clear of launch and dead zones. A sample below the
// limit of a rise is no edge there, and the full tests change nothing but two things: a wide mean catches
// up with a fall, and a growing one asks how quiet the trace is. Only these are looked at, as branches
// that depend on noise are slow. A limit of a fall so near to zero that an undecided sample exceeds it
// takes the full tests.
inline bool AutoFilterScan::TakePlainPoint(Differences& diff) {
  const bool isClear = edge_.isNone() && lastEdge_.isFalling() && launch_ == 0 &&
                       at_ >= dead_.end + scales_.pulsePoints && at_ >= dead_.ringEnd &&
                       at_ >= dead_.pairEnd && limits_.fall < kUndecidedLin;
  if (!isClear) return false;
  diff.now = Above(at_);
  if (!(diff.now < limits_.rise)) return false;
  const bool isGrowing = mean_.width() < mean_.target;
  if (isGrowing || (mean_.width() > 1 && diff.now < limits_.fall)) {
    diff.ahead = Above(FallLookPoint());
    if (Lin(at_) <= 0.0F) diff.now = diff.ahead = kUndecidedLin;
    CatchUpWithFall(diff);
  }
  return true;
}

inline long AutoFilterScan::FallLookPoint() const {
  return std::min(at_ + scales_.nearPoints, scales_.points - 1);
}

Differences AutoFilterScan::LookAhead() {
  Differences diff;
  diff.now = Above(at_);
  if (!(diff.now > 0.0)) {
    LookIntoFall(diff);
  } else if (scales_.recoverPoints < 3 || diff.now < limits_.rise) {
    diff.ahead = Above(at_ + 1);
  } else {
    diff.ahead = FollowRise(diff.now);
  }
  if (IsNoMeasure(diff.now)) diff.now = diff.ahead = kUndecidedLin;
  CatchUpWithFall(diff);
  if (edge_.isSurge()) edge_ = Edge::Rise();
  return diff;
}

// In the tail of a reflection everything falls. A fall is then judged by two samples ahead; and where the
// mean is near the noise, two samples in a row may be the fall behind the tail that ends the event.
void AutoFilterScan::LookIntoFall(Differences& diff) {
  const long ahead = FallLookPoint();
  diff.ahead = Above(ahead);
  const bool isInTail =
      lastEdge_.isRising() && at_ >= events_.current().begin + scales_.pulsePoints && at_ < dead_.tailEnd;
  if (scales_.nearPoints <= 1 || !isInTail) return;
  if (diff.ahead > limits_.strongFall) {
    diff.ahead += Above(ahead - 1) / 2.0;
  } else if (diff.now > limits_.fall && scales_.pulsePoints > 4 && scales_.nearPoints > 2 &&
             2.0 * scales_.noiseLin * static_cast<double>(scales_.nearPoints) > mean_.mean()) {
    diff.now += Above(at_ + 1);
    if (diff.now < limits_.fall) edge_ = Edge::PendingFall();
  }
}

// How high the rise gets within one recovery of the receiver.
double AutoFilterScan::FollowRise(double now) const {
  long top = at_ + 1;
  while (Lin(top + 1) > Lin(top) && top - at_ < scales_.recoverPoints) ++top;
  const double ahead = Above(top), next = Above(top + 1);
  const bool mayGrow = ahead < limits_.strongRise && top + 1 - at_ < scales_.recoverPoints && next > now;
  return mayGrow ? ahead + next / 2.0 : ahead;
}

// Nothing below the noise is measured in a dead zone, and no fall in the launch.
bool AutoFilterScan::IsNoMeasure(double now) const {
  const double lin = Lin(at_);
  if (lin < scales_.noiseLin && (at_ < dead_.end || lin <= 0.0)) return true;
  return at_ < scales_.zeroPoint + scales_.pulsePoints && launch_ != 0 && now < limits_.fall;
}

// A mean that falls behind the trace is cut to its newest samples, to fewer the deeper the fall.
void AutoFilterScan::CatchUpWithFall(const Differences& diff) {
  constexpr double kMostHalvings = 8.0;
  constexpr long kLongEventPoints = 8;  // from there on two samples have to show the fall
  if (!(diff.now < limits_.fall && diff.ahead < limits_.strongFall) || mean_.width() <= 1) return;
  const double fallen = Above(at_ + 2);
  if (!(fallen < limits_.strongFall)) return;
  if (scales_.eventPoints >= kLongEventPoints && !(Above(at_ + 3) < limits_.strongFall)) return;
  const double depth = fallen / limits_.strongFall;
  long width = depth >= 0.0 && depth <= kMostHalvings ? (mean_.width() >> TruncToInt(depth)) + 1 : 1;
  width = std::max(width, scales_.nearPoints / 2);
  if (width < mean_.width()) mean_.CutTo(width, at_, filter_);
}

// A strong reflection is followed by a pair of echoes from the instrument itself. Between the two nothing has
// to rise out of the mean only, but out of what lies behind them too.
void AutoFilterScan::LookBetweenPair(Differences& diff) const {
  // Parts of the mean: above which the limit lies, that the pair may pretend, below which a rise is weak.
  constexpr double kFarBelow = 50.0, kPairShare = 20.0, kWeakShare = 5.0;
  if (!(at_ > dead_.pairBegin && at_ < dead_.pairEnd)) return;
  if (!(diff.now > 0.0) || !lastEdge_.isFalling() || !(mean_.mean() / kFarBelow < limits_.rise)) return;
  diff.ahead -= mean_.mean() / kPairShare;
  const double behind = Above(dead_.pairEnd + 1);
  if (mean_.mean() / kWeakShare > diff.ahead && behind < diff.ahead) diff.ahead = behind;
}

// --- Averaging ---

// Between events the mean follows the trace. It grows by a sample at a time and on quiet stretches only.
// Inside an event, and high above the noise, nothing is averaged.
inline void AutoFilterScan::FollowTrace(const Differences& diff) {
  if (events_.isOpen() || Lin(at_) > scales_.hiLimitLin) {
    mean_.SetSingle();
    return;
  }
  if (FollowSinkingTrace()) return;
  const HeldSamples& lin = trace_.samples();
  if (mean_.width() > mean_.target) {
    mean_.Narrow(lin, at_, 2);
    return;
  }
  if (mean_.width() < mean_.target && IsQuiet(diff)) {
    mean_.Widen(lin, at_);
  } else {
    mean_.Slide(lin, at_);
  }
}

inline bool AutoFilterScan::IsQuiet(const Differences& diff) const {
  return diff.now < 0.0 && diff.now > limits_.fall && diff.ahead > limits_.fall &&
         static_cast<double>(Lin(at_ + 2)) - Lin(at_ + 2 - mean_.width()) > limits_.strongFall;
}

// Near the noise a wide mean would carry the end of the signal on: where the samples ahead lie below it, it
// narrows, and gives way to the mean of 16 where they lie far below.
inline bool AutoFilterScan::FollowSinkingTrace() {
  constexpr long kLookPoints = kNearMeanPoints, kWidePoints = 32;
  const bool applies = Lin(at_) < kNearNoises * scales_.noiseLin && lastEdge_.isFalling() &&
                       mean_.width() > kWidePoints && at_ + kLookPoints < scales_.lastPoint;
  if (!applies) return false;
  const double sinksBy = static_cast<double>(mean_.mean()) - trace_.NearMean(at_ + kLookPoints);
  if (!(sinksBy > scales_.noiseLin / 4.0)) return false;
  if (sinksBy > scales_.noiseLin / 2.0) {
    mean_.Set(trace_.NearMean(at_), kLookPoints);
  } else {
    mean_.Narrow(trace_.samples(), at_, sinksBy > scales_.noiseLin / 3.0 ? 3 : 2);
  }
  return true;
}

// At an edge the mean is given up; behind a fall that goes on, it is only narrowed.
void AutoFilterScan::NarrowAtEdge(const Differences& diff) {
  constexpr double kFallGoesOn = 2.5, kFallToThird = 1.5;  // limits
  const bool goesOn = lastEdge_.isFalling() && edge_.isFalling() && mean_.width() > 2 &&
                      (diff.now < kFallGoesOn * limits_.fall || diff.now > limits_.rise);
  if (!goesOn) {
    mean_.SetSingle();
    return;
  }
  mean_.Narrow(trace_.samples(), at_, diff.now < kFallToThird * limits_.fall ? 3 : 2);
}

inline void AutoFilterScan::WritePoint() {
  if (mean_.width() < 2) {
    mean_.Restart(Lin(at_));
    return;
  }
  mean_.Settle();
  setLevel_(at_, writer_.LevelDb(mean_.mean(), Lin(at_), trace_));
}

// The weaker the signal, the wider the mean: at the noise floor as wide as the filter may, 500 times above it
// a single sample. Ripple counts as noise in part. Width and limits hold for a band of levels; on a rise and
// in front of the first event they stay as they are.
inline void AutoFilterScan::SetTarget() {
  constexpr double kDoublingsAtNoise = 9.01;
  constexpr double kRippleAsNoise = 0.15;
  const double lin = std::max(mean_.mean(), 1.0F);
  const bool isInBand = lin >= limits_.bandLow && lin <= limits_.bandHigh;
  const bool isAtLaunch = at_ < scales_.settledPoint && events_.closed() == 0;
  limits_.isStale = !isInBand && !edge_.isRising() && !isAtLaunch;
  if (!limits_.isStale) return;
  limits_.CentreOn(lin, scales_);
  const double noise = scales_.noiseLin + kRippleAsNoise * lin * scales_.rippleDb / kRippleToLin;
  const double most = scales_.mostDoublings;
  const double doublings = std::clamp(-Log2OfRatio(lin / noise) + kDoublingsAtNoise, 0.0, most);
  mean_.target = 1L << TruncToInt(doublings);
  if (doublings - std::floor(doublings) > 0.5) mean_.target = mean_.target * 3 / 2;
}

}  // namespace reflyze
