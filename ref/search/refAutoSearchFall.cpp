// SPDX-License-Identifier: Apache-2.0

// Falls and rises over a base.
//
// A splice, a connector, the end of the fibre: each is a difference of level over about the pulse width. The
// measures here differ in what they take for granted. The plain ones look at differences; those with a slope
// take out what the fibre loses by itself over the base, so that plain fibre reads as zero.

#include <cmath>
#include <cstdlib>

#include "ref/math/refAutoAverage.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/blockSearch.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::TraceLevels;

namespace {

// Extreme differences of level over a base, refined along the edge on which the largest rise ends.
class RiseFall {
 public:
  RiseFall(TSorData* sor, long a, long b, long w, float slopeDb)
      : levelDb_(sor),
        first_(levelDb_.Near(a)),
        end_(std::max(levelDb_.Near(b), first_)),
        base_(std::clamp(levelDb_.Near(w), 0L, end_ - first_)),
        slopeDb_(slopeDb) {}

  void Run() {
    FindExtremes();
    const float dropDb = static_cast<float>(base_) * slopeDb_;
    fallDb += dropDb;
    riseDb += dropDb;
    RefineRise();
    RefineFall();
  }

  float fallDb = 0, riseDb = 0;
  long atFall = 0, atRise = 0;

 private:
  void FindExtremes() {
    atFall = atRise = first_;
    fallDb = riseDb = -levelDb_.FallDb(first_, first_ + base_);
    levelDb_.Over(first_, end_ + 1, [this](auto levels) {
      const long base = base_, end = end_ - base + 1;
      const auto stepDb = [levels, base](long i) { return -(levels[i] - levels[i + base]); };
      for (long i = first_ + 1; i < end; ++i) {
        const float deepestDb = fallDb, highestDb = riseDb;
        i = reflyze::FirstThatPasses(
            i, end, [=](long k) { return (stepDb(k) < deepestDb) | (stepDb(k) > highestDb); });
        if (i < end) Take(i, stepDb(i));
      }
    });
  }

  void Take(long i, float stepDb) {
    if (stepDb < fallDb) {
      fallDb = stepDb;
      atFall = i;
    }
    if (stepDb > riseDb) {
      riseDb = stepDb;
      atRise = i;
    }
  }

  // How many points of an edge are followed.
  long HalfBase() const { return base_ / 2 - 1; }

  // The rise gains what its last points still climb.
  void RefineRise() {
    for (long n = 0; n < HalfBase(); ++n) {
      const long j = atRise + base_ - n;
      const float stepDb = levelDb_[j] - levelDb_[j - 1] + slopeDb_;
      if (stepDb < 0) return;
      riseDb += stepDb;
    }
  }

  // The fall gains what those same points fall faster than the fall's own mean. It is the end of the rise,
  // not that of the fall, on purpose: the limits that callers compare the figure with were set with it.
  void RefineFall() {
    for (long n = 0; n < HalfBase(); ++n) {
      const long j = atRise + base_ - n;
      const float meanDb = -fallDb / static_cast<float>(base_ - n);
      const float stepDb = levelDb_.FallDb(j - 1, j) - slopeDb_ - meanDb;
      if (stepDb < 0) return;
      fallDb -= stepDb;
    }
  }

  const TraceLevels levelDb_;
  const long first_, end_, base_;
  const float slopeDb_;
};

}  // namespace

float RefAutoSearchMaxdbRiseFall(TSorData* sor, long a, long b, long w, float& fall, long& atFall,
                                 float& rise, long& atRise, float slope) {
  RiseFall measure(sor, a, b, w, slope);
  measure.Run();
  fall = measure.fallDb;
  atFall = measure.atFall;
  rise = measure.riseDb;
  atRise = measure.atRise;
  return std::max(rise, -fall);
}

