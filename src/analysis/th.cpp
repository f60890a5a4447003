// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/th.h"

#include "sor/sorData.h"

#include <cstdio>
#include <string>

#include "util/convert.h"
#include "util/tinifile.h"

namespace {

constexpr const char* kDefaultSection = "NON";

bool ModeIs(const char* mode, char wanted) { return mode != nullptr && mode[0] == wanted; }

}  // namespace

// --- TTH ---

TTH::TTH(const char* iniPath) : path(iniPath != nullptr ? iniPath : "ThresH.ini") {}

void TTH::Reset() {
  // The defaults stand in one place, at the members.
  const TString kept = path;
  *this = TTH();
  path = kept;
}

void TTH::ReadSectionTH(TIniSection* section) {
  if (section == nullptr) return;
  THLoss = section->GetDouble("THLoss", THLoss);
  THRef = section->GetDouble("THRef", THRef);
  THEnd = section->GetDouble("THEnd", THEnd);
  THEndPON = section->GetDouble("THEndPON", THEndPON);
  Event = section->GetDouble("Event", Event);
  dBkm = section->GetDouble("dBkm", dBkm);
  polar = section->GetDouble("polar", polar);
  RefSat = section->GetDouble("RefSat", RefSat);
  MinPin = section->GetInt("MinPin", MinPin, true);
}

void TTH::WriteSectionTH(TIniSection* section) {
  if (section == nullptr) return;
  section->SetDouble("THLoss", THLoss);
  section->SetDouble("THRef", THRef);
  section->SetDouble("THEnd", THEnd);
  section->SetDouble("THEndPON", THEndPON);
  section->SetDouble("Event", Event);
  section->SetDouble("dBkm", dBkm);
  section->SetDouble("polar", polar);
  section->SetDouble("RefSat", RefSat);
  section->SetInt("MinPin", MinPin);
}

bool TTH::HasSection(const char* section) const {
  TIni ini(path.c_str());
  if (ini.Read(nullptr) != 0) return false;
  int index = 0;
  return ini.FindSection(section, index) != nullptr;
}

int TTH::IniTH(const char* section, const char* mode) {
  TIni ini(path.c_str());
  const int readStatus = ini.Read(nullptr);
  TIniSection* thresholds = ini.FindOrCreateSection(section);
  if (ModeIs(mode, 'r')) {
    if (readStatus != 0) return 0;
    ReadSectionTH(thresholds);
  }
  if (ModeIs(mode, 'w')) {
    WriteSectionTH(thresholds);
    if (ini.Write(nullptr) != 0) return 0;
  }
  return 1;
}

int TTH::IniTH(const char* mode) { return IniTH(kDefaultSection, mode); }

// --- TdTH ---

TdTH::TdTH(const char* iniPath) : path(iniPath != nullptr ? iniPath : "Monitor.ini") {}

void TdTH::ReadSectionTH(TIniSection* section) {
  if (section == nullptr) return;
  dTHLoss = section->GetDouble("dTHLoss", dTHLoss);
  dTHRef = section->GetDouble("dTHRef", dTHRef);
  dBkmDelta = section->GetDouble("d(dBkm)", dBkmDelta);
}

void TdTH::WriteSectionTH(TIniSection* section) {
  if (section == nullptr) return;
  section->SetDouble("dTHLoss", dTHLoss);
  section->SetDouble("dTHRef", dTHRef);
  section->SetDouble("d(dBkm)", dBkmDelta);
}

int TdTH::IniTH(const char* section, const char* mode) {
  TIni ini(path.c_str());
  const int readStatus = ini.Read(nullptr);
  TIniSection* changes = ini.FindOrCreateSection(section);
  if (ModeIs(mode, 'r')) {
    if (readStatus != 0) return 0;
    ReadSectionTH(changes);
  }
  if (ModeIs(mode, 'w')) {
    WriteSectionTH(changes);
    return ini.Write(nullptr);
  }
  return 1;
}

int TdTH::IniTH(const char* mode) { return IniTH(kDefaultSection, mode); }

// --- TEventPoint ---

void TEventPoint::SetIni(TIniSection* section, int index) {
  constexpr double kDecimals = 1000.0;
  EventPointAccuracy = static_cast<double>(reflyze::TruncToLong(EventPointAccuracy * kDecimals)) / kDecimals;
  EventPointValue = static_cast<double>(reflyze::TruncToLong(EventPointValue * kDecimals)) / kDecimals;
  if (section == nullptr) return;

  const std::string key = index < 0 ? "Ev" : "Ev" + std::to_string(index);
  char value[96];  // 64 bits of thousandths take at most 21 characters
  std::snprintf(value, sizeof value, "%c %6.3lf(%.3lf)", EventPointType, EventPointAccuracy, EventPointValue);
  section->SetString(key.c_str(), value);
}

void TEventPoint::GetIni(TIniSection*) {}

void TEventPoint::Assign(TEventPoint* other) {
  if (other != nullptr) *this = *other;
}

void TTH::Take(const TSorData& trace) {
  THLoss = trace.FxdParams->GetLT();
  THRef = trace.FxdParams->GetRT();
  THEnd = trace.FxdParams->GetET();
  dBkm = trace.QRTParams->GetCT();
}
