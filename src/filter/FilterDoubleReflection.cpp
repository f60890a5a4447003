// SPDX-License-Identifier: Apache-2.0

// Whether two reflections share one rise.
//
// Two connectors closer than the receiver can follow show one rise with a dent in it, or one top that lasts
// longer than the pulse. A pulse on noisy ground, or one that ripples, shows dents as well; so the dent has
// to be deep against the noise, far enough behind the rise, and followed by a rise of its own.

#include <algorithm>
#include <cmath>
#include <optional>

#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "src/filter/Filter.h"
#include "src/filter/LinearTrace.h"
#include "src/filter/Optics.h"

namespace {

using reflyze::LinearTrace;

// The rise at `from`. The first peak, the dip and the second peak are found and then tested in turn; a
// test that decides gives the result.
class DoubleReflection {
 public:
  DoubleReflection(const TSorFilter& filter, long from, long recover, long w, double limitLin)
      : sor_(*filter.pSorData),
        levels_(&sor_),
        lin_(filter.Linf, levels_.points()),
        from_(std::max(from, 0L)),
        recovery_(lin_.Width(recover)),
        window_(lin_.Width(w)),
        pulse_(lin_.Width(filter.pulsePoints)),
        limitLin_(limitLin),
        slopeDb_(filter.dbOnDS),
        before_(std::max(from_ - 1, 0L)),
        bend_(recovery_ < 4 ? 1 : recovery_ / 3) {}

  // A point at the second reflection, 0 where there is only one.
  long Run() {
    if (lin_.empty() || from_ >= lin_.count()) return kOne;
    far_ = from_ + 1 + 2 * (pulse_ + recovery_ + window_);
    if (far_ >= lin_.count()) return kOne;
    SetSamples();
    FindFirstPeak();
    FindDipAndSecondPeak();
    if (const auto point = JudgeBend()) return *point;
    RefineDip();
    if (IsNoRise()) return kOne;
    if (kAlmost * lin_[second_] - lin_[dip_] < 2.0 * limitLin_) return LateFall();
    if (second_ - dip_ < recovery_ / 2 && first_ < dip_) return kOne;
    if (const auto point = JudgeHigherSecond()) return *point;
    if (!IsDipClear() || !DoMeansAgree()) return kOne;
    if (!IsDipDeep() && !HasSharpDip()) return kOne;
    return dip_ + samples_ / 2;
  }

 private:
  static constexpr long kOne = 0;
  static constexpr double kSameLevel = 1.02;  // two levels that differ by less are one
  static constexpr double kSamePeak = 1.05;   // and two tops of one rise
  static constexpr double kAlmost = 0.999;    // of a level, against rounding

  struct Bend {
    double db;
    long atDown, atUp;
  };

  double Db(long point) const { return levels_[point]; }
  double Rise(long from, long to) const { return lin_[to] - lin_[from]; }
  long LastWindow(long end) const { return std::min(end, lin_.count()) - samples_; }

  void SetSamples();
  void FindFirstPeak();
  void FollowRise(long end);
  void FindDipAndSecondPeak();
  Bend SharpestBend() const;
  std::optional<long> JudgeBend() const;
  void RefineDip();
  bool IsNoRise() const;
  long LateFall() const;
  std::optional<long> JudgeHigherSecond() const;
  bool IsDipClear() const;
  bool DoMeansAgree();
  bool IsDipDeep() const;
  bool HasSharpDip() const;

