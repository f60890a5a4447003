// SPDX-License-Identifier: Apache-2.0
#include "ref/math/refAutoAverage.h"

#include "sor/sorData.h"

float RefAutoGetAverage(float* samples, long start, long count) {
  if (count < 1) return 0.0f;
  if (start < 0) {
    count += start;
    start = 0;
    if (count < 1) return 0.0f;
  }
  double sum = 0.0;
  for (long i = start; i < start + count; ++i) sum += samples[i];
  return static_cast<float>(sum / static_cast<double>(count));
}

double RefAutoGetAverage(TSorData* sor, long centre, long half) {
  const long points = sor->DataPts->GetPointsNum();
  if (centre < 0 || centre >= points) return 0.0;
  double sum = sor->NumToLevel(centre);
  long k = 1;
  for (; k <= half && centre - k >= 0 && centre + k < points; ++k) {
    sum += sor->NumToLevel(centre - k);
    sum += sor->NumToLevel(centre + k);
  }
  return sum / static_cast<double>(2 * k - 1);
}
