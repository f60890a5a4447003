// SPDX-License-Identifier: Apache-2.0

// Events measured on a link whose losses and peaks are known, and a table that stays in step with its blocks.

#include "ref/events/refEventEdit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "ref/events/refEventReflection.h"
#include "tests/support/assertions.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::TraceSpec;

constexpr int kEditedSpacingOwt = 50;
constexpr double kSpacingKm = kEditedSpacingOwt * 2.99792458e-5 / 1.468;
constexpr double kSlopeDbPerKm = 0.2;

// 10 km: a splice of 0.5 dB, a connector of 4 dB, a gain of 0.3 dB, and the end. The pulse is 100 points.
TraceSpec Link() {
  TraceSpec spec;
  spec.spacingOwt = kEditedSpacingOwt;
  spec.pulseNs = 1000;
  spec.SlopeDbPerKm(kSlopeDbPerKm).Step(3000, 0.5).Peak(6000, 4.0).Step(8000, -0.3).End(9500);
  return spec;
}

// Times in points.
TSorBlockKeyEvents1E* NewEvent(int ept, int ml0, int ml1, int ml2, int ml3, const char* code = "?F9999") {
  auto* event = new TSorBlockKeyEvents1E;
  event->EC = code;
  const std::pair<int*, int> kTimes[] = {
      {&event->EPT, ept}, {&event->ML0, ml0}, {&event->ML1, ml1}, {&event->ML2, ml2}, {&event->ML3, ml3}};
  for (const auto& time : kTimes) *time.first = time.second * kEditedSpacingOwt;
  return event;
}

// The link with its events, and what follows them: a level of thresholds, a comparison, landmarks.
std::unique_ptr<TSorData> LinkWithEvents() {
  auto sor = BuildTrace(Link());
  sor->RFTSParams->AddLevel();
  sor->RFTSEvents->SetLevelName("A");
  RefEventAdd(sor.get(), NewEvent(0, 0, 0, 150, 0), 0);
  RefEventAdd(sor.get(), NewEvent(3000, 200, 2990, 3110, 5990), 1);
  RefEventAdd(sor.get(), NewEvent(9500, 8110, 9490, 9500, 9500, "?E9999"), 1);
  RefEventAdd(sor.get(), NewEvent(6000, 3110, 5990, 6250, 7990), 1);
  RefEventAdd(sor.get(), NewEvent(8000, 6250, 7990, 8110, 9490), 1);
  for (int i = 0; i < 5; ++i) {
    auto* landmark = new TSorBlockLinkParamLandmark;
    landmark->LML = i;
    landmark->REN = static_cast<short>(i + 1);
    sor->LnkParams->InsertLandmark(landmark);
  }
  return sor;
}

void ExpectInStep(const TSorData& sor) {
  const TSorBlockKeyEvents& table = *sor.KeyEvents;
  EXPECT_EQ(table.events->GetSize(), table.TNKE);
  EXPECT_EQ(sor.RFTSParams->GetLevel(0)->GetTNTS(), table.TNKE);
  EXPECT_EQ(sor.RFTSEvents->GetTNRFTSE(), table.TNKE);
  for (int i = 0; i < table.TNKE; ++i) {
    EXPECT_EQ(table.EventAt(i).EN, i + 1);
    EXPECT_TRUE(i == 0 || table.EventAt(i - 1).EPT <= table.EventAt(i).EPT);
  }
}

TEST(EventMeasure, LossReflectanceAndShape) {
  const auto sor = LinkWithEvents();
  const struct {
    double lossDb;
    char shape;
    int peak;
  } kCases[] = {
      {0.5, '0', 3000},
      {0.0, '1', 6000},
      {-0.3, '0', 8100},                                      // a gain alone lifts the trace, and is no peak
      {49.8 - 9500 * kSpacingKm * kSlopeDbPerKm, '0', 9500},  // down to the floor of -60 dB
  };
  for (int i = 1; i <= 4; ++i) {
    const auto& c = kCases[i - 1];
    const TSorBlockKeyEvents1E& event = sor->KeyEvents->EventAt(i);
    EXPECT_NEAR(event.GetEL(), c.lossDb, 0.004) << i;
    EXPECT_NEAR(event.GetACI(), kSlopeDbPerKm, 0.002) << i;
    EXPECT_NEAR(event.GetER(), RefEventReflection(4.0, 1000.0, -80.0), c.shape == '1' ? 0.03 : 100.0) << i;
    EXPECT_EQ(event.EC.c_str()[0], c.shape) << i;
    EXPECT_EQ(event.LMT, "LS") << i;
    EXPECT_NEAR(event.ML4, c.peak * kEditedSpacingOwt, 3 * kEditedSpacingOwt) << i;
  }
  const TSorBlockKeyEvents1E& end = sor->KeyEvents->EventAt(4);
  EXPECT_TRUE(end.ML2 == 10000 * kEditedSpacingOwt && end.ML3 == end.ML2);
  EXPECT_TRUE(sor->KeyEvents->ELMP2 == end.EPT && sor->KeyEvents->RLMP2 == end.EPT);
  // Even if the marker reaches far, the peak of the next event is not its own.
  TSorBlockKeyEvents1E& splice = sor->KeyEvents->EventAt(1);
  splice.ML2 = sor->KeyEvents->EventAt(2).ML2;
  splice.ML4 = 7;
  EXPECT_EQ(RefEventRecalculate(sor.get(), sor->KeyEvents, 1), 1);
  EXPECT_EQ(splice.ML4, 7) << "only the first of all";
  EXPECT_EQ(RefEventRecalculate(sor.get(), sor->KeyEvents, 0), 0);
  EXPECT_NEAR(splice.ML4, 3000 * kEditedSpacingOwt, 3 * kEditedSpacingOwt);
}

