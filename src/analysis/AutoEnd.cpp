// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoEnd.h"

// The end of the fibre, found by walking there from its start.
//
// The end is a loss that exceeds the end threshold and after which nothing comes. Three things look like it:
// a strong reflection, behind which the level is low for a while; a deep loss with fibre behind it; and the
// dip that a receiver makes between two near reflections. The walk stops at every step that noise can't
// explain, measures how long the trace stays above the level of the fibre, how long the receiver would need
// for such a peak, and goes on where the fibre shows again. At last, what was found may be an echo: a strong
// reflection is seen a second time at twice its distance.

#include <algorithm>
#include <cmath>
#include <memory>

#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/AutoLaunch.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/AutoSelect.h"
#include "src/analysis/AutoSteps.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/Optics.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr double kStrongPeakDb = -3.0;       // a peak up here drives the receiver hard and makes echoes
constexpr double kAsGoodAsClippedDb = 15.0;  // above the noise: as good as clipped
constexpr double kLoudPeakDb = -5.0;         // and from here on it may make one that is nearly as high
constexpr double kAsHighDb = 0.02;           // by which such an echo may be higher
constexpr double kEchoToleranceKm = 0.003;   // by which an echo may miss its place, and some points
constexpr double kSureDb = 0.05;             // by which levels and steps have to clear what noise explains
constexpr double kSteepestFall = 10.0;  // times the slope of the fibre: it ends where nothing falls so slowly
constexpr double kClearOfEndDb = 5.0;   // beyond the end threshold: the peak hides the fibre behind it
constexpr float kDipDb = 0.5F;          // between two reflections
constexpr double kPartOfPoint = 0.99;   // a part of a point counts as one
constexpr double kFarthestEchoKm = 30.0;  // a reflection further out is too weak for an echo
// A fibre has some tens of strong events. The walk moves forward with every one of them; the limits only keep
// a broken record from making it endless.
constexpr int kMostPassed = 1000;
constexpr int kMostRefinements = 100;

class FibreEndSearch {
 public:
  FibreEndSearch(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                 LineTable& table, TEventLine& line, long start)
      : settings_(settings),
        scale_(scale),
        noise_(noise),
        table_(table),
        sor_(scale.sor),
        levels_(scale.sor),
        winPulse_(levels_.Near(scale.winPulse)),
        winEvent_(levels_.Near(scale.winEvent)),
        winDead_(levels_.Near(scale.winDead)),
        endDb_(settings.th.THEnd),
        guardDb_(scale.nf + settings.th.NFMargin),
        start_(start),
        line_(line) {}

  void Run() {
    SetScale();
    StartLine();
    if (levelDb_ > guardDb_) {
      for (int event = 0; event < kMostPassed; ++event) {
        const long before = cur_;
        if (PassEvent() == Fibre::kEnds || cur_ <= before) break;
      }
    }
    line_.P[0] = Level(start_);
    line_.L[1] = line_.L[2] = Km(end_);
    if (table_.lines->GetSize() > 0) DropEchoes();
    MeasureLastLine();
    LookBehindNoise();
  }

 private:
  enum class Fibre { kGoesOn, kEnds };

  double Level(long point) const { return levels_[point]; }
  double Km(long point) const { return sor_->NumToALen(point); }
  long Below(long from, double levelDb, long window, double guardDb) const {
    return SearchStraightLess(scale_, from, static_cast<float>(levelDb), window, static_cast<float>(guardDb));
  }
  // Length of a top that stands `heightDb` above a level, in the receiver's recovery.
  long RecoveryPoints(double heightDb) const {
    return levels_.Near(TruncToLong(heightDb / kRecoveryDb * scale_.owtRecover / stepOwt_ + 1.0));
  }
  long FindFibreBehind(long point, TEventLine& launchEvent) const {
    return FindBegLine(settings_, scale_, noise_, table_, point, scale_.nPoints, scale_.dbOnOwt * stepOwt_,
                       launchEvent);
  }

  // The line ends at `point`. Its levels are those of the points themselves until it is fitted.
  void CloseLine(long point) {
    line_.L[1] = line_.L[2] = Km(point);
    line_.P[1] = Level(point);
    Append(line_);
  }
  void Append(const TEventLine& line) {
    auto copy = std::make_unique<TEventLine>(line);
    table_.lines->AddData(copy.get());
    copy.release();  // the list owns it now
  }
  void OpenLine(long point) {
    line_.L[0] = Km(point);
    line_.P[0] = Level(point);
    cur_ = point;
  }

