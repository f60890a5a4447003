// SPDX-License-Identifier: Apache-2.0
#include "ref/events/refEventQuality.h"

#include <algorithm>
#include <cmath>

#include "ref/events/refEventEdit.h"
#include "ref/events/refEventReflection.h"
#include "ref/figures/refAutoNoise.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"
#include "util/assertion.h"
#include "util/convert.h"
#include "util/elementary.h"

using namespace reflyze;

namespace {

// Hosts know these assertions under the name of this file, which stands for all event operations.
constexpr char kAssertionFile[] = "../ref/refEvent.cpp";

double MidLevelOfLine(TSorData& sor, double fromOwt, double toOwt) {
  double fromDb = 0.0, toDb = 0.0;
  RefMathLSL2(&sor, fromOwt, toOwt, fromDb, toDb);
  return (fromDb + toDb) / 2.0;
}

}  // namespace

double RefEventTrusting(TSorData* sor, int index) {
  constexpr double kClearPeak = 1.5;       // peak over noise that places an event by itself
  constexpr double kAllNoise = 0.9;        // share of noise in a section that shows nothing
  constexpr double kGrainDbRootOwt = 0.1;  // least step that a pulse of 1 unit shows without any noise
  const TSorBlockKeyEvents1E* event = sor->KeyEvents->events->GetData(index);
  if (event == nullptr) return 0.0;
  const double noiseDb = RefAutoReSetNF(sor);  // stores it in the record
  const double pulseOwt = sor->FxdParams->GetOwtPulse(0);
  const double spacingOwt = sor->FxdParams->GetOwtDS(0);
  const double sectionOwt = static_cast<double>(event->ML1) - event->ML0;
  const double levelDb = RefMathPower(sor, static_cast<double>(event->ML0), sectionOwt, 0);
  const double grainDb = kGrainDbRootOwt / std::sqrt(pulseOwt);
  const double noiseShare = elementary::Exp10((noiseDb - levelDb) / 10.0);
  const double peak =
      RefEventReflectionPower(sor, 0.0, event->GetER()) / (10.0 * elementary::Log10(noiseShare + 1.0));
  if (peak > kClearPeak) return 2.0 / peak + 1.0;
  if (noiseShare >= kAllNoise) return sectionOwt / 2.0 / spacingOwt;
  const double noiseStepDb = -10.0 * elementary::Log10(1.0 - noiseShare);
  const double stepDb = std::fabs(event->GetEL());
  if (stepDb < noiseStepDb) return pulseOwt / spacingOwt + 1.0;
  return (noiseStepDb + grainDb) / stepDb * pulseOwt / spacingOwt + 1.0;
}

int RefEventLossMeasurable(TSorData* sor, TSorBlockKeyEvents1E* event) {
  constexpr double kBeforeTraceEndOwt = 200.0;
  constexpr double kMeasurableAboveNoiseDb = 0.7;
  constexpr double kEndingLossDb = 5.0;
  Require(sor != nullptr, "SD", kAssertionFile);
  Require(event != nullptr, "event", kAssertionFile);
  if (sor->GetMaxOwt() - event->EPT < kBeforeTraceEndOwt) return 0;
  const double floorDb =
      std::min(sor->FxdParams->GetNF(), sor->QRTParams->GetNoisePeak()) + kMeasurableAboveNoiseDb;
  const double beforeDb = MidLevelOfLine(*sor, event->ML0, event->ML1);
  const double behindDb = MidLevelOfLine(*sor, event->ML2, event->ML3);
  if (event->GetEL() > kEndingLossDb && beforeDb > floorDb && behindDb < floorDb) return 2;
  return beforeDb < floorDb || behindDb < floorDb ? 0 : 1;
}

int RefEventLossMeasurable(TSorData* sor, int index) {
  Require(sor != nullptr, "SD", kAssertionFile);
  return RefEventLossMeasurable(sor, sor->KeyEvents->events->GetData(index));
}

double RefEventGetMeasurableDistance(TSorData* sor, int& index) {
  index = 0;
  for (int i = 0; i < sor->KeyEvents->ListedEvents(); ++i) {
    if (RefEventLossMeasurable(sor, i) == 1) continue;
    index = i;
    return sor->OwtToLen(sor->KeyEvents->EventAt(i).EPT);
  }
  return 0.0;
}

