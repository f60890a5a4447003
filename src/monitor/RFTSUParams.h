// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

class TSorBlockRFTSParameters;
class TSorData;

// The numbers that tune the comparison of a trace with its baseline. A baseline carries those that differ
// from the defaults as universal parameters of its monitoring parameters, under the names that the members
// have here.
struct TRFTSUParams {
  double EvtDetectDeltaCT = 0.01;   // dB/km, difference of slopes from which a new event is possible
  double EvtSearchStep = 8.0;       // km, stretch over which slopes are compared
  double EvtDetectDeltaLen = 0.0;   // km by which the places of one event may differ
  double EvtRDetectDeltaLen = 0.0;  // the same for a reflective event
  double AutoLT = 0.1;              // dB, loss threshold of the search for new events
  double AutoRT = -65.0;            // dB, its reflectance threshold
  double AutoCT = 0.25;             // dB/km, its slope threshold
  double AutoET = 6.0;              // dB, its end threshold
  double NoLinkDistance = 0.0;      // km, where the fibre is recognised by its level
  double NoLinkDeltaDB = 1.0;       // dB by which the levels there may differ, included
  double EventRT = 1.0;             // dB, height above which an event counts as reflective
  bool CorrectMarkers = true;       // whether the neighbours of a new event make room for it
  double EvtChangeLT = 1.0;         // dB, change of loss from which the fibre may end at an event
  double EvtChangeET = 1.0;         // dB, the same for the loss at the end of the fibre
  double EvtChangeCT = 0.5;         // dB/km, the same for the attenuation beside an event

  // Defaults, the lengths among them as the baseline's acquisition asks for them, and over them what the
  // baseline carries, whether or not it says that its parameters are in use.
  void Take(const TSorData& base);
};

// Default of a setting that depends on the acquisition, in km: "EvtDetectDeltaLen", "EvtRDetectDeltaLen" or
// "NoLinkDistance". 1, or 0 with `value` untouched for any other name and for a null record.
int RFTSUParamsGetDefaultValue(double* value, const char* name, const TSorData* sor);

namespace reflyze {

// Gives a setting of comparisons its value, in place of the one that it may have.
void SetSetting(TSorBlockRFTSParameters& block, const std::string& name, double value);

}  // namespace reflyze
