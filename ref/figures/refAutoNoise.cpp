// SPDX-License-Identifier: Apache-2.0
#include "ref/figures/refAutoNoise.h"

#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/search/refAutoSearch.h"
#include "sor/sorData.h"
#include "util/convert.h"

// The noise floor of a trace.
//
// Behind the end of the fibre a trace is noise around zero power. On the level scale its peaks reach up to a
// level that grows with every average that is missing, and that level is what later stages mean by "noise
// floor": nothing below it is fibre. Four sources tell it, none of them always: the floor stored in the
// record, the figure that the instrument noted while averaging, the tail of the trace, and the lowest level
// that the instrument records at all (the level floor, MAX). The tail is the best witness as long as it is
// noise; a trace that ends inside the fibre has none, and one with a ghost in its tail has a false one. So
// the tail is judged first (one stretch), then weighed against the stored figures (the whole settlement).

using reflyze::TruncToLong;

namespace {

// --- One stretch ---

constexpr double kSwingDb = 3.0;  // noise swings this far about its level; more is signal

// What a mean and its deviation, both in linear power, say about a stretch. All are tuned.
constexpr double kOffsetDeviations = 2.5;    // a mean this high is no noise around zero: light, or an offset
constexpr float kPeakDeviations = 3.0f;      // the peaks of such a stretch lie this far above its mean
constexpr double kZeroPeakDeviations = 4.5;  // and those of noise around zero
constexpr double kCentredDeviations = 0.3;   // a mean lower than this lies at zero
constexpr float kSignalDeviations = 4.0f;    // above the mean by this there is signal
constexpr double kAtFloorDb = 0.01;          // a lowest level further above the level floor never met it
constexpr double kPeakRoundingDb = 1.0;      // by which the highest level may exceed the estimated peaks

// Is this stretch noise, and up to which level?
class StretchNoise {
 public:
  StretchNoise(TSorData* sor, float from, float to, float& nfDb)
      : sor_(*sor), scale_(*sor->QRTParams), lin_(RefEmbGetLinf(sor)), to_(to), nfDb_(nfDb) {
    points_ = sor->DataPts->GetPointsNum();
    first_ = PointAt(from);
    end_ = PointAt(to);
    fromFraction_ = from;
  }

  int Run(int mode) {
    MeasureLevels();
    if (floorDb_ + kSwingDb < minDb_) return 0;  // wholly above the level floor: fibre
    MeasureDeviation();
    if (mode == 1 && lin_ != nullptr) ExtendTowardsStart();
    // A record of foreign origin could take a shorter estimate from here. The origin is never judged to be
    // foreign, so that branch is left out.
    deviationLin_ = scale_.Log5ToLin(deviationDb_, 0);
    if (meanLin_ < 0.0f) {
      EstimateBelowZero();
      return 1;
    }
    if (meanLin_ >= kOffsetDeviations * deviationLin_) {
      nfDb_ = scale_.LinToLog5(kPeakDeviations * deviationLin_ + meanLin_);
    } else if (!EstimateAroundZero()) {
      return 0;
    }
    return nfDb_ + kSwingDb < maxDb_ ? 0 : 1;
  }

 private:
  long PointAt(float fraction) const {
    return std::clamp(TruncToLong(static_cast<float>(points_) * fraction), 0L, points_);
  }
  void MeasureLevels() {
    long minAt, maxAt;
    floorDb_ = scale_.GetfMAX();
    sor_.DataPts->GetMinMax(&minDb_, &maxDb_, first_, end_, minAt, maxAt);
    meanLin_ = RefMathPower(&sor_, lin_, first_, end_ - first_, 2);
  }
  void MeasureDeviation() { deviationDb_ = RefMathLinSQO(&sor_, fromFraction_, to_, meanLin_); }

  void Count(long point) { ++(lin_[point] > 0.0f ? positive_ : negative_); }

