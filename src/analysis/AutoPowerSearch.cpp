// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoPowerSearch.h"

#include <algorithm>
#include <cmath>

#include "ref/events/refEvent.h"
#include "sor/sorData.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/AutoSteps.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/Optics.h"

// The alternative search inside the lines. Where the usual one follows single points away from a line, this
// one only compares mean powers in front of and behind a place, over a range of distances. It needs no fit,
// and is better with slow steps in heavy noise; it is worse at telling where they begin. Kept for comparison.

namespace reflyze {

namespace {

// Searches one line for an event and takes its measures.
class PowerScan {
 public:
  PowerScan(const AnalysisSettings& settings, const TraceScale& scale, NoiseSeen& noise, double aciEnd,
            const TEventLine& line)
      : settings_(settings),
        scale_(scale),
        noise_(noise),
        aciEnd_(aciEnd),
        polDb_(settings_.th.polar),
        limitDb_(settings_.th.Event) {
    constexpr double kPointsPerDb = 40.0;  // of noise, by which the shortest window grows
    begin_ = HeldPoint(scale_.sor->dLenToNum(line.L[0]), scale_.nPoints);
    end_ = HeldPoint(scale_.sor->dLenToNum(line.L[2]), scale_.nPoints);
    shortestPin_ = scale_.winEvent + HeldShift(settings_.th.polar * kPointsPerDb, scale_.nPoints);
    pin_ = Window(line.P[0]);
    slope_ = line.LossKm() * scale_.lenDS;
    s_ = begin_;
  }

  bool Find() {
    do {
      RefreshNoise();
      if (!FindJump()) return false;
      Pinpoint();
      MeasureSides();
      if (IsEvent()) {
        RollBack();
        if (HasRoom()) return true;
      }
    } while (MoveOn());
    return false;
  }

  long pos() const { return pos_; }
  // Completes the line in front of the event, and gives the point where the fibre goes on behind it.
  void Describe(TEventLine& head) const;
  long NextStart(const TEventLine& head) const;

 private:
  long Window(double levelDb) const {
    return std::max(1L, SetAvgPin(scale_, levelDb, settings_.th.Event, shortestPin_, settings_.th.MaxPin));
  }

  void RefreshNoise() {
    constexpr long kEnoughPoints = 20;
    if (s_ <= begin_ + kEnoughPoints || settings_.th.polar <= 0.0) return;
    double noiseDb = 0.0;
    double slope = 0.0;
    if (GetPol(scale_, begin_, s_, noiseDb, slope) == 0) return;
    noise_.noiseAmp = noiseDb;
    slope_ = slope;
  }

  // The first jump from here on. A slope taken too steep would make jumps of the flat stretch in front of
  // one; a stretch too short to measure counts as flat.
  bool FindJump() {
    float stepDb = 0.0F;
    found_ = Search(stepDb);
    const double slope = LossPin(scale_, s_, found_, pin_, 0);
    if (slope < slope_) {
      slope_ = std::max(slope, 0.0);
      found_ = Search(stepDb);
    }
    jumpDb_ = stepDb;
    return Passes();
  }
  long Search(float& stepDb) const {
    return SearchLoss(scale_, limitDb_, polDb_, s_, end_, pin_, scale_.winEvent, scale_.winDead, slope_,
                      stepDb);
  }
  bool Passes() const { return jumpDb_ > limitDb_ || -jumpDb_ > polDb_; }

  // A loss is as wide as the dead zone, a reflection as the pulse.
  void Pinpoint() {
    const bool loss = jumpDb_ > 0.0;
    from_ = std::max(s_, found_ - (scale_.winDead + pin_));
    to_ = std::min(end_, found_ + 3 * pin_ + scale_.winDead);
    const long distance = loss ? scale_.winDead : scale_.winPulse;
    const long window = loss ? pin_ : scale_.winPulse / 2 + 1;
    jumpDb_ = VarPowerTest(scale_, polDb_, pos_, from_, to_, window, distance, distance, slope_);
  }

  // Levels in front of the event and behind it, carried to its place along the slope. A rise that does not
  // come back to the level in front is no reflection. Neither is one below the least reflectance.
  void MeasureSides() {
    const long distance = 2 * pin_ + scale_.winDead;
    const double toMiddle = static_cast<double>(distance) - static_cast<double>(pin_) / 2.0;
    const long front = std::max(pos_ - distance, begin_);
    beforeDb_ =
        AveragePower(scale_, front, pin_, 0) - slope_ * (static_cast<double>(pos_ - front) - pin_ / 2.0);
    afterDb_ = AveragePower(scale_, pos_ + distance - pin_, pin_, 0) + slope_ * toMiddle;
    reflection_ = jumpDb_ < 0.0 && beforeDb_ - afterDb_ > -limitDb_;
    if (!reflection_) return;
    const double heightDb = GetMax(scale_, pos_, scale_.winDead) - beforeDb_;
    if (RefEventReflection(scale_.sor, scale_.sor->NumToOwt(pos_), heightDb) < settings_.th.THRef) {
      jumpDb_ = beforeDb_ - afterDb_;
      reflection_ = false;
    }
  }

  bool IsEvent() {
    limitDb_ = std::max(RequireFault(beforeDb_ - jumpDb_ - scale_.nf, pin_) + polDb_, settings_.th.Event);
    return Passes();
  }

