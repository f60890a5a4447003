// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoSteps.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "ref/math/levelMean.h"
#include "ref/math/ref_Math.h"
#include "sor/sorData.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoNumerics.h"
#include "src/filter/AutoLimits.h"

// Steps by power differences: the mean level of a window against that of a second window some way behind it,
// less what the fibre loses in between. A loss leaves the second window low, a reflection lifts it. The
// distance between the windows is varied, since nobody knows the width of the event.

namespace reflyze {

namespace {

constexpr double kMeansInLinearDb = 1.5;  // this close to the noise floor, only linear power averages truly
constexpr long kShortestSlid = 4;         // points; below, a new mean costs no more than moving the old one
constexpr long kStridesPerWindow = 15;    // long windows are moved on in strides, to bound the double loop

// Where pairs of windows are compared, in points, and the fall that is no event, in dB per point.
struct PairRange {
  long from, to;  // the second window ends before `to`
  long pin;       // length of a window
  long d1, d2;    // shortest and longest way between the two
  double slope;

  long DistanceStride() const { return (d2 - d1) / kStridesPerWindow + 1; }
  long WindowStride() const { return pin / kStridesPerWindow + 1; }
};

PairRange MakeRange(long from, long to, long pin, long d1, long d2, double slope) {
  return {from, to, std::max(pin, 1L), d1, std::max(d1, d2), std::max(slope, 0.0)};
}

double MeanAnew(const TraceScale& scale, long point, long pin, int mode, double) {
  return AveragePower(scale, point, pin, mode);
}
float MeanAnew(const TraceScale& scale, long point, long pin, int mode, float) {
  float* lin = point >= 0 ? scale.linf : nullptr;  // in front of the trace there are levels only
  return RefMathPower(scale.sor, lin, point, pin, mode);
}

// The mean level of a window that moves along the trace by `stride` points at a time.
template <class Real>
class WindowLevel {
 public:
  WindowLevel(const TraceScale& scale, long pin, long stride)
      : scale_(scale), means_(*scale.sor), inARow_(*scale.sor, pin), pin_(pin), stride_(stride) {}

  // Forgets the last place: the next mean is taken anew.
  void Restart() { started_ = false; }
  Real At(long point, bool linear) {
    const bool movable = started_ && pin_ >= kShortestSlid && !linear && stride_ == 1;
    level_ = movable ? means_.Moved(level_, point, pin_) : Anew(point, linear);
    started_ = true;
    return level_;
  }

 private:
  // Short windows start at one point after the other, longer ones in strides.
  Real Anew(long point, bool linear) {
    static_assert(kStridesPerWindow <= MeansInARow<Real>::kLongestWindow, "");
    const bool inARow = pin_ < kStridesPerWindow && !linear && inARow_.Reach(point);
    return inARow ? inARow_.Over(point) : MeanAnew(scale_, point, pin_, linear ? 1 : 0, Real());
  }

  const TraceScale& scale_;
  const LevelMean<Real> means_;
  MeansInARow<Real> inARow_;
  const long pin_, stride_;
  Real level_ = 0;
  bool started_ = false;
};

// Calls `visit(point, distance, before, behind, step)` for every pair, until one says true. `step` is what
// the level falls by beyond the slope, in dB. Double precision reads levels, single precision the linear
// trace.
template <class Real, class Visit>
void ForEachPair(const TraceScale& scale, const PairRange& range, Visit visit) {
  WindowLevel<Real> first(scale, range.pin, range.WindowStride());
  WindowLevel<Real> second(scale, range.pin, range.DistanceStride());
  bool linear = false;
  for (long p = range.from; p < range.to - 2 * range.pin - range.d2; p += range.WindowStride()) {
    const Real before = first.At(p, linear);
    second.Restart();
    for (long d = range.d1; d <= range.d2; d += range.DistanceStride()) {
      const Real behind = second.At(p + range.pin + d, linear);
      linear = behind <= scale.nf + kMeansInLinearDb;
      const Real step = static_cast<Real>(before - behind - static_cast<double>(range.pin + d) * range.slope);
      if (visit(p, d, before, behind, step)) return;
    }
  }
}

// The two conditions that end the search for a loss or a gain, and where each says the event is.
class FirstStep {
 public:
  FirstStep(const TraceScale& scale, const PairRange& range, double upDb, double downDb)
      : scale_(scale), range_(range), upDb_(upDb), downDb_(downDb), at_(range.from) {}

