// SPDX-License-Identifier: Apache-2.0

// The noise behind the fibre, where it is measured, and what it costs in certainty.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "src/filter/Filter.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::Noise;
using support::TraceSpec;

float NoiseOf(std::vector<float> samples, long step, float limit) {
  TSorFilter filter(nullptr);
  float noise = -1.0F;
  EXPECT_EQ(
      filter.CalcLinfNoise(0, static_cast<long>(samples.size()) - 1, step, limit, samples.data(), noise), 1);
  return noise;
}

TEST(LinearNoise, IsThatOfWhiteNoiseAndNotOfASlope) {
  Noise noise(5);
  std::vector<float> white, steady, sloped, event;
  for (long i = 0; i < 20000; ++i) {
    white.push_back(static_cast<float>(noise.Gauss(30.0)));
    steady.push_back(static_cast<float>(i) * 0.5F);
    sloped.push_back(white.back() + steady.back());
    event.push_back(white.back() + (i < 5000 ? 0.0F : 10000.0F));
  }
  EXPECT_NEAR(NoiseOf(white, 1, -1.0F), 30.0, 1.0);
  EXPECT_NEAR(NoiseOf(white, 16, -1.0F), 30.0, 3.0);
  EXPECT_NEAR(NoiseOf(sloped, 1, 0.0F), 30.0, 1.5);
  EXPECT_EQ(NoiseOf(steady, 1, -1.0F), 0.0F);
  EXPECT_NEAR(NoiseOf(event, 1, 300.0F), 30.0, 1.0);
  EXPECT_EQ(NoiseOf(event, 1, 1e-6F), 0.0F);  // no difference so small
  EXPECT_EQ(NoiseOf({5.0F}, 1, -1.0F), 0.0F);
  // Both ends belong to the stretch: the last step alone swings.
  EXPECT_FLOAT_EQ(NoiseOf({0.0F, 0.0F, 4.0F, 0.0F}, 1, -1.0F), std::sqrt(16.0F / 3.0F));
}

TEST(LinearNoise, TheMeanIsQuieterByItsSixteenSamples) {
  TraceSpec spec;
  spec.points = 40000;
  spec.level = [](long) { return -64.0; };
  spec.noiseLin = 500.0;
  const auto sor = BuildTrace(spec);
  TSorFilter filter(sor.get());
  float fast = 0.0F, slow = 0.0F;
  EXPECT_EQ(filter.CalcLinfNoise(0, 39999, fast, slow), 0);  // no running mean
  filter.SetLinfAvg(spec.points, 16);
  ASSERT_EQ(filter.CalcLinfNoise(0, 39999, fast, slow), 1);
  EXPECT_NEAR(fast - 2.5, sor->QRTParams->LinToLog5(500.0), 0.1);
  EXPECT_NEAR(slow - 2.4, sor->QRTParams->LinToLog5(125.0), 0.2);
  // An event in the stretch does not count, and a stretch outside of the trace is that at its end.
  float* lin = filter.Linf;
  for (long i = 20000; i < 20010; ++i) lin[i] = 1e6F;
  filter.SetLinfAvg(spec.points, 16);
  float fastWithEvent = 0.0F;
  filter.CalcLinfNoise(-100, 900000, fastWithEvent, slow);
  EXPECT_LT(fastWithEvent, fast + 3.0);
  EXPECT_EQ(filter.CalcLinfNoise(500000, 900000, fast, slow), 1);
}

