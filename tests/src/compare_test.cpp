// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <tuple>
#include <vector>

#include "ref/events/refEvent.h"
#include "src/module/Auto.h"
#include "src/module/Module.h"
#include "tests/support/trace.h"

namespace {

using support::TraceSpec;

// A fibre of 12 km: a connector, a splice, and a reflecting end; a point is about a metre, the pulse 10
// points.
constexpr long kConnector = 4000, kSplice = 8000, kFibreEnd = 12000;

TraceSpec ComparedFibre(long endPoint = kFibreEnd) {
  TraceSpec spec;
  spec.points = 16000;
  spec.spacingOwt = 50.0;
  spec.pulseNs = 100;
  spec.startDb = -15.0;
  spec.SlopeDbPerKm(0.2);
  spec.noiseLin = 200.0;
  spec.noiseFloorDb = -45.0;
  spec.Peak(0, 8.0).Peak(endPoint, 8.0).End(endPoint);
  if (endPoint > kConnector) spec.Peak(kConnector, 5.0).Step(kConnector, 0.3);
  if (endPoint > kSplice) spec.Step(kSplice, 0.4);
  return spec;
}

// An event with the sections on both sides of it, which end 3 points before the next and begin 25 pulses
// behind.
void AddEvent(TSorData& trace, long point, long previous, long next, const char* code) {
  const auto owt = [&](long at) { return static_cast<int>(trace.NumToOwt(at)); };
  auto* event = new TSorBlockKeyEvents1E();
  event->EPT = owt(point);
  event->EC = code;
  event->ML0 = owt(point > 0 ? previous + 250 : 0);
  event->ML1 = owt(point > 0 ? point - 3 : 0);
  event->ML2 = owt(point + 250);
  event->ML3 = owt(next - 3);
  RefEventAdd(&trace, event, 1);
}

TShortThreshold Relative(double limit) { return {0, static_cast<short>(limit * 1000.0), false}; }
TShortThreshold Absolute(double limit) {
  return {static_cast<short>(static_cast<unsigned short>(limit * 1000.0)), 0, true};
}

std::unique_ptr<TSorData> MakeBaseline() {
  auto base = support::BuildTrace(ComparedFibre());
  base->FxdParams->SetRT(-60.0);
  AddEvent(*base, 0, 0, kConnector, "0F9999");
  AddEvent(*base, kConnector, 0, kSplice, "0F9999");
  AddEvent(*base, kSplice, kConnector, kFibreEnd, "0F9999");
  AddEvent(*base, kFibreEnd, kSplice, kFibreEnd + 800, "1E9999");
  RefEventRecalculate(base.get(), base->KeyEvents, 0);
  auto* level = new TRFTSLevel();
  level->SetName("main");
  TThresholdsRFTSSet limits;
  limits.SetLT(Relative(0.2));
  limits.SetRT(Relative(2.0));
  limits.SetCT(Relative(0.05));
  level->SetLevelThresholdsSet(limits);
  base->RFTSParams->AddLevel(level);
  base->RFTSParams->SetActiveLevel(0);
  RefEventRFTSSync(base.get());
  RefEventSORToQRTSync(base.get());
  return base;
}

void Set(TSorData& base, const char* name, double value) {
  base.RFTSParams->AddUParameter(new TRFTSUniversalParameter(name, value));
}

int Compare(TSorData& base, TSorData& current, bool recheck = false) {
  void* params[11] = {};
  params[0] = &current;
  params[10] = &base;
  long value = recheck ? 5 : 0;
  return ServiceFunction(cmdCompare, value, params);
}

// What each event of the current trace came to: "m" monitored, "n" new, "f" failed, "b" broken.
std::string Flags(const TSorData& current) {
  std::string text;
  for (int i = 0; i < current.RFTSEvents->GetTNRFTSE(); ++i) {
    const TSorBlockRFTSEvents1E& entry = *current.RFTSEvents->GetEvent(i);
    text += i > 0 ? " " : "";
    text += entry.Flags == 0 ? "-" : "";
    text += entry.IsMonitored() ? "m" : "";
    text += entry.IsNew() ? "n" : "";
    text += entry.IsFail() ? "f" : "";
    text += entry.IsFiberBreak() ? "b" : "";
  }
  return text;
}

TraceSpec Dead() {
  TraceSpec spec = ComparedFibre();
  spec.level = [](long i) { return i < 60 ? -10.0 : -44.0 - 0.5 * static_cast<double>(i % 3); };
  return spec;
}
TraceSpec OtherNoise() {
  TraceSpec spec = ComparedFibre();
  spec.seed = 77;
  return spec;
}

TEST(Compare, SaysWhatHappenedToTheFibre) {
  const struct {
    const char* what;
    TraceSpec current;
    int result;
    bool fail;
    const char* flags;
  } kCases[] = {
      {"nothing", OtherNoise(), mrCompared, false, "- m m m"},
      {"loss at the splice", ComparedFibre().Step(kSplice, 0.4), mrCompared, true, "- m mf m"},
      {"less loss at the splice", ComparedFibre().Step(kSplice, -0.3), mrCompared, false, "- m m m"},
      {"a new splice", ComparedFibre().Step(6000, 0.5), mrCompared, true, "- m n m m"},
      {"a new connector", ComparedFibre().Step(10000, 0.5).Peak(10000, 5.0), mrCompared, true, "- m m n m"},
      {"a break before the first event", ComparedFibre(2500), mrFibreBreak, true, "- nb"},
      {"a break between events", ComparedFibre(6000), mrFibreBreak, true, "- m nb"},
      {"a break in the last section", ComparedFibre(10000), mrFibreBreak, true, "- m m nb"},
      {"a dead fibre", Dead(), mrNoLink, false, "-"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const auto base = MakeBaseline();
    const auto current = support::BuildTrace(c.current);
    AddEvent(*current, 3000, 0, 5000, "0F9999");  // of an earlier analysis
    EXPECT_EQ(Compare(*base, *current), c.result);
    EXPECT_EQ(current->RFTSEvents->GetMonitorResult(), c.result);
    EXPECT_EQ(current->RFTSEvents->IsFail(), c.fail);
    EXPECT_EQ(Flags(*current), c.flags);
    EXPECT_STREQ(current->RFTSEvents->GetLevelName().c_str(), "main");
    EXPECT_EQ(current->RFTSEvents->GetTNRFTSE(), current->KeyEvents->TNKE);
  }
}

TEST(Compare, TheLevelOfTheLinkMayDifferByItsLimit) {
  const auto flat = [](double db) { return support::BuildTrace(15000, [db](long) { return db; }); };
  const auto base = flat(-20.0);
  for (const auto& [db, present] : {std::pair<double, bool>{-21.0, true}, {-19.0, true}, {-21.01, false}}) {
    const auto current = flat(db);
    TAuto engine;
    engine.InitRFTSParameters(base.get());
    EXPECT_EQ(engine.srCompare_CheckLinkPresence(base.get(), current.get()), present) << db;
    EXPECT_EQ(Compare(*base, *current), mrNoActiveLevel);
  }
}

// Spacing, group index and the user's zero differ; what stays is the fibre.
TEST(Compare, TwoAcquisitionsOfOneFibreAreAlike) {
  const struct {
    double spacing, groupIndex;
    int offset;
  } kCases[] = {
      {40.0, 1.468, 0}, {50.0, 1.471, 0}, {62.5, 1.462, 0}, {50.0, 1.468, 7000}, {45.0, 1.465, -3000}};
  const TraceSpec fibre = ComparedFibre();
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.spacing << " " << c.groupIndex << " " << c.offset);
    TraceSpec spec = OtherNoise();
    spec.points = 18000;
    spec.spacingOwt = c.spacing;
    spec.groupIndex = c.groupIndex;
    spec.offsetOwt = c.offset;
    spec.level = [&](long i) {
      const double at =
          static_cast<double>(i) * c.spacing / c.groupIndex * fibre.groupIndex / fibre.spacingOwt;
      const long n = std::lround(std::floor(at));
      return fibre.LevelAt(n) + (at - static_cast<double>(n)) * (fibre.LevelAt(n + 1) - fibre.LevelAt(n));
    };
    const auto base = MakeBaseline(), current = support::BuildTrace(spec);
    current->GenParams->UO = c.offset;
    EXPECT_EQ(Compare(*base, *current), mrCompared);
    EXPECT_EQ(Flags(*current), "- m m m");
    for (int i = 0; i < base->KeyEvents->TNKE; ++i)
      EXPECT_NEAR(current->OwtToLen(current->KeyEvents->EventAt(i).EPT),
                  base->OwtToLen(base->KeyEvents->EventAt(i).EPT), 5e-5);
    EXPECT_EQ(base->FxdParams->GI, 146800);
  }
}