  void SetScale() {
    table_.pEnd = scale_.nf + endDb_;
    end_ = Below(start_, scale_.nf + endDb_, 1, 0.0);
    const long point = std::clamp(end_, 0L, std::max(levels_.points() - 2, 0L));
    stepOwt_ = sor_->NumToOwt(point + 1) - sor_->NumToOwt(point);
    stepKm_ = sor_->dOwtToLen(stepOwt_);
    const double steepestDb =
        std::min(table_.maxDbKm * stepKm_, stepOwt_ / scale_.owtRecover * kRecoveryDb / kReceiverOverFibre);
    fallToEnd_ = levels_.Near(TruncToLong(endDb_ / steepestDb));
  }

  void StartLine() {
    window_ = winEvent_;
    topDb_ = AveragePower(scale_, start_, winEvent_, 0);
    cur_ = start_;
    levelDb_ = AveragePower(scale_, cur_ + winEvent_, winEvent_, 0);
    slope_ = (topDb_ - levelDb_) / static_cast<double>(winEvent_);
    // The slope is in dB/km here and the band in dB per point, so that nearly every trace starts with the
    // nominal slope. The first section measures its own.
    const double nominal = scale_.aciNominal * stepKm_;
    constexpr double kLeastOfNominal = 0.8, kMostOfNominal = 1.5;
    if (slope_ / stepKm_ < kLeastOfNominal * nominal || slope_ / stepKm_ > kMostOfNominal * nominal)
      slope_ = nominal;
    OpenLine(start_);
  }

  // One round: to the next step that noise can't explain, and the verdict on it.
  Fibre PassEvent() {
    if (!FindStep()) return Ends(levelDb_, guardDb_, "the fibre has sunk into the noise");
    PinStepDown();
    MeasureSection();
    if (topDb_ - kSureDb < guardDb_) return Ends(topDb_, guardDb_, "the fibre has sunk into the noise");
    if (!FindDrop()) return Ends(topDb_, guardDb_, "the step itself falls into the noise");
    PassHiddenReflection();
    MeasurePeak();
    if (lastAbove_ - firstBelow_ > winPulse_ + (saturated_ + 1) * window_ * 2) return PassLongRise();
    return JudgePeak();
  }

  void Note(Stage stage, Choice choice, double km, double valueDb, double limitDb, const char* reason) const {
    NoteAt(settings_, *sor_, stage, choice, km, valueDb, limitDb, "dB", reason);
  }
  Fibre Ends(double valueDb, double limitDb, const char* reason) const {
    Note(Stage::kWalk, Choice::kEnd, Km(end_), valueDb, limitDb, reason);
    return Fibre::kEnds;
  }
  Fibre GoesOn(long point, double valueDb, double limitDb, const char* reason) const {
    Note(Stage::kWalk, Choice::kNoEnd, Km(point), valueDb, limitDb, reason);
    return Fibre::kGoesOn;
  }

  // False when the level has sunk into the noise.
  bool FindStep() {
    levelDb_ = AveragePower(scale_, cur_ - window_, window_, 0);
    if (levelDb_ < guardDb_) return false;
    window_ = SetAvgPin(scale_, levelDb_ - endDb_ / 2, endDb_ / 2, winEvent_, settings_.th.MaxPin);
    needDb_ = RequireFault(levelDb_ - scale_.nf, window_) + kSureDb;
    end_ = SearchStep(window_);
    if (end_ - start_ < 3 * window_) end_ = SearchStep(window_ / 3 + 1);
    return true;
  }

  long SearchStep(long window) {
    return SearchLoss(scale_, endDb_, needDb_, cur_, scale_.nPoints, window, winPulse_, winDead_, slope_,
                      stepDb_);
  }

  // Searches the step again, with noise and slope measured on the fibre in front of it. As long as the
  // step moves forward there is more fibre to measure on, and the search is repeated.
  void PinStepDown() {
    long first = end_ - 2 * window_;
    long last = 0;
    int round = 0;
    do {
      last = end_;
      levelDb_ = AveragePower(scale_, end_ - window_, window_, 1);
      if (levelDb_ < guardDb_) break;
      needDb_ = RequireFault(levelDb_ - guardDb_ - static_cast<double>(winPulse_) * slope_, 4);
      first = std::max(first, cur_);
      double noiseDb = 0.0;
      GetPol(scale_, first, end_, noiseDb, slope_);
      if (first > cur_ + window_) {
        double longerNoiseDb = 0.0, longerSlope = 0.0;
        GetPol(scale_, first - window_, end_, longerNoiseDb, longerSlope);
        if (longerSlope < slope_ || longerNoiseDb < noiseDb) {
          noiseDb = longerNoiseDb;
          slope_ = longerSlope;
        }
      }
      needDb_ += noiseDb;
      end_ = SearchEventPin(first, endDb_);
      if (stepDb_ > 0.0F) end_ = SearchEventPin(first, needDb_);
    } while (end_ > last && ++round < kMostRefinements);
  }

