// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "src/filter/Filter.h"
#include "tests/src/analyser.h"

// The three detectors between two events of the filter: traces whose steps are known, a filter result filled
// by hand, and one event in front of the stretch.
namespace {

using support::Noise;
using support::TraceSpec;

constexpr long kFrontEnd = 260;  // of the event in front of every stretch

enum Detector { kBig, kWeak, kNoisy };

struct Find {
  TFEvent event;
  float lossDb = 0.0F;
};

struct Stretch : support::Analyser {
  std::vector<short> map;
  AutoFilterResultData filter;
  TFEvent front;
  long end;

  explicit Stretch(const TraceSpec& spec, short meanPoints = 1)
      : Analyser(spec),
        map(static_cast<std::size_t>(spec.points), meanPoints),
        end(spec.points - spec.points / 12) {
    analysis.lossDS = static_cast<float>(spec.slopeDbPerPoint);
    analysis.noiseAmp = 0.02;
    analysis.spliceWidth = static_cast<double>(analysis.winDead);
    filter.pointMap = map.data();
    filter.polarEnd = 0.02F;
    front.begin = 200;
    front.peak = 205;
    front.rise = 220;
    front.end = kFrontEnd;
    front.gradeUp = 4;
  }

  // Points of the shortest window, as the caller of the detectors works it out.
  long SidePoints() const { return static_cast<long>(2000.0 / analysis.owtDS / 4.0) + 2; }

  long Call(Detector detector, long from, Find& find) {
    const auto search = detector == kBig    ? &TAuto::SearchBigSplices
                        : detector == kWeak ? &TAuto::SearchWeakSplices
                                            : &TAuto::SearchNoiseSplices;
    return (analysis.*search)(from, end, SidePoints(), front, find.lossDb, find.event, &filter);
  }

  // All finds of the stretch, each searched behind the one before.
  std::vector<Find> Search(Detector detector) {
    std::vector<Find> finds;
    long from = front.end;
    for (int i = 0; i < 99; ++i) {
      Find find;
      if (Call(detector, from, find) == 0) break;
      EXPECT_GE(find.event.begin, from - 1);
      EXPECT_LT(find.event.end, end);
      finds.push_back(find);
      from = find.event.end;
    }
    return finds;
  }
};

// About 0.4 m a point; the pulse has 25 points and the receiver follows within three more.
TraceSpec Fibre(double noiseDb = 0.002) {
  TraceSpec spec;
  spec.points = 6000;
  spec.spacingOwt = 20.0;
  spec.startDb = -12.0;
  spec.noiseDb = noiseDb;
  spec.SlopeDbPerKm(0.2);
  return spec;
}

// About 2 m a point; a pulse of 10 microseconds, 500 points.
TraceSpec LongPulse() {
  TraceSpec spec = Fibre();
  spec.spacingOwt = 100.0;
  spec.pulseNs = 10000;
  return spec.SlopeDbPerKm(0.2);
}

// --- Steps ---

TEST(SpliceDetectors, AStepIsFoundAtItsPlaceWithItsLoss) {
  const struct {
    Detector detector;
    double lossDb, noiseDb;
    short meanPoints;
    long tolerance;
  } kCases[] = {
      {kBig, 0.1, 0.0, 1, 2},    {kBig, 0.15, 0.0, 1, 2},  {kBig, 0.3, 0.002, 1, 2},
      {kBig, 1.0, 0.01, 1, 3},   {kBig, 5.0, 0.01, 1, 3},  {kBig, 0.3, 0.002, 12, 4},
      {kBig, 0.5, 0.02, 64, 6},  {kBig, 4.0, 0.02, 64, 6}, {kWeak, 0.05, 0.0, 1, 4},
      {kWeak, 0.1, 0.003, 1, 4}, {kWeak, 1.0, 0.01, 1, 3}, {kWeak, 5.0, 0.01, 1, 3},
      {kWeak, 0.5, 0.02, 64, 6},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.detector << ": " << c.lossDb << " dB, noise " << c.noiseDb
                                    << ", mean " << c.meanPoints);
    Stretch bench(Fibre(c.noiseDb).Step(3000, c.lossDb), c.meanPoints);
    const std::vector<Find> finds = bench.Search(c.detector);
    ASSERT_EQ(finds.size(), 1u);
    const TFEvent& step = finds[0].event;
    EXPECT_NEAR(step.begin, 3000, c.tolerance);
    // Measured from end to end, where noise and the unfinished edge count.
    EXPECT_NEAR(finds[0].lossDb, c.lossDb, 0.2 * c.lossDb + 2 * c.noiseDb);
    EXPECT_EQ(step.type, 'S');
    EXPECT_EQ(step.tail, 0);
    EXPECT_GT(step.rise, step.begin);
    EXPECT_GE(step.end, step.rise);
    EXPECT_GE(step.end, 3020);
  }
}

