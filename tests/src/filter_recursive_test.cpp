// SPDX-License-Identifier: Apache-2.0

// Recursive filters: how they answer to a step, what they leave alone, what they do to noise. And the zero of
// the receiver.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "ref/math/ref_Math.h"
#include "src/filter/Filter.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::Levels;
using support::Noise;
using support::TraceSpec;

constexpr double kScaleRoundingDb = 0.002;  // rounding of the level scale on the way to linear power and back

double Power(double db) { return std::pow(10.0, db / 5.0); }
double Level(double power) { return 5.0 * std::log10(power); }

// Root mean square of the differences between neighbours in a stretch, dB.
double RoughnessDb(const TSorData& sor, long a, long b) {
  double sum = 0.0;
  for (long i = a; i < b; ++i) {
    const double d = static_cast<double>(sor.NumTofLevel(i + 1)) - sor.NumTofLevel(i);
    sum += d * d;
  }
  return std::sqrt(sum / static_cast<double>(b - a));
}

// A step of 5 dB in the middle, on a time base of a metre a point.
TraceSpec StepSpec(double lowDb, double highDb) {
  TraceSpec spec;
  spec.points = 400;
  spec.spacingOwt = 50.0;
  spec.level = [=](long i) { return i < 200 ? lowDb : highDb; };
  return spec;
}

// Share of its state that the low pass of that trace keeps at each point.
double Kept(const TSorData& sor, double filterLevel) {
  const double root = std::sqrt((sor.FxdParams->GetNsPulse(0) + 0.1) / 20000.0);
  return std::exp(-sor.FxdParams->LenDS() / (root * 0.067 * filterLevel));
}

TEST(FastFilter, AnswersToAStepWithTheExponentialOfItsLength) {
  for (const double filterLevel : {1.0, 3.0}) {
    for (const double highDb : {-15.0, -25.0}) {
      const auto sor = BuildTrace(StepSpec(-20.0, highDb));
      sor->QRTParams->SetFilterLevel(filterLevel, 0);
      TSorFilter(sor.get()).FastFilter(sor.get());
      const double kept = Kept(*sor, filterLevel);
      ASSERT_GT(kept, 0.05);
      SCOPED_TRACE(::testing::Message() << filterLevel << ", " << highDb);
      EXPECT_NEAR(sor->NumTofLevel(199), -20.0, kScaleRoundingDb);
      for (long i = 200; i < 215; ++i) {
        const double share = std::pow(kept, i - 199.0);
        const double powerThere = Power(highDb) + (Power(-20.0) - Power(highDb)) * share;
        const double expectedDb = Level(powerThere);
        if (std::fabs(expectedDb - highDb) < 0.1) break;  // goes on in levels from here
        EXPECT_NEAR(sor->NumTofLevel(i), expectedDb, kScaleRoundingDb) << i;
      }
      EXPECT_NEAR(sor->NumTofLevel(399), highDb, kScaleRoundingDb);
    }
  }
}

TEST(FastFilter, TooShortForTheFibreItStillSmoothsTheNoise) {
  TraceSpec spec;
  spec.points = 4000;
  spec.spacingOwt = 500.0;
  spec.level = [](long i) { return i < 2000 ? -30.0 : -64.0; };
  spec.noiseLin = std::pow(10.0, (60.0 - 42.0) / 5.0);
  const auto sor = BuildTrace(spec);
  const auto raw = Levels(*sor);
  sor->QRTParams->SetFilterLevel(0.2, 0);
  ASSERT_LT(Kept(*sor, 0.2), 0.05);
  TSorFilter(sor.get()).FastFilter(sor.get());
  const auto filtered = Levels(*sor);
  EXPECT_TRUE(std::equal(raw.begin(), raw.begin() + 2000, filtered.begin()));
  EXPECT_FALSE(std::equal(raw.begin() + 2000, raw.end(), filtered.begin() + 2000));
}

TEST(FastFilter, AnEmptyOrBrokenTimeBaseIsLeftAlone) {
  for (const long points : {0L, 1L, 50L}) {
    TraceSpec spec;
    spec.points = points;
    spec.noiseDb = 0.5;
    const auto sor = BuildTrace(spec);
    const auto raw = Levels(*sor);
    sor->FxdParams->DS[0] = 0;
    sor->QRTParams->FLevel = 0;
    TSorFilter filter(sor.get());
    filter.FastFilter(sor.get());
    filter.TempFilter(sor.get(), sor.get(), 0.5);
    filter.DynaF(sor.get());
    filter.PONFilter(sor.get(), 0.5F, 0.1F);
    EXPECT_EQ(Levels(*sor).size(), raw.size());
    for (const float levelDb : Levels(*sor)) EXPECT_TRUE(std::isfinite(levelDb));
  }
}

