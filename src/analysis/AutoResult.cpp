// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoResult.h"

// From lines to the record's event table: the launch, then one event for each line, with the markers of the
// sections on both sides of it. All positions in the table are one-way times, truncated to whole units.
//
// An event code has six characters: the class ("0" no reflection, "1" reflection, "2" saturated one), the
// source ("F" found by analysis, "E" end of the fibre, "O" out of range: the end was not reached), "9999".
// While the table is built, "d" and "D" stand for the classes 1 and 2 of a reflection that shares its section
// with the one in front of it.

#include <algorithm>
#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "sor/sorData.h"
#include "src/analysis/FibreLimits.h"
#include "util/convert.h"

namespace reflyze {

namespace {

constexpr double kLaunchMarginOwt = 250.0;  // 25 ns one way: what the launch marker keeps from the fibre
constexpr double kLaunchPeakDb = 0.1;       // a launch peak higher than this above the fibre is a reflection
constexpr double kShortestFitKm = 0.5;      // a last section longer than this gives its level by a fit
constexpr double kMostSectionLossDb = 2.0;  // beyond this loss a section is too long to measure an event on
constexpr int kMostTableEvents = 32767;     // the table counts in 16 bits

bool IsDoubled(const TSorBlockKeyEvents1E& event) {
  const char first = event.EC.c_str()[0];
  return first == 'd' || first == 'D';
}

// Whether both sections of an event have a length, so that lines could be fitted to them.
bool HasBothSections(const TSorBlockKeyEvents1E& event) {
  return (static_cast<long>(event.ML3) - event.ML2) * (static_cast<long>(event.ML1) - event.ML0) > 0;
}

class EventTableWriter {
 public:
  EventTableWriter(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                   const LineTable& lines, SectionFits& fits)
      : settings_(settings),
        noise_(noise),
        found_(lines),
        fits_(fits),
        sor_(*scale.sor),
        table_(*scale.sor->KeyEvents),
        pulseOwt_(scale.sor->FxdParams->GetOwtPulse(0)) {}

  void Run() {
    table_.events->Clear();
    table_.TNKE = 0;
    AddLaunch();
    const int lines = found_.lines->GetSize();
    for (int i = 0; i < lines; ++i) {
      // A list too long for the table loses events before its last one.
      if (i + 1 == lines || table_.TNKE + 1 < kMostTableEvents) AddLine(i);
    }
    ArrangeShortEventsMarkers(sor_);
    SetEndToEndLoss();
    sor_.FxdParams->SetLT(settings_.th.THLoss);
    sor_.FxdParams->SetRT(settings_.th.THRef);
    sor_.FxdParams->SetET(settings_.th.THEnd);
    sor_.QRTParams->SetCT(settings_.th.dBkm);
  }

 private:
  int Owt(double km) const { return TruncToInt(sor_.dLenToOwt(km)); }
  const TEventLine& Line(int i) const { return *found_.lines->GetData(i); }
  // Loss to a one-way time from the top of the scale.
  double LossTo(int owt) const { return -sor_.OwtToLevel(owt, 1); }

  std::unique_ptr<TSorBlockKeyEvents1E> NewEvent() const {
    auto event = std::make_unique<TSorBlockKeyEvents1E>();
    event->EN = static_cast<short>(table_.TNKE + 1);
    return event;
  }

  void Add(std::unique_ptr<TSorBlockKeyEvents1E> event) {
    table_.events->AddData(event.get());
    event.release();  // the table owns it now
    ++table_.TNKE;
  }

