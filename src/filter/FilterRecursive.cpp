// SPDX-License-Identifier: Apache-2.0

// Low passes that feed back their own output: one multiplication a point, whatever the time constant.
//
// On the scale of levels noise is lopsided, it swings further down than up, and a mean of levels lies below
// the mean power. On the linear scale a mean is true, but a single strong sample outweighs all that follow
// it. So smooth stretches are filtered as levels, and what jumps or lies in the noise as linear power.

#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/Filter.h"
#include "src/filter/Optics.h"
#include "src/filter/RecordFigures.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;
using reflyze::Index;
using reflyze::TruncToInt;
using reflyze::TruncToLong;

namespace {

// One point of a low pass that keeps the share `kept` of what it held before.
double Blend(double state, double kept, double sample) { return state * kept + sample * (1.0 - kept); }

// Length in km over which the low passes of a trace forget, for a filter level of 1. A longer pulse is
// smoother by itself and bears a longer one.
double ForgettingKm(const TSorData& sor, double kmPerRootPulse) {
  constexpr double kReferencePulseNs = 20000.0;
  constexpr double kLeastPulseNs = 0.1;  // so that a record without a pulse has a length too
  return std::sqrt((sor.FxdParams->GetNsPulse(0) + kLeastPulseNs) / kReferencePulseNs) * kmPerRootPulse;
}

constexpr double kFilterKm = 0.067;  // at the reference pulse
constexpr double kNoiseKm = 0.18;    // the same in the noise region

// --- FastFilter ---

// Two passes over a trace: one that smooths all of it lightly, one that smooths the noise behind the fibre
// harder. `Run` changes the levels and leaves the linear trace alone.
class TwoStageFilter {
 public:
  TwoStageFilter(TSorData& sor, const float* lin)
      : sor_(sor), lin_(lin), points_(sor.DataPts->GetPointsNum()) {
    const double filterLevel = sor.QRTParams->GetFilterLevel();
    const double spacingKm = sor.FxdParams->LenDS();
    kept_ = elementary::Exp(-spacingKm / (ForgettingKm(sor, kFilterKm) * filterLevel));
    noiseKept_ = elementary::Exp(-spacingKm / (ForgettingKm(sor, kNoiseKm) * filterLevel * filterLevel));
  }

  void Run() {
    // Without a spacing and without a filter level there is no time constant, and nothing to smooth.
    if (std::isnan(kept_) || std::isnan(noiseKept_) || points_ == 0) return;
    if (kept_ > kLeastKept) SmoothAll();
    SmoothNoise();
  }

 private:
  static constexpr double kLeastKept = 0.05;    // below, the filter is shorter than a point
  static constexpr double kSmoothDb = 0.1;      // step from the filtered level up to which a trace is smooth
  static constexpr double kStillNoiseDb = 2.5;  // above the noise floor: still noise
  static constexpr double kTransitionDb = 4.0;  // below that limit the noise filter has its full strength
  static constexpr long kFirstNoisePoint = 10;  // in front of it stands the launch

  // Linear power as the first pass has left it.
  double Lin(long i) const { return smoothed_.empty() ? lin_[i] : smoothed_[Index(i)]; }

  void SmoothAll() {
    smoothed_.assign(Index(points_), 0.0F);
    double levelDb = 0.0, power = lin_[0];
    bool onLinearScale = true;
    for (long i = 1; i < points_; ++i) {
      const float sampleDb = sor_.NumTofLevel(i);
      const double before = smoothed_[Index(i - 1)];
      if (std::fabs(levelDb - sampleDb) < kSmoothDb) {
        onLinearScale = false;
        levelDb = Blend(levelDb, kept_, sampleDb);
        smoothed_[Index(i)] = static_cast<float>(Blend(before, kept_, lin_[i]));
      } else {
        if (!onLinearScale) power = before;
        onLinearScale = true;
        power = Blend(power, kept_, lin_[i]);
        smoothed_[Index(i)] = static_cast<float>(power);
        levelDb = sor_.QRTParams->LinToLog5(power);
      }
      sor_.DataPts->SetfLevel(i, static_cast<float>(levelDb));
    }
  }

  // Each run of points below the limit starts anew from its first point, so that no light from in front of it
  // leaks in.
  void SmoothNoise() {
    const double limitDb = reflyze::SettleNoiseFloor(sor_) + kStillNoiseDb;
    bool inRun = false;
    double levelDb = 0.0, power = 0.0;
    for (long i = kFirstNoisePoint; i < points_; ++i) {
      const float sampleDb = sor_.NumTofLevel(i);
      if (sampleDb >= limitDb) {
        inRun = false;
      } else if (!inRun) {
        inRun = true;
        levelDb = sampleDb;
        power = Lin(i);
      } else {
        power = Blend(power, NoiseKept(levelDb, limitDb), Lin(i));
        levelDb = sor_.QRTParams->LinToLog5(power);
        sor_.DataPts->SetfLevel(i, static_cast<float>(levelDb));
      }
    }
  }

  // Grows with the depth below the limit, from the strength of the first pass to that of the noise.
  double NoiseKept(double levelDb, double limitDb) const {
    if (!(levelDb > limitDb - kTransitionDb)) return noiseKept_;
    const double base = 2.0 * kept_ - 1.0;
    const double depthDb = kTransitionDb / (1.0 - base);
    return std::min((limitDb - levelDb) * noiseKept_ / depthDb + std::max(base, 0.0), noiseKept_);
  }

  TSorData& sor_;
  const float* lin_;
  const long points_;
  double kept_;                  // share of its state that the first pass keeps at each point
  double noiseKept_;             // the same of the second, in full noise
  std::vector<float> smoothed_;  // linear power behind the first pass; empty when there was none
};

}  // namespace

