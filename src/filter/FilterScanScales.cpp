// SPDX-License-Identifier: Apache-2.0

// The scales of a scan of the automatic filter: how fast the receiver recovers, in points, how far the
// backscatter swings, and where the noise lies.

#include <cmath>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/FilterScan.h"
#include "src/filter/Optics.h"
#include "src/filter/RecordFigures.h"
#include "util/convert.h"

namespace reflyze {

// --- The trace ---

ScanTrace::ScanTrace(const TSorFilter& filter, TSorData& sor)
    : sor_(sor),
      linSamples_(filter.Linf),
      lin_(filter.HeldLinf()),
      nearMean_(filter.HeldLinfAvg()),
      levels_(sor.DataPts->Levels()),
      points_(std::min(sor.DataPts->GetPointsNum(), lin_.count())) {}

double ScanTrace::ToLin(double db) const { return sor_.QRTParams->Log5ToLin(db, 0); }
float ScanTrace::ToDb(float lin) const { return sor_.QRTParams->LinToLog5(lin); }

long ScanTrace::Highest(long a, long b, int side) const {
  float max = 0.0F;
  return RefAutoGetMax(linSamples_, lin_.Held(a), lin_.Held(b), max, side);
}

long ScanTrace::Lowest(long a, long b, int side) const {
  float min = 0.0F;
  return RefAutoGetMin(linSamples_, lin_.Held(a), lin_.Held(b), min, side);
}

long ScanTrace::LastBelow(long from, double lin, long limit) const {
  return RefAutoSearchBackLess(linSamples_, lin_.Held(from), static_cast<float>(lin), lin_.Held(limit));
}

long ScanTrace::LastMeanAbove(long from, long count, double lin) const {
  return RefAutoSearchBackGreather(linSamples_, lin_.Held(from), std::min(count, points_),
                                   static_cast<float>(lin));
}

long ScanTrace::FirstBelow(long from, double db, double slopeDb) const {
  return RefAutoSearchStraightLess(&sor_, from, static_cast<float>(db), static_cast<float>(slopeDb));
}

long WidthMap::operator[](long point) const {
  if (points_ < 1) return 1;
  return widths_[std::clamp(point, 0L, points_ - 1)];
}

void WidthMap::Clear(long from, long to) {
  from = std::max(from, 0L);
  to = std::min(to, points_ - 1);
  if (from <= to) std::fill(widths_ + from, widths_ + to + 1, short{1});
}

// --- Scales ---

namespace {

constexpr double kLeastSpacingOwt = 1e-06;
constexpr double kLeastNoiseLin = 0.1;  // below, the noise floor lies at the bottom of the scale
constexpr int kMostDoublings = 14;      // a width and a half of it still fits the 16 bits of the width map

// The stored noise floor, unless the instrument noted another one: then it is settled anew.
double NoiseFloorDb(TSorData& sor) {
  constexpr double kAgreementDb = 0.1;
  if (std::fabs(sor.FxdParams->GetNF() - sor.QRTParams->GetNoisePeak()) > kAgreementDb) SettleNoiseFloor(sor);
  return sor.FxdParams->GetNF();
}

// Windows by the time in which the receiver falls by 1.5 dB, and by the pulse.
void MeasureWindows(const TSorFilter& filter, TSorData& sor, ScanScales& s) {
  constexpr double kMarginOwt = 16.0;      // 1.6 ns
  constexpr double kFarMarginOwt = 500.0;  // 50 ns
  constexpr double kGradePulseNs = 30.0;   // the grade grows with the root of the pulse, in such pulses
  constexpr double kRecoverDb = 2.5;
  constexpr double kLeastRateDb = 0.01;  // keeps an unknown rate from making an endless recovery
  const double ds = s.spacingOwt, rateDb = filter.dbOnOwt;
  const auto window = [&s](double points) { return HeldWindow(points, s.points); };
  s.fallOwt = rateDb > 0.0 ? kRecoveryDb / rateDb : rateDb;
  s.recoverPoints = window(kRecoverDb / (rateDb + kLeastRateDb) / ds + 1.0);
  s.nearPoints = HeldShift((s.fallOwt + kMarginOwt) / ds, s.points) / 2 + 1;
  s.midPoints = HeldShift((2.0 * s.fallOwt + kMarginOwt) / ds + 0.5, s.points) / 3 + 1;
  s.farPoints = HeldShift((3.0 * s.fallOwt + kFarMarginOwt) / ds + 0.5, s.points) + 8;
  for (long* points : {&s.nearPoints, &s.midPoints, &s.farPoints}) *points = std::max(*points, 1L);

  s.pulsePoints = std::clamp(filter.pulseFallPoints, 1L, LongestWindow(s.points));
  s.eventPoints = s.pulsePoints + 2;
  s.leastPoints = sor.FxdParams->GetOwtPulse(0) > ds ? 2 : 1;
  s.pulseGrade = TruncToLong(std::sqrt(sor.FxdParams->GetNsPulse(0) / kGradePulseNs + 1.0));
}

// Where the fibre begins, and the lengths of the instrument's own optics.
void MeasureOrigin(TSorData& sor, ScanScales& s) {
  constexpr double kPairKm = 0.018;
  constexpr double kRingKm = 0.6;
  constexpr double kFilled = 0.9;  // of the way to the origin, that a fibre inside has to fill
  const double ds = s.spacingOwt;
  s.zeroPoint = HeldShift(sor.OwtTofNum(0.0), s.points);
  const bool isInside = sor.QRTParams->IntFiber > kFilled * static_cast<double>(s.zeroPoint) * ds;
  s.innerFibre = isInside && s.zeroPoint >= 1 ? s.zeroPoint : 0;
  s.pairPoints = HeldShift(sor.dLenToOwt(kPairKm) / ds, s.points);
  s.ringReach = sor.LenToNum(kRingKm);
}

// Where the ripple can't be trusted, the speckle of the source stands in for it: the longer the pulse, the
// more of the fibre it averages. Multimode fibre has no such speckle.
float RippleByPulse(const TSorData& sor) {
  constexpr double kPlainDbNs = 4.0, kNarrowDbNs = 20.0;  // of a plain source and of one of known frequency
  constexpr double kCoherenceNs = 100.0;                  // a shorter pulse averages no more speckle
  const double pulseNs = sor.FxdParams->GetNsPulse(0);
  if (sor.QRTParams->LaserFreq == 0) return static_cast<float>(kPlainDbNs / (pulseNs + kCoherenceNs));
  return static_cast<float>(kNarrowDbNs / (std::fabs(pulseNs - kCoherenceNs) + kCoherenceNs));
}

// The swing of the backscatter on the first part of the fibre, behind the dead zone of the launch, and the
// levels above which nothing is averaged and from which the backscatter is known.
void MeasureBackscatter(TSorFilter& filter, TSorData& sor, ScanScales& s) {
  constexpr long kMostSteps = 400, kMostCells = 20;
  constexpr float kLeastRippleDb = 0.001F, kRippledFibreDb = 0.05F;
  constexpr double kHighNoises = 5000.0, kHigherOnRipple = 100.0;  // times the noise: averaged no more
  long start = s.farPoints + s.eventPoints;
  s.stepPoints = s.eventPoints / 2 + s.nearPoints;
  const long cell = std::max(s.nearPoints, 10L);
  long stop = s.points / s.stepPoints <= kMostSteps ? s.points / 3 : s.points / 4;
  long cells = (stop - start) / cell / s.stepPoints + 1;
  if (cells > kMostCells) {
    cells = kMostCells;
    stop = std::max(cell * kMostCells + start, s.points / 7);
  }
  s.rippleDb = RefAutoCalcPolar(&sor, start, stop, cells, s.slopeDb, start);
  if (s.rippleDb < kLeastRippleDb && sor.GenParams->FT != kMultimodeFibre) s.rippleDb = RippleByPulse(sor);
  s.settledPoint = start;

  const HeldSamples lin = filter.HeldLinf();
  s.referenceLin = lin[stop] > s.noiseLin ? static_cast<double>(lin[stop]) : lin[start] / 3.0;
  s.hiLimitLin = kHighNoises * s.noiseLin * (s.rippleDb > kRippledFibreDb ? kHigherOnRipple : 1.0);
}

}  // namespace

std::optional<ScanScales> MeasureScanScales(TSorFilter& filter, TSorData& sor) {
  ScanScales s;
  s.points = std::min(sor.DataPts->GetPointsNum(), filter.HeldLinf().count());
  s.spacingOwt = filter.owtDS;
  if (s.points < 1 || !(s.spacingOwt >= kLeastSpacingOwt)) return std::nullopt;
  s.noiseDb = NoiseFloorDb(sor);
  s.noiseLin = sor.QRTParams->Log5ToLin(s.noiseDb, 0);
  s.slopeDb = static_cast<float>(RefAutoGetLoss(&sor) * sor.dOwtToLen(s.spacingOwt));
  filter.dbOnDS = s.slopeDb;
  if (!(s.noiseLin >= kLeastNoiseLin)) return std::nullopt;

  MeasureWindows(filter, sor, s);
  MeasureOrigin(sor, s);
  MeasureBackscatter(filter, sor, s);
  s.mostDoublings = std::clamp(filter.autoLevel, 0, kMostDoublings);
  s.lastPoint = s.points - (s.recoverPoints < 4 ? 3 : s.recoverPoints);
  filter.SetLinfAvg(s.points, kNearMeanPoints);
  filter.result.polar = s.rippleDb;
  filter.result.firstBegin = 0;
  return s;
}

}  // namespace reflyze
