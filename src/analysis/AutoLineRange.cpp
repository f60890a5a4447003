// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoLines.h"

// Which part of a stretch can be trusted for a straight line.
//
// A stretch between two events is rarely straight from end to end: it starts in the tail of the peak in
// front, ends in the foot of the rise of the next one, may sink into the noise, and may hide a splice too
// weak to have been found. The range shrinks from both sides as far as the trace itself demands it; what is
// left is extended backwards from its quietest part as long as the fitted slope stays near the fibre's.

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/Optics.h"
#include "util/blockSearch.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr double kShapesTellDb = 7.0;         // above the noise floor the shape of a step can be read
constexpr float kHiddenTopDb = 1.5F;          // a clipped top was higher than it looks by so much
constexpr double kReferenceDropDb = 5.0;      // the tail of a pulse grows with the drop behind the peak
constexpr double kRecoveries = 3.0;           // after which the receiver has left ...
constexpr double kRecoveriesDb = 2.4;         // ... a drop by this much behind
constexpr double kNoiseStepDb = 2.2;          // step of noise as high as the level: 5 log10(e), rounded up
constexpr double kFallIntoNoiseDb = 5.0;      // so deep a fall ends in the noise
constexpr double kDeepDb = 3.0;               // so far below the floor there is nothing but noise
constexpr double kClearOfPeakDb = 3.0;        // below the peak in front: its tail is over
constexpr double kRougher = 1.5;              // times the swing of the near half: the far one is rough
constexpr double kMoreThanSwing = 1.2;        // times its swing, by which a quiet part leaves its slope
constexpr double kClearlyBetter = 0.9;        // of the error of a fit
constexpr double kUsualError = 0.25;          // of the fibre's slope, by which a fit may miss it
constexpr double kReferenceSpanOwt = 5000.0;  // 500 ns one way, about 100 m of fibre
constexpr long kFewestSearched = 16;          // shorter sections leave nothing to search
constexpr double kLongSectionKm = 5.0;        // a section so long can spare its start

class TrustedRange {
 public:
  TrustedRange(const TraceScale& scale, const NoiseSeen& noise, const LineTable& table, TEventLine* prev,
               long s, long z, long w, float slope, long after, char type)
      : scale_(scale),
        noise_(noise),
        table_(table),
        sor_(scale.sor),
        levels_(scale.sor),
        prev_(prev),
        from_(levels_.Near(s)),
        to_(levels_.Near(z)),
        window_(levels_.Near(w)),
        slope_(slope),
        type_(type),
        noiseDb_(scale.sor->FxdParams->GetNF()),
        spliceEnd_(after < 0 ? from_ : levels_.Near(after)),
        points_(to_ - from_ - 3),
        begin_(from_),
        event_(to_),
        end_(to_) {}

  std::unique_ptr<TEventLine> Run() {
    StartBehindTail();
    const bool isTooShort = window_ > 20 && (type_ == 'S' || type_ == 'E') && !RefineEvent();
    StayBehindLast();
    if (isTooShort) return Line(begin_, event_);
    TakeLength(points_, begin_ + points_ / 2);
    CutAtNoise();
    if (IsNoise()) return LineInNoise();
    if (TooShortToSearch()) return Line(begin_, end_);

    MeasureSwing();
    if (farSwingDb_ > kRougher * nearSwingDb_ && type_ != '_') return LineOfRoughEnd();
    FindQuietStart();
    // The last splice may lie behind this stretch. Then the section starts at its end.
    const long late = std::min(std::max(spliceEnd_, begin_), end_);
    if (FrontIsRough(late)) {
      const long early = std::min(spliceEnd_, quiet_);
      begin_ = late - early > 100 ? (early + late) / 2 : early;
      if (late < (begin_ + event_) / 2 || Km(end_) - Km(late) > kLongSectionKm) return Line(late, end_);
    }
    if (quiet_ < spliceEnd_ && (spliceEnd_ - quiet_) * 5 < end_ - spliceEnd_) {
      begin_ = quiet_;
      quiet_ = spliceEnd_;
    }
    return FittedLine(late);
  }

 private:
  double Level(long point) const { return levels_[point]; }
  double Km(long point) const { return sor_->NumToALen(point); }

  std::unique_ptr<TEventLine> Line(long first, long last, float p1 = 0.0F, float p2 = 0.0F) const {
    return CreateEventLin(scale_, noise_, table_, prev_, first, last, event_, window_, slope_, p1, p2);
  }