int RefEventIsEofInLastNpercent(TSorData* sor, int percent, double minLength) {
  const int count = sor->KeyEvents->ListedEvents();
  if (count < 2) return 0;
  const double rangeKm = sor->OwtToLen(sor->GetMaxOwt());
  if (rangeKm < minLength) return 1;
  const double endKm = sor->OwtToLen(sor->KeyEvents->EventAt(count - 1).EPT);
  return endKm >= rangeKm + percent * rangeKm / -100.0 ? 1 : 0;
}

namespace {

// The launch into the link: its peak, the backscatter level carried back to it, and what the level a little
// further on lacks to that.
class Launch {
 public:
  Launch(TSorData& sor, float& levelDb)
      : sor_(sor),
        levels_(&sor),
        spacingOwt_(static_cast<float>(sor.FxdParams->GetOwtDS(0))),
        pulseOwt_(static_cast<float>(sor.FxdParams->GetOwtPulse(0))),
        pulseNs_(sor.GetRealNsPulse(0.0)),
        levelDb_(levelDb) {
    constexpr double kLaunchRecoveryDb = 0.8;
    start_ = levels_.Near(TruncToLong(sor.LenToNum(0.0) + 0.5));
    const double recoveryOwt = kLaunchRecoveryDb / ReceiverDbPerOwt();
    recovered_ = start_ + levels_.Near(TruncToLong((pulseOwt_ + recoveryOwt) / spacingOwt_ + 2.0));
    levelDb_ = static_cast<float>(-sor.QRTParams->begLevel * 0.01);  // the field counts in 0.01 dB
  }

  // The trace has to begin within half a pulse, and the pulse to be long enough to be seen at all.
  bool CanBeJudged() const {
    constexpr double kShortestPulseNs = 1.0;
    const auto pulsePoints = static_cast<double>(TruncToLong(pulseOwt_ / spacingOwt_ + 0.5));
    return !(sor_.NumToOwt(0) > pulsePoints / 2.0 + 1.0 || 2.0f * pulseOwt_ < spacingOwt_ ||
             pulseNs_ < kShortestPulseNs);
  }

  // False where nothing stands above the level.
  bool Measure(float startLevelDb, float aci) {
    peak_ = RefAutoGetMax(&sor_, start_, recovered_, peakDb_, 1);
    aci_ = aci > 0.0f ? aci : RefAutoGetLoss(&sor_);
    if (!SettleLevel()) return false;
    if (startLevelDb < 0.0f) levelDb_ = startLevelDb;
    heightDb_ = peakDb_ - AlongFibre(levelDb_, -sor_.NumToALen(peak_));
    return true;
  }

  // By how much the level behind the launch, carried back to it, lies below the level at the launch, in dB:
  // the loss of the first connector and of what stands close behind it.
  double GapDb() { return levelDb_ - LevelBehindDb(); }

  // Light that the launch reflects, over the backscatter of the pulse, times the loss of a metre of fibre in
  // dB: 10^((R - Bc) / 10) / T * 10^-3 * aci.
  double Quality() const {
    const double reflectance = RefEventReflection(&sor_, 0.0, heightDb_);
    return elementary::Exp10((reflectance - sor_.FxdParams->GetBC()) / 10.0 - 3.0) / pulseNs_ * aci_;
  }

  bool LeavesScale() const { return peakDb_ > sor_.GetMaxLevel(); }

 private:
  // The one place that asks for the fall of the receiver. The first answer is stored in the record, in whole
  // dB/km, and the second is what was stored.
  double ReceiverDbPerOwt() { return RefAutoGetDbOnOwt(&sor_); }

  // A level carried back to the launch over a length in km.
  double AlongFibre(double levelDb, double lengthKm) const { return levelDb + lengthKm * aci_; }

  // From the fibre inside the instrument where it is long enough to be measured, else from the record, else
  // where the receiver has recovered.
  bool SettleLevel() {
    constexpr double kLongInside = 10.1;  // pulses
    // The fibre inside lies in front of 0. Of its last nine tenths, a pulse less, the mean is taken over 0.95
    // from the begin on. The middle of that lies 1 - 0.95 / 2 of the way in front of 0.
    constexpr double kInsideShare = 0.9, kMeanShare = 0.95, kMiddleOfMean = 0.525;
    const TSorBlockQRTParameters& scale = *sor_.QRTParams;
    if (scale.IntFiber == 0 && scale.begLevel == 0) {
      levelDb_ = levels_[recovered_];
      return !(levelDb_ > peakDb_);
    }
    if (scale.IntFiber > pulseOwt_ * kLongInside) {
      const double insideOwt = (static_cast<double>(scale.IntFiber) - pulseOwt_) * kInsideShare;
      const double meanDb = RefMathPower(&sor_, -insideOwt, insideOwt * kMeanShare, 0);
      levelDb_ = static_cast<float>(meanDb - aci_ * sor_.OwtToLen(insideOwt * kMiddleOfMean));
    }
    return true;
  }

