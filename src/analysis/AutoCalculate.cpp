#include <algorithm>
#include <cmath>
#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/scale/sorMath.h"
#include "sor/sorData.h"
#include "src/analysis/TraceAnalysis.h"
#include "src/filter/AutoLimits.h"

using reflyze::TraceAnalysis;

// The driver of one analysis. It settles the scale of the trace: where the noise lies, how fast fibre and
// receiver fall, and from that the three windows that all searches are made of. Then the lines come either
// from the filter-based search or, where that refuses, from the direct one: past the launch, to the end of
// the fibre, and inside the lines found. At last it measures what belongs to the trace as a whole: dead
// zones, dynamic range, loss.

namespace {

using reflyze::HeldPoint;
using reflyze::HeldWindow;

constexpr double kRecoveryDb = 1.5;  // a recovery of the receiver is a fall by this much
constexpr double kSteepestDbPerKm = 20.0;
constexpr double kFlattestDbPerKm = 0.16;
constexpr double kWindowFaultDb = 0.05;  // steps that the windows of the launch zone should resolve

// --- The scale of the trace ---

class TraceScale {
 public:
  explicit TraceScale(TraceAnalysis& analysis) : a_(analysis), sor_(*analysis.sor) {}

  // False when the trace can't be analysed.
  bool Settle() {
    ResetWorkingValues();
    if (sor_.DataPts->GetPointsNum() <= 0) return false;
    SettleNoiseFloor();
    return ReadTimeBase() && SettleRates() && AllowForFilter() && (SetWindows(), true);
  }
  double levelFloorDb() const { return levelFloorDb_; }
  double pulseOwt() const { return pulseOwt_; }

 private:
  void ResetWorkingValues() {
    a_.maxDbKm = kSteepestDbPerKm;
    a_.th.Event = a_.th.THLoss;
    if (a_.th.THEnd < TTH::kLeastEndDb) a_.th.THEnd = TTH::kLeastEndDb;
    a_.lines->Clear();
  }

  // The noise floor first: finding it may lift the linear trace or build it anew, so that the trace is looked
  // up only afterwards.
  void SettleNoiseFloor() {
    a_.nf = RefAutoReSetNF(&sor_);
    levelFloorDb_ = sor_.QRTParams->GetMAX();
    if (a_.nf < levelFloorDb_) a_.nf = levelFloorDb_;
    if (RefEmbGetLinf(&sor_) == nullptr) sor_.SetLinf();
    a_.linf = RefEmbGetLinf(&sor_);
  }

  bool ReadTimeBase() {
    a_.nPoints = sor_.DataPts->GetPointsNum();
    a_.owtDS = sor_.FxdParams->GetOwtDS(0);
    return a_.owtDS > 0.0;
  }

  // A receiver that does not recover, or at a rate that is no number, comes from a record without a usable
  // index of refraction: no length in it means anything.
  bool SettleRates() {
    pulseOwt_ = sor_.FxdParams->GetOwtPulse(0.0);
    a_.aciNominal = RefAutoGetLoss(&sor_);
    a_.dbOnOwt = RefAutoGetDbOnOwt(&sor_);
    return a_.dbOnOwt > 0.0 && std::isfinite(a_.dbOnOwt);
  }

  // A filtered trace has less noise, and its filter makes the pulse wider.
  bool AllowForFilter() {
    constexpr double kFilterWidening = 1.4;
    if (!sor_.QRTParams->isFilter()) return true;
    const double pulsePoints = pulseOwt_ / a_.owtDS;
    if (pulsePoints <= 0.0) return false;
    a_.nf += SorMathLog5(pulsePoints) / -2.0;
    pulseOwt_ *= kFilterWidening;
    return true;
  }

  void SetWindows() {
    const auto window = [this](double owt) {
      return HeldWindow(std::ceil(owt / a_.owtDS + 1.0), a_.nPoints);
    };
    a_.owtRecover = kRecoveryDb / a_.dbOnOwt;
    a_.winPulse = window(pulseOwt_);
    a_.winEvent = window(a_.owtRecover + pulseOwt_);
    a_.winDead = window(3.0 * a_.owtRecover + pulseOwt_);
    a_.lenDS = static_cast<float>(sor_.dOwtToLen(a_.owtDS));
    a_.lossDS = static_cast<float>(a_.aciNominal * a_.lenDS);
  }

