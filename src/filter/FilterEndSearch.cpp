// SPDX-License-Identifier: Apache-2.0

// Where the signal ends in a noisy tail.
//
// A weak fibre does not stop: it sinks into noise that has peaks of its own, and averaging has pushed the
// noise down by an amount that changes along the trace. What tells an end from a noise peak is a fall: in
// front of an end stands a level that, over as many points as were averaged, exceeds what lies behind it. So
// the search first settles how high the noise reaches, and then goes back from peak to peak, each time with a
// higher limit, until it meets one behind which the level falls for good.

#include <algorithm>
#include <cmath>
#include <optional>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/Filter.h"
#include "src/filter/Optics.h"
#include "util/convert.h"

using reflyze::TruncToLong;

namespace {

// Results that are no points.
constexpr long kNothing = 0;        // no noise behind the signal, or nothing but noise
constexpr long kNoSignal = -1;      // the stretch does not stand out of its noise
constexpr long kNoPeak = -2;        // nothing stood out in the first rounds
constexpr long kNoEnd = -3;         // the rounds ran out
constexpr long kNothingAbove = -4;  // the stretch is too short, or nothing lies above the limit

constexpr double kLeastOverTopDb = 1.5;  // above the top of the noise
constexpr double kGradedSignalDb = 3.0;  // from there on the fall of the signal is looked at
constexpr double kClearSignalDb = 7.5;   // from there on it is averaged in linear power
constexpr double kFirstLimitDb = 0.75;   // above the top of the noise, in the first round
constexpr double kLimitStepDb = 0.3;     // from round to round
constexpr double kSlopeBand = 1.5;       // factor within which a fall is that of a fibre
constexpr long kWeakAverage = 16;        // points averaged below which the noise was hardly pushed down
constexpr double kRoundedEdgeDb = 0.2;   // fall at which a rounded edge has begun
constexpr double kRippledEdgeDb = 0.75;  // the same on a trace with strong ripple
constexpr double kStrongRippleDb = 0.3;

// One search from `to` back to `from`. A stage that settles the result gives it; the others leave what they
// found to the next.
class EndSearch {
 public:
  EndSearch(const TSorFilter& filter, TSorData& sor, long from, long to, long w, const short* map,
            float polar, float span)
      : filter_(filter),
        sor_(sor),
        levels_(&sor),
        lin_(RefEmbGetLinf(&sor)),
        map_(map),
        from_(std::clamp(from, 0L, levels_.points())),
        to_(std::clamp(to, 0L, levels_.points())),
        window_(std::clamp(w, 0L, levels_.points())),
        rippleDb_(polar),
        spanDb_(span),
        slopeDb_(filter.dbOnDS),
        noiseDb_(sor.FxdParams->GetNF()),
        loweredDb_(noiseDb_ - SorMathLog5(static_cast<double>(Averaged(to_ - filter.pulseFallPoints))) / 2) {}

  long Run() {
    if (to_ - from_ < (Averaged(from_) + window_) * 3) return kNothingAbove;
    if (lin_ == nullptr) return kNothing;
    if (const auto end = FindNoise()) return *end;
    if (noiseAt_ >= to_) return kNothing;
    SettleNoiseTop();
    const double heightDb = Db(from_) - topDb_;
    if (heightDb < kLeastOverTopDb) return kNoSignal;
    GradeFall(heightDb);
    if (const auto end = FindEdge()) return *end;
    return PlaceEnd();
  }

 private:
  // --- Readings ---

  double Db(long point) const { return levels_[point]; }
  float Lin(long point) const { return Held()[point]; }
  reflyze::HeldSamples Held() const { return reflyze::HeldSamples(lin_, levels_.points()); }
  // Points averaged in the level of a point.
  long Averaged(long point) const {
    if (map_ == nullptr || levels_.points() == 0) return 1;
    return std::max<long>(map_[std::clamp(point, 0L, levels_.points() - 1)], 1);
  }
  // What the fibre itself loses over so many points.
  double FibreDb(long points) const { return slopeDb_ * static_cast<double>(points); }
  long LastAbove(long from, double db) const {
    return RefAutoSearchBackGreather(&sor_, from, static_cast<float>(db));
  }
  long FirstBelow(long from, double db) const {
    return RefAutoSearchStraightLess(&sor_, from, static_cast<float>(db));
  }
  // First point of the highest mean of `count` samples, with the fibre's loss made up.
  long HighestMean(long a, long b, long count, double lossDb, float& mean) const {
    count = std::clamp(count, 1L, levels_.points());
    a = std::clamp(a, 0L, levels_.points() - count);
    b = std::min(b, levels_.points());
    return RefAutoGetAvrMax(lin_, a, b, mean, static_cast<int>(count), static_cast<float>(lossDb));
  }
  long AsPoint(long point) const { return std::clamp(point, 0L, levels_.points()); }

