// SPDX-License-Identifier: Apache-2.0

// Single edges of a trace whose nature is known: reflections of known height, gains, spikes and slow rises,
// with and without noise; the falls and dead zones behind them; and the means on which all of it rests.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "ref/refAuto.h"
#include "tests/src/receivedLight.h"

namespace {

using support::kPoints;
using support::Noise;
using support::ReceivedLight;
using support::ScannedLight;

constexpr long kAt = 2000;  // where the edges stand

// --- Means ---

// The samples that the window of each point holds, listed one by one. The last `w` points leave the newest
// out.
std::vector<float> MeansOneByOne(const float* lin, long n, long w) {
  std::vector<float> means;
  w = std::min(w, n);
  for (long i = 0; i < n; ++i) {
    long first = std::max(i - w + 1, 0L), last = i;
    if (i >= n - w) {
      last = std::max(n - w, w) - 1;
      first = last - (n - i) + 1;
    }
    double sum = 0.0;
    for (long k = first; k <= last; ++k) sum += lin[k];
    means.push_back(static_cast<float>(sum / static_cast<double>(last - first + 1)));
  }
  return means;
}

TEST(RunningMean, EntriesAreTheMeansOfWhatTheirWindowsHold) {
  ScannedLight light(ReceivedLight(-30.0).Slope(0.002).Reflection(50, 6.0).Noisy(0.3, 7));
  for (long n : {0L, 1L, 5L, 16L, 17L, 31L, 32L, 33L, 200L}) {
    light.filter.SetLinfAvg(n, 16);
    const std::vector<float> expected = MeansOneByOne(light.filter.Linf, n, 16);
    ASSERT_EQ(light.filter.LinfAvg.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      EXPECT_NEAR(light.filter.LinfAvg[i], expected[i], 1e-5F * expected[i]) << n << " points, entry " << i;
    }
  }
}

// An error that the sum brings with it shows which way was taken: dropping samples keeps it, summing anew
// does not.
TEST(RunningMean, NarrowsTheSumTheShorterWay) {
  ScannedLight light(ReceivedLight(-30.0).Noisy(0.3, 3));
  const struct {
    long width, newest;
    bool drops;
  } kCases[] = {{10, 7, true}, {10, 6, true}, {10, 5, false}, {10, 2, false}, {10, 10, true}, {16, 1, false}};
  for (const auto& c : kCases) {
    const long i = 100;
    float sum = 0.0F, wanted = 0.0F;
    for (long k = i - c.width; k < i; ++k) sum += light.filter.Linf[k];
    for (long k = i - c.newest; k < i; ++k) wanted += light.filter.Linf[k];
    const float error = 4096.0F;
    sum += error;
    EXPECT_EQ(light.filter.ReCalcSum(i, c.width, c.newest, sum), c.newest);
    EXPECT_NEAR(sum - (c.drops ? error : 0.0F), wanted, 1e-4F * wanted) << c.width << " to " << c.newest;
  }
}

// --- Rises ---

struct Verdict {
  long grade, pos, fallAt, width;
};

Verdict Judge(ScannedLight& light, TFEvent* before, long at = kAt - 1) {
  Verdict v{0, at, 0, 0};
  v.grade = light.filter.RflAnalisys(before, v.pos, light.last, light.recover, light.w2, light.limit,
                                     v.fallAt, v.width);
  return v;
}

TFEvent EventUpTo(long end) {
  TFEvent event;
  event.begin = static_cast<int>(end - 100);
  event.rise = event.begin + 20;
  event.peak = event.begin + 10;
  event.end = static_cast<int>(end);
  event.gradeUp = 6;
  event.width = 20;
  event.type = 'r';
  return event;
}

// Highest sample over a stretch, above the one in front of it.
double Height(const ScannedLight& light, long points) {
  double top = 0.0;
  for (long i = kAt; i < kAt + points; ++i) top = std::max(top, light.Lin(i));
  return top - light.Lin(kAt - 1);
}

double Grade(double height, double limit) { return std::floor(std::log2(height / limit + 1.0)); }

// Down to the limit itself. A short pulse is not as high as its light.
TEST(Rise, GradesLowReflectionsAsWell) {
  for (long pulse : {4L, 20L, 100L}) {
    for (double limits : {0.9, 1.2, 2.0, 3.5, 6.0, 9.0}) {
      const ScannedLight plain(ReceivedLight(-52.0, pulse));
      const double heightDb = support::DbOf(1.0 + limits * plain.limit / plain.Lin(kAt));
      ScannedLight light(ReceivedLight(-52.0, pulse).Reflection(kAt, heightDb));
      const double height = Height(light, 2 * pulse);
      const Verdict v = Judge(light, nullptr);
      const auto story = testing::Message() << pulse << " points, " << limits << " limits high";
      EXPECT_EQ(v.grade, height > light.limit ? Grade(height, light.limit) : -1) << story;
      EXPECT_EQ(v.pos, kAt - 1) << story;
      EXPECT_LE(v.width, pulse) << story;
    }
  }
}

// A rise that the start of the trace cuts began before it, and its event ends so much later. Where it ends
// shows by a second reflection, which turns it away where it stands there.
TEST(Rise, MayBeginBeforeTheTrace) {
  constexpr long kPulse = 20;
  const ScannedLight plain{ReceivedLight(-52.0, kPulse)};
  const double heightDb = support::DbOf(1.0 + 6.0 * plain.limit / plain.Lin(kAt));
  const auto endOf = [&](long before) {
    for (long from = kPulse + 5; from < 4 * kPulse; ++from) {
      ReceivedLight light(-52.0, kPulse);
      light.Receiver(0.3).Reflection(1, heightDb).Reflection(from, heightDb, 4);
      ScannedLight scanned(light);
      if (Judge(scanned, nullptr, -before).grade < 0) return from;
    }
    return -1L;
  };
  EXPECT_EQ(endOf(0), 35);
  EXPECT_EQ(endOf(5), 40);
  EXPECT_EQ(endOf(10), 45);
}

// What rises without being a reflection; the last one would be, were there trace enough behind it.
TEST(Rise, TurnsAwayWhatIsNone) {
  const struct {
    const char* what;
    ReceivedLight light;
    long at;
  } kCases[] = {
      {"a gain", ReceivedLight(-40.0).Loss(kAt, -1.0), kAt - 1},
      {"less than the limit", ReceivedLight(-40.0).Reflection(kAt, 0.01), kAt - 1},
      {"one sample of a long pulse", ReceivedLight(-40.0, 40).Receiver(0.3).Reflection(kAt, 2.0, 1), kAt - 1},
      {"a slow rise", ReceivedLight(-30.0, 10).Receiver(40.0).Reflection(kAt, 8.0, 200), kAt - 1},
      {"the end of the trace", ReceivedLight(-40.0).Reflection(kPoints - 12, 5.0), kPoints - 13},
  };
  for (const auto& c : kCases) {
    ScannedLight light(c.light);
    const Verdict v = Judge(light, nullptr, c.at);
    EXPECT_EQ(v.grade, -1) << c.what;
    EXPECT_EQ(v.fallAt, 0) << c.what;
  }
}

// Every rise of pure noise that a scan would ask about.
TEST(Rise, TakesNoNoiseForAReflection) {
  long asked = 0, taken = 0;
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    ScannedLight light(ReceivedLight(-47.0).Noisy(0.4, seed));
    TFEvent before = EventUpTo(100);
    for (long i = 300; i < light.last - 100; ++i) {
      if (light.Lin(i) - light.filter.LinfAvg[static_cast<size_t>(i - 1)] < light.limit / 2) continue;
      ++asked;
      if (Judge(light, &before, i - 1).grade > 0) ++taken;
    }
  }
  EXPECT_GT(asked, 500);
  EXPECT_LE(taken, asked / 200);
}

