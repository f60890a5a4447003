// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoLines.h"

// From a stretch of points to a section of the result: the line through it, the name of the event at its end,
// and the loss of the event in front, which only the level behind it settles.
//
// What makes this hard is short stretches. Behind a reflection the receiver is still falling, so the first
// points look like steep fibre; between two near events there may be no undisturbed point at all; and in the
// noise a least-squares line can have any slope. So the start of a short stretch is searched again, the
// letter of the event says whether its loss could be told from its neighbour (R, N, P) or not (V, S), and a
// slope that noise alone could have made is replaced by the fibre's nominal one.

#include <algorithm>
#include <cmath>
#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/FibreLimits.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr double kWidePeakDb = 5.0;        // a peak so tall takes the receiver more than the event window
constexpr double kNoPeakDb = 0.001;        // a peak lower than this above the line is none
constexpr double kShortWindows = 1.5;      // a section shorter than so many event windows is short
constexpr double kShadowMarginKm = 0.001;  // of the event in front; and with it ...
constexpr double kShadowDbPerKm = 4000.0;  // ... a metre for 4 dB of its height
constexpr float kFittedDropDb = 1.0F;      // a section that loses more, or has more points, is fitted
constexpr long kFittedPoints = 100;
constexpr double kGainPeakDb = 1.0;            // a peak no higher than this above the level behind is a gain
constexpr double kGainMarginDb = 0.2;          // by which the receiver's tail may lift a level
constexpr double kLowPeakDb = 0.75;            // behind a gain, a peak lower than this is none
constexpr double kSectionKm = 0.2;             // a section so long is a section, however few points it has
constexpr double kImpossibleGainDb = -0.5;     // a larger gain is a reflection whose tail was taken for fibre
constexpr double kShortestRealKm = 0.005;      // nearer to the start there is no fibre in front of an event
constexpr double kLeastEndSlopeDbPerKm = 0.1;  // a measured slope has to exceed this to be believed
constexpr double kLeastSlopeFactor = 0.8;      // a slope within these factors of the fibre's is accepted
constexpr double kMostSlopeFactor = 1.25;
constexpr double kFarDb = 100.0;  // start of a search for the least distance

class SectionBuilder {
 public:
  SectionBuilder(const TraceScale& scale, const NoiseSeen& noise, const LineTable& table, TEventLine* prev,
                 long a, long e, long b, long w, float slope, float p1, float p2)
      : scale_(scale),
        noise_(noise),
        table_(table),
        sor_(scale.sor),
        levels_(scale.sor),
        prev_(prev),
        first_(levels_.Near(a)),
        given_(levels_.Near(e)),
        event_(levels_.Near(b)),
        window_(levels_.Near(w)),
        winPulse_(levels_.Near(scale.winPulse)),
        slope_(slope),
        p1_(p1),
        p2_(p2),
        points_(given_ - first_),
        start_(first_),
        last_(given_) {}

  std::unique_ptr<TEventLine> Run() {
    StepBackFromEvent();
    if (static_cast<double>(last_ - first_) < kShortWindows * static_cast<double>(window_) + 2) FindStart();
    PlaceLine();
    FitLevels();
    NameEvent();
    line_->P[0] = std::max(line_->P[0], sor_->GetMinLevel());
    line_->P[1] = std::max(line_->P[1], sor_->GetMinLevel());
    if (prev_ != nullptr) SettleEventInFront();
    CheckSlope();
    return std::move(line_);
  }

 private:
  double Level(long point) const { return levels_[point]; }
  double Km(long point) const { return sor_->NumToALen(point); }
  bool NoFit() const { return p1_ + p2_ >= 0.0F; }
  double HeightOverNoise(double peakDb) const { return RefEventMinReflection(sor_, peakDb, noise_.noiseAmp); }
  // Least height of a reflection above what noise explains: a short pulse leaves less room to see one.
  double LeastReflectionDb() const {
    constexpr long kLongWindow = 101;    // points: there a reflection needs no more than noise explains
    constexpr double kOfOnePoint = 0.2;  // dB
    return window_ < kLongWindow ? kOfOnePoint / std::sqrt(static_cast<double>(window_ + 1)) : 0.0;
  }

  // Where the stretch ends at the event point itself and the trace jumps there, the last point belongs to
  // the event.
  void StepBackFromEvent() {
    if (first_ > event_ || given_ != event_) return;
    const double jumpDb = Level(event_ - 1) - Level(event_);
    if (jumpDb <= 10 * scale_.lossDS) return;
    if (event_ + winPulse_ >= levels_.points()) return;
    const double riseDb = Level(event_ + winPulse_ / 2 + 1) - Level(event_);
    const double beforeDb = std::fabs(Level(event_ - 2) - Level(event_ - 1) - scale_.lossDS);
    if (riseDb > Level(event_) - scale_.nf && 3 * beforeDb < jumpDb) last_ = given_ - 1;
  }