  TraceAnalysis& a_;
  TSorData& sor_;
  double levelFloorDb_ = 0.0;
  double pulseOwt_ = 0.0;
};

// --- The direct search ---

class DirectSearch {
 public:
  DirectSearch(TraceAnalysis& analysis, double levelFloorDb, double pulseOwt)
      : a_(analysis), sor_(*analysis.sor), levelFloorDb_(levelFloorDb), pulseOwt_(pulseOwt) {}

  // False when the launch zone reaches the end of the trace.
  bool Run() {
    SetLimits();
    FindLaunch();
    PassLaunchZone();
    if (start_ >= a_.nPoints) return false;
    FindEnd();
    SearchInside();
    return true;
  }

 private:
  void SetLimits() {
    // The filter may have rebuilt the linear trace before it refused.
    a_.linf = RefEmbGetLinf(&sor_);
    if (sor_.QRTParams->MAX == 0) {
      sor_.QRTParams->Scale = 2000;
      sor_.QRTParams->SetMAX(levelFloorDb_);
    }
    const int longest = static_cast<int>(std::min(reflyze::LongestWindow(a_.nPoints), 0x7FFFFFFFL));
    a_.th.MinPin = std::clamp(a_.th.MinPin, 0, longest);
    a_.th.MaxPin = std::min(a_.th.MaxPin, longest);
    a_.th.MaxPin = static_cast<int>(std::max<long>(a_.th.MaxPin, a_.winPulse));
    a_.refLevelMin = RefEventReflectionPower(&sor_, 0.0, a_.th.THRef);
    a_.noiseAmp = a_.th.polar;
  }

  void FindLaunch() {
    TEventLine launch;
    start_ = a_.FindBegLine(0, a_.nPoints, a_.dbOnOwt * a_.owtDS, launch);
    if (launch.L[0] >= 0.0) a_.lines->AddData(new TEventLine(launch));
    start_ = a_.NakatDZ(start_, a_.winEvent, start_ + 3 * a_.winEvent, a_.maxDbKm, kFlattestDbPerKm);
  }

  // Behind a strong launch the receiver may still be falling long after the peak: then the start moves on, a
  // few times, to where the trace falls as it does further out.
  void PassLaunchZone() {
    constexpr int kMostMoves = 3;
    constexpr double kAboveNoiseDb = 7.5;  // closer to the noise, a slope of the launch zone can't be told
    constexpr double kLeastSlopeDbPerKm = 0.2;
    if (!IsStillFalling()) return;
    for (int move = 0; move < kMostMoves; ++move) {
      const double averageDb = a_.AveragePower(start_, a_.winEvent, 0);
      const long pin = a_.SetAvgPin(averageDb, kWindowFaultDb, a_.winEvent / 2 + 2, a_.th.MaxPin);
      if (sor_.FxdParams->GetNF() + kAboveNoiseDb > averageDb) return;
      const double slopeDbPerKm =
          std::max(a_.LossPin(start_ + a_.winEvent, start_ + 2 * a_.winEvent + 4, pin, 0) / a_.lenDS,
                   kLeastSlopeDbPerKm);
      const long next =
          a_.NakatDZ(start_, a_.winEvent, start_ + 3 * a_.winDead, slopeDbPerKm, slopeDbPerKm / 2.0);
      if (next == start_) return;
      start_ = next;
    }
  }

  // Whether the trace stays under the line that a fibre of nominal loss would follow from here.
  bool IsStillFalling() {
    const long window = a_.winEvent / 3 + 1;
    const double startDb = a_.AveragePower(start_, window, 0) + (a_.lenDS * window / 2) * a_.aciNominal;
    const long above =
        a_.StraightGreatherLine(start_, start_ + 4 * a_.winEvent, startDb, a_.aciNominal, window);
    return above > start_ + 3 * a_.winEvent + window;
  }

  void FindEnd() {
    auto last = std::make_unique<TEventLine>();
    a_.SearchEnd(last.get(), start_, a_.owtRecover + pulseOwt_);
    a_.lines->AddData(last.get());
    last.release();  // the list owns it now
    DropEventsBehindEnd();
  }

  // A rise that was taken for an event on the slope of a peak can stand behind what turns out to be the end:
  // an echo then, and a table that led back from it to the end would make no sense.
  void DropEventsBehindEnd() {
    const int last = a_.lines->GetSize() - 1;
    const double endKm = a_.lines->GetData(last)->L[2];
    for (int i = last - 1; i >= 0; --i) {
      if (a_.lines->GetData(i)->L[2] > endKm) a_.lines->DelData(i);
    }
  }

