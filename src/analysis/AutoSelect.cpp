// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoSelect.h"

// Which events stay. The searches find more than an engineer wants to read: weak steps, ripples, splices that
// are two samples of the same one. An event stays when its loss or its reflectance passes the thresholds and
// the sections around it have slopes that a fibre can have; otherwise the sections become one. The losses of
// all events are measured anew after every deletion, since each rests on the sections around it.

#include <algorithm>
#include <cmath>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "sor/sorData.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/Optics.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {

namespace {

// Why an event is dropped.
enum class Reason {
  kNone = 0,
  kWeakLoss = 1,
  kSteepBehind = 2,
  kSteepBeforeReflection = 3,
  kWeakMergedPeak = 4,
  kRippleOfFlatSection = 5,
  kSectionTooShort = 6,
  kSteepBefore = 20,
  kSteeperThanStep = 21,
  kWeakReflection = 30,
};

bool IsReflection(const TEventLine& line) { return line.type == 'R' || line.type == 'V'; }
// The event could not be told apart from its neighbour.
bool IsMerged(const TEventLine& line) { return line.type == 'S' || line.type == 'V'; }

class EventSelection {
 public:
  static constexpr double kUnderNoiseDb = 5.0;     // no level counts as lower
  static constexpr double kLowDb = 0.4;            // steps and peaks below are measured over a pulse
  static constexpr double kJustAbove = 1.001;      // so that the section itself still counts as fibre
  static constexpr double kFlatDbPerKm = 0.1;      // no fibre loses so little
  static constexpr double kNearThresholdDb = 3.0;  // of the reflectance threshold

  EventSelection(const AnalysisSettings& settings, const TraceScale& scale, LineTable& table,
                 double leastLossDb)
      : settings_(settings),
        scale_(scale),
        table_(table),
        sor_(scale.sor),
        lines_(*table.lines),
        leastLossDb_(leastLossDb),
        fits_(*scale.sor) {}

  void Run() {
    SetLinesSplice(scale_, table_);
    const double stopDropDb = StopDropDb();
    int i = 0;
    while (i < lines_.GetSize() - 1) {
      const TEventLine& before = *lines_.GetData(i);
      const TEventLine& behind = *lines_.GetData(i + 1);
      if (EndsFibre(before, behind, stopDropDb)) {
        CutBehind(i);
        return;
      }
      const Reason why = WhyDrop(before, behind);
      if (why == Reason::kNone) {
        // A section long enough to be measured tells how steep this fibre is.
        if (scale_.aciNominal * before.Length() > leastLossDb_) SetMaxDbKm(table_, before.LossKm());
        ++i;
      } else {
        if (settings_.decisions != nullptr) NoteDropped(why, before, behind);
        Drop(i);
        i = 0;
      }
    }
  }

 private:
  // Fall below the level in front that a real end shows. A splitter loses nearly as much as an end does, so
  // the fall has to exceed what it takes.
  double StopDropDb() const {
    constexpr double kUnknownSplittersDb = 18.0;  // what splitters of unknown ratios take, with the margin
    constexpr double kEndMarginDb = 3.0;          // by which an end falls further than the splitters
    const TSorBlockQRTParameters& params = *sor_->QRTParams;
    if (params.PonType == kUnknownSplitters) return kUnknownSplittersDb;
    if (params.PonType == 0) return 0.0;
    const double outputs = static_cast<double>(params.FirstSplitterRatio) * params.SecondSplitterRatio;
    return 10 * elementary::Log10(outputs) + kEndMarginDb;
  }

  double FarDb(const TEventLine& behind) const { return std::max(behind.P[0], scale_.nf - kUnderNoiseDb); }

  bool EndsFibre(const TEventLine& before, const TEventLine& behind, double stopDropDb) const {
    return before.L[2] - before.L[0] >= settings_.th.MinLine && before.spliceLoss > settings_.th.THEnd &&
           !IsMerged(before) && before.P[1] - FarDb(behind) > stopDropDb;
  }

