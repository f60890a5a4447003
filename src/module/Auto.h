// SPDX-License-Identifier: Apache-2.0
#pragma once

// The engine as a host of the module sees it: one object that analyses traces and compares them, with every
// stage and every figure of its work in reach. It does nothing itself. Its members are those of the four
// structs of an analysis (src/analysis/Analysis.h); its functions hand them to the stages of the same names
// (src/analysis/Auto*.h, Detectors.h), where places, units and results are explained.

#include "src/analysis/Analysis.h"
#include "src/filter/FilterEvent.h"
#include "src/monitor/TraceComparison.h"
#include "util/tstring.h"

class TIni;
class TSorBlockKeyEvents1E;
class TSorData;
struct AutoFilterResultData;

// What the host can ask for. Only the numbers cross the boundary of the module.
enum TCmdASF : int {
  cmdAnalyse = 0,          // full analysis of the current trace
  cmdAnalyseEndsOnly = 1,  // the same, then only the first and the last event stay
  cmdCompare = 2,          // comparison of the current trace with a baseline
};

class TAuto : public reflyze::AnalysisState, public reflyze::TraceComparison {
 public:
  TAuto();

  TString name;
  TString version;  // of the analysis

  // Runs one command on `params`: [0] the current trace (TSorData), [1] thresholds (TTH, may be null), [10]
  // the baseline (TSorData, comparison only). The analyses always give 1, and so does an unknown command; the
  // comparison gives its result, and takes a `value` other than 0 for a recheck.
  int ServiceFunction(TCmdASF cmd, long& value, void** params);

  // --- One analysis ---

  // One complete analysis of `trace`, written into it. Without `thresholds` those stored in the trace hold.
  void AnalysisSorData(TSorData* trace, TTH* thresholds);
  // Lists the result in an INI document; the form with a path writes the file and gives the status of
  // TIni::Write.
  void Damp(TIni* ini);
  int Damp(const char* path);

  // --- Searches ---

  // Sets the scale of the trace, searches it and fills `lines` and the overall figures. 1 when the analysis
  // ran, 0 when the trace can't be analysed; the record's event table is left alone.
  int Calculate();
  // Number of events of the automatic filter when it has built `lines`, 0 when the direct search has to.
  long ShortAnalysis();
  void Analysis2();  // inside every line
  void Analysis();   // the same by direct tests of power differences

  // Detectors inside one stretch `s` to `z`. `e` is the event in front of the stretch; its `end`, `rise` and
  // `tail` may move. `stepD` is a window in points. A find goes to `out`, its loss in dB to `thr`; the result
  // is its first point, 0 for no more.
  long SearchBigSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                        AutoFilterResultData* result);
  long SearchWeakSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                         AutoFilterResultData* result);
  long SearchNoiseSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                          AutoFilterResultData* result);

  // 0 without a trace.
  long FindBegLine(long from, long limit, double rate, TEventLine& line);
  // The last argument is not used.
  void SearchEnd(TEventLine* line, long start, double);
  char SearchEvent(TEventLine& head, TEventLine* line);
  int SearchEvent(long from, long to, long& pos, float& value);

  // --- Lines ---

  // The caller owns a line that is created, `lines` one that is added.
  TEventLine* CreateEventLin2(TEventLine* prev, long s, long z, long w, float slope, long after,
                              char eventType);
  TEventLine* CreateEventLin(TEventLine* prev, long a, long e, long b, long w, float slope, float p1,
                             float p2);
  TEventLine* AddEventLin(TEventLine* line, TEventLine* prev);
  void SelectSplices(double loss);
  void SetLinesSplice();
  void SetMaxDbKm(double aci);
  int IsNormACI(double aci, double base);
  int DeleteShortSplices(int count, float spanOwt, float lossThr, float gainThr, int strong);
  void RemoveSuspicionEvents();

  // --- Result ---

  // Replaces the record's event table by the lines. 0 without lines, and then the old table stays; else the
  // slope threshold in its stored form, 0.001 dB/km.
  int AddSorEvent();
  // A null `s` stands for the trace under analysis.
  void SetReflection(TSorBlockKeyEvents1E* rec, double peak, double base, char eventType, TSorData* s);
  void ArrangeShortEventsMarkers();
  // Owned by the caller; null without lines.
  TSorData* SorGenerate();
  double CalcAttDZ(TSorData* s, double start, TEventLine* line, double delta);
  double CalcEvntDZ(TSorData* s, double a, double b);

  // --- Steps and levels ---

  long SearchLoss(double up, double down, long from, long to, long pin, long d1, long d2, double slope,
                  float& step);
  double VarPowerTest(double limit, long& pos, long from, long to, long pin, long d1, long d2, double slope);
  double SearchMaxDbOwt(double owt, double dOwt);
  double GetTypPol();
  int GetPol(long a, long b, double& pol, double& slope);
  int GetPol(long a, long n, long limit, double& pol, double& slope);
  long OtkatEnd(long end, long begin, double noise);
  long OtkatMax(long from, long begin, double slope);
  long NakatMax(long from, long to);
  long NakatDZ(long from, long width, long to, double max, double min);
  double GetMax(long from, long count);
  double GetMax(long from, long count, long& pos);
  double GetMin(long from, long count, long& pos);
  void GetMaxRef(long from, long count, TEventLine* line);
  long GetLocalMinMax(long a, long b, long w, long avg, float h);
  long SearchStraightGreather(long from, double level);
  long SearchBackGreather(long from, double level);
  long SearchBackLess(long from, double level, long limit);
  long SearchStraightLess(long from, float level, long pin, float guard);
  long StraightGreatherLine(long a, long b, double level, double slope, long w);

  // --- Numerics ---

  double powDb(double x);
  double DbFault(double level, double fault);
  double RequirePower(double fault, long pts);
  long RequireAvgPin(double level, double fault);
  double RequireFault(double level, long pts);
  double GetFault(double level, long pts);
  long SetAvgPin(double level, double fault, long minPin, long maxPin);
  double AveragePower(long first, long count, int mode);
  double AveragePower(TSorData* s, double owt, double dOwt, int mode);
  double dAveragePower(long first, long count, int mode, double prev);
  float dAveragePower(float* lin, long first, long count, int mode, float prev);
  double LossPin(long a, long b, long pin, int mode);
  // The last argument has no effect: windows of every size get the same fit.
  void LossSquare(TSorData* s, TEventLine& line, long);
  void LossfSquare(TSorData* s, TEventLine& line);
  long LossSquareTest(TEventLine& line, long width);
};
