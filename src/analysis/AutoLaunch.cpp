// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoLaunch.h"

// Where the fibre proper begins.
//
// The trace starts with the reflection of the instrument's own connector, and the receiver needs a while to
// fall from it down to the backscatter; a strong reflection further out does the same. Between the peak and
// the fibre lie things that look like fibre and are not: the flat top of a saturated receiver, its
// exponential fall, a first connector that rides on that fall, and, with little light, nothing but noise. The
// search takes the peak, follows the fall as long as the receiver's own rate allows, tells a second event on
// the slope from the fall, and walks on until the trace falls as a fibre does.

#include <algorithm>
#include <cmath>

#include "ref/events/refEvent.h"
#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/AutoLevels.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr double kSaturatedTopDb = -0.5;  // above this the receiver clips, and the top has a length
constexpr double kTopDb = 0.5;            // the top lasts as long as the trace stays within this
constexpr double kHighPeakDb = -1.0;      // a peak below this, with a ...
constexpr double kShallowDb = 3.0;        // ... fall of less than that, leaves a short tail
constexpr double kSpansBehind = 2.5;      // an event on the slope peaks within so many spans of the tail
constexpr double kAssumedLossDb = 0.1;    // of an event on the slope, which can't be measured
constexpr double kFallMarginDb = 0.5;     // what the receiver may fall beyond the low
constexpr double kFallStartDb = 0.1;      // below a top the fall has begun, above a low it has not ended
constexpr double kRiseFootShare = 0.05;   // of its height, at which a rise begins
constexpr double kReadableFloorDb = 5.0;  // a window without any signal stays this near to the level floor
constexpr double kEventOnSlopeDb = 0.5;   // rise on the launch slope that is an event of its own
constexpr double kClippedReflectionDb = -0.1;  // a reflection up here has no shape left to judge
// Levels that the walk behind the fall reads at most. A fibre needs some millions; a broken record, which can
// ask for a pulse as long as the trace, would read for hours.
constexpr long kMostReads = 200'000'000;

// Lowest and highest level of a stretch and where they stand; the first of equal ones counts.
struct Extremes {
  double lowDb = 0.0;
  double highDb = 0.0;
  long lowAt = 0;
  long highAt = 0;
};

class FibreStartSearch {
 public:
  FibreStartSearch(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                   LineTable& table, long from, long limit, double rateDbPerPoint, TEventLine& launchEvent)
      : settings_(settings),
        scale_(scale),
        noise_(noise),
        table_(table),
        sor_(*scale.sor),
        levels_(scale.sor),
        from_(from),
        limit_(limit),
        rateDbPerPoint_(rateDbPerPoint),
        winPulse_(levels_.Near(scale.winPulse)),
        winDead_(levels_.Near(scale.winDead)),
        event_(launchEvent) {}

  long Run() {
    FindPeak();
    if (from_ < winDead_) LocateLaunchEdge();
    MeasurePeak();
    event_.L[0] = -1.0;
    if (saturatedPulses_ < 2) FindEventOnSlope();
    FindLowBehindPeak();
    FollowFall();
    if (fallEnd_ >= limit_) return limit_ - 1;
    long begin = BeginBehindFall();
    if (event_.L[0] < 0.0) FindReflectionBehindLaunch(begin);
    return WalkToFibre(begin);
  }

 private:
  double Level(long point) const { return sor_.NumToLevel(point); }
  double Km(long point) const { return sor_.NumToALen(point); }
  // Length of fibre between two points, wherever the launch lies.
  double KmBetween(long from, long to) const { return Km(to) - Km(from); }

  // Points from `from` up to but not including `end`. Points outside the trace count with their -65.5 dB.
  Extremes Between(long from, long end) const {
    Extremes found;
    sor_.DataPts->GetMinMax(&found.lowDb, &found.highDb, levels_.Near(from), levels_.Near(end), found.lowAt,
                            found.highAt);
    return found;
  }

  void TakeLevels(const Extremes& from) {
    lowDb_ = from.lowDb;
    highDb_ = from.highDb;
  }

