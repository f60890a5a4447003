// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "ref/events/refEvent.h"
#include "tests/src/preparedAnalysis.h"

namespace {

using support::MetreSpec;
using support::PreparedAnalysis;
using support::TraceSpec;

// Three sections on 12 km: a splice at 4000, a connector at 8000, the end at 12000.
struct Result : PreparedAnalysis {
  explicit Result(TraceSpec spec = Spec()) : PreparedAnalysis(spec) {
    Section(50, 4000, 'P', 0.3, 0.0);
    Section(4020, 8000, 'R', 0.2, 5.0);
    Section(8080, 12000, 'R', 21.0, 6.0);
    engine.firstRefl = -10.0;
    engine.firstReflOwt = 120.6;
    engine.pZero = spec.startDb;
    engine.lossTotal = 3.25;
    engine.lEnd = Km(12000);
    engine.th.THEnd = 20.0;
  }
  static TraceSpec Spec() {
    TraceSpec spec = MetreSpec();
    return spec.Step(4000, 0.3).Step(8000, 0.2).Peak(8000, 5.0).Peak(12000, 6.0).End(12000);
  }
  void Section(double from, double to, char type, double lossDb, double peakDb) {
    const double p0 = sor->NumToLevel(std::lround(from)), p1 = sor->NumToLevel(std::lround(to) - 1);
    TEventLine& line = Add(from, to, to, p0, p1, type, p1 + peakDb);
    line.peakLen = Km(to + 10);
    line.spliceLoss = lossDb;
  }
  const TSorBlockKeyEvents1E& Event(int i) const { return sor->KeyEvents->EventAt(i); }
  std::string Code(int i) const { return Event(i).EC.c_str(); }
};

TEST(EventTable, LaunchAndOneEventForEachLine) {
  Result r;
  r.sor->QRTParams->SetCT(0.7);
  r.engine.th.dBkm = 0.3;
  EXPECT_EQ(r.engine.AddSorEvent(), 300);
  const TSorBlockKeyEvents& table = *r.sor->KeyEvents;
  ASSERT_EQ(table.TNKE, 4);
  ASSERT_EQ(table.events->GetSize(), 4);
  const struct {
    const char *code, *technique;
    int at, from, to, behindFrom, behindTo, peak;
  } expected[] = {
      {"1F9999", "2P", 0, 0, 0, 2500, 200000, 120},
      {"0F9999", "LS", 200000, 2500, 200000, 201000, 400000, 200500},
      {"1F9999", "LS", 400000, 201000, 400000, 404000, 600000, 400500},
      {"1E9999", "LS", 600000, 404000, 600000, 600500, 601000, 600500},  // a pulse of 500
  };
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    const TSorBlockKeyEvents1E& e = r.Event(i);
    EXPECT_EQ(e.EN, i + 1);
    EXPECT_EQ(r.Code(i), expected[i].code);
    EXPECT_STREQ(e.LMT.c_str(), expected[i].technique);
    // Truncation of a time that came from a length may lose the last unit.
    EXPECT_NEAR(e.EPT, expected[i].at, 1);
    EXPECT_NEAR(e.ML0, expected[i].from, 1);
    EXPECT_NEAR(e.ML1, expected[i].to, 1);
    EXPECT_NEAR(e.ML2, expected[i].behindFrom, 1);
    EXPECT_NEAR(e.ML3, expected[i].behindTo, 2);
    EXPECT_NEAR(e.ML4, expected[i].peak, 1);
  }
  EXPECT_NEAR(r.Event(1).GetEL(), 0.3, 0.001);
  EXPECT_NEAR(r.Event(1).GetACI(), 0.2, 0.002);
  EXPECT_NEAR(table.GetEEL(), 3.25, 0.001);
  EXPECT_EQ(table.ELMP1, 0);
  EXPECT_NEAR(table.ELMP2, 600000, 1);
  EXPECT_EQ(table.RLMP2, table.ELMP2);  // return loss over the same span
  EXPECT_DOUBLE_EQ(r.sor->FxdParams->GetET(), 20.0);

  r.engine.lines->Clear();  // without lines the old table stays
  EXPECT_EQ(r.engine.AddSorEvent(), 0);
  EXPECT_EQ(table.TNKE, 4);
}

TEST(EventTable, SourceOfTheLastEventSaysWhetherTheEndWasReached) {
  const struct {
    double lossDb;
    const char* code;
  } cases[] = {{19.9, "1O9999"}, {20.0, "1E9999"}, {35.0, "1E9999"}};
  for (const auto& c : cases) {
    Result r;
    r.Line(2).spliceLoss = c.lossDb;
    r.engine.AddSorEvent();
    EXPECT_EQ(r.Code(3), c.code) << c.lossDb;
    EXPECT_TRUE(r.Event(3).IsEOF());
  }
}