  // The figures of a range of `points` points whose middle is `middle`.
  void TakeLength(long points, long middle) {
    middle_ = middle;
    points_ = std::max(points, 1L);
    base_ = TruncToLong(std::sqrt(static_cast<double>(points_)));
  }

  // How far the tail of the peak in front reaches: by the receiver's recovery, and by the longer tail that
  // the pulse itself drags. Not more than a fifth of the stretch is given up for it.
  void StartBehindTail() {
    float lowDb = levels_[from_];
    float topDb = 0.0F;
    const double searchFrom =
        static_cast<double>(from_ - 2 * levels_.Near(scale_.winDead)) - kReferenceSpanOwt / scale_.owtDS;
    const long peak = RefAutoGetMax(sor_, TruncToLong(searchFrom), from_, topDb, 1);
    if (peak < from_) RefAutoGetMin(sor_, peak + 1, from_, lowDb);
    if (topDb > kMayClipLevelDb) topDb += kHiddenTopDb;
    if (lowDb < noiseDb_ + kOverNoiseDb) lowDb = static_cast<float>(noiseDb_ + kOverNoiseDb);
    const float dropDb = topDb - lowDb;

    const double pulseTail = std::sqrt(static_cast<double>(window_) * scale_.owtDS / kReferenceSpanOwt) *
                             dropDb / kReferenceDropDb * kReferenceSpanOwt / scale_.owtDS;
    const double receiverTail = dropDb * kRecoveries / kRecoveriesDb / (scale_.owtRecover / scale_.owtDS);
    const long tail = std::max(levels_.Near(TruncToLong(pulseTail)), levels_.Near(TruncToLong(receiverTail)));
    const long reach = tail + window_ / 2 + peak;
    if (from_ < reach) begin_ = std::min(reach, from_ + points_ / 5);
  }

  // The event point comes from a search over a whole window. Looks for the foot of the rise, or the edge of
  // the step, around it. False when the section in front of it is too short for that.
  bool RefineEvent() {
    const long around = to_ - window_ / 3 - 2;
    const long quarter = window_ / 4 + 1;
    float fallDb = 0.0F, riseDb = 0.0F;
    long fallAt = 0, riseAt = 0;
    RefAutoSearchMaxdbRiseFall(sor_, around, to_ + quarter, 2, fallDb, fallAt, riseDb, riseAt, slope_);
    const double stepDb = kNoiseStepDb / TSorBlockQRTParameters::poww(Level(to_) - noiseDb_) + kResolutionDb +
                          (-fallDb - 2 * slope_);
    if (riseDb + 2 * slope_ > 2 * (-fallDb - 2 * slope_) &&
        riseDb > static_cast<float>(window_) * slope_ / 10 && FindFoot(riseAt, stepDb)) {
      return true;
    }
    if (Level(event_) > Level(event_ + window_) + static_cast<float>(window_) * slope_) {
      if (event_ - begin_ < quarter) return false;
      event_ = StepEdge(around, quarter);
    }
    return true;
  }

  // Events closer than the window may change places when each is refined by itself, and in a broken record
  // a place may be searched in front of the stretch. The later event stays behind the one in front of it.
  void StayBehindLast() {
    if (prev_ == nullptr || Km(event_) >= prev_->L[2]) return;
    const long lastPoint = sor_->DataPts->GetPointsNum() - 1;
    const long prevEvent = sor_->OwtToNearestNum(sor_->dLenToOwt(prev_->L[2]));
    event_ = std::clamp(prevEvent, event_, std::max(event_, lastPoint));
  }

  // A reflection: its foot, if the rise is more than the `stepDb` that noise makes.
  bool FindFoot(long riseAt, double stepDb) {
    float levelDb = 0.0F;
    const long top = RefAutoGetMax(sor_, riseAt - 3, riseAt + 3, levelDb, 0);
    long foot = RefAutoGetMin(sor_, top - window_ / 5 - 1, top - 1, levelDb);
    if (Level(foot + 1) - Level(foot) + slope_ < stepDb) ++foot;
    const double riseDb = Level(top) - Level(foot) + static_cast<float>(top - foot) * slope_;
    if (TruncToLong(riseDb / stepDb) == 0) return false;
    event_ = foot;
    return true;
  }