// The same alone as with all other events, whose sections it shares or does not share.
TEST(EventMeasure, AllAtOnceAsOneByOne) {
  for (const bool shared : {true, false}) {
    const auto all = LinkWithEvents(), each = LinkWithEvents();
    for (TSorData* sor : {all.get(), each.get()}) {
      for (int i = 1; i < 5; ++i) sor->KeyEvents->EventAt(i).ML0 += shared ? 0 : 40 * i;
    }
    RefEventRecalculate(all.get(), all->KeyEvents, 0);
    for (int i = 0; i < 5; ++i) RefEventRecalculate(each.get(), &each->KeyEvents->EventAt(i), 0);
    for (int i = 0; i < 5; ++i) {
      const TSorBlockKeyEvents1E &a = all->KeyEvents->EventAt(i), &b = each->KeyEvents->EventAt(i);
      EXPECT_TRUE(a.GetEL() == b.GetEL() && a.ER == b.ER && a.ACI == b.ACI && a.ML4 == b.ML4 && a.EC == b.EC)
          << i << ", shared: " << shared;
    }
  }
}

TEST(EventMeasure, ShapeOfAPeak) {
  const std::pair<double, char> kCases[] = {
      {-0.1, '2'}, {-0.2, '2'}, {-0.201, '1'}, {-19.92, '1'}, {-19.94, '0'}};
  for (const auto& c : kCases) {
    const auto sor = BuildTrace(2000, [&c](long i) { return i == 1000 ? c.first : -20.0; });
    std::unique_ptr<TSorBlockKeyEvents1E> event(NewEvent(99, 0, 99, 101, 0));
    RefEventRCalculate(sor.get(), event.get());
    EXPECT_EQ(event->EC.c_str()[0], c.second) << c.first;
  }
}

// The line of a steep section goes on below the scale, where a peak has no base, except that of a gain.
TEST(EventMeasure, BaseOfAReflection) {
  const auto sor = BuildTrace(2000, [](long i) { return i < 500 ? -10.0 - 0.05 * double(i) : -50.0; });
  std::unique_ptr<TSorBlockKeyEvents1E> event(NewEvent(110, 0, 40, 0, 0));
  event->ML4 = event->EPT;  // point 1100, where the line is at -65 dB
  RefEventRCalculate(sor.get(), event.get());
  EXPECT_NEAR(event->GetER(), RefEventReflection(10.0, 100.0, -80.0), 0.01);
  RefEventRCalculateNegSplice(sor.get(), event.get(), -2.0);
  EXPECT_NEAR(event->GetER(), RefEventReflection(15.0 - 2.0, 100.0, -80.0), 0.01);
}

// A fibre of 0.4 dB/km before point 5000 and 0.25 behind it, with a step of 1 dB.
TEST(EventMeasure, SectionsThatAreNotBelieved) {
  TraceSpec spec = Link();
  spec.level = [](long i) {
    const double km = static_cast<double>(i - 5000) * kSpacingKm;
    return km < 0.0 ? -12.0 - 0.4 * km : -13.0 - 0.25 * km;
  };
  const auto sor = BuildTrace(spec);
  const double before = -12.0 + 0.4 * 2050 * kSpacingKm;    // in the middle of its section
  const double atStart = -13.0 + 0.25 * 5000 * kSpacingKm;  // of the line behind, at time 0
  // The level of the middle stands in for that at time 0; behind, too, where the section is too short.
  const std::pair<int, double> kCases[] = {{9000, 5000 * kSpacingKm * 0.05 + before - atStart},
                                           {5500, before - (-13.0 - 0.25 * 300 * kSpacingKm)}};
  for (const auto& c : kCases) {
    std::unique_ptr<TSorBlockKeyEvents1E> event(NewEvent(5000, 1000, 4900, 5100, c.first));
    RefEventSCalculate(sor.get(), event.get());
    EXPECT_NEAR(event->GetEL(), c.second, 0.005) << c.first;
    EXPECT_EQ(event->ACI, 200);
    event->ML1 = event->ML0;
    RefEventACICalculate(sor.get(), event.get());
    EXPECT_EQ(event->ACI, 0) << "an empty section";
    event->ML3 = 0;
    event->LMT = "2P";
    event->SetACI(0.7);
    RefEventSCalculate(sor.get(), event.get());
    EXPECT_TRUE(event->EL == 0 && event->ACI == 700 && event->LMT == "2P") << "nothing behind the event";
  }
}