  // Pure noise is as often below zero as above. Where it is more often below, it may be that the stretch is
  // too short to tell: it grows towards the start of the trace until both are balanced, signal comes up, or
  // half of the way to the start is gone.
  void ExtendTowardsStart() {
    for (long i = end_ - 1; i >= first_; --i) Count(i);
    // The second limit mixes the two scales: a deviation in dB, and so mostly negative, added to a power. It
    // stops the extension almost at once, which a trace that is not offset wants.
    float signalLin = scale_.Log5ToLin(deviationDb_, 0);
    if (negative_ < 10 * positive_) signalLin = kSignalDeviations * deviationDb_ + meanLin_;
    long point = first_;
    while (positive_ < negative_ && point > end_ / 2 && lin_[point] < signalLin) Count(--point);
    if (point >= first_) return;
    // Levels and deviation come anew from the longer stretch; the counts go on, since they say whether the
    // zero of the receiver is off.
    first_ = point;
    fromFraction_ = static_cast<float>(first_) / static_cast<float>(points_);
    MeasureLevels();
    MeasureDeviation();
  }

  // A mean below zero is no light but a receiver whose zero is off. If hardly any sample is positive, the
  // whole trace is lifted by it.
  void EstimateBelowZero() {
    if (10 * positive_ < negative_) {
      for (long i = 0; i < end_; ++i) lin_[i] -= meanLin_;
      nfDb_ = scale_.LinToLog5(deviationLin_);
    } else {
      nfDb_ = scale_.LinToLog5(kPeakDeviations * deviationLin_ - meanLin_);
    }
  }

  // The ordinary tail: noise around zero, whose peaks lie 4.5 deviations up unless none did.
  bool EstimateAroundZero() {
    if (minDb_ > floorDb_ + kAtFloorDb) return false;
    if (meanLin_ < kCentredDeviations * deviationLin_ && floorDb_ - minDb_ <= 0.0f) return false;
    const float peaksDb =
        scale_.LinToLog5(static_cast<float>(meanLin_ + kZeroPeakDeviations * deviationLin_));
    nfDb_ = maxDb_ < peaksDb + kPeakRoundingDb ? maxDb_ : peaksDb;
    return true;
  }

  TSorData& sor_;
  const TSorBlockQRTParameters& scale_;
  float* const lin_;  // linear trace, or null
  const float to_;    // end of the stretch, as a fraction of the trace
  float& nfDb_;       // the answer
  long points_ = 0;   // of the trace
  float fromFraction_ = 0.0f;
  long first_ = 0, end_ = 0;  // the stretch in points
  float floorDb_ = 0.0f;      // lowest level recorded
  float minDb_ = 0.0f, maxDb_ = 0.0f;
  float meanLin_ = 0.0f;
  float deviationDb_ = 0.0f, deviationLin_ = 0.0f;  // on either scale
  long positive_ = 0, negative_ = 0;                // samples above zero, and the others
};

// --- The whole trace ---

// Where the tail of the trace and the three stretches before its end begin, as shares of its points and, in
// double precision, of its length in time.
constexpr float kTailFromF = 0.98f, kLastFromF = 0.95f, kMiddleFromF = 0.9f, kFirstFromF = 0.8f;
constexpr double kTailFrom = 0.98, kLastFrom = 0.95, kMiddleFrom = 0.9, kFirstFrom = 0.8;
constexpr double kPeaksOverNoiseDb = TSorBlockQRTParameters::kPeaksOverNoiseDb;

class NoiseFloor {
 public:
  explicit NoiseFloor(TSorData* sor)
      : sor_(sor),
        fixed_(*sor->FxdParams),
        scale_(*sor->QRTParams),
        instrument_(static_cast<unsigned int>(scale_.SNL) * scale_.MAX),
        maxOwt_(TruncToLong(fixed_.GetMaxOwt())) {}

  double Run() {
    RepairScaleFactor();
    TakeStoredFigures();
    if (TailContradictsBoth() || StoredAgreesDespiteLog() || TraceEndsBeforeRange()) return candidateDb_;
    MeasureTail();
    if (instrument_ == 0 && SettleLevelFloor()) return candidateDb_;
    JudgeTail();
    if (CandidateAgreesWithTail()) return candidateDb_;
    EstimateThreeStretches();
    const double chosenDb = StoredIsNearAnEstimate() ? StoredOrItsPeaks() : LargestCredibleEstimate();
    Adjust(chosenDb);
    fixed_.SetNF(candidateDb_);
    return candidateDb_;
  }

 private:
  void RepairScaleFactor();
  void TakeStoredFigures();
  bool TailContradictsBoth();
  bool StoredAgreesDespiteLog();
  bool TraceEndsBeforeRange();
  void MeasureTail();
  bool SettleLevelFloor();
  void JudgeTail();
  bool CandidateAgreesWithTail();
  void EstimateThreeStretches();
  bool StoredIsNearAnEstimate() const;
  double StoredOrItsPeaks() const;
  double LargestCredibleEstimate() const;
  bool EchoBacksMiddle() const;
  void Adjust(double chosenDb);

