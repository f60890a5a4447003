// SPDX-License-Identifier: Apache-2.0

// Whether the receiver rings behind a strong reflection.
//
// A receiver that was driven hard may answer with a damped oscillation of its own. Each of its crests
// looks like a small reflection. What gives it away is the regularity: crests and valleys at equal
// distances, each wave a fixed share of the one before, and all of it a decaying cosine. Echoes of a patch
// cord come at equal distances too, but as pulses with flat ground between them. Behind a real reflection
// no valley mirrors its crest.
//
// So three crests and two valleys are pinned down one after the other; each step may find that this is no
// wave. Then the wave is held against its own period: its swings, its edges, its phase. At last the cycles
// are counted, for as long as the swing stays above the noise.

#include <algorithm>
#include <cmath>

#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "src/filter/Filter.h"
#include "src/filter/LinearTrace.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace elementary = reflyze::elementary;

namespace {

using reflyze::LinearTrace;
using reflyze::TruncToLong;

float Db(double ratio) { return TSorBlockQRTParameters::flog5t(static_cast<float>(ratio)); }

class Ringing {
 public:
  Ringing(TSorFilter& filter, long from, long last, float pulsePoints, long w1, double limitLin)
      : result_(filter.result),
        sor_(*filter.pSorData),
        levels_(filter.pSorData),
        lin_(filter.Linf, levels_.points()),
        from_(lin_.Width(from)),
        last_(lin_.Width(last)),
        pulse_(std::clamp<double>(pulsePoints, 0.0, static_cast<double>(lin_.count()))),
        pulseCeil_(TruncToLong(std::ceil(pulse_))),
        window_(lin_.Width(w1)),
        limitLin_(limitLin) {}

  // The point where the ringing ends, 0 where there is none.
  long Run() {
    if (lin_.empty() || static_cast<double>(last_ - from_) < 4.0 * Reach()) return 0;
    FindFirstCrest();
    if (!FindFirstValley()) return 0;
    FindSecondCrest();
    if (!FindSecondValley()) return 0;
    FindThirdCrest();
    if (!IsWave()) return 0;
    if (period_ > kShortPeriod && !HasWaveShape()) return 0;
    if (DiesAtThirdCrest()) {
      NoteDying();
      return crest_[2];
    }
    if (!SettlePeriod()) return 0;
    SampleWave();
    if (!SwingsOn() || !HasEvenCrests() || !HasEvenSwings() || !IsDampedCosine()) return 0;
    NotePeriod();
    return EndOfCycles();
  }

 private:
  static constexpr double kShortPeriod = 6.0;  // points: too short for a shape

  // --- Readings ---

  double Reach() const { return static_cast<double>(window_) + pulse_; }
  double Level(long point) const { return levels_[point]; }
  // Crests and valleys by number, from 1.
  long p(int number) const { return crest_[number - 1]; }
  long v(int number) const { return valley_[number - 1]; }
  double Crest(int number) const { return lin_[p(number)]; }
  double Valley(int number) const { return lin_[v(number)]; }
  double Between(int crest, int valley) const { return Crest(crest) - Valley(valley); }
  long At(int periods, double further = 0.0) const {
    return TruncToLong(static_cast<double>(p(1)) + periods * period_ + further + 0.5);
  }

  // --- The first waves ---

  void FindFirstCrest();
  bool FindFirstValley();
  void FindSecondCrest();
  bool FindSecondValley();
  void FindThirdCrest();
  bool IsWave() const;
  bool HasWaveShape() const;

  // --- A wave that dies early ---

  bool DiesAtThirdCrest() const;
  void NoteDying();

  // --- The wave and its period ---

  bool SettlePeriod();
  void SampleWave();
  bool SwingsOn() const {
    return !(sampledCrest_[2] - (sampledValley_[1] + sampledValley_[2]) / 2 < limitLin_);
  }
  bool HasEvenCrests();
  bool HasEvenSwings() const;
  bool IsDampedCosine();
  bool IsInPhase(double growth) const;
  void NotePeriod();
  long EndOfCycles() const;

  AutoFilterResultData& result_;
  TSorData& sor_;
  const reflyze::TraceLevels levels_;
  const LinearTrace lin_;
  const long from_, last_;
  const double pulse_;     // points
  const long pulseCeil_;   // the same as a whole number
  const long window_;      // points of an event window
  const double limitLin_;  // what noise may pretend

