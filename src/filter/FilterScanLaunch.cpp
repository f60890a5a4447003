// SPDX-License-Identifier: Apache-2.0

// Where the fibre starts, and the reflection of the connector at its start when a fibre inside the instrument
// stands in front of it. Without such a fibre the launch shows as the first samples of the trace, and the
// scan starts behind them.

#include <cmath>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/EventLetters.h"
#include "src/filter/FilterScan.h"
#include "src/filter/LinearTrace.h"
#include "util/convert.h"

namespace reflyze {

void AutoFilterScan::FindFibreStart() {
  constexpr int kAtVeryStart = 2;
  const double pointAndPulseOwt = scales_.spacingOwt + sor_.FxdParams->GetOwtPulse(0);
  if (sor_.FxdParams->AO / pointAndPulseOwt > 1.0) launch_ = kAtVeryStart;
  if (IsLaunchNearStart()) {
    FindLateLight();
    FindFirstPoint();
  } else {
    PrepareLaunchEvent();
  }
  at_ = std::max(at_, 0L);
}

// Whether time 0 stands among the first points, with no fibre of the instrument in front of it.
bool AutoFilterScan::IsLaunchNearStart() const {
  const long zero = scales_.zeroPoint;
  constexpr double kNearOwt = 300.0;  // 30 ns, about 6 m
  const double near = kNearOwt / scales_.spacingOwt + static_cast<double>(scales_.pulsePoints / 10) + 1.0;
  return scales_.innerFibre <= scales_.pulsePoints / 2 && zero >= 0 && static_cast<double>(zero) <= near;
}

// Where there is no light at time 0 yet, the fibre starts at the foot of the launch pulse.
void AutoFilterScan::FindLateLight() {
  const long zero = scales_.zeroPoint;
  if (!(Lin(zero) < scales_.noiseLin && Lin(zero + 1) < scales_.noiseLin)) return;
  const long pulse = trace_.Highest(zero, zero + scales_.pulsePoints + scales_.recoverPoints);
  const long foot = trace_.LastBelow(pulse, scales_.noiseLin, 0);
  if (foot > zero) filter_.result.firstBegin = foot;
}

// The scan starts at the lowest sample behind time 0, or in front of it while light is seen there.
void AutoFilterScan::FindFirstPoint() {
  const long zero = scales_.zeroPoint;
  at_ = 1;
  if (zero <= scales_.pulsePoints + 1) return;
  at_ = trace_.Lowest(zero, zero + (scales_.pulsePoints + scales_.recoverPoints) / 2);
  if (Lin(at_) < scales_.noiseLin || Lin(at_ + 1) < Lin(at_ - 1)) ++at_;
  if (at_ != zero) return;
  while (at_ >= 1 && Lin(at_ - 1) > 2.0 * scales_.noiseLin && Lin(at_ - 1) > Lin(zero + 1) / 4.0F) --at_;
}

// The first event stands at time 0. Behind a fibre of the instrument, and where the trace starts later, it is
// measured at once; otherwise the scan comes upon it.
void AutoFilterScan::PrepareLaunchEvent() {
  const long zero = scales_.zeroPoint;
  at_ = zero;
  launch_ = 1;
  TFEvent& event = events_.current();
  event.begin = trace_.Held(zero);
  event.end = trace_.Held(zero + scales_.pulsePoints + scales_.recoverPoints);
  if (scales_.innerFibre == 0 && zero >= 0) return;
  MeasureInnerLaunch();
}

void AutoFilterScan::MeasureInnerLaunch() {
  constexpr long kScannedGrade = 1;  // a stronger launch is left to the scan
  const long grade = LaunchGrade();
  if (grade > kScannedGrade) return;
  ShapeLaunch(grade);
  if (SecondLaunch() > 0) {
    launchIsDouble_ = true;
    return;
  }
  if (IsFlatLaunch()) {
    EndLaunchAtOnce();
  } else {
    FindLaunchEnd();
  }
  at_ = events_.current().end;
  events_.Step();
}

// Where a second reflection stands in the launch, 0 for none.
long AutoFilterScan::SecondLaunch() {
  return filter_.DoubleRDetect(trace_.samples().Held(scales_.zeroPoint + 1), scales_.recoverPoints,
                               scales_.nearPoints, static_cast<float>(scales_.noiseLin));
}

// Grade of the launch reflection. 0 where the trace falls behind it and only a later pulse rises again;
// left to the scan where the trace goes on rising and holds two reflections.
long AutoFilterScan::LaunchGrade() {
  constexpr long kLeftToScan = 2;
  constexpr double kClearRise = 10.0;
  const long zero = scales_.zeroPoint, behind = zero + 2 * scales_.recoverPoints;
  if (zero < 1) return 0;
  float highestDb = 0.0F;
  RefAutoGetMax(&sor_, behind, behind + scales_.pulsePoints, highestDb, 1);
  const double lin = Lin(zero), behindLin = Lin(behind), ripple = scales_.rippleDb;
  if (lin - behindLin > scales_.noiseLin && Db(behind) - Db(zero) < ripple && highestDb - Db(zero) > ripple) {
    return 0;
  }
  if (behindLin - lin > kClearRise * scales_.noiseLin && SecondLaunch() >= 1) {
    launchIsDouble_ = true;
    return kLeftToScan;
  }
  const double limit = 2.0 * (ripple / kRippleToLin * Lin(zero - 1) + scales_.noiseLin);
  long pos = zero, width = 0;
  return filter_.RflAnalisys(nullptr, pos, scales_.lastPoint, scales_.recoverPoints, scales_.midPoints,
                             static_cast<float>(limit), secondFallAt_, width);
}

// Top and width of a launch that is hardly a reflection. A dip in front of the top ends it: what rises behind
// is another event.
void AutoFilterScan::ShapeLaunch(long grade) {
  TFEvent& event = events_.current();
  const long zero = scales_.zeroPoint;
  event.gradeDown = 1;
  event.gradeUp = static_cast<int>(grade);
  event.type = letter::kStep;
  event.tail = 0;
  if (zero < 0) return;
  long width = grade == 0 ? 0 : scales_.pulsePoints;
  long peak = zero;
  float peakDb = 0.0F;
  if (grade != 0) peak = RefAutoGetMax(&sor_, zero, event.end, peakDb, 1);
  const long dip = trace_.Lowest(zero, peak);
  if (dip > zero + scales_.recoverPoints + 1) {
    width = dip - zero;
    peak = RefAutoGetMax(&sor_, zero, dip, peakDb, 1);
    event.gradeDown = 0;
  }
  event.width = static_cast<int>(width);
  event.peak = trace_.Held(peak);
  event.rise = trace_.Held(width > peak - zero ? zero + width : peak + 1);
}

// Whether the top hardly stands above what lies in front of it and behind.
bool AutoFilterScan::IsFlatLaunch() {
  constexpr double kFlatMarginDb = 0.1;
  const TFEvent& event = events_.current();
  const double leastDb = scales_.rippleDb + kFlatMarginDb;
  const long behind = event.begin + scales_.pulsePoints + 2 * scales_.midPoints;
  if (!(Db(event.peak) - Db(event.begin) < leastDb)) return false;
  return Db(event.peak) - Db(behind) < leastDb || event.gradeDown == 0;
}

void AutoFilterScan::EndLaunchAtOnce() {
  TFEvent& event = events_.current();
  event.rise = event.peak;
  event.end = trace_.Held(event.peak + scales_.midPoints);
  event.gradeDown = 0;
  const double beginDb = Db(event.begin);
  if (beginDb - Db(event.end) < scales_.rippleDb && scales_.innerFibre != 0) {
    event.end = trace_.Held(trace_.FirstBelow(event.rise, beginDb - scales_.rippleDb, scales_.slopeDb));
  }
}

// The launch ends where the trace has fallen, and then no longer falls faster than a fibre may behind it.
void AutoFilterScan::FindLaunchEnd() {
  constexpr double kLaunchFallDb = 0.05;  // below the ripple
  constexpr double kFibreNearDb = 0.3;    // behind such a fall the fibre is looked for near by
  constexpr double kLevelStepDb = 0.001;  // of the scale: a smaller fall is not seen as one
  constexpr double kGradeLimitDb = 0.01;
  TFEvent& event = events_.current();
  const long from = event.rise + scales_.nearPoints;
  event.end =
      trace_.Held(trace_.FirstBelow(from, Db(from) - scales_.rippleDb - kLaunchFallDb, scales_.slopeDb));
  const double fallDb = Db(event.peak) - Db(event.end);
  const long stop = event.rise + (fallDb < kFibreNearDb ? 3 * scales_.midPoints : scales_.farPoints);
  const double rateDb = std::max(fallDb / (event.end - event.peak) / 10.0, 2.0 * scales_.slopeDb);
  const long calm = RefAutoSearchStraightLoss2(&sor_, event.end, stop, scales_.nearPoints + 1,
                                               static_cast<float>(rateDb), 0.0F, 0);
  event.end = trace_.Held(calm < 0 ? stop : calm);
  const double seenDb = std::max(std::fabs(fallDb), kLevelStepDb);
  event.gradeDown = TruncToInt(Log2OfRatio(seenDb / (limits_.rippleLin + kGradeLimitDb)));
}

// The first point is compared with the sample in front of it. A launch at the very start of the trace has
// no such sample, and half of its first one stands in.
void AutoFilterScan::StartMean() {
  float lin = Lin(at_ - 1);
  if (at_ < 1) lin = std::max(launch_ != 0 ? Lin(0) / 2.0F : Lin(0), 0.0F);
  mean_.Start(lin);
}

}  // namespace reflyze
