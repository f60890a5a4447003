#include "src/analysis/TraceAnalysis.h"

#include <string>

#include "ref/events/refEvent.h"
#include "ref/math/sectionFits.h"
#include "sor/sorData.h"
#include "src/filter/Filter.h"
#include "util/tinifile.h"

using reflyze::TraceAnalysis;

// The frame of one analysis: what holds for the record as a whole before and after its events are searched.

TEventCounters Event;

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

TraceAnalysis::TraceAnalysis() : version("v160216"), lines(new TOxArray<TEventLine, TEventLine*>) {}

TraceAnalysis::~TraceAnalysis() { delete lines; }

void TraceAnalysis::AnalysisSorData(TSorData* trace, TTH* thresholds) {
  if (thresholds == nullptr) {
    th.Reset();
    th.Take(*trace);
  } else {
    th = *thresholds;
  }
  if (th.THRef <= TTH::kLowestReflectanceDb) th.THRef = TTH::kEveryReflectanceDb;

  // A trace that was filtered before is analysed on its raw points. The flag goes in any case: an analysed
  // record asks for no filtering.
  if (trace->QRTParams->isFilter() && trace->DataPtsBackup != nullptr) TSorFilter(trace).SetFilter(0);
  trace->QRTParams->SetFlagFilter(0);

  reflyze::SectionFits fits(*trace);  // asked for once the search has left the levels alone
  {
    const UserOffsetAside aside(*trace);
    sor = trace;
    Calculate();
    // The event at the end of the fibre measures the return loss, below.
    if (WriteEventTable(fits) && !LastEventEndsFibre(*trace)) RefEventSetORL(trace);
    StampAnalysis(trace->SupParams->SR);
  }
  RefEventRFTSSync(trace);
  RefEventENSync(trace);
  MeasureEvents(*trace->KeyEvents, fits);
}

void TraceAnalysis::Damp(TIni* ini) {
  if (ini == nullptr) return;
  TIniSection* main = ini->AddSection("Main");
  main->SetInt("Lines", lines->GetSize());
  main->SetDouble("Lend", lEnd);
  main->SetDouble("Loss", lossTotal);
  main->SetDouble("DR", dr);
  main->SetDouble("1Refl", firstRefl);
  main->SetDouble("Dz0.1dB", dz01);
  main->SetDouble("Dz0.5dB", dz05);
  for (int i = 0; i < lines->GetSize(); ++i) {
    const std::string section = "Line" + std::to_string(i);
    lines->GetData(i)->Damp(ini->AddSection(section.c_str()));
  }
}

int TraceAnalysis::Damp(const char* path) {
  TIni ini(path);
  Damp(&ini);
  return ini.Write(nullptr);
}
