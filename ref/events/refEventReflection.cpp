// SPDX-License-Identifier: Apache-2.0
#include "ref/events/refEventReflection.h"

#include <algorithm>
#include <utility>

#include "ref/figures/refAutoNoise.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceWalk.h"
#include "util/convert.h"
#include "util/elementary.h"

using namespace reflyze;

namespace {

// Stands for a height of 0 or less, which has no logarithm.
constexpr double kLeastHeightDb = 0.001;
// Up to this height the receiver's fall is taken from the dB value, above it from the power.
constexpr double kLinearCorrectionDb = 0.2;
// Fall after which the receiver counts as recovered where an excess over a splice is summed.
constexpr double kRecoveredFallDb = 1.5;

short FirstBandwidth(const TSorData& sor) {
  return sor.QRTParams->modes.empty() ? 0 : sor.QRTParams->modes[0].BWU1;
}

// The power above a splice's own course, from the crest of the peak to the end of the pulse.
class ExcessOverSplice {
 public:
  ExcessOverSplice(TSorData& sor, long point, double level, double aci1, double aci2, double loss)
      : sor_(sor), point_(point), level_(level), loss_(loss) {
    const double spacingOwt = sor.FxdParams->GetOwtDS(0);
    const double dbPerOwt = RefAutoGetDbOnOwt(&sor);  // may measure it, and store it in the record
    const double dbPerPoint = dbPerOwt * spacingOwt;
    skipPoints_ = dbPerPoint > 0.0 ? TruncToLong(kRecoveredFallDb / dbPerPoint + 1.0) : 0;
    widthPoints_ = sor.FxdParams->GetOwtPulse(0) / spacingOwt;
    const double spacingKm = sor.NumToLen(point + 1) - sor.NumToLen(point);
    slopeBefore_ = aci1 * spacingKm;
    slopeBehind_ = aci2 * spacingKm;
  }

  bool Fits() const {
    if (static_cast<double>(skipPoints_) + 1.0 >= widthPoints_) return false;
    const auto points = static_cast<double>(sor_.DataPts->GetPointsNum());
    return !(points <= static_cast<double>(point_) + static_cast<double>(skipPoints_) + widthPoints_ + 1.0);
  }

  // Linear power on the level scale, a mean over the points from the crest on.
  double Mean() const {
    const long crest = Crest();
    double sum = 0.0;
    long m = crest;
    for (; static_cast<double>(m) <= widthPoints_; ++m) {
      const double splice =
          RefMathSplicePower(static_cast<float>(loss_), static_cast<float>(slopeBefore_),
                             static_cast<float>(slopeBehind_), TruncToInt(widthPoints_), static_cast<int>(m));
      sum += SorMathPow5(sor_.NumToLevel(point_ + m)) - SorMathPow5(level_ - splice);
    }
    return m > skipPoints_ ? sum / static_cast<double>(m - crest) : sum;
  }

 private:
  long Crest() const {
    long k = skipPoints_;
    while (static_cast<double>(k) < widthPoints_ / 2 &&
           sor_.NumToLevel(point_ + k) < sor_.NumToLevel(point_ + k + 1)) {
      ++k;
    }
    return k;
  }

  TSorData& sor_;
  long point_;
  double level_;
  double loss_;
  long skipPoints_;
  double widthPoints_;
  double slopeBefore_, slopeBehind_;  // dB per point
};

// The light that comes back from the launch, or the level from which the span is read.
struct SpanStart {
  double lin = 0.0;       // power of the launch reflection
  double startOwt = 0.0;  // where the integral begins
  double baseDb = 0.0;    // backscatter level there
};

SpanStart StartOfSpan(TSorData& sor, const TSorBlockKeyEvents1E& first, double owt1) {
  const double pulseOwt = sor.FxdParams->GetOwtPulse(owt1);
  SpanStart start;
  if (first.EPT == 0 && owt1 < pulseOwt) {
    long peakOwt = 0;
    start.lin = sor.QRTParams->Log5ToLin(sor.GetMax(0, first.ML2, peakOwt), 0);
    start.startOwt = first.ML2;
    start.baseDb = sor.OwtToLevel(first.ML2, 0);
    return start;
  }
  const long point = PointAtOwt(sor, owt1);
  const long count = TruncToLong(sor.FxdParams->dOwtTodNum(point, pulseOwt / 2) + 1.0);
  start.baseDb = RefMathPower(&sor, point, count, 0);
  start.startOwt = owt1;
  return start;
}

}  // namespace

double RefEventLinAmplPulse(TSorData* sor, double owt) {
  const long point = PointAtOwt(*sor, owt);
  const double pulseNs = sor->FxdParams->GetNsPulse(owt);
  const double dbPerOwt = RefAutoGetDbOnOwt(sor);  // may measure it, and store it in the record
  const double dbPerNs = SorMathNsToOwt(dbPerOwt);
  return RefMathAmplitudePulse(pulseNs, dbPerNs, sor->FxdParams->GetDS(sor->FxdParams->NumToNPW(point)));
}