  // A loss: where the step begins.
  long StepEdge(long around, long quarter) const {
    long edge = RefAutoSearchSplicePin(sor_, around, window_, quarter, slope_);
    if (Level(event_) < noiseDb_ + kShapesTellDb) edge = event_;
    if (type_ == 'E' && std::labs(event_ - edge) > window_ / 10) edge = event_;
    float levelDb = 0.0F;
    long top = RefAutoGetMax(sor_, event_ - 3, event_ + 5, levelDb, 0);
    if (top >= event_ && top - event_ < window_ / 10 + 2) {
      while (top > event_ - 3 && Level(top - 1) < Level(top)) --top;
      edge = top + 1;
    }
    if (Level(edge) - Level(edge + window_) > kFallIntoNoiseDb && Level(edge) > noiseDb_ + kPointsTellDb) {
      // So deep a fall ends in the noise: the step can't begin later than one window before that.
      const long inNoise = RefAutoSearchStraightLess(sor_, event_, static_cast<float>(noiseDb_)) - window_;
      if (inNoise < edge) edge = inNoise + 1;
    }
    return edge;
  }

  // A stretch that sinks into the noise ends where it does: between the first point and the last one that
  // tell, but not before the last splice and a third of the rest.
  void CutAtNoise() {
    end_ = event_;
    if (!(levels_[event_ - base_] < noiseDb_ && levels_[begin_] > noiseDb_ + kOverNoiseDb)) return;
    const float deepDb = static_cast<float>(noiseDb_ - kDeepDb);
    const long firstDeep = std::min(RefAutoSearchStraightLess(sor_, begin_, deepDb), event_);
    const long lastHigh = RefAutoSearchBackGreather(sor_, event_ - base_, deepDb) + 1;
    end_ = spliceEnd_ <= firstDeep ? (firstDeep + lastHigh) / 2 : lastHigh;
    end_ = std::min(std::max(end_, spliceEnd_ + (event_ - begin_) / 3), event_);
    TakeLength(end_ - begin_ + 1, begin_ + (end_ - begin_) / 2);
  }

  bool IsNoise() const { return levels_[begin_] < noiseDb_ + kOverNoiseDb && levels_[event_] < noiseDb_; }

  std::unique_ptr<TEventLine> LineInNoise() {
    float p1 = 0.0F, p2 = 0.0F, error = 0.0F, halfError = 0.0F;
    const long pin = RefMathGetPinWithLsp(sor_, begin_, begin_ + points_ / 4, event_, slope_, p1, p2, error);
    const long half = (pin + event_) / 2;
    RefMathGetPinWithLsp(sor_, pin, pin + base_, half, slope_, p1, p2, halfError);
    if (std::fabs(halfError) < std::fabs(error)) end_ = half;
    return Line(pin, end_);
  }

  bool TooShortToSearch() const {
    if (prev_ != nullptr) {
      // Points that the receiver needs from the peak in front.
      const double recovery = (prev_->peakLevel - levels_[event_]) / scale_.dbOnOwt / scale_.owtDS;
      if (recovery + static_cast<double>(window_ / 2) > static_cast<double>(points_)) return true;
    }
    return points_ < kFewestSearched || end_ - middle_ < base_ || points_ < window_ / 2;
  }

  // How far both halves swing over a base of points; a fall right at the end belongs to the event.
  void MeasureSwing() {
    nearSwingDb_ = RefAutoSearchMaxdbRiseFall(sor_, begin_, middle_ + base_ / 2, base_, nearFallDb_,
                                              nearFallAt_, nearRiseDb_, nearRiseAt_, 0.0F);
    MeasureFarSwing(end_ - 1);
    if (event_ - farFallAt_ - base_ < (event_ - begin_) / 100 + 2) {
      end_ = farFallAt_ + base_ - 2;
      MeasureFarSwing(farFallAt_ + base_ - 3);
    }
  }

  void MeasureFarSwing(long last) {
    farSwingDb_ = RefAutoSearchMaxdbRiseFall(sor_, middle_ - base_ / 2, last, base_, farFallDb_, farFallAt_,
                                             farRiseDb_, farRiseAt_, 0.0F);
  }

  // The far half is rougher than the near one: only what is next to the event describes the level there.
  std::unique_ptr<TEventLine> LineOfRoughEnd() {
    const bool clearOfPeak = prev_ == nullptr || prev_->peakLevel - levels_[begin_] > kClearOfPeakDb;
    if (event_ > begin_ + window_ && clearOfPeak) begin_ = event_ - window_;
    begin_ = std::min(begin_, spliceEnd_);
    if (end_ < begin_) end_ = (begin_ + event_) / 2;
    return Line(begin_, end_);
  }

