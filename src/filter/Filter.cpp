// SPDX-License-Identifier: Apache-2.0
#include "src/filter/Filter.h"

#include <algorithm>
#include <limits>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/RecordFigures.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::Index;
using reflyze::TruncToInt;

namespace {

// A record counts the coefficients of its kernel in 16 bits, and has no use for a longer one.
constexpr int kMostCoefficients = std::numeric_limits<short>::max();

// Multiplications that all passes of the kernel over a trace may take together: a minute of work, a hundred
// times what the longest trace asks for. A broken record may ask for years.
constexpr double kMostKernelSteps = 5e10;

// A record without light gives ratios that have no logarithm: the smallest ratio there is stands for them.
double RatioWithLogarithm(double ratio) { return ratio > 0.0 ? ratio : std::numeric_limits<double>::min(); }

}  // namespace

// --- Kernel ---

TFilter::TFilter(int k) { SetK(k); }

void TFilter::SetK(int k) {
  constexpr double kFall = -2.07944154168;  // -ln 8, from one end of the kernel to the other
  K = k <= 1 ? 0 : std::min(k, kMostCoefficients);
  kernel.assign(Index(K), 0.0);
  double sum = 0.0;
  for (int i = 0; i < K; ++i) {
    kernel[Index(i)] = elementary::Exp((i + 1) * (kFall / K));
    sum += kernel[Index(i)];
  }
  for (double& coefficient : kernel) coefficient /= sum;
}

// The signal stands at 1 before it falls. The array is filtered in place, so that what the kernel takes from
// before the present sample is its own output: the ratio that comes out is the fall of that loop and not `q`.
double TFilter::DbP(double q) const {
  if (K == 0) return 0.0;
  const int n = 5 * K;
  std::vector<double> p(Index(n));
  p[0] = 1.0;
  for (int i = 1; i < n; ++i) p[Index(i)] = p[Index(i - 1)] * q;
  for (int i = 0; i < K; ++i) {
    double sum = 0.0;
    for (int j = i + 1; j < K; ++j) sum += kernel[Index(j)];
    for (int j = 0; j < i; ++j) sum += kernel[Index(j)] * p[Index(i - j)];
    p[Index(i)] = sum;
  }
  for (int i = K; i < n; ++i) {
    double sum = 0.0;
    for (int j = 0; j < K; ++j) sum += kernel[Index(j)] * p[Index(i - j)];
    p[Index(i)] = sum;
  }
  return p[Index(n - 1)] / p[Index(n - 2)];
}

// --- Binding ---

TSorFilter::TSorFilter(TSorData* sor) : TFilter(0) { SetSorData(sor); }

void TSorFilter::SetSorData(TSorData* sor) {
  if (sor == nullptr) return;
  pSorData = sor;
  Linf = RefEmbGetLinf(sor);
  owtDS = static_cast<float>(sor->FxdParams->GetOwtDS(0));
  dbOnOwt = static_cast<float>(reflyze::SettleReceiverRate(*sor));
  // An integer's worth of points at most: a record without spacing makes them endless, and windows are summed
  // up from them.
  const double pulseOwt = sor->FxdParams->GetOwtPulse(0);
  pulsePoints = std::max(TruncToInt(pulseOwt / owtDS + 0.5), 1);
  pulseFallPoints = std::max(TruncToInt((pulseOwt + dbOnOwt) / owtDS + 0.5), 1);
}

reflyze::HeldSamples TSorFilter::HeldLinf() const {
  return reflyze::HeldSamples(Linf, pSorData == nullptr ? 0 : pSorData->DataPts->GetPointsNum());
}

// --- Kernel and record ---

double TSorFilter::CalcFPin(double e) const {
  if (pSorData == nullptr) return 0.0;
  constexpr double kMorePoints = 10.5;
  const TSorBlockFixedParameters& fixed = *pSorData->FxdParams;
  return elementary::Power(fixed.GetOwtPulse(0) / fixed.GetOwtDS(0) + kMorePoints, e);
}