  void RollBack() {
    if (jumpDb_ > limitDb_) pos_ = OtkatMax(scale_, pos_, from_, slope_);
    pos_ = OtkatEnd(scale_, pos_, from_, jumpDb_ > limitDb_ ? limitDb_ : polDb_);
  }

  // Too close to an end of the line, there is nothing to fit on that side.
  bool HasRoom() const {
    const long room = settings_.th.MinPin + pin_;
    return pos_ - begin_ >= room && end_ - pos_ >= room + scale_.winEvent;
  }

  bool MoveOn() {
    const long next = to_ - pin_;
    if (next <= s_) return false;
    s_ = next;
    pin_ = Window(afterDb_);
    return s_ <= end_ - scale_.winDead - 2 * pin_;
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  NoiseSeen& noise_;
  const double aciEnd_;  // dB/km, slope of the last line
  long begin_, end_;     // points of the line
  long shortestPin_;     // points
  const double polDb_;   // gains up to here are noise
  double limitDb_;       // and losses up to here
  double slope_;         // dB per point

  long s_;    // where the search goes on
  long pin_;  // window at the level there
  long found_ = 0, from_ = 0, to_ = 0;

  long pos_ = 0;
  double jumpDb_ = 0.0;                    // positive for a loss
  double beforeDb_ = 0.0, afterDb_ = 0.0;  // at pos_
  bool reflection_ = false;
};

void PowerScan::Describe(TEventLine& head) const {
  const double lossDb = beforeDb_ - afterDb_;
  head.L[1] = head.L[2] = scale_.sor->NumToALen(pos_);
  LossSquare(scale_.sor, head);
  GetMaxRef(scale_, pos_, scale_.winDead, head);
  if (reflection_) {
    head.type = 'R';
    head.spliceLoss = std::abs(lossDb) > settings_.th.Event ? lossDb : 0.0;
  } else {
    head.spliceLoss = jumpDb_;
  }
}

long PowerScan::NextStart(const TEventLine& head) const {
  constexpr double kTailedPeakDb = 1.5;
  // Slopes of the line, between which the fall behind an event has become fibre.
  constexpr double kSteepestLines = 1.4, kFlattestLines = 3.0;
  const double slopeDbPerKm = head.LossKm();
  long q = pos_ + scale_.winPulse;
  if (head.peakLevel >= settings_.th.RefSat || head.peakLevel - head.P[1] > kTailedPeakDb) {
    // Down to the level of the line, and through what the receiver dips below the fibre behind a strong peak.
    q = std::min(SearchStraightLess(scale_, q, static_cast<float>(head.P[1]), 1, 0.0F), end_);
    const long window = scale_.winEvent / 3 + 1;
    q = std::max(q, StraightGreatherLine(scale_, q, q + scale_.winDead, afterDb_, slopeDbPerKm, window));
  }
  const double recoveries = (head.P[1] - afterDb_) / kRecoveryDb;
  q += std::max(0L, HeldShift(recoveries * scale_.owtRecover / scale_.owtDS, scale_.nPoints));
  return NakatDZ(scale_, q, scale_.winEvent / 2 + 1, q + 3 * scale_.winDead,
                 std::max(kSteepestLines * slopeDbPerKm, aciEnd_), slopeDbPerKm / kFlattestLines);
}

// What the fibre loses at its end: from the last line to the level far enough behind it.
void MeasureEnd(const AnalysisSettings& settings, const TraceScale& scale, TEventLine& line) {
  const TSorData& sor = *scale.sor;
  const long end = HeldPoint(sor.dLenToNum(line.L[2]), scale.nPoints);
  line.peakLevel = std::max(line.peakLevel, line.P[1]);
  const float under = static_cast<float>(line.P[1] - settings.th.THEnd);
  const long behind = SearchStraightLess(scale, end, under, 1, 0.0F);
  const double floorDb = sor.QRTParams->GetMAX();
  const double levelDb = std::max(AveragePower(scale, behind, scale.winDead, 0), floorDb);
  const double distanceKm = sor.NumToALen(behind) - line.L[1];
  line.spliceLoss = line.P[1] - levelDb - line.LossKm() * distanceKm;
}

}  // namespace

void SearchInsideByPower(const AnalysisSettings& settings, const TraceScale& scale, NoiseSeen& noise,
                         LineTable& table) {
  TOxArray<TEventLine, TEventLine*>& lines = *table.lines;
  TSorData* const sor = scale.sor;
  for (int i = 0; i < lines.GetSize(); ++i) {
    TEventLine& rest = *lines.GetData(i);
    LossSquare(sor, rest);
    if (lines.GetSize() >= kMostLines) continue;
    PowerScan scan(settings, scale, noise, table.aciEnd, rest);
    if (!scan.Find()) continue;

    TEventLine head(rest);
    scan.Describe(head);
    double nextKm = sor->NumToALen(scan.NextStart(head));
    if (nextKm > rest.L[1]) nextKm = sor->NumToALen(scan.pos() + scale.winPulse);
    if (nextKm > rest.L[1]) nextKm = sor->NumToALen(scan.pos() + 1);
    // What is left has to begin further out than the line did, or the same event would be found without end.
    if (!(nextKm > rest.L[0])) continue;
    rest.L[0] = nextKm;
    lines.InsData(new TEventLine(head), i);
  }
  if (lines.GetSize() > 0) MeasureEnd(settings, scale, *lines.GetData(lines.GetSize() - 1));
}

}  // namespace reflyze