  void AddLaunch() {
    std::unique_ptr<TSorBlockKeyEvents1E> event = NewEvent();
    const TEventLine& first = Line(0);
    const int offset = sor_.FxdParams->AO;
    if (offset < 0) {
      // The trace starts in front of the launch: in the fibre inside the instrument, if it has one.
      const int inside = sor_.QRTParams->IntFiber;
      const double startOwt = inside != 0 ? -static_cast<double>(inside) : sor_.LenToOwt(found_.lLaunch);
      event->EPT = 0;
      event->ML0 = std::min(TruncToInt(startOwt + pulseOwt_ + kLaunchMarginOwt), 0);
    } else {
      event->EPT = offset;
      event->ML0 = offset;
    }
    event->ML1 = event->EPT;
    event->ML2 = Owt(first.L[0]);
    event->ML3 = Owt(first.L[1]);
    event->ML4 = TruncToInt(found_.firstReflOwt);

    // Within the first pulse the backscatter is still building up: it stands lower than the line extended.
    const double pulseKm = sor_.dOwtToLen(pulseOwt_);
    const double missingDb = first.L[0] < pulseKm ? first.LossKm() * pulseKm : 0.0;
    const bool reflection = found_.firstRefl - found_.pZero - missingDb > kLaunchPeakDb;
    SetReflection(settings_, noise_.noiseAmp, *event, found_.firstRefl, found_.pZero - missingDb,
                  reflection ? 'R' : 'S', &sor_);
    event->EC += "F9999";
    if (HasBothSections(*event)) event->LMT = "LS";
    Add(std::move(event));
  }

  void AddLine(int i) {
    std::unique_ptr<TSorBlockKeyEvents1E> event = NewEvent();
    const TEventLine& line = Line(i);
    event->ML0 = Owt(line.L[0]);
    event->ML1 = Owt(line.L[1]);
    event->ML4 = Owt(line.peakLen);
    event->EPT = Owt(line.L[2]);
    event->SetACI(line.LossKm());
    event->SetEL(line.spliceLoss);
    const bool last = i + 1 == found_.lines->GetSize();
    if (last) {
      TakePulseBehind(*event);
    } else {
      TakeSectionBehind(*event, line, Line(i + 1));
    }
    SetReflection(settings_, noise_.noiseAmp, *event, line.peakLevel, last ? line.P1() : line.P[1], line.type,
                  &sor_);
    event->EC += !last ? "F" : line.spliceLoss >= settings_.th.THEnd ? "E" : "O";
    event->EC += "9999";
    if (last) {
      const bool isEnd = line.spliceLoss >= settings_.th.THEnd;
      NoteAt(settings_, sor_, Stage::kTable, isEnd ? Choice::kEnd : Choice::kNoEnd, line.L[2],
             line.spliceLoss, settings_.th.THEnd, "dB",
             isEnd ? "the last event loses enough for an end"
                   : "the end lies out of range: the loss is too small");
    }
    Add(std::move(event));
  }

  void TakeSectionBehind(TSorBlockKeyEvents1E& event, const TEventLine& line, const TEventLine& next) {
    event.ML2 = Owt(next.L[0]);
    event.ML3 = Owt(next.L[1]);
    constexpr double kTellingLossDb = 0.2;  // a section that loses less says nothing of the next ...
    constexpr double kShortLossDb = 0.5;    // ... which then counts over this loss
    const double limitDb =
        std::min(line.Loss() > kTellingLossDb ? 2 * line.Loss() : kShortLossDb, kMostSectionLossDb);
    if (next.Loss() > limitDb) {
      // Over so long a section its slope may change: only its first part says what the event lost.
      const double cut = (1.0 - limitDb / next.Loss()) * (static_cast<double>(event.ML3) - event.ML2);
      event.ML3 = TruncToInt(event.ML3 - cut);
      MeasureLoss(event, fits_);
    }
    event.LMT = HasBothSections(event) ? "LS" : "2P";
  }

  // Nothing follows the last event: its second section is a pulse of what lies behind.
  void TakePulseBehind(TSorBlockKeyEvents1E& event) const {
    const double pulse = sor_.FxdParams->GetOwtPulse(event.EPT);
    event.ML2 = TruncToInt(event.EPT + pulse);
    event.ML3 = TruncToInt(event.ML2 + pulse);
    if (HasBothSections(event)) event.LMT = "LS";
  }

  void SetEndToEndLoss() {
    const int inside = sor_.QRTParams->IntFiber;
    if (inside > 0 && kInnerFibrePulses * pulseOwt_ < inside) {
      SetLossFromLaunchFibre();
      return;
    }
    table_.SetEEL(found_.lossTotal);
    table_.ELMP1 = TruncToInt(sor_.NumToOwt(0));
    table_.ELMP2 = Owt(found_.lEnd);
  }

