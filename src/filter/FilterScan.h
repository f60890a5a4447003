// SPDX-License-Identifier: Apache-2.0
#pragma once

// Private to the automatic filter: the scan along the trace, what it measures with and what it leaves behind
// for the end phase.
//
// Smoothing must not smear an event, and an event can't be found in unsmoothed noise, so both happen in one
// loop: the state of the event decides how wide the running mean is, and the mean is what the next sample is
// held against. Samples are in linear power, levels in dB, places and windows in points.

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>

#include "sor/blocks/sorPoint.h"
#include "src/filter/Filter.h"
#include "src/filter/FilterEvent.h"
#include "src/filter/HeldSamples.h"
#include "util/tarray.h"

namespace reflyze {

// Grade of the strongest reflection from which on light behind it is suspected to be none.
constexpr long kRulingGrade = 20;

// --- The trace ---

// The trace as the automatic filter reads it. Samples beyond an end are those at the end, levels -65.5 dB;
// ranges are held inside the trace.
class ScanTrace {
 public:
  ScanTrace(const TSorFilter& filter, TSorData& sor);

  long points() const { return points_; }
  float Lin(long point) const { return lin_[point]; }
  // Mean of the 16 samples up to this one.
  float NearMean(long point) const { return nearMean_[point]; }
  double Db(long point) const { return levels_[point]; }
  double ToLin(double db) const;
  float ToDb(float lin) const;
  const HeldSamples& samples() const { return lin_; }

  // Extremes of the linear trace, both ends included; `side` says which of equal ones.
  long Highest(long a, long b, int side = 1) const;
  long Lowest(long a, long b, int side = 1) const;
  // Going back from a point to `limit`, the first sample below a level; `limit` - 1 for none.
  long LastBelow(long from, double lin, long limit) const;
  // Going back from a point, where a window of `count` samples begins whose mean is above a level; -1 for
  // none.
  long LastMeanAbove(long from, long count, double lin) const;
  // From a point on, the first level below one that falls with the fibre by `slopeDb` a point.
  long FirstBelow(long from, double db, double slopeDb) const;
  // An index as a field of an event takes it: not behind the trace. In front of it the fibre may begin.
  int Held(long point) const { return static_cast<int>(std::clamp(point, -kFarthest, points_ - 1)); }

  TSorData& sor() const { return sor_; }

 private:
  static constexpr long kFarthest = 1L << 30;

  TSorData& sor_;
  float* const linSamples_;
  const HeldSamples lin_, nearMean_;
  const LevelView levels_;  // which the scan overwrites in place
  const long points_;
};

// The map of averaging widths that a caller may want; without one nothing is noted and everything reads 1.
class WidthMap {
 public:
  WidthMap(short* widths, long points) : widths_(widths), points_(widths != nullptr ? points : 0) {}
  bool isKept() const { return widths_ != nullptr; }
  short* data() const { return widths_; }
  long operator[](long point) const;
  void Set(long point, long width) {
    if (static_cast<unsigned long>(point) >= static_cast<unsigned long>(points_)) return;
    widths_[point] = static_cast<short>(std::min<long>(width, std::numeric_limits<short>::max()));
  }
  void Clear(long from, long to);  // both included: these points are not averaged

