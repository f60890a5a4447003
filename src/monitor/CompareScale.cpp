// SPDX-License-Identifier: Apache-2.0
#include "src/monitor/CompareScale.h"

#include <cmath>

#include "sor/sorData.h"
#include "util/convert.h"

namespace reflyze {
namespace {

class ScaleChange {
 public:
  ScaleChange(const TSorData& from, const TSorData& to)
      : ratio_(static_cast<double>(to.FxdParams->GI) / from.FxdParams->GI),
        fromOffset_(from.GenParams->UO),
        toOffset_(to.GenParams->UO) {}

  void Apply(TSorData& trace, const TSorData& to) const {
    CarryPoints(*trace.FxdParams);
    trace.FxdParams->GI = to.FxdParams->GI;
    trace.GenParams->UO = to.GenParams->UO;
    CarryEvents(*trace.KeyEvents);
    CarryOwnEvents(*trace.QRTEvents);
    for (int i = 0; i < trace.LnkParams->ListedLandmarks(); ++i) Carry(trace.LnkParams->LandmarkAt(i).LML);
  }

 private:
  static int Rounded(double value) { return TruncToInt(std::floor(value + 0.5)); }
  double Carried(double owt) const { return (owt - fromOffset_) * ratio_ + toOffset_; }
  void Carry(int& owt) const { owt = Rounded(Carried(owt)); }
  // A marker of 0 was never set and stays 0.
  void CarryIfSet(int& owt) const {
    if (owt != 0) Carry(owt);
  }

  // The offset goes to FPO: in AO, 0 would stand for none.
  void CarryPoints(TSorBlockFixedParameters& fixed) const {
    fixed.FPO = Rounded(-Carried(fixed.GetOwtDataOffset()));
    fixed.AO = 0;
    for (int i = 0; i < fixed.TPW; ++i) fixed.DS[i] = Rounded(fixed.DS[i] * ratio_);
  }

  void CarryEvents(TSorBlockKeyEvents& table) const {
    for (int i = 0; i < table.ListedEvents(); ++i) {
      TSorBlockKeyEvents1E& event = table.EventAt(i);
      for (int* owt : {&event.EPT, &event.ML0, &event.ML1, &event.ML2}) Carry(*owt);
      CarryIfSet(event.ML3);
      CarryIfSet(event.ML4);
    }
  }

  void CarryOwnEvents(TSorBlockQRTEvents& table) const {
    for (int i = 0; i < table.ListedEvents(); ++i) {
      TSorBlockQRTEvents1E& section = table.EventAt(i);
      for (int* owt : {&section.ML0, &section.ML1, &section.ML2}) CarryIfSet(*owt);
    }
  }

  double ratio_;  // of the group indices, and so of the times of one length
  double fromOffset_, toOffset_;
};

}  // namespace

std::unique_ptr<TSorData> OnTimeScaleOf(const TSorData& base, const TSorData& current) {
  const int baseIndex = base.FxdParams->GI, currentIndex = current.FxdParams->GI;
  if (baseIndex == currentIndex && base.GenParams->UO == current.GenParams->UO) return nullptr;
  if (baseIndex <= 0 || currentIndex <= 0) return nullptr;
  auto carried = std::make_unique<TSorData>();
  carried->Assign(base);
  ScaleChange(base, current).Apply(*carried, current);
  return carried;
}

}  // namespace reflyze