  // --- The noise ---

  double SplitterDb() const;
  std::optional<long> FindNoise();
  std::optional<long> FollowFibre();
  long EndOfLine(long lineEnd);
  void SettleNoiseTop();
  void GradeFall(double heightDb);

  // --- Rounds ---

  std::optional<long> FindEdge();
  std::optional<long> FindPeak();
  void MeasureNoiseBehind();
  void PassNoisePeak();
  void StepInFront();
  long FirstPeak();
  std::optional<long> ClimbPeak();
  bool IsEdge();
  void RaiseLimit();

  // --- The place ---

  long PlaceEnd();
  long FootOfFall();
  long BeforePlainEdge(long edge);
  long BeforeRoundedEdge(long edge, long foot, long averaged, double needDb, float edgeLin);
  bool MoveBack(long edge, long& end);
  long TopAround(long end);

  const TSorFilter& filter_;
  TSorData& sor_;
  const reflyze::TraceLevels levels_;
  float* const lin_;
  const short* const map_;
  const long from_, to_;
  long window_;  // points of an event
  const double rippleDb_;
  const double spanDb_;   // loss of the link up to here
  const double slopeDb_;  // of the fibre, for a point
  const double noiseDb_;
  const double loweredDb_;  // noise floor as the averaging has lowered it

  long noiseAt_ = 0;     // from here on there is noise
  long topAt_ = 0;       // where it reaches highest; the peak that a round looks at
  double topDb_ = 0.0;   // how high it reaches
  float topLin_ = 0.0F;  // the same in linear power
  enum class Fall { kUnknown, kSteep, kFibre } fall_ = Fall::kUnknown;  // of the signal behind `from`