double RefEventReflectionPower(double reflection, double pulse, double bc) {
  return 5.0 * elementary::Log10(elementary::Exp10((reflection - bc) / 10.0) / pulse + 1.0);
}

double RefEventReflectionPower(TSorData* sor, double owt, double reflection) {
  return RefEventReflectionPower(reflection, sor->GetRealNsPulse(owt), sor->FxdParams->GetBC());
}

double RefEventReflectionPower(TSorData* sor, double owt, double reflection, double aci) {
  const double halfPulseKm = sor->dOwtToLen(sor->FxdParams->GetOwtPulse(0) / 2);
  return RefEventReflectionPower(sor, owt, reflection) + halfPulseKm * aci;
}

double RefEventReflection(double height, double pulse, double bc) {
  if (height <= 0.0) height = kLeastHeightDb;
  return 10.0 * elementary::Log10((elementary::Exp10(height / 5.0) - 1.0) * pulse) + bc;
}

double RefEventReflection(TSorData* sor, double owt, double height) {
  const double pulseNs = sor->GetRealNsPulse(owt);
  const double bc = sor->FxdParams->GetBC();
  if (height <= 0.0) height = kLeastHeightDb;
  const double amplitude = FirstBandwidth(*sor) == 0 ? 1.0 : RefEventLinAmplPulse(sor, owt);
  if (height > kLinearCorrectionDb && amplitude < 1.0) {
    height = SorMathLog5((SorMathPow5(height) - 1.0) / amplitude + 1.0);
  } else {
    height = height / amplitude;
  }
  return RefEventReflection(height, pulseNs, bc);
}

double RefEventReflection(TSorData* sor, long point, double startLevel, long endPoint, double endLevel,
                          double loss) {
  const long pulsePoints = TruncToLong(sor->FxdParams->GetOwtPulse(0) / sor->FxdParams->GetOwtDS(0) + 0.5);
  if (pulsePoints < 2 || endPoint <= point) return 0.0;
  const auto pulse = static_cast<double>(pulsePoints);
  const double step = (startLevel - endLevel - loss) / static_cast<double>(endPoint - point) + loss / pulse;
  const long points = sor->DataPts->GetPointsNum();
  const long begin = std::clamp(-point, 1L, pulsePoints);  // of the pulse's part on the trace
  const long end = std::clamp(points - point, begin, pulsePoints);
  double sum = 0.0;
  // A pulse may reach far beyond the trace. The levels there are all the same, and the mean of the line over
  // them is its value in their middle.
  const auto addOutside = [&](long from, long to) {
    const double count = static_cast<double>(to) - static_cast<double>(from);
    const double middle = (static_cast<double>(from) + static_cast<double>(to) - 1.0) / 2.0;
    if (count > 0.0) sum += count * ((TSorBlockDataPoints::kOutsideDb - startLevel) + middle * step);
  };
  addOutside(1, begin);
  for (long k = begin; k < end; ++k) {
    sum += (sor->NumToLevel(point + k) - startLevel) + static_cast<double>(k) * step;
  }
  addOutside(end, pulsePoints);
  return RefEventReflection(sor, sor->NumToOwt(point), sum / (pulse - 1.0));
}

double RefEventReflection(TSorData* sor, long point, double level, double aci1, double aci2, double loss) {
  const ExcessOverSplice excess(*sor, point, level, aci1, aci2, loss);
  if (!excess.Fits()) return 0.0;
  const double mean = excess.Mean();
  const double bc = sor->FxdParams->GetBC();
  if (mean < 0.0) return bc;
  return 10.0 * elementary::Log10(mean / SorMathPow5(level) * sor->GetRealNsPulse(0)) + bc;
}

double RefEventMinReflection(TSorData* sor, double level, double base) {
  // Noise as high as the floor moves a level by 5 log10(1 + 1 / snr) dB, that is about 2.2 dB / snr, and the
  // noise of the peak adds to that of its base. The other two keep the height finite within the noise, and
  // above the resolution far from it; both are tuned.
  constexpr double kNoiseDb = 2.2, kAtNoise = 0.5, kWithoutNoiseDb = 0.01;
  const double overNoise = sor->QRTParams->poww(level - sor->FxdParams->GetNF());
  return 2.0 * (kNoiseDb / (overNoise + kAtNoise) + kWithoutNoiseDb) + base;
}

double RefEventReflection1(TSorData* sor, double owtBase, double owtPeak) {
  return RefEventReflection(sor, owtPeak, sor->OwtToLevel(owtPeak, 1) - sor->OwtToLevel(owtBase, 1));
}