  TSorData& sor_;
  const reflyze::TraceLevels levels_;
  const LinearTrace lin_;
  const long from_;      // where the rise begins
  const long recovery_;  // points of the receiver's recovery
  const long window_;    // points of an event window
  const long pulse_;     // points
  const double limitLin_;
  const double slopeDb_;  // of the fibre, for a point
  const long before_;     // point in front of the rise
  const long bend_;       // points over which a bend is taken
  long far_ = 0;          // point behind all that two reflections in one may take
  long samples_ = 1;      // of a mean
  long rising_ = 0;       // to which the first peak is searched
  long first_ = 0, dip_ = 0, second_ = 0;
  double firstLin_ = 0.0, dipLin_ = 0.0, secondLin_ = 0.0;  // means there
};

// Means where the pulse has samples enough and the fibre behind is not far above the noise.
void DoubleReflection::SetSamples() {
  constexpr long kFewSamples = 10;   // points of pulse: a shorter one leaves no means
  constexpr long kMostSamples = 16;  // of a mean
  constexpr double kQuiet = 100.0;   // limits
  samples_ =
      pulse_ < kFewSamples || lin_[far_] > kQuiet * limitLin_ ? 1 : std::min(pulse_ / 10, kMostSamples);
}

// A rise that is still going on where the search for its peak ends is followed, unless it has slowed down.
void DoubleReflection::FindFirstPeak() {
  constexpr double kSteep = 10.0;
  rising_ = from_ + recovery_ + pulse_ / 2;
  if (lin_[rising_] > kSteep * lin_[from_ + 1]) rising_ += recovery_ / 2;
  const LinearTrace::Found peak = lin_.HighestMean(from_, rising_ + 1, samples_);
  first_ = peak.at;
  firstLin_ = peak.lin;
  if (first_ == LastWindow(rising_ + 1) && Rise(before_, first_) > 3.0 * limitLin_) FollowRise(rising_);
}

void DoubleReflection::FollowRise(long end) {
  rising_ = end + recovery_ / 2;
  long peak = lin_.HighestMean(from_, rising_ + 1, samples_).at;
  if (peak == LastWindow(rising_ + 1)) {
    const auto goesOn = [&] {
      const double stepLin = Rise(peak - 1, peak);
      return Rise(peak, peak + 1) > stepLin / 3 || (samples_ > 2 && Rise(peak, peak + 2) > stepLin / 2);
    };
    while (peak < lin_.count() - 1 && goesOn()) ++peak;
  }
  const bool isSamePeak = lin_[peak] - kSamePeak * lin_[first_] < limitLin_ &&
                          peak - first_ <= recovery_ / 2 &&
                          lin_[peak] - kSameLevel * lin_[peak - 1] < limitLin_;
  if (isSamePeak) {
    first_ = peak;
  } else {
    rising_ = end;
  }
  firstLin_ = lin_.Mean(first_, samples_);
}

void DoubleReflection::FindDipAndSecondPeak() {
  const LinearTrace::Found dip = lin_.LowestMean(first_, (pulse_ + 1) / 2 + rising_ + 1, samples_, slopeDb_);
  dip_ = dip.at;
  dipLin_ = dip.lin;
  const long end = dip_ + recovery_ + pulse_ / 2;
  const LinearTrace::Found peak = lin_.HighestMean(dip_, end, samples_);
  second_ = peak.at;
  secondLin_ = peak.lin;
  if (second_ != LastWindow(end)) return;
  while (second_ < lin_.count() - samples_ && Rise(second_, second_ + 1) > Rise(second_ - 1, second_) / 3)
    ++second_;
}

DoubleReflection::Bend DoubleReflection::SharpestBend() const {
  long atDown = 0, atUp = 0;
  const double db = RefAutoSearchAcCeleration(&sor_, before_, second_ - bend_, bend_, atDown, atUp);
  return {db, atDown, atUp};
}

// A rise in two steps, without a dip: the trace bends up, down, and up again. The bend down in the middle
// parts the reflections. A bend up that comes last is the foot of a single late rise.
std::optional<long> DoubleReflection::JudgeBend() const {
  constexpr double kSharpDb = -0.5;
  constexpr double kRecoveriesApart = 1.3;  // two rises closer than that look like one
  const bool rises =
      before_ > pulse_ && second_ > dip_ &&
      static_cast<double>(second_ - from_) >
          kRecoveriesApart * static_cast<double>(recovery_) + static_cast<double>(pulse_ / 5 + samples_) &&
      lin_[second_] - kSameLevel * lin_[first_] > limitLin_ / 2 && lin_[second_] / 20 < Rise(before_, first_);
  if (!rises) return std::nullopt;
  const Bend bend = SharpestBend();
  if (bend.db < kSharpDb && bend.atDown - bend.atUp > bend_) {
    return bend.atDown <= first_ && dip_ != first_ ? dip_ : bend.atDown - 1;
  }
  if (bend.atUp - bend.atDown > bend_) return kOne;
  return std::nullopt;
}

void DoubleReflection::RefineDip() {
  const auto takeDip = [this](long a, long b) {
    const LinearTrace::Found dip = lin_.LowestMean(a, b, samples_, slopeDb_);
    dip_ = dip.at;
    dipLin_ = dip.lin;
  };
  if (dipLin_ < firstLin_ && dipLin_ < secondLin_) takeDip(first_ + 1, second_);
  if (first_ != dip_) return;
  const long end = from_ + recovery_ + samples_;
  const LinearTrace::Found peak = lin_.HighestMean(from_, end, samples_);
  first_ = peak.at;
  firstLin_ = peak.lin;
  takeDip(first_, end);
}

// Whether what was taken for a first peak or for a second one does not rise far enough to be one.
bool DoubleReflection::IsNoRise() const {
  const double firstRise = Rise(from_, first_), secondRise = Rise(dip_, second_);
  const double fromShare = lin_[from_] / 20, dipShare = lin_[dip_] / 20;
  if (firstRise < limitLin_) return true;
  if (dip_ - from_ < pulse_ && std::fabs(Rise(from_, dip_)) < 2.0 * limitLin_) return true;
  if (firstRise < fromShare + limitLin_ && secondRise < dipShare + limitLin_) return true;
  if (firstRise + secondRise < 4.0 * limitLin_ + fromShare + dipShare &&
      lin_[first_] - lin_[far_] < 2.0 * limitLin_ + lin_[from_] / 10) {
    return true;
  }
  return second_ == dip_;
}

// Without a second rise, a top that lasts longer than one pulse holds two. The second one began a pulse
// before the fall. A saturated top may be as long as it likes.
long DoubleReflection::LateFall() const {
  if (Db(dip_) > sor_.GetMaxLevel() - reflyze::kClipsNearTopDb) return kOne;
  const long fall =
      RefAutoSearchStraightLess(&sor_, second_, static_cast<float>((2.0 * Db(dip_) + Db(far_)) / 3));
  constexpr double kLongestPulses = 1.3;  // of a single reflection
  const double longestSingle =
      kLongestPulses * static_cast<double>(pulse_) + static_cast<double>(2 * recovery_ + window_);
  if (static_cast<double>(fall - from_) <= longestSingle) return kOne;
  return fall - pulse_ - recovery_ / 2 - window_;
}

// A second peak that is clearly higher, a pulse behind the first, is one of its own: parted by a dip, or by a
// bend.
std::optional<long> DoubleReflection::JudgeHigherSecond() const {
  constexpr double kClearlyHigher = 1.3;
  if (!(second_ >= first_ + pulse_ && secondLin_ > kClearlyHigher * firstLin_)) return std::nullopt;
  if (dipLin_ + limitLin_ < firstLin_) return dip_ - samples_ / 2;
  const Bend bend = SharpestBend();
  if (bend.db < 0.0) return bend.atDown - 1;
  return std::nullopt;
}

bool DoubleReflection::IsDipClear() const {
  return !(firstLin_ - lin_[before_] < limitLin_ || secondLin_ - dipLin_ < limitLin_ ||
           (secondLin_ + firstLin_) / 2 - dipLin_ < 2.0 * limitLin_);
}

// A weak long pulse has samples enough for plain means in front, over the first reflection and over the
// second.
bool DoubleReflection::DoMeansAgree() {
  const bool isWeak = firstLin_ - lin_[before_] < 10.0 * limitLin_ && 2 * (recovery_ + window_) < pulse_;
  if (!isWeak) return true;
  firstLin_ = lin_.Mean(from_ - recovery_, recovery_);
  dipLin_ = lin_.Mean(before_ + recovery_ - 1, pulse_ - recovery_);
  secondLin_ = lin_.Mean(dip_ + 1, pulse_);
  return !(dipLin_ - firstLin_ < 2.0 * limitLin_ || secondLin_ - firstLin_ < 2.0 * limitLin_);
}

bool DoubleReflection::IsDipDeep() const {
  constexpr double kDeep = 1.2;
  return firstLin_ - lin_[before_] > kDeep * lin_[before_] && firstLin_ > kDeep * dipLin_ &&
         secondLin_ - dipLin_ > 2.0 * limitLin_ && secondLin_ > kDeep * dipLin_;
}

// A shallow dip has to have edges: a fall into it that is over at once, in front of its middle.
bool DoubleReflection::HasSharpDip() const {
  float fallDb = 0.0F, riseDb = 0.0F;
  long atFall = 0, atRise = 0;
  RefAutoSearchMaxdbRiseFall(&sor_, (first_ + from_) / 2, dip_, 1, fallDb, atFall, riseDb, atRise,
                             static_cast<float>(slopeDb_));
  if (atRise < atFall && Db(atFall + 2) - Db(atFall + 1) < 2.0 * fallDb) return false;
  if (2.0 * secondLin_ < firstLin_ && lin_[far_] > dipLin_) return false;
  if ((first_ + second_) / 2 - 1 <= atFall) return false;
  return !(2.0 * fallDb > riseDb);
}

}  // namespace

long TSorFilter::DoubleRDetect(long i, long rf, long w, float T) const {
  if (pSorData == nullptr) return 0;
  return DoubleReflection(*this, i, rf, w, T).Run();
}