  void Take(const Extremes& from) {
    TakeLevels(from);
    lowAt_ = from.lowAt;
    peak_ = from.highAt;
  }

  void RaiseLowToNoise() { lowDb_ = std::max(lowDb_, scale_.nf); }

  // First point below `levelDb`, or deep in the noise.
  long FallsBelow(long from, double levelDb) const {
    return SearchStraightLess(scale_, from, static_cast<float>(levelDb), 1, 0.0F);
  }

  // The highest point near the start of the search, and the levels behind it. A trace that begins before the
  // launch, with an offset below 0, has that lead in front of it.
  void FindPeak() {
    long back = levels_.Near(TruncToLong(-sor_.FxdParams->GetOwtDataOffset() / sor_.FxdParams->GetOwtDS(0)));
    if (back < from_) back = 0;
    Extremes first = Between(from_, from_ + winDead_ + back);
    if (sor_.QRTParams->GetMAX() + kReadableFloorDb >= first.highDb && from_ == 0) {
      // No light yet in this window.
      first = Between(first.highAt, first.highAt + 2 * winDead_);
    }
    lowestDb_ = first.lowDb;
    top_ = first.highAt;
    Take(Between(top_, top_ + winDead_));
    start_ = from_;
  }

  // The launch is half-way up the front of the launch peak.
  void LocateLaunchEdge() {
    lowestDb_ = std::max(lowestDb_, sor_.QRTParams->GetMAX());
    const double halfDb = (lowDb_ + lowestDb_) / 2;
    start_ = SearchBackLess(scale_, peak_, halfDb, 0);
    const double belowDb = Level(start_);
    const double aboveDb = Level(start_ + 1);
    const double share = belowDb == aboveDb ? 0.0 : (halfDb - belowDb) / (aboveDb - belowDb);
    table_.lLaunch = Km(start_) * (1 - share) + Km(start_ + 1) * share;
    Take(Between(start_, start_ + winDead_));
  }

  void MeasurePeak() {
    if (highDb_ > kSaturatedTopDb) {
      const long topEnd = FallsBelow(peak_, highDb_ - kTopDb);
      if (winPulse_ != 0) saturatedPulses_ = (topEnd - peak_) / winPulse_;
    }
    if (from_ == 0) {
      table_.firstRefl = highDb_;
      table_.firstReflOwt = sor_.NumToOwt(peak_);
    }
  }

  // A first splice or connector so near that it rides on the fall of the launch peak.
  void FindEventOnSlope() {
    Extremes behind = Between(peak_ + 1, peak_ + 1 + winDead_);
    TakeLevels(behind);
    if (behind.lowAt >= peak_ + winDead_) {
      // The trace falls to the very end of the window: the low lies further out.
      const long next = peak_ + winDead_;
      behind = Between(next, next + winDead_);
      TakeLevels(behind);
      peak_ = behind.highAt < behind.lowAt + winDead_ ? behind.lowAt - winDead_ : next - 1;
    }
    long span = winDead_;
    if (highDb_ < kHighPeakDb && highDb_ - lowDb_ < kShallowDb)
      span = winDead_ / 2 + 2 * (winDead_ - winPulse_);
    if (from_ > 0) span += winPulse_ / 2;
    if (behind.lowAt > peak_ + span) return;

    const Extremes rise =
        Between(peak_ + winDead_,
                TruncToLong(static_cast<double>(peak_) + static_cast<double>(span) * kSpansBehind + 1.0));
    TakeLevels(rise);
    if (rise.highAt <= behind.lowAt + 1 || highDb_ - lowDb_ <= kEventOnSlopeDb) return;
    const long foot = rise.lowAt < rise.highAt ? rise.lowAt : behind.lowAt;
    event_.peakLevel = highDb_;
    event_.L[0] = Km(foot - 1);
    event_.L[1] = event_.L[2] = Km(foot);
    event_.P[0] = event_.P[1] = lowDb_;
    event_.spliceLoss = kAssumedLossDb;
    event_.peakLen = Km(rise.highAt);
    event_.type = 'S';
    peak_ = rise.highAt;
  }

