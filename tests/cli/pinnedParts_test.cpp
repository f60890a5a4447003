// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>
#include <set>

#include "ref/events/refEventEdit.h"
#include "ref/events/refEventQuality.h"
#include "ref/events/refEventReflection.h"
#include "ref/figures/refAutoNoise.h"
#include "ref/figures/refAutoPolar.h"
#include "ref/math/levelMean.h"
#include "ref/math/refAutoAverage.h"
#include "ref/math/ref_Math.h"
#include "ref/search/refAutoSearch.h"
#include "ref/steps/refAutoSplice.h"
#include "src/filter/Filter.h"
#include "src/module/Auto.h"
#include "tests/cli/pinned.h"

// Every search, fit and measure by itself, at and between the events of simulated fibres. Some of them an
// analysis asks only now and then, and others only a host does.

namespace {

using pinned::Listing;
using pinned::Subject;

// A trace with the windows that an analysis would use, and the point at which a search is asked.
struct Place {
  TSorData& sor;
  long points, at, w;
  float* lin;
  float slope;  // dB a point

  Place(TSorData& record, long point)
      : sor(record), points(record.DataPts->GetPointsNum()), lin(RefEmbGetLinf(&record)) {
    w = std::max(static_cast<long>(record.FxdParams->GetOwtPulse(0.0) / record.FxdParams->GetOwtDS(0)), 4L);
    w = std::min(w, points / 14);  // so that six windows have room on both sides
    at = std::clamp(point, 6 * w, points - 6 * w - 1);
    slope = static_cast<float>(0.2 * record.FxdParams->LenDS());
  }
  float Level(long point) const { return static_cast<float>(sor.NumToLevel(point)); }
  double Owt(long point) const { return sor.NumToOwt(point); }
};

void ListSearches(Listing& to, const Place& p) {
  const long a = p.at - 4 * p.w, b = p.at + 4 * p.w;
  const float level = p.Level(p.at);
  long at = 0, atRise = 0;
  float value = 0.0F, rise = 0.0F, fall = 0.0F;
  to.Whole("above", RefAutoSearchStraightGreather(&p.sor, a, level + 0.3F));
  to.Whole("aboveBack", RefAutoSearchBackGreather(&p.sor, b, level + 0.3F));
  to.Whole("below", RefAutoSearchStraightLess(&p.sor, a, level - 0.5F));
  to.Whole("belowBack", RefAutoSearchBackLess(&p.sor, b, level - 0.1F, a));
  to.Whole("min", RefAutoGetMin(&p.sor, a, b, value)).Number("of", value);
  to.Whole("max", RefAutoGetMax(&p.sor, a, b, value, 1)).Number("of", value);
  to.Whole("meanMax", RefAutoGetAvrMax(p.lin, a, b, value, 4)).Power("of", value);
  to.Power("linFall", RefAutoSearchMaxLinFall(p.lin, a, b, 2, p.w, 0.999F, at)).Whole("at", at);
  to.Number("riseFall", RefAutoSearchMaxdbRiseFall(&p.sor, a, b, p.w, fall, at, rise, atRise, p.slope));
  to.Number("fall", fall).Whole("at", at).Number("rise", rise).Whole("at", atRise);
  to.Number("refFall", RefAutoSearchRefdbFall(&p.sor, a, b, p.w, p.slope, 0.05F, at)).Whole("at", at);
  to.Number("dbFall", RefAutoSearchMaxdbFall(&p.sor, a, b, p.w, at, 0.5F)).Whole("at", at);
  to.Number("maxFall", RefAutoSearchMaxFall(&p.sor, a, b, p.w, at)).Whole("at", at);
  to.Number("splice", RefAutoSearchMaxSplice(&p.sor, a, b, p.w, at, p.slope, 0.02F)).Whole("at", at);
  to.Number("bend", RefAutoSearchAcCeleration(&p.sor, a, b, p.w / 2 + 1, at, atRise));
  to.Whole("at", at).Whole("to", atRise);
  to.Whole("dip", RefAutoGetProvalAT(&p.sor, a, b, p.slope, fall, rise)).Number("ratio", fall, 3);
  to.Whole("loss", RefAutoSearchStraightLoss(&p.sor, a, b, p.w, 0.1F, 1.0F));
  to.Whole("loss2", RefAutoSearchStraightLoss2(&p.sor, a, b, p.w, 0.2F, 0.05F, 1));
  to.Whole("foot", RefautoSearchBeginOfSplice(&p.sor, a, b, p.at, p.w, p.slope));
  to.Whole("back", RefAutoOtkatEnd(&p.sor, b, a, 0.05)).Whole("ref", RefAutoSearchRef(&p.sor, a, b));
  to.Number("ripple", RefAutoCalcPolar(&p.sor, a, b, p.w, p.slope, at)).Whole("at", at);
  to.Number("lossPin", CalcLossPin(&p.sor, a, b, p.slope));
}

void ListFits(Listing& to, const Place& p) {
  const long a = p.at - 5 * p.w, b = p.at + 5 * p.w;
  double slope = 0.0, level = 0.0, deviation = 0.0, first = 0.0, last = 0.0;
  float sqo = 0.0F, y1 = 0.0F, y2 = 0.0F, error = 0.0F;
  RefMathLSL(&p.sor, p.Owt(a), p.Owt(b), slope, level);
  to.Number("slope", slope * 1e6).Number("level", level);
  RefMathLSL_AndDeviation(&p.sor, p.Owt(a), p.Owt(b), slope, level, deviation);
  to.Number("deviation", deviation, 5);
  RefMathLSL_Simple(&p.sor, p.Owt(a), p.Owt(b), slope, level, 1.0);
  to.Number("simple", slope * 1e6).Number("level", level);
  RefMathLSL2(&p.sor, p.Owt(a), p.Owt(b), first, last);
  to.Number("y1", first).Number("y2", last);
  RefMathLeastSquareLoss(&p.sor, p.Owt(a), p.Owt(b), slope, level);
  to.Number("loss", slope).Number("level", level);
  RefMathLSL2f(&p.sor, a, b, y1, y2);
  to.Number("f1", y1).Number("f2", y2).Number("f4", 1e3 * static_cast<double>(RefMathLSL4f(&p.sor, a, b)));
  RefMathLSLpt(&p.sor, a, b, first, last, 5);
  to.Number("pt1", first).Number("pt2", last);
  to.Whole("pin", RefMathGetPinWithLsp(&p.sor, a, p.at, b, p.slope, y1, y2, error)).Number("y", y1);
  to.Number("y", y2).Number("error", error);
  to.Whole("sqo", RefMathSQO(&p.sor, a, b, sqo, y1, y2))
      .Number("of", sqo)
      .Power("lin", RefMathLinSQO(p.lin, a, b));
  to.Number("power", RefMathPower(&p.sor, a, p.w, 0)).Number("linPower", RefMathPower(&p.sor, a, p.w, 1));
  to.Number("owtPower", RefMathPower(&p.sor, p.Owt(a), p.Owt(a + p.w) - p.Owt(a), 1));
  to.Number("mean", RefAutoGetAverage(&p.sor, p.at, p.w));
  to.Number("ORL", RefEventORL(&p.sor, p.Owt(a), p.Owt(b)))
      .Number("of", RefEventCalcORL(&p.sor, 0.0, p.Owt(b)));
  to.Number("height", RefEventReflection(&p.sor, p.Owt(p.at), 3.0));
  to.Number("reflection", RefEventReflection1(&p.sor, p.Owt(a), p.Owt(p.at)));
  to.Number("highest", RefEventReflectionByMaxBetweenOWTs(&p.sor, p.Owt(a), p.Owt(b)));
}

// The measures that the automatic filter takes of a single event.
void ListEvents(Listing& to, const Place& p) {
  TSorFilter filter(&p.sor);
  filter.SetLinfAvg(p.points, 16);
  filter.dbOnDS = p.slope;
  float dark = 0.0F;
  RefAutoReGetNF(&p.sor, 0.9F * static_cast<float>(p.points), static_cast<float>(p.points), dark, 0);
  const float limit = p.sor.QRTParams->Log5ToLin(p.Level(p.at + 5 * p.w) - 12.0F, 0);
  for (const long from : {p.at - 1, p.at + 1}) {
    long pos = from, fallAt = 0, width = 0;
    to.Whole("grade", filter.RflAnalisys(nullptr, pos, p.points - p.w, p.w, p.w, limit, fallAt, width));
    to.Whole("pos", pos).Whole("fallAt", fallAt).Whole("width", width);
    to.Whole("falls", filter.FallAnalisys(from, from + p.w, from + 5 * p.w, p.w, p.w, limit));
    to.Whole("double", filter.DoubleRDetect(from, p.w, p.w, limit));
    to.Whole("rings", filter.ZvonDetect(static_cast<int>(from), static_cast<int>(p.points - 1),
                                        static_cast<float>(p.w), static_cast<int>(p.w), limit));
  }
  TFEvent event;
  event.begin = static_cast<int>(p.at);
  event.peak = event.rise = static_cast<int>(p.at + p.w / 2);
  event.end = static_cast<int>(p.at + 2 * p.w);
  float deadFall = 0.0F;
  to.Whole("dead", filter.SearchDZ(&p.sor, &event, p.at + 6 * p.w, deadFall)).Whole("end", event.end);
  float fast = 0.0F, slow = 0.0F;
  filter.CalcLinfNoise(p.at - 5 * p.w, p.at + 5 * p.w, fast, slow);
  to.Number("noise", fast).Number("of mean", slow).Number("floor", dark);
  to.Number("error", filter.GetNoiseError(static_cast<float>(p.Owt(p.at - 5 * p.w)),
                                          static_cast<float>(p.Owt(p.at + 5 * p.w)), 1));
}

// Steps that only the direct search takes.
void ListSteps(Listing& to, const Place& p, const TSorData& record) {
  TSorData copy;
  copy.Assign(record);
  copy.SetLinf();
  TAuto engine;
  engine.AnalysisSorData(&copy, nullptr);
  const long a = p.at - 5 * p.w, b = p.at + 5 * p.w, w = p.w;
  long pos = 0;
  float step = 0.0F;
  double noise = 0.0, slope = 0.0;
  to.Whole("loss", engine.SearchLoss(0.05, 0.05, a, b, w, w / 2, w, p.slope, step)).Number("of", step);
  to.Number("test", engine.VarPowerTest(0.1, pos, a, b, w, w / 2, w, p.slope)).Whole("at", pos);
  to.Whole("pol", engine.GetPol(a, b, noise, slope)).Number("noise", noise).Number("slope", slope, 7);
  to.Whole("event", engine.SearchEvent(a, b, pos, step)).Whole("at", pos).Number("of", step);
  to.Whole("otkatEnd", engine.OtkatEnd(b, a, 0.05)).Whole("otkatMax", engine.OtkatMax(p.at + 1, a, p.slope));
  to.Whole("nakatMax", engine.NakatMax(a, b)).Whole("nakatDZ", engine.NakatDZ(a, w, b, 2.0, 0.05));
  to.Whole("dip", engine.GetLocalMinMax(a, b, w, 3, 0.05F));
  to.Whole("less", engine.SearchStraightLess(a, p.Level(p.at) - 0.2F, w, -40.0F));
  to.Whole("over", engine.StraightGreatherLine(a, b, p.Level(a), 0.2, w));
  const double level = copy.NumToLevel(a);
  to.Number("fault", engine.GetFault(level, w)).Whole("window", engine.SetAvgPin(level, 0.05, 4, 200));
  to.Number("lossPin", engine.LossPin(a, b, w, 1) * 1e3).Number("average", engine.AveragePower(a, w, 1));
}

void ListModel(Listing& to, const TSorData& record) {
  TSorData copy;
  copy.Assign(record);
  copy.SetLinf();
  TAuto engine;
  engine.AnalysisSorData(&copy, nullptr);
  const std::unique_ptr<TSorData> model(engine.SorGenerate());
  if (model != nullptr) pinned::ListLevels(to, "model", *model);
  const double last = copy.GetMaxOwt();
  engine.IsolateSection(&copy, 0.3 * last, 0.6 * last, 0.2);
  pinned::ListLevels(to, "isolated", copy);
}

void ListOtherFilters(Listing& to, const Subject& subject) {
  const auto run = [&](const std::string& name, auto filter) {
    const auto record = subject.Trace();
    TSorFilter engine(record.get());
    filter(engine, record.get());
    pinned::ListLevels(to, name, *record);
  };
  run("zero", [](TSorFilter& f, TSorData* r) { f.ZeroCorrect(r); });
  run("dynamic", [](TSorFilter& f, TSorData* r) { f.DynaF(r); });
  run("passive", [](TSorFilter& f, TSorData* r) { f.PONFilter(r, 0.3F, 0.01F); });
  run("recursive", [](TSorFilter& f, TSorData* r) { f.FTTFilter(r); });
  run("reference", [&](TSorFilter& f, TSorData* r) { f.TempFilter(r, subject.Trace().get(), 0.5); });
}

// The automatic filter where it is told that there are splitters.
void ListNetwork(Listing& to, const Subject& subject) {
  const auto record = subject.Trace();
  record->QRTParams->PonType = 1;
  record->QRTParams->FirstSplitterRatio = 4;
  record->QRTParams->SecondSplitterRatio = 2;
  std::vector<TFEvent> events(100);
  std::vector<short> widths(static_cast<size_t>(record->DataPts->GetPointsNum()));
  TSorFilter filter(record.get());
  filter.result.events = events.data();
  filter.result.pointMap = widths.data();
  filter.SetFilter(7);
  to.Line("network");
  for (long i = 0; i < filter.result.count; ++i) {
    const TFEvent& event = events[static_cast<size_t>(i)];
    to.Text("type", std::string(1, event.type)).Whole("begin", event.begin).Whole("end", event.end);
  }
  pinned::ListLevels(to, "network levels", *record);
}

// What each detector of steps finds between the events of the filter, one find after the other. An analysis
// keeps few of them.
void ListDetectors(Listing& to, const Subject& subject) {
  constexpr int kMostFinds = 4;
  const auto record = subject.Trace();
  TTH thresholds = subject.Thresholds();
  TAuto engine;
  engine.AnalysisSorData(record.get(), &thresholds);
  std::vector<TFEvent> events(100);
  std::vector<short> widths(static_cast<size_t>(record->DataPts->GetPointsNum()));
  TSorFilter filter(record.get());
  filter.result.events = events.data();
  filter.result.pointMap = widths.data();
  filter.SetFilter(7);
  engine.linf = RefEmbGetLinf(record.get());
  const long side = static_cast<long>(2000.0 / engine.owtDS / 4.0) + 2;
  const auto list = [&](const char* name, auto detector) {
    for (long i = 1; i < std::min(filter.result.count, 100L); ++i) {
      TFEvent& front = events[static_cast<size_t>(i) - 1];
      long from = front.end;
      const long end = events[static_cast<size_t>(i)].begin;
      float limit = 0.0F;
      for (int k = 0; k < kMostFinds && end - from > 3 * side; ++k) {
        TFEvent find;
        const long at = (engine.*detector)(from, end, side, front, limit, find, &filter.result);
        to.Line(name + std::to_string(i)).Whole("find", at).Number("limit", limit);
        if (at == 0) break;
        to.Whole("begin", find.begin).Whole("rise", find.rise).Whole("peak", find.peak);
        to.Whole("end", find.end).Whole("grade", find.gradeDown).Whole("width", find.width);
        from = std::max<long>(from + 1, find.end);
      }
    }
  };
  list("big ", &TAuto::SearchBigSplices);
  list("weak ", &TAuto::SearchWeakSplices);
  list("noisy ", &TAuto::SearchNoiseSplices);
  to.Line("ripples").Whole("over", engine.overCount).Whole("peaks", engine.peakCount);
  to.Whole("widest", engine.peakWidthMax).Whole("widths", engine.peakWidthSum);
  to.Number("overMax", engine.overMax).Number("overSum", engine.overSum);
  to.Number("fallMin", engine.peakFallMin).Number("fallSum", engine.peakFallSum);
  to.Number("riseMax", engine.peakRiseMax).Number("riseSum", engine.peakRiseSum);
}

// The alternative search inside the whole fibre as one line, and the dead zones as a host would draw them.
void ListAlternative(Listing& to, const Subject& subject) {
  const auto record = subject.Trace();
  TTH thresholds = subject.Thresholds();
  thresholds.noShortAnalysis = 1;
  TAuto engine;
  engine.AnalysisSorData(record.get(), &thresholds);
  auto* line = new TEventLine;
  line->L[0] = engine.lBeg;
  line->L[1] = line->L[2] = engine.lEnd;
  engine.LossSquare(record.get(), *line, 1);
  engine.lines->Clear();
  engine.lines->AddData(line);
  engine.Analysis();
  for (int i = 0; i < engine.lines->GetSize(); ++i) {
    TEventLine& found = *engine.lines->GetData(i);
    to.Line("alternative " + std::to_string(i)).Number("from", found.L[0]).Number("to", found.L[1]);
    to.Number("at", found.L[2]).Number("p0", found.P[0]).Number("p1", found.P[1]).Number("p2", found.P[2]);
    to.Number("loss", found.spliceLoss).Number("peak", found.peakLevel).Number("peakAt", found.peakLen);
    if (found.L[1] > found.L[0])
      to.Number("deadZone", engine.CalcAttDZ(record.get(), engine.lLaunch, &found, 0.5));
  }
}

// The places of events, and fixed places between them.
std::set<long> PlacesOf(TSorData& record) {
  TSorData copy;
  copy.Assign(record);
  copy.SetLinf();
  std::vector<TFEvent> events(100);
  std::vector<short> widths(static_cast<size_t>(record.DataPts->GetPointsNum()));
  TSorFilter filter(&copy);
  filter.result.events = events.data();
  filter.result.pointMap = widths.data();
  filter.SetFilter(7);
  std::set<long> places;
  for (long i = 0; i < std::min(filter.result.count, 5L); ++i)
    places.insert(events[static_cast<size_t>(i)].begin);
  for (const long part : {2, 5, 9}) places.insert(record.DataPts->GetPointsNum() * part / 11);
  return places;
}

// Every search, fit and measure around the events of a fibre.
void ListPlaces(Listing& to, const Subject& subject) {
  const auto record = subject.Trace();
  RefAutoReSetNF(record.get());
  ListOtherFilters(to, subject);
  ListNetwork(to, subject);
  ListModel(to, *record);
  for (const long point : PlacesOf(*record)) {
    const Place place(*record, point);
    const std::string name = " " + std::to_string(place.at);
    ListSearches(to.Line("searches" + name), place);
    ListFits(to.Line("fits" + name), place);
    ListEvents(to.Line("events" + name), place);
    ListSteps(to.Line("steps" + name), place, *record);
  }
}

constexpr pinned::Part kDeepParts[] = {
    {"places", ListPlaces}, {"detectors", ListDetectors}, {"alternative", ListAlternative}};

TEST(Pinned, EveryPartAroundWhatStandsOnAFibre) { pinned::HoldLines(kDeepParts, "links.jsonl", "parts.txt"); }

TEST(Pinned, DigestsOfManyParts) { pinned::HoldDigests(kDeepParts, "more.jsonl", "more-parts.txt"); }

}  // namespace
