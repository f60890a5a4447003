// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/scale/sorMath.h"
#include "sor/sorData.h"
#include "src/analysis/Analysis.h"
#include "src/analysis/AutoEnd.h"
#include "src/analysis/AutoEvents.h"
#include "src/analysis/AutoLaunch.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/AutoSelect.h"
#include "src/analysis/AutoShort.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/Optics.h"
#include "src/filter/RecordFigures.h"

// The driver of one analysis. It settles the scale of the trace: where the noise lies, how fast fibre and
// receiver fall, and from that the three windows that all searches are made of. Then the lines come either
// from the filter-based search or, where that refuses, from the direct one: past the launch, to the end of
// the fibre, and inside the lines found. At last it measures what belongs to the trace as a whole: dead
// zones, dynamic range, loss.

namespace reflyze {

namespace {

// --- The scale of the trace ---

class ScaleMeasurement {
 public:
  explicit ScaleMeasurement(TraceScale& scale) : scale_(scale), sor_(*scale.sor) {}

  // False when the trace can't be analysed.
  bool Run() {
    if (sor_.DataPts->GetPointsNum() <= 0) return false;
    MeasureNoiseFloor();
    return ReadTimeBase() && SettleRates() && AllowForFilter() && (SetWindows(), true);
  }
  double levelFloorDb() const { return levelFloorDb_; }

 private:
  // The noise floor first: finding it may lift the linear trace or build it anew, so that the trace is looked
  // up only afterwards.
  void MeasureNoiseFloor() {
    scale_.nf = SettleNoiseFloor(sor_);
    levelFloorDb_ = sor_.QRTParams->GetMAX();
    if (scale_.nf < levelFloorDb_) scale_.nf = levelFloorDb_;
    if (RefEmbGetLinf(&sor_) == nullptr) sor_.SetLinf();
    scale_.linf = RefEmbGetLinf(&sor_);
  }

  bool ReadTimeBase() {
    scale_.nPoints = sor_.DataPts->GetPointsNum();
    scale_.owtDS = sor_.FxdParams->GetOwtDS(0);
    return scale_.owtDS > 0.0;
  }

  // A receiver that does not recover, or at a rate that is no number, comes from a record without a usable
  // index of refraction: no length in it means anything.
  bool SettleRates() {
    pulseOwt_ = sor_.FxdParams->GetOwtPulse(0.0);
    scale_.aciNominal = RefAutoGetLoss(&sor_);
    scale_.dbOnOwt = SettleReceiverRate(sor_);
    return scale_.dbOnOwt > 0.0 && std::isfinite(scale_.dbOnOwt);
  }

  // A filtered trace has less noise, and its filter makes the pulse wider.
  bool AllowForFilter() {
    constexpr double kFilterWidening = 1.4;
    if (!sor_.QRTParams->isFilter()) return true;
    const double pulsePoints = pulseOwt_ / scale_.owtDS;
    if (pulsePoints <= 0.0) return false;
    scale_.nf += SorMathLog5(pulsePoints) / -2.0;
    pulseOwt_ *= kFilterWidening;
    return true;
  }

  void SetWindows() {
    const auto window = [this](double owt) {
      return HeldWindow(std::ceil(owt / scale_.owtDS + 1.0), scale_.nPoints);
    };
    scale_.owtRecover = kRecoveryDb / scale_.dbOnOwt;
    scale_.winPulse = window(pulseOwt_);
    scale_.winEvent = window(scale_.owtRecover + pulseOwt_);
    scale_.winDead = window(3.0 * scale_.owtRecover + pulseOwt_);
    scale_.lenDS = static_cast<float>(sor_.dOwtToLen(scale_.owtDS));
    scale_.lossDS = static_cast<float>(scale_.aciNominal * scale_.lenDS);
  }

  TraceScale& scale_;
  TSorData& sor_;
  double levelFloorDb_ = 0.0;
  double pulseOwt_ = 0.0;
};

// --- The direct search ---

class DirectSearch {
 public:
  DirectSearch(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
               LineTable& table)
      : settings_(settings), scale_(scale), noise_(noise), table_(table), sor_(*scale.sor) {}

  // False when the launch zone reaches the end of the trace.
  bool Run() {
    FindLaunch();
    PassLaunchZone();
    if (start_ >= scale_.nPoints) return false;
    FindEnd();
    SearchInside();
    return true;
  }