  // Back from the first swing of the far half to where the trace leaves its slope by more than it swings
  // there.
  void FindQuietStart() {
    quiet_ = std::min(farRiseAt_, farFallAt_);
    const float fibreDb = static_cast<float>(base_) * slope_;
    const long first = begin_ + base_ + 1;
    if (quiet_ < first) return;
    levels_.Over(first - base_, quiet_ + 1, [&, base = base_](auto levels) {
      const double mostDb = kMoreThanSwing * farSwingDb_;
      quiet_ = LastThatPasses(quiet_, first, [=](long i) {
        return !(std::fabs(levels[i - base] - fibreDb - levels[i]) < mostDb);
      });
    });
  }

  bool FrontIsRough(long late) const {
    return -nearFallDb_ > 2 * nearRiseDb_ && nearRiseDb_ - nearFallDb_ > 2 * (farRiseDb_ - farFallDb_) &&
           late - begin_ > 100;
  }

  // The start whose slope comes nearest to the fibre's, from the quiet part backwards.
  std::unique_ptr<TEventLine> FittedLine(long late) {
    float p1 = 0.0F, p2 = 0.0F, error = 0.0F;
    long pin = RefMathGetPinWithLsp(sor_, quiet_ - base_, quiet_, end_, slope_, p1, p2, error);
    const double tolerance = std::min(static_cast<double>(base_) / static_cast<double>(window_), 1.0);
    if (std::fabs(error) > tolerance && 2 * base_ < end_ - quiet_) {
      float laterP1 = p1, laterP2 = p2, laterError = error;
      const long later =
          RefMathGetPinWithLsp(sor_, quiet_, (end_ + quiet_) / 2, end_, slope_, laterP1, laterP2, laterError);
      if (std::fabs(laterError) < kClearlyBetter * std::fabs(error)) {
        pin = later;
        p1 = laterP1;
        p2 = laterP2;
        error = laterError;
      }
    }
    // The last point belongs to the event where it lies off the line, on the side to which the slope errs.
    if ((levels_[end_] > p2 && error < 0.0F) || (levels_[end_] < p2 && error > 0.0F)) --end_;
    const double tiltDb = (std::fabs(error) - kUsualError) * slope_ * static_cast<double>(end_ - quiet_);
    if (tiltDb > noise_.noiseAmp / 3.0 && spliceEnd_ - begin_ >= base_) {
      // A fit needs points.
      if (late >= end_) late = (3 * end_ + begin_) / 4 - 1;
      pin = RefMathGetPinWithLsp(sor_, begin_, late, end_, slope_, p1, p2, error);
    }
    return Line(std::min(pin, end_ - 1), end_, p1, p2);
  }

  const TraceScale& scale_;
  const NoiseSeen& noise_;
  const LineTable& table_;
  TSorData* const sor_;
  const TraceLevels levels_;
  TEventLine* const prev_;  // section in front, null for the first one
  const long from_;         // the stretch
  const long to_;
  const long window_;     // points of an event
  const float slope_;     // dB per point
  const char type_;       // letter of the event at the end
  const double noiseDb_;  // noise floor on record
  const long spliceEnd_;  // end of the last splice

  long points_;  // length of the range
  long begin_;   // start of the range
  long event_;   // point of the event
  long end_;     // end of the range
  long middle_ = 0;
  long base_ = 1;   // points over which swings are measured: root of the length
  long quiet_ = 0;  // where the quiet part starts

  // Swing of the near and the far half; falls are negative.
  float nearSwingDb_ = 0.0F, nearFallDb_ = 0.0F, nearRiseDb_ = 0.0F;
  float farSwingDb_ = 0.0F, farFallDb_ = 0.0F, farRiseDb_ = 0.0F;
  long nearFallAt_ = 0, nearRiseAt_ = 0, farFallAt_ = 0, farRiseAt_ = 0;
};

}  // namespace

std::unique_ptr<TEventLine> CreateEventLin2(const TraceScale& scale, const NoiseSeen& noise,
                                            const LineTable& table, TEventLine* prev, long s, long z, long w,
                                            float slope, long after, char eventType) {
  return TrustedRange(scale, noise, table, prev, s, z, w, slope, after, eventType).Run();
}

}  // namespace reflyze
