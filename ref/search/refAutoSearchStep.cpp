// SPDX-License-Identifier: Apache-2.0

// Steps: the largest one, where one begins, where a fall ends, and how sharply the trace bends.

#include <cmath>
#include <limits>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"

using reflyze::TraceLevels;

namespace {

// The largest step over a base beyond the fibre's slope. A bare difference over the base takes a step that is
// longer than the base for a small one and a spike for a large one; so each difference is weighed with the
// levels one base before and one base behind.
class LargestStep {
 public:
  LargestStep(const TraceLevels& levelDb, long base, float slopeDb)
      : levelDb_(levelDb), base_(base), slopeDb_(slopeDb), dropDb_(static_cast<float>(base) * slopeDb) {}

  // Searches `a` to `b`. Returns false when it stopped at a step of `limitDb`; its neighbourhood is then in
  // `from` and `to`.
  bool Search(long a, long b, float limitDb) {
    stepDb = 0;
    at = a;
    for (long i = a; i <= b - base_; ++i) {
      const float fallDb = levelDb_.FallDb(i, i + base_);
      if (!(std::fabs(fallDb - dropDb_) > std::fabs(stepDb))) continue;
      from = std::max(i - base_, a);
      to = std::min(i + 2 * base_, b);
      const float candidateDb = i - a < base_ ? AtStartDb(fallDb) : InsideDb(i, fallDb);
      if (!(std::fabs(candidateDb) > std::fabs(stepDb) + kClearlyDb)) continue;
      at = i;
      stepDb = candidateDb;
      if (std::fabs(stepDb) >= limitDb) {
        to = std::min(to + base_, b);
        return false;
      }
    }
    return true;
  }

  float stepDb = 0;
  long at = 0, from = 0, to = 0;

 private:
  static constexpr float kClearlyDb = 0.00001f;  // keeps rounding from moving a step along a plateau

  // Without room before the point, what the fibre falls behind the step stands for what it falls before.
  float AtStartDb(float fallDb) const {
    return (fallDb - levelDb_.FallDb(to - base_, to) + (fallDb - dropDb_)) / 2;
  }

  // The levels on both sides, carried to the step's ends along the fibre's slope, averaged with the step
  // itself.
  float InsideDb(long i, float fallDb) const {
    const float beforeDb = levelDb_[from] - static_cast<float>(i - from) * slopeDb_;
    const float behindDb = levelDb_[to] + static_cast<float>(to - i - base_) * slopeDb_;
    return ((beforeDb - behindDb) + fallDb) / 2 - dropDb_;
  }

  const TraceLevels& levelDb_;
  const long base_;
  const float slopeDb_, dropDb_;
};

// The second difference over a base, at the point in the middle.
float BendDb(const TraceLevels& levelDb, long i, long base) {
  return (levelDb[i + 2 * base] - levelDb[i + base]) - (levelDb[i + base] - levelDb[i]);
}

}  // namespace

float RefAutoSearchMaxSplice(TSorData* sor, long a, long b, long w, long& at, float slope, float limit) {
  constexpr float kNoLimitDb = std::numeric_limits<float>::infinity();
  const TraceLevels levelDb(sor);
  LargestStep step(levelDb, std::max(levelDb.Near(w), 0L), slope);
  if (!step.Search(levelDb.Near(a), levelDb.Near(b), limit)) {
    // Once, and without a limit: levels that jump further than any real step can't send the search round in
    // circles.
    step.Search(step.from, step.to, kNoLimitDb);
  }
  at = step.at;
  return step.stepDb;
}

float RefAutoSearchAcCeleration(TSorData* sor, long a, long b, long w, long& atMin, long& atMax) {
  const TraceLevels levelDb(sor);
  const long first = levelDb.Near(a), base = std::max(levelDb.Near(w), 1L);
  const long last = levelDb.Near(b) - 2 * base;
  atMin = atMax = a;
  if (last < first) return 0;
  float top = BendDb(levelDb, first, base), bottom = top;
  atMin = atMax = first + base;
  for (long i = first + 1; i <= last; ++i) {
    const float bendDb = BendDb(levelDb, i, base);
    if (bendDb > top) {
      top = bendDb;
      atMax = i + base;
    }
    // Once the trace has bent down by a third of how it bent up, that bend is the one; a later one belongs to
    // the next event.
    if (bendDb < bottom && -bottom < top / 3) {
      bottom = bendDb;
      atMin = i + base;
    }
  }
  if (bottom == top || top < 0) return 0;
  const bool risesAtOnce = atMax < atMin && atMax < first + 2 * base;
  return risesAtOnce ? top - bottom : bottom - top;
}

namespace {

// Finds where a trace leaves its slope for a splice that lies about one averaging length behind `a`.
class SpliceBegin {
 public:
  SpliceBegin(TSorData* sor, long a, long b, long width, float slopeDb)
      : sor_(sor),
        levelDb_(sor),
        first_(levelDb_.Near(a)),
        end_(levelDb_.Near(b)),
        width_(levelDb_.Near(width)),
        slopeDb_(slopeDb) {}