  // A short section may begin inside the tail of the peak in front of it. The receiver's recovery rate says
  // how far that reaches at most; within that, the section starts where single steps are as small as fibre
  // and noise make them.
  void FindStart() {
    const long tailEnd = PeakTailEnd();
    if (Level(last_) - scale_.nf < kPointsTellDb) {
      const int base = points_ < 40 ? 2 : 4;
      // Falls between level and twice the fibre's, and what noise adds.
      const double steepest = 2 * scale_.lossDS + noise_.noiseAmp / base / 2;
      const long straight =
          RefAutoSearchStraightLoss2(sor_, first_, last_, base, static_cast<float>(steepest), 0.0F, 0);
      if (straight > 0) start_ = straight;
    }
    const double stepDb = 10 * scale_.lossDS + noise_.noiseAmp;
    const auto jumps = [&](long point) {
      return std::fabs(Level(point) - Level(point + 1) - scale_.lossDS) > stepDb;
    };
    if (tailEnd <= start_) {
      while (start_ > std::max(tailEnd, 0L) && jumps(start_ - 1)) --start_;
    } else {
      while (start_ < last_ && jumps(start_)) ++start_;
    }
  }

  // The point where the receiver has surely recovered from the peak in front, or from the launch.
  long PeakTailEnd() const {
    long average = Level(event_) > scale_.nf + kPointsTellDb ? 1 : points_ / 2 + 1;
    average = std::min(average, last_);
    double levelDb = RefMathPower(sor_, scale_.linf, last_ - average, average + 1, 1);
    const long origin = TruncToLong(sor_->LenToNum(0.0));
    double topDb = 0.0;
    double backPoints = 2.0;
    if (prev_ == nullptr) {
      const double windowOwt = static_cast<double>(window_) * sor_->FxdParams->GetOwtDS(0);
      float launchDb = 0.0F;
      RefAutoGetMax(sor_, origin, TruncToLong(sor_->OwtTofNum(windowOwt) + 1.0), launchDb, 1);
      topDb = launchDb;
    } else {
      topDb = prev_->peakLevel;
      levelDb = std::min(levelDb, prev_->P[1]);
      backPoints = sor_->LenToNum(prev_->L[2]) - static_cast<double>(origin);
    }
    levelDb = std::max(levelDb, scale_.nf);
    const double recoveryOwt = std::fabs(2 * (topDb - levelDb)) / scale_.dbOnOwt;
    return TruncToLong(sor_->OwtTofNum(recoveryOwt) + backPoints + static_cast<double>(winPulse_));
  }

  void PlaceLine() {
    line_->P[0] = p1_;
    line_->P[1] = p2_;
    line_->L[0] = static_cast<float>(Km(start_));
    line_->L[1] = Km(last_);
    line_->L[2] = Km(event_);
    long peak = event_;
    line_->peakLevel = GetMax(scale_, event_, window_ + 2, peak);
    const double heightDb = line_->peakLevel - line_->P[1];
    if (heightDb > kWidePeakDb) {
      const double wider =
          static_cast<double>(window_ + 2) +
          static_cast<double>(TruncToLong(heightDb)) / (scale_.dbOnOwt * kWidePeakDb * scale_.owtDS);
      line_->peakLevel = GetMax(scale_, event_, levels_.Near(TruncToLong(wider)), peak);
    }
    line_->peakLen = Km(peak);
    // A section that ends before this still lies in the shadow of the event in front.
    const double windowKm = sor_->NumToLen((window_ + 2) / 3 + 4) - sor_->NumToLen(0);
    shadowKm_ = prev_ == nullptr ? line_->L[0]
                                 : prev_->peakLen + 3 * (windowKm + kShadowMarginKm +
                                                         (prev_->peakLevel - prev_->P[1]) / kShadowDbPerKm);
  }

  void FitLevels() {
    const float dropDb = static_cast<float>(points_) * slope_;
    if (start_ < first_ && (NoFit() || p1_ < p2_)) LossfSquare(sor_, *line_);
    if (line_->P[0] + line_->P[1] >= 0.0) {
      // Nothing fitted yet: the nominal slope up from the last point, unless the first one contradicts.
      line_->P[1] = Level(last_);
      line_->P[0] = line_->P[1] + dropDb;
      if (std::fabs(Level(start_) - line_->P[0]) > noise_.noiseAmp) line_->P[0] = Level(start_);
      if (NoFit() && (dropDb > kFittedDropDb || points_ > kFittedPoints)) LossfSquare(sor_, *line_);
    }
    line_->Pe() = line_->P1();
    // In the shadow of the event in front the level can't be higher than before it.
    if (prev_ != nullptr && line_->L[1] < shadowKm_) line_->Pe() = std::min(line_->Pe(), prev_->Pe());
  }