TEST(SpliceDetectors, PlainFibreHoldsNothing) {
  const struct {
    double noiseDb, slopeFactor;
    short pulseNs, meanPoints;
  } kCases[] = {{0.0, 1.0, 100, 1},   {0.01, 1.0, 100, 1},  {0.01, 0.7, 100, 1},
                {0.01, 1.4, 100, 1},  {0.01, 1.0, 5, 1},    {0.01, 1.0, 1000, 1},
                {0.01, 1.3, 4000, 1}, {0.03, 1.0, 100, 64}, {0.03, 1.3, 100, 64}};
  for (const auto& c : kCases) {
    for (const Detector detector : {kBig, kWeak, kNoisy}) {
      for (std::uint32_t seed = 1; seed <= 5; ++seed) {
        TraceSpec spec = Fibre(c.noiseDb);
        const double nominal = spec.slopeDbPerPoint;
        spec.slopeDbPerPoint *= c.slopeFactor;
        spec.pulseNs = c.pulseNs;
        spec.seed = seed;
        Stretch bench(spec, c.meanPoints);
        bench.analysis.lossDS = static_cast<float>(nominal);
        EXPECT_TRUE(bench.Search(detector).empty())
            << detector << ": noise " << c.noiseDb << ", slope " << c.slopeFactor << ", pulse " << c.pulseNs
            << " ns, mean " << c.meanPoints << ", seed " << seed;
      }
    }
  }
}

TEST(SpliceDetectors, TwoStepsAreOneEventWithinAWindow) {
  const struct {
    Detector detector;
    double apart;
    std::vector<double> lossesDb;
  } kCases[] = {{kBig, 10, {0.6}},  {kBig, 30, {0.6}},  {kBig, 60, {0.3, 0.3}},
                {kWeak, 10, {0.6}}, {kWeak, 30, {0.6}}, {kWeak, 400, {0.3, 0.3}}};
  for (const auto& c : kCases) {
    Stretch bench(Fibre().Step(3000, 0.3).Step(3000 + c.apart, 0.3));
    const std::vector<Find> finds = bench.Search(c.detector);
    ASSERT_EQ(finds.size(), c.lossesDb.size()) << c.detector << " " << c.apart;
    for (std::size_t i = 0; i < finds.size(); ++i) {
      EXPECT_NEAR(finds[i].event.begin, 3000 + c.apart * static_cast<double>(i), 3);
      EXPECT_NEAR(finds[i].lossDb, c.lossesDb[i], 0.2 * c.lossesDb[i]);
    }
  }
}

TEST(SpliceDetectors, AGainIsAWeakEventWithANegativeLoss) {
  for (const Detector detector : {kBig, kWeak}) {
    for (const double gainDb : {0.06, 0.15, 0.5, 1.5}) {
      Stretch bench(Fibre().Step(3000, -gainDb));
      const std::vector<Find> finds = bench.Search(detector);
      ASSERT_EQ(finds.size(), 1u) << detector << " " << gainDb;
      EXPECT_NEAR(finds[0].event.begin, 3000, 13);
      EXPECT_NEAR(finds[0].lossDb, -gainDb, 0.02);
      EXPECT_EQ(finds[0].event.type, 'N');
      EXPECT_EQ(finds[0].event.gradeUp, 1);
    }
  }
}