TEST(Rise, MayTakeLongOnlyWhereTheReceiverIsSaturated) {
  const struct {
    double fibreDb;
    bool isReflection;
  } kCases[] = {{-30.0, false}, {-8.0, true}};
  for (const auto& c : kCases) {
    ScannedLight light(ReceivedLight(c.fibreDb, 10).Receiver(12.0).Reflection(kAt, 12.0, 40));
    EXPECT_EQ(Judge(light, nullptr).grade > 0, c.isReflection) << c.fibreDb;
  }
}

// Reflections beyond the top of the scale show one height. The wider the flat top, the higher they were.
TEST(Rise, AddsWhatAFlatTopHides) {
  TFEvent before = EventUpTo(kAt - 20);
  ScannedLight whole(ReceivedLight(-20.0, 20).Receiver(3.0).Slope(0.002).Reflection(kAt, 19.0));
  long last = Judge(whole, &before).grade;
  for (double heightDb : {27.0, 45.0, 80.0}) {
    ScannedLight cut(ReceivedLight(-20.0, 20).Receiver(3.0).Slope(0.002).Reflection(kAt, heightDb));
    const long grade = Judge(cut, &before).grade;
    EXPECT_GT(grade, last) << heightDb << " dB high";
    last = grade;
  }
}

// Close behind an event, a reflection is followed by another one: the place between them, where the first has
// fallen.
TEST(Rise, TellsWhereTheNextReflectionBegins) {
  TFEvent before = EventUpTo(kAt - 20);
  for (long gap : {26L, 30L, 36L}) {
    for (double nextDb : {4.0, 8.0}) {
      ReceivedLight light(-35.0, 20);
      light.Receiver(3.0).Slope(0.0001).Reflection(kAt, 8.0).Reflection(kAt + gap, nextDb);
      ScannedLight scanned(light);
      const Verdict v = Judge(scanned, &before);
      EXPECT_GT(v.grade, 0) << gap;
      EXPECT_NEAR(v.fallAt, kAt + gap - 1, 1) << nextDb << " dB high";
    }
  }
}

