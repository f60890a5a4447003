// SPDX-License-Identifier: Apache-2.0
#pragma once

// Smoothing of a trace, and the events that a filter finds while it smooths.
//
// Levels are in dB on the one-way scale (5 log10 of power), 0 at the top; the linear trace holds one float a
// point in linear power; one-way times (OWT) are in units of 100 ps, lengths in km; points are named by
// index. Every filter overwrites the levels of the record's main data points; the unfiltered ones stand in
// the second data points block meanwhile. Nothing here fails aloud: a missing record or a trace that cannot
// be worked on is left as it is.
//
// Where a step of a measurement leads past an end of the trace, it reads the sample at that end.

#include <vector>

#include "src/filter/Decisions.h"
#include "src/filter/FilterEvent.h"
#include "src/filter/HeldSamples.h"

class TSorBlockKeyEvents1E;
class TSorData;

// A smoothing kernel: `K` coefficients that fall by a factor of 8 over its length, the newest sample weighing
// the most.
class TFilter {
 public:
  explicit TFilter(int k);

  // Builds a kernel of `k` coefficients with the sum 1. A `k` of 1 or less gives no kernel.
  void SetK(int k);
  // Ratio of successive samples of a signal that falls geometrically by `q` a sample, behind the kernel; 0
  // without one.
  double DbP(double q) const;

  int K = 0;
  std::vector<double> kernel;
};

// What the automatic filter is given and what it reports. Everything starts at 0.
struct AutoFilterResultData {
  TFEvent* events = nullptr;  // of the caller, room for 100. Null: the events found are not reported
  reflyze::DecisionSink* decisions = nullptr;  // of the caller; null: nobody listens
  short* pointMap = nullptr;  // of the caller, one for each point: how many samples the mean there holds
  long count = 0;             // events found; 0 for none, -1 for a trace that can't be worked on
  long firstBegin = 0;        // point where the fibre really starts; 0: where the first event begins
  long ghostCount = 0;        // ghosts found
  long ringCount = 0;         // period of the receiver's ringing, points
  float polar = 0.0F;         // dB, swing of the backscatter that the scan has to allow for
  float polarEnd = 0.0F;      // dB, the same over the whole fibre
  float ringLevel = 0.0F;     // dB a point by which the ringing decays
  float noiseLow = 0.0F;      // dB, noise between neighbouring samples; 0 before it is measured
  float noiseHigh = 0.0F;     // dB, noise of the running mean; 0 before it is measured
};

// The filter engine for one record. It lives on the caller's stack: made with the record, used, destroyed. It
// does not own the record.
class TSorFilter : public TFilter {
 public:
  explicit TSorFilter(TSorData* sor);
  TSorFilter(const TSorFilter&) = delete;
  TSorFilter& operator=(const TSorFilter&) = delete;

  // --- Control (Filter.cpp) ---

  // Binds a record and takes its figures. Null changes nothing.
  void SetSorData(TSorData* sor);
  // Kinds of filter, as hosts number them; every other number is the kernel.
  enum Kind : int {
    kAsFlagged = -1,  // what the record is flagged for: none, or the kernel
    kUnfiltered = 0,  // brings the unfiltered trace back
    kFTTFilter = 5,
    kTempFilter = 6,  // against the embedded record
    kAutoFilter = 7,
  };
  // Runs a filter of that kind, and sets the flag of the record by it. Nothing happens once the filter story
  // is erased.
  void SetFilter(int kind);
  // Keeps the trace before a filter of `kind` above 0 changes it, and brings it back for 0. A backup of a
  // trace that is filtered already stays as it is.
  void BackupRestoreDataPointsBeforeFilterApply(int kind);
  // Swaps the filtered and the unfiltered trace, where there are two.
  void SwitchDataPointsBlocks();
  // Makes filtered levels the trace for good: the unfiltered one is gone.
  void EraseFilterStory();

  // --- Kernel (Filter.cpp) ---

