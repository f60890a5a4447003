// SPDX-License-Identifier: Apache-2.0

// Where a trace crosses a level.

#include "ref/math/refAutoAverage.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/blockSearch.h"

using reflyze::TraceLevels;

long RefAutoSearchStraightGreather(TSorData* sor, long from, float level) {
  const TraceLevels levelDb(sor);
  for (long i = levelDb.Near(from); i < levelDb.points(); ++i) {
    if (levelDb[i] > level) return i;
  }
  return levelDb.points();
}

long RefAutoSearchBackGreather(TSorData* sor, long from, float level) {
  const TraceLevels levelDb(sor);
  for (long i = levelDb.Near(from); i >= 0; --i) {
    if (levelDb[i] > level) return i;
  }
  return -1;
}

long RefAutoSearchStraightLess(TSorData* sor, long from, float level) {
  const TraceLevels levelDb(sor);
  const long last = levelDb.points() - 1;
  const long first = levelDb.Near(from);
  if (first >= last) return last;
  return levelDb.Over(first, last, [=](auto levels) {
    return reflyze::FirstThatPasses(first, last, [=](long i) { return levels[i] < level; });
  });
}

long RefAutoSearchStraightLess(TSorData* sor, long from, float level, float step) {
  const TraceLevels levelDb(sor);
  const long first = levelDb.Near(from);
  for (long i = first; i < levelDb.points(); ++i) {
    // From the start at every point, not by repeated subtraction: over long stretches the rounding of a float
    // sum would bend the line.
    const double thresholdDb = level - static_cast<double>(step) * static_cast<double>(i - first);
    if (levelDb[i] < thresholdDb) return i;
  }
  return levelDb.points();
}

long RefAutoSearchBackLess(TSorData* sor, long from, float level, long limit) {
  const TraceLevels levelDb(sor);
  const long last = levelDb.Near(limit), first = levelDb.Near(from);
  return levelDb.Over(last, first + 1, [=](auto levels) {
    return reflyze::LastThatPasses(first, last, [=](long i) { return levels[i] < level; });
  });
}

long RefAutoSearchBackLess(float* samples, long from, float level, long limit) {
  for (long i = from; i >= limit && i >= 0; --i) {
    if (samples[i] < level) return i;
  }
  return limit - 1;
}

long RefAutoSearchBackGreather(float* samples, long from, long width, float level) {
  if (samples == nullptr || width < 1) return -1;
  const float wanted = level * static_cast<float>(width);
  long i = from - width;
  double sum = RefAutoGetAverage(samples, i, width) * static_cast<float>(width);
  while (i >= 0) {
    if (sum > wanted) return i;
    --i;
    if (i >= 0) sum += static_cast<double>(samples[i]) - samples[i + width];
  }
  return -1;
}

long RefAutoSearchRef(TSorData* sor, long a, long b) {
  const TraceLevels levelDb(sor);
  if (levelDb[a] > levelDb[b]) return a;
  return RefAutoSearchBackLess(sor, b, (levelDb[a] + levelDb[b]) / 2, 0);
}