TEST(EventMeasure, MarkersAndTheComparisonsView) {
  const auto sor = LinkWithEvents();
  TSorBlockKeyEvents1E& connector = sor->KeyEvents->EventAt(2);
  RefEventMarkerR(sor.get(), &connector);
  EXPECT_EQ(connector.EPT, 5999 * kEditedSpacingOwt);  // the last point below half of the rise
  EXPECT_EQ(connector.ML2, (6000 + 150 + 3) * kEditedSpacingOwt);
  for (const double leastDb : {0.5, 4.1}) {  // over the level at ML1, ten points before
    connector.ML4 = 0;
    EXPECT_EQ(RefEventIsEventRFTSReflective(sor.get(), &connector, leastDb), leastDb < 4.0);
    EXPECT_NEAR(RefEventGetEventRFTSReflection(sor.get(), &connector, leastDb),
                RefEventReflection(std::max(3.998, leastDb), 1000.0, -80.0), 0.01);
  }
}

TEST(EventTable, AddsByTimeAndRefusesWhatIsOutside) {
  const auto sor = LinkWithEvents();
  auto* twin = NewEvent(3000, 200, 2990, 3110, 5990);
  EXPECT_EQ(RefEventAdd(sor.get(), twin, 0), 2) << "behind the event of the same time";
  EXPECT_EQ(RefEventGetNextEvent(sor.get(), &sor->KeyEvents->EventAt(1)), twin);
  EXPECT_EQ(RefEventGetNextEvent(sor.get(), &sor->KeyEvents->EventAt(5)), nullptr);
  const int endOwt = 10000 * kEditedSpacingOwt;
  for (const int owt : {-2, -1, endOwt, endOwt + 1}) {  // one unit before the trace counts as its start
    auto* event = NewEvent(0, 0, 0, 0, 0);
    event->EPT = owt;
    const int index = RefEventAdd(sor.get(), event, 0);
    EXPECT_EQ(index, owt == -1 ? 0 : owt == endOwt ? 7 : -1) << owt;
    EXPECT_EQ(RefEventGetNumEvent(sor.get(), event), index);
    if (index < 0) delete event;
  }
  ExpectInStep(*sor);
  RefEventSORToQRTSync(sor.get());
  ASSERT_EQ(sor->QRTEvents->TNE, 7);
  EXPECT_EQ(sor->QRTEvents->EventAt(6).ML0,
            8110 * kEditedSpacingOwt);  // the order is that of the first marker
  EXPECT_NEAR(sor->QRTEvents->EventAt(6).EL, 1380 * kSpacingKm * 1000 * kSlopeDbPerKm, 3);
}

TEST(EventTable, DeletesAndMeasuresTheGrownSection) {
  const auto sor = LinkWithEvents();
  TSorBlockKeyEvents1E& connector = sor->KeyEvents->EventAt(2);
  sor->RFTSParams->GetLevel(0)->GetThresholdsSet(2)->Enabled = 7;
  sor->RFTSEvents->GetEvent(2)->Flags = 9;
  RefEventDel(sor.get(), 0, 1);
  EXPECT_EQ(sor->KeyEvents->TNKE, 5) << "the first event stays";
  connector.SetACI(0.7);
  RefEventDel(sor.get(), 1, 1);
  EXPECT_EQ(&sor->KeyEvents->EventAt(1), &connector);
  EXPECT_NEAR(connector.GetACI(), kSlopeDbPerKm, 0.002);
  EXPECT_EQ(sor->RFTSParams->GetLevel(0)->GetThresholdsSet(1)->Enabled, 7);
  EXPECT_EQ(sor->RFTSEvents->GetEvent(1)->Flags, 9);
  const short kEventOfLandmark[] = {1, 0, 2, 3, 4};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(sor->LnkParams->LandmarkAt(i).REN, kEventOfLandmark[i]) << i;
  ExpectInStep(*sor);
  EXPECT_NE(reflyze::test::AssertionOf([&] { RefEventDel(sor.get(), 4, 1); }), "");
  EXPECT_EQ(RefEventDeleteAllButFirstAndLast(sor.get()), 1);
  EXPECT_EQ(sor->KeyEvents->TNKE, 2);
  ExpectInStep(*sor);
  RefEventSorDelete(sor.get(), 1);
  EXPECT_EQ(sor->RFTSEvents->GetTNRFTSE(), 2) << "nobody was told";
  RefEventRFTSSync(sor.get());
  ExpectInStep(*sor);
  EXPECT_EQ(RefEventENSync(nullptr), 0);
}