// Against the mean that is centred on each sample; the last ones have none such and are held against their
// own, but for the very last, which ends the stretch.
TEST(LinearNoise, CountsHowFarSamplesStrayFromTheMean) {
  TraceSpec spec;
  spec.points = 400;
  spec.level = [](long) { return -60.0; };
  spec.noiseLin = 500.0;
  const auto sor = BuildTrace(spec);
  TSorFilter filter(sor.get());
  filter.SetLinfAvg(spec.points, 16);
  for (long last : {115L, 116L, 130L, 300L}) {
    const long first = 100, lag = last - first < 16 ? 0 : 8;
    float all = 0.0F, single = 0.0F, fast = 0.0F, slow = 0.0F;
    filter.CalcLinfNoise(first, last, 1, -1.0F, filter.Linf, all);
    const double gate = 4.0F * all;
    double sum = 0.0, count = 0.0;
    for (long i = first; i < last; ++i) {
      const bool isCentred = i < last - lag;
      const double d = filter.Linf[i] - filter.LinfAvg[static_cast<size_t>(isCentred ? i + lag : i)];
      if (std::fabs(d) > gate) continue;
      sum += d * d;
      count += isCentred ? 1.0 : 0.0;
    }
    filter.CalcLinfNoise(first, last, 1, static_cast<float>(gate), filter.Linf, single);
    filter.CalcLinfNoise(first, last, fast, slow);
    EXPECT_NEAR(fast, sor->QRTParams->LinToLog5((single + std::sqrt(sum / count)) / 2) + 2.5, 1e-3) << last;
  }
}

// --- Where it is measured ---

class NoiseBehindEvents : public ::testing::Test {
 protected:
  static constexpr long kPoints = 4001;  // the last quarter starts at point 3000

  NoiseBehindEvents() {
    spec.points = kPoints;
    spec.pulseNs = 20;
    spec.spacingOwt = 50.0;
    // Noise grows along the trace, so that the level of a figure says where it was taken.
    spec.level = [](long i) { return i < 100 ? -1.0 : -64.0 + 0.004 * static_cast<double>(i); };
    spec.noiseLin = 20.0;
    spec.noiseFloorDb = -40.0;
    sor = BuildTrace(spec);
  }

  static TFEvent Event(int peak, int grade, int end) {
    TFEvent event;
    event.peak = peak;
    event.gradeUp = grade;
    event.end = end;
    return event;
  }

  TraceSpec spec;
  std::unique_ptr<TSorData> sor;
};

TEST_F(NoiseBehindEvents, EchoesDecideWhereNoiseIsMeasured) {
  const struct {
    const char* what;
    int peak, grade;  // of a reflection at -1 dB
    int lastEnd;      // of the last event
    long result;
    bool measured;
  } kCases[] = {
      {"no reflection, clean end", 50, 5, 2000, 1, false},
      {"no reflection, last event late", 50, 5, 3500, 3, true},
      {"last event on the border", 50, 5, 3000, 0, false},
      {"echo before the last quarter", 1200, 12, 2000, 1, false},
      {"strong echo in the last quarter", 1700, 12, 2000, 4, true},
      {"strong echo behind a late event", 1700, 12, 3100, 2, true},
      {"echo before a late event", 1520, 12, 3100, 3, true},
      {"echo behind the trace", 2500, 12, 2600, 1, false},
      {"second echo", 1100, 16, 2500, 4, true},
      {"no second echo of a weaker one", 1100, 13, 2500, 1, false},
  };
  for (const auto& c : kCases) {
    sor->DataPts->SetLevel(c.peak, -1.0);
    TFEvent events[] = {Event(c.peak, c.grade, c.peak + 10), Event(c.lastEnd - 10, 3, c.lastEnd)};
    TSorFilter filter(sor.get());
    filter.SetLinfAvg(kPoints, 16);
    EXPECT_EQ(filter.AutoFilterCalcNoise(), 0);
    EXPECT_EQ(filter.result.noiseLow, 0.0F);
    filter.result.events = events;
    filter.result.count = 2;
    SCOPED_TRACE(c.what);
    EXPECT_EQ(filter.AutoFilterCalcNoise(), c.result);
    EXPECT_EQ(filter.result.noiseLow > -99.0F, c.measured);
    EXPECT_EQ(filter.result.noiseHigh > -99.0F, c.measured);
  }
}

