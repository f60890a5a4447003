// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the splice detectors share.
//
// Two of them, SearchBigSplices and SearchWeakSplices, are one scan (StepScan): the fall of the level over a
// dead zone is watched along the stretch, small falls and rises are told from ripple and slope, and what
// exceeds the limit is placed. They differ in how a level is read and how much of a step they ask for. The
// third, SearchNoiseSplices, works where single points say nothing; it shares the stretch and its windows.
//
// Levels are in dB of the filtered trace, slopes in dB a point, positive for a loss; windows and places are
// in points. Every place that a search works out is held inside the stretch or the trace.

#include <algorithm>

#include "ref/math/ref_Math.h"
#include "ref/math/traceLevels.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/Detectors.h"
#include "src/filter/Filter.h"
#include "src/filter/HeldSamples.h"

namespace reflyze {

// One search: the trace as the detectors read it, the event in front, and the find.
class SpliceSearch {
 protected:
  explicit SpliceSearch(const SpliceTask& task);
  ~SpliceSearch() = default;

  double LevelDb(long point) const { return sor_->NumToLevel(point); }
  double PointFallDb(long from, long to) const { return LevelDb(from) - LevelDb(to); }
  double SlopeDb(long from, long to) const { return PointFallDb(from, to) / static_cast<double>(to - from); }
  // Points that the filter has averaged at a point, at least 1.
  long MeanPoints(long point) const;
  // A place of the find.
  int Held(long point) const {
    return static_cast<int>(std::clamp(point, 0L, std::max(levels_.points() - 1, 0L)));
  }
  // A grade of the find, truncated; bounded so that its negative exists.
  static int Grade(double steps);
  // First stretch between two points that falls by `least` to `most` dB a point over a base: its first point,
  // or its last; -1 when there is none.
  enum class Side { kFirst = 0, kLast = 1 };
  long FallingBy(double leastDb, double mostDb, long from, long to, long base, Side side) const;
  // Loss in dB between two points, from `points` points on each side, not before `low`.
  double LossBetween(long before, long behind, long low, long pointsBefore, long pointsBehind) const;

  const TraceScale& scale_;
  NoiseSeen& noise_;
  TSorData* const sor_;
  const TraceLevels levels_;
  const AutoFilterResultData& filter_;
  TFEvent& frontEvent_;
  TFEvent& find_;
  float& lossDb_;
  const long winPulse_, winEvent_, winDead_, sidePoints_;
  const double fibreDb_;  // nominal loss of a point
  long first_;            // the stretch; the last point belongs to the next event
  const long end_;
};

// The scan for steps of the level. The stages are in SpliceScan.cpp (limits, the event in front, the walk),
// SpliceScanRipple.cpp (what is less than an event) and SpliceScanPlace.cpp (the event and its place).
class StepScan : protected SpliceSearch {
 public:
  StepScan(const StepScan&) = delete;
  StepScan& operator=(const StepScan&) = delete;

  // First point of the find, 0 for none.
  long Run();

 protected:
  // Where the detectors differ by a number.
  struct Rules {
    long pulseOfEdgePoint;  // the longer the pulse, the longer an edge: by a point for so many
    double belowNoiseDb;    // the scan ends this far below the noise floor
    double deeperLevelDb;   // limits are set anew when the level has sunk by so much
    // Levels are means: they feel a step before the window reaches it, and a rise is as sure as a fall.
    bool readsMeans;
  };
  // Smallest steps that noise leaves credible: for an event, and for anything at all.
  struct Faults {
    double eventDb, sideDb;
  };
  // The fall over the window at one point.
  struct Step {
    long end;                  // where the window ends
    double frontDb, behindDb;  // levels at both ends
    double fallDb;             // from one to the other
  };
  struct Windows {
    long fall = 1;    // over which the fall is taken: the dead zone, or the filter's mean where it is longer
    long fine = 1;    // a part of it, to tell a step from what surrounds it
    long edge = 1;    // over which the receiver follows a step
    long stride = 1;  // the longer of both
    long mean = 1;    // least one to measure a level over
    long limit = 1;   // over which noise counts for the least size of a step
    long side = 1;    // over which the level on each side of a step is measured
  };
  struct Limits {
    double leastDb = 0;                 // of an event without noise
    double faultDb = 0;                 // that noise adds at the start of the stretch
    double eventDb = 0;                 // both: the loss that makes an event
    double eventFallDb = 0;             // with what the fibre loses over the window
    double highDb = 0;                  // a larger fall is more than fibre and noise
    double lowDb = 0;                   // and so is a larger rise
    double firstHighDb = 0;             // for a fall over two windows, as at the start of the stretch
    double quarterDb = 0, thirdDb = 0;  // falls by a part of an event
    double renewDb = 0;                 // level below which limits are set anew
    double noiseDb = 0;                 // level at which the scan ends
    double tailSlopeDb = 0;             // a steeper trace is the tail of an event, not fibre
    double slopeDb = 0;                 // of the fibre ahead
    double baseDb = 0;                  // fall of plain fibre over the window
    double leastPerOwnFall = 0;         // least event in falls of the fibre over one event
  };

