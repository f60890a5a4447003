// SPDX-License-Identifier: Apache-2.0

// Width of a reflection on a trace that ripples.
//
// The width is taken at half height, between the middle of the rise and the middle of the fall behind the
// top. Ripple moves both: the rise may begin earlier than the event finder saw, the top may be a crest behind
// the first one, and what looks like the fall may be the gap between two reflections that overlap.

#include "ref/figures/refAutoNoise.h"
#include "ref/figures/refAutoPolar.h"
#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/search/refAutoSearch.h"

using reflyze::TraceLevels;

namespace {

class ReflectionWidth {
 public:
  ReflectionWidth(TSorData* sor, long begin, long p, long lim, long w, float slopeDb, float rippleDb)
      : sor_(sor),
        levelDb_(sor),
        peak_(levelDb_.Near(p)),
        limit_(std::min(lim, levelDb_.points())),
        window_(levelDb_.Near(w)),
        slopeDb_(slopeDb),
        rippleDb_(rippleDb),
        begin_(levelDb_.Near(begin)) {}

  long Run() {
    FindFoot();
    if (!FindTop()) return 0;
    if (!FindFallEnd()) return 0;
    if (IsTwoReflections()) return kOverlapping;
    const long halfFall = (top_ + fallEnd_) / 2;
    heightDb_ = levelDb_[top_] - (levelDb_[halfRise_] + levelDb_[halfFall]) / 2;
    if (top_ > peak_ - rise_ && heightDb_ > 3 * rippleDb_ && heightDb_ > 5 * overHalfDb_ + rippleDb_)
      return kTooSteep;
    const long width = std::max(halfFall - halfRise_, 0L);
    return halfCrossing_ - peak_ <= 3 * (peak_ - begin_) ? WidthBehindPeak(width) : width;
  }

  long begin() const { return begin_; }
  // What the run got to know before it ended.
  bool hasTop() const { return hasTop_; }
  long top() const { return top_; }
  bool hasHeight() const { return hasHeight_; }
  float heightDb() const { return heightDb_; }

 private:
  static constexpr long kTooSteep = -1;
  static constexpr long kOverlapping = -2;
  static constexpr long kShortRisePoints = 10;  // in a longer rise the top is searched with a fifth of it
  // Tuned, without derivation.
  static constexpr float kEasySlope = 0.8f;        // share of the fibre's slope that a threshold falls with
  static constexpr float kTopOverNoise = 1.5f;     // times the noise that a top has to stand over half height
  static constexpr float kSmallFallShare = 0.33f;  // of what a top in the noise stands over half height
  static constexpr double kLongRises = 1.5;        // rises that two reflections take together at least
  static constexpr float kEqualTopsDb = 0.01f;     // tops that differ by less are the same

  // Follows the rise back to where it begins, and takes its half height and the noise there.
  void FindFoot() {
    while (begin_ >= 2 && levelDb_[begin_ - 1] < levelDb_[begin_] + slopeDb_) --begin_;
    halfDb_ = (levelDb_[begin_] + levelDb_[peak_]) / 2;
    noiseDb_ = RefMathAddNoise(sor_, begin_, window_, 1);
    halfRise_ = (begin_ + peak_) / 2;
    halfCrossing_ = RefAutoSearchStraightLess(sor_, peak_, halfDb_, kEasySlope * slopeDb_);
    rise_ = peak_ - begin_;
  }

  // The highest mean around the peak; from there on up while the trace still climbs. False without the linear
  // trace, and where nothing stands above the noise.
  bool FindTop() {
    float* const lin = RefEmbGetLinf(sor_);
    const long points = levelDb_.points();
    if (lin == nullptr || points < 1) return false;
    const long window = rise_ < kShortRisePoints ? window_ : rise_ / 5;
    const long from = std::clamp(begin_, 0L, points - 1), to = std::min(peak_ + window, points);
    float mean;
    top_ = RefAutoGetAvrMax(lin, from, to, mean, static_cast<int>(std::min(window, points - from)), slopeDb_);
    top_ = std::min(top_, peak_);
    while (levelDb_[top_] < levelDb_[top_ + 1] + slopeDb_ && top_ < limit_ - 2) ++top_;
    hasTop_ = true;
    overHalfDb_ = levelDb_[top_] - halfDb_;
    return !(kTopOverNoise * noiseDb_ > overHalfDb_);
  }

