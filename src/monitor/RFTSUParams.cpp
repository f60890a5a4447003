// SPDX-License-Identifier: Apache-2.0
#include "src/monitor/RFTSUParams.h"

#include <cstring>

#include "sor/scale/sorMath.h"
#include "sor/sorData.h"

namespace {

// A place is read off a splice to about a third of the pulse, off a reflection's edge to a few points.
constexpr double kPulsesOfPlace = 3.0;
constexpr double kPointsOfPlace = 3.0;

// The level of the fibre is read where the launch reflection has died away: the further, the longer the
// pulse.
double LinkDistanceKm(double pulseNs) {
  constexpr struct {
    double mostNs, km;
  } kDistances[] = {{300.0, 0.5}, {1000.0, 1.0}, {3000.0, 1.5}, {10000.0, 2.5}};
  constexpr double kBehindLongestKm = 5.0;
  for (const auto& distance : kDistances) {
    if (pulseNs <= distance.mostNs) return distance.km;
  }
  return kBehindLongestKm;
}

}  // namespace

int RFTSUParamsGetDefaultValue(double* value, const char* name, const TSorData* sor) {
  if (sor == nullptr || name == nullptr) return 0;
  if (std::strcmp(name, "EvtDetectDeltaLen") == 0) {
    *value = SorMathNsToLen(sor->GetRealNsPulse(0), sor->FxdParams->GetRI()) / kPulsesOfPlace;
  } else if (std::strcmp(name, "EvtRDetectDeltaLen") == 0) {
    *value = sor->FxdParams->LenDS() * kPointsOfPlace;
  } else if (std::strcmp(name, "NoLinkDistance") == 0) {
    *value = LinkDistanceKm(sor->GetRealNsPulse(0));
  } else {
    return 0;
  }
  return 1;
}

void TRFTSUParams::Take(const TSorData& base) {
  *this = TRFTSUParams();
  RFTSUParamsGetDefaultValue(&EvtDetectDeltaLen, "EvtDetectDeltaLen", &base);
  RFTSUParamsGetDefaultValue(&EvtRDetectDeltaLen, "EvtRDetectDeltaLen", &base);
  RFTSUParamsGetDefaultValue(&NoLinkDistance, "NoLinkDistance", &base);

  const auto take = [&base](const char* name, double& setting) {
    const TRFTSUniversalParameter* carried = base.RFTSParams->GetUParameter(TString(name));
    if (carried != nullptr) setting = carried->GetValue();
  };
  take("EvtDetectDeltaCT", EvtDetectDeltaCT);
  take("EvtSearchStep", EvtSearchStep);
  take("EvtDetectDeltaLen", EvtDetectDeltaLen);
  take("EvtRDetectDeltaLen", EvtRDetectDeltaLen);
  take("AutoLT", AutoLT);
  take("AutoRT", AutoRT);
  take("AutoCT", AutoCT);
  take("AutoET", AutoET);
  take("NoLinkDistance", NoLinkDistance);
  take("NoLinkDeltaDB", NoLinkDeltaDB);
  take("EventRT", EventRT);
  double correctMarkers = CorrectMarkers ? 1.0 : 0.0;
  take("CorrectMarkers", correctMarkers);
  CorrectMarkers = correctMarkers != 0.0;
  take("EvtChangeLT", EvtChangeLT);
  take("EvtChangeET", EvtChangeET);
  take("EvtChangeCT", EvtChangeCT);
}

namespace reflyze {

void SetSetting(TSorBlockRFTSParameters& block, const std::string& name, double value) {
  if (TRFTSUniversalParameter* before = block.GetUParameter(TString(name.c_str()))) {
    before->SetValue(value);
  } else {
    block.AddUParameter(new TRFTSUniversalParameter(name.c_str(), value));
  }
}

}  // namespace reflyze