  // The one place that asks for the noise of a stretch. It may write `nfDb` even where it gives false, and
  // may lift the linear trace of the record.
  bool Estimate(float from, float to, int mode, float& nfDb) {
    return RefAutoReGetNF(sor_, from, to, nfDb, mode) > 0;
  }
  // A share of the trace's length in time, in whole units.
  long Share(double fraction) const { return TruncToLong(fraction * static_cast<double>(maxOwt_)); }
  double HighestDb(long owt1, long owt2) const {
    long owtOfMax;
    return sor_->GetMax(owt1, owt2, owtOfMax);
  }
  double OffStored(double levelDb) const { return std::fabs(levelDb - storedDb_); }

  // By how much the tail may lie below the candidate: the finer the points, the less.
  static constexpr double kWidestMarginDb = 3.0, kNarrowestMarginDb = 0.5;

  TSorData* const sor_;
  TSorBlockFixedParameters& fixed_;
  TSorBlockQRTParameters& scale_;
  const unsigned int instrument_;  // not 0 when the instrument noted a noise figure and its level floor
  const long maxOwt_;              // end of the trace, whole units

  double storedDb_ = 0.0;     // as the record has it
  double candidateDb_ = 0.0;  // the answer, once settled
  float tailDb_ = 0.0f;       // what the tail says; its highest level while no estimate has succeeded
  float tailMinDb_ = 0.0f;    // lowest level of the tail
  float floorDb_ = 0.0f;      // level floor
  float unquietDb_ = 0.0f;    // how unquiet the tail is; only measured without instrument figures
  double marginDb_ = kWidestMarginDb;  // by which the candidate may exceed the tail
  double fineSpacingDb_ = 0.0;         // by which finely spaced points raise the peaks of noise
  float last_ = 0.0f, middle_ = 0.0f, first_ = 0.0f;  // estimates of the stretches up to 1, 0.95 and 0.9
};

// Some instruments wrote the inverse of the scale factor: 17 to 100. Repaired it is 10,000 to 58,823, which
// is no such inverse, so that a second call changes nothing. The field keeps the low 16 bits.
void NoiseFloor::RepairScaleFactor() {
  const long factor = reflyze::LowBits16(fixed_.NFSF);
  if (factor >= 17 && factor <= 100) fixed_.NFSF = reflyze::SignedLowBits16(1000000 / factor);
}

void NoiseFloor::TakeStoredFigures() {
  storedDb_ = candidateDb_ = fixed_.GetNF();
  tailDb_ = static_cast<float>(storedDb_);  // until the tail says something
  if (instrument_ == 0) return;
  candidateDb_ = scale_.GetNoisePeak();
  if (storedDb_ < scale_.GetMAX()) storedDb_ = candidateDb_;
}

// A tail that is noise and agrees with no stored figure has the last word.
bool NoiseFloor::TailContradictsBoth() {
  constexpr double kAgreeDb = 1.5;
  if (!Estimate(kTailFromF, 1.0f, 1, tailDb_)) return false;
  if (!(OffStored(tailDb_) > kAgreeDb && std::fabs(tailDb_ - candidateDb_) > kAgreeDb)) return false;
  if (scale_.GetMAX() < tailDb_) {
    candidateDb_ = tailDb_;
    fixed_.SetNF(candidateDb_);
  }
  return true;
}

// Where the noise log can't be true, the figure of the instrument says nothing. The stored floor is taken if
// the tail agrees with it.
bool NoiseFloor::StoredAgreesDespiteLog() {
  constexpr unsigned short kWholeLog = 10000;
  constexpr double kNearStoredDb = 1.0;
  unsigned short snr;
  long averages;
  if (scale_.GetNL(kWholeLog, snr, averages) == 0 || !(OffStored(tailDb_) < kNearStoredDb)) return false;
  candidateDb_ = storedDb_;
  return true;
}

// Where the points end before the range does, the tail may well be fibre. The figure of the instrument counts
// then, unless the tail is noise and says otherwise.
bool NoiseFloor::TraceEndsBeforeRange() {
  constexpr double kWholeRange = 0.99;      // a trace that covers this share of the range has reached its end
  constexpr double kClearlyHigherDb = 0.5;  // the instrument's figure over the stored one
  constexpr double kFarFromFiguresDb = 3.0;  // a tail this far from both figures goes its own way
  if (!(kWholeRange * fixed_.AR > fixed_.GetMaxOwt()) || scale_.SNL == 0) return false;
  if (candidateDb_ > storedDb_ + kClearlyHigherDb && Estimate(kTailFromF, 1.0f, 0, tailDb_)) {
    const double offCandidate = std::fabs(tailDb_ - candidateDb_);
    if (OffStored(tailDb_) > kFarFromFiguresDb && offCandidate > kFarFromFiguresDb) {
      candidateDb_ = tailDb_;
    } else if (OffStored(tailDb_) < offCandidate) {
      candidateDb_ = storedDb_;
      return true;
    }
  }
  fixed_.SetNF(candidateDb_);
  return true;
}

void NoiseFloor::MeasureTail() { sor_->GetMinMax(Share(kTailFrom), maxOwt_, tailMinDb_, tailDb_); }

// Without figures from the instrument. A record that has a level floor, and a stored noise floor well above
// it and below the tail, is trusted. In any other the level floor becomes the lowest level that the reading
// of the record has worked out, cut to whole units of the field. The floor goes to file: there it is the same
// however often it was settled, and whoever had set the field since. A record whose levels were never worked
// out has nothing to set it to, and keeps what it has or takes the lowest level of its points.
bool NoiseFloor::SettleLevelFloor() {
  constexpr double kClearOfFloorDb = 1.0;
  const double lowestDb = sor_->HasCalculatedLevels() ? sor_->GetMinLevel()
                          : scale_.MAX != 0           ? scale_.GetMAX()
                                                      : sor_->DataPts->GetMinLevel();
  if (scale_.MAX != 0 && storedDb_ < tailDb_ && storedDb_ - lowestDb > kClearOfFloorDb) {
    candidateDb_ = storedDb_;
    return true;
  }
  if (scale_.MAX == 0 || sor_->HasCalculatedLevels()) scale_.SetMAX(lowestDb);
  const long points = sor_->DataPts->GetPointsNum();
  const float slopeDbPerPoint = static_cast<float>(RefAutoGetLoss(sor_) * fixed_.LenDS());
  // The last difference ends behind the last point and sees the -65.5 dB there: only a tail that lies as low
  // counts as quiet.
  unquietDb_ = RefAutoSearchMaxdbRiseFall(sor_, TruncToLong(kTailFrom * static_cast<double>(points)), points,
                                          points / 500 + 1, slopeDbPerPoint);
  candidateDb_ = tailDb_;
  return false;
}

void NoiseFloor::JudgeTail() {
  constexpr double kFineSpacingKm = 0.0025;
  constexpr double kFinePeaksDb = 0.4;  // rise of the peaks at half of that spacing
  constexpr double kBelowFloorDb = 0.02;
  Estimate(kTailFromF, 1.0f, instrument_ == 0 ? 1 : 0, tailDb_);  // what it writes counts, found or not
  floorDb_ = scale_.GetfMAX();
  if (tailMinDb_ + kBelowFloorDb < floorDb_) {
    // The trace reaches below its floor: real noise. The more points, the higher the highest of them.
    const double spacingKm = fixed_.LenDS();
    if (spacingKm < kFineSpacingKm)
      fineSpacingDb_ = kFinePeaksDb * std::sqrt((kFineSpacingKm / spacingKm) / 2.0);
    marginDb_ -= fineSpacingDb_;
    if (marginDb_ < kNarrowestMarginDb) marginDb_ = kNarrowestMarginDb;
  }
}

bool NoiseFloor::CandidateAgreesWithTail() {
  constexpr double kLowestFloorDb = -65.0, kHighestFloorDb = -5.0;  // no noise floor lies outside
  constexpr double kWorthStoringDb = 0.1;
  if (!(candidateDb_ >= kLowestFloorDb && candidateDb_ < kHighestFloorDb)) return false;
  if (tailDb_ + marginDb_ < candidateDb_) return false;
  // A tail that lies above the candidate with its middle well above the floor is fibre.
  const double middleDb = (static_cast<double>(tailDb_) + tailMinDb_) / 2.0;
  if (candidateDb_ < tailDb_ && middleDb + kSwingDb > floorDb_) return false;
  if (std::fabs(fixed_.GetNF() - candidateDb_) > kWorthStoringDb) fixed_.SetNF(candidateDb_);
  return true;
}

void NoiseFloor::EstimateThreeStretches() {
  if (!Estimate(kLastFromF, 1.0f, 0, last_)) last_ = tailDb_;
  if (!Estimate(kMiddleFromF, kLastFromF, 0, middle_)) middle_ = last_;
  if (!Estimate(kFirstFromF, kMiddleFromF, 0, first_)) first_ = middle_;
}

bool NoiseFloor::StoredIsNearAnEstimate() const {
  constexpr double kNearDb = 2.5;
  return scale_.SNL == 0 &&
         (OffStored(last_) < kNearDb || OffStored(middle_) < kNearDb || OffStored(first_) < kNearDb);
}

// A stored floor may mean the level of noise or that of its peaks.
double NoiseFloor::StoredOrItsPeaks() const {
  const double peaksDb = storedDb_ + kPeaksOverNoiseDb;
  return std::fabs(peaksDb - last_) < OffStored(last_) ? peaksDb : storedDb_;
}

// A stretch that is higher than the others is either the truest noise or the trace of a strong reflection.
// Such a reflection has a stronger original at half the distance, or at two thirds where it is an echo of
// higher order: so the highest levels there tell which it is.
double NoiseFloor::LargestCredibleEstimate() const {
  constexpr double kSameLevelDb = 1.0;  // two stretches that differ by less show the same noise
  if (last_ >= middle_ && last_ >= first_) {
    if (last_ - middle_ < kSameLevelDb) return last_;
    const bool echo = HighestDb(Share(kLastFrom) / 2, maxOwt_ / 2) >
                      HighestDb(Share(kMiddleFrom) / 2, Share(kLastFrom) / 2);
    return echo ? middle_ : last_;
  }
  if (middle_ >= last_ && middle_ >= first_) {
    return middle_ - last_ < kSameLevelDb || EchoBacksMiddle() ? middle_ : last_;
  }
  if (first_ > last_ && first_ > middle_ && first_ - last_ < kSameLevelDb) return first_;
  return first_ < candidateDb_ ? first_ : last_;
}

bool NoiseFloor::EchoBacksMiddle() const {
  constexpr double kStrongerDb = 3.0;
  const long owt80 = Share(kFirstFrom), owt90 = Share(kMiddleFrom), owt95 = Share(kLastFrom);
  if (!(HighestDb(owt80 / 2, owt90 / 2) > HighestDb(owt90 / 2, owt95 / 2))) return false;
  return HighestDb(2 * owt80 / 3, 2 * owt90 / 3) - HighestDb(2 * owt90 / 3, 2 * owt95 / 3) > kStrongerDb;
}

void NoiseFloor::Adjust(double chosenDb) {
  constexpr double kSmoothedDb = 0.75;        // a tail that is less unquiet than this was smoothed
  constexpr double kSmoothedDropDb = 1.5;     // its floor lies this much lower than its peaks tell
  constexpr double kAboveLevelFloorDb = 0.3;  // but no lower than this above the level floor
  constexpr double kNearlyWholeRange = 0.95;
  candidateDb_ = chosenDb;
  if (OffStored(candidateDb_ + fineSpacingDb_) < OffStored(candidateDb_)) candidateDb_ += fineSpacingDb_;
  if (instrument_ == 0 && unquietDb_ >= 0.0f && unquietDb_ < kSmoothedDb) {
    candidateDb_ -= kSmoothedDropDb;
    candidateDb_ = std::max(candidateDb_, floorDb_ + kAboveLevelFloorDb);
  }
  // The peaks of noise lie no lower than noise at the level floor has them.
  if (floorDb_ + kPeaksOverNoiseDb > candidateDb_ && fixed_.GetMaxOwt() > kNearlyWholeRange * fixed_.AR &&
      instrument_ != 0) {
    candidateDb_ = scale_.GetfMAX() + kPeaksOverNoiseDb;
  }
}

}  // namespace

int RefAutoReGetNF(TSorData* sor, float from, float to, float& nf, int mode) {
  return StretchNoise(sor, from, to, nf).Run(mode);
}

double RefAutoReSetNF(TSorData* sor) { return NoiseFloor(sor).Run(); }
