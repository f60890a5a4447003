// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>

#include "ref/events/refEventEdit.h"
#include "ref/math/ref_Math.h"
#include "ref/math/sectionFits.h"
#include "util/convert.h"

using namespace reflyze;

namespace {

// Whether a template event lies on the trace is judged in whole centimetres.
constexpr double kCentimetresPerKm = 100000.0;

// Lays the events of one trace on another. The two may differ in refractive index, spacing and range: what
// stays is the place in length.
class TemplateOnTrace {
 public:
  TemplateOnTrace(TSorData& current, const TSorData& base) : current_(current), base_(base), fits_(current) {}

  void Run() {
    ForgetEvents();
    for (int i = 0; i < base_.KeyEvents->events->GetSize(); ++i) {
      const TSorBlockKeyEvents1E& event = *base_.KeyEvents->events->GetData(i);
      if (i == 0 || OnTrace(event)) AddKeyEvent(event);
    }
    // Adding the events has changed the thresholds that belong to them.
    current_.RFTSParams->Assign(*base_.RFTSParams);
    CopyOwnEvents();
    current_.LnkParams->Assign(*base_.LnkParams);
  }

 private:
  void ForgetEvents() {
    RefEventSorDelete(&current_, 0);
    current_.RFTSParams->Assign(*base_.RFTSParams);
    current_.KeyEvents->OnKeyEventsClear();
    current_.RFTSParams->OnKeyEventsClear();
    current_.RFTSEvents->OnKeyEventsClear();
    current_.LnkParams->OnKeyEventsClear();
  }

  bool OnTrace(const TSorBlockKeyEvents1E& event) const {
    const long at = TruncToLong(base_.OwtToLen(event.EPT) * kCentimetresPerKm);
    return at >= TruncToLong(current_.GetMinLen() * kCentimetresPerKm) &&
           at <= TruncToLong(current_.GetMaxLen() * kCentimetresPerKm);
  }

  int Carried(int owt) const { return TruncToInt(current_.LenToOwt(base_.OwtToLen(owt)) + 0.5); }
  int CarriedMarker(int owt) const {
    const double held = std::min(std::max<double>(Carried(owt), current_.GetMinOwt()), current_.GetMaxOwt());
    return TruncToInt(held);
  }

  void AddKeyEvent(const TSorBlockKeyEvents1E& event) {
    auto copy = std::make_unique<TSorBlockKeyEvents1E>(event);
    for (int* marker : {&copy->ML0, &copy->ML1, &copy->ML2, &copy->ML3, &copy->ML4})
      *marker = CarriedMarker(*marker);
    copy->ML4 = 0;
    copy->EPT = std::max(Carried(event.EPT), TruncToInt(current_.GetMinOwt()));
    TSorBlockKeyEvents& table = *current_.KeyEvents;
    copy->EN = static_cast<short>(table.TNKE + 1);
    TSorBlockKeyEvents1E* added = copy.get();
    table.events->AddData(copy.release());
    ++table.TNKE;
    MeasureEvent(*added, fits_);
    const int index = table.TNKE - 1;
    table.OnKeyEventAdd(index);
    current_.RFTSParams->OnKeyEventAdd(index);
    current_.RFTSEvents->OnKeyEventAdd(index);
    current_.LnkParams->OnKeyEventAdd(index);
  }

  bool OwnEventOnTrace(const TSorBlockQRTEvents1E& event) const {
    for (const int owt : {event.ML0, event.ML1, event.ML2}) {
      const double km = base_.OwtToLen(owt);
      if (owt != 0 && (km < current_.GetMinLen() || km > current_.GetMaxLen())) return false;
    }
    return true;
  }

  void CopyOwnEvents() {
    TSorBlockQRTEvents& table = *current_.QRTEvents;
    table.events->Clear();
    for (int i = 0; i < base_.QRTEvents->events->GetSize(); ++i) {
      const TSorBlockQRTEvents1E& event = *base_.QRTEvents->events->GetData(i);
      if (!OwnEventOnTrace(event)) continue;
      auto copy = std::make_unique<TSorBlockQRTEvents1E>(event);
      if (copy->EC.Len() > 1) copy->EC.SetAt(1, 'T');
      for (int* marker : {&copy->ML0, &copy->ML1, &copy->ML2}) {
        *marker = TruncToInt(current_.LenToOwt(base_.OwtToLen(*marker)));
      }
      MeasureEvent(*copy, fits_);
      table.events->AddData(copy.release());
    }
    table.TNE = static_cast<short>(table.events->GetSize());
  }

  TSorData& current_;
  const TSorData& base_;
  // Neighbouring events share a section, and the instrument's own events have the same ones.
  SectionFits fits_;
};

}  // namespace

void RefEventApplyTemplate(TSorData* current, const TSorData* base) {
  TemplateOnTrace(*current, *base).Run();
}

int RefEventSQO(TSorData* current, TSorData* base, double& levelSum, double& sqoSum) {
  levelSum = 0.0;
  sqoSum = 0.0;
  if (base->KeyEvents->TNKE < 2 || base->KeyEvents->events->GetSize() < 2) return 0;
  RefEventApplyTemplate(current, base);
  double currentDb = 0.0, baseDb = 0.0;  // levels along the two traces, from 0 at the first event
  const TSorBlockKeyEvents1E* previous = base->KeyEvents->events->GetData(0);
  for (int i = 1; i < base->KeyEvents->TNKE; ++i) {
    // Pairs by number: a template event that does not lie on the current trace shifts those behind it.
    const TSorBlockKeyEvents1E& c = *current->KeyEvents->events->GetData(i);
    const TSorBlockKeyEvents1E& b = *base->KeyEvents->events->GetData(i);
    const double attenuation = c.GetACI() - b.GetACI();
    const double lengthKm = base->dOwtToLen(static_cast<double>(b.EPT) - previous->EPT);
    const double levelDb = currentDb - baseDb;
    levelSum += levelDb + attenuation * lengthKm / -2.0;
    sqoSum += RefMathLinesSQO(levelDb, attenuation, lengthKm);
    currentDb -= c.GetACI() * lengthKm + c.GetEL();
    baseDb -= b.GetACI() * lengthKm + b.GetEL();
    previous = &b;
  }
  return 1;
}