  // Kernel length of strength `e`, before truncation: points of the pulse, and 10.5 more, to the power `e`.
  double CalcFPin(double e) const;
  // Builds the kernel for that strength.
  void SetLvlK(double e);
  // Strength of the kernel that the record holds; 0 when it holds none or is not filtered.
  double GetFLevel() const;
  // Stores the kernel in the record, in steps of 0.0001, and takes it from there.
  void SetSorMC(TSorData* sor) const;
  void GetSorMC(TSorData* sor);
  // Fall of the receiver in dB per OWT as the kernel leaves it. Null stands for the bound record.
  double GetDbOnOwt(TSorData* sor) const;
  // Index of the kernel strength in use, of 0.0, 0.5 and 0.8. With `apply` other than 0 the next one is put
  // in use, round and round, and its index given.
  int IncLevelF(int apply);
  // Smooths with the kernel, the record's own where it holds one; as many passes as the filter level asks
  // for. Null stands for the bound record.
  void Filter(TSorData* sor);

  // --- Recursive filters (FilterRecursive.cpp) ---

  // Smooths smooth stretches as levels and all others in linear power. Then smooths the noise below the
  // floor harder.
  void FastFilter(TSorData* sor);
  void FTTFilter(TSorData* sor);
  // Smooths near the noise and leaves alone what stands high above it, judged by the levels of `reference`,
  // or of the embedded record for null. Both must have the same number of points.
  void TempFilter(TSorData* sor, TSorData* reference, double k);
  // The more a level lies below the limit of the noise, the harder it is smoothed; on the linear trace too.
  void DynaF(TSorData* sor);
  // Fills the dip that a saturated receiver leaves behind a peak between points `a` and `b`. `slope` is the
  // fibre's, in dB a point. Where the fibre shows again, 0 when there is no dip.
  long DipFilter(TSorData* sor, long a, long b, float slope);
  // Mixes the share `frac` of a low pass of time constant `tau` points (`tauLen` km) into the points behind
  // `a` and before `b`, or into all.
  void PONFilter(TSorData* sor, float frac, float tau, long a, long b);
  void PONFilter(TSorData* sor, float frac, float tauLen);
  // Does nothing.
  void LFFilter(TSorData* sor);

  // --- Zero of the receiver (FilterZero.cpp) ---

  // Takes the offset of the receiver, which shows behind the end of the signal, out of the trace.
  void ZeroCorrect(TSorData* sor);

  // --- Automatic filter (FilterScan*.cpp, FilterEndPhase.cpp, FilterEventRemove.cpp) ---

  // Smooths the trace by a running mean that widens where the signal is weak, and finds the events at which
  // it must stop. Number of events, 0 for none, -1 for a trace that can't be worked on. Null stands for the
  // bound record.
  long AutoFilter(TSorData* data, TFEvent* events, short* pointMap);
  // Removes echoes from the `count` events of `work`, and copies at most 100 of the others to `out`, which
  // may be null; `count` becomes the number copied. The count before the cut at 100.
  long AutoFilterEventRemove(TSorData* sor, long& count, TFEvent* work, TFEvent* out) const;
  // Moves what is no echo together in `ev`: the number of events that stay, the first at index `skip`.
  long AutoFilterEventRemove(TSorData* sor, long count, TFEvent* ev, long& skip) const;
  // Smooths the ragged stretch behind strong events.
  void BeardFilter(TSorData* sor, TFEvent* ev, long n);

  // --- Single events (FilterReflection.cpp, FilterDeadZone.cpp, FilterRunningMean.cpp). `T` and the sums are
  // in linear power; a grade is the whole part of log2(height / limit + 1). ---

  // Grade of the reflection that rises at point `pos`, -1 when it is none; `pos` moves to its foot. `prev` is
  // the event before, or null. `fallAt` gets the point of a second fall, 0 for none; `width` the width in
  // points.
  long RflAnalisys(TFEvent* prev, long& pos, long last, long recover, long w2, float T, long& fallAt,
                   long& width);
  // Grade of the fall behind the rise that began at `begin` and ends at `from`, looking no further than `to`;
  // 0 or negative. `pw` points of pulse, `w` points to look across.
  long FallAnalisys(long begin, long from, long to, long pw, long w, float T) const;
  // Where the dead zone of a reflection has fallen by half its height; the event gets its `end`. `deadFall`,
  // the rate of the fall behind it in dB a point, is for what may yet be measured there, and stays as it is.
  long SearchDZ(TSorData* sor, TFEvent* ev, long limit, float& deadFall) const;
  // Narrows the sum of the `W` samples before `i` to the newest `n`; gives `n`.
  long ReCalcSum(long i, long W, long n, float& sum) const;
  // Fills `LinfAvg` for `N` points with means of `w` samples.
  void SetLinfAvg(long N, long w);