  // How far the trace has to fall behind the top for the fall to have begun.
  float ClearFallDb() const {
    if (3 * noiseDb_ < overHalfDb_ || (rise_ >= kShortRisePoints && overHalfDb_ > noiseDb_))
      return overHalfDb_;
    return overHalfDb_ > noiseDb_ ? noiseDb_ : kSmallFallShare * overHalfDb_;
  }

  // Where the fall behind the top ends. False when a higher crest comes before: then this is not the top.
  bool FindFallEnd() {
    const long fallen =
        RefAutoSearchStraightLess(sor_, top_, levelDb_[top_] - ClearFallDb(), kEasySlope * slopeDb_);
    if (fallen - peak_ > rise_ && top_ > peak_) {
      float crestDb;
      const long crest = RefAutoGetMax(sor_, top_ + 1, fallen, crestDb, 1);
      if (crest - top_ > window_ && crestDb > levelDb_[top_] + rippleDb_) return false;
    }
    fallEnd_ = fallen;
    while (levelDb_[fallEnd_] >= levelDb_[fallEnd_ + 1] + slopeDb_ && fallEnd_ < limit_ - 2) ++fallEnd_;
    return true;
  }

  // A long fall behind a high top: the begin is moved to the half height of that top, and when the reflection
  // is then longer than one rise and one window, and so is what lies before it, there are two.
  bool IsTwoReflections() {
    heightDb_ = levelDb_[top_] - levelDb_[begin_];
    hasHeight_ = true;
    const bool high = heightDb_ > 5 * rippleDb_ || (rise_ <= 0 && heightDb_ > 2 * rippleDb_ + noiseDb_);
    if (!(overHalfDb_ > rippleDb_ && fallEnd_ - top_ > 2 * window_ && high)) return false;
    const float halfTopDb = (levelDb_[top_] + levelDb_[begin_]) / 2;
    const long before = RefAutoSearchBackGreather(sor_, begin_, halfTopDb);
    begin_ = std::max(RefAutoSearchBackLess(sor_, top_, halfTopDb, 0), 0L);
    const long length = fallEnd_ - begin_;
    if (!(length > rise_ + window_ && begin_ - before > rise_)) return false;
    return (length < 2 * rise_ && levelDb_[begin_] > levelDb_[fallEnd_]) ||
           (static_cast<double>(length) > kLongRises * static_cast<double>(rise_) &&
            levelDb_[begin_] < levelDb_[begin_ + rise_]);
  }

  // Looks behind the peak for a higher top, as far as the half height carries. A reflection that turns out
  // twice as wide is taken half way.
  long WidthBehindPeak(long width) {
    float riseTopDb, topDb;
    const long riseTop = RefAutoGetMax(sor_, begin_, peak_, riseTopDb, 1);
    const float halfBehindDb = halfDb_ - static_cast<float>(halfCrossing_ - halfRise_) * slopeDb_;
    long end = RefAutoSearchStraightLess(sor_, halfCrossing_, halfBehindDb);
    if (end - halfCrossing_ > peak_ - begin_) end = halfCrossing_;
    end = std::min(end, limit_);
    top_ = RefAutoGetMax(sor_, peak_, end, topDb, 1);
    if (!(riseTopDb < topDb + static_cast<float>(top_ - riseTop) * slopeDb_ - kEqualTopsDb)) return width;
    heightDb_ = topDb - (levelDb_[halfRise_] + levelDb_[end]) / 2;
    const long wide = std::max(end - halfRise_, 0L);
    return wide > 2 * width ? (wide + width) / 2 : width;
  }

  TSorData* const sor_;
  const TraceLevels levelDb_;
  const long peak_, limit_, window_;
  const float slopeDb_, rippleDb_;
  long begin_;
  float halfDb_ = 0;       // level half way up from the begin to the peak
  float noiseDb_ = 0;      // at the begin, over the window
  long rise_ = 0;          // points from the begin to the peak
  long halfRise_ = 0;      // middle of the rise
  long halfCrossing_ = 0;  // where the trace is back at half height behind the peak
  long top_ = 0, fallEnd_ = 0;
  float overHalfDb_ = 0;  // top above half height
  float heightDb_ = 0;
  bool hasTop_ = false, hasHeight_ = false;
};

}  // namespace

long RefAutoGetWidthPlr(TSorData* sor, long& begin, long p, long lim, long w, float slope, float T, long& top,
                        float& height) {
  ReflectionWidth measure(sor, begin, p, lim, w, slope, T);
  const long width = measure.Run();
  begin = measure.begin();
  if (measure.hasTop()) top = measure.top();
  if (measure.hasHeight()) height = measure.heightDb();
  return width;
}