 private:
  void FindLaunch() {
    TEventLine launch;
    start_ = FindBegLine(settings_, scale_, noise_, table_, 0, scale_.nPoints, scale_.dbOnOwt * scale_.owtDS,
                         launch);
    if (launch.L[0] >= 0.0) table_.lines->AddData(new TEventLine(launch));
    start_ = NakatDZ(scale_, start_, scale_.winEvent, start_ + 3 * scale_.winEvent, table_.maxDbKm,
                     kFlattestDbPerKm);
  }

  // Behind a strong launch the receiver may still be falling long after the peak: then the start moves on, a
  // few times, to where the trace falls as it does further out.
  void PassLaunchZone() {
    constexpr int kMostMoves = 3;
    constexpr double kAboveNoiseDb = 7.5;  // closer to the noise, a slope of the launch zone can't be told
    if (!IsStillFalling()) return;
    for (int move = 0; move < kMostMoves; ++move) {
      const double averageDb = AveragePower(scale_, start_, scale_.winEvent, 0);
      const long pin =
          SetAvgPin(scale_, averageDb, kWindowFaultDb, scale_.winEvent / 2 + 2, settings_.th.MaxPin);
      if (sor_.FxdParams->GetNF() + kAboveNoiseDb > averageDb) return;
      const double slopeDbPerKm = std::max(
          LossPin(scale_, start_ + scale_.winEvent, start_ + 2 * scale_.winEvent + 4, pin, 0) / scale_.lenDS,
          kLeastFibreDbPerKm);
      const long next = NakatDZ(scale_, start_, scale_.winEvent, start_ + 3 * scale_.winDead, slopeDbPerKm,
                                slopeDbPerKm / 2.0);
      if (next == start_) return;
      start_ = next;
    }
  }

  // Whether the trace stays under the line that a fibre of nominal loss would follow from here.
  bool IsStillFalling() {
    const long window = scale_.winEvent / 3 + 1;
    const double startDb =
        AveragePower(scale_, start_, window, 0) + (scale_.lenDS * window / 2) * scale_.aciNominal;
    const long above = StraightGreatherLine(scale_, start_, start_ + 4 * scale_.winEvent, startDb,
                                            scale_.aciNominal, window);
    return above > start_ + 3 * scale_.winEvent + window;
  }

  void FindEnd() {
    auto last = std::make_unique<TEventLine>();
    SearchEnd(settings_, scale_, noise_, table_, *last, start_);
    table_.lines->AddData(last.get());
    last.release();  // the list owns it now
    DropEventsBehindEnd();
  }

  // A rise that was taken for an event on the slope of a peak can stand behind what turns out to be the end:
  // an echo then, and a table that led back from it to the end would make no sense.
  void DropEventsBehindEnd() {
    const int last = table_.lines->GetSize() - 1;
    const double endKm = table_.lines->GetData(last)->L[2];
    for (int i = last - 1; i >= 0; --i) {
      const TEventLine& line = *table_.lines->GetData(i);
      if (!(line.L[2] > endKm)) continue;
      NoteAt(settings_, sor_, Stage::kWalk, Choice::kDropped, line.L[2], line.peakLevel, kNoLimit, "dB",
             "it stands behind the end of the fibre");
      table_.lines->DelData(i);
    }
  }

  void SearchInside() {
    if (sor_.dLenToNum(table_.lEnd) - sor_.dLenToNum(table_.lBeg) >= 2 * settings_.th.MinPin)
      SearchInsideLines(settings_, scale_, table_);
    SelectSplices(settings_, scale_, table_, settings_.th.THLoss);
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  const NoiseSeen& noise_;
  LineTable& table_;
  TSorData& sor_;
  long start_ = 0;  // point where the fibre proper begins
};

// --- The trace as a whole ---

class OverallFigures {
 public:
  OverallFigures(const TraceScale& scale, LineTable& table)
      : scale_(scale), table_(table), sor_(*scale.sor), first_(FirstSection()) {}

  void Measure() {
    if (first_ != nullptr) MeasureDeadZones();
    SetStartLevel();
    table_.dr = table_.pZero - scale_.nf;
    const int count = table_.lines->GetSize();
    table_.lossTotal = count > 0 ? table_.pZero - table_.lines->GetData(count - 1)->P[1] : 0.0;
  }