TEST(Compare, ARecheckHoldsTheSameEventsAgainstOtherLimits) {
  const auto base = MakeBaseline(), current = support::BuildTrace(ComparedFibre(10000).Step(kConnector, 0.4));
  ASSERT_EQ(Compare(*base, *current), mrFibreBreak);
  ASSERT_EQ(Flags(*current), "- mf m nb");
  base->RFTSParams->GetLevel(0)->GetThresholdsSet(1)->SetLT(Relative(1.0));
  base->RFTSParams->GetLevel(0)->GetThresholdsSet(2)->SetLT(Absolute(0.1));
  base->RFTSParams->GetLevel(0)->SetName("another");  // which the current trace does not know
  EXPECT_EQ(Compare(*base, *current, true), mrFibreBreak);
  EXPECT_EQ(Flags(*current), "- mf mf nb");  // no flag of an event is ever cleared
  EXPECT_FALSE(current->RFTSEvents->GetEvent(1)->LT.IsExceeded());
  EXPECT_TRUE(current->RFTSEvents->GetEvent(2)->LT.IsAbsolute());
  EXPECT_TRUE(current->RFTSEvents->IsFail());  // the break stays one
  EXPECT_STREQ(current->RFTSEvents->GetLevelName().c_str(), "another");
  current->RFTSEvents->SetMonitorResult(mrNoLink);
  EXPECT_EQ(Compare(*base, *current, true), mrNoLink);
  EXPECT_FALSE(current->RFTSEvents->IsFail());
}