  double LevelBehindDb() {
    constexpr double kHighPeakDb = 10.0;    // the receiver takes twice as long behind a peak above this
    constexpr double kStretchOwt = 5000.0;  // about 100 m of fibre
    constexpr double kReflectionDb = 0.2;   // from this height on the launch is a reflection
    constexpr double kLevelStretchDb = 0.1;
    constexpr double kFallsPastHeight = 2.0;  // the receiver falls by so many heights of the peak first
    long from = TruncToLong(kFallsPastHeight * std::fabs(heightDb_) / ReceiverDbPerOwt() / spacingOwt_);
    from = levels_.Near(from);
    if (heightDb_ > kHighPeakDb) from *= 2;
    from = levels_.Near(from + recovered_);
    const long to = levels_.Near(TruncToLong(static_cast<double>(from + 2) + kStretchOwt / spacingOwt_));
    float scatterDb = 0.0f, fromDb = 0.0f, toDb = 0.0f;
    // Where the trace is too short, nothing stands behind the launch to compare with.
    if (RefMathSQO(&sor_, from, to, scatterDb, fromDb, toDb) == 0) return levelDb_;
    const double dropDb = fromDb - toDb;
    const double expectedDb = (sor_.NumToLen(to) - sor_.NumToLen(from)) * aci_;
    const double middleKm = sor_.NumToALen((from + to) / 2);
    const double middleDb = (fromDb + toDb) / 2.0;
    if (2.0 * dropDb > expectedDb && 2.0 * expectedDb > dropDb) {  // plain fibre
      return AlongFibre(fromDb, sor_.NumToALen(from));
    }
    if (heightDb_ >= kReflectionDb) {
      if (!(std::fabs(dropDb) < kLevelStretchDb)) return levelDb_;
      if (!(fromDb < toDb)) return AlongFibre(middleDb, middleKm);
      // A rising stretch counts from its end. Its place is taken from the level: instruments have always
      // judged links so, and their limits go by it.
      return AlongFibre(toDb, sor_.NumToALen(TruncToLong(toDb)));
    }
    float highestDb = 0.0f;
    const long highest = RefAutoGetMax(&sor_, from, to, highestDb, 1);
    if (levelDb_ > highestDb) return AlongFibre(highestDb, sor_.NumToALen(highest));
    return AlongFibre(middleDb, middleKm);
  }

  TSorData& sor_;
  const TraceLevels levels_;
  const float spacingOwt_, pulseOwt_;
  const double pulseNs_;
  float& levelDb_;         // of the backscatter at the launch
  long start_ = 0;         // point of the launch
  long recovered_ = 0;     // point where pulse and receiver are done with it
  long peak_ = 0;          // point of its peak
  float peakDb_ = 0.0f;    // level of that
  double heightDb_ = 0.0;  // above the backscatter
  float aci_ = 0.0f;       // loss of the fibre, dB/km
};

}  // namespace

int RefEventLinkQuality(TSorData* sor, float& quality, float& level, float startLevel, float aci,
                        float mode) {
  Launch launch(*sor, level);
  if (!launch.CanBeJudged() || !launch.Measure(startLevel, aci)) return 0;
  const double gapDb = mode == 0.0f ? launch.GapDb() : 0.0;
  quality = static_cast<float>(launch.Quality());
  if (launch.LeavesScale()) {
    quality = 2.0f * quality;
    return 1;
  }
  quality = std::max(quality, static_cast<float>(gapDb));
  return 2;
}

namespace {

// An event that a short pulse places and a longer one measures. Levels are taken as attenuations here:
// positive, growing along the fibre.
class TwoPulseLoss {
 public:
  TwoPulseLoss(const TSorData& sor, int index, const TSorData& longer)
      : sor_(sor),
        longer_(longer),
        event_(*sor.KeyEvents->events->GetData(index)),
        groupEndOwt_(sor.KeyEvents->EventAt(RefEventGetLastEventOfMergedGroup(&sor, index)).EPT),
        longPulseOwt_(longer.FxdParams->GetOwtPulse(0)) {}

