// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoShort.h"

// The main road of the analysis. The automatic filter smooths the trace and hands over its strong events; the
// stretches between them are searched for splices, first for those that stand out from the noise, then for
// those near it; the merged list becomes sections with an event behind each.
//
// Two traces are at work: the filtered one, in which splices are searched, and the raw one, in which sections
// are fitted as long as they stand above the noise.

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/Analysis.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoLines.h"
#include "src/analysis/AutoSelect.h"
#include "src/analysis/Detectors.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/Filter.h"
#include "src/filter/Optics.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr double kLongestPulseNs = 31100.0;  // longer pulses leave the filter no stretch to work on
constexpr long kMostFilterEvents = 99;       // of the filter, with the finds between them
constexpr long kMostFinds = 99;              // on one stretch
constexpr long kMostListed = 200;            // of the final list
constexpr double kSpanOwt = 2000.0;          // 200 ns one way, about 41 m of fibre: the reference distance
constexpr float kSpliceStepDb = 0.02F;       // smallest step worth reporting; tuned
constexpr float kGhostStepFactor = 5.0F;     // ghosts ripple the whole trace, so the step grows with them
constexpr double kPulseMarginOwt = 100.0;    // 10 ns one way, about 2 m
constexpr double kMuchHigherDb = 10.0;       // a peak so much higher rules what is behind the next one too
constexpr double kNoLevelDb = -65.0;         // start level of a trace that does not show it
constexpr double kLaunchFibrePulses = 1.2;   // a fibre inside the instrument so long shows the start level
constexpr double kSelectEndDb = 25.0;  // thresholds of the selection in a plain analysis: nearly all stays
constexpr double kSelectReflectanceDb = -100.0;

// Events of the filter in trace order, and the finds that join them.
using FilterEvents = safe_array<TFEvent, 100>;

class ShortAnalysisRun {
 public:
  ShortAnalysisRun(const AnalysisSettings& settings, const TraceScale& scale, NoiseSeen& noise,
                   LineTable& table)
      : settings_(settings),
        scale_(scale),
        noise_(noise),
        table_(table),
        detectors_(settings.algoMask),
        sor_(*scale.sor),
        filter_(std::make_unique<TSorFilter>(scale.sor)) {
    stepD_ = TruncToLong((kSpanOwt / scale_.owtDS) / 4 + 2);
    stepP_ =
        TruncToLong((sor_.FxdParams->GetOwtPulse(0) + kPulseMarginOwt) / sor_.FxdParams->GetOwtDS(0) + 2);
    stepD_ = std::min(stepD_, LongestWindow(scale_.nPoints));
    stepP_ = std::min(stepP_, LongestWindow(scale_.nPoints));
    slopeRef_ = scale_.lossDS;
    nfAtStart_ = scale_.nf;
  }

  long Run() {
    RunFilter();
    if (n_ < 2) return 0;
    BeginEventList();
    FindBigSplices();
    MeasureWorkingSlope();
    JudgeNoise();
    FindOnLongStretches();
    BuildEventList();
    BuildLines();
    MeasureEnd();
    Select();
    return n_;
  }

  // Those that the noise of this trace leaves in use.
  unsigned int detectors() const { return detectors_; }

 private:
  bool IsOn(DetectorBit detector) const { return (detectors_ & detector) != 0; }
  double LevelDb(long point) const { return sor_.NumToLevel(point); }
  long WidthAt(long point) const {
    return widths_[static_cast<size_t>(std::clamp(point, 0L, static_cast<long>(widths_.size()) - 1))];
  }
  AutoFilterResultData& result() { return filter_->result; }

  SpliceTask Task(long s, long z, TFEvent& front, float& lossDb, TFEvent& find) {
    return {scale_, noise_, result(), s, z, stepD_, front, lossDb, find};
  }

  // Notes a find at a point, with its loss in dB.
  void NoteFind(Stage stage, long point, double lossDb, const char* reason, double limitDb = kNoLimit) const {
    NoteAt(settings_, sor_, stage, Choice::kFound, sor_.NumToALen(point), lossDb, limitDb, "dB", reason);
  }

  // --- Events of the filter ---

  void RunFilter() {
    widths_.assign(static_cast<size_t>(std::max(scale_.nPoints, 1L)), 1);
    result().events = &filt_[0];
    result().pointMap = widths_.data();
    result().decisions = settings_.decisions;
    filter_->SetFilter(TSorFilter::kAutoFilter);
    n_ = result().count;
    Event.filterEvents += n_;
    noise_.noiseAmp = result().polar;
    table_.lLaunch = sor_.NumToALen(result().firstBegin);
    if (result().ghostCount != 0) {
      lossThrDb_ *= kGhostStepFactor;
      gainThrDb_ *= kGhostStepFactor;
    }
  }