void TSorFilter::SetLvlK(double e) {
  constexpr double kRoundUp = 0.75;
  SetK(TruncToInt(CalcFPin(e) + kRoundUp));
}

double TSorFilter::GetFLevel() const {
  if (pSorData == nullptr) return 0.0;
  const TSorBlockQRTParameters& params = *pSorData->QRTParams;
  // A count below 0, as a broken file may hold, stands for no kernel.
  if (params.TMC <= 0 || !params.isFilter()) return 0.0;
  return elementary::Log(static_cast<double>(params.TMC)) / elementary::Log(CalcFPin(1.0));
}

void TSorFilter::SetSorMC(TSorData* sor) const {
  if (sor == nullptr) return;
  sor->QRTParams->SetTMC(static_cast<short>(K));
  for (int i = 0; i < K; ++i) sor->QRTParams->SetMC(kernel[Index(i)], i);
}

void TSorFilter::GetSorMC(TSorData* sor) {
  if (sor == nullptr) return;
  SetK(sor->QRTParams->TMC);
  for (int i = 0; i < K; ++i) kernel[Index(i)] = sor->QRTParams->GetMC(i);
}

double TSorFilter::GetDbOnOwt(TSorData* sor) const {
  if (sor == nullptr) sor = pSorData;
  if (sor == nullptr) return 0.0;
  const double spacingOwt = sor->FxdParams->GetOwtDS(0);
  const double ratio = DbP(elementary::Exp10(-reflyze::SettleReceiverRate(*sor) * spacingOwt / 5.0));
  return -5.0 * elementary::Log10(RatioWithLogarithm(ratio)) / spacingOwt;
}

int TSorFilter::IncLevelF(int apply) {
  constexpr double kLevels[] = {0.0, 0.5, 0.8};
  constexpr int kLastLevel = 2;
  if (pSorData == nullptr) return 0;
  const double level = GetFLevel();
  int index = 0;
  while (index < kLastLevel && !((kLevels[index] + kLevels[index + 1]) / 2 > level)) ++index;
  if (apply == 0) return index;
  index = (index + 1) % (kLastLevel + 1);
  pSorData->QRTParams->SetFilterLevel(1.0, 0);
  SetLvlK(kLevels[index]);
  SetSorMC(pSorData);
  SetFilter(kLevels[index] > 0.0 ? 1 : 0);
  return index;
}

// The first point has nothing before it and stays as it is; the ring that stands for the past is filled with
// it.
void TSorFilter::Filter(TSorData* sor) {
  if (sor == nullptr) sor = pSorData;
  if (sor == nullptr) return;
  if (sor->QRTParams->TMC != 0) GetSorMC(sor);
  if (K == 0) return;
  const long points = sor->DataPts->GetPointsNum();
  const double mostPasses = std::max(kMostKernelSteps / (static_cast<double>(K) * points), 1.0);
  const double passes = std::min(sor->QRTParams->GetFilterLevel(), mostPasses);
  std::vector<double> ring(Index(K));
  for (int pass = 0; pass < passes; ++pass) {
    std::fill(ring.begin(), ring.end(), sor->NumToLinLevel(0));
    for (long i = 1; i < points; ++i) {
      ring[Index(i % K)] = sor->NumToLinLevel(i);
      double lin = 0.0;
      for (int j = 0; j < K; ++j) lin += ring[Index((i - j + K) % K)] * kernel[Index(j)];
      sor->DataPts->SetLevel(i, sor->QRTParams->LinToLog5(lin));
    }
  }
  SetSorMC(sor);
}

// --- Control ---

