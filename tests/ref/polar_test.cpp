// SPDX-License-Identifier: Apache-2.0

// Ripple of a known swing, alone, with events, and too short or too large to be believed.

#include <gtest/gtest.h>

#include <cmath>

#include "ref/figures/refAutoPolar.h"
#include "tests/support/trace.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kPolarSlopeDb = 0.0005;  // per point
constexpr long kBase = 25;                // points: half a period of the ripple

// A fibre whose backscatter swings by `swingDb` from crest to trough.
support::TraceSpec Ripple(double swingDb) {
  support::TraceSpec spec;
  spec.points = 8000;
  spec.spacingOwt = 25.0;
  spec.noiseFloorDb = -45.0;
  spec.level = [swingDb](long i) {
    return -15.0 - kPolarSlopeDb * static_cast<double>(i) +
           swingDb / 2 * std::sin(kPi * static_cast<double>(i) / static_cast<double>(kBase));
  };
  return spec;
}

float Polar(const support::TraceSpec& spec, long a = 100, long b = 7900, long w = kBase) {
  const auto sor = support::BuildTrace(spec);
  long at = -1;
  const float figure = RefAutoCalcPolar(sor.get(), a, b, w, static_cast<float>(kPolarSlopeDb), at);
  EXPECT_TRUE(w < 1 || at >= a);
  return figure;
}

TEST(Polar, FigureIsTheSwing) {
  for (const double swingDb : {0.05, 0.1, 0.2, 0.28}) {
    const float figureDb = Polar(Ripple(swingDb));
    EXPECT_GE(figureDb, 0.95 * swingDb);
    EXPECT_LE(figureDb, 1.8 * swingDb);  // both edges of a crest are followed
  }
}

TEST(Polar, LimitFollowsLaserAndFibre) {
  const struct {
    double swingDb;
    unsigned short laserFreq;
    short fibre;
    bool believed;
  } kCases[] = {
      {0.2, 0, 0, true},  {0.8, 0, 0, false}, {0.8, 0, 651, false},
      {0.45, 1, 0, true}, {2.0, 1, 0, false}, {0.3, 0, 651, false},
  };
  for (const auto& c : kCases) {
    const auto sor = support::BuildTrace(Ripple(c.swingDb));
    sor->QRTParams->LaserFreq = c.laserFreq;
    sor->GenParams->FT = c.fibre;
    long at = 0;
    // A short stretch has too few cells to make a large figure believable.
    const float figureDb =
        RefAutoCalcPolar(sor.get(), 100, 1100, kBase, static_cast<float>(kPolarSlopeDb), at);
    EXPECT_EQ(figureDb > 0, c.believed) << c.swingDb << " dB, laser " << c.laserFreq << ", fibre " << c.fibre;
    EXPECT_LE(figureDb, (c.laserFreq != 0 ? 0.9f : 0.45f) / (c.fibre == 651 ? 2 : 1));
  }
}

TEST(Polar, StretchesTooShortToMeasure) {
  const support::TraceSpec spec = Ripple(0.1);
  EXPECT_EQ(Polar(spec, 100, 7900, 0), 0.0f);
  // Fewer than 16 points: what noise swings by. At 30 dB above the floor that is a millionth of 0.22 dB.
  const double aboveFloorDb = 30.0 - kPolarSlopeDb * 100;
  EXPECT_NEAR(Polar(spec, 100, 115, 1), 0.22 * std::pow(10.0, -aboveFloorDb / 5), 1e-8);
  EXPECT_EQ(Polar(spec, 100, 50, 1), Polar(spec, 100, 115, 1));
  EXPECT_EQ(Polar(spec, 100, 120), 0.1f);  // 50 m
}

// Three cells of a coherent laser's speckle: six swings prove little, and the figure is cut to 6 / 10.
TEST(Polar, FewSwingsCountLess) {
  support::TraceSpec spec = Ripple(0.0);
  spec.spacingOwt = 200.0;
  spec.level = [](long i) {
    return -15.0 - kPolarSlopeDb * static_cast<double>(i) +
           0.2 * std::sin(kPi * static_cast<double>(i) / 5.0);
  };
  const auto sor = support::BuildTrace(spec);
  sor->QRTParams->LaserFreq = 1;
  long at = 0;
  const float many = RefAutoCalcPolar(sor.get(), 100, 7900, 5, static_cast<float>(kPolarSlopeDb), at);
  EXPECT_GT(many, 0.35f);
  EXPECT_NEAR(RefAutoCalcPolar(sor.get(), 100, 160, 5, static_cast<float>(kPolarSlopeDb), at), 0.6f * many,
              0.05f);
}