// --- Filters by height ---

// The upper half stands 20 dB above the noise, the lower half in it.
class HeightFilter : public ::testing::Test {
 protected:
  HeightFilter() {
    spec.points = 2000;
    spec.spacingOwt = 50.0;
    spec.level = [](long i) { return i < 1000 ? -10.0 : -30.0; };
    reference = Build();
    spec.noiseDb = 0.3;
    sor = Build();
    raw = Levels(*sor);
  }
  std::unique_ptr<TSorData> Build() const {
    auto built = BuildTrace(spec);
    built->QRTParams->SNL = 32400;  // dB / 1000: noise peaks at -30
    return built;
  }
  bool UpperHalfIsRaw() const {
    const auto filtered = Levels(*sor);
    return std::equal(raw.begin(), raw.begin() + 1000, filtered.begin());
  }

  TraceSpec spec;
  std::unique_ptr<TSorData> reference, sor;
  std::vector<float> raw;
};

TEST_F(HeightFilter, WhatTheReferenceShowsAboveTheNoisePasses) {
  TSorFilter(sor.get()).TempFilter(sor.get(), reference.get(), 0.05);
  const double rawDb = RoughnessDb(*Build(), 1100, 1900);
  EXPECT_TRUE(UpperHalfIsRaw());
  EXPECT_LT(RoughnessDb(*sor, 1100, 1900), 0.5 * rawDb);
  EXPECT_NEAR(RefMathPower(sor.get(), 1100L, 800L, 0), -30.0, 0.05);
}

TEST_F(HeightFilter, TheEmbeddedRecordIsTheReferenceIfItIsAsLong) {
  auto* embedded = new TEmbData1E;
  embedded->SetDescription(TEmbData1E::kRecord);
  embedded->SetData(*reference);
  TSorFilter filter(sor.get());
  filter.SetFilter(6);
  EXPECT_EQ(Levels(*sor), raw);  // there is none
  sor->EmbData->AddData(embedded);
  filter.SetFilter(6);
  EXPECT_TRUE(UpperHalfIsRaw());
  EXPECT_NE(Levels(*sor), raw);
  filter.SetFilter(0);
  embedded->GetRecord()->DataPts->SetPointsNum(1999);
  filter.SetFilter(6);
  EXPECT_EQ(Levels(*sor), raw);
}

TEST_F(HeightFilter, TheDynamicFilterSmoothsTheLinearTraceToo) {
  const double rawDb = RoughnessDb(*sor, 1100, 1900);
  TSorFilter(sor.get()).DynaF(sor.get());
  EXPECT_TRUE(UpperHalfIsRaw());
  EXPECT_LT(RoughnessDb(*sor, 1100, 1900), 0.5 * rawDb);
  const float* lin = RefEmbGetLinf(sor.get());
  for (long i = 1; i < 2000; ++i)
    ASSERT_NEAR(sor->QRTParams->LinToLog5(lin[i]), sor->NumTofLevel(i), kScaleRoundingDb);
}

TEST(DynamicFilter, AQuietTraceKeepsItsLevelFromTheFirstPoint) {
  const auto sor = BuildTrace(StepSpec(-40.0, -40.0));
  sor->QRTParams->SNL = 32400;
  sor->QRTParams->SetFilterLevel(9.0, 0);
  TSorFilter(sor.get()).DynaF(sor.get());
  for (long i = 0; i < 400; ++i) ASSERT_NEAR(sor->NumTofLevel(i), -40.0, kScaleRoundingDb) << i;
}

// --- Stretches ---

TEST(StretchFilter, MixesAShareOfTheLowPassIntoTheStretch) {
  const struct {
    float frac;
    long a, b;
  } kCases[] = {{1.0F, 0, 400}, {0.5F, 100, 300}, {0.0F, 100, 300}, {0.5F, -50, 9999}, {0.7F, 300, 100}};
  for (const auto& c : kCases) {
    const auto sor = BuildTrace(StepSpec(-25.0, -20.0));
    const float tau = 6.0F;
    TSorFilter(sor.get()).PONFilter(sor.get(), c.frac, tau, c.a, c.b);
    SCOPED_TRACE(::testing::Message() << c.frac << " of " << c.a << " to " << c.b);
    for (long i = 1; i < 400; ++i) {
      double expectedDb = i < 200 ? -25.0 : -20.0;
      if (i >= 200 && i > c.a && i < c.b) {
        const double lacking = c.frac * std::exp((199.0 - static_cast<double>(i)) / tau);
        expectedDb = Level(Power(-20.0) + (Power(-25.0) - Power(-20.0)) * lacking);
      }
      ASSERT_NEAR(sor->NumTofLevel(i), expectedDb, kScaleRoundingDb) << i;
    }
  }
}