  void BeginEventList() {
    table_.pEnd = 0.0;
    ev_[0] = filt_[0];
    nEv_ = 1;
    noise_.ForgetRipples();
  }

  // --- Splices that stand out from the noise ---

  void FindBigSplices() {
    for (long i = 1; i < n_; ++i) {
      TFEvent& before = filt_[At(i - 1)];
      long s = before.end;
      TFEvent e = EventInFront(i, s);
      long z = filt_[At(i)].begin;
      if (z - s < scale_.winPulse) continue;
      z = FootOfStrongEvent(i, z);
      const long m = BigSplicesOf(i, s, z, e);
      if (e.end > before.end) before.end = e.end;
      before.tail = e.tail;
      if (!Merge(m, i)) return;
    }
  }

  // The event whose tail rules the stretch: the one in front of it, or a much stronger one close before that.
  TFEvent EventInFront(long i, long s) {
    const TFEvent& before = filt_[At(i - 1)];
    if (i <= 1) return before;
    const TFEvent& strong = filt_[At(i - 2)];
    if (strong.Am() <= 9 || strong.Am() - before.Am() <= 3) return before;
    const bool buried =
        LevelDb(s) < scale_.nf + kPointsTellDb || LevelDb(strong.peak) - LevelDb(before.peak) > kMuchHigherDb;
    const bool close = s - strong.end < (stepD_ - 2) * 2;
    return buried && close ? strong : before;
  }

  // Noise in front of a very strong event has no level to compare: the stretch ends before it.
  long FootOfStrongEvent(long i, long z) const {
    const TFEvent& next = filt_[At(i)];
    if (!(LevelDb(next.peak) > kMayClipLevelDb || next.gradeUp >= 16)) return z;
    const long foot = next.begin - scale_.winPulse / 2 - 1;
    const auto negative = [this](long point) {
      return scale_.linf != nullptr && point >= 0 && point < scale_.nPoints && scale_.linf[point] < 0.0F;
    };
    while (z > 0 && z >= foot && (LevelDb(z) < scale_.nf || negative(z))) --z;
    return z;
  }

  long BigSplicesOf(long i, long s, long z, TFEvent& e) {
    const TFEvent before = filt_[At(i - 1)];
    const TFEvent next = filt_[At(i)];
    float thrDb = 0.0F;
    long m = 0;
    while (IsOn(kBigSplices) && m < kMostFinds) {
      const long r = SearchBigSplices(Task(s, z, e, thrDb, found_[At(m)]));
      if (r <= before.rise) break;
      if (e.end > before.end && found_[At(m)].rise > next.begin) break;
      if (m != 0 && found_[At(m - 1)].rise >= r) break;
      NoteFind(Stage::kDetectors, r, thrDb, "a step that stands out from the noise");
      s = found_[At(m)].end;
      ++m;
    }
    return m;
  }

  // Puts the finds of the stretch before event i into the list and moves i behind them. False where the list
  // is full: the pass ends and this stretch's finds are lost.
  bool Merge(long m, long& i) {
    Event.stepsBetween += m;
    if (m == 0) return true;
    if (n_ + m > kMostFilterEvents) return false;
    for (long k = n_ - 1; k >= i; --k) filt_[At(k + m)] = filt_[At(k)];
    for (long k = 0; k < m; ++k) filt_[At(i + k)] = found_[At(k)];
    n_ += m;
    i += m;
    return true;
  }

  // --- Slope and noise ---

  // The fibre's own slope from the stretches that look like fibre, if together they lose enough to tell.
  void MeasureWorkingSlope() {
    constexpr double kBothAgree = 0.2;  // nominal slopes by which whole and inner part may differ
    constexpr double kSteepest = 2.0, kFlattest = 0.8;  // nominal slopes, between which a stretch is fibre
    constexpr double kTellingDb = 1.0;                  // together they have to lose more
    double totalDb = 0.0;
    long points = 0;
    for (long j = 1; j < n_; ++j) {
      const long s = filt_[At(j - 1)].end, z = filt_[At(j)].begin;
      if (z - s <= 2 * scale_.winDead) continue;
      const auto length = static_cast<double>(z - s);
      double slope = (LevelDb(s) - LevelDb(z)) / length;
      const double inner = (LevelDb((2 * s + z) / 3) - LevelDb(z)) / length;
      const double apart = std::fabs(slope - scale_.lossDS), innerApart = std::fabs(inner - scale_.lossDS);
      if (innerApart < apart) {
        if (std::fabs(apart / scale_.lossDS - innerApart / scale_.lossDS) > kBothAgree) continue;
        slope = inner;
      }
      if (LevelDb(z) > scale_.nf && slope < kSteepest * scale_.lossDS && slope > kFlattest * scale_.lossDS) {
        totalDb += LevelDb(s) - LevelDb(z);
        points += z - s;
      }
    }
    if (points != 0 && totalDb > kTellingDb)
      slopeRef_ = static_cast<float>(totalDb / static_cast<double>(points));
  }