  long crest_[4] = {}, valley_[3] = {};
  long descent_ = 0;                 // first point that no longer falls behind the first crest
  double firstLin_ = 0.0;            // first crest, as found
  double swingLin_ = 0.0;            // from it to the first valley
  double half_ = 0.0;                // points between them
  double period_ = 0.0;              // points
  double fadeDb_ = 0.0;              // from crest to crest
  double decayDb_ = 0.0;             // a point
  long end_ = 0;                     // to which the next extreme is searched
  long shortest_ = 0, longest_ = 0;  // distances of neighbouring crests
  double sampledCrest_[4] = {}, sampledValley_[3] = {};  // at multiples of the period
  long cross_[2] = {};  // where the trace falls below the middle behind the first two crests
};

// --- The first waves ---

void Ringing::FindFirstCrest() {
  long top = from_;
  while (top < last_ - 1 && lin_[top + 1] >= lin_[top]) ++top;
  const LinearTrace::Found crest =
      lin_.Highest(top, TruncToLong(static_cast<double>(top) + 2.0 * Reach()), 0);
  crest_[0] = crest.at;
  firstLin_ = crest.lin;
}

bool Ringing::FindFirstValley() {
  const long span = std::max(pulseCeil_, p(1) - from_);
  long k = p(1) + 1;
  while (k < last_ && (lin_[k] < lin_[k - 1] || (lin_[k + 1] < lin_[k] && k - p(1) < span))) ++k;
  descent_ = k;
  valley_[0] = lin_.Lowest(k - 1, k - 1 + (k - p(1)) / 2, 1).at;
  swingLin_ = Between(1, 1);
  half_ = static_cast<double>(v(1) - p(1));
  return !(static_cast<double>(p(1)) + 4.0 * half_ > static_cast<double>(last_)) && half_ >= 1.0;
}

// Where the wave stands clear of the noise, its decay is made up for, so that the crest is not drawn to the
// side on which the trace stands higher; and the valley is taken again with it.
void Ringing::FindSecondCrest() {
  constexpr double kClearCrest = 3.0;  // limits
  const long a = v(1) + 1, b = v(1) + TruncToLong(1.5 * half_);
  crest_[1] = lin_.Highest(a, b, 0).at;
  const double nextLin = lin_[p(1) + TruncToLong(2.0 * half_)];
  if (!(Crest(1) > kClearCrest * limitLin_ && nextLin > kClearCrest * limitLin_)) return;

  decayDb_ = Db(Crest(1) / nextLin) / 2 / half_;
  crest_[1] = lin_.HighestMean(a, b, TruncToLong(half_ / 6 + 1), decayDb_ / 2).at;
  period_ = std::max(static_cast<double>(p(2) - p(1)), 1.0);
  fadeDb_ = Db(Crest(1) / Crest(2));
  decayDb_ = fadeDb_ / period_;
  valley_[0] = lin_.LowestMean(descent_ - 1, v(1), TruncToLong(period_ / 15 + 1), decayDb_ / 2).at;
}

bool Ringing::FindSecondValley() {
  end_ = TruncToLong(static_cast<double>(p(2)) + 1.5 * half_);
  valley_[1] = lin_.Lowest(p(2), end_, 1).at;
  return v(2) < end_ && v(2) != p(2);
}

void Ringing::FindThirdCrest() {
  constexpr double kFading = 5.0;  // a wave that fades so much ends its next crest earlier
  period_ = static_cast<double>(p(2) - p(1));
  if (Crest(1) - Crest(2) > kFading * Between(2, 1)) {
    end_ = TruncToLong(static_cast<double>(v(2)) + 2.0 * period_ / 3.0 + 1.0);
  }
  crest_[2] = lin_.Highest(v(2), end_, 0).at;
  long k = lin_.Lowest(p(3), p(3) + TruncToLong(period_ / 2 + 1.0), 1).at;
  while (k < last_ && lin_[k] < lin_[k - 1]) ++k;
  valley_[2] = k - 1;
}

// The second crest has to rise over the ground that a mere decay would leave, the third over its valley, and
// no front may be much steeper than the fall before it.
bool Ringing::IsWave() const {
  constexpr double kDbToShare = 2.2;  // small steps: 5 log10(1 + x) is 2.2 x
  const double rising = static_cast<double>(p(2) - v(1));
  if (Valley(1) * (1.0 - decayDb_ / 2 * rising / kDbToShare) > Crest(2)) return false;
  return !(Valley(2) > Crest(3)) && 3 * (p(2) - v(1)) >= v(1) - p(1);
}

// A wave is steepest halfway between crest and valley and flat at both; pulses and tails are not.
bool Ringing::HasWaveShape() const {
  constexpr double kDbToTwoShares = 8.8;  // over half a wave the fade is half, and 4.4 takes the square root
  const long sixth = TruncToLong(period_ / 6), third = TruncToLong(period_ / 3);
  if (lin_[p(1) + sixth] - lin_[p(1) + third] < 2.0 * limitLin_) return false;
  if (lin_[p(2) + sixth] - lin_[p(2) + third] < 1.5 * limitLin_) return false;
  if (Crest(1) - lin_[p(1) + sixth] > 10.0 * (lin_[v(1) - sixth] - Valley(1))) return false;
  const double faded = 1.0 - fadeDb_ / kDbToTwoShares;
  return !(Crest(2) - Valley(1) * faded < 2.0 * limitLin_ &&
           lin_[p(2) - sixth] - lin_[v(1) + sixth] * faded < limitLin_);
}

// --- A wave that dies early ---

// The third half wave is out of proportion, and what is left of the third swing lies near the noise, while
// those before it were clear and shrinking.
bool Ringing::DiesAtThirdCrest() const {
  constexpr double kClearSwing = 5.0;  // limits
  const long crests = p(3) - p(2), valleys = v(3) - v(2);
  if (!(2 * valleys > 3 * crests || 3 * valleys < 2 * crests)) return false;
  return Between(3, 3) < kClearSwing * limitLin_ && Between(2, 2) > kClearSwing * limitLin_ &&
         Crest(1) > Crest(2) && Crest(2) > Crest(3) && Between(1, 1) > Between(2, 2) &&
         5.0 * static_cast<double>(window_) + pulse_ < period_;
}

// What was noted first stays: later waves are fainter and tell less.
void Ringing::NoteDying() {
  if (result_.ringCount != 0) return;
  NotePeriod();
  if (Crest(2) > 0.0) result_.ringLevel = static_cast<float>(Db(Crest(1) / Crest(2)) / period_);
}

void Ringing::NotePeriod() {
  if (result_.ringCount == 0) result_.ringCount = TruncToLong(period_);
}

// --- The wave and its period ---

bool Ringing::SettlePeriod() {
  constexpr double kOnTime = 2.0;          // points
  constexpr double kShortestPeriod = 3.0;  // points
  period_ = static_cast<double>(p(3) - p(1)) / 2;
  crest_[3] = lin_.Highest(v(3), TruncToLong(static_cast<double>(v(3)) + period_), 0).at;
  if (std::fabs(static_cast<double>(p(4) - p(3)) - period_) <= kOnTime) {
    period_ = static_cast<double>(p(4) - p(1)) / 3;
  }
  return !(static_cast<double>(p(1)) + 4.0 * period_ > static_cast<double>(last_)) &&
         period_ > kShortestPeriod;
}

void Ringing::SampleWave() {
  sampledCrest_[0] = firstLin_;
  for (int i = 1; i < 4; ++i) sampledCrest_[i] = lin_[At(i)];
  for (int i = 0; i < 3; ++i) sampledValley_[i] = lin_[At(i, period_ / 2)];
}

// Crests may lie the further from equal distances, the better the width of the second one, between the middle
// of its front and of its back, agrees with that of a pulse.
bool Ringing::HasEvenCrests() {
  const auto middle = [this](int crest, int valley) {
    return static_cast<float>((Level(p(crest)) + Level(v(valley))) / 2);
  };
  for (int i = 0; i < 2; ++i) {
    cross_[i] = RefAutoSearchStraightLess(&sor_, p(i + 1), middle(i + 1, i + 1));
  }
  const long front = RefAutoSearchStraightGreather(&sor_, v(1), middle(2, 1));
  const long apart[] = {p(2) - p(1), p(3) - p(2), p(4) - p(3)};
  shortest_ = *std::min_element(apart, apart + 3);
  longest_ = *std::max_element(apart, apart + 3);

  const double wide = static_cast<double>(cross_[1] - front);
  int doubt = 2;
  if (wide >= pulse_ - 1.0 && wide <= pulse_ + 2.0) {
    doubt = 0;
  } else if (wide > 0.7 * pulse_ - 1.0 && wide < 1.5 * pulse_ + 2.0) {
    doubt = 1;
  }
  return (doubt + 3) * shortest_ >= 2 * longest_;
}

// No swing may outgrow the one before, shrink tenfold at once, or be a mere pulse on flat ground.
bool Ringing::HasEvenSwings() const {
  const double* const crest = sampledCrest_;
  const double* const valley = sampledValley_;
  const double swing = crest[0] - valley[0];
  if (2.0 * swing < crest[1] - valley[0]) return false;
  if (1.5 * swing < crest[2] - valley[2]) return false;
  if (swing > 10.0 * (crest[2] - valley[2]) && crest[0] - Valley(1) > 10.0 * Between(2, 2)) return false;
  return !(4.0 * pulse_ < period_ && crest[0] - lin_[p(1) + pulseCeil_ / 2] > swing / 2 &&
           crest[1] - lin_[p(2) - pulseCeil_] > (crest[1] - valley[0]) / 2);
}

// With the decay from crest to crest made up for, the swings of a damped cosine are equal. Only where they
// are, and the crests at equal distances, is its phase worth asking for.
bool Ringing::IsDampedCosine() {
  double fade = 1.0;
  if (lin_[cross_[1]] > 0.0) fade = std::max(lin_[cross_[0]] / lin_[cross_[1]], 1.0);
  const double a = Crest(1), b = Valley(1) * std::sqrt(fade);
  const double c = Crest(2) * fade, d = Valley(2) * fade * std::sqrt(fade);
  const double falls = (a - b) * (c - d), riseSquared = (c - b) * (c - b);
  const bool isRegular = c > d && static_cast<double>(longest_) < 1.2 * static_cast<double>(shortest_) &&
                         3.0 * riseSquared > falls && 3.0 * falls > riseSquared;
  if (!isRegular) return true;
  // Both falls have one sign here, so that their ratio has a logarithm.
  const double growth = elementary::Exp10(elementary::Log10((a - b) / (c - d) * fade) / 2 / period_);
  if (result_.ringCount == 0) result_.ringLevel = Db(growth);
  return IsInPhase(growth);
}

// Three periods against a cosine and a sine that start at the first crest: a wave is all cosine.
bool Ringing::IsInPhase(double growth) const {
  constexpr double kFullTurn = 6.283;
  constexpr double kInPhase = 2.5;
  double real = 0.0, imaginary = 0.0, total = 0.0, factor = 1.0, phase = 0.0;
  const long end = At(3);
  for (long i = p(1); i < end; ++i) {
    const double x = lin_[i] * factor;
    real += x * elementary::Cos(phase);
    imaginary += x * elementary::Sin(phase);
    total += x;
    factor *= growth;
    phase += kFullTurn / period_;
  }
  if (std::fabs(total) > 1.0) {
    real /= total;
    imaginary /= total;
  }
  return !(real < kInPhase * std::fabs(imaginary));
}

// From cycle to cycle, within a third of a period of where the next crest and valley are due. A cycle that
// swings more than the first is something else. Where the end of the trace holds the valley back, the wave
// has ended too.
long Ringing::EndOfCycles() const {
  const long window = TruncToLong(std::ceil(period_ / 30));
  const double floorLin = 5.0 * limitLin_ / std::sqrt(static_cast<double>(window));
  const double aside = period_ / 3;
  double crest = static_cast<double>(p(1)), valley = static_cast<double>(v(1)), swingLin = 0.0;
  long cycles = 0;
  bool goesOn = true;
  while (goesOn) {
    ++cycles;
    const double before = valley;
    crest += period_;
    valley += period_;
    const LinearTrace::Found high =
        lin_.HighestMean(TruncToLong(crest - aside), TruncToLong(crest + aside), window);
    const LinearTrace::Found low =
        lin_.LowestMean(TruncToLong(valley - aside), TruncToLong(valley + aside), window);
    crest = static_cast<double>(high.at);
    valley = static_cast<double>(low.at);
    swingLin = high.lin - low.lin;
    goesOn =
        valley < static_cast<double>(last_) && valley > before && swingLin > floorLin && swingLin < swingLin_;
  }
  if (swingLin > swingLin_) --cycles;
  const double end = static_cast<double>(p(1)) + static_cast<double>(cycles) * period_ + period_ / 4;
  return std::min(TruncToLong(end), lin_.count() - 1);
}

}  // namespace

int TSorFilter::ZvonDetect(int i, int last, float pw, int w1, float T) {
  if (pSorData == nullptr) return 0;
  return static_cast<int>(Ringing(*this, i, last, pw, w1, T).Run());
}
