// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/Analysis.h"

#include <string>

#include "ref/events/refEvent.h"
#include "ref/math/sectionFits.h"
#include "sor/sorData.h"
#include "src/analysis/AutoResult.h"
#include "src/filter/Filter.h"
#include "util/tinifile.h"

// The frame of one analysis: what holds for the record as a whole before and after its events are searched.

TEventCounters Event;

namespace reflyze {

namespace {

// Positions are those of the instrument while a trace is analysed: the user's own zero point is set aside,
// and put back whatever happens.
class UserOffsetAside {
 public:
  explicit UserOffsetAside(TSorData& trace) : params_(*trace.GenParams), offsetOwt_(params_.UO) {
    params_.UO = 0;
  }
  ~UserOffsetAside() { params_.UO = offsetOwt_; }
  UserOffsetAside(const UserOffsetAside&) = delete;
  UserOffsetAside& operator=(const UserOffsetAside&) = delete;

 private:
  TSorBlockGeneralParameters& params_;
  const int offsetOwt_;
};

// Says in the software revision which analysis made the event table. One stamp stands at the end, however
// often a record is analysed; an earlier one is cut out by its length, whatever version it names.
void StampAnalysis(TString& softwareRevision) {
  constexpr char kStamp[] = " VA=170330";
  constexpr int kStampLength = sizeof kStamp - 1;
  const int earlier = softwareRevision.Find(TString(kStamp, 3), 0);
  if (earlier >= 0) softwareRevision.Delete(earlier, kStampLength);
  softwareRevision += kStamp;
}

bool LastEventEndsFibre(const TSorData& trace) {
  const int events = trace.KeyEvents->ListedEvents();
  return events > 0 && trace.KeyEvents->EventAt(events - 1).IsEOF();
}

}  // namespace

void AnalyseRecord(AnalysisState& analysis, TSorData& trace, const TTH* thresholds, ReturnLoss returnLoss) {
  TTH& th = analysis.th;
  if (thresholds == nullptr) {
    th.Reset();
    th.Take(trace);
  } else {
    th = *thresholds;
  }
  if (th.THRef <= TTH::kLowestReflectanceDb) th.THRef = TTH::kEveryReflectanceDb;

  // A trace that was filtered before is analysed on its raw points. The flag goes in any case: an analysed
  // record asks for no filtering.
  if (trace.QRTParams->isFilter() && trace.DataPtsBackup != nullptr)
    TSorFilter(&trace).SetFilter(TSorFilter::kUnfiltered);
  trace.QRTParams->SetFlagFilter(0);

  SectionFits fits(trace);  // asked for once the search has left the levels alone
  {
    const UserOffsetAside aside(trace);
    analysis.sor = &trace;
    Calculate(analysis.settings(), analysis.scale(), analysis.noise(), analysis.table());
    // The event at the end of the fibre measures the return loss, below.
    const bool hasLines =
        WriteEventTable(analysis.settings(), analysis.scale(), analysis.noise(), analysis.table(), fits);
    if (hasLines && !LastEventEndsFibre(trace) && returnLoss == ReturnLoss::kMeasured) RefEventSetORL(&trace);
    StampAnalysis(trace.SupParams->SR);
  }
  RefEventRFTSSync(&trace);
  RefEventENSync(&trace);
  MeasureEvents(*trace.KeyEvents, fits, returnLoss);
}

void ListTable(const LineTable& table, TIni& ini) {
  TIniSection* main = ini.AddSection("Main");
  main->SetInt("Lines", table.lines->GetSize());
  main->SetDouble("Lend", table.lEnd);
  main->SetDouble("Loss", table.lossTotal);
  main->SetDouble("DR", table.dr);
  main->SetDouble("1Refl", table.firstRefl);
  main->SetDouble("Dz0.1dB", table.dz01);
  main->SetDouble("Dz0.5dB", table.dz05);
  for (int i = 0; i < table.lines->GetSize(); ++i) {
    const std::string section = "Line" + std::to_string(i);
    table.lines->GetData(i)->Damp(ini.AddSection(section.c_str()));
  }
}

}  // namespace reflyze
