// SPDX-License-Identifier: Apache-2.0

// An event, and where it lies.
//
// A fall that exceeds the limit is first looked at once more: it may still be growing, belong to the tail in
// front, or vanish when both sides are measured. What stays is placed: where the filter has averaged many
// points, by means of the unfiltered samples; otherwise by the steepest fall, from which the search goes on
// to where the trace is fibre again, and back to where it stops being fibre. A reflection too small for the
// filter shows as a rise in front of the fall.

#include <cmath>

#include "src/analysis/SpliceScan.h"
#include "src/filter/Optics.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {

namespace {

constexpr int kSharpEdgeGrade = 10;      // a strong event in front ends in a sharp fall of its own
constexpr long kManyMeanPoints = 16;     // above, the filter has smeared a step too far to place it by levels
constexpr double kLossyDb = 3.0;         // a loss so large takes the receiver longer to follow
constexpr double kLongPulseSteps = 3.0;  // below this many own falls the least event may hide in the slope
// Means of three windows grow by a sixth of a step for each stride of half a window; of a step of half the
// limit, the smallest that counts, that is a twelfth of the limit. Half of it tells growth from noise.
constexpr double kGrowthShare = 1.0 / 24.0;
constexpr double kSmallReflectionDb = 0.1;  // lower than this its foot has to be searched
constexpr double kFlatShare = 0.7;          // of the fibre's slope; flatter than this is the foot of a rise
constexpr double kFootShare = 1.0 / 30.0;   // a rise so much smaller than the next one is still the foot
constexpr double kSteepSlopes = 100.0;      // a step this many times steeper than fibre is a sharp one ...
constexpr double kSteepNoisySlopes = 10.0;  // ... or this many, times the root of the points averaged

}  // namespace

StepScan::Verdict StepScan::JudgeEvent(const Step& step) {
  if (PassGrowingFall(step)) return Verdict::kGoOn;
  if (at_ < tail_ && step.fallDb < 2 * limits_.eventFallDb) return Verdict::kGoOn;
  if (noise_.peakCount > kRippledStretch) {
    windows_.side = std::max(windows_.side, std::min(2L * noise_.peakWidthMax, levels_.points()));
  }
  if (!IsConfirmed(step)) {
    at_ = step.end;
    return Verdict::kGoOn;
  }
  if (IsSharpBehindStrongEvent(step)) {
    at_ = step.end + windows_.fine;
    return Verdict::kGoOn;
  }
  return PlaceEvent(step);
}

// On to where the fall is largest.
bool StepScan::PassGrowingFall(const Step& step) {
  const HeldSamples lin(scale_.linf, levels_.points());
  const long m = windows_.stride;
  if (rules_.readsMeans && ShiftedFallDb(step, m) > ShiftedFallDb(step, 0) + kGrowthShare * limits_.eventDb) {
    at_ += m - 1;
    return true;
  }
  if (step.fallDb > 2 * limits_.eventFallDb && m > 3 && !lin.empty() &&
      ShiftedFallDb(step, 2) > step.fallDb + 4 * fibreDb_ &&
      lin[at_ + 2] - lin[step.end + 2] > lin[at_] - lin[step.end]) {
    at_ += 1;
    return true;
  }
  if (m > 50 && limits_.leastPerOwnFall < kLongPulseSteps &&
      ShiftedFallDb(step, m / 3) > step.fallDb + static_cast<double>(m) / 6 * fibreDb_) {
    at_ += m / 3;
    return true;
  }
  return false;
}

// Behind a strong event a fall from one point to the next is the edge of an echo, unless it is the whole
// fall.
bool StepScan::IsSharpBehindStrongEvent(const Step& step) const {
  if (winEvent_ < 2 || frontEvent_.Am() < kSharpEdgeGrade) return false;
  const double lastDb = PointFallDb(step.end - 1, step.end);
  const double restDb = std::fabs(step.fallDb - lastDb);
  return lastDb > limits_.eventFallDb && lastDb > (5.0 / static_cast<double>(winEvent_) + 1.0) * restDb;
}

