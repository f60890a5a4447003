// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <optional>

#include "ref/events/refEventEdit.h"
#include "ref/events/refEventReflection.h"
#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "ref/math/traceWalk.h"
#include "ref/search/refAutoSearch.h"
#include "util/convert.h"

using namespace reflyze;

namespace {

// A peak at or above this level has driven the receiver into saturation. In single precision, as the levels
// are kept: a peak of just this height is a little below the same number in double precision.
constexpr double kSaturatedPeakDb = -0.2f;
// Added to the least height of a reflection.
constexpr double kReflectionBaseDb = 0.05;
// A section is believed if it is this long and its attenuation what fibre has; else this attenuation is
// taken.
constexpr double kShortestSectionKm = 0.5;
constexpr double kLowestAttenuationDbPerKm = 0.17;
constexpr double kHighestAttenuationDbPerKm = 0.3;
constexpr double kAssumedAttenuationDbPerKm = 0.2;
// Markers this near to the end of the trace leave no section behind the end of the fibre.
constexpr double kBehindTraceOwt = 10.0;

// The peak between two times; stores its time in the marker.
double FindPeak(TSorData& sor, long fromOwt, long toOwt, int& peakOwt) {
  long found = peakOwt;
  const double level = sor.GetMax(fromOwt, toOwt, found);
  peakOwt = static_cast<int>(found);
  return level;
}

bool Believed(const TSorData& sor, double lengthOwt, double attenuation) {
  return !(lengthOwt < sor.dLenToOwt(kShortestSectionKm) || attenuation < kLowestAttenuationDbPerKm ||
           attenuation > kHighestAttenuationDbPerKm);
}

void SetShapeOfCode(TSorBlockKeyEvents1E& event, char shape) {
  if (event.EC.Len() > 0) event.EC.SetAt(0, shape);
}

// The line of one section beside an event.
struct SectionLine {
  double slope = 0.0;        // dB per time
  double intercept = 0.0;    // dB at time 0
  double attenuation = 0.0;  // dB/km
};

SectionLine FitSection(SectionFits& fits, int fromOwt, int toOwt) {
  const SectionFits::Line line = fits.Of(fromOwt, toOwt);
  return {line.slope, line.intercept, -line.slope * fits.trace().dLenToOwt(1.0)};
}

// A section that is not believed keeps its mid level in place of the intercept, and the usual attenuation.
void ReplaceUnbelieved(const TSorData& sor, double fromOwt, double toOwt, SectionLine& line) {
  if (fromOwt == toOwt || Believed(sor, toOwt - fromOwt, line.attenuation)) return;
  line.attenuation = kAssumedAttenuationDbPerKm;
  line.intercept = ((fromOwt + toOwt) / 2) * line.slope + line.intercept;
}

// The measures of one event at its markers. They share the line of the section in front.
class EventMeasures {
 public:
  EventMeasures(TSorData& sor, TSorBlockKeyEvents1E& event, SectionFits& fits,
                ReturnLoss returnLoss = ReturnLoss::kMeasured)
      : sor_(sor), event_(event), fits_(fits), returnLoss_(returnLoss) {}

  // Reflectance, where the loss `el` is 0 or, for a gain, negative.
  void Reflection(double el, bool raiseBase);
  void Attenuation();
  void Loss();
  // All of an event at the end of the fibre.
  void End();
  // All of any event, which ends where the next one begins.
  void All();

 private:
  // The markers in front of the event stay where they are while it is measured.
  const SectionLine& Front() {
    if (!front_) front_ = FitSection(fits_, event_.ML0, event_.ML1);
    return *front_;
  }

