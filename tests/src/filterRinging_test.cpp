// SPDX-License-Identifier: Apache-2.0

// What a scan must not take for events, or not for one: waves of the receiver, two reflections on one rise,
// echoes.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tests/src/receivedLight.h"

namespace {

using support::kPoints;
using support::Noise;
using support::ReceivedLight;
using support::ScannedLight;

constexpr long kRingingAt = 2000;

// --- Ringing ---

int RingsUntil(ScannedLight& light, long at = kRingingAt) {
  return light.filter.ZvonDetect(static_cast<int>(at), static_cast<int>(light.last),
                                 static_cast<float>(light.filter.pulseFallPoints), static_cast<int>(light.w1),
                                 light.limit);
}

// A damped wave on a decaying tail, in powers of the fibre.
struct Wave {
  double amplitude;
  double periodPoints, fadePoints;  // points in which the wave falls by a factor of e
  double tail, tailPoints;
  double operator()(double x) const {
    const double wave =
        amplitude * std::exp(-x / fadePoints) * (1.0 - std::cos(2.0 * M_PI * x / periodPoints)) / 2.0;
    return wave + tail * std::exp(-x / tailPoints) * std::min(4.0 * x / periodPoints, 1.0);
  }
};

ReceivedLight Made(double fibreDb, long pulse, double noise, std::uint32_t seed = 3) {
  ReceivedLight light(fibreDb, pulse);
  light.Receiver(1.0).Noisy(noise, seed);
  return light;
}

// From where the swing of the wave has sunk into what noise may pretend, nothing is to be seen of it.
double VisiblePoints(const Wave& wave, float limit) {
  return wave.fadePoints * std::log(wave.amplitude * support::PowerOf(-35.0 - support::kFloorDb) / limit);
}

TEST(Ringing, IsFoundWithItsPeriodAndItsEnd) {
  for (double period : {20.0, 40.0, 60.0}) {
    for (double amplitude : {2.0, 10.0}) {
      const Wave kWaves[] = {
          {amplitude, period, period, 0.0, 1.0},
          {amplitude, period, 6.0 * period, 3.0 * amplitude, period / 2},
      };
      for (const Wave& wave : kWaves) {
        for (double noise : {0.0, 0.2}) {
          ScannedLight light(Made(-35.0, 2, noise).Add(kRingingAt, wave));
          const int end = RingsUntil(light);
          const double visible = VisiblePoints(wave, light.limit);
          const auto story = testing::Message()
                             << period << " points, amplitude " << amplitude << ", tail " << wave.tail;
          EXPECT_GT(end, std::min(kRingingAt + visible / 3, kPoints - 2 * period)) << story;
          EXPECT_LT(end, std::min(kRingingAt + visible + 2 * period, kPoints - 0.5)) << story;
          EXPECT_NEAR(static_cast<double>(light.filter.result.ringCount), period, 0.15 * period) << story;
        }
      }
    }
  }
}

// The decay is noted where the wave is regular enough to be measured, and what was noted first stays.
TEST(Ringing, NotesItsDecayOnce) {
  long measured = 0;
  for (double period : {8.0, 14.0, 20.0, 40.0, 60.0}) {
    for (double fade : {1.5, 2.0}) {
      const Wave wave{2.0, period, fade * period, 4.0, period / 2};
      ScannedLight light(Made(-35.0, 6, 0.0).Add(kRingingAt, wave));
      AutoFilterResultData& result = light.filter.result;
      if (RingsUntil(light) == 0 || result.ringLevel == 0.0F) continue;
      ++measured;
      const double decayDb = 5.0 * std::log10(std::exp(1.0)) / wave.fadePoints;
      EXPECT_NEAR(result.ringLevel, decayDb, 0.3 * decayDb) << period << " points";
      result.ringCount = 7;
      result.ringLevel = 0.25F;
      EXPECT_GT(RingsUntil(light), 0);
      EXPECT_EQ(result.ringCount, 7);
      EXPECT_EQ(result.ringLevel, 0.25F);
    }
  }
  EXPECT_GE(measured, 5);
}

// Swings of 130, 20 and, from the third on, 3 limits; the third fall takes so much of the time that it
// should.
TEST(Ringing, DiesAtTheThirdCrestOnlyOutOfRhythm) {
  constexpr double kPeriod = 60.0, kFade = 0.15, kHeight = 0.2;
  for (const auto& [thirdFall, periods] : {std::pair(1.0, 2.25), std::pair(0.05, 2.0)}) {
    const auto wave = [pace = thirdFall](double x) {
      double cycles = x / kPeriod;
      if (cycles > 2.0) cycles = std::min(2.0 + (cycles - 2.0) / pace, cycles + (1.0 - pace) / 2.0);
      return kHeight * std::pow(kFade, std::min(std::round(cycles), 2.0)) *
             (1.0 + std::cos(2.0 * M_PI * cycles)) / 2.0;
    };
    ScannedLight light(Made(-35.0, 2, 0.0).Add(kRingingAt, wave));
    EXPECT_NEAR(RingsUntil(light), kRingingAt + periods * kPeriod, 4.0) << thirdFall;
    EXPECT_NEAR(static_cast<double>(light.filter.result.ringCount), kPeriod, 8.0) << thirdFall;
  }
}

TEST(Ringing, IsNotWhatIsNoWave) {
  ReceivedLight train = Made(-35.0, 10, 0.0);
  for (long k = 0; k < 5; ++k) train.Reflection(kRingingAt + 60 * k, 8.0 - static_cast<double>(k));
  const struct {
    const char* what;
    ReceivedLight light;
    long at;
  } kCases[] = {
      {"a tail", Made(-35.0, 10, 0.0).Receiver(20.0).Reflection(kRingingAt, 12.0), kRingingAt},
      {"a noisy tail", Made(-42.0, 10, 0.3).Receiver(20.0).Reflection(kRingingAt, 8.0), kRingingAt},
      {"plain fibre in noise", Made(-44.0, 10, 0.4), kRingingAt},
      {"pulses on flat ground", train, kRingingAt},
      {"two reflections", Made(-35.0, 10, 0.0).Reflection(kRingingAt, 8.0).Reflection(kRingingAt + 40, 8.0),
       kRingingAt},
      {"a period of three points", Made(-35.0, 2, 0.0).Add(kRingingAt, Wave{10.0, 3.0, 3.0, 0.0, 1.0}),
       kRingingAt},
      {"a wave without trace behind it",
       Made(-35.0, 2, 0.0).Add(kPoints - 30, Wave{10.0, 20.0, 20.0, 0.0, 1.0}), kPoints - 30},
  };
  for (const auto& c : kCases) {
    ScannedLight light(c.light);
    EXPECT_EQ(RingsUntil(light, c.at), 0) << c.what;
    EXPECT_EQ(light.filter.result.ringCount, 0) << c.what;
  }
}

// --- Two reflections on one rise ---

long SecondOf(const ReceivedLight& light) {
  ScannedLight scanned(light);
  const long second = scanned.filter.DoubleRDetect(kRingingAt, scanned.recover, scanned.w2, scanned.limit);
  return second == 0 ? 0 : second - kRingingAt;
}

TEST(DoubleReflection, IsFoundWhereItParts) {
  for (long pulse : {10L, 20L, 60L}) {
    for (double share : {1.2, 1.35, 1.5}) {
      for (double nextDb : {3.0, 5.0}) {
        for (double noise : {0.0, 0.2}) {
          const long gap = static_cast<long>(share * static_cast<double>(pulse));
          ReceivedLight light = Made(-35.0, pulse, noise, 7).Slope(0.0002);
          light.Reflection(kRingingAt, 5.0).Reflection(kRingingAt + gap, nextDb);
          EXPECT_NEAR(SecondOf(light), gap - 1, pulse / 6)
              << pulse << " points of pulse, " << nextDb << " dB high";
        }
      }
    }
  }
}

// Near the noise a dent is none; a top that lasts longer than one pulse still tells, and where its second
// begins.
TEST(DoubleReflection, ShowsInALongWeakTop) {
  for (long pulse : {20L, 60L}) {
    for (double noise : {0.0, 0.1}) {
      const long second =
          SecondOf(Made(-43.0, pulse, noise, 7).Slope(0.0002).Reflection(kRingingAt, 2.0, 2 * pulse));
      EXPECT_NEAR(second, pulse, 4) << pulse;
    }
  }
}

TEST(DoubleReflection, IsNotASingleOne) {
  for (double receiver : {1.0, 3.0, 8.0}) {
    for (long pulse : {4L, 10L, 20L, 60L}) {
      for (double heightDb : {1.0, 5.0, 12.0}) {
        for (std::uint32_t seed = 1; seed <= 5; ++seed) {
          ReceivedLight light =
              Made(-38.0, pulse, 0.1, seed).Receiver(receiver).Slope(0.0002).Reflection(kRingingAt, heightDb);
          EXPECT_EQ(SecondOf(light), 0)
              << receiver << ' ' << pulse << " points, " << heightDb << " dB, seed " << seed;
        }
      }
    }
  }
  EXPECT_EQ(SecondOf(Made(-35.0, 20, 0.2)), 0) << "plain fibre";
}

// --- Echoes ---

TFEvent Seen(const ScannedLight& light, long begin, long pulse, char type) {
  TFEvent event;
  event.begin = static_cast<int>(begin);
  event.rise = event.end = static_cast<int>(begin + pulse + 30);
  event.peak = static_cast<int>(begin + pulse / 2);
  event.gradeUp =
      static_cast<int>(std::log2((light.Lin(event.peak) - light.Lin(begin - 1)) / light.limit + 1.0));
  event.width = static_cast<int>(pulse);
  event.type = type;
  return event;
}

TEST(Echo, IsAReflectionThatNothingElseExplains) {
  const struct {
    const char* what;
    double heightDb, lossDb;
    char sourceType;
    bool isEcho;
  } kCases[] = {
      {"faint, without a loss", 5.0, 0.0, 'R', true},
      {"faint, behind another event than the strongest", 5.0, 0.0, 'r', true},
      {"with a loss", 5.0, 1.0, 'R', false},
      {"stronger than its source", 24.0, 0.0, 'R', false},
      {"nearly as strong as its source", 16.0, 0.0, 'R', false},
  };
  for (long pulse : {1L, 10L}) {
    for (const auto& c : kCases) {
      ReceivedLight made = Made(-40.0, pulse, 0.1).Slope(0.0002);
      made.Reflection(1000, 22.0).Loss(kRingingAt + pulse, c.lossDb).Reflection(kRingingAt, c.heightDb);
      ScannedLight light(made);
      TFEvent source = Seen(light, 1000, pulse, c.sourceType), echo = Seen(light, kRingingAt, pulse, 'r');
      EXPECT_EQ(light.filter.isGost(light.sor.get(), &source, &echo), c.isEcho) << c.what << ", " << pulse;
      echo.gradeUp = echo.gradeDown = 0;
      EXPECT_FALSE(light.filter.isGost(light.sor.get(), &source, &echo)) << "nothing to be an echo";
    }
  }
}

// --- Whatever the arguments ---

TEST(FalseEvents, EndWhateverTheyAreGiven) {
  Noise noise(17);
  const auto any = [&] {
    return noise.Integer(0, 3) == 0 ? noise.Integer(-kPoints, 3 * kPoints) : noise.Integer(0, 60);
  };
  for (int run = 0; run < 300; ++run) {
    ScannedLight light(Made(-40.0, 10, 0.0)
                           .Add(noise.Integer(0, kPoints - 1),
                                Wave{5.0, noise.Uniform(1.0, 400.0), noise.Uniform(10.0, 4000.0), 0.0, 1.0}));
    for (int k = 0; k < run; ++k)
      light.filter.Linf[noise.Integer(0, kPoints - 1)] = static_cast<float>(noise.Uniform(-1e5, 1e6));
    if (run % 5 == 0) light.filter.LinfAvg.clear();
    if (run % 7 == 0) light.filter.Linf = nullptr;
    if (run % 3 == 0) light.filter.pulsePoints = noise.Integer(1, 3 * kPoints);
    const float limit = run % 4 == 0 ? 0.0F : light.limit;
    const int end =
        light.filter.ZvonDetect(static_cast<int>(noise.Integer(0, kPoints - 1)), static_cast<int>(any()),
                                static_cast<float>(any()), static_cast<int>(any()), limit);
    EXPECT_TRUE(end >= 0 && end < kPoints) << end;
    EXPECT_LE(std::labs(light.filter.DoubleRDetect(any(), any(), any(), limit)), 2 * kPoints);
    TFEvent source, echo;
    for (TFEvent* event : {&source, &echo}) {
      event->begin = static_cast<int>(any());
      event->peak = static_cast<int>(any());
      event->end = static_cast<int>(any());
      event->width = static_cast<int>(any());
      event->gradeUp = static_cast<int>(noise.Integer(0, 20));
    }
    const bool isEcho = light.filter.isGost(light.sor.get(), &source, &echo);
    EXPECT_TRUE(!isEcho || source.Am() >= echo.Am());
  }
}

}  // namespace