StepScan::Verdict StepScan::PlaceEvent(const Step& step) {
  const long last = std::min(step.end + 2 * windows_.fine, end_ - 1);
  const long first = std::max(at_ - windows_.fine, from_ + windows_.fine);
  const long mean = MeanPoints(first);
  if (mean > kManyMeanPoints && mean > windows_.fine && scale_.linf != nullptr)
    return PlaceInMeans(first, last);
  const Edges edges = MeasureEdges(first, last);
  if (TakeSmallReflection(step, edges)) return Verdict::kFound;
  PlaceEnd(edges.steepestDb);
  PlaceBegin(edges);
  if (BelongsToFront()) {
    MoveFrontBehindFind();
    return Verdict::kGoOn;
  }
  lossDb_ = static_cast<float>(FindLossDb());
  PinBegin();
  return ReportStep();
}

// --- By means of the unfiltered samples ---

StepScan::Verdict StepScan::PlaceInMeans(long first, long last) {
  const long mean = std::max({MeanPoints(first), windows_.fine, 4L});
  const TSorBlockQRTParameters& scale = *sor_->QRTParams;
  const float frontLin = RefAutoGetAverage(scale_.linf, first - mean, mean);
  const float fallLin = FallOfMeans(first, last, mean, winEvent_);
  const float lossDb = static_cast<float>(scale.LinToLog5(frontLin) - scale.LinToLog5(frontLin - fallLin) -
                                          fibreDb_ * static_cast<double>(winEvent_));
  // A small loss is over before the receiver would have followed a large one.
  const long pulsePoints = TruncToLong(lossDb / kRecoveryDb * static_cast<double>(winEvent_ - winPulse_) +
                                       0.5 + static_cast<double>(winPulse_));
  const long edge = std::clamp(pulsePoints, 1L, winEvent_);
  if (edge < winEvent_) FallOfMeans(first, last, mean, edge);
  if (lossDb < limits_.faultDb) {
    at_ += winEvent_ - 1;
    return Verdict::kGoOn;
  }
  lossDb_ = lossDb;
  find_.begin = Held(find_.peak - 1L);
  find_.rise = Held(find_.peak + edge);
  long end = find_.rise + windows_.fine + MeanPoints(find_.rise) / 2;
  if (lossDb > kLossyDb) {
    const long settled = SettledFrom(end);
    if (settled >= 0) end = settled;
  }
  find_.end = Held(std::min(end, end_ - 1));
  find_.gradeUp = 1;
  find_.gradeDown = Grade(lossDb / limits_.faultDb + 0.5);
  find_.type = 'S';
  return Verdict::kFound;
}

// The largest fall between means of the samples, `gap` points apart, in linear power; the point in front of
// it becomes the peak of the find. A gap longer than the edge leaves the place open by the difference: of the
// means behind it that are about as high, with the fibre's slope taken out, the last ends at the edge.
float StepScan::FallOfMeans(long first, long last, long mean, long gap) {
  long at = first;
  const float fallLin =
      RefAutoSearchMaxLinFall(scale_.linf, first - mean, std::min(last + mean, levels_.points()), gap, mean,
                              static_cast<float>(fibreDb_), at);
  float highest = 0;
  const long window = HighestMean(at - mean, at + gap, mean, fibreDb_, highest);
  find_.peak = Held(std::max(at, window + mean - 1));
  return fallLin;
}

long StepScan::HighestMean(long from, long to, long width, double slopeDb, float& mean) const {
  const long points = levels_.points();
  const long first = std::clamp(from, 0L, points - 1);
  const int held = static_cast<int>(std::clamp(width, 1L, points - first));
  return RefAutoGetAvrMax(scale_.linf, first, std::min(to, points), mean, held, static_cast<float>(slopeDb));
}

// --- A reflection that the filter has not seen ---

StepScan::Edges StepScan::MeasureEdges(long first, long last) {
  Edges edges{first, first, first, 0.0};
  long steepest = first;
  const float dbPerKm = RefAutoSearchMaxFall(sor_, first, last, windows_.fine, steepest);
  edges.steepestDb = dbPerKm * scale_.lenDS - fibreDb_;
  find_.peak = Held(steepest);
  float fallDb = 0, riseDb = 0;
  RefAutoSearchMaxdbRiseFall(sor_, first, last, windows_.edge, fallDb, edges.atFall, riseDb, edges.atRise,
                             static_cast<float>(fibreDb_));
  return edges;
}

