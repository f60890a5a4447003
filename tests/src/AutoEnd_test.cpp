// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/src/preparedAnalysis.h"

namespace {

using support::MetreSpec;
using support::PreparedAnalysis;
using support::TraceSpec;

// A fibre in noise that reaches up to -48 dB.
TraceSpec Fibre() {
  TraceSpec spec = MetreSpec();
  spec.noiseLin = 60.0;
  spec.noiseFloorDb = -48.0;
  return spec;
}

struct EndSearch : PreparedAnalysis {
  explicit EndSearch(const TraceSpec& spec, double endDb = 5.0) : PreparedAnalysis(spec) {
    engine.th.THEnd = endDb;
    engine.firstRefl = -8.0;
  }
  void Search(long start = 200) { engine.SearchEnd(&last, start, 0.0); }
  long End() const { return Point(engine.lEnd); }

  TEventLine last;
};

TEST(FibreEnd, FoundWhereItWasBuilt) {
  const struct {
    const char* what;
    long end;
    double peakDb;
    int connectors;
  } cases[] = {
      {"reflective end", 15000, 8.0, 0},     {"saturated end", 15000, 14.5, 0},
      {"weak end reflection", 9000, 2.0, 0}, {"broken fibre", 12000, 0.0, 0},
      {"behind a connector", 15000, 8.0, 1}, {"behind two connectors", 15000, 8.0, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = Fibre();
    spec.End(static_cast<double>(c.end));
    if (c.peakDb > 0.0) spec.Peak(static_cast<double>(c.end), c.peakDb);
    for (int k = 1; k <= c.connectors; ++k) spec.Peak(4000.0 * k, 6.0).Step(4000.0 * k, 0.4);
    EndSearch s(spec);
    s.Search();
    EXPECT_NEAR(s.End(), c.end, 12);
    EXPECT_NEAR(s.engine.pEnd, spec.LevelAt(c.end - 1), 0.3);
    EXPECT_EQ(s.Point(s.engine.lBeg), 200);
    if (c.peakDb > 0.0) {
      EXPECT_NEAR(s.engine.endRefl, spec.LevelAt(c.end), 0.3);
    }
    EXPECT_GT(s.last.spliceLoss, 5.0);
    EXPECT_NEAR(s.engine.aciEnd, 0.2, c.connectors > 0 ? 0.15 : 0.02);
    EXPECT_LE(s.engine.maxDbKm, 4.0);  // ten times the slope measured
  }
}

TEST(FibreEnd, ThresholdDecidesWhetherALossIsTheEnd) {
  const struct {
    double lossDb, endDb;
    bool ends;
  } cases[] = {{8.0, 6.0, true}, {4.0, 6.0, false}, {8.0, 12.0, false}};
  for (const auto& c : cases) {
    TraceSpec spec = Fibre();
    spec.startDb = -10.0;
    EndSearch s(spec.Step(7000, c.lossDb).End(15000).Peak(15000, 8.0), c.endDb);
    s.Search();
    EXPECT_NEAR(s.End(), c.ends ? 7000 : 15000, 15) << c.lossDb << " " << c.endDb;
  }
}

// Two reflections with a dip between them, as at a patch panel: the dip becomes a section of its own, and the
// selection then cuts what the walk went on to behind it.
TEST(FibreEnd, DipBetweenTwoLastReflections) {
  for (double apart : {20.0, 40.0}) {
    EndSearch s(Fibre().End(15000).Peak(15000, 6.0).Peak(15000 - apart, 6.0));
    s.Search();
    ASSERT_EQ(s.engine.lines->GetSize(), 2) << apart;
    EXPECT_NEAR(static_cast<double>(s.Point(s.Line(0).L[1])), 14999 - apart, 1);
    EXPECT_EQ(s.Point(s.Line(1).L[0]), 14998) << apart;
    EXPECT_EQ(s.Point(s.Line(1).L[1]), 14999) << apart;
    EXPECT_EQ(s.Point(s.Line(1).peakLen), 15000) << apart;
    s.engine.lines->AddData(new TEventLine(s.last));
    s.engine.SelectSplices(0.2);
    EXPECT_EQ(s.End(), 14999) << apart;
  }
}

// A connector so near to the end that the search for fibre behind it comes out in the noise: then no line is
// left over, and the end can't lie in front of where the last line starts.
TEST(FibreEnd, NoFibreBehindAConnectorNearTheEnd) {
  for (double apart : {70.0, 80.0}) {
    for (double peakDb : {4.0, 10.0}) {
      SCOPED_TRACE(testing::Message() << apart << " " << peakDb);
      EndSearch s(Fibre().Peak(6000, peakDb).End(6000 + apart).Peak(6000 + apart, 8.0));
      s.Search();
      ASSERT_EQ(s.engine.lines->GetSize(), 2);
      EXPECT_NEAR(s.Point(s.Line(0).L[1]), 6000, 2);
      EXPECT_NEAR(s.Point(s.Line(1).peakLen), 6000 + apart, 12);
      EXPECT_DOUBLE_EQ(s.last.Length(), 0.0);
      EXPECT_GT(s.End(), 6000 + apart);
    }
  }
}

// A fibre may be too long for the noise, and still send a reflection back from its end.
TEST(FibreEnd, ReflectionFromBeyondTheNoise) {
  TraceSpec spec = Fibre();
  spec.SlopeDbPerKm(2.2);
  spec.level = [fibre = spec](long i) { return i >= 19000 && i < 19010 ? -42.0 : fibre.LevelAt(i); };
  EndSearch s(spec);
  s.Search();
  EXPECT_NEAR(s.End(), 19000, 3);
  EXPECT_NEAR(s.engine.endRefl, -42.0, 0.5);
  EXPECT_LT(s.Point(s.last.L[1]), 17000);  // but the line ends where the noise begins
}

// Light that runs to a strong reflection twice shows it again at twice the distance.
TEST(FibreEnd, EchoOfAStrongReflectionIsNoEnd) {
  const struct {
    const char* what;
    long points;
    double at, secondAt, peakDb;
    bool echo;
  } cases[] = {
      {"at twice the distance", 20000, 7000, 14000, -2.0, true},
      {"not at twice the distance", 20000, 7000, 14080, -2.0, false},
      {"of a reflection too weak", 20000, 7000, 14000, -3.5, false},
      {"of one at 29.6 km", 80000, 29000, 58000, -2.0, true},
      {"of one at 30.6 km", 80000, 30000, 60000, -2.0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = Fibre();
    spec.points = c.points;
    spec.SlopeDbPerKm(0.05);
    EndSearch s(spec.End(c.secondAt).Peak(c.secondAt, 6.0));
    s.engine.aciNominal = 0.05;
    s.Add(200, c.at, c.at, -15.0, -15.5, 'R', c.peakDb);
    s.Search();
    EXPECT_EQ(s.engine.lines->GetSize(), c.echo ? 0 : 1);
    EXPECT_NEAR(s.last.L[1], s.Km(c.echo ? c.at : c.secondAt), s.Km(12));
  }
}

TEST(FibreEnd, EchoesAmongTwoReflections) {
  const struct {
    const char* what;
    double firstAt, secondAt, endAt, secondPeakDb;
    int left;
    double at;
  } cases[] = {
      {"the end is the echo of the second", 3000, 8000, 16000, -2.5, 1, 8000},
      {"the end is the echo of the first", 8000, 9000, 16000, -4.0, 1, 9000},
      {"the second is the echo of the first", 4000, 8000, 15000, -2.5, 0, 4000},
      {"the second is stronger: no echo", 4000, 8000, 15000, -1.0, 2, 15000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = Fibre();
    spec.receiverDbPerPoint = 2.5;  // down in the noise within one window
    EndSearch s(spec.End(c.endAt).Peak(c.endAt, 6.0));
    s.Add(200, c.firstAt, c.firstAt, -15.0, -15.6, 'R', -2.0);
    s.Add(c.firstAt + 20, c.secondAt, c.secondAt, -15.6, -16.6, 'R', c.secondPeakDb);
    s.Search();
    EXPECT_EQ(s.engine.lines->GetSize(), c.left);
    EXPECT_NEAR(s.last.L[1], s.Km(c.at), s.Km(12));
  }
}

TEST(FibreEnd, WithoutAFibreTheLineHasNoLength) {
  TraceSpec spec = Fibre();
  spec.level = [](long i) { return i < 12 ? -5.0 : -59.0; };
  EndSearch s(spec);
  s.Search(40);
  EXPECT_EQ(s.engine.lines->GetSize(), 0);
  EXPECT_LT(s.last.Length(), 0.002);
}

// Whatever stands in a trace: launch, end, sections, selection and table come to an end, and soon.
TEST(FibreEnd, AnyTraceIsWalkedThrough) {
  support::Noise random(3);
  for (int round = 0; round < 60; ++round) {
    TraceSpec spec = Fibre();
    spec.points = random.Integer(2, 4000);
    spec.noiseLin = 0.0;
    const double swingDb = random.Uniform(0.0, 55.0);
    const long period = random.Integer(1, 200);
    double levelDb = -5.0;
    spec.level = [&](long i) {
      if (i % period == 0) levelDb = -random.Uniform(0.0, 1.0) * swingDb;
      return levelDb - 0.01 * static_cast<double>(i % period);
    };
    EndSearch s(spec, random.Uniform(0.5, 20.0));
    if (round % 3 == 0)
      s.engine.winPulse = s.engine.winDead = 1L << 40;  // as from a spacing of next to nothing
    const double rate = round % 4 == 0 ? 1e-300 : round % 4 == 1 ? 0.0 : 0.5;
    const long begin = s.engine.FindBegLine(0, spec.points, rate, s.last);
    s.Search(std::clamp(begin, 0L, spec.points - 1));
    EXPECT_TRUE(std::isfinite(s.engine.lEnd)) << round;
    s.engine.lines->AddData(new TEventLine(s.last));
    s.engine.SelectSplices(0.1);
    s.engine.AddSorEvent();
    EXPECT_EQ(s.sor->KeyEvents->TNKE, s.engine.lines->GetSize() + 1) << round;
  }
}

}  // namespace