TEST(Polar, StraightLineFigure) {
  // 0.02 dB above and below the line in turn: three times their mean.
  const auto jagged = support::BuildTrace(2000, [](long i) {
    return -15.0 - kPolarSlopeDb * static_cast<double>(i) + (i % 2 == 0 ? 0.02 : -0.02);
  });
  short map[1] = {0};
  // The stretch begins where the trace first keeps to its slope within twice of it: nowhere on this one.
  EXPECT_EQ(RefAutoCalcPolar2(jagged.get(), 0, 2000, 20, static_cast<float>(kPolarSlopeDb), map), 0.0f);
  EXPECT_NEAR(RefAutoCalcPolar2(jagged.get(), 0, 2000, 20, 0.1f, nullptr), 3 * 0.02, 1e-3);
  EXPECT_EQ(RefAutoCalcPolar2(jagged.get(), 0, 59, 20, 0.1f, nullptr), 0.0f);
}

// A crest of `heightDb` that rises from point 1000 on over `rise` points and falls over `fall`, behind which
// the trace lies `dropDb` lower.
struct Crest {
  double heightDb;
  long rise, fall;
  double dropDb = 0.0;
  double fibreDb = -15.0;
  bool linear = true;
};

TEST(ReflectionWidth, IsTakenAtHalfHeight) {
  const struct {
    Crest crest;
    long width;
    double heightDb;
  } kCases[] = {
      {{1.0, 15, 15}, 15, 0.5},
      {{4.0, 15, 15}, 15, 2.0},
      {{1.0, 12, 16}, 14, 0.5},
      {{1.0, 24, 12}, 18, 0.5},
      {{2.0, 10, 60}, -2, 0.0},                    // far longer than its rise: there is another one in it
      {{0.5, 10, 10, 10.0}, -1, 0.0},              // not a reflection, but the end
      {{0.5, 10, 10, 0.0, -44.0}, 0, 0.0},         // noise at 1 dB above the floor swings further
      {{1.0, 15, 15, 0.0, -15.0, false}, 0, 0.0},  // no linear trace
  };
  for (const auto& c : kCases) {
    const Crest& crest = c.crest;
    support::TraceSpec spec = Ripple(0.0);
    spec.points = 2000;
    spec.linearTrace = crest.linear;
    spec.noiseDb = 0.002;
    spec.level = [&crest](long i) {
      const double up = std::clamp(static_cast<double>(i - 1000) / static_cast<double>(crest.rise), 0.0, 1.0);
      const double down =
          std::clamp(static_cast<double>(i - 1000 - crest.rise) / static_cast<double>(crest.fall), 0.0, 1.0);
      return crest.fibreDb - kPolarSlopeDb * static_cast<double>(i) + crest.heightDb * up -
             (crest.heightDb + crest.dropDb) * down;
    };
    const auto sor = support::BuildTrace(spec);
    long begin = 998, top = -1;
    float heightDb = -1;
    const long width = RefAutoGetWidthPlr(sor.get(), begin, 1000 + crest.rise, 1500, 10,
                                          static_cast<float>(kPolarSlopeDb), 0.05f, top, heightDb);
    SCOPED_TRACE(::testing::Message()
                 << crest.heightDb << " dB, rise " << crest.rise << ", fall " << crest.fall);
    if (c.width <= 0) {
      EXPECT_EQ(width, c.width);
      continue;
    }
    EXPECT_NEAR(static_cast<double>(width), static_cast<double>(c.width), 2.0);
    EXPECT_NEAR(heightDb, c.heightDb, 0.15 * crest.heightDb);
    EXPECT_NEAR(static_cast<double>(top), 1000.0 + static_cast<double>(crest.rise), 2.0);
    EXPECT_NEAR(static_cast<double>(begin), 998.0, 6.0);
  }
}

// A crest of 1 dB at 1015, a gap, a crest of 1.3 dB at 1030 and the fibre again at 1045.
TEST(ReflectionWidth, SecondCrestBehindTheFirst) {
  const struct {
    long p, w, width, top;
  } kCases[] = {
      {1015, 10, -2, 1015},  // two reflections
      {1012, 10, 0, 1015},   // seen from before the first crest, that is not the top
      {1015, 25, 24, 1030},  // averaged over more than the gap they are one, with the higher crest as its top
  };
  support::TraceSpec spec = Ripple(0.0);
  spec.points = 2000;
  spec.noiseDb = 0.002;
  spec.level = [](long i) {
    const double x = static_cast<double>(i - 1000);
    const double riseDb = x < 0    ? 0
                          : x < 15 ? x / 15
                          : x < 22 ? 1 - 0.4 * (x - 15) / 7
                          : x < 30 ? 0.6 + 0.7 * (x - 22) / 8
                                   : std::max(1.3 * (45 - x) / 15, 0.0);
    return -15.0 - kPolarSlopeDb * static_cast<double>(i) + riseDb;
  };
  const auto sor = support::BuildTrace(spec);
  for (const auto& c : kCases) {
    long begin = 998, top = -1;
    float heightDb = -1;
    EXPECT_NEAR(
        static_cast<double>(RefAutoGetWidthPlr(sor.get(), begin, c.p, 1500, c.w,
                                               static_cast<float>(kPolarSlopeDb), 0.05f, top, heightDb)),
        static_cast<double>(c.width), c.width > 0 ? 2.0 : 0.0)
        << "from " << c.p << ", " << c.w;
    EXPECT_NEAR(static_cast<double>(top), static_cast<double>(c.top), 1.0);
  }
}

}  // namespace
