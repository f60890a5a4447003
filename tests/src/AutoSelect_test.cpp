// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/src/preparedAnalysis.h"

namespace {

using support::MetreSpec;
using support::PreparedAnalysis;
using support::TraceSpec;

constexpr double kPerPointDb = 0.2 * 0.00102109;  // 0.2 dB/km at a metre a point

// Two or more sections of nominal slope on one trace, with the events given between them.
struct Link : PreparedAnalysis {
  explicit Link(const TraceSpec& spec = MetreSpec()) : PreparedAnalysis(spec) {}

  // A section of 4000 points in front of an event of `lossDb` with a peak `peakDb` above the section.
  void Section(double lossDb, char type, double peakDb = 0.0) {
    const double from = at_ + 20, to = at_ + 4000;
    const double p0 = levelDb_ - 20 * kPerPointDb, p1 = levelDb_ - 4000 * kPerPointDb;
    TEventLine& line = Add(from, to, to, p0, p1, type, p1 + peakDb);
    line.peakLen = Km(to + 5);
    at_ = to;
    levelDb_ = p1 - lossDb;
  }

 private:
  double at_ = 0.0;
  double levelDb_ = -15.0;
};

TEST(Selection, EventsStayByThresholdAndType) {
  const struct {
    const char* what;
    char type;
    double lossDb, peakDb, leastLossDb, leastReflDb;
    bool stays;
  } cases[] = {
      {"a loss over the threshold", 'P', 0.30, 0.0, 0.20, -40.0, true},
      {"a loss under it", 'P', 0.15, 0.0, 0.20, -40.0, false},
      {"a gain over it", 'P', -0.30, 0.0, 0.20, -40.0, true},
      {"a weak loss is not saved by a peak", 'N', 0.15, 5.0, 0.20, -60.0, false},
      {"a reflection without loss", 'R', 0.0, 5.0, 0.20, -60.0, true},
      {"a reflection too weak, without loss", 'R', 0.0, 5.0, 0.20, -20.0, false},
      {"a reflection too weak, with loss", 'R', 0.30, 5.0, 0.20, -20.0, true},
      {"a merged reflection", 'V', 0.0, 5.0, 0.20, -60.0, true},
      {"a merged splice, too weak but with a peak over it", 'S', 0.0, 5.0, 0.20, -20.0, true},
      {"a merged splice, too weak", 'S', 0.0, 0.3, 0.20, -20.0, false},
      {"an event without a letter", 0, 0.15, 5.0, 0.20, -60.0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Link link;
    link.engine.th.THLoss = c.leastLossDb;
    link.engine.th.THRef = c.leastReflDb;
    link.Section(c.lossDb, c.type, c.peakDb);
    link.Section(0.0, 'R', 5.0);
    link.engine.SelectSplices(c.leastLossDb);
    EXPECT_EQ(link.engine.lines->GetSize(), c.stays ? 2 : 1);
  }
}

TEST(Selection, DroppedLossJoinsTheSections) {
  TraceSpec spec = MetreSpec();
  spec.Step(12000, 1.0);
  Link link(spec);
  link.Section(0.0, 'P');
  link.Section(0.05, 'P');  // the selection measures anew: neither event is on this list of levels
  link.Section(1.0, 'P');
  link.Section(0.0, 'R', 4.0);
  link.engine.SelectSplices(0.2);
  ASSERT_EQ(link.engine.lines->GetSize(), 2);
  const TEventLine& joined = link.Line(0);
  EXPECT_EQ(link.Point(joined.L[0]), 20);
  EXPECT_EQ(link.Point(joined.L[1]), 12000);
  EXPECT_NEAR(joined.LossKm(), 0.2, 0.002);
  EXPECT_NEAR(joined.P[0], spec.LevelAt(20), 0.01);  // fitted on the trace
  EXPECT_EQ(joined.type, 'P');
  EXPECT_EQ(link.Line(1).type, 'R');
}

TEST(Selection, ListIsCutAtALossThatEndsTheFibre) {
  const struct {
    const char* what;
    char type;
    double lossDb;
    unsigned int ponType, firstRatio, secondRatio;
    int lines;
  } cases[] = {
      {"over the threshold", 'R', 5.1, 0, 1, 1, 1},
      {"not over it", 'R', 4.9, 0, 1, 1, 3},
      {"merged events don't end a fibre", 'V', 5.1, 0, 1, 1, 3},
      {"two splitters of 8 take 21.06 dB", 'R', 20.9, 1, 8, 8, 3},
      {"and more than that is an end", 'R', 21.2, 1, 8, 8, 1},
      {"ratios unknown: 18 dB", 'R', 17.9, 2, 1, 1, 3},
      {"ratios unknown, over it", 'R', 18.1, 2, 1, 1, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Link link;
    link.engine.th.THEnd = 5.0;
    link.sor->QRTParams->PonType = c.ponType;
    link.sor->QRTParams->FirstSplitterRatio = c.firstRatio;
    link.sor->QRTParams->SecondSplitterRatio = c.secondRatio;
    link.Section(c.lossDb, c.type, 4.0);
    link.Section(0.3, 'P');
    link.Section(0.3, 'P');
    link.engine.lEnd = -1.0;
    link.engine.SelectSplices(0.2);
    EXPECT_EQ(link.engine.lines->GetSize(), c.lines);
    if (c.lines == 1) {
      EXPECT_DOUBLE_EQ(link.engine.lEnd, link.Line(0).L[2]);
      EXPECT_DOUBLE_EQ(link.engine.endRefl, link.Line(0).peakLevel);
      EXPECT_DOUBLE_EQ(link.engine.pEnd, link.Line(0).P[1]);
    } else {
      EXPECT_DOUBLE_EQ(link.engine.lEnd, -1.0);
    }
  }
}

TEST(Selection, SectionsOfImpossibleSlopeGo) {
  Link link;
  link.Section(0.3, 'P');
  // 3 dB/km for 1000 points: no fibre at 1310 nm or beyond, but the tail of the step in front.
  link.Add(4020, 5020, 5020, -16.2, -19.26, 'P', -19.26);
  link.Add(5040, 9000, 9000, -19.3, -20.1, 'R', -15.0);
  TEventLine* steep = &link.Line(1);
  link.engine.SelectSplices(0.2);
  ASSERT_EQ(link.engine.lines->GetSize(), 2);
  EXPECT_EQ(&link.Line(0), steep);
  EXPECT_EQ(link.Point(steep->L[0]), 20);  // its own fit now runs from the start

  Link shortSection;
  shortSection.engine.th.MinLine = 4.5;
  shortSection.Section(1.0, 'P');
  shortSection.Section(0.0, 'R', 4.0);
  shortSection.engine.SelectSplices(0.2);
  EXPECT_EQ(shortSection.engine.lines->GetSize(), 1);
}

TEST(LineLosses, ShortSectionBehindAGapLeansOnTheLongOne) {
  PreparedAnalysis a(MetreSpec());
  a.Add(0, 4000, 4000, -15.0, -15.8, 'P', -15.8);
  TEventLine& behind = a.Add(4100, 4150, 4150, -17.0, -16.5, 'P', -16.5);  // rises: it lies on the gap's tail
  const double lengthKm = behind.Length(), frontKm = a.Line(0).Length(), slope = a.Line(0).LossKm();
  a.engine.SetLinesSplice();
  const double expected = ((-16.5 + slope * lengthKm) * frontKm + -17.0 * lengthKm) / (frontKm + lengthKm);
  EXPECT_NEAR(behind.P[0], expected, 1e-12);
  EXPECT_NEAR(a.Line(0).spliceLoss, 0.69, 0.03);

  // A section longer than the gap speaks for itself.
  behind.L[1] = a.Km(4300);
  behind.P[0] = -17.0;
  a.engine.SetLinesSplice();
  EXPECT_DOUBLE_EQ(behind.P[0], -17.0);
}

TEST(Slopes, LimitFollowsTheFibreDown) {
  PreparedAnalysis a(MetreSpec());
  const struct {
    double before, aci, after;
  } cases[] = {{20.0, 0.5, 5.0}, {3.0, 0.5, 3.0}, {20.0, 0.05, 1.0}, {0.5, 2.0, 1.0}, {20.0, -1.0, 1.0}};
  for (const auto& c : cases) {
    a.engine.maxDbKm = c.before;
    a.engine.SetMaxDbKm(c.aci);
    EXPECT_DOUBLE_EQ(a.engine.maxDbKm, c.after) << c.before << " " << c.aci;
  }
}

TEST(Slopes, CredibleOnesByWavelengthAndBase) {
  PreparedAnalysis a(MetreSpec());
  const struct {
    short nm;
    double aci, base;
    int credible;
  } cases[] = {{1310, -0.5, 0.0, 0}, {1310, -0.49, 0.0, 1}, {1310, 1.99, 0.0, 1}, {1310, 2.0, 0.0, 0},
               {1310, 2.5, 1.3, 1},  {1310, 2.6, 1.3, 0},   {1310, 4.9, 0.0, 0},  {850, 4.9, 0.0, 1},
               {850, 4.9, 0.2, 1},   {850, 5.0, 0.0, 0},    {1000, 2.0, 0.01, 0}};
  for (const auto& c : cases) {
    a.sor->GenParams->NW = c.nm;
    EXPECT_EQ(a.engine.IsNormACI(c.aci, c.base), c.credible) << c.nm << " " << c.aci << " " << c.base;
  }
}

// --- Splices too close together ---

constexpr float kSpanOwt = 2000.0F;  // near: 0.04 km, about 39 points

TEST(ShortSplices, AShortGainAtTheEndGoes) {
  const struct {
    double points, riseDb;
    char type;
    int strong, removed;
  } cases[] = {{60, 0.1, 'N', 0, 1}, {60, -0.1, 'N', 0, 0}, {90, 0.1, 'N', 0, 0},
               {60, 0.1, 'S', 0, 0}, {60, 0.1, 'R', 0, 0},  {60, 0.1, 'N', 1, 0}};
  for (const auto& c : cases) {
    PreparedAnalysis a(MetreSpec());
    a.Add(1000, 1000 + c.points, 1000 + c.points, -15.5, -15.5 + c.riseDb, c.type, -15.0);
    EXPECT_EQ(a.engine.DeleteShortSplices(0, kSpanOwt, 0.02F, -0.02F, c.strong), c.removed)
        << c.points << " " << c.riseDb << " " << c.type << " " << c.strong;
  }
}

TEST(ShortSplices, OfThreeTheMiddleOrTheFirstTwoJoin) {
  // Levels of the middle section and of the third one behind it, as steps from the line of the first.
  const struct {
    const char* what;
    double secondAt, thirdAt, middleStepDb, thirdStepDb;
    int removed;
  } cases[] = {{"one small step seen twice", 4050, 4100, 0.0, 0.01, 2},
               {"two steps near each other", 4150, 4250, 0.09, 0.10, 1},
               {"the same far apart", 6000, 9000, 0.05, 0.10, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    PreparedAnalysis a(MetreSpec());
    const auto level = [](double point, double stepDb) { return -15.0 - point * kPerPointDb - stepDb; };
    a.Add(0, 4000, 4000, level(0, 0), level(4000, 0), 'S', -15.0);
    a.Add(4000, c.secondAt, c.secondAt, level(4000, 0), level(c.secondAt, c.middleStepDb), 'S', -15.0);
    a.Add(c.secondAt, c.thirdAt, c.thirdAt, level(c.secondAt, c.thirdStepDb), level(c.thirdAt, c.thirdStepDb),
          'S', -15.0);
    EXPECT_EQ(a.engine.DeleteShortSplices(0, kSpanOwt, 0.02F, -0.02F, 0), c.removed);
    EXPECT_EQ(a.engine.lines->GetSize(), 3 - c.removed);
    EXPECT_EQ(a.Point(a.Line(2 - c.removed).L[1]), std::lround(c.thirdAt));
  }
}

// --- The weak zone behind splitters ---

// Which events stay on a link with splitters at 3000 and 6000.
TEST(WeakZone, OnlyDoubtfulLossesBehindTwoSplittersGo) {
  const struct {
    const char* what;
    unsigned int secondRatio;
    short beginLevel;
    bool cleaned;
  } cases[] = {{"two of 8", 8, 1500, true}, {"8 and 4", 4, 1500, false}, {"too little lost", 8, 2500, false}};
  const struct {
    int point, from, to;  // of the event and of the section in front
    double lossDb;
    const char* code;
    bool doubtful;
  } events[] = {
      {1000, 0, 0, 0.3, "1F9999", false},
      {3000, 1010, 3000, 9.5, "0F9999", false},
      {6000, 3020, 6000, 9.5, "0F9999", false},
      {9000, 0, 0, 0.5, "0F9999", true},           // sections without length
      {10000, 5995, 6010, 0.5, "0F9999", true},    // as steep as no fibre
      {10500, 9020, 10500, 0.5, "0F9999", false},  // fibre
      {11000, 0, 0, 0.5, "1F9999", false},         // a reflection
      {13000, 0, 0, 3.0, "0F9999", false},         // too strong to be doubted
      {15000, 0, 0, 0.0, "0E9999", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = MetreSpec();
    PreparedAnalysis link(spec.Step(3000, 9.5).Step(6000, 9.5));
    link.sor->QRTParams->PonType = 1;
    link.sor->QRTParams->FirstSplitterRatio = 8;
    link.sor->QRTParams->SecondSplitterRatio = c.secondRatio;
    link.sor->QRTParams->begLevel = c.beginLevel;
    TSorBlockKeyEvents& table = *link.sor->KeyEvents;
    std::vector<int> expected;
    for (const auto& e : events) {
      auto* event = new TSorBlockKeyEvents1E;
      table.events->AddData(event);
      table.TNKE = static_cast<short>(table.events->GetSize());
      event->EPT = e.point * 50;
      event->ML0 = e.from * 50;
      event->ML1 = e.to * 50;
      event->SetEL(e.lossDb);
      event->EC = e.code;
      if (!c.cleaned || !e.doubtful) expected.push_back(event->EPT);
    }
    link.engine.RemoveSuspicionEvents();
    std::vector<int> left;
    for (int i = 0; i < table.TNKE; ++i) left.push_back(table.EventAt(i).EPT);
    EXPECT_EQ(left, expected);
  }
}

}  // namespace