// The grade of a step is negative for a strong one: how often it doubles the limit, in powers of light.
TEST(SpliceDetectors, TheGradeGrowsWithTheStep) {
  const struct {
    double lossDb;
    int am;
  } kCases[] = {{0.3, 0}, {2.5, 1}, {4.5, 2}, {8.0, 4}};
  for (const auto& c : kCases) {
    Stretch bench(Fibre(0.0).Step(3000, c.lossDb));
    const std::vector<Find> finds = bench.Search(kBig);
    ASSERT_EQ(finds.size(), 1u) << c.lossDb;
    EXPECT_EQ(finds[0].event.gradeUp, 0);
    EXPECT_LE(finds[0].event.gradeDown, 0);
    EXPECT_EQ(finds[0].event.Am(), c.am) << c.lossDb;
  }
}

// Where the filter has averaged many points the place comes from its samples, and the grade counts steps.
TEST(SpliceDetectors, SmearedStepsArePlacedByTheSamples) {
  TraceSpec raw = Fibre(0.0).Step(3000, 1.2);
  raw.receiverDbPerPoint = 0.1;  // the event window is 15 points longer than the edge
  TraceSpec smeared = raw;
  smeared.level = [raw](long i) {  // the mean of the 64 points before, as the filter makes it
    double sumDb = 0.0;
    for (long k = i - 63; k <= i; ++k) sumDb += raw.LevelAt(k);
    return sumDb / 64.0;
  };
  Stretch bench(smeared, 64);
  const auto samples = support::BuildTrace(raw);
  bench.analysis.linf = RefEmbGetLinf(samples.get());
  const std::vector<Find> finds = bench.Search(kBig);
  ASSERT_EQ(finds.size(), 1u);
  EXPECT_NEAR(finds[0].event.begin, 3000, 9);
  EXPECT_NEAR(finds[0].lossDb, 1.2, 0.05);
  EXPECT_EQ(finds[0].event.gradeUp, 1);
  EXPECT_NEAR(finds[0].event.gradeDown, 1.2 / bench.analysis.GetFault(-13.0, 64), 2.0);
}

// --- Reflections ---

TEST(SpliceDetectors, AReflectionTooSmallForTheFilterIsMarkedAsOne) {
  Stretch with(LongPulse().Peak(3000, 0.2).Step(3000, 0.5));
  Stretch without(LongPulse().Step(3000, 0.5));
  for (Stretch* bench : {&with, &without}) {
    bench->front.rise = 800;
    bench->front.end = 1000;
  }
  const std::vector<Find> reflection = with.Search(kBig), step = without.Search(kBig);
  ASSERT_EQ(reflection.size(), 1u);
  EXPECT_EQ(reflection[0].event.type, 'r');
  EXPECT_NEAR(reflection[0].event.begin, 3000, 10);
  EXPECT_NEAR(reflection[0].event.rise, 3500, 10);
  EXPECT_EQ(reflection[0].event.gradeUp, 1);
  ASSERT_EQ(step.size(), 1u);
  EXPECT_EQ(step[0].event.type, 'S');
  EXPECT_NEAR(step[0].event.begin, 3000, 30);
}

// --- Ripple and noise ---

// Weak splices have to exceed what the ripples have shown.
TEST(SpliceDetectors, RipplesRaiseTheLimitForWeakSteps) {
  for (const int ripples : {1, 5, 6, 20}) {
    Stretch bench(Fibre(0.0).Step(3000, 0.19));
    bench.analysis.noiseAmp = 0.1;
    bench.analysis.peakCount = ripples;
    bench.analysis.peakWidthSum = 25 * ripples;
    bench.analysis.peakFallSum = -0.4F * static_cast<float>(ripples);
    EXPECT_EQ(bench.Search(kWeak).size(), ripples < 6 ? 1u : 0u) << ripples;
  }
}