TEST(EventTable, LaunchMarkersTellWhereTheTraceStarts) {
  const struct {
    int offset, inside;
    double launchKm;
    int at, from;
  } cases[] = {
      {0, 0, 0.0, 0, 0},
      {700, 0, 0.0, 700, 700},
      {-5000, 4000, 0.0, 0, -3250},      // inner fibre, less a pulse of 500 and 250
      {-5000, 600, 0.0, 0, 0},           // too short for that margin
      {-5000, 0, -0.0612654, 0, -2250},  // launch edge at -3000
  };
  for (const auto& c : cases) {
    TraceSpec spec = Result::Spec();
    spec.offsetOwt = c.offset;
    Result r(spec);
    r.sor->QRTParams->IntFiber = c.inside;
    r.engine.lLaunch = c.launchKm;
    r.engine.AddSorEvent();
    EXPECT_EQ(r.Event(0).EPT, c.at) << c.offset;
    EXPECT_EQ(r.Event(0).ML1, c.at);
    EXPECT_NEAR(r.Event(0).ML0, c.from, 1) << c.offset << " " << c.inside;
  }
}

TEST(EventTable, LaunchWithoutAPeakIsNoReflection) {
  Result r;
  r.engine.firstRefl = r.engine.pZero + 0.05;
  r.engine.AddSorEvent();
  EXPECT_EQ(r.Code(0), "0F9999");
}

TEST(EventTable, LongSectionBehindIsCutBeforeItMeasuresTheEvent) {
  Result r;
  r.Line(1).P[0] =
      r.Line(1).P[1] + 8.0;  // 8 dB over 3980 points; in front 0.8 dB over 3950: the limit is 1.6
  r.engine.AddSorEvent();
  EXPECT_NEAR(r.Event(1).ML3, 201000 + 199000 * 1.613 / 8.0, 150);
  EXPECT_NEAR(r.Event(2).ML0, 201000, 1);  // the section itself stays
  // The loss is the one that both sections on the trace give, not the one of the lines.
  TSorBlockKeyEvents1E again = r.Event(1);
  RefEventSCalculate(r.sor, &again);
  EXPECT_EQ(r.Event(1).ELWide, again.ELWide);
}

TEST(EventTable, DoubledReflectionSharesTheSectionInFront) {
  Result r;
  r.engine.lines->Clear();
  r.Section(50, 4000, 'R', 0.0, 5.0);
  r.Section(4010, 4012, 'V', 0.0, 5.0);
  r.Section(4020, 4022, 'V', 0.0, 5.0);
  r.Section(4050, 12000, 'R', 21.0, 6.0);
  r.Line(2).peakLevel = -0.1;  // clipped
  r.engine.AddSorEvent();
  ASSERT_EQ(r.sor->KeyEvents->TNKE, 5);
  for (int i : {2, 3}) {
    EXPECT_EQ(r.Code(i), "1F9999");
    EXPECT_STREQ(r.Event(i).CMT.c_str(), "Possibly doubled reflection");
    EXPECT_EQ(r.Event(i).ML0, r.Event(1).ML0);
    EXPECT_EQ(r.Event(i).ML1, r.Event(1).ML1);
  }
  // And all of them have the next real section behind them.
  for (int i : {1, 2}) {
    EXPECT_EQ(r.Event(i).ML2, r.Event(4).ML0);
    EXPECT_EQ(r.Event(i).ML3, r.Event(4).ML1);
  }

  Result open;  // nothing but doubled reflections behind
  open.Line(1).type = open.Line(2).type = 'V';
  open.engine.AddSorEvent();
  EXPECT_EQ(open.Event(1).ML2, static_cast<int>(open.sor->GetMaxOwt()));
  EXPECT_EQ(open.Event(1).ML3, open.Event(1).ML2);
  EXPECT_EQ(open.Code(3), "1E9999");
}

TEST(EventTable, WithAnInnerFibreTheLossIsReadFromTheTrace) {
  TraceSpec spec = Result::Spec();
  spec.offsetOwt = -5000;
  Result r(spec);
  r.sor->QRTParams->IntFiber = 4000;
  r.engine.AddSorEvent();
  const TSorBlockKeyEvents& table = *r.sor->KeyEvents;
  EXPECT_EQ(table.ELMP1, 0);
  EXPECT_NEAR(table.ELMP2, 595000, 1);
  // From the outlet at point 100 to the end: fibre and both losses.
  EXPECT_NEAR(table.GetEEL(), spec.LevelAt(100) - spec.LevelAt(11999), 0.01);

  r.sor->QRTParams->IntFiber = 700;  // shorter than 1.5 pulses
  r.engine.AddSorEvent();
  EXPECT_NEAR(table.GetEEL(), 3.25, 0.001);
}