TEST(StretchFilter, TheDipBehindASaturatedPeakIsFilled) {
  TraceSpec spec;
  spec.points = 1000;
  const double kFibreDb = -15.0;
  spec.level = [=](long i) {
    if (i < 100) return 0.0;
    if (i < 109) return -2.0 * static_cast<double>(i - 99);
    return kFibreDb - 3.0 * std::exp(-static_cast<double>(i - 109) / 40.0);
  };
  const auto sor = BuildTrace(spec);
  const auto raw = Levels(*sor);
  TSorFilter filter(sor.get());
  EXPECT_EQ(filter.DipFilter(sor.get(), 500, 900, 0.0F), 0);  // no peak
  EXPECT_EQ(Levels(*sor), raw);
  const long recovered = filter.DipFilter(sor.get(), 99, 600, 0.0F);
  EXPECT_GT(recovered, 150);
  EXPECT_LT(recovered, 600);
  EXPECT_LT(std::fabs(sor->NumTofLevel(130) - kFibreDb), 0.6 * std::fabs(raw[130] - kFibreDb));
  EXPECT_EQ(sor->NumTofLevel(700), raw[700]);
}

// --- Zero of the receiver ---

class ReceiverZero : public ::testing::Test {
 protected:
  ReceiverZero() {
    spec.points = 20000;
    spec.spacingOwt = 500.0;  // 10 m
    spec.startDb = -15.0;
    spec.SlopeDbPerKm(0.2).End(12000);
    spec.noiseLin = kNoiseLin;
  }
  double TailMeanLin(TSorData& sor) const {
    double sum = 0.0;
    const float* lin = RefEmbGetLinf(&sor);
    for (long i = 13000; i < spec.points; ++i) sum += lin[i];
    return sum / static_cast<double>(spec.points - 13000);
  }

  static constexpr double kNoiseLin = 200.0;
  TraceSpec spec;
};

TEST_F(ReceiverZero, AnOffsetBehindTheEndIsTakenOut) {
  for (const double offsetLin : {100.0, 1000.0, 20000.0, -300.0}) {
    spec.offsetLin = offsetLin;
    const auto sor = BuildTrace(spec);
    TSorFilter filter(sor.get());
    filter.BackupRestoreDataPointsBeforeFilterApply(7);
    filter.ZeroCorrect(sor.get());
    SCOPED_TRACE(offsetLin);
    EXPECT_NEAR(TailMeanLin(*sor), 0.0, 0.05 * kNoiseLin);
    EXPECT_NEAR(RefMathPower(sor.get(), 6000L, 100L, 1), spec.LevelAt(6050), 0.01);
    const float* lin = RefEmbGetLinf(sor.get());
    for (long i = 0; i < spec.points; i += 7) {
      ASSERT_EQ(sor->NumTofLevel(i), sor->DataPtsBackup->numTofLevel(i)) << i;
      ASSERT_NEAR(sor->NumTofLevel(i), sor->QRTParams->LinToLog5(lin[i]), 2 * kScaleRoundingDb) << i;
    }
  }
}

TEST_F(ReceiverZero, AFibreThatGoesOnIsNoOffset) {
  spec.End(-1.0);
  for (const double startDb : {-10.0, -25.0}) {
    spec.startDb = startDb;
    const auto sor = BuildTrace(spec);
    const auto raw = Levels(*sor);
    TSorFilter(sor.get()).ZeroCorrect(sor.get());
    EXPECT_EQ(Levels(*sor), raw) << startDb;
  }
  for (const long points : {0L, 1L, 3L, 99L, 401L}) {
    spec.points = points;
    const auto sor = BuildTrace(spec);
    const auto raw = Levels(*sor);
    TSorFilter(sor.get()).ZeroCorrect(sor.get());
    EXPECT_EQ(Levels(*sor), raw) << points;
  }
}

}  // namespace