  // --- False events (FilterRinging.cpp, FilterDoubleReflection.cpp, FilterEchoes.cpp) ---

  // Point where the ringing of the receiver from `i` on ends, 0 when it doesn't ring. May note the ringing in
  // `result`.
  int ZvonDetect(int i, int last, float pw, int w1, float T);
  // Point of the second of two reflections that share the rise at `i`, 0 for a single one. `rf` and `w` are
  // points of recovery and of a window.
  long DoubleRDetect(long i, long rf, long w, float T) const;
  // Whether the event `g` is an echo of `src`.
  bool isGost(TSorData* sor, TFEvent* src, TFEvent* g) const;

  // --- End of the signal (FilterEndSearch.cpp) ---

  // Looks backwards through the noisy tail from `to` to `from` for the point where the signal ends. `w` is
  // the event window in points, `map` the averaging width at each point (of 1 everywhere for null), `polar`
  // the swing of the backscatter and `span` the loss seen so far, in dB. Above 0 the point; 0 for none; -1:
  // no signal, -2 and -3: nothing stands out, -4: too short, or nothing above the noise.
  long SearchEnd(TSorData* sor, long from, long to, long w, short* map, float polar, float span) const;

  // --- Noise (FilterNoise.cpp) ---

  // Root mean square of the differences of `p` over `step` points from `a` to `b`, in the units of the array,
  // with a steady slope taken out; differences above `limit` don't count, unless it is 0 or below. The caller
  // vouches for the points. Gives 1.
  int CalcLinfNoise(long a, long b, long step, float limit, float* p, float& out) const;
  // Noise of neighbouring samples and of the running mean from point `a` to `b`, as levels in dB. 0 without
  // the arrays, else 1.
  int CalcLinfNoise(long a, long b, float& fast, float& slow);
  // Measures the noise behind the last event, clear of the echoes of strong ones, into `result`. Which case
  // applied: 0 nothing known, 1 a clean last quarter, which needs no measure, 2 to 4 measured.
  long AutoFilterCalcNoise();
  // Uncertainty in dB of the level at one end of the section between two one-way times: of the first, or with
  // `atEnd` of the second.
  float GetNoiseError(float owtA, float owtB, int atEnd) const;
  // Uncertainty in dB of the loss of an event, from the sections on both sides.
  float GetKeyEventNoiseError(TSorBlockKeyEvents1E* event) const;

  // --- The linear trace and its mean with the indices held inside. They are taken anew at each use: the
  // trace of the record may have been replaced. ---
  reflyze::HeldSamples HeldLinf() const;
  reflyze::HeldSamples HeldLinfAvg() const { return reflyze::HeldSamples(LinfAvg); }

  TSorData* pSorData = nullptr;  // the bound record
  std::vector<float> LinfAvg;    // running mean of the linear trace; empty until SetLinfAvg
  float* Linf = nullptr;         // linear trace of the record, one float for each of its points; may be null
  float owtDS = 0.0F;            // OWT of one point, in the first stretch
  float dbOnOwt = 0.0F;          // dB per OWT, recovery rate of the receiver
  float dbOnDS = 0.0F;           // dB, expected loss of the fibre over one point; set by AutoFilter
  long pulsePoints = 1;          // points of the pulse, at least 1
  long pulseFallPoints = 1;      // points of the pulse with the receiver's fall added as a plain number, as
                                 // this width has always been taken; at least 1
  int autoLevel = 7;            // the mean of the automatic filter holds up to 2^autoLevel samples; 1 below 0
  AutoFilterResultData result;  // what AutoFilter found

 private:
  void PrepareAutoFilter();
};