TEST(Reflection, ClassAndCommentByLetterAndSaturation) {
  PreparedAnalysis a(MetreSpec());
  const char* inaccurate = "Splice value is not accurate";
  const char* doubled = "Possibly doubled reflection";
  const struct {
    char type;
    double peakDb, baseDb;
    const char *code, *comment;
  } cases[] = {
      {'N', -10.0, -15.0, "0", " "},        {'P', -10.0, -15.0, "0", " "},
      {'S', -10.0, -15.0, "0", inaccurate}, {'R', -10.0, -15.0, "1", " "},
      {'R', -0.2, -15.0, "2", " "},         {'R', -0.2001, -15.0, "1", " "},
      {'V', -10.0, -15.0, "d", doubled},    {'V', -0.2, -15.0, "D", doubled},
      {'_', -10.0, -15.0, "1", " "},        {'_', -0.1, -15.0, "2", " "},
      {0, -14.96, -15.0, "0", " "},         {'=', -10.0, -15.0, "0F9999", " "},
  };
  for (const auto& c : cases) {
    TSorBlockKeyEvents1E event;
    event.EPT = 1000;
    a.engine.SetReflection(&event, c.peakDb, c.baseDb, c.type, nullptr);
    EXPECT_STREQ(event.EC.c_str(), c.code) << c.type << " " << c.peakDb;
    EXPECT_STREQ(event.CMT.c_str(), c.comment) << c.type;
    // Reflectance after the definition: R = 10 log10((10^(h/5) - 1) pulse) + Bns.
    const double power = (std::pow(10.0, (c.peakDb - c.baseDb) / 5.0) - 1.0) * 100.0;
    EXPECT_NEAR(event.GetER(), 10.0 * std::log10(power) + a.sor->FxdParams->GetBC(), 0.002);
  }
  TSorBlockKeyEvents1E untouched;
  a.engine.sor = nullptr;
  a.engine.SetReflection(&untouched, -10.0, -15.0, 'R', nullptr);
  EXPECT_STREQ(untouched.EC.c_str(), "0F9999");
}

TEST(Model, TraceOfTheLinesFollowsThem) {
  Result r;
  const std::unique_ptr<TSorData> model(r.engine.SorGenerate());
  ASSERT_NE(model, nullptr);
  EXPECT_NEAR(model->NumToLevel(0), -10.0, 1e-6);
  for (long point : {100L, 3000L, 4021L, 7000L, 9000L, 11999L}) {
    EXPECT_NEAR(model->NumToLevel(point), r.sor->NumToLevel(point), 0.01) << point;
  }
  EXPECT_NEAR(model->NumToLevel(8001), r.Line(1).peakLevel, 1e-4);
  EXPECT_NEAR(r.sor->NumToLevel(5000), r.Spec().LevelAt(5000), 1e-3);  // the trace itself stays

  // A line that runs beyond both ends of the trace is held inside.
  r.engine.lines->Clear();
  EXPECT_EQ(r.engine.SorGenerate(), nullptr);
  r.Add(-500, 30000, 40000, -15.0, -20.0, 'P', -5.0);
  const std::unique_ptr<TSorData> held(r.engine.SorGenerate());
  EXPECT_NEAR(held->NumToLevel(r.engine.nPoints - 1), -5.0, 1e-6);
}

TEST(DeadZones, OfALaunchPeak) {
  TraceSpec spec = MetreSpec();
  spec.receiverDbPerPoint = 0.05;
  spec.Peak(100, 8.0);
  PreparedAnalysis a(spec);
  TEventLine& line = a.Add(600, 8000, 8000, spec.LevelAt(600), spec.LevelAt(8000), 'P', -5.0);
  long over = 600;
  while (spec.LevelAt(over) - (spec.startDb - static_cast<double>(over) * spec.slopeDbPerPoint) < 0.5) --over;
  EXPECT_NEAR(a.engine.CalcAttDZ(a.sor, a.Km(100), &line, 0.5), a.Km(over - 100), 0.0015);

  long width = 0;
  while (spec.LevelAt(110 + width) > spec.LevelAt(100) - 1.5) ++width;
  EXPECT_NEAR(a.engine.CalcEvntDZ(a.sor, a.Km(50), a.Km(300)), a.Km(10 + width), 0.002);
}

}  // namespace