  TSorData& sor_;
  TSorBlockKeyEvents1E& event_;
  SectionFits& fits_;
  const ReturnLoss returnLoss_;  // of the whole link, with the event at its end
  std::optional<SectionLine> front_;
};

void EventMeasures::Reflection(double el, bool raiseBase) {
  event_.SetER(0.0);
  const double peakDb =
      event_.ML4 == 0 ? FindPeak(sor_, event_.EPT, event_.ML2, event_.ML4) : sor_.OwtToLevel(event_.ML4, 1);
  double baseDb = Front().slope * event_.EPT + Front().intercept;
  if (raiseBase && baseDb < sor_.GetMinLevel()) baseDb = sor_.GetMinLevel();
  const double heightDb = sor_.OwtToLevel(event_.ML4, 1) - baseDb;
  const double reflectance = RefEventReflection(&sor_, static_cast<double>(event_.ML4), heightDb + el);
  if (peakDb >= kSaturatedPeakDb) {
    SetShapeOfCode(event_, '2');
  } else {
    const bool reflective = peakDb - (baseDb - el) > RefEventMinReflection(&sor_, peakDb, kReflectionBaseDb);
    SetShapeOfCode(event_, reflective ? '1' : '0');
  }
  event_.SetER(reflectance);
}

void EventMeasures::Attenuation() {
  const double lengthOwt = static_cast<double>(event_.ML1) - event_.ML0;
  if (lengthOwt <= 0.0) {
    event_.SetACI(0.0);
    return;
  }
  if (Believed(sor_, lengthOwt, Front().attenuation)) {
    event_.SetACI(-Front().slope * lengthOwt / sor_.dOwtToLen(lengthOwt));
  } else {
    event_.SetACI(kAssumedAttenuationDbPerKm);
  }
}

void EventMeasures::Loss() {
  event_.SetEL(0.0);
  if (event_.ML3 == 0) return;
  SectionLine before = Front();
  SectionLine behind;
  const double traceEndOwt = sor_.GetMaxOwt() - kBehindTraceOwt;
  if (event_.IsEOF() && event_.ML2 > traceEndOwt && event_.ML3 > traceEndOwt) {
    behind.intercept = sor_.GetMinLevel();
    behind.attenuation = -behind.slope * sor_.dLenToOwt(1.0);
  } else {
    behind = FitSection(fits_, event_.ML2, event_.ML3);
  }
  ReplaceUnbelieved(sor_, event_.ML0, event_.ML1, before);
  ReplaceUnbelieved(sor_, event_.ML2, event_.ML3, behind);
  event_.SetEL(sor_.OwtToLen(event_.EPT) * (behind.attenuation - before.attenuation) + before.intercept -
               behind.intercept);
  event_.LMT = "LS";
  Attenuation();
}

void EventMeasures::End() {
  event_.ML4 = 0;
  event_.ML3 = TruncToInt(sor_.GetMaxOwt());
  event_.ML2 = event_.ML3;
  Reflection(0.0, true);
  Loss();
  sor_.KeyEvents->ELMP2 = event_.EPT;
  RefEventSetEEL(&sor_);
  if (returnLoss_ == ReturnLoss::kMeasured) RefEventSetORL(&sor_);
}

void EventMeasures::All() {
  if (event_.IsEOF()) {
    End();
    return;
  }
  long limitOwt = event_.ML2;
  const TSorBlockKeyEvents1E* next = RefEventGetNextEvent(&sor_, &event_);
  if (next != nullptr && next->EPT < event_.ML2) limitOwt = next->EPT;
  FindPeak(sor_, event_.EPT, limitOwt, event_.ML4);
  Reflection(0.0, true);
  Loss();
  if (event_.GetEL() < 0.0) Reflection(event_.GetEL(), false);
}

// Does one thing of a single event.
template <class Work>
void Measure(TSorData& sor, TSorBlockKeyEvents1E& event, Work work) {
  SectionFits fits(sor);
  EventMeasures measures(sor, event, fits);
  work(measures);
}

double PeakOverSection(TSorData& sor, TSorBlockKeyEvents1E& event) {
  if (event.ML4 == 0) FindPeak(sor, event.ML1, event.ML2, event.ML4);
  return sor.OwtToLevel(event.ML4, 1) - sor.OwtToLevel(event.ML1, 1);
}

}  // namespace

void reflyze::MeasureEvent(TSorBlockKeyEvents1E& event, SectionFits& fits) {
  EventMeasures(fits.trace(), event, fits).All();
}

