// SPDX-License-Identifier: Apache-2.0
#include "sor/sorData.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <iterator>
#include <memory>

#include "sor/scale/sorMath.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::TruncToInt;
using reflyze::TruncToLong;

namespace {

// Times of a broken file may lie anywhere. Where their sum does not fit into 32 bits it wraps, as it always
// has.
int WrappedSum(int a, int b) {
  return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b));
}

template <class Block>
void Destroy(Block*& block) {
  delete block;
  block = nullptr;
}

}  // namespace

// --- Lifecycle ---

TSorData::TSorData() {
  try {
    Init();
  } catch (...) {
    Clear();
    throw;
  }
}

TSorData::~TSorData() { Clear(); }

void TSorData::Init() {
  Clear();
  WriteSpecialBlocks = 1;
  WriteProprietaryBlocks = 1;
  Revision = 200;
  Map = new TSorBlockMap();
  GenParams = new TSorBlockGeneralParameters();
  SupParams = new TSorBlockSupplierParameters();
  FxdParams = new TSorBlockFixedParameters();
  KeyEvents = new TSorBlockKeyEvents();
  LnkParams = new TSorBlockLinkParameters();
  DataPts = new TSorBlockDataPoints();
  Cksum = new TSorBlockCRC();
  RFTSParams = new TSorBlockRFTSParameters();
  RFTSEvents = new TSorBlockRFTSEvents();
  EmbData = new TSorBlockEmbData();
  QRTEvents = new TSorBlockQRTEvents();
  QRTParams = new TSorBlockQRTParameters();
  Special = new TSorBlockSpecial*[1]();
  std::fill(std::begin(Reserved), std::end(Reserved), 0);
  OriginFlag = 1;
  MinLevel = kUncalculatedDb;
  MaxLevel = 0.0;
}

void TSorData::Clear() {
  Destroy(Map);
  Destroy(GenParams);
  Destroy(SupParams);
  Destroy(FxdParams);
  Destroy(KeyEvents);
  Destroy(LnkParams);
  Destroy(DataPts);
  Destroy(DataPtsBackup);
  Destroy(Cksum);
  Destroy(RFTSParams);
  Destroy(RFTSEvents);
  Destroy(EmbData);
  Destroy(QRTEvents);
  Destroy(QRTParams);
  for (int i = 0; i < SpecialCount; ++i) delete Special[i];
  SpecialCount = 0;
  delete[] Special;
  Special = nullptr;
}

void TSorData::Assign(const TSorData& other) {
  if (this == &other) return;
  Init();
  Revision = other.Revision;
  Map->Assign(*other.Map);
  GenParams->Assign(*other.GenParams);
  SupParams->Assign(*other.SupParams);
  FxdParams->Assign(*other.FxdParams);
  KeyEvents->Assign(*other.KeyEvents);
  LnkParams->Assign(*other.LnkParams);
  DataPts->Assign(*other.DataPts);
  if (other.DataPtsBackup != nullptr) {
    DataPtsBackup = new TSorBlockDataPoints();
    DataPtsBackup->Assign(*other.DataPtsBackup);
  }
  RFTSParams->Assign(*other.RFTSParams);
  RFTSEvents->Assign(*other.RFTSEvents);
  EmbData->Assign(*other.EmbData);
  QRTParams->Assign(*other.QRTParams);
  QRTEvents->Assign(*other.QRTEvents);
  Cksum->Assign(*other.Cksum);
  CopySpecial(other);
  MinLevel = other.MinLevel;
  MaxLevel = other.MaxLevel;
  std::copy(std::begin(other.Reserved), std::end(other.Reserved), std::begin(Reserved));
  OriginFlag = other.OriginFlag;
}

void TSorData::CopySpecial(const TSorData& other) {
  if (other.SpecialCount <= 0) return;
  MakeRoomForSpecial(other.SpecialCount);
  for (int i = 0; i < other.SpecialCount; ++i) {
    Special[SpecialCount++] = new TSorBlockSpecial(*other.Special[i]);
  }
}

// Room for that many unknown blocks in a record that has none yet.
void TSorData::MakeRoomForSpecial(int count) {
  auto** room = new TSorBlockSpecial*[static_cast<size_t>(count)]();
  delete[] Special;
  Special = room;
}

void TSorData::AssignData(const TSorData& other) {
  QRTParams->Assign(*other.QRTParams);
  DataPts->Assign(*other.DataPts);
  FxdParams->Assign(*other.FxdParams);
}

void TSorData::AssignInfo(const TSorData& other, int withModuleSerial) {
  const TSorBlockGeneralParameters& info = *other.GenParams;
  GenParams->CID = info.CID;
  GenParams->FID = info.FID;
  GenParams->FT = info.FT;
  GenParams->OL = info.OL;
  GenParams->TL = info.TL;
  GenParams->CCD = info.CCD;
  GenParams->CDF = info.CDF;
  GenParams->UO = info.UO;
  GenParams->OP = info.OP;
  GenParams->CMT = info.CMT;
  FxdParams->TT = other.FxdParams->TT;
  if (withModuleSerial != 0) SupParams->OMSN = other.SupParams->OMSN;
}

