// SPDX-License-Identifier: Apache-2.0

// Detectors of steps on traces whose steps are known by how they are built.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/steps/refAutoSplice.h"
#include "tests/support/trace.h"

namespace {

constexpr double kSlopeDb = 0.001;  // per point

// A fibre from -15 dB on with one splice, as a pulse of `width` points sees it.
struct SpliceSpec {
  double lossDb;
  long at;
  long width = 20;
  double noiseDb = 0.0;
  std::uint32_t seed = 1;
};

support::TraceSpec WithSplice(const SpliceSpec& splice) {
  support::TraceSpec spec;
  spec.points = 3000;
  spec.spacingOwt = 25.0;
  spec.pulseNs = static_cast<short>(splice.width * 25 / 5);  // so many points one way
  spec.noiseDb = splice.noiseDb;
  spec.seed = splice.seed;
  spec.level = [splice](long i) {
    const double x = static_cast<double>(i - splice.at);
    const double width = static_cast<double>(splice.width);
    const double fromSplice =
        x < 0 ? x * kSlopeDb : RefMathSplicePower(splice.lossDb, kSlopeDb, kSlopeDb, width, x);
    return -15.0 - static_cast<double>(splice.at) * kSlopeDb - fromSplice;
  };
  return spec;
}

std::unique_ptr<TSorData> Trace(const support::TraceSpec& spec) {
  auto sor = support::BuildTrace(spec);
  sor->QRTParams->modes[0].BWU1 = 200;  // dB per km: the receiver's fall isn't measured anew
  sor->QRTParams->SNL = 30000;          // 30 dB: the noise peaks at -27.6 dB
  return sor;
}

TEST(SplicePin, LiesWhereTheStepBegins) {
  const struct {
    SpliceSpec splice;
    double tolerancePoints;
  } kCases[] = {
      {{1.00, 1030}, 1},     {{0.30, 1030}, 1},           {{0.05, 1030}, 1},
      {{0.30, 1005}, 3},     {{0.30, 1075}, 1},           {{0.30, 1040, 5}, 1},
      {{0.30, 1030, 60}, 2}, {{0.30, 1030, 20, 0.01}, 5}, {{1.00, 1060, 20, 0.02, 9}, 4},
      {{0.30, 1120}, 2},  // further out than the mean behind: the one after next shows it
  };
  for (const auto& c : kCases) {
    const auto sor = Trace(WithSplice(c.splice));
    const long pin =
        RefAutoSearchSplicePin(sor.get(), 1000, c.splice.width, 80, static_cast<float>(kSlopeDb));
    EXPECT_NEAR(static_cast<double>(pin), static_cast<double>(c.splice.at), c.tolerancePoints)
        << c.splice.lossDb << " dB at " << c.splice.at << ", pulse " << c.splice.width;
  }
}

// Without a step, at the end of the trace, or with widths that no trace has: a point at or behind the start,
// and soon.
TEST(SplicePin, AnswersWhereThereIsNoStep) {
  const auto sor = Trace(WithSplice({0.0, 1000}));
  for (const long start : {-50L, 0L, 1000L, 2990L, 5000L}) {
    for (const long w : {0L, 1L, 20L, 1000000000L}) {
      const long pin = RefAutoSearchSplicePin(sor.get(), start, w, 80, static_cast<float>(kSlopeDb));
      EXPECT_GE(pin, start) << "width " << w;
    }
  }
}

struct Found {
  long at;
  float valueDb;
};

Found EventPin(const support::TraceSpec& spec, long n = 100, long stop = 2900, float guardDb = -40.0f) {
  const auto sor = Trace(spec);
  Found found{0, 99};
  found.at = RefAutoSearchEventPin(sor.get(), 200, stop, n, 0.1f, 0.1f, guardDb, static_cast<float>(kSlopeDb),
                                   found.valueDb);
  return found;
}

TEST(EventPin, FindsLossesWithTheirSize) {
  const struct {
    SpliceSpec splice;
    long n;
    float guardDb;
    double tolerancePoints;
  } kCases[] = {
      {{0.50, 1500}, 100, -40.0f, 2},
      {{0.20, 1500}, 100, -40.0f, 2},
      {{2.00, 900, 40}, 60, -40.0f, 2},
      {{0.50, 1500}, 100, -10.0f, 2},  // means over linear power
      {{0.50, 1500, 20, 0.02}, 100, -40.0f, 8},
      {{0.50, 1500, 20, 0.02, 5}, 250, -40.0f, 8},
      {{1.00, 1500}, 3, -40.0f, 20},
  };
  for (const auto& c : kCases) {
    const Found found = EventPin(WithSplice(c.splice), c.n, 2900, c.guardDb);
    EXPECT_NEAR(static_cast<double>(found.at), static_cast<double>(c.splice.at), c.tolerancePoints)
        << c.splice.lossDb << " dB, means of " << c.n;
    EXPECT_GT(found.valueDb, 0.1f);
    EXPECT_LT(found.valueDb, c.splice.lossDb + 0.05);
  }
}

TEST(EventPin, FindsGainsAndPassesSpikes) {
  const auto bump = [](double heightDb, long width) {
    support::TraceSpec spec = WithSplice({0.0, 0});
    spec.level = [heightDb, width](long i) {
      return -15.0 - static_cast<double>(i) * kSlopeDb + (i >= 1500 && i < 1500 + width ? heightDb : 0.0);
    };
    return spec;
  };
  // A reflection of one pulse, and a gain that stays.
  for (const long width : {20L, 2000L}) {
    const Found found = EventPin(bump(1.0, width));
    EXPECT_NEAR(static_cast<double>(found.at), 1500.0, 1.0) << "width " << width;
    EXPECT_LT(found.valueDb, -0.1f);
  }
  EXPECT_EQ(EventPin(bump(0.15, 2)).at, 2900);  // two points of a pulse of twenty: a spike
  EXPECT_EQ(EventPin(bump(-0.5, 4)).at, 2900);  // a notch of four points: back before it counts as a loss
}

// A rise right before a loss, at 1500. As the loss fills the pulse, a real rise has to be as wide as the
// difference takes to fill.
TEST(EventPin, RisesBeforeALoss) {
  const std::vector<double> creepsDb = {0.09, 0.09, 0.09, 0.12, 0.12};
  std::vector<double> creepsOnDb(20, 0.15);
  std::copy_n(creepsDb.begin(), 5, creepsOnDb.begin());
  const struct {
    std::vector<double> risesDb;
    double lossDb;
    short receiverDbPerKm;  // 32000: recovers within a point
    bool isGain;
  } kCases[] = {
      {std::vector<double>(20, 1.0), 0.5, 200, true},  // a reflection
      {{0.15, 0.15}, 0.5, 200, false},                 // a spike
      {creepsDb, 3.0, 200, true},                      // a large loss leaves two points to a rise, which ...
      {creepsDb, 3.0, 32000, true},                    // ... nobody judges, however fast the receiver
      {creepsOnDb, 0.5, 200, true},
      {creepsOnDb, 0.5, 32000, false},  // wide enough, but a fast receiver would show an edge ...
      {std::vector<double>(20, 0.15), 0.5, 32000, true},  // ... as here
  };
  for (const auto& c : kCases) {
    support::TraceSpec spec = WithSplice({0.0, 0});
    const long end = 1500, first = end - static_cast<long>(c.risesDb.size());
    spec.level = [&](long i) {
      const double offDb = i < first ? 0.0 : i < end ? c.risesDb[static_cast<size_t>(i - first)] : -c.lossDb;
      return -15.0 - static_cast<double>(i) * kSlopeDb + offDb;
    };
    const auto sor = Trace(spec);
    sor->QRTParams->modes[0].BWU1 = c.receiverDbPerKm;
    float value = 0;
    const long at = RefAutoSearchEventPin(sor.get(), 200, 2900, 100, 0.1f, 0.1f, -40.0f,
                                          static_cast<float>(kSlopeDb), value);
    EXPECT_NEAR(static_cast<double>(at), 1500.0, 22.0) << c.lossDb << " dB, receiver " << c.receiverDbPerKm;
    EXPECT_EQ(value < 0, c.isGain) << c.lossDb << " dB, receiver " << c.receiverDbPerKm;
  }
}

TEST(EventPin, PassesWhatIsNoEvent) {
  EXPECT_EQ(EventPin(WithSplice({0.0, 0})).at, 2900);
  EXPECT_EQ(EventPin(WithSplice({0.05, 1500})).at, 2900);           // under the limit
  EXPECT_EQ(EventPin(WithSplice({0.0, 0, 20, 0.01, 3})).at, 2900);  // noise
  support::TraceSpec bend = WithSplice({0.0, 0});                   // a fibre that grows steeper by and by
  bend.level = [](long i) {
    return -15.0 - 1e-3 * static_cast<double>(i) - 1e-7 * std::pow(static_cast<double>(i), 2);
  };
  EXPECT_EQ(EventPin(bend).at, 2900);
  // No room for two means and a pulse.
  const Found tooShort = EventPin(WithSplice({1.0, 300}), 100, 200 + 222);
  EXPECT_EQ(tooShort.at, 422);
  EXPECT_EQ(tooShort.valueDb, 0.0f);
}

// A trace that leaves its line again and again, each time for a little less than it takes: the search goes
// back each time, and still ends soon.
TEST(EventPin, EndsOnATraceThatKeepsPretending) {
  support::TraceSpec spec = WithSplice({0.0, 0});
  spec.points = 60000;
  spec.level = [](long i) { return -15.0 - (i / 480 % 2) * 0.16; };
  const auto sor = Trace(spec);
  float value = 0;
  RefAutoSearchEventPin(sor.get(), 0, 59000, 1000, 0.15f, 0.15f, -40.0f, 0.0f, value);
  sor->FxdParams->DS[0] = 0;  // a spacing of nothing, a pulse of any number of points
  EXPECT_EQ(RefAutoSearchEventPin(sor.get(), 0, 59000, 1000, 0.15f, 0.15f, -40.0f, 0.0f, value), 59000);
}

TEST(EdgeLoss, IsTheStepBetweenTheEdges) {
  const struct {
    SpliceSpec splice;
    long low, high, nL, nR;
    double slopeDb;  // nominal: not always that of the fibre
    double expectedDb, toleranceDb;
  } kCases[] = {
      {{0.30, 1500}, 0, 3000, 100, 100, kSlopeDb, 0.30, 2e-3},
      {{0.30, 1500}, 1470, 1560, 100, 100, kSlopeDb, 0.30, 2e-3},  // confined to 30 and 40 points
      {{-0.20, 1500}, 0, 3000, 100, 60, kSlopeDb, -0.20, 2e-3},
      {{0.30, 1500, 20, 0.005}, 0, 3000, 200, 200, kSlopeDb, 0.30, 5e-3},
      {{0.04, 1500, 100}, 0, 3000, 100, 100, 0.4 * kSlopeDb, 0.04, 2e-3},
      {{0.04, 1500, 100}, 0, 3000, 100, 100, 0.6 * kSlopeDb, 0.04, 2e-3},  // sides steeper than nominal:
                                                                           // fitted
      {{0.02, 1500}, 0, 3000, 100, 100, 1.5 * kSlopeDb, 0.02, 2e-3},       // small on a long slope: fitted
      {{0.30, 1500}, 1450, 1570, 100, 100, 0.0, 0.30 + 0.07, 2e-3},  // no room to fit: the fibre counts as
                                                                     // loss
      {{0.30, 1500}, 0, 1400, 100, 100, kSlopeDb, 0.0, 0.0},  // no room behind: the edge is the limit ...
      {{0.30, 1500}, 0, 3000, 100, 0, kSlopeDb, 0.0, 0.0},    // ... and no side
  };
  for (const auto& c : kCases) {
    const auto sor = Trace(WithSplice(c.splice));
    const long a = c.high == 1400 ? 1399 : c.splice.at;
    EXPECT_NEAR(RefAutoGetSpl(sor.get(), a, c.low, c.splice.at + c.splice.width, c.high, c.nL, c.nR,
                              static_cast<float>(c.slopeDb)),
                c.expectedDb, c.toleranceDb)
        << c.splice.lossDb << " dB, " << c.low << " to " << c.high << ", slope " << c.slopeDb;
  }
}

// One sample that sticks out shifts its mean, and with it the loss from 0.089 to 0.139 dB. The lower edges of
// both sides, 0.089 dB apart, take half of that back.
TEST(EdgeLoss, SampleThatSticksOutCountsHalf) {
  support::TraceSpec spec = WithSplice({0.05, 1500});
  const auto clean = spec.level;
  spec.level = [clean](long i) { return clean(i) + (i == 1490 ? 1.0 : i == 1480 ? -0.02 : 0.0); };
  const auto sor = Trace(spec);
  EXPECT_NEAR(RefAutoGetSpl(sor.get(), 1500, 0, 1520, 3000, 20, 20, 1e-5f), (0.089 + 0.139) / 2, 2e-3);
}

struct WeakFind {
  long at = 0;
  float bestDb = 99;
  long after = -7, carry = 0;
};

// The search for weak splices between the points 200 and 2800, or what is left of them.
WeakFind WeakSplice(const support::TraceSpec& spec, double slopeDb = kSlopeDb, short width = 1,
                    const WeakFind& before = {}) {
  const auto sor = Trace(spec);
  std::vector<short> widths(static_cast<size_t>(spec.points), width);
  WeakFind find = before;
  auto slope = static_cast<float>(slopeDb);
  find.at = RefAutoSearchSpliceEvent(sor.get(), before.at == 0 ? 200 : before.at + 40, 2800, 2000.0f, 0.02f,
                                     -0.02f, slope, find.bestDb, widths.data(), find.after, find.carry);
  return find;
}

// Gains too, on fibre that is flatter or steeper than thought, near the ends of the stretch, and where a
// running mean has smeared the trace; and nothing else behind.
TEST(WeakSplices, AreFoundWhereTheyBegin) {
  const struct {
    SpliceSpec splice;
    double slopes;  // the slope given, in slopes of the fibre
    short mean;
    double tolerancePoints;
  } kCases[] = {{{0.03, 1500}, 1.0, 1, 1},
                {{-0.05, 1500}, 1.2, 1, 1},
                {{0.30, 1500, 20, 0.01}, 1.0, 1, 2},
                {{0.05, 1500, 60}, 0.85, 1, 2},
                {{0.10, 380}, 1.0, 1, 1},
                {{0.10, 2480}, 1.0, 1, 1},
                {{0.10, 1500}, 1.0, 40, 2},
                {{-0.20, 1500, 20, 0.005}, 1.0, 12, 4}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.splice.lossDb << " dB at " << c.splice.at << ", mean of " << c.mean);
    support::TraceSpec spec = WithSplice(c.splice);
    const auto sharp = spec.level;
    spec.level = [&](long i) {
      double sumDb = 0;
      for (long k = i - c.mean + 1; k <= i; ++k) sumDb += sharp(k);
      return sumDb / c.mean;
    };
    const WeakFind find = WeakSplice(spec, c.slopes * kSlopeDb, c.mean);
    EXPECT_NEAR(static_cast<double>(find.at), static_cast<double>(c.splice.at), c.tolerancePoints);
    EXPECT_EQ(find.bestDb > 0, c.splice.lossDb > 0);
    EXPECT_GE(find.after, 200);
    EXPECT_EQ(WeakSplice(spec, c.slopes * kSlopeDb, c.mean, find).at, 0);
  }
}