  long SearchEventPin(long from, double lossDb) {
    return RefAutoSearchEventPin(sor_, from, scale_.nPoints, window_, static_cast<float>(needDb_),
                                 static_cast<float>(lossDb), static_cast<float>(guardDb_),
                                 static_cast<float>(slope_), stepDb_);
  }

  // Level and slope of the section that ends at the step.
  void MeasureSection() {
    cur_ = OtkatEnd(scale_, end_, cur_, needDb_);
    const double stepKm = Km(end_);
    const double leastSlope = kLeastFibreDbPerKm * stepKm_;
    slope_ = std::max(slope_, leastSlope);
    const double lastTopDb = topDb_;
    topDb_ = AveragePower(scale_, cur_ - window_, window_, 1) - static_cast<double>(window_ / 2) * slope_;
    table_.pEnd = topDb_;
    const double sectionKm = stepKm - static_cast<double>(start_ + winEvent_ / 2) * stepKm_;
    const double measured = (lastTopDb - topDb_) / sectionKm * stepKm_;
    if (measured < slope_) slope_ = measured;
    slope_ = std::max(slope_, leastSlope);
    fallToEnd_ = levels_.Near(TruncToLong(endDb_ / (slope_ * kSteepestFall)));
  }

  // The point where the trace lies below the fibre by the end threshold. False when that is the step itself.
  bool FindDrop() {
    endWindow_ = SetAvgPin(scale_, topDb_ - endDb_, endDb_ / 2, window_, settings_.th.MaxPin);
    end_ = Below(end_, topDb_ - endDb_, endWindow_, guardDb_);
    end_ = Below(end_, topDb_ - endDb_, 1, guardDb_);
    return end_ != cur_;
  }

  // Between the step and the drop the trace may rise once more, by a reflection that the step hid.
  void PassHiddenReflection() {
    const long above = SearchBackGreather(scale_, end_, topDb_);
    const long below = Below(cur_ + winPulse_ / 2, topDb_, 1, 0.0);
    if (above - below <= winEvent_ || above - below >= winPulse_ + 2 * window_) return;
    const long foot = SearchBackLess(scale_, above - winPulse_ / 2, topDb_, below);
    if (foot > below) cur_ = OtkatEnd(scale_, foot, below, needDb_);
  }

  void MeasurePeak() {
    levelDb_ =
        std::min(AveragePower(scale_, end_, endWindow_, 0), AveragePower(scale_, end_ - window_, window_, 1));
    lastAbove_ = SearchBackGreather(scale_, end_, topDb_);
    firstBelow_ = Below(cur_ + winPulse_, topDb_, 1, 0.0);
    GetMaxRef(scale_, cur_, firstBelow_ - cur_ + endWindow_ / 2, line_);
    saturated_ = line_.peakLevel >= kStrongPeakDb ? 1 : 0;
  }

  // The trace returns above the level of the fibre long behind this peak, so the drop is not its own. A
  // strong gain is a reflection and closes the line; the next one starts where the fibre shows behind it.
  Fibre PassLongRise() {
    if (-stepDb_ <= 3 * needDb_) {
      cur_ = firstBelow_;
      return GoesOn(cur_, -stepDb_, 3 * needDb_, "behind a weak rise the trace stays high");
    }
    CloseLine(cur_);
    TEventLine launchEvent;
    end_ = FindFibreBehind(cur_, launchEvent);
    if (launchEvent.L[0] >= 0.0) Append(launchEvent);
    OpenLine(end_);
    return GoesOn(cur_, -stepDb_, 3 * needDb_, "a reflection, and the fibre shows behind it");
  }