  // A trace whose noise ripples are too wide or too high has no fine splices to find.
  void JudgeNoise() {
    constexpr double kQuietDb = 0.02, kRatherNoisyDb = 0.15, kNoisyDb = 0.5;
    constexpr double kRatherWideRipple = 1.2, kWideRipple = 2.0;  // times what a step takes
    noise_.spliceWidth = noise_.peakCount == 0 ? static_cast<double>(scale_.winDead)
                                               : static_cast<double>(noise_.peakWidthSum) /
                                                     static_cast<double>(noise_.peakCount);
    if (noise_.peakCount > 3) {
      noise_.noiseAmp = std::max(
          noise_.noiseAmp, static_cast<double>(-noise_.peakFallSum / static_cast<float>(noise_.peakCount)));
    }
    const auto q = static_cast<double>(scale_.winDead + stepD_);
    const bool rippled = noise_.spliceWidth > q || noise_.noiseAmp > kNoisyDb ||
                         noise_.peakWidthMax >= kWideRipple * q ||
                         (noise_.peakWidthMax >= kRatherWideRipple * q && noise_.noiseAmp > kRatherNoisyDb);
    // Ripples and ghosts look like weak steps. The mask stays cut for the next trace of the same host.
    if ((noise_.noiseAmp > kQuietDb && rippled) || result().ghostCount != 0) detectors_ &= kDetectorsOnRipple;
    noiseStop_ = scale_.nPoints;
  }

  // --- Splices near the noise ---

  // Whether the stretch before event i has room for a step and what is averaged on both sides of it.
  bool IsLongStretch(long i) const {
    const long z = filt_[At(i)].begin;
    return (WidthAt(z) + stepD_) * 3 < z - filt_[At(i - 1)].end;
  }

  // The detectors that look at every long stretch, in this order. A new one is a line here: its bit, its
  // function, and whether what is left of a stretch is worth a look.
  void FindOnLongStretches() {
    const auto touchesNoise = [&](long s, long z) {
      return !(LevelDb(s) >= scale_.nf + kOverNoiseDb && LevelDb(z) >= scale_.nf + kOverNoiseDb);
    };
    // Fine splices are sought up to the last step that noise has hidden.
    Ask(kNoiseSplices, SearchNoiseSplices, touchesNoise, [&](long find) { noiseStop_ = find; });
    Ask(kWeakSplices, SearchWeakSplices, [&](long, long) { return IsOn(kBigSplices); });
  }

  // Asks a detector, if it is on, for steps on every long stretch, each behind the one before. `goesOn(s, z)`
  // says whether what is left of a stretch is worth a look; `take(point)` is told of each find.
  template <class GoesOn, class Take>
  void Ask(DetectorBit bit, Detector detector, GoesOn goesOn, Take take) {
    if (!IsOn(bit)) return;
    for (long i = 1; i < n_; ++i) {
      if (!IsLongStretch(i)) continue;
      long s = filt_[At(i - 1)].end;
      const long z = filt_[At(i)].begin;
      float thrDb = -1.0F;
      long m = 0;
      while (m < kMostFinds && goesOn(s, z)) {
        const long r = detector(Task(s, z, filt_[At(i - 1)], thrDb, found_[At(m)]));
        if (r == 0) break;
        NoteFind(Stage::kDetectors, r, thrDb,
                 bit == kNoiseSplices ? "a step on a stretch that touches the noise" : "a step of the means");
        s = found_[At(m)].end;
        ++m;
        take(r);
      }
      if (!Merge(m, i)) return;
    }
  }
  template <class GoesOn>
  void Ask(DetectorBit bit, Detector detector, GoesOn goesOn) {
    Ask(bit, detector, goesOn, [](long) {});
  }

  // --- The final list ---

