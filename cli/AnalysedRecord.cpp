#include "cli/AnalysedRecord.h"

#include <cmath>

#include "cli/EventTable.h"
#include "cli/Session.h"
#include "cli/Text.h"
#include "cli/UsableTrace.h"

namespace reflyze::cli {
namespace {

constexpr double kNoReflectanceDb = -200.0;  // far below any backscatter

// Whether any event has a section on the trace before it.
bool HasMarkers(const TSorData& record) {
  for (int i = 1; i < record.KeyEvents->ListedEvents(); ++i) {
    const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    if (event.ML0 >= record.GetMinOwt() && event.ML0 < event.ML1 && event.ML1 <= record.GetMaxOwt())
      return true;
  }
  return false;
}

}  // namespace

AnalysedRecord LoadAnalysedRecord(Session& session, const std::string& name,
                                  const ThresholdSource& thresholds, bool anew) {
  AnalysedRecord analysed{LoadRecord(session, name, NeedPoints::kYes), std::nullopt, false};
  if (!anew && HasMarkers(*analysed.record)) return analysed;
  analysed.eventsReplaced = !anew && analysed.record->KeyEvents->ListedEvents() > 0;
  TTH values = thresholds.For(*analysed.record);
  Analyse(session, analysed, values, false);
  analysed.thresholds = values;
  return analysed;
}

void WarnOfReading(Session& session, const AnalysedRecord& analysed) {
  WarnOfFile(session, analysed);
  if (analysed.eventsReplaced) {
    session.Warn(analysed.name +
                 ": warning: its events don't tell the sections that they were measured on; analysed anew");
  }
}

void WarnIfOtherWavelength(Session& session, const LoadedRecord& one, const LoadedRecord& other) {
  constexpr double kSameShare = 0.02;
  const double nm = WavelengthNm(*one.record), otherNm = WavelengthNm(*other.record);
  if (std::fabs(nm - otherNm) <= kSameShare * nm) return;
  session.Warn(other.name + Format(": warning: was measured at %.0f nm, and %s at %.0f nm", otherNm,
                                   one.name.c_str(), nm));
}

UnmeasuredReflectances::UnmeasuredReflectances(TSorData& record) {
  for (int i = 0; i < record.KeyEvents->ListedEvents(); ++i) {
    TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
    if (event.ER != 0) continue;
    event.SetER(kNoReflectanceDb);
    events_.push_back(&event);
  }
}

UnmeasuredReflectances::~UnmeasuredReflectances() {
  for (TSorBlockKeyEvents1E* event : events_) event->ER = 0;
}

}  // namespace reflyze::cli