  // The level that the fall is heading for, and the point half-way down to it.
  void FindLowBehindPeak() {
    if (lowAt_ == peak_) Take(Between(top_ + winDead_, top_ + 2 * winDead_ + 10));
    if (lowDb_ < scale_.nf && saturatedPulses_ > 1) {
      // A long flat top: the window behind its front saw nothing of the fall.
      const long behindTop = (saturatedPulses_ - 1) * winPulse_ * 2 + lowAt_;
      lowAt_ = SearchBackLess(scale_, behindTop, scale_.nf, 0) + 1;
      Take(Between(lowAt_, lowAt_ + winDead_ + 10));
      Take(Between(peak_, peak_ + winDead_ + 10));
    }
    RaiseLowToNoise();
    const double fibreDb = scale_.aciNominal * KmBetween(peak_, lowAt_);
    halfWay_ = FallsBelow(peak_ + 1, (highDb_ + lowDb_ + fibreDb + noise_.noiseAmp) / 2);
  }

  // Follows the fall for as long as the receiver needs from the top to the low, and on while it still falls
  // at the receiver's rate. The low is held at the noise floor: what falls below that can't be told from it,
  // so there is no second search for a signal that comes back from below.
  void FollowFall() {
    Extremes behind;
    long seenTo = 0;
    double lastLowDb = 0.0;
    do {
      const double points = std::ceil((highDb_ - lowDb_ + kFallMarginDb) / rateDbPerPoint_);
      fallPoints_ = levels_.Near(TruncToLong(points));
      fallEnd_ = TruncToLong(static_cast<double>(fallPoints_ + halfWay_ + 10) +
                             static_cast<double>(winPulse_) * 0.1);
      lastLowDb = lowDb_;
      // The stretch grows from round to round; what was seen of it is not read again, or a long fall would
      // cost the square of its length.
      if (seenTo == 0 || fallEnd_ < seenTo) {
        behind = Between(peak_, fallEnd_);
      } else {
        Extend(behind, seenTo, fallEnd_);
      }
      seenTo = fallEnd_;
      TakeLevels(behind);
      lowAt_ = behind.lowAt;
      laterPeak_ = behind.highAt;
      RaiseLowToNoise();
      // A rate that is not positive would let the walk stand still.
    } while (rateDbPerPoint_ > 0.0 && lowAt_ == fallEnd_ - 1 && lastLowDb - lowDb_ >= rateDbPerPoint_);
    if (halfWay_ - peak_ > 1) halfWay_ = FallsBelow(peak_, highDb_ - kFallStartDb);
  }

  void Extend(Extremes& seen, long seenTo, long end) const {
    if (levels_.Near(seenTo) >= levels_.Near(end)) return;
    const Extremes more = Between(seenTo, end);
    if (more.lowDb < seen.lowDb) {
      seen.lowDb = more.lowDb;
      seen.lowAt = more.lowAt;
    }
    if (more.highDb > seen.highDb) {
      seen.highDb = more.highDb;
      seen.highAt = more.highAt;
    }
  }

  long BeginBehindFall() const {
    long begin = 0;
    if (lowAt_ < halfWay_) {
      begin = halfWay_;
    } else if (lowAt_ == fallEnd_ - 1) {
      begin = fallEnd_;
    } else {
      begin = SearchBackGreather(scale_, lowAt_, lowDb_ + kFallStartDb) + 1;
    }
    if (Level(begin) > Level(begin + 1)) ++begin;
    return std::max(begin, from_ + winDead_);
  }