float RefAutoSearchMaxdbRiseFall(TSorData* sor, long a, long b, long w, float slope) {
  float fall, rise;
  long atFall, atRise;
  RefAutoSearchMaxdbRiseFall(sor, a, b, w, fall, atFall, rise, atRise, 0.0f);

  const TraceLevels levelDb(sor);
  const long first = levelDb.Near(a), end = levelDb.Near(b), base = levelDb.Near(w);
  const long apart = std::labs(atRise - atFall);
  if (apart < 3 * base && apart < (end - first) / 3) {
    // Both extremes belong to one event: what counts is the stretch before and the stretch behind it.
    const long before = std::min(atRise, atFall) - base / 3;
    const long behind = std::max(atRise, atFall) + base / 3;
    if (before - first > base) {
      RefAutoSearchMaxdbRiseFall(sor, first, before, base, fall, atFall, rise, atRise, 0.0f);
    }
    if (end - behind > base) {
      float fallBehind, riseBehind;
      RefAutoSearchMaxdbRiseFall(sor, behind, end, base, fallBehind, atFall, riseBehind, atRise, 0.0f);
      rise = std::max(rise, riseBehind);
      fall = std::min(fall, fallBehind);
    }
  }
  return std::fabs(rise + fall + 2 * slope * static_cast<float>(base)) + (rise - fall) / 4;
}

float RefAutoSearchMaxLinFall(float* samples, long a, long b, long gap, long width, float dec, long& at) {
  at = a + width - 1;
  a = std::max(a, 0L);
  gap = std::max(gap, 1 - width);  // the second window never starts before the first
  if (samples == nullptr || width < 1 || b < 2 * width + a + gap) return 0;

  // What the fibre itself loses from one window to the next, as a share of the first: levels are 5 log10.
  const double ownLoss = elementary::Exp10(static_cast<double>(gap + width) * dec / 5.0) - 1;
  long i = a, j = a + width - 1 + gap;
  double before = RefAutoGetAverage(samples, i, width) * static_cast<float>(width);
  double behind = RefAutoGetAverage(samples, j, width) * static_cast<float>(width);
  double best = before - behind;
  while (true) {
    double fall = before - behind;
    if (ownLoss > 0 && fall > 0) fall -= before * ownLoss;
    if (fall > best) {
      best = fall;
      at = i + width - 1;
    }
    if (++j > b - width) break;
    before += static_cast<double>(samples[i + width]) - samples[i];
    behind += static_cast<double>(samples[j + width - 1]) - samples[j - 1];
    ++i;
  }
  return static_cast<float>(best / static_cast<double>(width));
}

float RefAutoSearchRefdbFall(TSorData* sor, long a, long b, long w, float slope, float tol, long& at) {
  const TraceLevels levelDb(sor);
  const long base = levelDb.Near(w), end = levelDb.Near(b) - base;
  const float topDb = static_cast<float>(base) * slope + tol;
  const float bottomDb = static_cast<float>(base) * slope - tol;
  float best = 0;
  for (long i = levelDb.Near(a); i < end; ++i) {
    const float fallDb = levelDb.FallDb(i, i + base);
    if (fallDb > topDb || fallDb < bottomDb) {
      at = i;
      return fallDb;
    }
    if (std::fabs(fallDb) > best) best = fallDb;
    // Where the trace is quiet over twice the base too, it is not worth looking closer than once a base.
    if (base > 10) {
      const float doubleDb = levelDb.FallDb(i, i + 2 * base);
      if (doubleDb > bottomDb && doubleDb < topDb) i += base;
    }
  }
  at = 0;  // callers take it as: nothing left the band
  return best;
}

float RefAutoSearchMaxdbFall(TSorData* sor, long a, long b, long w, long& at, float limit) {
  const TraceLevels levelDb(sor);
  const long base = levelDb.Near(w), last = levelDb.Near(b) - base;
  const long first = levelDb.Near(a);
  float best = 0;
  at = a;
  levelDb.Over(std::min(first, first + base), std::max(last, last + base) + 1, [&](auto levels) {
    const auto fallDb = [levels, base](long i) { return levels[i] - levels[i + base]; };
    for (long i = first; i <= last; ++i) {
      const float mostDb = best;
      i = reflyze::FirstThatPasses(i, last + 1, [=](long k) { return fallDb(k) > mostDb; });
      if (i > last) return;
      best = fallDb(i);
      at = i;
      if (best >= limit) return;
    }
  });
  return best;
}

float RefAutoSearchMaxFall(TSorData* sor, long a, long b, long w, long& at) {
  constexpr float kAnyFallDb = 100.0f;  // no trace falls so far: the whole stretch is searched
  const float fallDb = RefAutoSearchMaxdbFall(sor, a, b, w, at, kAnyFallDb);
  const TraceLevels levelDb(sor);
  const double baseKm = sor->NumToALen(levelDb.Near(a) + levelDb.Near(w)) - sor->NumToALen(levelDb.Near(a));
  return static_cast<float>(fallDb / baseKm);
}
