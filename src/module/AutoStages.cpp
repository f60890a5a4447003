// SPDX-License-Identifier: Apache-2.0

// The stages of an analysis under the names that hosts know.

#include <memory>

#include "ref/events/refEvent.h"
#include "ref/math/sectionFits.h"
#include "sor/sorData.h"
#include "src/analysis/AutoEnd.h"
#include "src/analysis/AutoEvents.h"
#include "src/analysis/AutoLaunch.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoLines.h"
#include "src/analysis/AutoModel.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/AutoPowerSearch.h"
#include "src/analysis/AutoResult.h"
#include "src/analysis/AutoSelect.h"
#include "src/analysis/AutoShort.h"
#include "src/analysis/AutoSteps.h"
#include "src/analysis/Detectors.h"
#include "src/filter/Filter.h"
#include "src/module/Auto.h"

// --- Searches ---

int TAuto::Calculate() { return reflyze::Calculate(*this, *this, *this, *this) ? 1 : 0; }

long TAuto::ShortAnalysis() {
  const reflyze::ShortResult found = reflyze::ShortAnalysis(*this, *this, *this, *this);
  algoMask = found.detectors;
  return found.events;
}

void TAuto::Analysis2() { reflyze::SearchInsideLines(*this, *this, *this); }

void TAuto::Analysis() { reflyze::SearchInsideByPower(*this, *this, *this, *this); }

long TAuto::SearchBigSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                             AutoFilterResultData* result) {
  return reflyze::SearchBigSplices({*this, *this, *result, s, z, stepD, e, thr, out});
}

long TAuto::SearchWeakSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                              AutoFilterResultData* result) {
  return reflyze::SearchWeakSplices({*this, *this, *result, s, z, stepD, e, thr, out});
}

long TAuto::SearchNoiseSplices(long s, long z, long stepD, TFEvent& e, float& thr, TFEvent& out,
                               AutoFilterResultData* result) {
  return reflyze::SearchNoiseSplices({*this, *this, *result, s, z, stepD, e, thr, out});
}

long TAuto::FindBegLine(long from, long limit, double rate, TEventLine& line) {
  if (sor == nullptr) return 0;
  return reflyze::FindBegLine(*this, *this, *this, *this, from, limit, rate, line);
}

void TAuto::SearchEnd(TEventLine* line, long start, double) {
  reflyze::SearchEnd(*this, *this, *this, *this, *line, start);
}

char TAuto::SearchEvent(TEventLine& head, TEventLine* line) {
  return reflyze::SearchEvent(*this, *this, head, *line);
}

int TAuto::SearchEvent(long from, long to, long& pos, float& value) {
  return reflyze::SearchEvent(*this, *this, from, to, pos, value);
}

// --- Lines ---

TEventLine* TAuto::CreateEventLin2(TEventLine* prev, long s, long z, long w, float slope, long after,
                                   char eventType) {
  return reflyze::CreateEventLin2(*this, *this, *this, prev, s, z, w, slope, after, eventType).release();
}

TEventLine* TAuto::CreateEventLin(TEventLine* prev, long a, long e, long b, long w, float slope, float p1,
                                  float p2) {
  return reflyze::CreateEventLin(*this, *this, *this, prev, a, e, b, w, slope, p1, p2).release();
}

TEventLine* TAuto::AddEventLin(TEventLine* line, TEventLine* prev) {
  return reflyze::AddEventLin(*this, std::unique_ptr<TEventLine>(line), prev);
}

void TAuto::SelectSplices(double loss) { reflyze::SelectSplices(*this, *this, *this, loss); }

void TAuto::SetLinesSplice() { reflyze::SetLinesSplice(*this, *this); }

void TAuto::SetMaxDbKm(double aci) { reflyze::SetMaxDbKm(*this, aci); }

int TAuto::IsNormACI(double aci, double base) { return reflyze::IsNormACI(*this, aci, base) ? 1 : 0; }

int TAuto::DeleteShortSplices(int count, float spanOwt, float lossThr, float gainThr, int strong) {
  return reflyze::DeleteShortSplices(*this, *this, count, spanOwt, lossThr, gainThr, strong != 0);
}

void TAuto::RemoveSuspicionEvents() { reflyze::RemoveSuspicionEvents(*sor); }

// --- Result ---

int TAuto::AddSorEvent() {
  reflyze::SectionFits fits(*sor);
  if (!reflyze::WriteEventTable(*this, *this, *this, *this, fits)) return 0;
  RefEventSetORL(sor);
  return sor->QRTParams->CT;
}

void TAuto::SetReflection(TSorBlockKeyEvents1E* rec, double peak, double base, char eventType, TSorData* s) {
  if (s == nullptr) s = sor;
  if (s == nullptr) return;
  reflyze::SetReflection(*this, noiseAmp, *rec, peak, base, eventType, s);
}

void TAuto::ArrangeShortEventsMarkers() { reflyze::ArrangeShortEventsMarkers(*sor); }

TSorData* TAuto::SorGenerate() { return reflyze::SorGenerate(*this, *this).release(); }