// A record that states noise up to -10 dB, over all of its fibre, where there is noise up to -40 dB. The rate
// of the receiver, where it is not on record, is measured on the launch, and with it the noise floor.
TEST(WeakSplices, AreSoughtOverTheNoiseFloorThatTheReceiverSettles) {
  support::TraceSpec spec = WithSplice({0.3, 1500});
  const auto fibre = spec.level;
  spec.points = 6000;
  spec.floorDb = -45.0;
  spec.noiseLin = 4.0;
  spec.noiseFloorDb = -10.0;
  spec.level = [fibre](long i) { return i < 20 ? -1.0 : i > 4000 ? -60.0 : fibre(i); };
  for (const short receiverDbPerKm : {200, 0}) {
    const auto sor = support::BuildTrace(spec);
    sor->QRTParams->modes[0].BWU1 = receiverDbPerKm;
    auto slope = static_cast<float>(kSlopeDb);
    WeakFind find;
    find.at = RefAutoSearchSpliceEvent(sor.get(), 200, 2800, 2000.0f, 0.02f, -0.02f, slope, find.bestDb,
                                       nullptr, find.after, find.carry);
    EXPECT_EQ(find.at, receiverDbPerKm == 0 ? 1500 : 0);
    EXPECT_NEAR(find.bestDb, receiverDbPerKm == 0 ? 0.3 : 0.0, 1e-3);
  }
}

