// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/EventLine.h"

#include <string>

#include "util/tinifile.h"

namespace {

constexpr double kForcedSlopeDbPerKm = 0.001;  // a forced slope above this counts as one
constexpr double kNoLengthKm = 1e-6;           // a millimetre: shorter sections have no slope

}  // namespace

double TEventLine::LossKm() const {
  if (lossKmFix > kForcedSlopeDbPerKm) return lossKmFix;
  return Length() < kNoLengthKm ? 0.0 : Loss() / Length();
}

void TEventLine::Assign(const TEventLine* other) {
  if (other == nullptr) return;
  const double forcedSlopeDbPerKm = lossKmFix;
  *this = *other;
  lossKmFix = forcedSlopeDbPerKm;
}

void TEventLine::Damp(TIniSection* section) const {
  if (section == nullptr) return;
  section->SetDouble("L1", L[0]);
  section->SetDouble("L2", L[1]);
  if (L[2] != L[1]) section->SetDouble("Le", L[2]);
  section->SetDouble("P1", P[0]);
  section->SetDouble("P2", P[1]);
  section->SetDouble("dB/km", LossKm());
  section->SetDouble("Splice", spliceLoss);
  std::string reflection = "Refl";
  if (type != 0) reflection += type;  // a type that was never set ends the key, as it would end a text
  section->SetDouble(reflection.c_str(), peakLevel);
}