double TAuto::CalcAttDZ(TSorData* s, double start, TEventLine* line, double delta) {
  return reflyze::CalcAttDZ(s, start, *line, delta);
}

double TAuto::CalcEvntDZ(TSorData* s, double a, double b) { return reflyze::CalcEvntDZ(s, a, b); }

// --- Steps and levels ---

long TAuto::SearchLoss(double up, double down, long from, long to, long pin, long d1, long d2, double slope,
                       float& step) {
  return reflyze::SearchLoss(*this, up, down, from, to, pin, d1, d2, slope, step);
}

double TAuto::VarPowerTest(double limit, long& pos, long from, long to, long pin, long d1, long d2,
                           double slope) {
  return reflyze::VarPowerTest(*this, limit, pos, from, to, pin, d1, d2, slope);
}

double TAuto::SearchMaxDbOwt(double owt, double dOwt) {
  return reflyze::SearchMaxDbOwt(*this, th.Event, owt, dOwt);
}

double TAuto::GetTypPol() { return reflyze::GetTypPol(*this); }

int TAuto::GetPol(long a, long b, double& pol, double& slope) {
  return reflyze::GetPol(*this, a, b, pol, slope);
}

int TAuto::GetPol(long a, long n, long limit, double& pol, double& slope) {
  return reflyze::GetPol(*this, th.MinPin, a, n, limit, pol, slope);
}

long TAuto::OtkatEnd(long end, long begin, double noise) {
  return reflyze::OtkatEnd(*this, end, begin, noise);
}

long TAuto::OtkatMax(long from, long begin, double slope) {
  return reflyze::OtkatMax(*this, from, begin, slope);
}

long TAuto::NakatMax(long from, long to) { return reflyze::NakatMax(*this, from, to); }

long TAuto::NakatDZ(long from, long width, long to, double max, double min) {
  return reflyze::NakatDZ(*this, from, width, to, max, min);
}

double TAuto::GetMax(long from, long count) { return reflyze::GetMax(*this, from, count); }

double TAuto::GetMax(long from, long count, long& pos) { return reflyze::GetMax(*this, from, count, pos); }

double TAuto::GetMin(long from, long count, long& pos) { return reflyze::GetMin(*this, from, count, pos); }

void TAuto::GetMaxRef(long from, long count, TEventLine* line) {
  reflyze::GetMaxRef(*this, from, count, *line);
}

long TAuto::GetLocalMinMax(long a, long b, long w, long avg, float h) {
  return reflyze::GetLocalMinMax(*this, a, b, w, avg, h);
}

long TAuto::SearchStraightGreather(long from, double level) {
  return reflyze::SearchStraightGreather(*this, from, level);
}

long TAuto::SearchBackGreather(long from, double level) {
  return reflyze::SearchBackGreather(*this, from, level);
}

long TAuto::SearchBackLess(long from, double level, long limit) {
  return reflyze::SearchBackLess(*this, from, level, limit);
}

long TAuto::SearchStraightLess(long from, float level, long pin, float guard) {
  return reflyze::SearchStraightLess(*this, from, level, pin, guard);
}

long TAuto::StraightGreatherLine(long a, long b, double level, double slope, long w) {
  return reflyze::StraightGreatherLine(*this, a, b, level, slope, w);
}

// --- Numerics ---

double TAuto::powDb(double x) { return reflyze::powDb(x); }

double TAuto::DbFault(double level, double fault) { return reflyze::DbFault(level, fault); }

double TAuto::RequirePower(double fault, long pts) { return reflyze::RequirePower(fault, pts); }

long TAuto::RequireAvgPin(double level, double fault) { return reflyze::RequireAvgPin(level, fault); }

double TAuto::RequireFault(double level, long pts) { return reflyze::RequireFault(level, pts); }

double TAuto::GetFault(double level, long pts) { return reflyze::GetFault(*this, *this, level, pts); }

long TAuto::SetAvgPin(double level, double fault, long minPin, long maxPin) {
  return reflyze::SetAvgPin(*this, level, fault, minPin, maxPin);
}

double TAuto::AveragePower(long first, long count, int mode) {
  return reflyze::AveragePower(*this, first, count, mode);
}

double TAuto::AveragePower(TSorData* s, double owt, double dOwt, int mode) {
  return reflyze::AveragePower(s, owt, dOwt, mode);
}

double TAuto::dAveragePower(long first, long count, int mode, double prev) {
  return reflyze::dAveragePower(*this, first, count, mode, prev);
}

float TAuto::dAveragePower(float* lin, long first, long count, int mode, float prev) {
  return reflyze::dAveragePower(*this, lin, first, count, mode, prev);
}

double TAuto::LossPin(long a, long b, long pin, int mode) { return reflyze::LossPin(*this, a, b, pin, mode); }

void TAuto::LossSquare(TSorData* s, TEventLine& line, long) { reflyze::LossSquare(s, line); }

void TAuto::LossfSquare(TSorData* s, TEventLine& line) { reflyze::LossfSquare(s, line); }

long TAuto::LossSquareTest(TEventLine& line, long width) {
  return reflyze::LossSquareTest(sor, line, width, th.MinPin);
}