TEST(EventDeadZone, IsTakenBelowThePeak) {
  // 4 dB a point up, 1 dB a point down: 1.5 dB below the peak lie 0.375 points before and 1.5 points behind.
  const auto triangle = support::BuildTrace(100, [](long i) {
    return -5.0 - (i < 50 ? 4.0 * static_cast<double>(50 - i) : static_cast<double>(i - 50));
  });
  EXPECT_NEAR(RefAutoCalcEDZ(triangle.get(), 50), 0.375 + 1.5, 1e-5);
  // A flat top of ten points with upright sides.
  const auto box = support::BuildTrace(100, [](long i) { return i >= 40 && i < 50 ? -5.0 : -8.0; });
  EXPECT_NEAR(RefAutoCalcEDZ(box.get(), 44), 10.0, 1e-5);
  // Never down by 1.5 dB: from just before the first point to the last.
  const auto flat = support::BuildTrace(100, [](long) { return -5.0; });
  EXPECT_NEAR(RefAutoCalcEDZ(flat.get(), 50), 99.0 + 1.5 / 60.5, 1e-5);
}

TEST(EndOfEvent, IsWhereTheFibreIsStraightAgain) {
  constexpr double kFlatDb = 5e-5;  // per point: 0.1 dB per km
  support::TraceSpec spec = WithSplice({0.0, 0});
  const auto owt = [&](const TSorData& sor, long point) { return static_cast<long>(sor.NumToOwt(point)); };
  const auto point = [](const TSorData& sor, long time) { return sor.OwtTofNum(static_cast<double>(time)); };

  // A reflection of 20 points with a tail down to the fibre at 1560.
  spec.level = [](long i) {
    const double fibre = -15.0 - kFlatDb * static_cast<double>(i);
    return fibre + (i < 1500 || i >= 1560 ? 0.0 : i < 1520 ? 8.0 : 8.0 - 0.2 * static_cast<double>(i - 1520));
  };
  auto sor = Trace(spec);
  EXPECT_NEAR(point(*sor, RefAutoSearchEndOfEvent(sor.get(), owt(*sor, 1495), 0)), 1560.0, 2.0);
  // No reflection: flat fibre behind the pulse.
  spec.level = [](long i) { return -15.0 - kFlatDb * static_cast<double>(i); };
  sor = Trace(spec);
  EXPECT_NEAR(point(*sor, RefAutoSearchEndOfEvent(sor.get(), owt(*sor, 1000), 0)), 1000 + 10 + 4, 2.0);
  // Limits.
  EXPECT_EQ(RefAutoSearchEndOfEvent(nullptr, 0, 0), 0);
  EXPECT_EQ(RefAutoSearchEndOfEvent(sor.get(), owt(*sor, 1000), owt(*sor, 1004)), owt(*sor, 1004));
  EXPECT_EQ(RefAutoSearchEndOfEvent(sor.get(), owt(*sor, 2998), 0), owt(*sor, 3000));
  EXPECT_EQ(RefAutoSearchEndOfEvent(sor.get(), 1L << 60, -(1L << 60)), owt(*sor, 3000));
  // A rise to the end of the trace settles nowhere.
  spec.level = [](long i) { return -60.0 + 0.015 * static_cast<double>(i); };
  EXPECT_EQ(RefAutoSearchEndOfEvent(Trace(spec).get(), owt(*sor, 1000), owt(*sor, 1800)), owt(*sor, 1800));
}

}  // namespace
