// SPDX-License-Identifier: Apache-2.0

// Reflectances of peaks of known height, and the light that comes back from spans whose integral is known.

#include "ref/events/refEventReflection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/support/trace.h"

namespace {

using support::BuildTrace;

constexpr double kBcDb = -80.0;  // of a new record
constexpr double kPulseNs = 100.0;
constexpr double kPulseOwt = 500.0;  // 10.21 m
constexpr long kPulsePoints = 100;
constexpr double kQuantumDb = 0.001;  // of the samples

double Power(double db) { return std::pow(10.0, db / 5.0); }
double Level(double power) { return 5.0 * std::log10(power); }
double Reflectance(double excessPower, double pulseNs = kPulseNs) {
  return kBcDb + 2.0 * Level(excessPower * pulseNs);
}
// Share of a pulse's length that has passed from point 1000 to point k.
double Passed(long k) { return std::clamp(static_cast<double>(k - 1000) / kPulsePoints, 0.0, 1.0); }

std::unique_ptr<TSorData> FlatTrace() {
  return BuildTrace(4000, [](long) { return -20.0; });
}

TSorBlockKeyEvents1E& AddEvent(TSorData& sor, int ept, int ml2 = 0) {
  auto* event = new TSorBlockKeyEvents1E;
  event->EPT = ept;
  event->ML2 = ml2;
  sor.KeyEvents->events->AddData(event);
  ++sor.KeyEvents->TNKE;
  return *event;
}

TEST(Reflection, OfAHeightAndBack) {
  EXPECT_NEAR(RefEventReflection(Level(2.0), 1000.0, -81.5), -51.5, 1e-9);  // as much light again
  const auto sor = FlatTrace();
  EXPECT_NEAR(RefEventReflection(sor.get(), 0.0, 3.0), Reflectance(Power(3.0) - 1.0), 1e-9);
  EXPECT_EQ(sor->QRTParams->modes[0].BWU1, 0) << "without a bandwidth on record, none is measured";
  sor->QRTParams->ATP0 = 5000;  // the pulse that was really sent: 1000 ns
  const double reflectance = Reflectance(Power(3.0) - 1.0, 1000.0);
  EXPECT_NEAR(RefEventReflection(sor.get(), 0.0, 3.0), reflectance, 1e-9);
  EXPECT_NEAR(RefEventReflectionPower(sor.get(), 0.0, reflectance), 3.0, 1e-9);
  EXPECT_NEAR(RefEventReflectionPower(sor.get(), 0.0, reflectance, 100.0), 3.0 + 0.5105, 1e-4);
}

// A slow receiver keeps a peak from its full height.
TEST(Reflection, IsFreedFromTheReceiversFall) {
  const auto sor = FlatTrace();
  sor->QRTParams->modes[0].BWU1 = 200;         // dB/km: 2.04 dB over the pulse
  const double window = 1.0 / 1.2 / kPulseNs;  // of a sample in the pulse
  const double amplitude =
      (1.0 - Power(-200.0 * sor->dOwtToLen(kPulseOwt))) * (1.0 - std::exp(-window)) / window;
  EXPECT_NEAR(RefEventLinAmplPulse(sor.get(), 100.0), amplitude, 1e-9);
  const double kCases[][2] = {{-1.0, Power(0.001 / amplitude) - 1.0},
                              {0.2, Power(0.2 / amplitude) - 1.0},
                              {0.200001, (Power(0.200001) - 1.0) / amplitude},
                              {6.0, (Power(6.0) - 1.0) / amplitude}};
  for (const auto& c : kCases) {
    EXPECT_NEAR(RefEventReflection(sor.get(), 0.0, c[0]), Reflectance(c[1]), 1e-9) << c[0];
  }
}

// A steady height on a falling line, with a splice that the pulse crosses meanwhile.
TEST(Reflection, MeanHeightBesideAStep) {
  constexpr double kSlopeDb = 0.003, kLossDb = 0.6, kHeightDb = 1.5;
  const auto sor = BuildTrace(2000, [](long k) {
    const double lineDb = -15.0 - kSlopeDb * static_cast<double>(k - 1000) - kLossDb * Passed(k);
    return lineDb + (Passed(k) > 0.0 && Passed(k) < 1.0 ? kHeightDb : 0.0);
  });
  const double endDb = -15.0 - kSlopeDb * 300 - kLossDb;
  EXPECT_NEAR(RefEventReflection(sor.get(), 1000L, -15.0, 1300L, endDb, kLossDb),
              Reflectance(Power(kHeightDb) - 1.0), 0.01);
  EXPECT_EQ(RefEventReflection(sor.get(), 1000L, -15.0, 1000L, endDb, kLossDb), 0.0);
  // A pulse that begins or ends outside the trace, at -65.5 dB there, however long.
  const auto off = BuildTrace(200, [](long) { return -15.0; });
  const struct {
    long point;
    short pulseNs;
    int spacing;  // 1e-4 of 100 ps
    double meanDb;
  } kCases[] = {{150, 100, 50000, -50.5 * 50 / 99},
                {-30, 100, 50000, -50.5 * 29 / 99},
                {-100, 1000, 50000, -50.5 * 799 / 999},
                {300, 100, 50000, -50.5},
                {0, 32767, 1, -50.5},
                {100, 1000, 0, -50.5}};
  for (const auto& c : kCases) {
    off->FxdParams->PWU[0] = c.pulseNs;
    off->FxdParams->DS[0] = c.spacing;
    // Over the line of a splice that loses 120 dB, which is 60 dB in the middle of the pulse.
    EXPECT_NEAR(RefEventReflection(off.get(), c.point, -15.0, c.point + 100, -15.0 - 120.0, 120.0),
                RefEventReflection(off.get(), off->NumToOwt(c.point), c.meanDb + 60.0), 0.01)
        << c.point << " " << c.pulseNs;
  }
  sor->FxdParams->PWU[0] = 1;  // of one point
  EXPECT_EQ(RefEventReflection(sor.get(), 1000L, -15.0, 1300L, endDb, kLossDb), 0.0);
}

// Light on a splice in a lossless fibre. It rises over the first ten points and lasts for the pulse, while
// the backscatter goes over from one side to the other.
TEST(Reflection, ExcessOverASplice) {
  const auto trace = [](double excessPower) {
    return BuildTrace(2000, [excessPower](long k) {
      const double light = Passed(k) < 1.0 ? excessPower * std::min(10.0 * Passed(k), 1.0) : 0.0;
      return -20.0 + Level(1.0 - Passed(k) + Passed(k) * Power(-0.5) + light);
    });
  };
  const auto reflectanceOf = [](TSorData& sor, long point, short fallDbPerKm) {
    sor.QRTParams->modes[0].BWU1 = fallDbPerKm;
    return RefEventReflection(&sor, point, -20.0, 0.0, 0.0, 0.5);
  };
  const auto sor = trace(1.0);
  // From the crest, or from where the receiver has recovered, to the pulse's end, which is dark already.
  EXPECT_NEAR(reflectanceOf(*sor, 1000, 5000), Reflectance(90.0 / 91.0), 0.01);
  EXPECT_NEAR(reflectanceOf(*sor, 1000, 500), Reflectance(70.0 / 71.0), 0.01);
  EXPECT_EQ(reflectanceOf(*sor, 1000, 100), 0.0) << "the receiver needs more than the pulse";
  EXPECT_EQ(reflectanceOf(*trace(-0.2), 1000, 5000), kBcDb) << "less light than the splice leaves";
  // The pulse, three points to recover and one more have to lie on the trace.
  EXPECT_EQ(reflectanceOf(*sor, 2000 - kPulsePoints - 4, 5000), 0.0);
  EXPECT_NE(reflectanceOf(*sor, 2000 - kPulsePoints - 5, 5000), 0.0);
}

TEST(Reflection, BetweenTwoTimes) {
  const auto sor = BuildTrace(2000, [](long k) { return k == 600 ? -14.0 : k == 700 ? -12.0 : -20.0; });
  sor->FxdParams->SetTPW(2);  // pulses of 100 ns, and of 1000 ns from point 650 on
  for (const int i : {0, 1}) {
    sor->FxdParams->PWU[i] = i == 0 ? 100 : 1000;
    sor->FxdParams->DS[i] = 50000;
    sor->FxdParams->NPPW[i] = i == 0 ? 650 : 1350;
  }
  const double six = Reflectance(Power(6.0) - 1.0), eight = Reflectance(Power(8.0) - 1.0);
  EXPECT_NEAR(RefEventReflection1(sor.get(), 2500.0, 3500.0), eight + 10.0, 1e-3);
  // Up to the later point, with the pulse of the earlier; as high is not higher.
  const double kCases[][3] = {
      {3250, 2500, six}, {2500, 4500, eight}, {2500, 3500, six}, {0, 2500, kBcDb}, {3500, 4500, kBcDb}};
  for (const auto& c : kCases) {
    EXPECT_NEAR(RefEventReflectionByMaxBetweenOWTs(sor.get(), c[0], c[1]), c[2], 1e-3) << c[0] << " " << c[1];
  }
}

TEST(ReturnLoss, PowerOfASpanInPulses) {
  const auto sor = FlatTrace();
  // Begins at the point, ends at the time; within one point its first unit of time is left out.
  const double kCases[][3] = {{2003.0, 7000.0, 10.0}, {2000.0, 7002.5, 10.005}, {2000.0, 2003.0, 0.004}};
  for (const auto& c : kCases) {
    EXPECT_NEAR(RefEventORL(sor.get(), c[0], c[1]), -20.0 + Level(c[2]), 2 * kQuantumDb)
        << c[0] << " " << c[1];
  }
  EXPECT_EQ(RefEventORL(sor.get(), 700.0, 700.0), 0.0);
}

// Flat at -20 dB but for a launch reflection of -15 dB. The loss of a span that gives back `power`: twice its
// distance to the backscatter of a pulse of 1 ns, freed of the coefficient.
TEST(ReturnLoss, OfAFibre) {
  const auto sor = BuildTrace(4000, [](long k) { return k < 100 ? -15.0 : -20.0; });
  const auto lossOf = [](double power, double baseDb) {
    return 2.0 * ((baseDb - (kBcDb / 2 + Level(kPulseNs))) - Level(power));
  };
  const double launch = Power(-15.0), pulse = Power(-20.0);
  EXPECT_EQ(RefEventCalcORL(sor.get(), 0.0, 10000.0), 0.0) << "no events";
  TSorBlockKeyEvents1E& first = AddEvent(*sor, 0, 1000);
  EXPECT_NEAR(RefEventCalcORL(sor.get(), 0.0, 10000.0), lossOf(launch, -20.0), 5 * kQuantumDb);
  AddEvent(*sor, 11000).SetACI(10.0);
  const double start = -20.0 + 10.0 * 0.02042;  // over the launch's 20.42 m
  const double kCases[][5] = {
      // Time of the first event, span, power, base.
      {0, 0, 11000, launch + 21 * pulse, start},        // to a pulse behind the end
      {0, 499, 15000, launch + 21 * pulse, start},      // nothing behind it counts
      {0, 0, 10999, launch + 19.998 * pulse, start},    // before it no pulse is added
      {0, 1000, 11000, 21 * pulse, start},              // a span that leaves out the launch
      {5, 0, 11000, launch + 22 * pulse, start + 5.0},  // no launch at all: all of it is fibre
  };
  for (const auto& c : kCases) {
    first.EPT = static_cast<int>(c[0]);
    EXPECT_NEAR(RefEventCalcORL(sor.get(), c[1], c[2]), lossOf(c[3], c[4]), 5 * kQuantumDb)
        << c[1] << " " << c[2];
  }
}

TEST(ReturnLoss, FollowsBackscatterAndIndexUnlessTemperature) {
  for (const bool temperature : {false, true}) {
    const auto sor = FlatTrace();
    TSorBlockKeyEvents& table = *sor->KeyEvents;
    AddEvent(*sor, 0, 1000).SetER(-45.0);
    AddEvent(*sor, 5000).SetACI(0.25);
    table.ELMP1 = 600;
    table.ELMP2 = 5000;
    if (temperature) sor->QRTParams->TYP = "TC";
    EXPECT_EQ(RefEventSetORL(sor.get()), temperature ? 2 : 0);
    EXPECT_EQ(table.RLMP1 == 600 && table.RLMP2 == 5000, !temperature);
    const int before = table.ORL;
    EXPECT_EQ(RefEventSetNewBC(sor.get(), -82.5), temperature ? 2 : 0);
    EXPECT_NEAR(table.EventAt(0).GetER(), temperature ? -45.0 : -47.5, kQuantumDb);
    EXPECT_EQ(table.EventAt(1).ER, 0) << "no reflectance stays none";
    EXPECT_NEAR(table.ORL, temperature ? 0 : before + 2500, 1);
    RefEventSetNewRI(sor.get(), 1.468 * 1.2);
    EXPECT_NEAR(table.EventAt(1).GetACI(), 0.3, 1.5 * kQuantumDb);
  }
}

}  // namespace