  void CutBehind(int i) {
    const TEventLine& last = *lines_.GetData(i);
    NoteAt(settings_, *sor_, Stage::kSelection, Choice::kEnd, last.L[2], last.spliceLoss, settings_.th.THEnd,
           "dB", "a loss that ends the fibre: what lies behind is cut off");
    lines_.SetSize(i + 1);
    table_.lEnd = last.L[2];
    table_.endRefl = last.peakLevel;
    table_.pEnd = last.P[1];
  }

  long NearestPoint(double km) const { return sor_->OwtToNearestNum(sor_->dLenToOwt(km)); }

  double Reflectance(const TEventLine& before, const TEventLine& behind) const {
    const double baseDb = IsMerged(before) ? behind.P[0] : before.P[1];
    const double heightDb = before.peakLevel - baseDb;
    const double r = RefEventReflection(sor_, sor_->dLenToOwt(before.peakLen), heightDb);
    if (settings_.th.THRef > r || std::fabs(before.spliceLoss) >= kLowDb || heightDb >= kLowDb) return r;
    // So low a peak beside a loss step is measured from its mean height.
    return RefEventReflection(sor_, NearestPoint(before.L[2]), before.P[1], NearestPoint(behind.L[0]),
                              FarDb(behind), before.spliceLoss);
  }

  Reason WhyDrop(const TEventLine& before, const TEventLine& behind) {
    const double r = Reflectance(before, behind);
    const double slopeBefore = before.LossKm();
    const double slopeBehind = behind.LossKm();
    if (table_.maxDbKm < slopeBefore && slopeBefore < slopeBehind) table_.maxDbKm = kJustAbove * slopeBefore;

    Reason why = Reason::kNone;
    if (IsMerged(before)) {
      const double overEventDb = before.peakLevel - sor_->OwtToLevel(sor_->dLenToOwt(before.L[2]), 0);
      if (settings_.th.THRef > r && overEventDb < 1.0) why = Reason::kWeakMergedPeak;
    } else if (IsReflection(before)) {
      why = WhyDropReflection(before, r);
    } else {
      why = WhyDropLoss(before, behind);
    }
    if (slopeBefore < kFlatDbPerKm && r < settings_.th.THRef + kNearThresholdDb &&
        scale_.refLevelMin > leastLossDb_ &&
        (slopeBehind - slopeBefore) * before.Length() + leastLossDb_ > before.spliceLoss) {
      why = Reason::kRippleOfFlatSection;
    }
    if (before.L[2] - before.L[0] < settings_.th.MinLine) why = Reason::kSectionTooShort;
    return why;
  }

  Reason WhyDropReflection(const TEventLine& before, double r) const {
    if (settings_.th.THRef <= r) return Reason::kNone;
    if (std::fabs(before.spliceLoss) < leastLossDb_) return Reason::kWeakReflection;
    return IsNormACI(scale_, before.LossKm(), 0) ? Reason::kNone : Reason::kSteepBeforeReflection;
  }

  Reason WhyDropLoss(const TEventLine& before, const TEventLine& behind) const {
    const double lossDb = before.spliceLoss;
    if (std::fabs(lossDb) < leastLossDb_) return Reason::kWeakLoss;
    const double gapDb = (behind.L[0] - before.L[1]) * before.LossKm();
    if (!IsNormACI(scale_, before.LossKm(), 0) && lossDb < gapDb) return Reason::kSteepBefore;
    if (!IsNormACI(scale_, behind.LossKm(), 0) && behind.type != 'V') {
      // A steep section behind that falls further than the step itself is a part of the step.
      const double fallDb = std::fabs(behind.P[0] - behind.P[1]);
      if (before.P[1] - behind.P[1] < fallDb) return Reason::kSteeperThanStep;
      if (std::fabs(lossDb) < fallDb) return Reason::kSteepBehind;
    }
    return Reason::kNone;
  }