  // Points of the section that are free of the event in front.
  double FreePoints() const {
    double points = static_cast<double>(last_ - start_);
    if (prev_ == nullptr) return points;
    const float levelDb = levels_[last_];
    if (points > 0 && points <= static_cast<double>(window_) && window_ < last_) {
      const float riseDb = levels_[last_ - window_] - levelDb;
      if (prev_->Pe() - levelDb > 10 * std::fabs(riseDb)) points = static_cast<double>(window_ + 2);
    }
    const double apart = sor_->LenToNum(line_->L[2]) - sor_->LenToNum(prev_->peakLen);
    if (prev_->peakLevel - line_->P[0] < kGainPeakDb && apart > static_cast<double>(window_ / 2 + 2)) {
      points = static_cast<double>(window_ / 2 + 2);
    }
    if (prev_->Pe() < line_->P[1]) {
      const double gainDb = line_->P[1] - prev_->Pe() + kGainMarginDb + noise_.noiseAmp;
      points -= 3 * gainDb / (scale_.dbOnOwt * sor_->FxdParams->GetOwtDS(0)) + 1;
    }
    return points;
  }

  void NameEvent() {
    const double heightDb = line_->peakLevel - line_->Pe() - HeightOverNoise(line_->peakLevel);
    const double points = FreePoints();
    const long need = (window_ + 10) / 20 + 5;
    const bool apart =
        points > static_cast<double>(need) || points * scale_.lenDS > kSectionKm ||
        (points > static_cast<double>(need / 2 + 1) && Level(start_) - line_->P[1] < noise_.noiseAmp) ||
        (prev_ == nullptr && table_.pZero > line_->P[0]);
    if (!apart) {
      line_->type = heightDb > LeastReflectionDb() ? 'V' : 'S';
    } else if (line_->peakLevel < line_->Pe() + kNoPeakDb) {
      line_->type = 'P';
    } else {
      line_->type = heightDb < LeastReflectionDb() ? 'N' : 'R';
    }
  }

  void SettleEventInFront() {
    if (line_->type == 'V') {
      prev_->spliceLoss = 0.0;
      const bool reflection = prev_->type == 'R' || prev_->type == 'V';
      if (reflection && line_->P[0] > prev_->P[1] &&
          sor_->dLenToNum(prev_->L[2]) > static_cast<double>(window_) && prev_->L[2] > kShortestRealKm) {
        SplitDoubledPeak();
      }
    } else {
      const double gapPoints = sor_->dLenToNum(prev_->L[1] - line_->L[0]);
      prev_->spliceLoss = prev_->P[1] - line_->P[0] + slope_ * gapPoints;
    }
    if (prev_->spliceLoss < 0.0 && prev_->peakLevel - line_->P[0] < kGainPeakDb) {
      // The peak is no reflection: behind it the trace stays at the higher level.
      prev_->type = 'N';
      prev_->peakLevel = line_->P[0] > prev_->peakLevel - noise_.noiseAmp
                             ? prev_->P[1]
                             : prev_->P[1] + prev_->peakLevel - line_->P[0] - noise_.noiseAmp;
    }
    if (prev_->spliceLoss < kImpossibleGainDb) {
      if (prev_->type != 'V') prev_->type = 'R';
      prev_->spliceLoss = 0.0;
    }
    if (line_->type != 'V' && line_->peakLevel < line_->P[1] + kLowPeakDb && prev_->P[1] < line_->P[0]) {
      line_->type = 'N';
    }
  }

  // Two peaks with no fibre between: the dip between them is the level there. If what rises to the first peak
  // is no more than noise, the first event was a loss and not a reflection.
  void SplitDoubledPeak() {
    const long front = levels_.Near(TruncToLong(sor_->dLenToNum(prev_->L[2])));
    long peak = front;
    prev_->peakLevel = GetMax(scale_, front, last_ - front, peak);
    long dip = peak;
    const double lowDb = GetMin(scale_, peak, event_ - peak, dip);
    line_->P[0] = lowDb;
    line_->P[1] = lowDb - static_cast<float>(points_) * slope_;
    const double heightDb = prev_->peakLevel - prev_->Pe() - HeightOverNoise(prev_->peakLevel);
    if (peak < dip && heightDb < LeastReflectionDb()) {
      prev_->type = prev_->Pe() < lowDb ? 'N' : 'P';
      prev_->spliceLoss = prev_->Pe() - lowDb;
    }
    prev_->peakLen = Km(peak);
  }