double RefEventReflectionByMaxBetweenOWTs(TSorData* sor, double owt1, double owt2) {
  if (owt1 >= owt2) std::swap(owt1, owt2);
  const long first = PointAtOwt(*sor, owt1);
  const long last = PointAtOwt(*sor, owt2);
  const double levelAtFirst = sor->NumToLevel(first);
  double best = levelAtFirst;
  for (long i = first + 1; i < last; ++i) best = std::max(best, sor->NumToLevel(i));
  if (!(best > levelAtFirst)) return sor->FxdParams->GetBC();
  return RefEventReflection(sor, owt1, best - sor->OwtToLevel(owt1, 1));
}

double RefEventORL(TSorData* sor, double owt1, double owt2) {
  if (owt1 >= owt2) return 0.0;
  const long first = PointAtOwt(*sor, owt1);
  const long last = PointAtOwt(*sor, owt2);
  // The integral begins at the point, not at the time.
  const double startOwt = sor->NumToOwt(first);
  double endOwt = startOwt + 1.0;
  double previousOwt = startOwt;
  double power = 0.0;
  OwtWalk walk(*sor);
  const LinearScale scale = sor->QRTParams->ToLinear();
  sor->DataPts->Levels().Over(first, last, [&](auto levels) {
    walk.ForEachStretch(first + 1, last + 1, [&](OwtWalk::StretchTimes times, long from, long to) {
      double sum = power, owt = previousOwt;
      Pow5Run pow5;
      for (long i = from; i < to; ++i) {
        const double beginOwt = owt;
        owt = times.OwtOf(i);
        sum += scale.LinOf(levels[i - 1], pow5) * (owt - beginOwt);
      }
      power = sum;
      previousOwt = endOwt = owt;
    });
  });
  if (owt2 > endOwt) power += sor->NumToLinLevel(last) * (owt2 - endOwt);
  return sor->QRTParams->LinToLog5(power / sor->FxdParams->GetOwtPulse(startOwt));
}

double RefEventCalcORL(TSorData* sor, double owt1, double owt2) {
  const TSorBlockKeyEvents& table = *sor->KeyEvents;
  if (table.TNKE == 0 || table.events->GetSize() == 0) return 0.0;
  double pulseBehindOwt = sor->FxdParams->GetOwtPulse(owt2);
  const TSorBlockKeyEvents1E& first = *table.events->GetData(0);
  const TSorBlockKeyEvents1E& last = *table.events->GetData(std::max(table.TNKE - 1, 0));
  SpanStart start = StartOfSpan(*sor, first, owt1);
  if (table.TNKE > 1) {
    if (last.EPT <= owt2) {
      owt2 = last.EPT;
    } else {
      pulseBehindOwt = 0.0;
    }
    start.lin += sor->QRTParams->Log5ToLin(RefEventORL(sor, start.startOwt, owt2 + pulseBehindOwt), 0);
    // The level is carried back to the start of the fibre.
    start.baseDb += table.events->GetData(1)->GetACI() * sor->OwtToLen(first.ML2);
  }
  const double totalDb = sor->QRTParams->LinToLog5(start.lin);
  const double pulseDb = sor->QRTParams->Log5(sor->GetRealNsPulse(0), 1.0);
  return 2.0 * ((start.baseDb - (sor->FxdParams->GetBC() / 2 + pulseDb)) - totalDb);
}

int RefEventSetORL(TSorData* sor) {
  if (sor->GetDataType() == dtTC) return 2;
  TSorBlockKeyEvents& table = *sor->KeyEvents;
  table.SetORL(RefEventCalcORL(sor, table.ELMP1, table.ELMP2));
  table.RLMP1 = table.ELMP1;
  table.RLMP2 = table.ELMP2;
  return 0;
}

void RefEventSetEEL(TSorData*) {}

int RefEventSetNewBC(TSorData* sor, double bc) {
  if (sor->GetDataType() == dtTC) return 2;
  const double oldBc = sor->FxdParams->GetBC();
  for (int i = 0; i < sor->KeyEvents->events->GetSize(); ++i) {
    TSorBlockKeyEvents1E& event = *sor->KeyEvents->events->GetData(i);
    if (event.ER != 0) event.SetER(event.GetER() - oldBc + bc);
  }
  sor->FxdParams->SetBC(bc);
  RefEventSetORL(sor);
  return 0;
}

int RefEventSetNewRI(TSorData* sor, double ri) {
  const double oldRi = sor->FxdParams->GetRI();
  for (int i = 0; i < sor->KeyEvents->events->GetSize(); ++i) {
    TSorBlockKeyEvents1E& event = *sor->KeyEvents->events->GetData(i);
    event.SetACI(event.GetACI() / oldRi * ri);
  }
  sor->FxdParams->SetRI(ri);
  RefEventSetORL(sor);
  return 0;
}