  void NoteDropped(Reason why, const TEventLine& before, const TEventLine& behind) const {
    const auto note = [&](double value, double limit, const char* unit, const char* reason) {
      NoteAt(settings_, *sor_, Stage::kSelection, Choice::kDropped, before.L[2], value, limit, unit, reason);
    };
    const double reflectanceDb = Reflectance(before, behind), leastDb = settings_.th.THRef;
    switch (why) {
      case Reason::kNone:
        return;
      case Reason::kWeakLoss:
        return note(before.spliceLoss, leastLossDb_, "dB", "its loss does not pass the threshold");
      case Reason::kWeakReflection:
        return note(reflectanceDb, leastDb, "dB", "neither reflectance nor loss passes the threshold");
      case Reason::kSteepBeforeReflection:
        return note(reflectanceDb, leastDb, "dB",
                    "its reflectance does not pass, and no fibre is as steep as the section in front");
      case Reason::kWeakMergedPeak:
        return note(reflectanceDb, leastDb, "dB", "a weak peak without fibre of its own in front");
      case Reason::kRippleOfFlatSection:
        return note(before.LossKm(), kFlatDbPerKm, "dB/km", "a ripple at the end of a flat section");
      case Reason::kSectionTooShort:
        return note(before.L[2] - before.L[0], settings_.th.MinLine, "km",
                    "the section in front is too short");
      case Reason::kSteepBefore:
        return note(before.LossKm(), kNoLimit, "dB/km", "the section in front is too steep for a fibre");
      case Reason::kSteeperThanStep:
      case Reason::kSteepBehind:
        return note(behind.LossKm(), kNoLimit, "dB/km",
                    "the section behind is too steep for a fibre: it is part of the step");
    }
  }

  // Takes the event behind line i away. The next line takes over what the event says about it.
  void Drop(int i) {
    const TEventLine& before = *lines_.GetData(i);
    TEventLine& behind = *lines_.GetData(i + 1);
    if (IsMerged(behind)) {
      if (!IsMerged(before)) behind.type = before.type;
    } else if (table_.maxDbKm > before.LossKm() && !IsReflection(before)) {
      behind.L[0] = before.L[0];
      LossSquare(fits_, behind);
    }
    lines_.DelData(i);
    SetLinesSplice(scale_, table_);
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  LineTable& table_;
  TSorData* const sor_;
  TOxArray<TEventLine, TEventLine*>& lines_;
  const double leastLossDb_;
  SectionFits fits_;  // a section that takes in one event after the other grows
};

// Joins splices that lie too close together, among the last lines of a list. The closer they are, and the
// smaller the step between them, the more they look like one.
class SpliceMerge {
 public:
  SpliceMerge(const TraceScale& scale, LineTable& table, float spanOwt, float lossThr, float gainThr)
      : scale_(scale), lines_(*table.lines), nearKm_(spanOwt * 2e-05), lossThr_(lossThr), gainThr_(gainThr) {}

  int Run(int count, bool strong) {
    const int added = lines_.GetSize() - count;
    if (added == 1) return DropGain(strong);
    if (added == 2) return JoinTwo();
    return added < 3 ? 0 : JoinThree();
  }

 private:
  // The line `back` places before the last one.
  TEventLine& Last(int back) const { return *lines_.GetData(lines_.GetSize() - 1 - back); }
  void Delete(int back) { lines_.DelData(lines_.GetSize() - 1 - back); }

  // A step in units of what is worth reporting.
  double InSteps(double stepDb) const { return stepDb / (stepDb > 0.0 ? lossThr_ : gainThr_); }

  void Extend(TEventLine& line, const TEventLine& to) {
    line.L[0] = to.L[0];
    LossSquare(scale_.sor, line);
  }