  // Nominal slope of this fibre in dB/km.
  double FibreSlope() const {
    return table_.aciEnd > kLeastEndSlopeDbPerKm ? table_.aciEnd : scale_.aciNominal;
  }

  // What noise alone can tilt the section by, in dB.
  double NoiseTiltDb() const {
    const double tiltDb = RefMathAddNoise(sor_, first_, points_, 0);
    if (noise_.spliceWidth == 0.0) return tiltDb;
    const double points = static_cast<double>(points_);
    return tiltDb +
           (points > noise_.spliceWidth ? noise_.noiseAmp * noise_.spliceWidth / points : noise_.noiseAmp);
  }

  // A slope near the fibre's is believed. So is any other that noise alone could not have made.
  void CheckSlope() {
    const double fibre = FibreSlope();
    const double slope = line_->LossKm();
    if (line_->type != 'V' && slope >= kLeastSlopeFactor * fibre && slope <= kMostSlopeFactor * fibre) return;
    const double tiltDb = NoiseTiltDb();
    if (tiltDb > fibre / 2 * line_->Length()) ForceSlope(fibre, tiltDb);
  }

  // The section gets the fibre's slope, in dB/km, and shrinks to the point that fits the forced line best.
  void ForceSlope(double fibre, double tiltDb) {
    const bool merged = line_->type == 'V' || line_->type == 'S';
    line_->lossKmFix = fibre;
    if (line_->Loss() > tiltDb) {
      line_->Pe() = line_->P[1] - fibre * (line_->L[2] - line_->L[1]);
    } else if (!merged) {
      line_->Pe() = (line_->P[0] + line_->P[1]) / 2 - fibre * line_->Length() / 2;
    }
    line_->L[0] = line_->L[1];
    line_->P[0] = line_->P[1];

    const double limitDb = fibre / 2 * (line_->L[2] - shadowKm_);
    NearestPoint nearest;
    SearchNearest(nearest, merged ? last_ : last_ - 1, [&](long point) {
      return levels_[point] - line_->Pe() + static_cast<float>(event_ - point) * scale_.lossDS;
    });
    if (nearest.distanceDb < limitDb) {
      line_->L[0] = Km(nearest.at);
      line_->P[0] = levels_[nearest.at];
      return;
    }
    const double meanDb = RefMathPower(sor_, first_, event_ - first_, 0);
    SearchNearest(nearest, last_, [&](long point) { return levels_[point] - meanDb; });
    if (nearest.distanceDb < limitDb) {
      line_->L[0] = line_->L[1] = Km(nearest.at);
      line_->P[0] = line_->P[1] = levels_[nearest.at];
    }
  }

  struct NearestPoint {
    double distanceDb = kFarDb;
    long at = 0;
  };

  // Back from point `from` to the start of the section; a point counts only if it beats what was found
  // before.
  template <class Distance>
  void SearchNearest(NearestPoint& nearest, long from, Distance distance) const {
    for (long point = std::min(from, levels_.points() - 1); point >= std::max(first_, 0L); --point) {
      const double distanceDb = std::fabs(distance(point));
      if (distanceDb < nearest.distanceDb) nearest = {distanceDb, point};
    }
  }

  const TraceScale& scale_;
  const NoiseSeen& noise_;
  const LineTable& table_;
  TSorData* const sor_;
  const TraceLevels levels_;
  TEventLine* const prev_;  // section in front, null for the first one
  const long first_;        // range to fit
  const long given_;
  const long event_;   // point of the event behind the section
  const long window_;  // points of an event
  const long winPulse_;
  const float slope_;  // dB per point
  const float p1_;     // levels at both ends, or 0 and 0
  const float p2_;
  const long points_;  // length of the range as given

  std::unique_ptr<TEventLine> line_ = std::make_unique<TEventLine>();
  long start_;             // where the section starts after all
  long last_;              // its last point
  double shadowKm_ = 0.0;  // up to here the event in front disturbs the trace
};

}  // namespace

std::unique_ptr<TEventLine> CreateEventLin(const TraceScale& scale, const NoiseSeen& noise,
                                           const LineTable& table, TEventLine* prev, long a, long e, long b,
                                           long w, float slope, float p1, float p2) {
  return SectionBuilder(scale, noise, table, prev, a, e, b, w, slope, p1, p2).Run();
}

TEventLine* AddEventLin(LineTable& table, std::unique_ptr<TEventLine> line, TEventLine* prev) {
  if (prev != nullptr && prev->type == '_') prev->type = prev->spliceLoss > 0.0 ? 'P' : 'N';
  table.lines->AddData(line.get());
  return line.release();  // the table owns it now
}

}  // namespace reflyze