// --- Falls ---

TEST(Fall, GradesTheFallBehindAPeak) {
  for (double fibreDb : {-30.0, -44.0}) {
    for (double heightDb : {1.0, 3.0, 8.0}) {
      for (double receiver : {2.0, 10.0}) {
        for (long pulse : {2L, 20L}) {
          for (double noise : {0.0, 0.2}) {
            ScannedLight light(
                ReceivedLight(fibreDb, pulse).Receiver(receiver).Reflection(kAt, heightDb).Noisy(noise, 4));
            const long top = kAt - 1 + pulse;
            const long grade = light.filter.FallAnalisys(kAt, top, light.last, light.filter.pulseFallPoints,
                                                         3 * light.w1, light.limit);
            EXPECT_NEAR(grade, -Grade(light.Lin(top) - light.Lin(kAt - 10), light.limit), 1)
                << fibreDb << " dB, " << heightDb << " dB high, " << receiver << ' ' << pulse << " points";
          }
        }
      }
    }
  }
}

TEST(Fall, IsNoneWhereThereIsNone) {
  ScannedLight light(ReceivedLight(-35.0).Loss(kAt, -2.0).Noisy(0.2, 9));
  const long pulse = light.filter.pulseFallPoints;
  EXPECT_EQ(light.filter.FallAnalisys(kAt, kAt + 20, light.last, pulse, 3 * light.w1, light.limit), 0);
  EXPECT_EQ(light.filter.FallAnalisys(500, 510, light.last, pulse, 3 * light.w1, light.limit), 0);

  ScannedLight peak(ReceivedLight(-35.0).Reflection(kAt, 8.0));
  EXPECT_EQ(peak.filter.FallAnalisys(kAt, kAt + 19, kAt + 23, pulse, 3, peak.limit), 0)
      << "too short to tell";
  EXPECT_LT(peak.filter.FallAnalisys(kAt, kAt + 19, kAt + 60, pulse, 3, peak.limit), 0);
}

// A receiver that undershoots to less than no light leaves no ratio to measure a fall by, but a deep fall.
TEST(Fall, BelowZeroIsDeep) {
  ScannedLight light(ReceivedLight(-35.0).Reflection(kAt, 8.0));
  const double top = light.Lin(kAt + 19);
  for (long i = kAt + 20; i < kPoints; ++i) light.filter.Linf[i] = -5.0F * light.limit;
  const long grade = light.filter.FallAnalisys(kAt, kAt + 19, light.last, light.filter.pulseFallPoints,
                                               3 * light.w1, light.limit);
  EXPECT_NEAR(grade, -Grade(top, light.limit), 1);
}

// --- Dead zones ---

// A reflection on a fibre whose figures are all known: from its end on, the trace is back on the fibre, and
// at the point of half the height it is half way down.
TEST(DeadZone, EndsWhereTheTraceIsBackOnTheFibre) {
  constexpr double kSlopeDb = 0.0002;
  for (double fibreDb : {-30.0, -15.0}) {
    for (double heightDb : {0.5, 3.0, 8.0, 14.0}) {
      for (double receiver : {2.0, 10.0}) {
        for (long pulse : {2L, 20L, 100L}) {
          ReceivedLight made(fibreDb, pulse);
          made.Receiver(receiver).Slope(kSlopeDb).Reflection(kAt, heightDb).Noisy(0.2, 4);
          ScannedLight light(made);
          light.filter.dbOnDS = static_cast<float>(kSlopeDb);
          const auto db = [&](long point) { return light.sor->NumTofLevel(point); };
          TFEvent event;
          float topDb = 0.0F, deadFall = 0.0F;
          event.begin = kAt;
          event.rise = static_cast<int>(kAt + pulse);
          event.peak = static_cast<int>(RefAutoGetMax(light.sor.get(), kAt, kAt + pulse, topDb, 1));
          event.gradeUp = static_cast<int>(Grade(Height(light, 2 * pulse), light.limit));
          const long limit = kAt + pulse + light.w1 * event.Am() + light.w3;
          const long half = light.filter.SearchDZ(light.sor.get(), &event, limit, deadFall);

          const auto story = testing::Message()
                             << fibreDb << " dB, " << heightDb << " dB high, " << receiver << ' ' << pulse;
          const double fibreAtEnd = fibreDb - kSlopeDb * event.end;
          EXPECT_LT(db(event.end) - fibreAtEnd, 0.1) << story;
          EXPECT_LT(event.end, limit + 20 * pulse) << story;
          const double halfDb = (topDb + fibreDb - kSlopeDb * static_cast<double>(half)) / 2;
          EXPECT_LE(db(half), halfDb + 0.1) << story;
          EXPECT_GE(db(half - 1), halfDb - 0.5) << story;
        }
      }
    }
  }
}