  int DropGain(bool strong) {
    const TEventLine& c = Last(0);
    if (c.Length() >= 2 * nearKm_ || c.Loss() >= 0.0 || c.type == 'S' || c.type == 'R' || strong) return 0;
    Delete(0);
    return 1;
  }

  int JoinTwo() {
    const TEventLine& a = Last(1);
    TEventLine& b = Last(0);
    const double apartKm = b.L[2] - a.L[2];
    const double stepDb = a.P[1] - (b.P[0] + b.P[1]) / 2 - a.LossKm() * ((b.L[2] + b.L[0]) / 2 - a.L[2]);
    if (!(apartKm * InSteps(stepDb) < 3 * nearKm_)) return 0;
    Extend(b, a);
    Delete(1);
    return 1;
  }

  int JoinThree() {
    const TEventLine& a = Last(2);
    const TEventLine& b = Last(1);
    TEventLine& c = Last(0);
    const double toSecondKm = b.L[2] - a.L[2];
    const double toThirdKm = c.L[2] - a.L[2];
    double slope = (a.Length() * a.LossKm() + c.Length() * c.LossKm()) / (a.Length() + c.Length());
    const double steps = InSteps(a.P[1] - c.P[0] - (c.L[0] - a.L[1]) * slope);
    if (toSecondKm * steps < 3 * nearKm_ || toThirdKm * steps < 5 * nearKm_) {
      Extend(c, a);
      Delete(2);
      Delete(1);
      return 2;
    }
    if (toThirdKm < 10 * nearKm_) {
      const double joined = (b.P[0] - c.P[1]) / (c.L[1] - b.L[0]);
      if (a.Length() < 50 * nearKm_) {
        slope = (slope * a.Length() + scale_.aciNominal * 25 * nearKm_) / (a.Length() + 25 * nearKm_);
      }
      if (std::fabs(joined - slope) < std::fabs(b.LossKm() - slope)) {
        Extend(c, b);
        Delete(1);
        return 1;
      }
    }
    return 0;
  }

  const TraceScale& scale_;
  TOxArray<TEventLine, TEventLine*>& lines_;
  const double nearKm_;   // nearer than a few of these, two splices are one
  const double lossThr_;  // dB, least steps
  const double gainThr_;
};

// Behind two splitters in a row so little light is left that weak events are guesswork.
class WeakZone {
 public:
  explicit WeakZone(TSorData* sor) : sor_(sor), events_(*sor->KeyEvents) {}

  void Clean() {
    int i = First();
    while (i < events_.ListedEvents() - 1) {
      if (IsSuspicious(events_.EventAt(i))) {
        RefEventDel(sor_, i, 1);
      } else {
        ++i;
      }
    }
  }

 private:
  static constexpr double kLeastSplitterLossDb = 6.0;  // a larger loss is that of a splitter
  static constexpr double kDepthDb = 17.0;             // below the start of the fibre
  static constexpr double kSteepDbPerKm = 2.0;
  static constexpr double kSureLossDb = 2.0;  // a larger loss is no guess

  // Levels grow with distance here.
  double LossTo(int owt) const { return -sor_->OwtToLevel(owt, 1); }

  // Index of the event where the weak zone starts, the number of events if there is none.
  int First() const {
    const TSorBlockQRTParameters& params = *sor_->QRTParams;
    double startDb = params.begLevel / 100.0;  // stored in 0.01 dB
    if (params.IntFiber > 0 && kInnerFibrePulses * sor_->FxdParams->GetOwtPulse(0) < params.IntFiber) {
      startDb = LossTo(events_.EventAt(0).EPT);
    }
    int splitters = 0;
    for (int i = 0; i < events_.ListedEvents() - 1; ++i) {
      const TSorBlockKeyEvents1E& event = events_.EventAt(i);
      if (event.GetEL() > kLeastSplitterLossDb) {
        ++splitters;
      } else if (splitters >= 2 && LossTo(event.EPT) > startDb + kDepthDb) {
        return i;
      }
    }
    return events_.ListedEvents();
  }