// A long pulse makes a small reflection look like a gentle fall; a rise in front of it that noise doesn't
// explain gives it away.
bool StepScan::TakeSmallReflection(const Step& step, const Edges& edges) {
  const bool gentle = limits_.leastPerOwnFall < kLongPulseSteps && edges.steepestDb < 10 * fibreDb_;
  const long limit = step.end - windows_.fine;
  if (!(gentle || tooSteepCrest_) || edges.atRise >= limit || scale_.linf == nullptr) return false;
  const long k = windows_.edge;
  float topLin = 0;
  const long top = HighestMean(edges.atRise - k, limit, k, 0.8 * fibreDb_, topLin);
  const TSorBlockQRTParameters& scale = *sor_->QRTParams;
  const double heightDb = scale.LinToLog5(topLin) -
                          scale.LinToLog5(RefAutoGetAverage(scale_.linf, edges.atRise - k, k)) +
                          static_cast<double>(top - (edges.atRise - k)) * fibreDb_;
  // The working noise counts twice here, once in the smallest step: a weak reflection has to be sure.
  if (heightDb <= noise_.noiseAmp + GetFault(scale_, noise_, step.frontDb, k)) return false;
  find_.peak = Held(top);
  const long foot = FootOfRise(edges.atRise, heightDb, step.end);
  find_.begin = Held(foot);
  if (std::labs(edges.atFall - foot - winEvent_) < k) {
    find_.rise = Held(edges.atFall + k / 2);
    const long settled = SettledFrom(find_.rise);
    find_.end = Held(settled >= 0 ? settled : find_.rise + k);
  } else {
    find_.rise = Held(foot + winPulse_);
    find_.end = Held(foot + windows_.fall);
  }
  lossDb_ = static_cast<float>(FindLossDb());
  find_.gradeUp = 1;
  find_.gradeDown = Grade(lossDb_ / limits_.eventDb + 0.5);
  find_.type = 'r';
  return true;
}

// From where a rise was found to the point at which it begins.
long StepScan::FootOfRise(long at, double heightDb, long limit) const {
  if (windows_.edge > 2 && heightDb < kSmallReflectionDb) {
    while (at > from_ && PointFallDb(at - 2, at) < kFlatShare * fibreDb_) --at;
  }
  while (at < limit && PointFallDb(at, at + 1) > fibreDb_) ++at;
  const HeldSamples lin(scale_.linf, levels_.points());
  if (lin[at + 1] - lin[at] < kFootShare * (lin[at + 2] - lin[at + 1])) ++at;
  return at;
}

// Where the trace falls no faster than fibre; -1 where it doesn't in this stretch.
long StepScan::SettledFrom(long point) const {
  return FallingBy(0, limits_.tailSlopeDb, point, end_, windows_.stride, Side::kFirst);
}

// --- A step ---

double StepScan::FindLossDb() const {
  return PointFallDb(find_.begin, find_.end) - static_cast<double>(find_.end - find_.begin) * fibreDb_;
}

// The step is over where the trace falls by no more than a third of its steepest rate. Behind that lies what
// the receiver needs, but not the next fall.
void StepScan::PlaceEnd(double steepestDb) {
  const long recovery = windows_.fall - winPulse_;
  const long fine = windows_.fine;
  long rise = FallingBy(fibreDb_, steepestDb / 3 + fibreDb_, find_.peak, end_, fine, Side::kFirst);
  long end = 0;
  if (rise < at_) {
    rise = find_.peak + recovery;
    end = rise + 1;
    while (end < scanEnd_ && PointFallDb(end, end + 1) > fibreDb_) ++end;
  } else {
    end = rise + recovery;
    const long nextFall = FallingBy(steepestDb / 2.5 + fibreDb_, fibreDb_ + steepestDb, rise,
                                    std::min(end + fine, end_), fine, Side::kFirst);
    if (nextFall > rise) end = nextFall;
  }
  find_.rise = Held(std::min(rise, end_ - 1));
  find_.end = Held(std::min(end, end_ - 1));
}

// The step begins at the end of the first stretch that falls by a good part of the steepest rate: there
// the window has just reached the step. On a short window noise looks the same, and the middle of the step
// is taken. On a long stretch noise falls like that somewhere, so that only the surroundings are searched.
void StepScan::PlaceBegin(const Edges& edges) {
  const double steepestDb = edges.steepestDb;
  const long m = windows_.stride;
  const long from = std::max(from_, edges.first - m);
  long begin = (find_.peak + find_.rise - winPulse_) / 2;
  if (noise_.noiseAmp / static_cast<double>(m) < steepestDb / 2 || m >= 6) {
    begin = FallingBy(steepestDb / 5 + fibreDb_, fibreDb_ + steepestDb, from, find_.peak, m, Side::kLast);
  }
  if (begin < m) begin = find_.peak - winPulse_ / 2;
  find_.begin = Held(begin);
}

