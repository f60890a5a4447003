// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>

#include "sor/blocks/sorIParm.h"
#include "util/convert.h"

// The noise log of a measurement: how the signal-to-noise ratio grew while averages were added up. Each entry
// is a step of both since the entry before, in one signed byte each; a step that is greater than a byte is
// spread over entries.

namespace {

constexpr int kLargestStep = 127;
constexpr int kSmallestStep = -128;
constexpr int kMostEntries = 0xFFFF;

// The difference to a new state in steps of the log. A step size of 0, which only a broken file has, can't
// say any difference: there are no steps then.
long Steps(long difference, int size) { return size != 0 ? difference / size : 0; }

// How many entries with a full step come before the one with the rest. The two signs differ in their greatest
// byte, and the rest is what the same division leaves.
int FullSteps(long steps) {
  if (steps > kLargestStep) return static_cast<int>(steps / kLargestStep);
  if (steps < kSmallestStep) return static_cast<int>(steps / kSmallestStep);
  return 0;
}

}  // namespace

int TSorBlockQRTParameters::GetNL(unsigned short n, unsigned short& level, long& averages) const {
  const long listed = std::min<long>(n, reflyze::Listed(TNL, NAVR, SNR));
  long averageSteps = 0;
  long ratioSteps = 0;
  for (size_t i = 0; i < static_cast<size_t>(listed); ++i) {
    averageSteps += NAVR[i];
    ratioSteps += SNR[i];
  }
  averages = averageSteps * NASF;

  // N averages raise the ratio by 2.5 log10(N) dB, which stays below 0.75 sqrt(N) + 5: a ratio that has grown
  // by more, or has fallen by 5 dB, is not the work of averaging. The root is taken of a number in single
  // precision.
  constexpr double kGainPerRoot = 750.0;
  constexpr long kToleratedMilliDb = 5000;
  const long grown = NLSF * ratioSteps;
  const double root = std::sqrt(static_cast<double>(static_cast<float>(averageSteps + 1.0)));
  const long limit = reflyze::TruncToLong(root * kGainPerRoot);
  const bool good = grown < limit + kToleratedMilliDb && grown > -kToleratedMilliDb;
  level = good ? reflyze::LowBits16(SNL + grown) : SNL;
  return good ? 0 : 1;
}

void TSorBlockQRTParameters::AddNL(unsigned short level, long averages) {
  unsigned short lastLevel = 0;
  long lastAverages = 0;
  GetNL(TNL, lastLevel, lastAverages);
  const long ratioSteps = Steps(static_cast<long>(level) - lastLevel, NLSF);
  // A count of averages has 32 bits in a record, whatever the host's long holds.
  const long held =
      std::clamp<long>(averages, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
  const long averageSteps = Steps(held - lastAverages, NASF);
  const int fullRatio = FullSteps(ratioSteps);
  const int fullAverage = reflyze::SignedLowBits16(averageSteps / kLargestStep);
  const int full = std::max(fullAverage, fullRatio);
  if (TNL + full + 1 > kMostEntries) return;

  NAVR.resize(TNL);
  SNR.resize(TNL);
  for (int i = 0; i < full; ++i) {
    NAVR.push_back(i < fullAverage ? kLargestStep : 0);
    SNR.push_back(i >= fullRatio ? 0 : ratioSteps > 0 ? kLargestStep : kSmallestStep);
  }
  NAVR.push_back(static_cast<signed char>(averageSteps % kLargestStep));
  SNR.push_back(static_cast<signed char>(ratioSteps % (ratioSteps > 0 ? kLargestStep : -kSmallestStep)));
  TNL = static_cast<unsigned short>(TNL + full + 1);
}

double TSorBlockQRTParameters::GetSNR() const {
  unsigned short level = 0;
  long averages = 0;
  GetNL(TNL, level, averages);
  return level / 1000.0;
}