  // With a fibre inside the instrument the level at its outlet can be read from the trace.
  void SetLossFromLaunchFibre() {
    const TSorBlockKeyEvents1E& first = table_.EventAt(0);
    const TSorBlockKeyEvents1E& last = table_.EventAt(table_.TNKE - 1);
    const TSorBlockKeyEvents1E& main =
        table_.EventAt(RefEventGetMainEventOfMergedGroup(&sor_, table_.TNKE - 1));
    const double sectionEndDb = LossTo(last.ML1);
    const double mainDb = LossTo(main.EPT);
    double endDb = LossTo(last.EPT);
    int endOwt = last.EPT;
    if (sectionEndDb > endDb) {
      const bool section = sectionEndDb > mainDb;
      endDb = section ? sectionEndDb : mainDb;
      endOwt = section ? last.ML1 : main.EPT;
    }
    if (sor_.dOwtToLen(static_cast<double>(last.ML1) - last.ML0) > kShortestFitKm) {
      double slope = 0.0, intercept = 0.0;
      RefMathLSL(&sor_, last.ML0, last.ML1, slope, intercept, 1.0);
      endDb = -(slope * last.EPT + intercept);
    }
    table_.SetEEL(endDb - LossTo(first.EPT));
    table_.ELMP1 = first.EPT;
    table_.ELMP2 = endOwt;
  }

  const AnalysisSettings& settings_;
  const NoiseSeen& noise_;
  const LineTable& found_;
  SectionFits& fits_;
  TSorData& sor_;
  TSorBlockKeyEvents& table_;
  const double pulseOwt_;
};

}  // namespace

bool WriteEventTable(const AnalysisSettings& settings, const TraceScale& scale, const NoiseSeen& noise,
                     const LineTable& table, SectionFits& fits) {
  if (table.lines->GetSize() == 0) return false;
  EventTableWriter(settings, scale, noise, table, fits).Run();
  return true;
}

void SetReflection(const AnalysisSettings& settings, double noiseAmp, TSorBlockKeyEvents1E& event,
                   double peak, double base, char eventType, TSorData* s) {
  const double heightDb = peak - base;
  event.SetER(RefEventReflection(s, event.EPT, heightDb));
  const bool saturated = peak >= settings.th.RefSat;
  switch (eventType) {
    case '=':
      break;
    case 'N':
    case 'P':
      event.EC = "0";
      break;
    case 'S':
      event.EC = "0";
      event.CMT = "Splice value is not accurate";
      break;
    case 'V':
      event.EC = saturated ? "D" : "d";
      event.CMT = "Possibly doubled reflection";
      break;
    case 'R':
      event.EC = saturated ? "2" : "1";
      break;
    default:
      // No letter yet: a peak that noise can't explain is a reflection.
      event.EC = heightDb < RefEventMinReflection(s, peak, noiseAmp) ? "0" : saturated ? "2" : "1";
  }
}

void ArrangeShortEventsMarkers(TSorData& sor) {
  TSorBlockKeyEvents& table = *sor.KeyEvents;
  const int count = table.ListedEvents();
  if (count <= 2) return;
  const TSorBlockKeyEvents1E* main = nullptr;
  for (int i = 0; i < count; ++i) {
    TSorBlockKeyEvents1E& event = table.EventAt(i);
    if (IsDoubled(event)) {
      event.EC = TString("1") + event.EC.SubString(1, event.EC.Len());
      if (main != nullptr) {
        event.ML0 = main->ML0;
        event.ML1 = main->ML1;
      }
    } else {
      main = &event;
    }
    if (i + 1 == count || !IsDoubled(table.EventAt(i + 1))) continue;
    // The section behind a group starts behind its last doubled reflection, or never.
    int after = i + 1;
    while (after < count && IsDoubled(table.EventAt(after))) ++after;
    if (after == count) {
      event.ML2 = event.ML3 = TruncToInt(sor.GetMaxOwt());
    } else {
      event.ML2 = table.EventAt(after).ML0;
      event.ML3 = table.EventAt(after).ML1;
    }
  }
}

}  // namespace reflyze