TEST(SpliceDetectors, AQuietStretchIsSearchedAgainWithItsOwnNoise) {
  Stretch quiet(Fibre(0.003).Step(3000, 0.13));
  quiet.analysis.noiseAmp = 0.1;
  EXPECT_EQ(quiet.Search(kBig).size(), 1u);
  EXPECT_LT(quiet.analysis.noiseAmp, 0.095);
  EXPECT_GT(quiet.analysis.noiseAmp, 0.003);

  Stretch rippled(Fibre(0.003).Step(3000, 0.13));
  rippled.analysis.noiseAmp = 0.1;
  rippled.analysis.peakCount = 1;
  EXPECT_TRUE(rippled.Search(kBig).empty());
  EXPECT_EQ(rippled.analysis.noiseAmp, 0.1);
}

// The scan of large steps ends 3 dB below the noise floor, that of weak ones 5 dB.
TEST(SpliceDetectors, StepsInTheNoiseAreLeftToTheNoiseDetector) {
  const struct {
    double levelDb;
    bool big, weak;
  } kCases[] = {{-30.0, true, true}, {-41.0, false, true}, {-44.0, false, false}};
  for (const auto& c : kCases) {
    TraceSpec spec = Fibre(0.0).Step(3000, 3.5);
    spec.startDb = c.levelDb + 3000 * spec.slopeDbPerPoint;
    Stretch bench(spec);
    EXPECT_EQ(!bench.Search(kBig).empty(), c.big) << c.levelDb;
    EXPECT_EQ(!bench.Search(kWeak).empty(), c.weak) << c.levelDb;
  }
}

// --- The event in front ---

// A fall inside its tail belongs to it, and a weak event in front also rises with it. The same fall behind
// straight fibre is a splice, however near.
TEST(SpliceDetectors, AStepInTheTailMovesTheEndOfTheEventInFront) {
  for (const double tailDb : {0.5, 0.0}) {
    TraceSpec spec = Fibre();
    const TraceSpec step = Fibre().Step(tailDb > 0 ? 310 : 280, 0.5);
    spec.level = [=](long i) { return step.LevelAt(i) + tailDb * std::exp(std::min(0.0, (260.0 - i) / 30)); };
    for (const int grade : {4, 12}) {
      SCOPED_TRACE(testing::Message() << "tail " << tailDb << ", grade " << grade);
      Stretch bench(spec);
      bench.front.gradeUp = grade;
      const std::vector<Find> finds = bench.Search(kBig);
      ASSERT_EQ(finds.size(), tailDb > 0 ? 0u : 1u);
      if (tailDb > 0) {
        EXPECT_NEAR(bench.front.end, 340, 12);
      } else {
        EXPECT_NEAR(finds[0].event.begin, 280, 3);
      }
      EXPECT_EQ(bench.front.rise > 220, tailDb > 0 && grade < 10);
    }
  }
}

// Between the connectors of a tall and lossy event run echoes, as far behind it as they stand apart.
TEST(SpliceDetectors, NothingIsSearchedInAGhost) {
  for (const double fallDb : {0.0, 9.0}) {
    TraceSpec spec = Fibre(0.0).Step(380, 0.4).Step(3000, 0.4);
    const double cordPoints = SorMathLenToOwt(0.018, 1.468) / spec.spacingOwt;
    ASSERT_NEAR(cordPoints, 44.0, 1.0);
    const TraceSpec plain = spec;
    spec.level = [=](long i) { return plain.LevelAt(i) + (i < 330 ? fallDb : 0.0); };
    Stretch bench(spec);
    bench.front.begin = 300;
    bench.front.peak = 310;
    bench.front.rise = 330;
    bench.front.end = 335;
    bench.front.gradeUp = 8;
    const std::vector<Find> finds = bench.Search(kBig);
    ASSERT_EQ(finds.size(), fallDb > 0.0 ? 1u : 2u) << fallDb;
    EXPECT_NEAR(finds.back().event.begin, 3000, 3);
  }
}