  double Db() const {
    constexpr double kFibreDbPerKm = 0.2;
    constexpr double kAboveNoisePeakDb = 2.0;
    constexpr double kFibrePulses = 3.0;  // behind the group the fibre is back, where no event follows
    const TSorBlockKeyEvents1E* next = NextOnLonger();
    const int behindOwt = next != nullptr ? next->EPT : BehindGroup(kFibrePulses);
    const double behindDb = next != nullptr ? BeforeNext(*next) : Attenuation(longer_, behindOwt);
    const double noiseDb =
        std::max(-longer_.QRTParams->GetNoisePeak(), -longer_.FxdParams->GetNF()) + kAboveNoisePeakDb;
    if (behindDb > noiseDb && next == nullptr) return -1.0;
    return behindDb - BeforeDb() -
           kFibreDbPerKm * sor_.dOwtToLen(static_cast<double>(behindOwt) - event_.EPT);
  }

 private:
  static double Attenuation(const TSorData& sor, double owt) { return -sor.OwtToLevel(owt, 1); }

  // At the launch: as the instrument noted it, or at the outlet of the fibre inside it, if that is longer
  // than two pulses.
  static double AtLaunchDb(const TSorData& sor) {
    const TSorBlockQRTParameters& scale = *sor.QRTParams;
    const TSorBlockKeyEvents1E* first = sor.KeyEvents->events->GetData(0);
    if (first != nullptr && scale.IntFiber > 0 && 2.0 * sor.FxdParams->GetOwtPulse(0) < scale.IntFiber) {
      return Attenuation(sor, first->EPT);
    }
    return scale.begLevel / 100.0;  // the field counts in 0.01 dB
  }

  // Before the event, brought to the power of the longer pulse; what that itself shows counts if it is lower.
  double BeforeDb() const {
    const double broughtDb = Attenuation(sor_, event_.ML1) - (AtLaunchDb(sor_) - AtLaunchDb(longer_));
    return std::max(broughtDb, Attenuation(longer_, event_.ML1));
  }

  int BehindGroup(double pulses) const { return TruncToInt(groupEndOwt_ + pulses * longPulseOwt_); }

  // The first event of the longer pulse clear of the group.
  const TSorBlockKeyEvents1E* NextOnLonger() const {
    constexpr double kClearPulses = 2.0;
    const int clearOwt = BehindGroup(kClearPulses);
    for (int i = 0; i < longer_.KeyEvents->ListedEvents(); ++i) {
      if (longer_.KeyEvents->EventAt(i).EPT > clearOwt) return &longer_.KeyEvents->EventAt(i);
    }
    return nullptr;
  }

  // The level that leads up to that event: by its section's line where that is long enough.
  double BeforeNext(const TSorBlockKeyEvents1E& next) const {
    constexpr double kLongSectionKm = 0.5;
    if (!(longer_.dOwtToLen(static_cast<double>(next.ML1) - next.ML0) > kLongSectionKm)) {
      return Attenuation(longer_, next.EPT);
    }
    double slope = 0.0, intercept = 0.0;
    // Fits read a record without changing it.
    RefMathLSL(const_cast<TSorData*>(&longer_), next.ML0, next.ML1, slope, intercept, 1.0);
    return -(slope * next.EPT + intercept);
  }

  const TSorData& sor_;
  const TSorData& longer_;
  const TSorBlockKeyEvents1E& event_;
  const double groupEndOwt_;  // place of the last event of the group
  const double longPulseOwt_;
};

}  // namespace

double RefEventGetEventLossFromTwoSorPulses(const TSorData* sor, int index,
                                            std::vector<const TSorData*> nextPulses) {
  constexpr double kLongestSecondNs = 200.0;
  Require(!nextPulses.empty(), "nextPulses.size() > 0");
  const TSorData* longer = nextPulses.back();
  if (nextPulses.size() > 1) {
    longer = nextPulses[1];
    Require(longer != nullptr, "other");
    if (longer->FxdParams->GetNsPulse(0) > kLongestSecondNs) longer = nextPulses[0];
  }
  Require(longer != nullptr, "other");
  if (index < 0 || index >= sor->KeyEvents->ListedEvents()) return -1.0;
  return TwoPulseLoss(*sor, index, *longer).Db();
}