void TSorFilter::FastFilter(TSorData* sor) {
  if (sor == nullptr) return;
  float* lin = RefEmbGetLinf(sor);
  if (sor == pSorData) Linf = lin;
  if (lin == nullptr) return;
  TwoStageFilter(*sor, lin).Run();
}

void TSorFilter::FTTFilter(TSorData* sor) { FastFilter(sor); }

// --- Filters that follow the height above the noise ---

namespace {

// From here on a trace stands so high above its noise that it needs the less smoothing the higher it is.
constexpr double kNeedsNoFilterDb = 12.0;

TSorData* EmbeddedRecord(const TSorData& sor) {
  const TEmbData1E* embedded = sor.EmbData->GetEmbData(TEmbData1E::kRecord);
  return embedded == nullptr ? nullptr : embedded->GetRecord();
}

}  // namespace

// The reference says how high a point stands: it is the same link, measured longer or filtered before.
void TSorFilter::TempFilter(TSorData* sor, TSorData* reference, double k) {
  constexpr double kNsToKm = 0.0001;  // of fibre that a pulse covers one way, about
  if (sor == nullptr) return;
  if (reference == nullptr) reference = EmbeddedRecord(*sor);
  if (reference == nullptr) return;
  const long points = sor->DataPts->GetPointsNum();
  if (reference->DataPts->GetPointsNum() != points) return;

  const double spacingKm = sor->FxdParams->LenDS();
  const long pulse = TruncToInt(sor->FxdParams->GetNsPulse(0) * kNsToKm / spacingKm + 1.5);
  const long start = std::max(pulse / 2, 0L);
  const double noiseDb = sor->QRTParams->GetNoisePeak();
  const double kept = elementary::Exp(spacingKm / (k * -kFilterKm * sor->QRTParams->GetFilterLevel()));
  if (std::isnan(kept)) return;
  double stateDb = sor->NumToLevel(start);
  for (long i = start; i + 1 < points; ++i) {
    const double heightDb = (reference->NumToLevel(i) + reference->NumToLevel(i + 1)) / 2.0 - noiseDb;
    double keptHere = kept;
    if (heightDb > kNeedsNoFilterDb) {
      keptHere =
          std::max(1.0 - (1.0 - kept) * TSorBlockQRTParameters::poww(heightDb - kNeedsNoFilterDb), 0.0);
    }
    stateDb = Blend(stateDb, keptHere, sor->NumToLevel(i + 1));
    sor->DataPts->SetLevel(i + 1, stateDb);
  }
}

// The output starts from the first sample: from darkness, a strong filter would take its whole length to
// climb to the trace.
void TSorFilter::DynaF(TSorData* sor) {
  if (sor == nullptr) return;
  float* lin = RefEmbGetLinf(sor);
  if (lin == nullptr) return;
  const double limitDb = sor->QRTParams->GetNoisePeak() + kNeedsNoFilterDb;
  const double forgettingKm = ForgettingKm(*sor, kFilterKm) * sor->QRTParams->GetFilterLevel();
  const double leastShare = 1.0 - elementary::Exp(-sor->FxdParams->LenDS() / forgettingKm);
  const long points = sor->DataPts->GetPointsNum();
  float before = points > 0 ? lin[0] : 0.0F;
  for (long i = 1; i < points; ++i) {
    const float sampleDb = sor->NumTofLevel(i);
    if (sampleDb > limitDb) {
      before = lin[i];
      continue;
    }
    const double share = std::max(elementary::Exp10((sampleDb - limitDb) / 5.0), leastShare);
    before = static_cast<float>(before * (1.0 - share) + lin[i] * share);
    sor->DataPts->SetfLevel(i, sor->QRTParams->LinToLog5(before));
    lin[i] = before;
  }
}

// --- Filters of a stretch ---

void TSorFilter::PONFilter(TSorData* sor, float frac, float tau, long a, long b) {
  if (sor == nullptr) return;
  const float* lin = RefEmbGetLinf(sor);
  const long end = std::min(b, static_cast<long>(sor->DataPts->GetPointsNum()));
  a = std::max(a, 0L);
  if (lin == nullptr || a >= end) return;
  const double kept = elementary::Exp(-1.0 / tau);
  double state = lin[a];
  for (long i = a + 1; i < end; ++i) {
    state = Blend(state, kept, lin[i]);
    sor->DataPts->SetLevel(i, sor->QRTParams->LinToLog5((1.0 - frac) * lin[i] + state * frac));
  }
}

void TSorFilter::PONFilter(TSorData* sor, float frac, float tauLen) {
  if (sor == nullptr) return;
  const float tauPoints = static_cast<float>(tauLen / sor->FxdParams->LenDS());
  PONFilter(sor, frac, tauPoints, 0, sor->DataPts->GetPointsNum());
}

long TSorFilter::DipFilter(TSorData* sor, long a, long b, float slope) {
  constexpr double kDipWidths = 7.5;  // after so many time constants nothing is left of a dip
  if (sor == nullptr) return 0;
  if (sor->NumToLevel(a) < sor->GetMaxLevel() - reflyze::kClipsNearTopDb) return 0;
  float ratio = 0.0F, width = 0.0F;
  const long recoveredAt = RefAutoGetProvalAT(sor, a, b, slope, ratio, width);
  if (recoveredAt == 0) return 0;
  const double longest = kDipWidths * width;
  const long end = static_cast<double>(b - a) > longest ? TruncToLong(static_cast<double>(a) + longest) : b;
  PONFilter(sor, ratio, width, a, end);
  return recoveredAt;
}

void TSorFilter::LFFilter(TSorData*) {}
