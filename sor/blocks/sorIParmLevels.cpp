// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorIParm.h"

#include <algorithm>
#include <cmath>

#include "util/assertion.h"
#include "util/convert.h"
#include "util/elementary.h"

// Levels of one trace: its floor, the compression below it, and samples from linear power.

using reflyze::TruncToInt;
using reflyze::TruncToUShort;

// A level that 16 bits can't hold in units of 0.001 dB gets units of 0.002 dB.
void TSorBlockQRTParameters::SetMAX(double v) {
  constexpr double kLowestFineDb = -65.535;
  constexpr short kCoarseScale = 2000;
  if (v < kLowestFineDb) Scale = kCoarseScale;
  MAX = TruncToUShort(-v / Scale * 1000000.0);
}

// n is the factor less one, as the two bits hold it. A number below 0 is not refused: it is shifted to the
// place of the two bits and added, and changes the flags above them too.
void TSorBlockQRTParameters::SetNegScale(int n) {
  const unsigned int scale = static_cast<unsigned int>(std::min(n, kMaxNegScale)) << kNegScaleShift;
  const unsigned int others = static_cast<unsigned int>(Flags) & ~static_cast<unsigned int>(kNegScaleBits);
  Flags = reflyze::SignedLowBits16(static_cast<long>(others + scale));
}

float TSorBlockQRTParameters::NLogToPLog(float v) const {
  const float max = GetfMAX();
  return v < max ? 2.0f * max - NLogToLog(v) : v;
}

double TSorBlockQRTParameters::fPow5(double level) const {
  const double share = Log5ToLin(level, 0) / reflyze::elementary::Exp10(-GetMAX() / 5.0);
  return share * (1.0 - fZero()) + fZero();
}

double TSorBlockQRTParameters::fPow5(unsigned short raw) const { return fPow5(raw / -1000.0); }

namespace {

// How linear values become raw samples, which count downwards from 0 dB. Between -1 and 1 the samples follow
// a straight line. Two things are not exact, and stay so because traces have always been stored that way. The
// slope of the line is the logarithm of 2, although the logarithms meet the line elsewhere. And the step of
// the logarithm is right only for the scale factor of 1000, which is what instruments write.
class RawScale {
 public:
  // `scaleFactor` is that of the samples, `negScale` the factor by which levels below `max` are compressed.
  RawScale(unsigned short max, short scaleFactor, int negScale) : max_(max), maxf_(max) {
    // With a factor of 0 every sample reads 0 dB. Then the samples are made for the usual factor, so that
    // they are right once somebody repairs the record.
    constexpr int kUsualFactor = 1000;
    constexpr int kUnitsPerDb = 100000;  // of the integer logarithm
    step_ = kUnitsPerDb / (scaleFactor != 0 ? scaleFactor : kUsualFactor);
    // The compressed step has 16 bits, and wraps for factors far below those of any instrument. Where that
    // leaves 0, the uncompressed step is taken.
    negStep_ = reflyze::SignedLowBits16(step_ * negScale);
    if (negStep_ == 0) negStep_ = step_;
    const int logTwo = reflyze::Log500k(2.0f);
    slope_ = static_cast<float>(logTwo / step_);
    negSlope_ = static_cast<float>(logTwo / negStep_);
  }

  unsigned short RawOf(float lin) const {
    int raw;
    if (lin >= 1.0f) {
      raw = max_ - (reflyze::Log500k(lin) + (step_ >> 1)) / step_;
    } else if (lin <= -1.0f) {
      raw = max_ + reflyze::Log500k(-lin) / negStep_;  // not rounded
    } else {
      raw = TruncToInt(maxf_ - (lin >= 0.0f ? slope_ : negSlope_) * lin);
    }
    return static_cast<unsigned short>(std::clamp(raw, 0, 0xFFFF));
  }

 private:
  int max_;
  float maxf_;
  int step_;     // integer logarithm per raw unit, above max
  int negStep_;  // and below it
  float slope_;  // raw units per linear unit around zero
  float negSlope_;
};

}  // namespace

void TSorBlockQRTParameters::LinfToLog(float* lin, TSorBlockDataPoints& points) const {
  reflyze::Require(points.GetSubBlocksNum() == 1, "points.GetSubBlocksNum() == 1");
  if (lin == nullptr) return;
  const RawScale scale(MAX, points.GetPointsSubBlockScaleFactor(0), GetNegScale());
  const long count = points.GetPointsNum();
  for (long i = 0; i < count; ++i) points.SetRawLevel(i, scale.RawOf(lin[i]));
}