// --- What it costs ---

// A level trace 5 log10(ratio) above the noise floor, without a slope.
std::unique_ptr<TSorData> Plateau(double ratio) {
  TraceSpec spec;
  spec.points = 1000;
  spec.spacingOwt = 10.0;
  spec.level = [=](long) { return -40.0 + 5.0 * std::log10(ratio); };
  return BuildTrace(spec);
}
float Owt(double point) { return static_cast<float>(10.0 * point + 1.0); }

TEST(NoiseError, IsTheStepFromTheLevelToOneNoiseBelowIt) {
  const struct {
    double ratio;
    double a, b;  // points
    double errorDb;
  } kCases[] = {
      {2.0, 100, 101, 5.0 * std::log10(2.0)},         {2.0, 100, 90, 5.0 * std::log10(2.0)},
      {10.0, 100, 100, 5.0 * std::log10(10.0 / 9.0)}, {10.0, 100, 104, 5.0 * std::log10(20.0 / 19.0)},
      {10.0, 100, 200, 5.0 * std::log10(100.0 / 99)}, {0.5, 100, 101, 65.5},
  };
  for (const auto& c : kCases) {
    const auto sor = Plateau(c.ratio);
    TSorFilter filter(sor.get());
    SCOPED_TRACE(::testing::Message() << c.ratio << " from " << c.a << " to " << c.b);
    for (const int atEnd : {0, 1})
      EXPECT_NEAR(filter.GetNoiseError(Owt(c.a), Owt(c.b), atEnd), c.errorDb, 0.02);
    filter.result.polar = 70.0F;
    EXPECT_EQ(filter.GetNoiseError(Owt(c.a), Owt(c.b), 0), 70.0F);
  }
}

TEST(NoiseError, MeasuredNoiseAndTheMapTakeTheirPlace) {
  const auto sor = Plateau(10.0);
  TSorFilter filter(sor.get());
  std::vector<short> map(1000, 64);
  filter.result.pointMap = map.data();
  const auto error = [&](int atEnd) { return filter.GetNoiseError(Owt(100), Owt(110), atEnd); };
  EXPECT_NEAR(error(0), 5.0 * std::log10(80.0 / 79.0), 0.01);
  filter.result.noiseLow = -35.0F;  // as high as the signal
  EXPECT_NEAR(error(1), 5.0 * std::log10(8.0 / 7.0), 0.01);
  filter.result.noiseHigh = -40.0F;  // of means of 16
  EXPECT_NEAR(error(0), 5.0 * std::log10(20.0 / 19.0), 0.01);
  map.assign(1000, 8);
  EXPECT_NEAR(error(1), 5.0 * std::log10(std::sqrt(50.0) / (std::sqrt(50.0) - 1.0)), 0.01);
  map.assign(1000, 4);  // too few for that figure
  EXPECT_NEAR(error(0), 5.0 * std::log10(20.0 / 19.0), 0.01);
}

TEST(NoiseError, AnEventHasThatOfTheEndsThatFaceIt) {
  const auto sor = Plateau(10.0);
  TSorFilter filter(sor.get());
  TSorBlockKeyEvents1E event;
  event.ML0 = 1001, event.ML1 = 1051, event.ML2 = 2001, event.ML3 = 2051;
  const float quiet = filter.GetKeyEventNoiseError(&event);
  for (const long far : {100L, 205L}) sor->DataPts->SetLevel(far, -50.0);
  EXPECT_NEAR(filter.GetKeyEventNoiseError(&event), quiet, 0.1);
  sor->DataPts->SetLevel(105, -50.0);
  EXPECT_GT(filter.GetKeyEventNoiseError(&event), quiet + 60.0F);
  event.ML0 = -5, event.ML3 = 2000000000;  // junk
  EXPECT_TRUE(std::isfinite(filter.GetKeyEventNoiseError(&event)));
}

}  // namespace