TEST(Compare, AnEventOutsideMonitoringIsMeasuredAndNotChecked) {
  const auto base = MakeBaseline();
  const auto current = support::BuildTrace(ComparedFibre().Step(kConnector, 0.4).Step(kSplice, 0.4));
  base->RFTSParams->GetLevel(0)->GetThresholdsSet(1)->Disable();
  auto* landmark = new TSorBlockLinkParamLandmark();
  landmark->LML = base->KeyEvents->EventAt(1).EPT + 500;
  landmark->REN = 0;
  base->LnkParams->InsertLandmark(landmark);
  Set(*base, "EOFLMN", landmark->LMN);
  EXPECT_EQ(Compare(*base, *current), mrCompared);
  EXPECT_EQ(Flags(*current), "- - - -");
  EXPECT_NEAR(current->RFTSEvents->GetEvent(1)->LT.GetDeviation(), 400, 20);
  EXPECT_NEAR(current->RFTSEvents->GetEvent(2)->LT.GetDeviation(), 400, 20);
}

TEST(Compare, MonitoringEndsAtItsLandmark) {
  const auto base = MakeBaseline();
  for (const short event : {0, 2, 99}) {
    auto* landmark = new TSorBlockLinkParamLandmark();
    landmark->LML = 1000 * (event + 1);
    landmark->REN = event;
    base->LnkParams->InsertLandmark(landmark);
    landmark->LMN = static_cast<short>(7 + event);
  }
  Set(*base, "EOFLMN", -1.0);
  const double connector = base->KeyEvents->EventAt(1).EPT, end = base->KeyEvents->EventAt(3).EPT;
  const std::pair<double, double> kCases[] = {
      {-1.0, end}, {7.9, 1000.0}, {9.0, connector}, {106.0, 100000.0}, {8.0, end}};
  for (const auto& [wanted, endOwt] : kCases) {
    base->RFTSParams->GetUParameter("EOFLMN")->SetValue(wanted);
    EXPECT_EQ(TAuto().GetEndOfMonitoringOWT(base.get()), endOwt) << wanted;
  }
}

TEST(Compare, SettingsComeFromTheBaseline) {
  const std::pair<short, double> kLinkKm[] = {{300, 0.5},  {301, 1.0},   {1000, 1.0},
                                              {3000, 1.5}, {10000, 2.5}, {20000, 5.0}};
  for (const auto& [pulseNs, linkKm] : kLinkKm) {
    TraceSpec spec = ComparedFibre();
    spec.pulseNs = pulseNs;
    const auto base = support::BuildTrace(spec);
    Set(*base, " EventRT ", 0.5);
    Set(*base, "CorrectMarkers", 0.0);
    TAuto engine;
    engine.monitoring.AutoLT = 9.0;  // of an earlier baseline
    engine.InitRFTSParameters(base.get());
    const TRFTSUParams& taken = engine.monitoring;
    EXPECT_EQ(taken.NoLinkDistance, linkKm);
    EXPECT_NEAR(taken.EvtDetectDeltaLen, pulseNs * 5.0 / 3.0 * base->dOwtToLen(1.0), 1e-9);
    EXPECT_NEAR(taken.EvtRDetectDeltaLen, 150.0 * base->dOwtToLen(1.0), 1e-9);
    EXPECT_TRUE(taken.EventRT == 0.5 && !taken.CorrectMarkers && taken.AutoLT == 0.1);
  }
}

