// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "ref/figures/refAutoNoise.h"
#include "sor/sorData.h"
#include "util/assertion.h"

// What a fibre is expected to lose, and whether there is one.

float RefAutoGetLoss(TSorData* sor) {
  constexpr double kMisreadNm = 500.0;  // an actual wavelength this far off stands in another unit
  constexpr double kUnitsPerNm = 10.0;  // the field counts in 0.1 nm
  const int nominalNm = sor->GenParams->NW;
  const int actual = sor->FxdParams->AW;
  double offNm = actual != 0 ? actual / kUnitsPerNm - nominalNm : 0.0;
  if (std::fabs(offNm) > kMisreadNm) offNm = 0.0;
  // Attenuation at the nominal wavelength (dB/km), brought to the actual one: each per cent of wavelength
  // changes it by `trend` per cent.
  const auto loss = [&](double dbPerKm, double trend) {
    if (offNm == 0.0) return static_cast<float>(dbPerKm);
    return static_cast<float>(dbPerKm * (1.0 + (trend * offNm) / nominalNm));
  };

  // Usual values. Below 1.6 um the loss is Rayleigh scattering, which goes with the wavelength to the power
  // of -4; above, the glass itself begins to absorb and the loss rises again.
  constexpr double kScatterTrend = -4.0;
  double base = 0.2;
  if (nominalNm == 1064) base = 1.0;
  if (nominalNm == 1300) base = 0.6;
  if (nominalNm == 850) base = 3.0;
  if (sor->GenParams->FT == TSorBlockGeneralParameters::kMultimodeFibre) return loss(base, kScatterTrend);
  switch (nominalNm) {
    case 1310:
      return loss(0.35, kScatterTrend);
    case 1490:
      return loss(0.22, 0.0);
    case 1550:
      return loss(0.2, kScatterTrend);
    case 1625:
      return loss(0.22, 4.0);
    case 1650:
      return loss(0.25, 6.0);
    default:
      return static_cast<float>(base);
  }
}

bool RefAutoIsFiberLinkDetected(TSorData* sor) {
  reflyze::Require(sor != nullptr, "SD");
  const auto* events = sor->KeyEvents->events;
  if (events == nullptr || events->GetSize() < 2) return false;
  if (events->GetSize() > 2) return true;
  // A bare connector reflects more than one with a fibre on it.
  constexpr double kInstrumentConnectorDb = -25.0;
  const TSorBlockKeyEvents1E& first = *events->GetData(0);
  const TSorBlockKeyEvents1E& last = *events->GetData(1);
  const char firstKind = first.EC.c_str()[0];
  const char lastKind = last.EC.c_str()[0];
  if (firstKind == '1' && (lastKind == '1' || lastKind == '2') && first.GetER() < kInstrumentConnectorDb) {
    return true;
  }
  // Otherwise there is a fibre where there is a section between the two events.
  const bool noSection = first.ML2 == first.ML3 && first.ML3 == last.ML0 && last.ML0 == last.ML1;
  return !noSection;
}
