// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorIParm.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "sor/fields/sorDamp.h"
#include "sor/stream/sorFile.h"
#include "util/elementary.h"
#include "util/timeutil.h"

namespace elementary = reflyze::elementary;
using reflyze::TruncToShort;
using reflyze::TruncToUShort;

TSorBlockQRTParameters::TSorBlockQRTParameters() : LDTS(static_cast<int>(GetLocalTimeStamp())) {
  RevisionNo = kNewestRevisionNo;
  ID = GetBlockID(btQRTParameters);
  SpanBegin.type = TSpanLocationInfo::kBegin;
  SpanEnd.type = TSpanLocationInfo::kEnd;
}

void TSorBlockQRTParameters::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockQRTParameters*>(&other)) Assign(*same);
}

void TSorBlockQRTParameters::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockQRTParameters::Write(TSorFile* file) {
  if (file == nullptr) return;
  reflyze::FieldWriter writer(*file, RevisionNo, kNewestRevisionNo);
  Fields(static_cast<const TSorBlockQRTParameters&>(*this), writer);
}

void TSorBlockQRTParameters::Damp(FILE* out) const {
  reflyze::DumpRuledHeading(out, GetBlockID(btQRTParameters));
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// --- Counts and their arrays ---

namespace {

// New entries in place of the old ones.
template <class Array>
void Renew(Array& array, int n) {
  array = Array(static_cast<size_t>(std::max(n, 0)));
}

}  // namespace

void TSorBlockQRTParameters::SetTGI(short n) {
  TGI = n;
  Renew(GIU, n);
  Renew(NPGI, n);
}

void TSorBlockQRTParameters::SetTVL(short n) {
  TVL = n;
  Renew(TypeEvent, n);
  Renew(PosInPoint, n);
}

void TSorBlockQRTParameters::SetTMC(short n) {
  TMC = n;
  Renew(MC, n);
}

void TSorBlockQRTParameters::SetTNL(unsigned short n) {
  TNL = n;
  Renew(NAVR, n);
  Renew(SNR, n);
}

void TSorBlockQRTParameters::SetTNWL(unsigned short n) {
  TNWL = n;
  Renew(Paths, n);
}

void TSorBlockQRTParameters::ReNewMM(short n) {
  TMM = n;
  Renew(modes, n);
}

// --- Associated files ---

namespace {

constexpr int kSincePaths = 205;
constexpr int kSinceWidePaths = 207;

// Passes over a text of 16-bit characters and the zero that ends it.
void SkipWideText(TSorFile& file) {
  unsigned short character = 0;
  do {
    character = 0;
    file.Read(character);
  } while (character != 0 && file.state == sfOk);
}

}  // namespace

void TSorBlockQRTParameters::SkipAssociatedFilesPathsIfRequired(TSorFile* file) {
  if (file == nullptr || RevisionNo < kSincePaths) return;
  unsigned short paths = 0;
  file->Read(paths);
  SetTNWL(0);
  TString dropped;
  for (int i = 0; i < paths && file->state == sfOk; ++i) {
    if (RevisionNo < kSinceWidePaths) {
      file->Read(dropped);
    } else {
      SkipWideText(*file);
    }
  }
}

void TSorBlockQRTParameters::ReadAssociatedFilesPathsIfRequired(TSorFile* file) {
  if (file == nullptr || RevisionNo < kSincePaths) return;
  unsigned short paths = 0;
  file->Read(paths);
  SetTNWL(paths);
  for (TString& path : Paths) {
    if (file->state != sfOk) break;
    if (RevisionNo < kSinceWidePaths) {
      file->Read(path);
    } else {
      file->SkipUtf16String();
    }
  }
}

// --- What follows from a field that was read ---

// The field counts in tenths of a level. No filter is stronger than level 10: a number beyond it is a mistake
// and is taken for the plain filter, level 1.
void TSorBlockQRTParameters::OnFLevelRead() {
  constexpr short kStrongest = 100;
  constexpr short kFull = 10;
  if (FLevel > kStrongest) FLevel = kFull;
}

// The old form only says whether there are splitters, and how many outputs they have.
void TSorBlockQRTParameters::OnOldPonRead() {
  PonType = Pon.PonEnabled != 0 ? 1 : 0;
  FirstSplitterRatio = Pon.PonSplitter;
  SecondSplitterRatio = Pon.PonRecordVersion < 2 ? 1 : Pon.PonSplitter;
}

void TSorBlockQRTParameters::OnNewPonRead() {
  Pon.PonEnabled = PonType != 0;
  Pon.PonRecordVersion = FirstSplitterRatio > 1 && SecondSplitterRatio > 1 ? 2 : 1;
  Pon.PonSplitter = std::max(FirstSplitterRatio, SecondSplitterRatio);
}

// --- Values on their scales ---

DataType TSorBlockQRTParameters::GetDataType() const {
  if (TYP.Find("RL", 0) >= 0) return dtRL;
  if (TYP.Find("AS", 0) >= 0) return dtAS;
  if (TYP.Find("TC", 0) >= 0) return dtTC;
  return dtRL;
}

void TSorBlockQRTParameters::SetCT(double v) { CT = TruncToUShort(v * 1000.0 + 0.5); }

double TSorBlockQRTParameters::GetMC(int i) const {
  if (i < 0 || i >= reflyze::Listed(TMC, MC)) return 0.0;
  return MC[static_cast<size_t>(i)] * 0.0001;
}

void TSorBlockQRTParameters::SetMC(double v, int i) {
  if (i < 0 || i >= reflyze::Listed(TMC, MC)) return;
  MC[static_cast<size_t>(i)] = TruncToShort(v * 10000.0);
}

void TSorBlockQRTParameters::SetSQO(double a, double b) {
  SQO0 = TruncToUShort(a * 100.0 + 0.5);
  SQO1 = TruncToUShort(b * 100.0 + 0.5);
}

void TSorBlockQRTParameters::SetFlagVL(int v) { VLFL = reflyze::SignedLowBits16(v); }

double TSorBlockQRTParameters::GetSW(int i) const {
  if (i == 1) return std::abs(static_cast<int>(SW1)) * 0.001;
  if (i == 2) return std::abs(static_cast<int>(SW2)) * 0.001;
  return GetSW(1) + GetSW(2);
}

// Half a unit is added whatever the sign, so a negative value is stored a unit nearer to zero. The numbers 0
// and 3 set the fields that stand before and behind the two on file, LaserAtt and Reserved1: hosts may rely
// on it. All other numbers set nothing.
void TSorBlockQRTParameters::SetSW(int i, double v) {
  const short raw = TruncToShort(v * 1000.0 + 0.5);
  if (i == 0) LaserAtt = raw;
  if (i == 1) SW1 = raw;
  if (i == 2) SW2 = raw;
  if (i == 3) Reserved1 = static_cast<unsigned short>(raw);
}

int TSorBlockQRTParameters::GetSWdM() const {
  if (SW1 < 0) return 1;
  return SW2 < 0 ? 2 : 0;
}

int TSorBlockQRTParameters::GetSWdG() const {
  if (SW1 > 0) return 1;
  return SW2 > 0 ? 2 : 0;
}

// From this revision on the sign tells which of the two ways is dM and which is dG. Before, the first was dM
// and the second dG.
namespace {
constexpr int kSinceSignedSwitch = 229;
}

double TSorBlockQRTParameters::GetdM() const {
  return GetSW(RevisionNo < kSinceSignedSwitch ? 1 : GetSWdM());
}

double TSorBlockQRTParameters::GetdG() const {
  return GetSW(RevisionNo < kSinceSignedSwitch ? 2 : GetSWdG());
}

double TSorBlockQRTParameters::GetFilterLevel() const {
  if (FLevel != 0) return FLevel * 0.1;
  return 1 + (IsFlag(kFilterLevelFull) ? 2 : 0) + (IsFlag(kFilterLevelHalf) ? 1 : 0);
}

// The level is stored twice: exactly, and roughly in the two flags, which older readers know.
void TSorBlockQRTParameters::SetFilterLevel(double v, int dynamic) {
  SetFlag(kDynFilter, dynamic);
  FLevel = TruncToShort(v * 10.0 + 0.5);
  SetFlag(kFilterLevelFull, v >= 1.5);
  SetFlag(kFilterLevelHalf, v >= 0.9 && v < 1.5);
}

// A factor below 3 is stored as it is, in units of 0.0001. A greater one is stored as its logarithm, and the
// top bit says so.
namespace {
constexpr int kLogarithmBit = 0x8000;
constexpr double kLogarithmFrom = 3.0;
constexpr double kLfPerDecade = 5000.0;
}  // namespace

double TSorBlockQRTParameters::GetLF() const {
  if ((LF & kLogarithmBit) != 0) return elementary::Exp10((LF & ~kLogarithmBit) / kLfPerDecade);
  return LF * 0.0001;
}

void TSorBlockQRTParameters::SetLF(double v) {
  if (v >= kLogarithmFrom) {
    const int logarithm =
        std::min<int>(TruncToUShort(elementary::Log10(v) * kLfPerDecade + 0.5), kLogarithmBit - 1);
    LF = static_cast<unsigned short>(logarithm | kLogarithmBit);
  } else {
    LF = TruncToUShort(v * 10000.0 + 0.5);
  }
}