 private:
  short* widths_;
  long points_;  // of the map, 0 without one
};

// --- The scales of a run ---

// Everything that is fixed once the scan starts.
struct ScanScales {
  long points = 0;
  double spacingOwt = 0.0;  // 100 ps a point
  double noiseDb = 0.0;     // noise floor
  double noiseLin = 0.0;    // the same in linear power
  float slopeDb = 0.0F;     // loss of the fibre over a point
  double fallOwt = 0.0;     // time in which the receiver falls by 1.5 dB
  long zeroPoint = 0;       // point of time 0; below 0 when the trace starts later
  long innerFibre = 0;      // the same when a fibre inside the instrument reaches up to there, else 0
  long pairPoints = 0;      // 18 m, after which the instrument's own pair of echoes follows a reflection
  double ringReach = 0.0;   // 0.6 km in points, within which the receiver may ring
  long pulseGrade = 0;      // how much a long pulse counts towards the strength of a reflection
  long recoverPoints = 1;   // recovery of the receiver by 2.5 dB
  long nearPoints = 1;      // windows to look ahead, by half a recovery of 1.5 dB, by two thirds of one, ...
  long midPoints = 1;       // ... and by three with 50 ns more
  long farPoints = 1;
  long pulsePoints = 1;       // pulse with the receiver's fall
  long eventPoints = 3;       // pulse with a margin of two points
  long leastPoints = 1;       // shortest event
  int mostDoublings = 7;      // the mean holds up to 2^mostDoublings samples
  float rippleDb = 0.0F;      // swing of the backscatter
  long settledPoint = 0;      // behind the dead zone of the launch
  long stepPoints = 1;        // farthest that the begin of an event is moved back
  double referenceLin = 0.0;  // backscatter some way into the fibre
  double hiLimitLin = 0.0;    // nothing above is averaged
  long lastPoint = 0;         // of the scan: steps look ahead
};

// Measures the scales, fills the filter's mean of 16 samples and the result's `polar`. None for a trace that
// can't be worked on: no points, no spacing, no linear trace, or a noise floor at the bottom of the scale.
std::optional<ScanScales> MeasureScanScales(TSorFilter& filter, TSorData& sor);

// So many times the noise, in linear power, is near to it.
constexpr double kNearNoises = 5.0;

// A sample of backscatter differs by its size over this from one a dB higher: 5 log10(e), rounded up.
constexpr double kRippleToLin = 2.2;

// --- State of the scan, by owner ---

// How the sample and what follows it differ from the running mean, in linear power.
struct Differences {
  double now = 0.0;
  double ahead = 0.0;
};

// What a point is part of: a rise, a fall, or neither. A surge is a rise out of a dead zone, which needs no
// further proof. Each point that confirms a fall counts.
class Edge {
 public:
  static Edge None() { return Edge(0); }
  static Edge Rise() { return Edge(1); }
  static Edge Surge() { return Edge(2); }
  static Edge Fall() { return Edge(-1); }
  static Edge PendingFall() { return Edge(-2); }

  bool isNone() const { return strength_ == 0; }
  bool isRising() const { return strength_ > 0; }
  bool isSurge() const { return strength_ == 2; }
  bool isFalling() const { return strength_ < 0; }
  bool isPendingFall() const { return strength_ < -1; }
  bool isStrong() const { return std::abs(strength_) >= 2; }
  bool HasTurnedFrom(Edge last) const {
    return (isRising() && last.isFalling()) || (isFalling() && last.isRising());
  }
  void ConfirmFall() { --strength_; }
  void Weaken() { strength_ = strength_ * 2 / 3; }

 private:
  explicit Edge(int strength) : strength_(strength) {}
  int strength_;
};

// The running mean of the linear trace. The sum runs in single precision; it never runs for longer than the
// trace is quiet.
class RunningMean {
 public:
  static constexpr long kFirstTarget = 16;

  long width() const { return width_; }  // samples in the mean
  float mean() const { return mean_; }
  float sum() const { return sum_; }
  long target = kFirstTarget;  // width that the signal asks for

  // Starts from what stands for the sample before the trace, or anew from a sample of it.
  void Start(float lin);
  void Restart(float lin);
  void Slide(const HeldSamples& lin, long at) {
    sum_ += lin[at];
    sum_ -= at < width_ ? startLin_ : lin[at - width_];
  }
  void Widen(const HeldSamples& lin, long at) {
    sum_ += lin[at];
    ++width_;
  }
  // Takes the sample and drops the oldest `drop`.
  void Narrow(const HeldSamples& lin, long at, long drop);
  // Keeps the newest `width` samples before a point.
  void CutTo(long width, long at, const TSorFilter& filter);
  void Set(float mean, long width);
  void SetSingle() { width_ = 1; }
  void Settle() { mean_ = sum_ / static_cast<float>(width_); }

 private:
  long width_ = 1;
  float sum_ = 0.0F, mean_ = 0.0F;
  float startLin_ = 0.0F;  // stands for what lies before the trace
};

// What a sample has to differ by from the mean to be an edge, and for which levels that holds.
struct EdgeLimits {
  bool isStale = true;
  double rippleLin = 0.0;  // swing of the backscatter at this level
  double rise = 0.0, strongRise = 0.0;
  double fall = 0.0, strongFall = 0.0;  // negative
  double bandLow = 0.0, bandHigh = 0.0;

  // Takes the limits from noise and ripple. They grow with every rescan, a little in the noise, and falls
  // have to be deep among ghosts.
  void Renew(const ScanScales& scales, long restarts, bool isInNoise, bool hasGhosts);
  void CentreOn(double lin, const ScanScales& scales);
};

// The events in the order of the trace. Opening an event and closing it are half a step each.
class EventSlots {
 public:
  static constexpr unsigned int kRoom = 200;
  using Slots = safe_array<TFEvent, kRoom>;