TEST(SpliceDetectors, AShortStretchGivesNothingAtOnce) {
  for (const Detector detector : {kBig, kWeak, kNoisy}) {
    for (const long length : {-300L, 0L, 1L, 40L}) {
      Stretch bench(Fibre().Step(280, 3.0));
      bench.end = kFrontEnd + length;
      Find find;
      EXPECT_EQ(bench.Call(detector, kFrontEnd, find), 0);
      EXPECT_EQ(bench.front.end, kFrontEnd);
      EXPECT_EQ(find.lossDb, 0.0F);
    }
  }
}

// --- Steps in the noise ---

// At the noise floor, smoothed over 64 points.
TraceSpec NearNoise(double noiseDb) {
  TraceSpec spec = Fibre(noiseDb);
  spec.points = 20000;
  spec.startDb = -36.5;
  return spec;
}

TEST(NoiseSplices, AStepIsFoundByItsMeans) {
  const struct {
    double lossDb, noiseDb;
    long point;
    char type;
  } kCases[] = {{0.3, 0.01, 9000, 's'},
                {0.5, 0.05, 9000, 's'},
                {1.0, 0.1, 12000, 's'},
                {2.0, 0.1, 5000, 's'},
                {-1.0, 0.0, 9000, 'n'}};
  for (const auto& c : kCases) {
    Stretch bench(NearNoise(c.noiseDb).Step(static_cast<double>(c.point), c.lossDb), 64);
    const std::vector<Find> finds = bench.Search(kNoisy);
    ASSERT_EQ(finds.size(), 1u) << c.lossDb;
    const TFEvent& step = finds[0].event;
    EXPECT_LE(step.begin, c.point + 25) << c.lossDb;
    EXPECT_GE(step.end, c.point) << c.lossDb;
    EXPECT_EQ(step.end - step.begin, 64);
    EXPECT_EQ(step.end, step.rise);
    EXPECT_NEAR(finds[0].lossDb, c.lossDb, 0.05);
    EXPECT_EQ(step.type, c.type);
    EXPECT_EQ(step.gradeUp, 1);
    EXPECT_EQ(step.gradeDown > 0, c.lossDb > 0.0);
  }
}

// A step that waits when the stretch is over is held against all the fibre behind it, not the first window
// alone: what comes back there is no loss.
TEST(NoiseSplices, TheLastStepIsHeldAgainstTheEndOfTheStretch) {
  constexpr double kLossDb = 0.6;
  const struct {
    long at;  // the level comes back 100 points behind, over 40
    double lossDb;
  } kCases[] = {{120, 0.361}, {140, 0.440}, {160, 0.510}, {180, 0.570}};
  for (const auto& c : kCases) {
    TraceSpec spec = NearNoise(0.0);
    const double slope = spec.slopeDbPerPoint, start = spec.startDb - 1.0;
    const long stepAt = kFrontEnd + c.at;
    spec.level = [=](long i) {
      const double back = std::clamp(static_cast<double>(i - stepAt - 100) / 40.0, 0.0, 1.0);
      return start - slope * static_cast<double>(i) - (i >= stepAt ? kLossDb * (1.0 - back) : 0.0);
    };
    Stretch bench(spec, 64);
    bench.end = kFrontEnd + 300;
    const std::vector<Find> finds = bench.Search(kNoisy);
    ASSERT_EQ(finds.size(), 1u) << c.at;
    EXPECT_NEAR(finds[0].lossDb, c.lossDb, 0.002) << c.at;
    EXPECT_EQ(finds[0].event.type, 's');
  }
}