TEST(Compare, EventsArePairedByTimeAndThenByTheirExtent) {
  const auto base = MakeBaseline();
  TAuto engine;
  engine.InitRFTSParameters(base.get());
  TSorBlockKeyEvents1E& splice = base->KeyEvents->EventAt(2);
  EXPECT_EQ(engine.GetEventIndex(base.get(), splice.EPT + 9), 2);
  EXPECT_EQ(engine.GetEventIndex(base.get(), splice.EPT - 10), -1);
  engine.monitoring.EvtDetectDeltaLen = base->dOwtToLen(40.0) * (1.0 + 1e-12);
  engine.monitoring.EvtRDetectDeltaLen = base->dOwtToLen(80.0) * (1.0 + 1e-12);
  for (const auto& [event, limitOwt] : {std::pair<int, long>{2, 40}, {1, 80}}) {  // a splice, a reflection
    TSorBlockKeyEvents1E& e = base->KeyEvents->EventAt(event);
    EXPECT_TRUE(engine.IsOwtWithinAutoEvent(e.EPT - limitOwt, base.get(), &e));
    EXPECT_FALSE(engine.IsOwtWithinAutoEvent(e.EPT + limitOwt + 1, base.get(), &e));
  }
  TSorData other;
  other.Assign(*base);
  const auto partner = [&] { return engine.GetCorrespondentEvent(base.get(), &other, &splice); };
  other.KeyEvents->EventAt(1).EPT = splice.EPT - 40;  // in the table first, and farther off
  other.KeyEvents->EventAt(2).EPT = splice.EPT + 20;
  EXPECT_EQ(partner(), &other.KeyEvents->EventAt(1));
  other.KeyEvents->EventAt(2).EPT = splice.EPT + 9;
  EXPECT_EQ(partner(), &other.KeyEvents->EventAt(2));
  RefEventSorDelete(&other, 1);
  EXPECT_EQ(partner(), nullptr);
  EXPECT_TRUE(engine.IsEventChanged(base.get(), &other, 2));
}

// Deviations in thousandths, as stored, and which of them exceed the limit: c, l, r.
TEST(Compare, DeviationsAreHeldAgainstChangesOrValues) {
  const auto base = MakeBaseline();
  TSorBlockKeyEvents1E &was = base->KeyEvents->EventAt(2), is = was;
  was.SetACI(0.2);
  was.SetEL(0.3);
  TSorBlockRFTSEvents& entries = *base->RFTSEvents;
  entries.SetTNRFTSE(2);
  const struct {
    double aci, el, er;
    TShortThreshold ct, lt, rt;
    int ctValue, ltValue, rtValue;
    const char *exceeded, *exceededAtEnd;
  } kCases[] = {
      {0.25, 0.45, -30, Relative(0.1), Relative(0.2), Absolute(35), 50, 150, 30000, "r", "r"},
      {0.31, 0.55, -30, Relative(0.1), Relative(0.2), Absolute(25), 110, 250, 30000, "cl", "c"},
      {0.05, -4.7, -60, Relative(0.1), Relative(0.1), Absolute(60), -149, -4998, 60000, "c", "c"},
      {32.7, 40.0, -80, Relative(32.4), Relative(32.5), Absolute(65), 32500, 32500, 65000, "c", "c"},
      {0.3, 0.35, 5, Absolute(0.3), Absolute(0.3), Absolute(0), 300, 350, 0, "l", ""},
      {-0.1, -40.0, -40, Absolute(0), Absolute(0.1), Absolute(40.001), 0, -32500, 40000, "r", "r"},
  };
  for (const auto& c : kCases) {
    TThresholdsRFTSSet limits;
    limits.SetCT(c.ct);
    limits.SetLT(c.lt);
    limits.SetRT(c.rt);
    is.SetACI(c.aci);
    is.SetEL(c.el);
    is.SetER(c.er);
    for (const int place : {0, 1}) {  // of two: the second is the end of the fibre
      TSorBlockRFTSEvents1E& entry = *entries.GetEvent(place);
      entries.MakeFail(false);
      TAuto().srCompare_InitRFTSEvent(base.get(), base.get(), &entry, &limits, &was, &is);
      TAuto().srCompare_CheckRFTSEvent(&entry, &limits, base.get());
      EXPECT_EQ(entry.CT.Deviation, c.ctValue);
      EXPECT_EQ(entry.LT.Deviation, c.ltValue);
      EXPECT_EQ(static_cast<unsigned short>(entry.RT.Deviation), c.rtValue);
      const std::string exceeded = std::string(entry.CT.IsExceeded() ? "c" : "") +
                                   (entry.LT.IsExceeded() ? "l" : "") + (entry.RT.IsExceeded() ? "r" : "");
      EXPECT_EQ(exceeded, place == 0 ? c.exceeded : c.exceededAtEnd);
      EXPECT_EQ(entries.IsFail(), !exceeded.empty());
    }
  }
  was.EC = "1E9999";  // the loss of the end of the fibre tells nothing
  TThresholdsRFTSSet limits;
  TAuto().srCompare_InitRFTSEvent(base.get(), base.get(), entries.GetEvent(0), &limits, &was, &is);
  EXPECT_EQ(entries.GetEvent(0)->LT.Deviation, -32500);
}