namespace {

constexpr double kTempStrength = 0.5;
constexpr int kErased = 1;  // state of the filter story in which the filtered levels are final

// How wide the automatic filter may average: what the first figures say, widened for coarse and for very long
// traces, and narrowed by a user who asks for less than the full filter.
constexpr double kCoarseSpacingNs = 90.0;
constexpr int kCoarseAutoLevel = 8;
constexpr double kLongRangeKm = 160.0;
constexpr int kLongPulseNs = 10000;
constexpr int kLongRangeAutoLevel = 9;
constexpr double kFullFilterLevel = 1.01;

// A trace of a long range is measured with so much averaging that the zero of the receiver shows in it.
bool NeedsZeroCorrection(TSorData& sor) {
  return sor.QRTParams->ZeroCorrected == 0 && sor.OwtToLen(sor.FxdParams->AR) > kLongRangeKm &&
         TruncToInt(sor.FxdParams->GetNsPulse(0)) > kLongPulseNs;
}

}  // namespace

void TSorFilter::SetFilter(int kind) {
  if (pSorData == nullptr) return;
  if (kind == kAsFlagged) kind = pSorData->QRTParams->isFilter() ? 1 : 0;
  if (pSorData->QRTParams->DataPointsFiltered == kErased) return;
  BackupRestoreDataPointsBeforeFilterApply(kind);
  switch (kind) {
    case kUnfiltered:
      break;
    case kFTTFilter:
      FTTFilter(pSorData);
      break;
    case kTempFilter:
      TempFilter(pSorData, nullptr, kTempStrength);
      break;
    case kAutoFilter:
      PrepareAutoFilter();
      result.count = AutoFilter(pSorData, result.events, result.pointMap);
      break;
    default:
      Filter(pSorData);
  }
  pSorData->QRTParams->SetFlagFilter(kind);
}

void TSorFilter::PrepareAutoFilter() {
  const TSorBlockFixedParameters& fixed = *pSorData->FxdParams;
  if (Linf == nullptr) {
    reflyze::SettleNoiseFloor(*pSorData);
    pSorData->SetLinf();
    Linf = RefEmbGetLinf(pSorData);
  }
  if (fixed.GetDS(0) > kCoarseSpacingNs) autoLevel = kCoarseAutoLevel;
  if (NeedsZeroCorrection(*pSorData)) {
    ZeroCorrect(pSorData);
    pSorData->QRTParams->ZeroCorrected = 1;
    autoLevel = kLongRangeAutoLevel;
  }
  const double filterLevel = pSorData->QRTParams->GetFilterLevel();
  if (filterLevel < kFullFilterLevel) {
    // A doubling less for each tenth of the level.
    autoLevel += TruncToInt(filterLevel * 10.0 - 10.0);
  }
}

void TSorFilter::BackupRestoreDataPointsBeforeFilterApply(int kind) {
  if (pSorData == nullptr || kind < 0) return;
  TSorBlockDataPoints*& backup = pSorData->DataPtsBackup;
  if (kind == 0) {
    if (backup == nullptr) return;
    *pSorData->DataPts = *backup;
    delete backup;
    backup = nullptr;
  } else if (backup == nullptr) {
    backup = new TSorBlockDataPoints(*pSorData->DataPts);
  } else if (!pSorData->QRTParams->isFilter()) {
    *backup = *pSorData->DataPts;
  }
  // The linear trace counts for nothing where it is shorter than the points that are now in place.
  Linf = RefEmbGetLinf(pSorData);
}

void TSorFilter::SwitchDataPointsBlocks() {
  if (pSorData == nullptr || pSorData->DataPtsBackup == nullptr) return;
  std::swap(pSorData->DataPts, pSorData->DataPtsBackup);
  Linf = RefEmbGetLinf(pSorData);
}

void TSorFilter::EraseFilterStory() {
  if (pSorData == nullptr) return;
  TSorBlockQRTParameters& params = *pSorData->QRTParams;
  if (params.DataPointsFiltered == kErased || !params.isFilter() || pSorData->DataPtsBackup == nullptr)
    return;
  delete pSorData->DataPtsBackup;
  pSorData->DataPtsBackup = nullptr;
  params.DataPointsFiltered = kErased;
  params.SetFlagFilter(0);
}