  void BuildEventList() {
    for (long i = 1; i < n_ && nEv_ < kMostListed; ++i) {
      const TFEvent& before = filt_[At(i - 1)];
      const TFEvent& next = filt_[At(i)];
      long s = std::max(before.end, before.tail);
      long z = next.begin;
      table_.pEnd = LevelDb(before.begin);
      // A tail may reach over the next event; the stretch between both is searched all the same. On a
      // trace that is no fibre an event may end before its begin; the stretch still keeps its order.
      if (s >= z) s = before.rise;
      s = std::max(s, static_cast<long>(ev_[At(nEv_ - 1)].begin));
      z = std::max(z, s);
      FollowSlope(s, z);
      const long dip = FillDip(before.begin + stepP_, z);
      after_ = before.rise;
      FindFineSplices(s, z, next.type);
      if (after_ < 0) after_ = s;
      after_ = std::max(after_, static_cast<long>(ev_[At(nEv_ - 1)].end));
      ev_[At(nEv_ - 1)].end = static_cast<int>(dip != 0 ? dip : after_);
      ev_[At(nEv_ - 1)].rise = static_cast<int>(s);
      Append(z, next.type);
    }
  }

  // A long stretch above the noise tells its own slope, if that is near the one known; multimode fibre may
  // lose much less than its nominal value.
  void FollowSlope(long s, long z) {
    constexpr double kLongSpans = 10.0;
    constexpr double kLeastOfMultimode = 0.3, kLeastOfKnown = 0.9, kMostOfKnown = 1.1;  // slopes so far
    if (!(sor_.NumToOwt(z) - sor_.NumToOwt(s) > kLongSpans * kSpanOwt && LevelDb(z) > scale_.nf)) return;
    const double slope = (LevelDb(s) - LevelDb(z)) / static_cast<double>(z - s);
    const double least = sor_.GenParams->FT == kMultimodeFibre ? kLeastOfMultimode : kLeastOfKnown;
    if (slope >= least * slopeRef_ && slope <= kMostOfKnown * slopeRef_)
      slopeRef_ = static_cast<float>(slope);
  }

  // The dip that a saturated receiver leaves is filled in both traces.
  long FillDip(long from, long z) {
    const long dip = filter_->DipFilter(&sor_, from, z, slopeRef_);
    if (dip != 0) {
      filter_->SwitchDataPointsBlocks();
      filter_->DipFilter(&sor_, from, z, slopeRef_);
      filter_->SwitchDataPointsBlocks();
    }
    return dip;
  }

  void FindFineSplices(long& s, long z, char nextType) {
    constexpr double kStepRoomDb = 0.5;  // a step has to leave its fibre above the noise
    long carry = 0;
    float bestDb = 0.0F;
    while (z - s > stepP_ && nEv_ < kMostListed - n_ && nextType != 'G' && IsOn(kFineSplices) &&
           s < noiseStop_) {
      const long p = RefAutoSearchSpliceEvent(&sor_, s, z, static_cast<float>(kSpanOwt), lossThrDb_,
                                              gainThrDb_, slopeRef_, bestDb, widths_.data(), after_, carry);
      if (p == 0 || LevelDb(p) < scale_.nf + kOverNoiseDb + kStepRoomDb) return;
      ++Event.insideSplices;
      NoteFind(Stage::kFineSplices, p, bestDb, "a step between two straight lines", lossThrDb_);
      after_ = p + std::max(scale_.winEvent, WidthAt(p));
      if (after_ + stepD_ >= z || p <= s + 3) return;
      ev_[At(nEv_ - 1)].rise = static_cast<int>(s);
      ev_[At(nEv_ - 1)].end = static_cast<int>(after_);
      s = after_ + stepD_ / 2;
      Append(p, 'S');
    }
  }

  void Append(long begin, char type) {
    ev_[At(nEv_)] = TFEvent{};
    ev_[At(nEv_)].begin = static_cast<int>(begin);
    ev_[At(nEv_)].type = type;
    ++nEv_;
  }

  // --- Sections ---