TEST(Compare, ANewEventMakesRoomBetweenItsNeighbours) {
  for (const bool correct : {true, false}) {
    const auto trace = MakeBaseline();
    trace->RFTSEvents->SetLevelName("main");
    RefEventRFTSSync(trace.get());
    const auto owt = [&](long point) { return static_cast<int>(trace->NumToOwt(point)); };
    TSorBlockKeyEvents1E found;
    found.EPT = owt(4100);
    found.ML0 = owt(500);  // the section in front of the connector, as close reflections share it
    found.ML1 = owt(3990);
    found.ML2 = owt(8100);
    found.ML3 = owt(9000);
    TAuto engine;
    engine.monitoring.CorrectMarkers = correct;
    const TSorBlockKeyEvents1E* event = engine.InsertEvent(trace.get(), &found, true);
    const auto &before = trace->KeyEvents->EventAt(1), &behind = trace->KeyEvents->EventAt(3);
    ASSERT_EQ(event, &trace->KeyEvents->EventAt(2));
    EXPECT_EQ(event->ML0, before.ML2);
    EXPECT_GT(event->ML1, event->ML0);
    EXPECT_EQ(event->ML3, behind.EPT);
    EXPECT_EQ(event->ML2, event->EPT);  // what lies behind it belongs to the next
    EXPECT_LT(std::fabs(event->GetEL()), 1.0);
    EXPECT_EQ(before.ML3, correct ? event->EPT : owt(7997));
    EXPECT_EQ(before.ML2 < owt(4250), correct);
    EXPECT_EQ(behind.ML0, correct ? found.ML2 : owt(4250));
    EXPECT_EQ(behind.ML1, correct ? found.ML2 + 1 : owt(7997));
    EXPECT_EQ(Flags(*trace), "- - n - -");
    EXPECT_TRUE(trace->RFTSEvents->IsFail());
    found.EPT = owt(16000) + 10;
    EXPECT_EQ(engine.InsertEvent(trace.get(), &found, true), nullptr);
  }
}

TEST(Compare, WhatCannotBeANewEventLeavesNoTrace) {
  const std::pair<const char*, std::function<void(TSorData&)>> kCases[] = {
      {"it is too weak", [](TSorData& base) { Set(base, "AutoLT", 0.6); }},
      {"slopes may differ", [](TSorData& base) { Set(base, "EvtDetectDeltaCT", 3.0); }},
      {"it lies before the section", [](TSorData& base) { base.QRTEvents->EventAt(1).ML0 = 5999 * 50; }},
      {"it lies behind the section", [](TSorData& base) { base.QRTEvents->EventAt(1).ML1 = 5997 * 50; }},
      {"nothing is searched", [](TSorData& base) { base.QRTEvents->TNE = 0; }},
  };
  for (const auto& [why, change] : kCases) {
    const auto base = MakeBaseline(), current = support::BuildTrace(ComparedFibre().Step(6000, 0.5));
    change(*base);
    EXPECT_EQ(Compare(*base, *current), mrCompared);
    EXPECT_EQ(Flags(*current), "- mf m m") << why;  // its loss counts as that of the event before the section
  }
}

