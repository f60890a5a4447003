// SPDX-License-Identifier: Apache-2.0

// Whether a reflection is an echo of an earlier one.
//
// Light that runs twice between two strong reflections arrives late and looks like an event of its own: an
// echo, or ghost. What tells it from a real one is that the fibre knows nothing of it. There is no loss at
// it; it is weaker than its source by the share of the light that went round once more; and only a source
// strong enough for that share to be seen has echoes at all.
//
// All levels are compared in linear power, those of the echo's ground with those around the source.

#include <algorithm>

#include "ref/events/refEventReflection.h"
#include "ref/math/traceLevels.h"
#include "sor/scale/sorMath.h"
#include "src/filter/EventLetters.h"
#include "src/filter/Filter.h"
#include "src/filter/Optics.h"

namespace {

using reflyze::kNearMeanPoints;

class Echo {
 public:
  Echo(const TSorFilter& filter, TSorData& sor, const TFEvent& source, const TFEvent& echo)
      : filter_(filter),
        sor_(sor),
        levels_(&sor),
        lin_(filter.HeldLinf()),
        mean_(filter.HeldLinfAvg()),
        source_(source),
        echo_(echo),
        pulsePoints_(sor.FxdParams->GetOwtPulse(0) / static_cast<double>(filter.owtDS)),
        noiseLin_(sor.QRTParams->Log5ToLin(sor.FxdParams->GetNF(), 0)),
        apart_(static_cast<double>(echo.peak) - source.peak) {}

  bool Run() {
    if (source_.Am() < echo_.Am() || echo_.Am() == 0) return false;
    MeasureFront();
    MeasureGround();
    // With its ground above the fibre in front of the source, the two can't be compared; it is taken for an
    // echo.
    if (frontLin_ < groundLin_) return true;
    MeasurePeaks();
    if (echoLin_ < noiseLin_) return false;
    const double height = SorMathLog5(sourceLin_ / frontLin_);
    weakened_ = SorMathPow5(-RefEventReflection(&sor_, 0.0, height) / 2);
    return !HasLoss() && !IsTooStrong();
  }

 private:
  double Peak(const TFEvent& event) const { return lin_[event.peak]; }
  double Around(const TFEvent& event) const {
    return Peak(event) + static_cast<double>(lin_[event.peak - 1L]) + lin_[event.peak + 1L];
  }
  bool IsStrongest() const { return source_.type == reflyze::letter::kStrongReflection; }
  // At the top of the scale a peak may have been higher than it shows.
  bool IsPeakTrue() const { return levels_[source_.peak] < reflyze::kMayClipLevelDb; }
  bool FallsAtSource() const { return lin_[source_.end] < frontLin_; }

  void MeasureFront();
  void MeasureGround();
  void MeasurePeaks();
  bool HasLoss() const;
  bool IsTooStrong() const;

  const TSorFilter& filter_;
  TSorData& sor_;
  const reflyze::TraceLevels levels_;
  const reflyze::HeldSamples lin_, mean_;
  const TFEvent& source_;
  const TFEvent& echo_;
  const double pulsePoints_;
  const double noiseLin_;
  const double apart_;                      // points from peak to peak
  double frontLin_ = 0.0;                   // fibre in front of the source
  int isEarlier_ = 0;                       // 1 where that was taken two widths earlier
  double groundLin_ = 0.0;                  // in front of the echo
  double sourceLin_ = 0.0, echoLin_ = 0.0;  // the peaks
  double weakened_ = 0.0;                   // factor by which light weakens that is sent back at the source
};

// Right in front of a source the trace may already rise, or ring from what comes before.
void Echo::MeasureFront() {
  frontLin_ = lin_[source_.begin - 1L];
  if (3L * source_.width >= source_.begin) return;
  const double earlierLin = lin_[source_.begin - 2L * source_.width];
  if (!(earlierLin < frontLin_)) return;
  frontLin_ = earlierLin;
  isEarlier_ = 1;
}

// The lowest of samples and means there; further means only where they are clear of the source.
void Echo::MeasureGround() {
  const long ground = echo_.begin - 1L;
  groundLin_ = std::min({lin_[ground - 1], lin_[ground], mean_[ground]});
  if (ground <= source_.end + 3 * kNearMeanPoints) return;
  for (int i = 1; i <= 2; ++i) groundLin_ = std::min<double>(groundLin_, mean_[ground - i * kNearMeanPoints]);
}

// A pulse of less than two points falls between samples: what it carries shows in three of them, and a source
// that was wider than the pulse carried more.
void Echo::MeasurePeaks() {
  sourceLin_ = Peak(source_);
  echoLin_ = Peak(echo_);
  if (!(IsPeakTrue() && pulsePoints_ < 2.0)) return;
  constexpr double kEdgePoints = 0.75;  // of the receiver, beside the pulse
  const double wide = std::max(static_cast<double>(source_.width), pulsePoints_) + kEdgePoints;
  sourceLin_ = Around(source_) * wide / pulsePoints_ * (isEarlier_ + 1);
  echoLin_ = Around(echo_);
}

// A loss behind it makes an event real. An echo may pretend a small loss: of the strongest source a good
// part of the light there, of any other a hundredth, and no more than the source sends back.
bool Echo::HasLoss() const {
  if (!(groundLin_ > noiseLin_)) return false;
  // The light at the source is so many times what an echo of it may pretend.
  constexpr double kAny = 100.0, kOfStrongest = 10.0, kOfStrongestWithLoss = 30.0;
  double scale = kAny;
  if (IsStrongest()) scale = FallsAtSource() ? kOfStrongestWithLoss : kOfStrongest;
  const double sourceLin = FallsAtSource() ? frontLin_ : lin_[source_.end];
  const double lossLin = groundLin_ - mean_[echo_.end + filter_.pulseFallPoints + kNearMeanPoints];
  if ((lossLin - noiseLin_) * scale > sourceLin) return true;
  return !IsStrongest() && lossLin * weakened_ > frontLin_;
}

// An echo is weaker than its source by what the second reflection takes, over a short way somewhat less.
// Where the source would still be falling at the receiver's rate when the echo comes, little can be asked.
bool Echo::IsTooStrong() const {
  constexpr double kNearDb = 1.5;  // loss of the fibre between both
  if (!(IsPeakTrue() && frontLin_ > noiseLin_)) return false;
  const bool isNear = static_cast<double>(filter_.dbOnDS) * apart_ < kNearDb;
  double least = (isNear ? 2 - isEarlier_ : 5) * weakened_;
  const double fallPoints = 10.0 * SorMathLog5(sourceLin_ / groundLin_) /
                            static_cast<double>(filter_.dbOnOwt) / static_cast<double>(filter_.owtDS);
  if (fallPoints > apart_ && 10.0 * groundLin_ < frontLin_) least /= 10;
  return sourceLin_ / echoLin_ < least;
}

}  // namespace

bool TSorFilter::isGost(TSorData* sor, TFEvent* src, TFEvent* g) const {
  if (sor == nullptr) sor = pSorData;
  if (sor == nullptr || src == nullptr || g == nullptr) return false;
  return Echo(*this, *sor, *src, *g).Run();
}