void TSorData::Damp(FILE* f, int noData) const {
  const auto damp = [f](const TSorBlock* block) {
    block->Damp(f);
    std::fflush(f);
  };
  damp(Map);
  damp(GenParams);
  damp(SupParams);
  damp(FxdParams);
  damp(KeyEvents);
  damp(LnkParams);
  damp(RFTSParams);
  damp(RFTSEvents);
  damp(EmbData);
  damp(QRTEvents);
  damp(QRTParams);
  if (noData != 0) return;
  damp(DataPts);
  for (int i = 0; i < SpecialCount; ++i) Special[i]->Damp(f);
  damp(Cksum);
}

// --- Point, time, length, level ---

long TSorData::OwtToNearestNum(double owt) const {
  const long nearest = TruncToLong(OwtTofNum(owt) + 0.5);
  return std::min(std::max(nearest, 0L), DataPts->GetPointsNum());
}

double TSorData::OwtToLevel(double owt, short interpolate) const {
  if (interpolate == 0) return NumToLevel(OwtToNearestNum(owt));
  const double place = OwtTofNum(owt);
  const long n = TruncToLong(place);
  const double number = static_cast<double>(n);
  return (number + 1 - place) * NumToLevel(n) + (place - number) * NumToLevel(n + 1);
}

double TSorData::LenIntToLevel(int len, int scale) const {
  const double lengthKm = len / static_cast<double>(scale);
  const long n = TruncToLong(LenToNum(lengthKm));
  if (TruncToInt(scale * NumToLen(n) + 0.5) == len) return NumToLevel(n);
  if (TruncToInt(scale * NumToLen(n + 1) + 0.5) == len) return NumToLevel(n + 1);
  return LenToLevel(lengthKm, 1);
}

double TSorData::GetMax(long owt1, long owt2, long& owtOfMax) {
  const long highest = DataPts->GetHighest(OwtToNearestNum(static_cast<double>(owt1)),
                                           OwtToNearestNum(static_cast<double>(owt2)));
  owtOfMax = TruncToLong(NumToOwt(highest));
  return NumToLevel(highest);
}

float TSorData::GetMinMax(long owt1, long owt2, float& min, float& max) const {
  long minIndex, maxIndex;
  return DataPts->GetMinMax(&min, &max, OwtToNearestNum(static_cast<double>(owt1)),
                            OwtToNearestNum(static_cast<double>(owt2)), minIndex, maxIndex);
}

// Some instruments send a pulse in the first stretch that differs from the one they store. Long pulses are as
// stored.
double TSorData::GetRealNsPulse(double owt) const {
  constexpr double kLongestOtherNs = 12000.0;
  const int stretch = FxdParams->NumToNPW(OwtToNearestNum(owt));
  const double storedNs = stretch >= 0 && stretch < FxdParams->TPW ? FxdParams->PWU[stretch] : 0.0;
  if (stretch == 0 && QRTParams->ATP0 != 0 && !(storedNs > kLongestOtherNs)) {
    return SorMathOwtToNs(QRTParams->ATP0);
  }
  return storedNs;
}

double TSorData::GetENOB() {
  constexpr double kLn2 = 0.69314718055994530942;
  if (QRTParams == nullptr) return 0.0;
  const double averages = std::min<int>(QRTParams->NASF, FxdParams->NAV);
  const double signalToNoise = SorMathPow5(QRTParams->SNL / 1000.0 - FxdParams->GetPO());
  return elementary::Log(signalToNoise / std::sqrt(averages)) / kLn2;
}

// --- Embedded data ---

// Descriptions come from files and callers, so the data may be of another kind than the description says, or
// too short. Such data count as absent, so that no reader runs past their end.
void* TSorData::GetEmbData(const char* description) const {
  const TEmbData1E* embedded = EmbData->GetEmbData(description);
  if (embedded == nullptr) return nullptr;
  if (embedded->IsKind(TEmbData1E::kRecord)) return embedded->GetRecord();
  if (embedded->IsKind(TEmbData1E::kRFTSEvents)) return embedded->GetRFTSEvents();
  if (embedded->IsKind(TEmbData1E::kLinearTrace) && !HoldsLinearTrace(*embedded)) return nullptr;
  return embedded->GetData();
}

bool TSorData::HoldsLinearTrace(const TEmbData1E& embedded) const {
  const bool isBytes = embedded.GetRecord() == nullptr && embedded.GetRFTSEvents() == nullptr;
  return isBytes && embedded.DataSize >= DataPts->GetPointsNum() * static_cast<long>(sizeof(float));
}

TEmbData1E* TSorData::GetSavedRFTSEvents(TString level) const {
  for (int i = 0; i < EmbData->GetTNED(); ++i) {
    TEmbData1E* embedded = EmbData->GetEmbData(i);
    if (embedded == nullptr || !embedded->IsKind(TEmbData1E::kRFTSEvents)) continue;
    const TSorBlockRFTSEvents* saved = embedded->GetRFTSEvents();
    if (saved != nullptr && saved->GetLevelName() == level) return embedded;
  }
  return nullptr;
}

