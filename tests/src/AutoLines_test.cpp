// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "tests/src/preparedAnalysis.h"

namespace {

using support::MetreSpec;
using support::PreparedAnalysis;
using support::TraceSpec;

// Sections of one trace, built from given ranges.
struct Sections : PreparedAnalysis {
  explicit Sections(const TraceSpec& spec)
      : PreparedAnalysis(spec), slope(static_cast<float>(spec.slopeDbPerPoint)) {}

  std::unique_ptr<TEventLine> Fit(TEventLine* prev, long a, long e, long b) {
    return std::unique_ptr<TEventLine>(
        engine.CreateEventLin(prev, a, e, b, engine.winEvent, slope, 0.0F, 0.0F));
  }
  std::unique_ptr<TEventLine> Choose(TEventLine* prev, long s, long z, char type, long after = -1) {
    return std::unique_ptr<TEventLine>(
        engine.CreateEventLin2(prev, s, z, engine.winEvent, slope, after, type));
  }

  float slope;
};

TEST(Section, FitAndPlaces) {
  TraceSpec spec = MetreSpec();
  spec.Step(4000, 0.5);
  Sections s(spec);
  const auto line = s.Fit(nullptr, 500, 4000, 4000);
  EXPECT_EQ(s.Point(line->L[0]), 500);
  EXPECT_EQ(s.Point(line->L[1]), 4000);
  EXPECT_EQ(s.Point(line->L[2]), 4000);
  EXPECT_NEAR(line->LossKm(), 0.2, 1e-3);
  EXPECT_NEAR(line->P[0], spec.LevelAt(500), 1e-3);
  EXPECT_NEAR(line->P[2], spec.LevelAt(4000), 1e-3);
  EXPECT_EQ(line->lossKmFix, 0.0);

  // Levels that were fitted before are taken as they are.
  const std::unique_ptr<TEventLine> given(
      s.engine.CreateEventLin(nullptr, 500, 3900, 4000, s.engine.winEvent, s.slope, -15.12F, -15.9F));
  EXPECT_FLOAT_EQ(static_cast<float>(given->P[0]), -15.12F);
  EXPECT_NEAR(given->P[2], -15.9 - 0.02, 1e-2);  // carried on to the event
}

// What stands at the end of the section gives the letter; whether it can be told from its neighbour depends
// on the length of the section.
TEST(Section, LetterOfTheEvent) {
  const struct {
    const char* what;
    long length;
    double lossDb, peakDb;
    char type;
  } cases[] = {
      {"a loss", 3000, 0.5, 0.0, 'P'},          {"a reflection", 3000, 0.0, 3.0, 'R'},
      {"a small peak", 3000, 0.0, 0.05, 'N'},   {"a loss behind six points", 6, 0.5, 0.0, 'S'},
      {"a reflection there", 6, 0.0, 3.0, 'V'}, {"seven are enough", 7, 0.0, 3.0, 'R'},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = MetreSpec();
    if (c.lossDb > 0.0) spec.Step(8000, c.lossDb);
    if (c.peakDb > 0.0) spec.Peak(8000, c.peakDb);
    Sections s(spec);
    s.engine.pZero = -65.0;
    s.engine.noiseAmp = 0.0;
    const auto line = s.Fit(nullptr, 7999 - c.length, 7999, 7999);
    EXPECT_EQ(line->type, c.type);
    if (c.peakDb >= 3.0) {
      EXPECT_NEAR(line->peakLevel, spec.LevelAt(8000), 0.01);
      EXPECT_NEAR(line->peakLen, s.Km(8005), s.Km(8));
    }
  }
  // A first section that starts below the level at the outlet has lost light in between, so it is one.
  TraceSpec spec = MetreSpec();
  spec.Peak(8000, 3.0);
  Sections s(spec);
  s.engine.pZero = -10.0;
  EXPECT_EQ(s.Fit(nullptr, 7996, 7999, 7999)->type, 'R');
}

// The loss of an event is settled by the section behind it.
TEST(Section, LossOfTheEventInFront) {
  const struct {
    double lossDb, peakDb;
    char type;
    double settledDb;
  } cases[] = {
      {0.5, 0.0, 'P', 0.5},  {-0.3, 0.0, 'N', -0.3},  // a gain, and then the small peak is the new level
      {-0.6, 0.0, 'R', 0.0},                          // no fibre gains so much
      {0.4, 4.0, 'R', 0.4},  {-0.3, 4.0, 'R', -0.3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.lossDb << " " << c.peakDb);
    TraceSpec spec = MetreSpec();
    spec.Step(6000, c.lossDb);
    if (c.peakDb > 0.0) spec.Peak(6000, c.peakDb);
    Sections s(spec);
    const auto front = s.Fit(nullptr, 500, 6000, 6000);
    const auto behind = s.Fit(front.get(), 6040, 12000, 12000);
    EXPECT_EQ(front->type, c.type);
    EXPECT_NEAR(front->spliceLoss, c.settledDb, 0.02);
    EXPECT_LE(front->L[2], behind->L[0]);
  }
}

// Two peaks with no fibre between: the level there is that of the dip. A first peak that is hardly one was
// none.
TEST(Section, DoubledPeakIsSplitAtTheDip) {
  const struct {
    const char* what;
    double peakDb, lossDb;
    long from;
    char front;
  } cases[] = {{"a reflection", 6.0, 0.0, 6014, 'R'},
               {"a small peak that does not fall back", 0.06, 0.0, 6010, 'N'},
               {"a small peak on a loss", 0.06, 0.05, 6010, 'P'}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = MetreSpec();
    Sections s(spec.Step(6000, c.lossDb).Peak(6000, c.peakDb).Peak(6017, 7.0));
    s.engine.noiseAmp = 0.001;
    const auto front = s.Fit(nullptr, 500, 5999, 5999);
    front->type = 'R';
    front->peakLen = s.Km(6017);  // the window saw the second peak, too
    const auto between = s.Fit(front.get(), c.from, 6016, 6016);
    EXPECT_EQ(between->type, 'V');
    EXPECT_EQ(front->type, c.front);
    EXPECT_NEAR(front->peakLen, s.Km(6000), s.Km(5));
    EXPECT_NEAR(between->P[0], spec.LevelAt(6016), 0.05);
    EXPECT_NEAR(front->spliceLoss, c.front == 'R' ? 0.0 : front->P[2] - between->P[0], 1e-9);
  }
}

TEST(Section, SlopeThatNoiseCouldHaveMadeIsForced) {
  const struct {
    const char* what;
    double aciEnd, noiseAmp, forced;
  } cases[] = {{"nominal", 0.0, 0.8, 0.2},
               {"measured at the end", 0.5, 0.8, 0.5},
               {"measured, too low to believe", 0.1, 0.8, 0.2},
               {"no noise", 0.0, 0.001, 0.0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TraceSpec spec = MetreSpec();
    spec.SlopeDbPerKm(0.9);
    Sections s(spec);
    s.engine.aciEnd = c.aciEnd;
    s.engine.noiseAmp = c.noiseAmp;
    s.engine.spliceWidth = 1e6;  // ripples longer than the section
    const auto line = s.Fit(nullptr, 2000, 3000, 3000);
    EXPECT_DOUBLE_EQ(line->lossKmFix, c.forced);
    EXPECT_NEAR(line->LossKm(), c.forced > 0.0 ? c.forced : 0.9, 1e-3);
    if (c.forced > 0.0) {
      EXPECT_LE(line->L[0], line->L[1]);
      EXPECT_NEAR(line->P[0], spec.LevelAt(s.Point(line->L[0])), 1e-3);  // a point of the trace
    }
  }
  // A slope like the fibre's is believed, however noisy the section.
  Sections s(MetreSpec());
  s.engine.noiseAmp = 5.0;
  s.engine.spliceWidth = 1e6;
  s.engine.aciNominal = 0.17;
  EXPECT_EQ(s.Fit(nullptr, 2000, 3000, 3000)->lossKmFix, 0.0);
}

TEST(Section, AppendingClassifiesTheOneInFront) {
  PreparedAnalysis a(MetreSpec());
  const struct {
    char before;
    double lossDb;
    char after;
  } cases[] = {{'_', 0.1, 'P'}, {'_', 0.0, 'N'}, {'_', -0.1, 'N'}, {'R', 0.1, 'R'}};
  for (const auto& c : cases) {
    TEventLine prev;
    prev.type = c.before;
    prev.spliceLoss = c.lossDb;
    auto* line = new TEventLine;
    EXPECT_EQ(a.engine.AddEventLin(line, &prev), line);
    EXPECT_EQ(prev.type, c.after);
  }
  EXPECT_EQ(a.engine.lines->GetSize(), 4);
}

// --- Which part of a stretch is fitted ---

TEST(Range, StepAtTheEndIsPinnedDown) {
  for (double lossDb : {0.5, 1.5, 4.0}) {
    TraceSpec spec = MetreSpec();
    spec.pulseNs = 300;
    spec.Step(8000, lossDb);
    Sections s(spec);
    ASSERT_GT(s.engine.winEvent, 20);
    // A search over a window told the place to within a few points.
    for (long told : {7995L, 8000L, 8006L}) {
      const auto line = s.Choose(nullptr, 1000, told, 'S');
      EXPECT_NEAR(s.Point(line->L[2]), 8000, 8) << lossDb << " " << told;
      EXPECT_NEAR(line->P[2], spec.LevelAt(8000), 0.05) << lossDb << " " << told;
    }
  }
}

TEST(Range, FootOfAReflectionIsFound) {
  TraceSpec spec = MetreSpec();
  spec.pulseNs = 300;
  Sections s(spec.Peak(8000, 4.0));
  for (long told : {7998L, 8003L, 8010L}) {
    const auto line = s.Choose(nullptr, 1000, told, 'E');
    EXPECT_NEAR(s.Point(line->L[2]), 7999, 1) << told;
    EXPECT_EQ(line->type, 'R') << told;
  }
}

// On any trace a section is in order and its levels are those of its stretch, wherever the last splice ended.
TEST(Range, SectionsAreInOrderOnAnyTrace) {
  support::Noise random(11);
  int forced = 0;
  for (int round = 0; round < 120; ++round) {
    TraceSpec spec = MetreSpec();
    spec.points = 4000;
    spec.noiseDb = random.Uniform(0.0, 0.4);
    spec.seed = static_cast<std::uint32_t>(round + 1);
    spec.startDb = -random.Uniform(5.0, 42.0);
    spec.pulseNs = static_cast<short>(random.Integer(20, 600));
    for (int k = 0; k < 3; ++k) spec.Step(random.Uniform(0, 4000), random.Uniform(-0.5, 2.0));
    for (int k = 0; k < 3; ++k) spec.Peak(random.Uniform(0, 4000), random.Uniform(0.1, 15.0));
    Sections s(spec);
    const long from = random.Integer(0, 3800), to = random.Integer(from, 4000);
    const char type = "SERP_"[random.Integer(0, 4)];
    auto front = s.Choose(nullptr, random.Integer(0, from), from, 'R');
    const auto line =
        s.Choose(round % 2 == 0 ? front.get() : nullptr, from, to, type, random.Integer(-1, 4000));
    long highest = from;
    const double topDb = s.engine.GetMax(std::max(from - 1, 0L), to - from + 2, highest);
    for (double km : line->L) EXPECT_TRUE(std::isfinite(km));
    for (double db : line->P) EXPECT_TRUE(std::isfinite(db));
    EXPECT_LE(line->P[1], topDb + 1.0) << round;
    EXPECT_LE(line->L[0], line->L[1] + 1e-4) << round;
    EXPECT_GE(line->L[2], 0.0) << round;
    EXPECT_NE(std::string("RVNPS").find(line->type), std::string::npos) << round;
    forced += line->lossKmFix > 0.0;
  }
  EXPECT_GT(forced, 10);  // the rounds did meet noisy sections
  EXPECT_LT(forced, 110);
}

}  // namespace