  // One peak and a drop. Is the drop later than pulse and receiver explain, or shallower than an end?
  Fibre JudgePeak() {
    const double baseDb = std::max(levelDb_, guardDb_);
    const double heightDb = line_.peakLevel - baseDb;
    if (heightDb > kAsGoodAsClippedDb && heightDb > endDb_ + kClearOfEndDb) saturated_ = 1;
    const long overTop = RecoveryPoints(line_.peakLevel - topDb_);
    const long run = (saturated_ == 0 ? 3 * RecoveryPoints(heightDb) : winPulse_ + fallToEnd_) + overTop;
    if (saturated_ == 0) SplitAtDip();

    const bool small = line_.peakLevel - topDb_ <= 2 * needDb_ && run < winPulse_;
    const long tolerance = small ? winPulse_ / 10 : winPulse_ / 2;
    if (end_ - cur_ > winPulse_ + run + tolerance + overTop) {
      TEventLine ignored;
      end_ = FindFibreBehind(cur_, ignored);
      if (-stepDb_ > 3 * needDb_) {
        line_.P[0] = Level(start_);
        CloseLine(cur_);
        OpenLine(end_);
      }
      cur_ = end_;
      return GoesOn(cur_, line_.peakLevel - topDb_, kNoLimit,
                    "the drop comes later than pulse and receiver explain: there is fibre in between");
    }

    levelDb_ = std::min(AveragePower(scale_, end_, endWindow_, 1),
                        AveragePower(scale_, end_ + endWindow_, endWindow_, 1));
    if (topDb_ - levelDb_ < endDb_ && levelDb_ >= guardDb_ && saturated_ == 0) {
      cur_ = end_;
      return GoesOn(cur_, topDb_ - levelDb_, endDb_, "the loss is less than that of an end");
    }
    if (stepDb_ < 0.0F) {
      PlaceReflectiveEnd();
    } else {
      PlaceLossEnd();
    }
    return Ends(topDb_ - levelDb_, endDb_,
                stepDb_ < 0.0F ? "a reflection, and nothing behind it" : "a loss, and nothing behind it");
  }

  // Two near reflections leave a dip between them, which is an event of its own.
  void SplitAtDip() {
    const long dip = GetLocalMinMax(scale_, cur_, lastAbove_, winEvent_, window_ / 2, kDipDb);
    if (dip == 0) return;
    CloseLine(cur_);
    TEventLine between;
    between.L[0] = Km(dip - 1);
    between.L[1] = between.L[2] = Km(dip);
    between.P[0] = Level(dip - 1);
    between.P[1] = Level(dip);
    long peak = dip;
    between.peakLevel = GetMax(scale_, dip, winEvent_, peak);
    between.peakLen = Km(peak);
    Append(between);
    OpenLine(end_);
  }

  // A fall without a peak ends the fibre where it begins.
  void PlaceLossEnd() {
    if (stepDb_ > 0.0F) {
      end_ = cur_;
      return;
    }
    end_ = OtkatMax(scale_, lastAbove_, cur_ - winPulse_, slope_);
    if (saturated_ != 0 || topDb_ <= scale_.nf) return;
    const long floor =
        RefAutoSearchStraightLess(sor_, lastAbove_, static_cast<float>(sor_->QRTParams->GetMAX()));
    long steepest = lastAbove_;
    RefAutoSearchMaxFall(sor_, lastAbove_, floor, 1, steepest);
    const double pulse = sor_->FxdParams->GetOwtPulse(0) / sor_->FxdParams->GetOwtDS(0);
    end_ = std::min(end_, steepest - levels_.Near(TruncToLong(std::ceil(pulse + kPartOfPoint))));
  }

  // A reflection ends the fibre at its foot.
  void PlaceReflectiveEnd() {
    const double middleDb = (topDb_ + line_.peakLevel) / 2;
    end_ = line_.peakLevel - topDb_ > needDb_ ? SearchStraightGreather(scale_, cur_, middleDb) : cur_;
    if (middleDb - topDb_ > needDb_ / 2) {
      const long foot = SearchBackLess(scale_, end_, needDb_ / 2 + topDb_, end_ - winPulse_);
      if (foot > end_ - winPulse_) {
        end_ = foot;
      } else {
        while (end_ > 0 && levels_[end_ - 1] < levels_[end_]) --end_;
      }
    } else {
      end_ = OtkatEnd(scale_, end_, cur_ - 2, needDb_);
    }
    if (Level(end_ + 1) <= topDb_ - static_cast<double>(cur_ - end_ - 1) * slope_) ++end_;
  }