void TSorData::SaveRFTSEvents() {
  TEmbData1E* saved = GetSavedRFTSEvents(RFTSEvents->GetLevelName());
  if (saved == nullptr) saved = AddEmbData(TEmbData1E::kRFTSEvents);
  saved->SetData(*RFTSEvents);
}

TEmbData1E* TSorData::AddEmbData(const char* description) {
  auto added = std::make_unique<TEmbData1E>();
  added->SetDescription(description);
  EmbData->AddData(added.get());
  return added.release();
}

int TSorData::LoadRFTSEvents(TString level) {
  const TEmbData1E* embedded = GetSavedRFTSEvents(level);
  if (embedded == nullptr) return 0;
  const TSorBlockRFTSEvents& saved = *embedded->GetRFTSEvents();
  if (saved.GetTNRFTSE() != KeyEvents->TNKE) return 0;
  RFTSEvents->Assign(saved);
  return 1;
}

void TSorData::DeleteSavedRFTSEvents() {
  int i = 0;
  while (i < EmbData->GetTNED()) {
    const TEmbData1E* embedded = EmbData->GetEmbData(i);
    if (embedded != nullptr && embedded->IsKind(TEmbData1E::kRFTSEvents)) {
      EmbData->DeleteData(i);
    } else {
      ++i;
    }
  }
}

// --- After a reading ---

void TSorData::CalculateValues() {
  MinLevel = QRTParams->MAX != 0 ? QRTParams->GetMAX() : DataPts->GetMinLevel();
  MaxLevel = 0.0;
  if (QRTParams->isATP()) {  // degrees
    MinLevel = -60.0;
    MaxLevel = 140.0;
  }
}

void TSorData::FixUserOffset() {
  if (GenParams == nullptr || GenParams->UO >= 0) return;
  // The lowest number has no positive counterpart. Wrapped to itself it would shift the times at every
  // reading.
  const int offset = -std::max(GenParams->UO, -INT_MAX);
  GenParams->UO = offset;
  const auto shift = [offset](int& time) { time = WrappedSum(time, offset); };
  for (int i = 0; i < KeyEvents->ListedEvents(); ++i) {
    TSorBlockKeyEvents1E& event = KeyEvents->EventAt(i);
    for (int* time : {&event.EPT, &event.ML0, &event.ML1, &event.ML2, &event.ML3, &event.ML4}) shift(*time);
  }
  for (int i = 0; i < QRTEvents->ListedEvents(); ++i) {
    TSorBlockQRTEvents1E& event = QRTEvents->EventAt(i);
    for (int* time : {&event.ML0, &event.ML1, &event.ML2}) shift(*time);
  }
  for (int i = 0; i < LnkParams->ListedLandmarks(); ++i) shift(LnkParams->LandmarkAt(i).LML);
}

void TSorData::FixScaleFactor() {
  constexpr short kWrong = 100;
  constexpr short kRight = 10000;
  if (GetDataType() == dtTC && DataPts->GetPointsSubBlockScaleFactor(0) == kWrong) {
    DataPts->SetPointsSubBlockScaleFactor(0, kRight);
  }
}

void TSorData::FixNFScaleFactor() {
  constexpr short kWrong = 100;
  constexpr short kRight = 10000;
  if (FxdParams->GetNFSF() == kWrong && QRTParams->ATP0 != 0) FxdParams->SetNFSF(kRight);
}

void TSorData::UpdateChildrenWithNewDataType() {
  if (DataPts != nullptr) DataPts->SetDataType(GetDataType());
}

// Without a floor of the scale linear values would count from 0 dB, the top of the trace.
void TSorData::SettleFloorOfScale() {
  if (QRTParams->MAX == 0) QRTParams->SetMAX(static_cast<float>(DataPts->GetMinLevel()));
}

long TSorData::SetLinf() {
  if (GetDataType() == dtTC) return 0;
  TEmbData1E* linf = EmbData->GetEmbData(TEmbData1E::kLinearTrace);
  SettleFloorOfScale();
  if (linf == nullptr) linf = AddEmbData(TEmbData1E::kLinearTrace);
  linf->SetWritable(false);
  const long points = DataPts->GetPointsNum();
  linf->SetData(points * static_cast<long>(sizeof(float)));
  float* values = static_cast<float*>(linf->GetData());
  const reflyze::LevelView levels = DataPts->Levels();
  const reflyze::LinearScale scale = QRTParams->ToLinear();
  for (long i = 0; i < points; ++i) values[i] = static_cast<float>(scale.LinOf(levels[i]));
  return points;
}

bool TSorData::LinfToPoints() {
  const TEmbData1E* linf = EmbData->GetEmbData(TEmbData1E::kLinearTrace);
  if (linf == nullptr || !HoldsLinearTrace(*linf)) return false;
  QRTParams->LinfToLog(static_cast<float*>(linf->GetData()), *DataPts);
  return true;
}