  // A loss between sections that no fibre has.
  bool IsSuspicious(const TSorBlockKeyEvents1E& event) const {
    if (event.EC.Len() == 0 || event.EC.c_str()[0] != '0' || event.GetEL() >= kSureLossDb) return false;
    const bool noSections = event.ML0 == event.ML1 && event.ML2 == event.ML3;
    return noSections || SlopeOf(event.ML0, event.ML1) > kSteepDbPerKm ||
           SlopeOf(event.ML2, event.ML3) > kSteepDbPerKm;
  }

  double SlopeOf(int from, int to) const {
    double slope = 0.0, intercept = 0.0, deviation = 0.0;
    RefMathLSL_AndDeviation(sor_, from, to, slope, intercept, deviation);
    return -slope * sor_->dLenToOwt(1.0);
  }

  TSorData* const sor_;
  TSorBlockKeyEvents& events_;
};

}  // namespace

void SelectSplices(const AnalysisSettings& settings, const TraceScale& scale, LineTable& table, double loss) {
  EventSelection(settings, scale, table, loss).Run();
}

void SetLinesSplice(const TraceScale& scale, LineTable& table) {
  TOxArray<TEventLine, TEventLine*>& lines = *table.lines;
  const double aciNominal = scale.aciNominal;
  for (int i = 0; i + 1 < lines.GetSize(); ++i) {
    TEventLine& p = *lines.GetData(i);
    TEventLine& q = *lines.GetData(i + 1);
    const double gapKm = q.L[0] - p.L[2];
    const double lengthKm = q.Length();
    if (lengthKm < gapKm && std::fabs(p.LossKm() - aciNominal) < std::fabs(q.LossKm() - aciNominal)) {
      // The section behind is shorter than the gap in front of it: its start is better known from its end and
      // the slope of the longer section.
      const double slope = p.LossKm() <= 0.0 ? aciNominal : p.LossKm();
      q.P[0] = ((q.P[1] + slope * lengthKm) * p.Length() + q.P[0] * lengthKm) / (p.Length() + lengthKm);
    }
    p.spliceLoss = p.P[1] - (q.P[0] + q.LossKm() * (q.L[0] - p.L[1]));
  }
}

void SetMaxDbKm(LineTable& table, double aci) {
  constexpr double kSteeperSections = 10.0, kLeastDbPerKm = 1.0;
  table.maxDbKm = std::min(table.maxDbKm, kSteeperSections * aci);
  table.maxDbKm = std::max(table.maxDbKm, kLeastDbPerKm);
}

bool IsNormACI(const TraceScale& scale, double aci, double base) {
  constexpr double kKnownDbPerKm = 0.01;
  constexpr double kSingleModeDbPerKm = 2.0, kMultimodeDbPerKm = 5.0;
  constexpr int kSingleModeNm = 1000;     // multimode fibre is used below, and loses more
  constexpr double kNoiseDbPerKm = -0.5;  // noise may let a fibre seem to gain
  double limit = base > kKnownDbPerKm ? 2 * base : kSingleModeDbPerKm;
  if (scale.sor->GenParams->NW < kSingleModeNm) limit = kMultimodeDbPerKm;
  return aci > kNoiseDbPerKm && aci < limit;
}

int DeleteShortSplices(const TraceScale& scale, LineTable& table, int count, float spanOwt, float lossThr,
                       float gainThr, bool strong) {
  return SpliceMerge(scale, table, spanOwt, lossThr, gainThr).Run(count, strong);
}

void RemoveSuspicionEvents(TSorData& sor) {
  const TSorBlockQRTParameters& params = *sor.QRTParams;
  if (sor.KeyEvents->ListedEvents() < 3 || params.PonType != 1 || params.FirstSplitterRatio != 8 ||
      params.SecondSplitterRatio != 8) {
    return;
  }
  WeakZone(&sor).Clean();
}

}  // namespace reflyze