TEST(EventTable, GroupsWithinADeadZone) {
  TSorData sor;
  const int kTable[][2] = {{0, 50}, {100, 300}, {200, 250}, {240, 500}, {300, 310}, {400, 401}, {400, 600}};
  for (const auto& at : kTable) sor.KeyEvents->events->AddData(NewEvent(at[0], 0, 0, at[1], 0));
  // Each event is compared with the one asked for, and not with the one just reached.
  const int kFirst[] = {0, 1, 1, 1, 3, 5, 6}, kLast[] = {0, 3, 3, 6, 4, 5, 6};
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(RefEventGetMainEventOfMergedGroup(&sor, i), kFirst[i]) << i;
    EXPECT_EQ(RefEventGetLastEventOfMergedGroup(&sor, i), kLast[i]) << i;
  }
}

// The template of 10 km on a trace of 7 km with another spacing, index and user offset.
TEST(EventTemplate, CarriesEventsByTheirLength) {
  const auto base = LinkWithEvents();
  base->RFTSParams->GetLevel(0)->GetThresholdsSet(1)->Enabled = 7;
  RefEventSORToQRTSync(base.get());
  base->KeyEvents->EventAt(0).EPT = -4000;  // the first is carried from wherever it lies
  TraceSpec other = Link();
  other.points = 14000;
  other.spacingOwt = 25.0;
  other.groupIndex = 1.5;
  const auto current = BuildTrace(other);
  current->GenParams->UO = 300;
  RefEventAdd(current.get(), NewEvent(3, 0, 0, 0, 0), 0);
  RefEventApplyTemplate(current.get(), base.get());
  const auto carried = [](int owt) { return owt * 1.5 / 1.468 + 300; };
  ASSERT_EQ(current->KeyEvents->TNKE, 3);
  EXPECT_EQ(current->KeyEvents->EventAt(0).EPT, 0) << "not before the trace";
  for (int i = 1; i < 3; ++i) {
    const TSorBlockKeyEvents1E &from = base->KeyEvents->EventAt(i), &to = current->KeyEvents->EventAt(i);
    EXPECT_NEAR(to.EPT, carried(from.EPT), 0.501);
    EXPECT_NEAR(to.ML1, carried(from.ML1), 0.501);
    EXPECT_EQ(to.EN, i + 1);
  }
  EXPECT_EQ(current->KeyEvents->EventAt(2).ML3, 14000 * 25) << "held on the trace";
  EXPECT_EQ(current->RFTSParams->GetLevel(0)->GetTNTS(), 5) << "the thresholds are those of the template";
  EXPECT_EQ(current->RFTSParams->GetLevel(0)->GetThresholdsSet(1)->Enabled, 7);
  EXPECT_EQ(current->LnkParams->LandmarkAt(4).REN, 5);
  ASSERT_EQ(current->QRTEvents->TNE, 2);
  EXPECT_EQ(current->QRTEvents->EventAt(1).EC, "DT9999");
  EXPECT_EQ(current->QRTEvents->EventAt(1).ML1, static_cast<int>(carried(5990 * kEditedSpacingOwt)));
}

TEST(EventTemplate, DifferenceOfTwoTraces) {
  TraceSpec worse = Link();
  worse.SlopeDbPerKm(kSlopeDbPerKm + 0.05).steps[0].lossDb += 0.2;
  const auto base = LinkWithEvents(), same = BuildTrace(Link()), current = BuildTrace(worse);
  double levelDb = 9, scatterDb = 9;
  EXPECT_EQ(RefEventSQO(same.get(), base.get(), levelDb, scatterDb), 1);
  EXPECT_TRUE(levelDb == 0.0 && scatterDb == 0.0);
  // The splice that has grown lowers the three sections behind it, the fibre every section by its middle.
  EXPECT_EQ(RefEventSQO(current.get(), base.get(), levelDb, scatterDb), 1);
  EXPECT_NEAR(levelDb, -0.6 - 0.05 * (1500 + 4500 + 7000 + 8750) * kSpacingKm, 0.05);
  EXPECT_NEAR(scatterDb, -levelDb, 0.05);
  TSorData empty;
  EXPECT_EQ(RefEventSQO(current.get(), &empty, levelDb, scatterDb), 0);
  EXPECT_EQ(levelDb, 0.0);
  EXPECT_EQ(current->KeyEvents->TNKE, 5);
}

}  // namespace