  StepScan(const SpliceTask& task, const Rules& rules) : SpliceSearch(task), rules_(rules) {}
  ~StepScan() = default;

  // --- Where the detectors differ by what they do ---
  virtual double LeastLossDb() const = 0;
  virtual long LeastMeanWindow() const = 0;
  virtual long FineWindow() const = 0;
  // The level at a point as the fibre in front of it, or behind it, shows.
  virtual double FrontDb(long point) const = 0;
  virtual double BehindDb(long point) const = 0;
  virtual Faults FaultsAt(double levelDb, long point) const = 0;
  // Whether the levels on both sides confirm an event.
  virtual bool IsConfirmed(const Step& step) const = 0;

  static constexpr int kRippledStretch = 10;  // with more ripples than these, their widest sets a window

  const Rules rules_;
  Windows windows_;
  Limits limits_;
  long start_ = 0;  // where the event in front is left behind
  long guard_ = 0;  // nothing in front of it is measured
  long at_ = 0;     // current point

  // Loss between both ends of a step, `points` measured on each side.
  double LossAt(long behind, long points) const { return LossBetween(at_, behind, guard_, points, points); }

 private:
  enum class Verdict {
    kUndecided,  // the next test decides
    kGoOn,       // nothing here; the walk has moved to where it goes on
    kFound,
    kScanned,  // the stretch has come to its end
    kNothing,  // nothing will be found here
  };
  // A rise that may be a ripple.
  struct Crest {
    long width = 0;  // points, or what RefAutoGetWidthPlr tells instead
    long begin = 0, top = 0;
    float heightDb = 0;
  };
  // Where the trace around a step falls and rises most.
  struct Edges {
    long first;           // of the points looked at
    long atFall, atRise;  // over an edge
    double steepestDb;    // a point, beyond the fibre's slope
  };

  // --- SpliceScan.cpp ---
  Verdict SearchStretch();
  bool NoiseIsLower();
  void SetWindows();
  void SetLimits();
  void PlaceFront();
  void PassGhost();
  bool LeaveFront();
  double LargestStepInFront(long stop);
  void PassUnquiet(long stop);
  void PassTail();
  bool IsTailAt(long point) const;
  void MoveFrontEnd(long stop, long recovery);
  long RecoveryPoints() const;
  Verdict Walk();
  Verdict JudgePoint();
  Step Measure(long point) const;
  double ShiftedFallDb(const Step& step, long points) const;
  bool PassDoubleStep(Step& step);
  bool RenewLimits(const Step& step);
  void BoundEventLimit();
  bool PassRinging(const Step& step);

  // --- SpliceScanRipple.cpp ---
  bool IsSmallStep(const Step& step) const;
  Verdict JudgeSmallStep(Step& step);
  bool PassSmallRise(const Step& step);
  bool PassSmallFall(const Step& step);
  bool IsSlope(const Step& step);
  Verdict JudgeRipple(Step& step);
  Crest MeasureCrest(const Step& step) const;
  Verdict TakeOverlappingReflections(const Step& step, const Crest& crest);
  Verdict JudgeWideCrest(const Step& step, const Crest& crest);
  void NoteRipple(const Step& step, const Crest& crest);
  Verdict WeighSmallStep(Step& step);
  bool IsOnStraightFibre(const Step& step, double lossDb) const;

  // --- SpliceScanPlace.cpp ---
  Verdict JudgeEvent(const Step& step);
  bool PassGrowingFall(const Step& step);
  bool IsSharpBehindStrongEvent(const Step& step) const;
  Verdict PlaceEvent(const Step& step);
  Verdict PlaceInMeans(long first, long last);
  float FallOfMeans(long first, long last, long mean, long gap);
  long HighestMean(long from, long to, long width, double slopeDb, float& mean) const;
  Edges MeasureEdges(long first, long last);
  bool TakeSmallReflection(const Step& step, const Edges& edges);
  long FootOfRise(long at, double heightDb, long limit) const;
  long SettledFrom(long point) const;
  double FindLossDb() const;
  void PlaceEnd(double steepestDb);
  void PlaceBegin(const Edges& edges);
  bool BelongsToFront() const;
  void MoveFrontBehindFind();
  void PinBegin();
  long BeginOfSteepStep(long width) const;
  double JitterDb(long point) const;
  Verdict ReportStep();

  long scanEnd_ = 0;      // the window no longer fits from here on
  long twoFallsEnd_ = 0;  // nor do two, as seen at the start
  long widthAt_ = 0;      // point whose averaging the limits hold for
  double ownFallDb_ = 0;  // of the fibre over the window
  long tail_ = 0;         // where the tail of the event in front may reach
  long from_ = 0;         // start of the search, behind the ghost of the event in front
  long ghostFrom_ = 0, ghostTo_ = 0;
  bool wide_ = false;           // the fall spans both parts of a double step
  bool ripple_ = false;         // the walk is inside a ripple that has been counted
  bool tooSteepCrest_ = false;  // the last crest fell too steeply for its height
};

}  // namespace reflyze
