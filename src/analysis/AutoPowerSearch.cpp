#include <algorithm>
#include <cmath>

#include "ref/events/refEvent.h"
#include "sor/sorData.h"
#include "src/analysis/TraceAnalysis.h"
#include "src/filter/AutoLimits.h"

using reflyze::TraceAnalysis;

// The alternative search inside the lines. Where the usual one follows single points away from a line, this
// one only compares mean powers in front of and behind a place, over a range of distances. It needs no fit,
// and is better with slow steps in heavy noise; it is worse at telling where they begin. Kept for comparison.

namespace {

using reflyze::HeldPoint;
using reflyze::HeldShift;

// Searches one line for an event and takes its measures.
class PowerScan {
 public:
  PowerScan(TraceAnalysis& analysis, const TEventLine& line)
      : a_(analysis), polDb_(a_.th.polar), limitDb_(a_.th.Event) {
    begin_ = HeldPoint(a_.sor->dLenToNum(line.L[0]), a_.nPoints);
    end_ = HeldPoint(a_.sor->dLenToNum(line.L[2]), a_.nPoints);
    shortestPin_ = a_.winEvent + HeldShift(a_.th.polar * 40.0, a_.nPoints);
    pin_ = Window(line.P[0]);
    slope_ = line.LossKm() * a_.lenDS;
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
    return std::max(1L, a_.SetAvgPin(levelDb, a_.th.Event, shortestPin_, a_.th.MaxPin));
  }

  void RefreshNoise() {
    constexpr long kEnoughPoints = 20;
    if (s_ <= begin_ + kEnoughPoints || a_.th.polar <= 0.0) return;
    double noiseDb = 0.0;
    double slope = 0.0;
    if (a_.GetPol(begin_, s_, noiseDb, slope) == 0) return;
    a_.noiseAmp = noiseDb;
    slope_ = slope;
  }

  // The first jump from here on. A slope taken too steep would make jumps of the flat stretch in front of
  // one; a stretch too short to measure counts as flat.
  bool FindJump() {
    float stepDb = 0.0F;
    found_ = Search(stepDb);
    const double slope = a_.LossPin(s_, found_, pin_, 0);
    if (slope < slope_) {
      slope_ = std::max(slope, 0.0);
      found_ = Search(stepDb);
    }
    jumpDb_ = stepDb;
    return Passes();
  }
  long Search(float& stepDb) const {
    return a_.SearchLoss(limitDb_, polDb_, s_, end_, pin_, a_.winEvent, a_.winDead, slope_, stepDb);
  }
  bool Passes() const { return jumpDb_ > limitDb_ || -jumpDb_ > polDb_; }

  // A loss is as wide as the dead zone, a reflection as the pulse.
  void Pinpoint() {
    const bool loss = jumpDb_ > 0.0;
    from_ = std::max(s_, found_ - (a_.winDead + pin_));
    to_ = std::min(end_, found_ + 3 * pin_ + a_.winDead);
    const long distance = loss ? a_.winDead : a_.winPulse;
    const long window = loss ? pin_ : a_.winPulse / 2 + 1;
    jumpDb_ = a_.VarPowerTest(polDb_, pos_, from_, to_, window, distance, distance, slope_);
  }

  // Levels in front of the event and behind it, carried to its place along the slope. What rises and does not
  // come back to the level in front is no reflection, and neither is what stays below the least reflectance.
  void MeasureSides() {
    const long distance = 2 * pin_ + a_.winDead;
    const double toMiddle = static_cast<double>(distance) - static_cast<double>(pin_) / 2.0;
    const long front = std::max(pos_ - distance, begin_);
    beforeDb_ = a_.AveragePower(front, pin_, 0) - slope_ * (static_cast<double>(pos_ - front) - pin_ / 2.0);
    afterDb_ = a_.AveragePower(pos_ + distance - pin_, pin_, 0) + slope_ * toMiddle;
    reflection_ = jumpDb_ < 0.0 && beforeDb_ - afterDb_ > -limitDb_;
    if (!reflection_) return;
    const double heightDb = a_.GetMax(pos_, a_.winDead) - beforeDb_;
    if (RefEventReflection(a_.sor, a_.sor->NumToOwt(pos_), heightDb) < a_.th.THRef) {
      jumpDb_ = beforeDb_ - afterDb_;
      reflection_ = false;
    }
  }

  bool IsEvent() {
    limitDb_ = std::max(a_.RequireFault(beforeDb_ - jumpDb_ - a_.nf, pin_) + polDb_, a_.th.Event);
    return Passes();
  }