  // A reflection right behind the launch: a rise out of the low, higher than a loss can explain and as round
  // as the top of a reflection is. Then the fibre begins behind it, and it becomes the launch event.
  void FindReflectionBehindLaunch(long& begin) {
    laterPeak_ = std::max(laterPeak_, lowAt_);
    const Extremes rise = Between(laterPeak_, laterPeak_ + lowAt_ - start_ + fallPoints_);
    laterPeak_ = rise.highAt;
    if (rise.lowAt - laterPeak_ < winPulse_) return;

    const double leastDb = RefEventReflectionPower(scale_.sor, 0.0, settings_.th.THRef);
    double heightDb = rise.highDb - lowDb_;
    long run = laterPeak_ - lowAt_;
    long foot =
        SearchBackLess(scale_, laterPeak_, heightDb * kRiseFootShare + lowDb_ + settings_.th.THLoss, 0) - 1;
    if (foot > lowAt_) {
      run = laterPeak_ - foot;
      lowDb_ = Level(foot);
      heightDb = rise.highDb - lowDb_;
    } else {
      foot = lowAt_;
    }
    if (!(heightDb > leastDb / 2 && heightDb > settings_.th.THLoss)) return;
    const long third = run / 3;
    const bool round =
        rise.highDb >= kClippedReflectionDb || third == 0 ||
        heightDb / static_cast<double>(run) * static_cast<double>(third) + lowDb_ < Level(foot + third);
    if (!round) return;

    event_.peakLevel = rise.highDb;
    event_.peakLen = Km(laterPeak_);
    begin = rise.lowAt;
    const Extremes slope = Between(peak_, lowAt_);
    const long settled = FallsBelow(slope.highAt, Level(slope.lowAt) + settings_.th.THLoss);
    event_.L[0] = Km(std::min(slope.lowAt, settled));
    event_.L[1] = event_.L[2] = Km(foot);
    event_.P[0] = event_.P[1] = lowDb_;
    event_.spliceLoss = 0.0;
  }

  // On to the first point from which the trace falls for good: nothing within a fifth of the pulse stands
  // higher, neither a single point nor the mean.
  long WalkToFibre(long begin) const {
    const long fifth = winPulse_ / 5;
    for (long reads = 0; reads < kMostReads; ++reads) {
      if (Level(begin) > Level(begin + 1)) {
        long ahead = 1;
        while (ahead < fifth && Level(begin) >= Level(begin + 1 + ahead)) ++ahead;
        reads += ahead;
        const long next = begin + ahead + 1;
        if (Level(begin) > Level(next)) {
          double hereDb = 0.0, nextDb = 0.0;
          for (long k = 0; k <= fifth; ++k) {
            hereDb += Level(begin + k);
            nextDb += Level(next + k);
          }
          reads += 2 * fifth;
          if (hereDb > nextDb) return begin;
        }
      }
      ++begin;
      if (begin >= limit_ - 2) return begin;
    }
    return begin;
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  const NoiseSeen& noise_;
  LineTable& table_;
  const TSorData& sor_;
  const TraceLevels levels_;
  const long from_;              // point behind which to look
  const long limit_;             // end of the search
  const double rateDbPerPoint_;  // recovery of the receiver
  const long winPulse_;          // points of the pulse
  const long winDead_;           // points until the receiver has recovered
  TEventLine& event_;            // launch event, if there is one

  double lowestDb_ = 0.0;     // lowest level of the first window
  long top_ = 0;              // highest point of the first window
  long start_ = 0;            // front of the peak
  long peak_ = 0;             // the peak whose fall is followed
  double highDb_ = 0.0;       // level of that peak
  double lowDb_ = 0.0;        // lowest level behind it
  long lowAt_ = 0;            // where that is
  long saturatedPulses_ = 0;  // length of a clipped top, in pulses
  long halfWay_ = 0;          // first point below the middle between top and low
  long fallPoints_ = 0;       // points that the receiver needs from top to low
  long fallEnd_ = 0;          // where it should have arrived
  long laterPeak_ = 0;        // highest point of the fall or behind it
};

}  // namespace

long FindBegLine(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                 LineTable& table, long from, long limit, double rate, TEventLine& launchEvent) {
  return FibreStartSearch(settings, scale, noise, table, from, limit, rate, launchEvent).Run();
}

}  // namespace reflyze