  void BuildLines() {
    const bool launchFibre =
        sor_.QRTParams->IntFiber > static_cast<double>(scale_.winPulse) * scale_.owtDS * kLaunchFibrePulses;
    table_.pZero = launchFibre ? sor_.LenToLevel(0.0, 0) : kNoLevelDb;
    filter_->SwitchDataPointsBlocks();
    bool unfiltered = true;
    TEventLine* previous = nullptr;
    for (long i = 1; i < nEv_; ++i) {
      const long s = ev_[At(i - 1)].rise, z = ev_[At(i)].begin;
      const bool strong = ev_[At(i)].type != 'S';
      // From the first section on that reaches into the noise, smoothed levels are the better ones.
      if (unfiltered && LevelDb((9 * z + s) / 10) < nfAtStart_) {
        filter_->SwitchDataPointsBlocks();
        unfiltered = false;
      }
      previous = AddEventLin(table_,
                             CreateEventLin2(scale_, noise_, table_, previous, s, z, scale_.winEvent,
                                             slopeRef_, after_, ev_[At(i)].type),
                             previous);
      // The count includes the line just added, so that there is nothing to join yet.
      DeleteShortSplices(scale_, table_, table_.lines->GetSize(), static_cast<float>(kSpanOwt), lossThrDb_,
                         gainThrDb_, strong);
      if (previous->type != 'S' && strong) table_.pEnd = previous->P[1];
      lastZ_ = z;
    }
    if (unfiltered) filter_->SwitchDataPointsBlocks();
  }

  // The loss of the last event is measured against what is left behind it.
  void MeasureEnd() {
    const TFEvent& last = filt_[At(n_ - 1)];
    double endDb = scale_.nf - kNoiseMeanDb;
    if (LevelDb(last.peak) < kClipsLevelDb) {
      const long k = lastZ_ + stepP_ + stepD_ * ((last.Am() + 5) / 5);
      // The count is worked out like a place and is too large: the mean reaches to the end of the trace.
      const long count = (scale_.nPoints - k) / 20 + k;
      const double behindDb = RefMathPower(&sor_, RefEmbGetLinf(&sor_), k, count, 1);
      endDb = behindDb < scale_.nf ? std::max(behindDb, sor_.GetMinLevel()) : scale_.nf;
    }
    TEventLine* line = table_.lines->GetData(table_.lines->GetSize() - 1);
    if (line != nullptr) {
      line->spliceLoss = line->P[1] - endDb;
      NoteAt(settings_, sor_, Stage::kTail, Choice::kEnd, line->L[2], line->spliceLoss, kNoLimit, "dB",
             "the last event that the filter has left; its loss is that to the level behind it");
    }
    long peak = 0;
    table_.firstRefl = GetMax(scale_, filt_[0].begin, filt_[0].rise - filt_[0].begin, peak);
    table_.firstReflOwt = sor_.NumToOwt(peak);
  }

  // A plain analysis keeps nearly all events; whoever reads the record applies the thresholds. The analysis
  // for the monitoring takes them literally.
  void Select() {
    if (settings_.th.fromAutomat != 0) {
      SelectSplices(settings_, scale_, table_, settings_.th.THLoss);
      return;
    }
    AnalysisSettings loose = settings_;
    loose.th.THEnd = kSelectEndDb;
    loose.th.THRef = kSelectReflectanceDb;
    loose.th.Event = lossThrDb_ / 4.0;
    loose.th.THLoss = loose.th.Event;
    SelectSplices(loose, scale_, table_, loose.th.THLoss);
  }

  static unsigned int At(long index) { return static_cast<unsigned int>(index); }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  NoiseSeen& noise_;
  LineTable& table_;
  unsigned int detectors_;  // in use, DetectorBit
  TSorData& sor_;
  std::unique_ptr<TSorFilter> filter_;
  std::vector<short> widths_;            // points averaged at each point
  FilterEvents filt_, found_;            // of the filter with what joined them; finds on one stretch
  safe_array<TFEvent, kMostListed> ev_;  // the final list
  long n_ = 0, nEv_ = 0;
  long stepD_ = 0;         // points of half the reference distance, and a bit
  long stepP_ = 0;         // points of the pulse and a bit
  float slopeRef_ = 0.0F;  // dB per point
  float lossThrDb_ = kSpliceStepDb, gainThrDb_ = -kSpliceStepDb;
  double nfAtStart_ = 0.0;  // dB
  long noiseStop_ = 0;      // no fine splices behind this point
  long after_ = 0;          // end of the last splice
  long lastZ_ = 0;          // event point of the last section
};

}  // namespace

ShortResult ShortAnalysis(const AnalysisSettings& settings, const TraceScale& scale, NoiseSeen& noise,
                          LineTable& table) {
  if (scale.sor->FxdParams->GetNsPulse(0) > kLongestPulseNs || settings.th.noShortAnalysis >= 1) {
    return {0, settings.algoMask};
  }
  // The run holds some twenty kilobytes of events, more than a host's thread should have to spare.
  const auto run = std::make_unique<ShortAnalysisRun>(settings, scale, noise, table);
  const long events = run->Run();
  return {events, run->detectors()};
}

}  // namespace reflyze