// Behind an undershoot the receiver comes back to a top that it reaches twice: half the height counts from
// there, and not from the dent between.
TEST(DeadZone, HalfTheHeightCountsFromTheTopBehindAnUndershoot) {
  const struct {
    long point;
    double db;
  } kCorners[] = {{0, -30},    {1999, -30}, {2000, -10}, {2020, -10}, {2030, -50},     {2040, -30},
                  {2042, -34}, {2044, -30}, {2050, -34}, {2064, -40}, {kPoints, -40.4}};
  support::TraceSpec spec;
  spec.points = kPoints;
  spec.spacingOwt = support::kPointOwt;
  spec.pulseNs = 100;
  spec.floorDb = support::kFloorDb;
  spec.noiseFloorDb = -55.0;
  spec.level = [&](long i) {
    const auto* next = kCorners + 1;
    while (next->point < i) ++next;
    const auto* last = next - 1;
    return last->db + (next->db - last->db) * static_cast<double>(i - last->point) /
                          static_cast<double>(next->point - last->point);
  };
  const auto sor = support::BuildTrace(spec);
  sor->QRTParams->modes[0].BWU1 = 1000;  // half a dB a point
  TSorFilter filter(sor.get());
  filter.dbOnDS = 0.0001F;
  TFEvent event;
  event.begin = 1999;
  event.peak = 2010;
  event.rise = 2020;
  event.gradeUp = 12;
  float deadFall = 0.0F;
  EXPECT_EQ(filter.SearchDZ(sor.get(), &event, 2064, deadFall), 2052);
  EXPECT_EQ(event.end, 2063 + 7);  // the last point of the fall, and what a fall to so little light adds
}

// --- Whatever the arguments ---

// Figures of a broken record, on traces that are dark, spiky or absent: everything ends, and names points of
// the trace.
TEST(SingleEvents, StayInsideTheTraceWhateverTheyAreGiven) {
  Noise noise(11);
  const auto any = [&] {
    return noise.Integer(0, 3) == 0 ? noise.Integer(-kPoints, 3 * kPoints) : noise.Integer(0, 60);
  };
  for (int run = 0; run < 300; ++run) {
    ScannedLight light(
        ReceivedLight(-40.0).Reflection(noise.Integer(0, kPoints - 1), noise.Uniform(0.0, 60.0)));
    for (int k = 0; k < 400; ++k)
      light.filter.Linf[noise.Integer(0, kPoints - 1)] = static_cast<float>(noise.Uniform(-1e5, 1e6));
    if (run % 5 == 0) light.filter.LinfAvg.clear();
    if (run % 7 == 0) light.filter.Linf = nullptr;
    if (run % 3 == 0) light.filter.pulseFallPoints = light.filter.pulsePoints = noise.Integer(1, 3 * kPoints);
    if (run % 11 == 0) light.filter.dbOnOwt = 0.0F;
    const float limit = run % 4 == 0 ? 0.0F : light.limit;
    TFEvent event = EventUpTo(noise.Integer(0, kPoints - 1));
    event.gradeUp = static_cast<int>(noise.Integer(0, 300));
    event.begin = static_cast<int>(std::max(event.begin, 0));
    long pos = any(), fallAt = -1, width = -1;
    const long grade =
        light.filter.RflAnalisys(run % 2 ? &event : nullptr, pos, any(), any(), any(), limit, fallAt, width);
    EXPECT_GE(grade, -1);
    EXPECT_TRUE(pos >= 0 && pos <= kPoints && fallAt >= 0 && fallAt <= kPoints && width >= 0 &&
                width <= 6 * kPoints);
    EXPECT_LE(light.filter.FallAnalisys(any(), any(), any(), any(), any(), limit), 0);
    float deadFall = 0.0F;
    const long half =
        light.filter.SearchDZ(light.sor.get(), &event, noise.Integer(event.rise, 2 * kPoints), deadFall);
    EXPECT_TRUE(half >= 0 && half < kPoints) << half;
    EXPECT_TRUE(event.end >= 0 && event.end < kPoints) << event.end;
  }
}

}  // namespace