// Far above the noise the other detectors search, far below it nobody can.
TEST(NoiseSplices, OnlyTheStretchAroundTheNoiseIsSearched) {
  const struct {
    double levelDb;
    bool found;
  } kCases[] = {{-35.0, false}, {-38.0, true}, {-42.0, true}, {-47.0, false}};
  for (const auto& c : kCases) {
    TraceSpec spec = NearNoise(0.02).Step(9000, 0.8);
    spec.startDb = c.levelDb + 9000 * spec.slopeDbPerPoint;
    Stretch bench(spec, 64);
    EXPECT_EQ(!bench.Search(kNoisy).empty(), c.found) << c.levelDb;
  }
}

// --- Any trace ---

TEST(SpliceDetectors, WithoutAMapEveryPointStandsForItself) {
  for (const Detector detector : {kBig, kWeak, kNoisy}) {
    const TraceSpec spec = detector == kNoisy ? NearNoise(0.01).Step(9000, 0.8) : Fibre().Step(3000, 0.4);
    Stretch with(spec), without(spec);
    without.filter.pointMap = nullptr;
    const std::vector<Find> a = with.Search(detector), b = without.Search(detector);
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(b.size(), 1u);
    EXPECT_EQ(a[0].event.begin, b[0].event.begin);
    EXPECT_EQ(a[0].lossDb, b[0].lossDb);
  }
}

// Whatever the trace, the windows and the event in front are: every search ends, and every find lies on the
// trace.
TEST(SpliceDetectors, AnyStretchEndsInAFindOnTheTraceOrNone) {
  int finds = 0;
  for (std::uint32_t seed = 1; seed <= 600; ++seed) {
    Noise random(seed);
    TraceSpec spec = Fibre(random.Uniform(0.0, 0.2));
    spec.points = random.Integer(0, 9) == 0 ? random.Integer(1, 40) : random.Integer(300, 3000);
    spec.pulseNs = static_cast<short>(random.Integer(5, 2000));
    spec.startDb = random.Uniform(-42.0, -5.0);
    spec.linearTrace = random.Integer(0, 5) != 0;
    spec.seed = seed;
    for (long i = random.Integer(0, 5); i > 0; --i) {
      spec.Step(random.Uniform(0, 3000), random.Uniform(-1.0, 3.0))
          .Peak(random.Uniform(0, 3000), random.Uniform(0, 3.0));
    }
    Stretch bench(spec);
    for (short& mean : bench.map)
      mean =
          static_cast<short>(random.Integer(0, 100) == 0 ? 100 : (&mean == &bench.map[0] ? 1 : *(&mean - 1)));
    TAuto& a = bench.analysis;
    if (random.Integer(0, 9) == 0) a.lossDS = 0.0F;
    if (random.Integer(0, 9) == 0) a.dbOnOwt = 0.0;
    if (random.Integer(0, 9) == 0) a.winDead = random.Integer(-5, 3000000000L);
    a.noiseAmp = random.Uniform(0.0, 0.1);
    bench.filter.ringCount = random.Integer(-20, 20);
    bench.front.begin = static_cast<int>(random.Integer(-10, spec.points / 4));
    bench.front.end = bench.front.begin + static_cast<int>(random.Integer(-5, 200));
    bench.front.tail = random.Integer(0, 3) == 0 ? bench.front.end + 60 : 0;
    bench.front.gradeUp = static_cast<int>(random.Integer(0, 20));
    bench.end = random.Integer(spec.points / 2, spec.points + 5);
    for (const Detector detector : {kBig, kWeak, kNoisy}) {
      long from = bench.front.end;
      Find find;
      for (int i = 0; i < 20 && bench.Call(detector, from, find) != 0; ++i) {
        ++finds;
        const TFEvent& e = find.event;
        for (const int point : {e.begin, e.rise, e.peak, e.end}) {
          EXPECT_GE(point, 0) << "seed " << seed;
          EXPECT_LT(point, spec.points) << "seed " << seed;
        }
        EXPECT_TRUE(std::isfinite(find.lossDb)) << "seed " << seed;
        from = e.end;
      }
    }
  }
  EXPECT_GT(finds, 100);
}

}  // namespace