  bool isOpen() const { return halfSteps_ % 2 != 0; }
  bool isUntouched() const { return halfSteps_ == 0; }
  // No event is opened any more. The hundredth may be; what closes it may split it.
  bool isFull() const { return halfSteps_ > kLastOpening; }
  long closed() const { return halfSteps_ / 2; }
  // Whether the scan has got into an event behind the first.
  bool isPastFirst() const { return halfSteps_ > 2; }
  TFEvent& current() { return slots_[Index(closed())]; }   // the open one, or the next to be opened
  TFEvent& last() { return slots_[Index(closed() - 1)]; }  // the last that was closed
  TFEvent* lastOrNull() { return closed() > 0 ? &last() : nullptr; }
  TFEvent& operator[](long i) { return slots_[Index(i)]; }
  TFEvent* data() { return slots_.ptr(); }

  void HalfStep() { ++halfSteps_; }
  void TakeBackHalfStep() { --halfSteps_; }
  void Step() { halfSteps_ += 2; }  // a whole event, from open to open or from closed to closed
  void TakeBackStep() { halfSteps_ -= 2; }
  void ReturnTo(long closedEvents) { halfSteps_ = 2 * closedEvents; }

 private:
  static constexpr long kLastOpening = 198;
  static unsigned int Index(long i) { return static_cast<unsigned int>(i); }

  long halfSteps_ = 0;
  Slots slots_;
};

// Weak events that follow each other over quiet stretches are noise: the limits were too low.
class WeakRun {
 public:
  // Takes an event that was closed as number `index`.
  void Add(const TFEvent& event, const TFEvent* before, long index, long closelyPoints);
  bool IsNoise() const { return events_ > kMostWeakEvents && gapPoints_ > kMostGapPoints && !isExhausted(); }
  // Gives up the run: the number of events that stay. The limits grow with every restart.
  long Restart();
  long restarts() const { return restarts_; }

 private:
  static constexpr long kMostWeakEvents = 2;
  static constexpr long kMostGapPoints = 29;
  static constexpr int kCertainGrade = 6;  // such an event is no noise
  static constexpr int kTrailedGrade = 7;  // close behind a stronger one a weak event is part of its tail
  // Each restart asks for a walk of up to the whole trace. Real traces settle after a few; limits forty times
  // the first do so for any noise that a noise floor was measured from.
  static constexpr long kMostRestarts = 40;
  bool isExhausted() const { return restarts_ >= kMostRestarts; }

  long events_ = 0, gapPoints_ = 0, restarts_ = 0;
  long kept_ = 0;  // events before the run
};

// Where strong reflections still rule the trace.
struct DeadZone {
  long end = 0;                     // of the dead zone of the last event
  float fallDb = 0.0F;              // a point, as the receiver falls there; 0 for unknown
  long ringEnd = 0;                 // of the receiver's ringing
  long ringTests = 0;               // made so far
  long tailEnd = 0;                 // of the stretch in which a reflection only falls
  long pairBegin = 0, pairEnd = 0;  // where the instrument's own pair of echoes may stand
};

// The strongest reflection, and what suspicions it raises.
struct Strongest {
  long grade = 0;  // 0 for none
  long index = 0;
  long ghosts = 0;     // reflections that look like sources of ghosts
  long suspectAt = 0;  // event index at which the fibre seems to have ended, 0 for none
};

// Writes levels of the running mean. The step from one mean to the next is small on quiet stretches, and the
// series of the logarithm stands in for it a few times in a row.
class LevelWriter {
 public:
  // Level of a mean; `lin` is the sample at the point.
  float LevelDb(float mean, float lin, const ScanTrace& trace);

 private:
  float lastMean_ = 0.0F;
  float lastDb_ = -45.0F;
  int quickSteps_ = 0;
};

// --- The scan ---

// One pass along the linear trace: smooths it, and opens and closes events as edges come.
class AutoFilterScan {
 public:
  AutoFilterScan(TSorFilter& filter, TSorData& sor, short* pointMap, const ScanScales& scales);
  void Run();

  EventSlots& events() { return events_; }
  RunningMean& mean() { return mean_; }
  Strongest& strongest() { return strongest_; }
  WidthMap& widths() { return widths_; }
  const ScanTrace& trace() const { return trace_; }
  long stoppedAt() const { return at_; }  // first point that was not smoothed

 private:
  enum class Verdict { kGoOn, kFibreEnded };