  long Run() {
    float fallDb, riseDb;
    long atFall, atRise;
    RefAutoSearchMaxdbRiseFall(sor_, first_, end_, width_ / 2 + 1, fallDb, atFall, riseDb, atRise, slopeDb_);
    const long start = first_ + width_;
    const float noiseDb = std::min(RefMathAddNoise(sor_, start, width_, 0), kMostNoiseDb);
    const bool rises = atFall >= atRise && riseDb >= noiseDb;
    return rises ? FootOfRise(atRise) : BeginOfFall(start, noiseDb);
  }

 private:
  static constexpr float kMostNoiseDb = 1.0f;
  static constexpr float kSteep = 1.5f;  // times the fibre's slope: the splice has begun

  long BeginOfFall(long start, float noiseDb) const {
    double meanDb = RefMathPower(sor_, first_, 2 * width_, 0);
    long end = Below(start, meanDb - noiseDb);
    if (end - start > 2 * width_) {
      // The splice is further out: the mean is taken again right before it.
      start = end - width_;
      meanDb = RefMathPower(sor_, start - width_ / 2, width_, 0);
      end = Below(start, meanDb - noiseDb);
    }
    const long early = Below(start, meanDb - noiseDb / 2);
    if (levelDb_.FallDb(early, end) > static_cast<float>(end - early) * slopeDb_) end = early;
    while (end > 0 && levelDb_.FallDb(end - 1, end) > kSteep * slopeDb_ && early - end <= width_) --end;
    return end;
  }

  // First point from `start` on below a line that starts at `levelDb` and falls with the fibre.
  long Below(long start, double levelDb) const {
    return RefAutoSearchStraightLess(sor_, start, static_cast<float>(levelDb), slopeDb_);
  }

  long FootOfRise(long atRise) const {
    long i = atRise;
    while (i > 0 && levelDb_.FallDb(i - 1, i) < slopeDb_ / 2 && atRise - i <= width_) --i;
    return i;
  }

  TSorData* const sor_;
  const TraceLevels levelDb_;
  const long first_, end_, width_;
  const float slopeDb_;
};

// Rolls back from the end of a fall. Behind a fall the trace jitters; walking back, points are given up while
// they only jitter, and the walk ends where the fall shows.
class RollBack {
 public:
  RollBack(TSorData* sor, long end, long begin, double noiseDb)
      : levelDb_(sor), begin_(levelDb_.Near(begin)), end_(levelDb_.Near(end)), noiseDb_(noiseDb) {}

  long Run() {
    double laterStepDb = 0;
    long i = end_;
    for (; i > begin_ + 1; --i) {
      const double stepDb = -levelDb_.FallDb(i - 1, i);
      if (!(stepDb > 0 && stepDb < noiseDb_ && !ReachedBefore(i - 1))) {
        if (stepDb <= noiseDb_ / 2) {
          if (StandsOutBefore(i, stepDb)) return i;
          if (RisesSharplyBehind(i, stepDb)) return i - 1;
        }
        if (stepDb <= noiseDb_ && laterStepDb < 2 * noiseDb_) return i;
      }
      laterStepDb = stepDb;
    }
    return i;
  }

 private:
  // Two points back the trace is as high as it would be if the last step went on.
  bool StandsOutBefore(long i, double stepDb) const {
    return levelDb_[i - 2] + noiseDb_ / 2 > levelDb_[i] + stepDb;
  }

  // Quiet before the point, and a jump up behind it.
  bool RisesSharplyBehind(long i, double stepDb) const {
    return -levelDb_.FallDb(i - 2, i - 1) <= 2 * noiseDb_ &&
           -levelDb_.FallDb(i, i + 1) > 10 * (stepDb + noiseDb_);
  }

  // Whether a point before `point`, back to the begin, is at least as high. Looking back from every point
  // anew would take the square of the stretch on a slow rise, so the highest level up to each point is worked
  // out once.
  bool ReachedBefore(long point) {
    if (highestDb_.empty()) {
      highestDb_.reserve(static_cast<size_t>(end_ - begin_));
      float highest = levelDb_[begin_];
      for (long i = begin_; i < end_; ++i) {
        highest = std::max(highest, levelDb_[i]);
        highestDb_.push_back(highest);
      }
    }
    return highestDb_[static_cast<size_t>(point - 1 - begin_)] >= levelDb_[point];
  }

  const TraceLevels levelDb_;
  const long begin_, end_;
  const double noiseDb_;
  std::vector<float> highestDb_;
};

}  // namespace

long RefautoSearchBeginOfSplice(TSorData* sor, long a, long b, long /*p*/, long width, float slope) {
  return SpliceBegin(sor, a, b, width, slope).Run();
}

long RefAutoOtkatEnd(TSorData* sor, long end, long begin, double noise) {
  if (begin > end) return begin;
  return RollBack(sor, end, begin, noise).Run();
}