 private:
  // The first line that is long enough, or ends in a plain enough event, to stand for the fibre. Null without
  // lines.
  const TEventLine* FirstSection() const {
    constexpr double kShortKm = 0.1;
    const int count = table_.lines->GetSize();
    const TEventLine* line = nullptr;
    for (int i = 0; i < count; ++i) {
      line = table_.lines->GetData(i);
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
    const long middle = HeldPoint(sor_.dLenToNum((first_->L[0] + first_->L[1]) / 2.0), scale_.nPoints);
    const long start = HeldPoint(sor_.dLenToNum(first_->L[0]), scale_.nPoints);
    bool within01 = true;
    for (long p = std::min(middle, 2 * start); p >= 0; --p) {
      const double deviationDb = std::abs(sor_.NumToLevel(p) - LevelOfFirstSection(p));
      if (within01 && deviationDb >= 0.1) {
        table_.dz01 = sor_.NumToALen(p + 1);
        within01 = false;
      }
      if (deviationDb >= 0.5) {
        table_.dz05 = sor_.NumToALen(p + 1);
        break;
      }
    }
  }

  void SetStartLevel() {
    constexpr double kNoFibreKm = 0.001;  // one line that ends here: nothing is connected
    constexpr double kHighestLevelDb = 1.0;
    const bool noFibre = table_.lines->GetSize() == 1 && table_.lines->GetData(0)->L[1] < kNoFibreKm;
    table_.pZero = first_ == nullptr || noFibre ? scale_.nf : LevelOfFirstSection(0);
    if (table_.pZero < scale_.nf) table_.pZero = scale_.nf;
    if (table_.pZero > kHighestLevelDb) table_.pZero = kHighestLevelDb;
    if (table_.pEnd > table_.pZero) table_.pEnd = table_.pZero;
  }

  const TraceScale& scale_;
  LineTable& table_;
  const TSorData& sor_;
  const TEventLine* first_;  // reference for all figures, null without lines
};

// --- What the driver settles before the stages read it ---

void SettleThresholds(TTH& th) {
  th.Event = th.THLoss;
  if (th.THEnd < TTH::kLeastEndDb) th.THEnd = TTH::kLeastEndDb;
}

void EmptyTable(LineTable& table) {
  table.maxDbKm = kSteepestDbPerKm;
  table.lines->Clear();
}

// What the direct search wants besides: windows that fit the trace, the rise of the least reflection, and a
// noise to start from.
void PrepareDirectSearch(AnalysisSettings& settings, TraceScale& scale, NoiseSeen& noise,
                         double levelFloorDb) {
  constexpr int kUsualScale = 2000;
  TSorData& sor = *scale.sor;
  // The filter may have rebuilt the linear trace before it refused.
  scale.linf = RefEmbGetLinf(&sor);
  if (sor.QRTParams->MAX == 0) {
    sor.QRTParams->Scale = kUsualScale;
    sor.QRTParams->SetMAX(levelFloorDb);
  }
  TTH& th = settings.th;
  const int longest = static_cast<int>(std::min(LongestWindow(scale.nPoints), 0x7FFFFFFFL));
  th.MinPin = std::clamp(th.MinPin, 0, longest);
  th.MaxPin = std::min(th.MaxPin, longest);
  th.MaxPin = static_cast<int>(std::max<long>(th.MaxPin, scale.winPulse));
  scale.refLevelMin = RefEventReflectionPower(&sor, 0.0, th.THRef);
  noise.noiseAmp = th.polar;
}

}  // namespace

bool Calculate(AnalysisSettings& settings, TraceScale& scale, NoiseSeen& noise, LineTable& table) {
  if (scale.sor == nullptr) return false;
  SettleThresholds(settings.th);
  EmptyTable(table);
  ScaleMeasurement measured(scale);
  if (!measured.Run()) return false;

  const ShortResult byFilter = ShortAnalysis(settings, scale, noise, table);
  settings.algoMask = byFilter.detectors;
  if (byFilter.events == 0) {
    PrepareDirectSearch(settings, scale, noise, measured.levelFloorDb());
    if (!DirectSearch(settings, scale, noise, table).Run()) return false;
  }
  OverallFigures(scale, table).Measure();
  TSorBlockFixedParameters& fixed = *scale.sor->FxdParams;
  fixed.SetLT(settings.th.THLoss);
  fixed.SetRT(settings.th.THRef);
  fixed.SetET(settings.th.THEnd);
  return true;
}

}  // namespace reflyze