  void RollBack() {
    if (jumpDb_ > limitDb_) pos_ = a_.OtkatMax(pos_, from_, slope_);
    pos_ = a_.OtkatEnd(pos_, from_, jumpDb_ > limitDb_ ? limitDb_ : polDb_);
  }

  // Too close to an end of the line, there is nothing to fit on that side.
  bool HasRoom() const {
    const long room = a_.th.MinPin + pin_;
    return pos_ - begin_ >= room && end_ - pos_ >= room + a_.winEvent;
  }

  bool MoveOn() {
    const long next = to_ - pin_;
    if (next <= s_) return false;
    s_ = next;
    pin_ = Window(afterDb_);
    return s_ <= end_ - a_.winDead - 2 * pin_;
  }

  TraceAnalysis& a_;
  long begin_, end_;    // points of the line
  long shortestPin_;    // points
  const double polDb_;  // gains up to here are noise
  double limitDb_;      // and losses up to here
  double slope_;        // dB per point

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
  head.L[1] = head.L[2] = a_.sor->NumToALen(pos_);
  a_.LossSquare(a_.sor, head, a_.winPulse);
  a_.GetMaxRef(pos_, a_.winDead, &head);
  if (reflection_) {
    head.type = 'R';
    head.spliceLoss = std::abs(lossDb) > a_.th.Event ? lossDb : 0.0;
  } else {
    head.spliceLoss = jumpDb_;
  }
}

long PowerScan::NextStart(const TEventLine& head) const {
  constexpr double kTallPeakDb = 1.5;
  const double slopeDbPerKm = head.LossKm();
  long q = pos_ + a_.winPulse;
  if (head.peakLevel >= a_.th.RefSat || head.peakLevel - head.P[1] > kTallPeakDb) {
    // Down to the level of the line, and through what the receiver dips below the fibre behind a strong peak.
    q = std::min(a_.SearchStraightLess(q, static_cast<float>(head.P[1]), 1, 0.0F), end_);
    const long window = a_.winEvent / 3 + 1;
    q = std::max(q, a_.StraightGreatherLine(q, q + a_.winDead, afterDb_, slopeDbPerKm, window));
  }
  const double recoveries = (head.P[1] - afterDb_) / 1.5;
  q += std::max(0L, HeldShift(recoveries * a_.owtRecover / a_.owtDS, a_.nPoints));
  return a_.NakatDZ(q, a_.winEvent / 2 + 1, q + 3 * a_.winDead, std::max(1.4 * slopeDbPerKm, a_.aciEnd),
                    slopeDbPerKm / 3.0);
}

// What the fibre loses at its end: from the last line to the level far enough behind it.
void MeasureEnd(TraceAnalysis& analysis, TEventLine& line) {
  const TSorData& sor = *analysis.sor;
  const long end = HeldPoint(sor.dLenToNum(line.L[2]), analysis.nPoints);
  line.peakLevel = std::max(line.peakLevel, line.P[1]);
  const float under = static_cast<float>(line.P[1] - analysis.th.THEnd);
  const long behind = analysis.SearchStraightLess(end, under, 1, 0.0F);
  const double floorDb = sor.QRTParams->GetMAX();
  const double levelDb = std::max(analysis.AveragePower(behind, analysis.winDead, 0), floorDb);
  const double distanceKm = sor.NumToALen(behind) - line.L[1];
  line.spliceLoss = line.P[1] - levelDb - line.LossKm() * distanceKm;
}

}  // namespace

void TraceAnalysis::Analysis() {
  for (int i = 0; i < lines->GetSize(); ++i) {
    TEventLine& rest = *lines->GetData(i);
    LossSquare(sor, rest, winPulse);
    if (lines->GetSize() >= reflyze::kMostLines) continue;
    PowerScan scan(*this, rest);
    if (!scan.Find()) continue;

    TEventLine head(rest);
    scan.Describe(head);
    double nextKm = sor->NumToALen(scan.NextStart(head));
    if (nextKm > rest.L[1]) nextKm = sor->NumToALen(scan.pos() + winPulse);
    if (nextKm > rest.L[1]) nextKm = sor->NumToALen(scan.pos() + 1);
    // What is left has to begin further out than the line did, or the same event would be found without end.
    if (!(nextKm > rest.L[0])) continue;
    rest.L[0] = nextKm;
    lines->InsData(new TEventLine(head), i);
  }
  if (lines->GetSize() > 0) MeasureEnd(*this, *lines->GetData(lines->GetSize() - 1));
}