  bool isFirstRound_ = true;
  double limitDb_ = 0.0;  // that a point has to exceed in this round
  long above_ = 0;        // last point that does; then the point behind the peak
  long front_ = 0;        // the point in front of the peak
  double peakDb_ = 0.0;
  long firstPeak_ = -1;   // of the first round
  long base_ = 1;         // points over which a fall is taken
  long fallAt_ = 0;       // where the edge falls
  double frontDb_ = 0.0;  // mean level in front of it
};

// --- The noise ---

// What a splitter of so many outputs in all takes away. Splitters of unknown ratios count as many.
double EndSearch::SplitterDb() const {
  constexpr double kManyOutputs = 25.0;
  constexpr double kSplitterExcessDb = 1.0;  // that splitters lose besides dividing the light
  const TSorBlockQRTParameters& params = *sor_.QRTParams;
  if (params.PonType == 0) return 0.0;
  const double outputs = params.PonType == reflyze::kUnknownSplitters
                             ? kManyOutputs
                             : static_cast<double>(params.FirstSplitterRatio) * params.SecondSplitterRatio;
  return outputs >= 1.0 ? 2.0 * SorMathLog5(outputs) + kSplitterExcessDb : outputs;
}

// Before a splitter has been passed, all that rises above the lowered noise may still be signal. So it may
// with an end threshold that no loss reaches; the threshold of a record can not be set so high.
std::optional<long> EndSearch::FindNoise() {
  constexpr double kUnderFloorDb = 3.0;
  constexpr double kAnyLossDb = 100.5;
  if (SplitterDb() > spanDb_ || sor_.FxdParams->GetET() > kAnyLossDb) {
    noiseAt_ = LastAbove(to_ - 2, loweredDb_) + 1;
    return std::nullopt;
  }
  noiseAt_ = LastAbove(to_ - 2, noiseDb_) + 1;
  if (const auto end = FollowFibre()) return end;
  noiseAt_ = FirstBelow(noiseAt_, noiseDb_ - kUnderFloorDb);
  return std::nullopt;
}

// Where the trace still falls at the rate of a fibre when it passes the noise floor, the fibre goes on below
// it, and so do the averaged levels. Moves `noiseAt_` to where that ends, or finds the end on the way.
std::optional<long> EndSearch::FollowFibre() {
  constexpr double kRoomBelowNoiseDb = 5.0;
  constexpr double kBeyond = 1.2;       // of the way to the lowered noise
  constexpr double kUsablePart = 0.97;  // of the stretch: the rest is kept for the noise
  const long p = noiseAt_, averaged = Averaged(p);
  const long look = levels_.Near(std::max(2 * (averaged + window_), TruncToLong(1.0 / slopeDb_)));
  if (!(noiseDb_ - kRoomBelowNoiseDb > sor_.GetMinLevel()) || averaged < kWeakAverage) return std::nullopt;
  const double fallDb = Db(p - look) - Db(p);
  if (!(fallDb > 0.0 && fallDb < 2.0 * FibreDb(look))) return std::nullopt;

  const double usable = kUsablePart * static_cast<double>(to_);
  const double toLowered = kBeyond * (noiseDb_ - loweredDb_) / slopeDb_;
  long lineEnd = levels_.Near(TruncToLong(static_cast<double>(p) + toLowered));
  if (static_cast<double>(lineEnd + window_) > usable) {
    lineEnd = TruncToLong(usable - static_cast<double>(window_));
  } else {
    const double lineDb = Db(p - look) - Db(lineEnd), fibreDb = FibreDb(lineEnd - p + look);
    if (lineDb < kSlopeBand * fibreDb) {
      if (Db(p) - Db(p + window_ + 2 * averaged) > 2.0 * FibreDb(2 * averaged + window_)) {
        return AsPoint(RefautoSearchBeginOfSplice(&sor_, p - look, lineEnd, window_, Averaged(p - window_),
                                                  static_cast<float>(slopeDb_)));
      }
      if (lineDb > 0.5 * fibreDb) return EndOfLine(lineEnd);
    }
  }
  noiseAt_ = LastAbove(lineEnd, loweredDb_) + 1;
  return std::nullopt;
}

// The trace has followed the fibre down to the lowered noise at `lineEnd`. The end lies where it gets
// there, if it takes as long for the last part of the way as a fibre does, and else at the largest fall.
long EndSearch::EndOfLine(long lineEnd) {
  const long half = (Averaged(noiseAt_) + window_) / 2;
  const long upper = LastAbove(lineEnd, (loweredDb_ + noiseDb_) / 2);
  const long lower = FirstBelow(upper, loweredDb_);
  if (2.0 * FibreDb(lower - upper) > (noiseDb_ - loweredDb_) / 2) return AsPoint(lower);
  long fallAt = 0;
  RefAutoSearchMaxLinFall(lin_, upper - 2 * half, std::min(lower + 3 * half + window_, levels_.points()),
                          window_, 2 * half, static_cast<float>(slopeDb_), fallAt);
  return AsPoint(fallAt);
}

// The noise is taken clear of the fall into it, and not from the first two thirds while the level in front is
// still high. Where little was averaged, noise reaches as far below the floor of the scale as above it, and
// the larger of both counts.
void EndSearch::SettleNoiseTop() {
  constexpr double kHighInFrontDb = 5.0;
  const long event = Averaged(noiseAt_) + window_;
  if (Averaged(noiseAt_) < kWeakAverage && 6 * event < to_ - noiseAt_) noiseAt_ += 2 * event;
  if (Db(noiseAt_ - 2 * event) - noiseDb_ > kHighInFrontDb) noiseAt_ = std::max(noiseAt_, 2 * to_ / 3);

  float highestDb = 0.0F, lowestDb = 0.0F;
  topAt_ = RefAutoGetMax(&sor_, noiseAt_, to_, highestDb, 0);
  RefAutoGetMin(&sor_, noiseAt_, to_, lowestDb);
  if (Averaged(noiseAt_) < kWeakAverage && 6 * event < to_ - noiseAt_) {
    highestDb = std::max(highestDb, sor_.QRTParams->NLogToPLog(lowestDb));
  }
  topDb_ = std::min<double>(highestDb, noiseDb_);
  topLin_ = sor_.QRTParams->Log5ToLin(static_cast<float>(topDb_));
  window_ = std::max(window_, 1L);
}

// Whether the signal falls like a fibre where the stretch begins.
void EndSearch::GradeFall(double heightDb) {
  if (!(heightDb > kGradedSignalDb)) return;
  fall_ = Fall::kSteep;
  const long behind = from_ + window_ + Averaged(from_ + window_) + (to_ - from_) / 200;
  const long count = window_ / 3 + Averaged(behind) / 4 + 1;
  if (behind + count + 2 >= to_) return;
  const int mode = heightDb >= kClearSignalDb ? 1 : 0;
  const double fallDb = RefMathPower(&sor_, from_, count, mode) - RefMathPower(&sor_, behind, count, mode);
  const double fibreDb = FibreDb(behind - from_);
  if (fallDb > fibreDb / kSlopeBand && fallDb < fibreDb * kSlopeBand) fall_ = Fall::kFibre;
}

// --- Rounds ---

// Goes back from peak to peak. Gives a result where the search ends without an edge.
std::optional<long> EndSearch::FindEdge() {
  limitDb_ = topDb_ + kFirstLimitDb;
  do {
    if (const auto end = FindPeak()) return end;
    if (IsEdge()) return std::nullopt;
    RaiseLimit();
  } while (front_ > from_ + window_);
  return kNoEnd;
}

std::optional<long> EndSearch::FindPeak() {
  constexpr double kFarFromEnd = 0.8;   // of the stretch
  constexpr double kHardlyOutDb = 1.0;  // above its top
  constexpr double kNoJitterDb = 0.001;
  above_ = LastAbove(topAt_ - 1, limitDb_);
  if (above_ <= from_) return kNothingAbove;
  if (isFirstRound_ && static_cast<double>(above_) < kFarFromEnd * static_cast<double>(to_)) {
    MeasureNoiseBehind();
  }
  if (Db(above_) < topDb_ + kHardlyOutDb) PassNoisePeak();
  StepInFront();
  if (front_ < from_) {
    if (fall_ == Fall::kUnknown) return kNoPeak;
    if (fall_ == Fall::kFibre) return AsPoint(RefAutoOtkatEnd(&sor_, FirstPeak(), from_, kNoJitterDb));
    // Nothing was found as far back as the signal reaches. Its first peak is taken, and if that fails too
    // the search ends.
    above_ = FirstPeak() + 1;
    limitDb_ = topDb_ + kFirstLimitDb;
    front_ = above_ - window_ - Averaged(above_);
    fall_ = Fall::kUnknown;
  }
  return ClimbPeak();
}

// With much noise behind the last point above the limit, the noise is that behind it.
void EndSearch::MeasureNoiseBehind() {
  const long averaged = Averaged(above_);
  float highestDb = 0.0F;
  topAt_ = RefAutoGetMax(&sor_, std::min(above_ + averaged, to_), to_, highestDb, 0);
  topDb_ = highestDb;
  HighestMean(topAt_ - averaged, topAt_ + averaged, averaged, 0.0, topLin_);
}

// A point that hardly stands out, and in front of which there is no more light than behind it, is noise: the
// next one may stand for the signal.
void EndSearch::PassNoisePeak() {
  constexpr double kNoiseTops = 1.4;
  const long averaged = Averaged(above_);
  const long behind = above_ + averaged;
  const double fallLin = RefAutoGetAverage(lin_, above_ - averaged, averaged) -
                         RefAutoGetAverage(lin_, behind, std::min(averaged, to_ - behind));
  if (fallLin >= kNoiseTops * topLin_) return;
  const long next = LastAbove(above_ - averaged, limitDb_);
  if (next >= 0 && next < above_ - averaged) above_ = next;
}

// The point in front of what was found, further ahead by as much as the receiver needs for the fall between.
void EndSearch::StepInFront() {
  const double receiverDb = static_cast<double>(filter_.owtDS) * filter_.dbOnOwt;
  front_ = above_ - window_ - Averaged(above_);
  const double fallPoints = (Db(front_) - Db(above_)) / receiverDb;
  front_ = levels_.Near(TruncToLong(static_cast<double>(front_) - fallPoints));
}

// The peak of the first round; in that round itself, the one that it is about to find.
long EndSearch::FirstPeak() {
  float highestDb = 0.0F;
  return firstPeak_ >= 0 ? firstPeak_ : RefAutoGetMax(&sor_, front_, above_, highestDb, 1);
}

// As long as the trace stands clearly higher in front of a peak, the peak lies on a slope, and the search
// goes on to the next.
std::optional<long> EndSearch::ClimbPeak() {
  constexpr double kHigherDb = 0.5;
  if (front_ < 1) return kNothing;
  do {
    float highestDb = 0.0F;
    topAt_ = RefAutoGetMax(&sor_, front_, above_, highestDb, 1);
    peakDb_ = highestDb;
    front_ = topAt_ - Averaged(topAt_) - window_ / 2;
    if (front_ < 1) return kNothing;
  } while (front_ > from_ && Db(front_) > peakDb_ + kHigherDb);
  return std::nullopt;
}

// Whether the peak is one of the signal, and the level falls behind it for good.
bool EndSearch::IsEdge() {
  constexpr double kStandsOutDb = 1.5, kSurelySignalDb = 3.0;
  constexpr double kFlatDb = 0.3;   // by which a peak may lie below the middle between its sides
  constexpr double kSidesDb = 1.0;  // by which the trace may stand lower in front than behind
  constexpr double kLargestLimitDb = 5.0, kLeastEdgeDb = 0.5, kLeastFallDb = 1.5;
  const long averaged = Averaged(front_);
  above_ = std::min(topAt_ + window_ + averaged, to_);
  base_ = window_ / 3 + averaged / 4 + 1;
  const double limitDb = kLargestLimitDb * static_cast<double>(base_) / static_cast<double>(averaged + base_);
  front_ = 2 * topAt_ - above_;

  const bool isSignal = peakDb_ > topDb_ + kStandsOutDb &&
                        Db(front_) + Db(above_) < 2.0 * Db(topAt_) + kFlatDb &&
                        (peakDb_ > noiseDb_ + kSurelySignalDb || Db(front_) + kSidesDb > Db(above_));
  if (!isSignal) return false;
  const double edgeDb =
      RefAutoSearchMaxdbFall(&sor_, topAt_, above_, base_, fallAt_, static_cast<float>(limitDb));
  const long behind = above_ + Averaged(above_);
  const double behindDb = std::max(RefMathPower(&sor_, behind, Averaged(above_), 1), topDb_ - kFirstLimitDb);
  frontDb_ = RefMathPower(&sor_, topAt_ - Averaged(topAt_), Averaged(topAt_), 0);
  return edgeDb > kLeastEdgeDb && frontDb_ - behindDb > kLeastFallDb;
}

void EndSearch::RaiseLimit() {
  if (isFirstRound_) firstPeak_ = topAt_;
  isFirstRound_ = false;
  limitDb_ += kLimitStepDb;
  if (peakDb_ + kLimitStepDb > limitDb_) {
    limitDb_ = peakDb_ + kLimitStepDb;
    if (peakDb_ > topDb_ && peakDb_ < loweredDb_) topDb_ = peakDb_;
  }
  topAt_ = front_;
}

// --- The place ---

long EndSearch::PlaceEnd() {
  constexpr double kAlmostNoiseDb = 3.0;
  const long foot = FootOfFall();
  if (base_ < 3 || (frontDb_ <= noiseDb_ && Db(front_) <= frontDb_ - kAlmostNoiseDb)) return AsPoint(foot);

  long averaged = Averaged(foot);
  if (base_ < averaged && Db(foot) > topDb_ + kGradedSignalDb) averaged = base_;
  averaged = std::max(std::min(averaged, window_), window_ / 4);
  float edgeLin = 0.0F;
  const long edge =
      HighestMean(foot - base_ - 2, window_ / 10 + foot, averaged, slopeDb_, edgeLin) + averaged - 1;

  // The fall that stands out of what noise is left after that averaging.
  constexpr double kNoiseFallDb = 2.2, kLargestNeedDb = 3.0, kPlain = 1.2;
  const double noiseShare = std::sqrt(static_cast<double>(Averaged(to_ - 1)) / static_cast<double>(averaged));
  const double needDb =
      std::min(kNoiseFallDb / TSorBlockQRTParameters::poww(Db(foot) - topDb_) * noiseShare, kLargestNeedDb) +
      rippleDb_;
  const double edgeDb = Db(edge) - (Db(foot) + FibreDb(foot - edge));
  if (edgeDb >= kPlain * needDb) return BeforePlainEdge(edge);
  return BeforeRoundedEdge(edge, foot, averaged, needDb, edgeLin);
}

// The fall was found over a base, and begins an event's width before the end of that. Averaging has
// smeared it over half of the points averaged; a long base covers a part of these.
long EndSearch::FootOfFall() {
  long foot = fallAt_ + base_ - window_;
  if (base_ > window_) foot -= Averaged(fallAt_ - window_) / (base_ > 2 * window_ ? 2 : 4);
  const long stop = foot + 2 * (filter_.pulsePoints - window_);
  while (foot >= stop && Db(foot - 1) > Db(foot) + 2.0 * slopeDb_) --foot;
  return foot;
}

// The end is the last point before the edge rises: the lowest one there, in the smoothed trace and then among
// the samples, or a neighbour from which it has not begun to rise.
long EndSearch::BeforePlainEdge(long edge) {
  constexpr long kMostEdgePoints = 10;
  constexpr float kStillFlat = 1.0F / 30.0F;  // of the next rise
  edge = Held().Held(edge);
  float lowestDb = 0.0F, lowestLin = 0.0F;
  const long first = std::max(edge - std::min(base_, kMostEdgePoints), 0L);
  long end = RefAutoGetMin(&sor_, first, edge, lowestDb);
  end = RefAutoGetMin(lin_, end, std::max(edge - 1, end), lowestLin, 1);
  if (Db(end + 1) - Db(end) < rippleDb_ / 2 - slopeDb_) ++end;
  if (Lin(end + 1) - Lin(end) < (Lin(end + 2) - Lin(end + 1)) * kStillFlat) ++end;
  return AsPoint(end);
}

// Without a clear edge the end lies where the trace has left the highest mean in front of the fall.
long EndSearch::BeforeRoundedEdge(long edge, long foot, long averaged, double needDb, float edgeLin) {
  float meanLin = 0.0F;
  edge = std::min(edge, foot - 2 * averaged);
  const long highest = HighestMean(edge, window_ / 10 + foot, averaged, 2.0 * slopeDb_, meanLin);
  edge = std::max(edge, 0L);
  long corner = RefAutoOtkatEnd(&sor_, highest + averaged - 1, highest + averaged - 3, needDb);
  long end = FirstBelow(corner, Db(corner) - (rippleDb_ > kStrongRippleDb ? kRippledEdgeDb : kRoundedEdgeDb));
  if (Averaged(foot) > kWeakAverage && window_ > kWeakAverage) {
    float lowestDb = 0.0F;
    corner = RefAutoGetMin(&sor_, edge, corner, lowestDb);
    const double dipDb = static_cast<double>(sor_.QRTParams->LinToLog5(edgeLin)) - lowestDb;
    if (dipDb > needDb && end - corner > 3 * window_ / 4 && end - corner < window_) return AsPoint(corner);
  }
  if (!MoveBack(corner, end)) return kNothingAbove;
  return Db(end) > noiseDb_ ? TopAround(end) : AsPoint(end);
}

// A fall from the corner to the end that averaging has drawn out: the signal really ended earlier, by the
// share of the averaged points that was dark already. False where the samples themselves do not fall.
bool EndSearch::MoveBack(long corner, long& end) {
  constexpr long kAveraged = 4;     // points from which on the samples can tell more than the levels
  constexpr long kWideWindow = 10;  // and from which on three of them are taken together
  const double fallDb = Db(corner) - Db(end) - FibreDb(end - corner);
  if (!(fallDb > rippleDb_ && Db(corner) > noiseDb_)) return true;
  const long averaged = Averaged(corner);
  long move =
      TruncToLong((1.0 - TSorBlockQRTParameters::poww(-fallDb)) * static_cast<double>(averaged + window_));
  if (averaged > kAveraged && Lin(corner) > 0.0F && Lin(end) > 0.0F) {
    if (Lin(corner) <= Lin(end)) return false;
    // With so many points averaged, only a narrow window leaves a single sample to judge by.
    const auto around = [this](long point) {
      const double own = Lin(point);
      return window_ < kWideWindow ? own : Lin(point - 1) + own + Lin(point + 1);
    };
    const double left = around(end) / around(corner);
    move = std::min(move + averaged, TruncToLong((1.0 - left) * static_cast<double>(window_)));
  }
  end -= move;
  return true;
}

// An end above the noise is that of a reflection: the foot of the highest sample around it.
long EndSearch::TopAround(long end) {
  const long reach = Averaged(end) / 10;
  float highestLin = 0.0F;
  long point = HighestMean(end - reach, end + reach, 1, slopeDb_, highestLin);
  if (Lin(point) > Lin(point - 1)) {
    while (point > 0 && Lin(point) > Lin(point - 1)) --point;
    return AsPoint(point);
  }
  return AsPoint(Lin(point + 1) > Lin(point) ? point + 1 : point);
}

}  // namespace

long TSorFilter::SearchEnd(TSorData* sor, long from, long to, long w, short* map, float polar,
                           float span) const {
  if (sor == nullptr) return kNothing;
  return EndSearch(*this, *sor, from, to, w, map, polar, span).Run();
}