  bool operator()(long p, long d, float before, float behind, float step) {
    step_ = step;
    at_ = p;
    if (step > upDb_) return true;
    if (-step > downDb_) {
      at_ = StartOfGain(p, d, before, behind);
      return true;
    }
    if (step < downDb_) return false;  // as most are
    return behind > scale_.nf + kMeansInLinearDb && step > 0.0F && IsSuddenGain(p, before, behind, step);
  }
  long at() const { return at_; }
  float stepDb() const { return step_; }

 private:
  // A reflection begins where the level has risen half way, and a little before it.
  long StartOfGain(long p, long d, float before, float behind) const {
    const double half = before + (behind - before) / 2.0F;
    const long rise = SearchBackLess(scale_, p + 2 * range_.pin - 1 + d, half, 0);
    return OtkatEnd(scale_, rise, range_.from, RequireFault(behind - scale_.nf, 1));
  }

  // Between a window and a lower one behind it, a single point may stand out: a reflection narrower than
  // both.
  bool IsSuddenGain(long p, float before, float behind, float step) {
    const double top = scale_.sor->NumTofLevel(p + range_.pin + 1);
    double gain = before - top - static_cast<double>(range_.pin / 2 + 1) * range_.slope;
    if (-gain < downDb_) return false;
    gain = std::min(gain, scale_.sor->NumTofLevel(p + range_.pin) - top - range_.slope);
    const double limit = std::max(RequireFault(behind - scale_.nf, range_.pin), downDb_);
    if (-gain <= limit || step <= limit) return false;
    step_ = static_cast<float>(gain);
    at_ = p + range_.pin;
    return true;
  }

  const TraceScale& scale_;
  const PairRange range_;
  const double upDb_, downDb_;
  long at_;
  float step_ = 0.0F;
};

}  // namespace

long SearchLoss(const TraceScale& scale, double up, double down, long from, long to, long pin, long d1,
                long d2, double slope, float& step) {
  const PairRange range = MakeRange(from, to, pin, d1, d2, slope);
  FirstStep find(scale, range, up, down);
  ForEachPair<float>(scale, range, std::ref(find));
  step = find.stepDb();
  return find.at();
}

double VarPowerTest(const TraceScale& scale, double limit, long& pos, long from, long to, long pin, long d1,
                    long d2, double slope) {
  const PairRange range = MakeRange(from, to, pin, d1, d2, slope);
  double best = 0.0;
  double lowest = std::numeric_limits<double>::infinity();  // strongest gain
  long gainAt = from;                                       // second window of that pair
  pos = from;
  ForEachPair<double>(scale, range, [&](long p, long d, double, double, double stepDb) {
    if (stepDb < lowest) {
      lowest = stepDb;
      gainAt = p + range.pin + d;
    }
    if (std::abs(stepDb) > std::abs(best)) {
      best = stepDb;
      pos = p + range.pin - 1;
    }
    return false;
  });
  if (lowest == std::numeric_limits<double>::infinity()) return best;

  // A reflection shows first as a gain and then, from its top down, as a loss that may be the larger one. The
  // event is where it rises.
  const bool lossBehindGain = pos > gainAt && pos < gainAt + 2 * range.pin + range.d2;
  if (lossBehindGain || -lowest > limit) {
    const double before = AveragePower(scale, gainAt - range.pin - range.d1, range.pin, 0);
    lowest = std::min(lowest, before - GetMax(scale, gainAt, range.pin));
    if (-lowest > limit) {
      const double half = before - lowest / 2.0;
      pos = SearchBackLess(scale, SearchStraightGreather(scale, gainAt, half), half, 0);
      best = lowest;
    }
  }
  return best;
}

double SearchMaxDbOwt(const TraceScale& scale, double limit, double owt, double dOwt) {
  const long tracePoints = scale.sor->DataPts->GetPointsNum();
  const long from = HeldPoint(scale.sor->OwtTofNum(owt), tracePoints) + 1;
  const long to = HeldPoint(scale.sor->OwtTofNum(dOwt), tracePoints) + 5;
  const long pin = 2 + std::max(0L, (to - from) / 10 - 2);
  long at = from;
  // A gain counts first once it exceeds the working step; the fibre's slope is part of what is asked for.
  const double stepDb = VarPowerTest(scale, limit, at, from, to, pin, 1, 1, 0.0);
  return stepDb / (scale.sor->NumToOwt(at + pin + 1) - scale.sor->NumToOwt(at));
}

}  // namespace reflyze