  // Light that runs to a strong reflection and back goes there once more: its echo stands at twice the
  // distance. What is found there is no end; the fibre ends at the reflection.
  void DropEchoes() {
    const double toleranceKm =
        (2 * (table_.firstRefl > kStrongPeakDb ? 1 : 0) + 3) * stepKm_ + kEchoToleranceKm;
    const auto atTwice = [&](const TEventLine& one, const TEventLine& echo) {
      return std::fabs(2 * one.L[1] - echo.L[1]) < toleranceKm;
    };
    const double foundKm = line_.L[2];
    const TEventLine first = *table_.lines->GetData(0);
    const bool near = first.L[1] < kFarthestEchoKm;
    if (near && table_.lines->GetSize() == 1) {
      if (first.peakLevel > kStrongPeakDb && atTwice(first, line_)) {
        line_.Assign(&first);
        table_.lines->Clear();
      }
    } else if (near && table_.lines->GetSize() == 2) {
      const TEventLine second = *table_.lines->GetData(1);
      if ((first.peakLevel > kStrongPeakDb && atTwice(first, line_)) ||
          (second.peakLevel > kStrongPeakDb && atTwice(second, line_))) {
        line_.Assign(&second);
        table_.lines->DelData(1);
      }
      if (atTwice(first, second) && levelDb_ < guardDb_ && first.peakLevel > kLoudPeakDb &&
          first.peakLevel > second.peakLevel - kAsHighDb) {
        line_.Assign(&first);
        table_.lines->Clear();
      }
    }
    const double endKm = line_.L[2];
    if (endKm != foundKm) {
      Note(Stage::kEndEchoes, Choice::kNoEnd, foundKm, first.peakLevel, kStrongPeakDb,
           "the echo of a strong reflection at half the distance, which is the end");
    }
    end_ = TruncToLong(sor_->dLenToNum(endKm));
  }

  void MeasureLastLine() {
    LossSquare(sor_, line_);
    table_.aciEnd = line_.LossKm();
    line_.spliceLoss = line_.P[1] - AveragePower(scale_, scale_.nPoints - window_, window_, 1);
    SetMaxDbKm(table_, table_.aciEnd);
    table_.lBeg = Km(start_);
    table_.lEnd = Km(end_);
    GetMaxRef(scale_, end_, winDead_, line_);
    table_.endRefl = line_.peakLevel;
  }

  // A fibre may sink into the noise and its end still show a reflection above it.
  void LookBehindNoise() {
    levelDb_ = AveragePower(scale_, end_ - window_, window_, 1);
    if (levelDb_ - scale_.nf > settings_.th.NFMargin) return;
    long back = SearchStraightGreather(scale_, end_, scale_.nf + kOverNoiseDb);
    if (back >= scale_.nPoints) return;
    back = SearchBackLess(scale_, back, scale_.nf, 0);
    table_.lEnd = Km(back);
    table_.endRefl = GetMax(scale_, back, winEvent_);
    table_.pEnd = levelDb_;
    const bool isNear = back - end_ < window_;
    Note(Stage::kEndEchoes, isNear ? Choice::kEnd : Choice::kNoEnd, table_.lEnd, table_.endRefl,
         scale_.nf + kOverNoiseDb,
         isNear ? "a reflection out of the noise, right behind the end"
                : "a reflection out of the noise, far behind the last fibre seen");
    if (isNear) {
      line_.L[1] = line_.L[2] = table_.lEnd;
      line_.peakLevel = table_.endRefl;
    }
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  const NoiseSeen& noise_;
  LineTable& table_;
  TSorData* const sor_;
  const TraceLevels levels_;
  const long winPulse_;   // points of the pulse
  const long winEvent_;   // points of the pulse and one recovery of the receiver
  const long winDead_;    // points of the pulse and three recoveries
  const double endDb_;    // loss that ends the fibre
  const double guardDb_;  // below this level there is only noise
  const long start_;      // first point of the fibre
  TEventLine& line_;      // the section walked along

  double stepOwt_ = 0.0;  // one point, as time and as length
  double stepKm_ = 0.0;
  long fallToEnd_ = 0;    // points in which the steepest credible fibre loses the end threshold
  long cur_ = 0;          // how far the walk has come: the front of the step
  long end_ = 0;          // the step, the drop behind it, and at last the end
  long window_ = 0;       // averaging window in points, in front of the step
  long endWindow_ = 0;    // and at the level behind it
  double topDb_ = 0.0;    // level of the fibre in front of the step
  double levelDb_ = 0.0;  // level looked at last
  double slope_ = 0.0;    // dB per point
  double needDb_ = 0.2;   // least step that noise can't explain
  float stepDb_ = 0.0F;   // the step, positive for a loss
  long lastAbove_ = 0;    // last point above the fibre before the drop
  long firstBelow_ = 0;   // first point below it behind the peak
  int saturated_ = 0;     // 1 when the peak is too high to measure
};

}  // namespace

void SearchEnd(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
               LineTable& table, TEventLine& line, long start) {
  FibreEndSearch(settings, scale, noise, table, line, start).Run();
}

}  // namespace reflyze
