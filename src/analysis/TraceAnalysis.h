#pragma once

// The event analysis: one object works on one trace, turns it into an ordered list of fibre sections with the
// events between them, and writes that list into the record's event table.
//
// Positions are point indices (long), one-way times (OWT, units of 100 ps) or lengths in km; levels are in dB
// on the one-way scale (5 log10 of power), 0 at the top. Slopes are in dB/km, or in dB per point where said
// so, positive for a fibre that loses light. The settings and figures are public: they are what one stage
// leaves for the next.

#include <atomic>

#include "src/analysis/EventLine.h"
#include "src/analysis/th.h"
#include "src/filter/FilterEvent.h"
#include "util/tarray.h"
#include "util/tstring.h"

class TIni;
class TSorBlockKeyEvents1E;
class TSorData;
struct AutoFilterResultData;

// How often each search found something since the module was loaded; a diagnostic that nothing reads. Atomic,
// as it is the one thing that analyses of different traces share.
struct TEventCounters {
  std::atomic<long> filterEvents{0};   // events of the automatic filter
  std::atomic<long> stepsBetween{0};   // steps that the detectors found between them
  std::atomic<long> insideSplices{0};  // splices found inside sections
};
extern TEventCounters Event;

namespace reflyze {

class SectionFits;

// The detectors of the filter-based search, as bits of the mask that a host sees.
enum DetectorBit : unsigned int {
  kNoDetector = 0x1,     // a bit without a meaning, always set
  kBigSplices = 0x2,     // steps that stand out from the noise
  kFineSplices = 0x4,    // weak splices on quiet stretches
  kWeakSplices = 0x8,    // steps hardly above the noise; asked only beside the big ones
  kNoiseSplices = 0x10,  // steps on stretches that touch the noise
};
// Weak splices are left to a host that asks for them.
constexpr unsigned int kDefaultDetectors = kNoDetector | kBigSplices | kFineSplices | kNoiseSplices;
constexpr unsigned int kDetectorsOnRipple = kNoDetector | kBigSplices | kWeakSplices;
static_assert(kDefaultDetectors == 0x17 && kDetectorsOnRipple == 0xb, "hosts know the numbers");

class TraceAnalysis {
 public:
  TraceAnalysis();
  ~TraceAnalysis();
  TraceAnalysis(const TraceAnalysis&) = delete;
  TraceAnalysis& operator=(const TraceAnalysis&) = delete;

  // --- One analysis (TraceAnalysis.cpp) ---

  // One complete analysis of `trace`, written into it. Without `thresholds` those stored in the trace hold.
  void AnalysisSorData(TSorData* trace, TTH* thresholds);
  // Lists the result in an INI document; the form with a path writes the file and gives the status of
  // TIni::Write.
  void Damp(TIni* ini);
  int Damp(const char* path);

  // --- Driver (AutoCalculate.cpp, AutoPowerSearch.cpp) ---

  // Sets the scale of the trace, searches it and fills `lines` and the overall figures. 1 when the analysis
  // ran, 0 when the trace can't be analysed; the record's event table is left alone.
  int Calculate();
  // Looks for events inside every line and splits the lines at them.
  void Analysis2();
  // The same by direct tests of power differences: the alternative search, kept for comparison.
  void Analysis();

  // --- Filter-based search (AutoShort.cpp) ---

  // Searches with the events of the automatic filter. Number of these events when it has built `lines`, 0
  // when the direct search has to do it.
  long ShortAnalysis();

  // --- Detectors inside one stretch `s` to `z` (AutoBigSplices.cpp, AutoWeakSplices.cpp,
  // AutoNoiseSplices.cpp) --- `e` is the event in front of the stretch; its `end`, `rise` and `tail` may
  // move. `stepD` is a window in points. A find goes to `out`, its loss in dB to `thr`; the result is its
  // first point, 0 for no more.