TEST(Compare, TheMarkOfTheEndPassesToTheLastEventThatStays) {
  const auto trace = MakeBaseline();
  TAuto().srCompare_DeleteExcessEvents(trace.get(), trace->KeyEvents->EventAt(1).EPT);
  ASSERT_EQ(trace->KeyEvents->TNKE, 2);
  EXPECT_TRUE(trace->KeyEvents->EventAt(1).IsEOF());
  EXPECT_EQ(trace->KeyEvents->EventAt(1).ML2, static_cast<int>(trace->GetMaxOwt()));
  TAuto().srCompare_DeleteExcessEvents(trace.get(), -1);
  ASSERT_EQ(trace->KeyEvents->TNKE, 1);
  EXPECT_EQ(trace->KeyEvents->EventAt(0).EC.c_str()[1], 'A');  // the launch stays, marked all the same
}

TEST(Compare, EndToEndLossMayFallFromItsBaselineNoMoreThanRise) {
  const auto base = MakeBaseline(), current = MakeBaseline();
  base->KeyEvents->SetEEL(10.0);
  const std::tuple<double, bool, bool> kCases[] = {
      {10.4, false, false}, {9.4, false, true}, {10.6, true, true}, {9.0, true, false}};
  for (const auto& [lossDb, absolute, exceeded] : kCases) {
    TRFTSLevel level;
    level.SetEELT({10500, 500, absolute});
    current->KeyEvents->SetEEL(lossDb);
    TAuto().srCompare_EELT(base.get(), current.get(), current.get(), &level);
    EXPECT_EQ(current->RFTSEvents->GetEELD().IsExceeded(), exceeded) << lossDb;
  }
}

TEST(Compare, ASectionByItselfLiesBetweenStraightFibres) {
  const auto trace = support::BuildTrace(ComparedFibre());
  const std::vector<float> raw = support::Levels(*trace);
  TAuto().IsolateSection(trace.get(), trace->NumToOwt(5000), trace->NumToOwt(7000), 0.3);
  for (const long point : {3000L, 7000L})
    EXPECT_NEAR(trace->NumToLevel(point) - trace->NumToLevel(point + 900), 0.3 * trace->NumToALen(900), 1e-3);
  for (const size_t point : {5000U, 6999U})
    EXPECT_EQ(trace->NumTofLevel(static_cast<long>(point)), raw[point]);
  EXPECT_NEAR(trace->NumToLevel(4999), raw[5000], 0.05);
  EXPECT_EQ(trace->NumToLevel(15999), trace->GetMinLevel());
  TAuto().IsolateSection(trace.get(), -1e9, 1e9, -50.0);  // a section wider than the trace has no outside
}

// Records whose tables are out of step, or hold what no instrument writes.
TEST(Compare, BrokenRecordsEnd) {
  constexpr int kFar = std::numeric_limits<int>::max();
  const std::function<void(TSorData&)> kBreaks[] = {
      [](TSorData& base) { base.RFTSParams->GetLevel(0)->SetName(""); },
      [](TSorData& base) { base.RFTSParams->GetLevel(0)->Clear(); },
      [](TSorData& base) { RefEventSorDelete(&base, 0); },
      [](TSorData& base) { RefEventSorDelete(&base, 1); },
      [](TSorData& base) { Set(base, "EvtSearchStep", 1e-4); },
      [](TSorData& base) { base.FxdParams->GI = 1; },
      [](TSorData& base) { base.GenParams->UO = -kFar; },
      [](TSorData& base) { base.QRTEvents->EventAt(0).ML0 = -kFar, base.QRTEvents->EventAt(0).ML1 = kFar; },
      [](TSorData& base) { base.KeyEvents->EventAt(2).EPT = -kFar, base.KeyEvents->EventAt(2).EC = "1"; },
  };
  for (const auto& breakIt : kBreaks) {
    const auto base = MakeBaseline(), current = support::BuildTrace(ComparedFibre(9000));
    Set(*base, "NoLinkDeltaDB", 1e5);
    breakIt(*base);
    const int result = Compare(*base, *current);
    EXPECT_EQ(current->RFTSEvents->GetMonitorResult(), result);
    EXPECT_EQ(Compare(*base, *current, true), result);
    EXPECT_EQ(Compare(*base, *base), mrCompared);
  }
}

}  // namespace