  void SearchInside() {
    if (sor_.dLenToNum(a_.lEnd) - sor_.dLenToNum(a_.lBeg) >= 2 * a_.th.MinPin) a_.Analysis2();
    a_.SelectSplices(a_.th.THLoss);
  }

  TraceAnalysis& a_;
  TSorData& sor_;
  const double levelFloorDb_;
  const double pulseOwt_;
  long start_ = 0;  // point where the fibre proper begins
};

// --- The trace as a whole ---

class OverallFigures {
 public:
  explicit OverallFigures(TraceAnalysis& analysis)
      : a_(analysis), sor_(*analysis.sor), first_(FirstSection()) {}

  void Measure() {
    if (first_ != nullptr) MeasureDeadZones();
    SetStartLevel();
    a_.dr = a_.pZero - a_.nf;
    const int count = a_.lines->GetSize();
    a_.lossTotal = count > 0 ? a_.pZero - a_.lines->GetData(count - 1)->P[1] : 0.0;
  }

 private:
  // The first line that is long enough, or ends in a plain enough event, to stand for the fibre. Null without
  // lines.
  const TEventLine* FirstSection() const {
    constexpr double kShortKm = 0.1;
    const int count = a_.lines->GetSize();
    const TEventLine* line = nullptr;
    for (int i = 0; i < count; ++i) {
      line = a_.lines->GetData(i);
      const bool inaccurate = line->type == 'S' || line->type == 'V';
      if (!inaccurate || line->Length() > kShortKm) break;
    }
    return line;
  }

  double LevelOfFirstSection(long point) const {
    return first_->P[0] + (first_->L[0] - sor_.NumToALen(point)) * first_->LossKm();
  }

  // Back from inside the first section to where the trace leaves its line by 0.1 and by 0.5 dB (attenuation
  // dead zone of IEC 61746-1).
  void MeasureDeadZones() {
    const long middle = HeldPoint(sor_.dLenToNum((first_->L[0] + first_->L[1]) / 2.0), a_.nPoints);
    const long start = HeldPoint(sor_.dLenToNum(first_->L[0]), a_.nPoints);
    bool within01 = true;
    for (long p = std::min(middle, 2 * start); p >= 0; --p) {
      const double deviationDb = std::abs(sor_.NumToLevel(p) - LevelOfFirstSection(p));
      if (within01 && deviationDb >= 0.1) {
        a_.dz01 = sor_.NumToALen(p + 1);
        within01 = false;
      }
      if (deviationDb >= 0.5) {
        a_.dz05 = sor_.NumToALen(p + 1);
        break;
      }
    }
  }

  void SetStartLevel() {
    constexpr double kNoFibreKm = 0.001;  // one line that ends here: nothing is connected
    constexpr double kHighestLevelDb = 1.0;
    const bool noFibre = a_.lines->GetSize() == 1 && a_.lines->GetData(0)->L[1] < kNoFibreKm;
    a_.pZero = first_ == nullptr || noFibre ? a_.nf : LevelOfFirstSection(0);
    if (a_.pZero < a_.nf) a_.pZero = a_.nf;
    if (a_.pZero > kHighestLevelDb) a_.pZero = kHighestLevelDb;
    if (a_.pEnd > a_.pZero) a_.pEnd = a_.pZero;
  }

  TraceAnalysis& a_;
  const TSorData& sor_;
  const TEventLine* first_;  // reference for all figures, null without lines
};

}  // namespace

int TraceAnalysis::Calculate() {
  if (sor == nullptr) return 0;
  TraceScale scale(*this);
  if (!scale.Settle()) return 0;
  if (ShortAnalysis() == 0) {
    if (!DirectSearch(*this, scale.levelFloorDb(), scale.pulseOwt()).Run()) return 0;
  }
  OverallFigures(*this).Measure();
  sor->FxdParams->SetLT(th.THLoss);
  sor->FxdParams->SetRT(th.THRef);
  sor->FxdParams->SetET(th.THEnd);
  return 1;
}

void TraceAnalysis::Analysis2() {
  for (int i = 0; i < lines->GetSize(); ++i) {
    TEventLine& rest = *lines->GetData(i);
    TEventLine head(rest);
    bool found = lines->GetSize() < reflyze::kMostLines && SearchEvent(head, &rest) != '_';
    // What is left has to begin further out than it did, or the same event would be found without end.
    if (found && !(rest.L[0] > head.L[0])) {
      rest.L[0] = head.L[0];
      found = false;
    }
    if (found) {
      lines->InsData(new TEventLine(head), i);
    } else {
      LossSquare(sor, rest, 1);
    }
  }
}