// A step that begins inside the tail of the event in front, with no straight fibre between them. A tail is
// steeper than fibre and gets flatter, whereas what falls faster behind its begin than in front of it is a
// step on the tail: a splice a pulse or two behind a connector looks like that.
bool StepScan::BelongsToFront() const {
  if (find_.begin >= tail_) return false;
  const long m = windows_.stride;
  if (find_.begin - m < frontEvent_.end) return true;
  const double beforeDb = PointFallDb(find_.begin - m, find_.begin);
  const double behindDb = PointFallDb(find_.begin, find_.begin + m);
  return beforeDb > static_cast<double>(m) * limits_.tailSlopeDb && beforeDb >= behindDb;
}

void StepScan::MoveFrontBehindFind() {
  constexpr int kKeepsRiseGrade = 10;  // a weaker event takes over where the find has risen
  frontEvent_.end = std::max(frontEvent_.end, find_.end);
  if (frontEvent_.Am() < kKeepsRiseGrade) frontEvent_.rise = find_.rise;
  at_ = std::max<long>(at_, frontEvent_.end);
}

// The exact begin: of a steep step by its middle, of a gentle one by the last level that still belongs to the
// fibre in front; then forward over what falls no faster than fibre.
void StepScan::PinBegin() {
  const long width = std::max(MeanPoints(find_.peak + 1L), winEvent_);
  const double slopes = lossDb_ / static_cast<double>(width) / fibreDb_;
  const double noisySlopes = kSteepNoisySlopes * std::sqrt(static_cast<double>(MeanPoints(at_)));
  const bool steep = slopes > kSteepSlopes ||
                     (winEvent_ > 3 && slopes > noisySlopes && find_.rise - find_.begin > windows_.fall);
  long begin = 0;
  if (steep) {
    begin = BeginOfSteepStep(width);
  } else {
    const long front = find_.begin - windows_.fine;
    const double levelDb = LevelDb(front) - JitterDb(front);
    begin = RefAutoSearchBackGreather(sor_, find_.rise, static_cast<float>(levelDb));
  }
  begin = std::max(begin, from_);
  while (begin < find_.rise && PointFallDb(begin, begin + 1) < fibreDb_) ++begin;
  find_.begin = Held(begin);
}

// Half the width in front of the point where half of the light is lost, and from there back while the samples
// are lower than those before them.
long StepScan::BeginOfSteepStep(long width) const {
  const TSorBlockQRTParameters& scale = *sor_->QRTParams;
  const double frontDb = LevelDb(find_.begin);
  const double middleLin = (scale.Log5ToLin(frontDb) + scale.Log5ToLin(frontDb - lossDb_)) / 2;
  const float middleDb = static_cast<float>(scale.LinToLog5(middleLin));
  long begin = std::max(RefAutoSearchBackGreather(sor_, find_.rise, middleDb) - width / 2, from_);
  if (scale_.linf == nullptr) return begin;
  const double share = TSorBlockQRTParameters::poww(JitterDb(begin - windows_.fine));
  while (begin > from_ + windows_.fine &&
         scale_.linf[begin] < RefAutoGetAverage(scale_.linf, begin - windows_.fine, windows_.fine) / share) {
    --begin;
  }
  return begin;
}

// By how much a level may lie below that a fine window in front of it without being part of a step, in dB.
double StepScan::JitterDb(long point) const {
  return GetFault(scale_, noise_, LevelDb(point), 1) / 4 + static_cast<double>(windows_.fine) * fibreDb_;
}

// Nothing is reported so close to the next event that both are the same.
StepScan::Verdict StepScan::ReportStep() {
  if (end_ - find_.begin < winPulse_ / 2 + 1) return Verdict::kNothing;
  find_.gradeUp = 0;
  // The grade of a strong event is negative, and so is that of a large step.
  const double lossLin = elementary::Exp10(std::fabs(lossDb_) / 5);
  find_.gradeDown = -Grade(elementary::Log2(lossLin / elementary::Exp10(limits_.eventDb / 5)));
  find_.type = 'S';
  return Verdict::kFound;
}

}  // namespace reflyze