void reflyze::MeasureEvents(TSorBlockKeyEvents& events, SectionFits& fits, ReturnLoss returnLoss) {
  for (int i = 0; i < events.ListedEvents(); ++i)
    EventMeasures(fits.trace(), events.EventAt(i), fits, returnLoss).All();
}

void reflyze::MeasureLoss(TSorBlockKeyEvents1E& event, SectionFits& fits) {
  EventMeasures(fits.trace(), event, fits).Loss();
}

void reflyze::MeasureEvent(TSorBlockQRTEvents1E& event, SectionFits& fits) {
  double lossDb = 0.0;
  if (event.LMT == "LS") {
    lossDb = (static_cast<double>(event.ML0) - event.ML1) * fits.Of(event.ML0, event.ML1).slope;
  } else {
    lossDb = fits.trace().OwtToLevel(event.ML0, 1) - fits.trace().OwtToLevel(event.ML1, 1);
  }
  // Stored in thousandths of a dB, truncated, as the other measures of an event are.
  event.EL = TruncToShort(lossDb * 1000.0);
}

void RefEventMarkerR(TSorData* sor, TSorBlockKeyEvents1E* event) {
  constexpr double kBehindPeakPulses = 1.5, kBehindPeakPoints = 3.0;
  const long first = PointAtOwt(*sor, event->ML1);
  const long last = std::min(TruncToLong(sor->OwtTofNum(event->ML4) + 0.5),
                             static_cast<long>(sor->DataPts->GetPointsNum()));
  event->EPT = TruncToInt(sor->NumToOwt(RefAutoSearchRef(sor, first, last)));
  event->ML2 = TruncToInt(event->ML4 + sor->FxdParams->GetOwtPulse(event->ML4) * kBehindPeakPulses +
                          sor->FxdParams->GetOwtDS(0) * kBehindPeakPoints);
}

void RefEventRCalculate(TSorData* sor, TSorBlockKeyEvents1E* event) {
  Measure(*sor, *event, [](EventMeasures& measures) { measures.Reflection(0.0, true); });
}

void RefEventRCalculateNegSplice(TSorData* sor, TSorBlockKeyEvents1E* event, double el) {
  Measure(*sor, *event, [el](EventMeasures& measures) { measures.Reflection(el, false); });
}

void RefEventACICalculate(TSorData* sor, TSorBlockKeyEvents1E* event) {
  Measure(*sor, *event, [](EventMeasures& measures) { measures.Attenuation(); });
}

void RefEventSCalculate(TSorData* sor, TSorBlockKeyEvents1E* event) {
  SectionFits fits(*sor);
  MeasureLoss(*event, fits);
}

void RefEventECalculate(TSorData* sor, TSorBlockKeyEvents1E* event) {
  Measure(*sor, *event, [](EventMeasures& measures) { measures.End(); });
}

int RefEventRecalculate(TSorData* sor, TSorBlockKeyEvents1E* event, int) {
  SectionFits fits(*sor);
  MeasureEvent(*event, fits);
  return 0;
}

int RefEventRecalculate(TSorData* sor, TSorBlockQRTEvents1E* event) {
  SectionFits fits(*sor);
  MeasureEvent(*event, fits);
  return 0;
}

int RefEventRecalculate(TSorData* sor, TSorBlockKeyEvents* events, int onlyFirst) {
  SectionFits fits(*sor);
  if (onlyFirst == 0) {
    MeasureEvents(*events, fits);
    return 0;
  }
  if (events->ListedEvents() == 0) return 0;
  MeasureEvent(events->EventAt(0), fits);
  return 1;
}

double RefEventGetEventRFTSReflection(TSorData* sor, TSorBlockKeyEvents1E* event, double minHeight) {
  const double heightDb = std::max(PeakOverSection(*sor, *event), minHeight);
  return RefEventReflection(sor, static_cast<double>(event->ML4), heightDb);
}

bool RefEventIsEventRFTSReflective(TSorData* sor, TSorBlockKeyEvents1E* event, double minHeight) {
  return PeakOverSection(*sor, *event) > minHeight;
}