  long SearchBigSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                        AutoFilterResultData* result);
  long SearchWeakSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                         AutoFilterResultData* result);
  long SearchNoiseSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                          AutoFilterResultData* result);

  // --- Lines (AutoLaunch.cpp, AutoLineRange.cpp, AutoLines.cpp) ---

  // First point of the fibre section behind the launch peak, or behind a reflection at point `from`. `rate`
  // is the receiver's recovery in dB per point. A small event on the launch slope goes to `line`; its L[0] is
  // -1 if there is none. The search ends at `limit`.
  long FindBegLine(long from, long limit, double rate, TEventLine& line);
  // The line of the stretch `s` to `z`, fitted over the part that can be trusted: behind the tail of the peak
  // in front, before the rise of the event at `z`. `w` is the event window in points, `slope` in dB per
  // point, `after` the end of the last splice (negative for none), `eventType` the letter of the event at
  // `z`. The caller owns the result.
  TEventLine* CreateEventLin2(TEventLine* prev, long s, long z, long w, float slope, long after,
                              char eventType);
  // Fits the line over `a` to `e`, names the event at `b` and settles the loss of the event in front, which
  // is that of `prev`. `p1` and `p2` are levels at both ends if they were fitted before, 0 and 0 otherwise.
  TEventLine* CreateEventLin(TEventLine* prev, long a, long e, long b, long w, float slope, float p1,
                             float p2);
  // Appends `line`, which `lines` then owns, and gives it back.
  TEventLine* AddEventLin(TEventLine* line, TEventLine* prev);

  // --- Events on the direct path (AutoEvents.cpp, AutoSteps.cpp, AutoLevels.cpp) ---

  // Looks for the first event inside `line`. R or N for one: `head` is then the line in front of it and
  // `line` starts behind it. _ for none: `line` is fitted.
  char SearchEvent(TEventLine& head, TEventLine* line);
  // First event between two points: 1 for a loss, -1 for a gain, 0 for none; `pos` is its point, `value` the
  // step in dB, positive for a loss.
  int SearchEvent(long from, long to, long& pos, float& value);
  // First step that exceeds `up` (loss) or `down` (gain), in dB, between windows of `pin` points that lie
  // `d1` to `d2` points apart. `step` is its height. Without one, the last point and step looked at.
  long SearchLoss(double up, double down, long from, long to, long pin, long d1, long d2, double slope,
                  float& step);
  // Largest step in size over the same windows, with its point in `pos`. A gain above `limit` counts first.
  double VarPowerTest(double limit, long& pos, long from, long to, long pin, long d1, long d2, double slope);
  // Largest step per OWT between two one-way times, in dB.
  double SearchMaxDbOwt(double owt, double dOwt);

  // Noise amplitude in dB that a pulse of this length usually shows.
  double GetTypPol();
  // Noise amplitude `pol` (dB) and slope (dB per point) of the points `a` to `b`. 0 when the stretch is too
  // short to tell.
  int GetPol(long a, long b, double& pol, double& slope);
  // The same of the `n` points behind `a` and what lies in front of them, not before `limit`.
  int GetPol(long a, long n, long limit, double& pol, double& slope);

  // Where a fall that ended at `end` began, not before `begin`; `noise` in dB.
  long OtkatEnd(long end, long begin, double noise);
  // Foot of a peak, going back from `from`; `slope` in dB per point.
  long OtkatMax(long from, long begin, double slope);
  // Top of a peak, going forward.
  long NakatMax(long from, long to);
  // First point from which the trace falls by `min` to `max` dB/km over `width` points.
  long NakatDZ(long from, long width, long to, double max, double min);

  // Highest and lowest level of the points `from` to `from` + `count`, both included.
  double GetMax(long from, long count);
  double GetMax(long from, long count, long& pos);
  double GetMin(long from, long count, long& pos);
  // Stores the highest level and its place in the line.
  void GetMaxRef(long from, long count, TEventLine* line);
  // Point of a dip of at least `h` dB between a maximum in the `w` points behind `a` and one in the `w`
  // points before `b`; 0 when there is none. `avg` points are averaged where the level is near the noise.
  long GetLocalMinMax(long a, long b, long w, long avg, float h);

  // Searches for a level, as the RefAuto functions of the same names.
  long SearchStraightGreather(long from, double level);
  long SearchBackGreather(long from, double level);
  long SearchBackLess(long from, double level, long limit);
  // First point whose mean over `pin` points is below `level` or `guard`, the end of the trace if there is
  // none. A `guard` of 0 or more stands for a level in the noise.
  long SearchStraightLess(long from, float level, long pin, float guard);
  // Middle of the first window of `w` points between `a` and `b` that rises above a line which starts at
  // `level` and falls by `slope` dB/km.
  long StraightGreatherLine(long a, long b, double level, double slope, long w);

  // --- End of the fibre (AutoEnd.cpp) ---

  // Walks from point `start` to the end of the fibre. Strong events on the way become lines; the last line is
  // left in `line`, which the caller keeps. The last argument is not used.
  void SearchEnd(TEventLine* line, long start, double);

  // --- Selection (AutoSelect.cpp) ---

  // Deletes every event that does not pass the thresholds, with `loss` dB for the smallest loss, and joins
  // the lines around it; cuts the list at a loss that ends the fibre.
  void SelectSplices(double loss);
  // Losses of all events from the lines around them.
  void SetLinesSplice();
  // Lowers the credible slope to ten times `aci` (dB/km), not below 1 dB/km.
  void SetMaxDbKm(double aci);
  // Whether `aci` (dB/km) is a slope that a fibre of this wavelength, or ten one of `base` dB/km, can have.
  int IsNormACI(double aci, double base);
  // Joins splices that lie too close together among the lines added since `lines` had `count` entries. Number
  // of lines removed.
  int DeleteShortSplices(int count, float spanOwt, float lossThr, float gainThr, int strong);
  // Drops weak events behind a splitter from the record's table.
  void RemoveSuspicionEvents();

  // --- Result (AutoResult.cpp, AutoModel.cpp) ---

  // Replaces the record's event table by the lines. 0 without lines, and then the old table stays.
  int AddSorEvent();
  // The same but for the return loss, which whoever measures the events anew gets with them. Whether there
  // are lines. `fits` are those of the trace.
  bool WriteEventTable(SectionFits& fits);
  // Reflectance and event code of one event with its highest level `peak` and the level of the line `base`,
  // in dB. A null `s` stands for the trace under analysis.
  void SetReflection(TSorBlockKeyEvents1E* rec, double peak, double base, char eventType, TSorData* s);
  // Closes the gaps that doubled reflections leave between the markers of their neighbours.
  void ArrangeShortEventsMarkers();
  // A record that holds the trace as the lines describe it, owned by the caller; null without lines.
  TSorData* SorGenerate();
  // Attenuation and event dead zone in km.
  double CalcAttDZ(TSorData* s, double start, TEventLine* line, double delta);
  double CalcEvntDZ(TSorData* s, double a, double b);

  // --- Numerics (AutoNumerics.cpp): what can be told from noise at a given level ---

  // Power ratio of `x` dB; `x` counts as 65.535 at most.
  double powDb(double x);
  // Level in dB that stands to noise of 0 dB as `level` to a step of `fault` dB.
  double DbFault(double level, double fault);
  // Height above the noise, in dB, at which a step of `fault` dB shows after averaging `pts` points.
  double RequirePower(double fault, long pts);
  // Points to average so that a step of `fault` dB shows `level` dB above the noise; 32767 at most.
  long RequireAvgPin(double level, double fault);
  // Smallest step in dB that is credible `level` dB above the noise with `pts` points averaged.
  double RequireFault(double level, long pts);
  // The same at `level` on the scale of the trace, with the working noise amplitude added.
  double GetFault(double level, long pts);
  // Window in points for a step of `fault` dB at `level` on the scale of the trace.
  long SetAvgPin(double level, double fault, long minPin, long maxPin);
  // Mean level of `count` points from `first`, in dB (mode 0) or in linear power (mode 1).
  double AveragePower(long first, long count, int mode);
  // The same from one-way time `owt` over `dOwt`.
  double AveragePower(TSorData* s, double owt, double dOwt, int mode);
  // The mean of the window that starts at `first`, from the mean `prev` of the window one point before it.
  double dAveragePower(long first, long count, int mode, double prev);
  float dAveragePower(float* lin, long first, long count, int mode, float prev);
  // Slope in dB per point between the first and the last `pin` points of a section; 0 if they overlap.
  double LossPin(long a, long b, long pin, int mode);
  // Levels at both ends of the line by least squares, against time or against points. The last argument has
  // no effect: windows of every size get the same fit.
  void LossSquare(TSorData* s, TEventLine& line, long);
  // The same for many lines of one trace.
  static void LossSquare(SectionFits& fits, TEventLine& line);
  void LossfSquare(TSorData* s, TEventLine& line);
  // Fits the line and finds the window of `width` points that stands highest above it: its first point, with
  // its height in dB in `peakLevel`; 0 when none stands above.
  long LossSquareTest(TEventLine& line, long width);

  // --- Scale of the trace ---
  long nPoints = 0;
  double aciEnd = 0.0;       // dB/km, slope of the last line, by SearchEnd
  double aciNominal = 0.0;   // dB/km, nominal loss of the fibre
  double maxDbKm = 20.0;     // dB/km, upper limit of a credible slope
  double dbOnOwt = 0.0;      // dB per OWT, recovery rate of the receiver
  double owtDS = 0.0;        // OWT of one point
  double refLevelMin = 0.0;  // dB, power jump of a reflection exactly at THRef
  double noiseAmp = 0.0;     // dB, working noise amplitude
  double spliceWidth = 0.0;  // points, mean width of noise ripples
  double owtRecover = 0.0;   // OWT in which the receiver falls 1.5 dB
  float lenDS = 0.0F;        // km of one point
  float lossDS = 0.0F;       // dB, nominal loss of one point
  float* linf = nullptr;     // linear copy of the trace, owned by `sor`

  // --- Statistics of the noise ripples that the detectors meet ---
  int overCount = 0, peakCount = 0;
  int peakWidthMax = 0, peakWidthSum = 0;        // points
  float overMax = 0.0F, overSum = 0.0F;          // dB over the slope
  float peakFallMin = 0.0F, peakFallSum = 0.0F;  // dB
  float peakRiseMax = 0.0F, peakRiseSum = 0.0F;  // dB

  // --- Windows ---
  long winPulse = 0;  // points of the pulse
  long winEvent = 0;  // points of the pulse and one recovery of the receiver
  long winDead = 0;   // points of the pulse and three recoveries

  // --- Settings and results ---
  TString name;
  TString version;
  TTH th;
  double lBeg = 0.0;          // km, start of the last line search
  double lEnd = 0.0;          // km, end of the fibre
  double lLaunch = 0.0;       // km, launch point
  double nf = 0.0;            // dB, noise floor
  double firstRefl = 0.0;     // dB, peak at the start of the trace
  double firstReflOwt = 0.0;  // OWT of that peak
  double endRefl = 0.0;       // dB, peak at the end of the fibre
  double dz05 = 0.0;          // km, dead zone at 0.5 dB
  double dz01 = 0.0;          // km, dead zone at 0.1 dB
  double pZero = 0.0;         // dB, level of the first line extended to point 0
  double pEnd = 0.0;          // dB, level at the last point of the fibre
  double dr = 0.0;            // dB, dynamic range
  double lossTotal = 0.0;     // dB, loss of the whole fibre
  // Detectors in use, DetectorBit. A rippled trace turns some off, and they stay off for the next trace.
  unsigned int algoMask = kDefaultDetectors;
  TOxArray<TEventLine, TEventLine*>* lines = nullptr;  // the result, owned
  TSorData* sor = nullptr;                             // the trace, not owned
};

}  // namespace reflyze