  // --- The start of the fibre (FilterScanLaunch.cpp) ---
  void FindFibreStart();
  bool IsLaunchNearStart() const;
  void FindLateLight();
  void FindFirstPoint();
  void PrepareLaunchEvent();
  void MeasureInnerLaunch();
  long SecondLaunch();
  long LaunchGrade();
  void ShapeLaunch(long grade);
  void EndLaunchAtOnce();
  void FindLaunchEnd();
  bool IsFlatLaunch();
  void StartMean();

  // --- A point of the scan (FilterScan.cpp) ---
  void RescanIfEventsAreNoise();
  void RenewLimits();
  void MeasureRipple();
  bool TakePlainPoint(Differences& diff);
  long FallLookPoint() const;
  Differences LookAhead();
  void LookIntoFall(Differences& diff);
  double FollowRise(double now) const;
  bool IsNoMeasure(double now) const;
  void CatchUpWithFall(const Differences& diff);
  void LookBetweenPair(Differences& diff) const;
  void FollowTrace(const Differences& diff);
  bool IsQuiet(const Differences& diff) const;
  bool FollowSinkingTrace();
  void NarrowAtEdge(const Differences& diff);
  void WritePoint();
  void SetTarget();
  void RestoreLevels(long from, long to);

  // --- The dead zone and the edges (FilterScanEdges.cpp) ---
  Verdict GuardDeadZone(Differences& diff);
  double RecoveryLin() const;
  void JudgeBySampleBefore(Differences& diff, double step, double recovery);
  bool MayRing();
  Verdict GuardRinging(Differences& diff);
  bool FibreEndedInRinging();
  bool IsNearNoise() const;
  void DampInDeadZone(Differences& diff);
  bool IsSurge(const Differences& diff, double recovery);
  void DecideEdge(Differences& diff);
  void DampBehindEvent(Differences& diff);
  bool IsRise(const Differences& diff) const;
  void TakeRise(const Differences& diff);
  bool IsFall(const Differences& diff);
  void TakeFall(const Differences& diff);
  bool FallGoesOn() const;

  // --- Events (FilterScanEvents.cpp) ---
  void TakeEdge(Differences& diff);
  void TakeTurn(Differences& diff);
  bool OpenEvent(const Differences& diff);
  bool IsPastLaunch() const;
  void BuildPassedLaunch();
  void RefineBegin(const Differences& diff);
  bool HoldsBack(const Differences& diff, long second) const;
  void CloseFirstOfTwo(long second);
  void MoveBeginBack();
  void MeasureRise(Differences& diff);
  void GradeRise(Differences& diff);
  long PassMark();
  void SuspectFibreEnd();
  bool IsNoise(int grade, long passMark) const;
  void RejectNoise();
  void MeasureFall(const Differences& diff);
  void SplitCloseReflections();
  long FootOfLateTop(const TFEvent& event) const;
  bool Counts();
  void SettleEvent();
  void SettleTail();
  bool IsGhostSource();
  void FinishEvent();
  void FinishLaunch(TFEvent& event);
  void FinishReflection(TFEvent& event);
  void NameReflection(TFEvent& event, long index);
  bool IsRipple(const TFEvent& event, const TFEvent& before, long halfFallen) const;

  float Lin(long point) const { return trace_.Lin(point); }
  double Db(long point) const { return trace_.Db(point); }
  double Above(long point) const { return static_cast<double>(Lin(point)) - mean_.mean(); }
  void Note(Choice choice, long point, double value, double limit, const char* unit,
            const char* reason) const;

  TSorFilter& filter_;
  TSorData& sor_;
  const LevelSetter setLevel_;
  const ScanScales scales_;
  const ScanTrace trace_;
  WidthMap widths_;

  RunningMean mean_;
  EdgeLimits limits_;
  EventSlots events_;
  WeakRun weakRun_;
  DeadZone dead_;
  Strongest strongest_;
  LevelWriter writer_;

  long at_ = 0;                   // the point that the scan stands at
  Edge edge_ = Edge::Fall();      // what this point is part of
  Edge lastEdge_ = Edge::Fall();  // what the last decision on an event was
  long top_ = 0;                  // highest point of the open event
  long secondFallAt_ = 0;         // where the reflection is expected to fall for good, 0 for unknown
  long heldBackAt_ = 0;           // a second reflection which an event must not begin before
  int launch_ = 0;                // 1: the launch is still to come, more: it stands at the very start
  bool launchIsDouble_ = false;
};

// --- Behind the scan (FilterEndPhase.cpp) ---

// Smooths what the scan has left, finds ends of the fibre in the noisy tail, removes echoes and reports.
long FinishAutoFilter(TSorFilter& filter, TSorData& sor, const ScanScales& scales, AutoFilterScan& scan,
                      TFEvent* out);

}  // namespace reflyze
