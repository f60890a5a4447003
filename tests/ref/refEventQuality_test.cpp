// SPDX-License-Identifier: Apache-2.0

// Links whose noise, losses and launch are known, so that their quality can be worked out by hand.

#include "ref/events/refEventQuality.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "ref/events/refEventEdit.h"
#include "ref/figures/refAutoNoise.h"
#include "tests/support/assertions.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::TraceSpec;

constexpr int kJudgedSpacingOwt = 50;

// Fibre at two levels with a step in the middle, 100 points of pulse, and an event on the step.
std::unique_ptr<TSorData> Step(double beforeDb, double behindDb, double noiseLin = 0.0) {
  TraceSpec spec;
  spec.spacingOwt = kJudgedSpacingOwt;
  spec.pulseNs = 1000;
  spec.level = [=](long i) { return i < 5000 ? beforeDb : i < 9000 ? behindDb : -65.0; };
  spec.noiseLin = noiseLin;
  auto sor = BuildTrace(spec);
  auto* event = new TSorBlockKeyEvents1E;
  event->EPT = 5000 * kJudgedSpacingOwt;
  event->ML0 = 1000 * kJudgedSpacingOwt;
  event->ML1 = 4900 * kJudgedSpacingOwt;
  event->ML2 = 5100 * kJudgedSpacingOwt;
  event->ML3 = 8900 * kJudgedSpacingOwt;
  event->SetER(-100.0);
  RefEventAdd(sor.get(), event, 0);
  return sor;
}

TEST(Trust, FollowsPeakNoiseAndLoss) {
  const double noiseDb = RefAutoReSetNF(Step(-30.0, -30.0, 1.0).get());
  ASSERT_NEAR(noiseDb, -57.5, 1.5);
  const struct {
    const char* what;
    double aboveNoiseDb, reflectanceDb, lossDb, points;
  } kCases[] = {
      {"loss 10 dB above the noise", 10.0, -100.0, 0.5, (0.4576 + 0.0014) / 0.5 * 100 + 1},
      {"a gain counts as much", 10.0, -100.0, -0.5, (0.4576 + 0.0014) / 0.5 * 100 + 1},
      {"the same loss in less noise", 20.0, -100.0, 0.5, (0.0436 + 0.0014) / 0.5 * 100 + 1},
      {"loss below the noise", 10.0, -100.0, 0.45, 101.0},
      {"nothing but noise", 0.3, -100.0, 0.5, 1950.0},
      {"clear reflection", 10.0, -40.0, 0.0, 1.0 + 2.0 / (5.2070 / 0.41393)},
      {"reflection under the noise", 3.0, -57.0, 0.0, 101.0},
  };
  for (const auto& c : kCases) {
    const auto sor = Step(noiseDb + c.aboveNoiseDb, -40.0, 1.0);
    TSorBlockKeyEvents1E& event = sor->KeyEvents->EventAt(0);
    event.SetEL(c.lossDb);
    event.SetER(c.reflectanceDb);
    EXPECT_NEAR(RefEventTrusting(sor.get(), 0), c.points, 0.05 * c.points) << c.what;
  }
  TSorData empty;
  EXPECT_EQ(RefEventTrusting(&empty, 0), 0.0);
}

TEST(Measurable, BothSectionsAboveTheNoise) {
  const struct {
    double beforeDb, behindDb, lossDb;
    int snr;  // 0.001 dB, on record
    int fromEndOwt, measurable;
  } kCases[] = {
      {-20.0, -39.2, 6.0, 0, 300000, 1},      // the stored noise floor is -40 dB, and 0.7 dB are kept from it
      {-20.0, -39.4, 6.0, 0, 300000, 2},      // the section behind is lost, and with it the range
      {-20.0, -39.4, 5.0, 0, 300000, 0},      // not by this event alone
      {-39.4, -20.0, -9.0, 0, 300000, 0},     // nothing before it
      {-20.0, -39.4, 5.0, 45000, 300000, 1},  // the instrument's own figure lies lower: 2.4 - 45 dB
      {-20.0, -20.0, 0.5, 0, 200, 1},        {-20.0, -20.0, 0.5, 0, 199, 0},
  };
  for (const auto& c : kCases) {
    const auto sor = Step(c.beforeDb, c.behindDb);
    sor->QRTParams->SNL = static_cast<unsigned short>(c.snr);
    TSorBlockKeyEvents1E& event = sor->KeyEvents->EventAt(0);
    event.EPT = static_cast<int>(sor->GetMaxOwt()) - c.fromEndOwt;
    event.SetEL(c.lossDb);
    EXPECT_EQ(RefEventLossMeasurable(sor.get(), 0), c.measurable) << c.beforeDb << " " << c.behindDb;
    // Behind one that can be measured.
    sor->KeyEvents->events->InsData(new TSorBlockKeyEvents1E(event), 0);
    sor->KeyEvents->TNKE = 2;
    TSorBlockKeyEvents1E& before = sor->KeyEvents->EventAt(0);
    before.EPT = before.ML0 = before.ML2 = 0;
    before.ML1 = before.ML3 = 20000;
    int index = 7;
    const double km = RefEventGetMeasurableDistance(sor.get(), index);
    const bool lost = c.beforeDb == -20.0 && c.measurable != 1;
    EXPECT_EQ(index, lost ? 1 : 0);
    EXPECT_EQ(km, lost ? sor->OwtToLen(event.EPT) : 0.0);
  }
  TSorData empty;
  std::string file;
  EXPECT_NE(reflyze::test::AssertionOf([&] { RefEventLossMeasurable(&empty, 0); }, &file), "");
  EXPECT_EQ(file, "../ref/refEvent.cpp");
  TSorBlockKeyEvents1E event;
  EXPECT_NE(reflyze::test::AssertionOf([&] { RefEventLossMeasurable(nullptr, &event); }, &file), "");
}

TEST(EndOfRange, LastPercent) {
  const auto sor = Step(-20.0, -20.0);  // 500000 units, 10.2 km
  EXPECT_EQ(RefEventIsEofInLastNpercent(sor.get(), 60, 200.0), 0) << "one event is no fibre";
  sor->KeyEvents->events->AddData(new TSorBlockKeyEvents1E);
  sor->KeyEvents->TNKE = 2;
  const struct {
    int endOwt, percent;
    double minKm;
    int in;
  } kCases[] = {{450001, 10, 5, 1}, {449990, 10, 5, 0},    {449990, 11, 5, 1},
                {500000, 0, 5, 1},  {100000, 10, 10.1, 0}, {100000, 10, 10.3, 1}};
  for (const auto& c : kCases) {
    sor->KeyEvents->EventAt(1).EPT = c.endOwt;
    EXPECT_EQ(RefEventIsEofInLastNpercent(sor.get(), c.percent, c.minKm), c.in) << c.endOwt;
  }
}

constexpr double kAci = 0.2;

// 10 km of 0.51 m, 100 ns of pulse; the backscatter is -10 dB at the launch, which stands at `launch` points.
TraceSpec LinkFrom(long launch, double peakDb) {
  TraceSpec spec;
  spec.spacingOwt = 25.0;
  spec.points = 20000;
  spec.offsetOwt = static_cast<int>(-25 * launch);
  spec.noiseLin = 1.0;
  spec.receiverDbPerPoint = 8.0;  // over 1000 dB/km, so that its tail is gone where the fibre is looked at
  spec.SlopeDbPerKm(kAci).Peak(static_cast<double>(launch), peakDb);
  spec.startDb += spec.slopeDbPerPoint * static_cast<double>(launch);
  return spec;
}

struct LinkQuality {
  int result = -1;
  float quality = -1.0f, levelDb = 0.0f;
};

LinkQuality Judge(TSorData& sor, float startDb = 0.0f, float mode = 0.0f) {
  sor.QRTParams->modes[0].BWU1 = 1000;
  LinkQuality judged;
  judged.result =
      RefEventLinkQuality(&sor, judged.quality, judged.levelDb, startDb, static_cast<float>(kAci), mode);
  return judged;
}

TEST(LinkQuality, LaunchPeakAndWhatTheFibreBehindLacks) {
  // Light thrown back, over the backscatter of a metre: (10^(h/5) - 1) / 1000, times the fibre's loss.
  const auto ofPeak = [](double heightDb) { return (std::pow(10.0, heightDb / 5) - 1) * 1e-3 * kAci; };
  const struct {
    double peakDb, stepDb;
    bool sloping;
    int begLevel, inside, mode, result;
    double quality;
  } kCases[] = {
      {5.0, 0.0, true, 1000, 0, 0, 2, ofPeak(5.0)},
      {5.0, 0.8, true, 1000, 0, 0, 2, 0.8},              // lost in the first connector
      {5.0, 0.8, false, 1000, 0, 0, 2, 0.78},            // the same before a level stretch, some 100 m off
      {0.1, 0.8, false, 1000, 0, 0, 2, 0.78},            // and without a reflection
      {5.0, 0.8, true, 1000, 0, 1, 2, ofPeak(5.0)},      // no level is looked for behind
      {9.5, 0.8, true, 1000, 0, 0, 1, 2 * ofPeak(9.5)},  // above the scale
      {5.0, 0.0, true, 0, 0, 0, 2, ofPeak(5.0)},         // no level on record: the fibre behind the launch
      {5.0, 0.8, true, 2500, 6000, 0, 2, 0.8},  // the level of the fibre inside, whatever is on record
  };
  for (const auto& c : kCases) {
    const long launch = c.inside == 0 ? 0 : 240;
    TraceSpec spec = LinkFrom(launch, c.peakDb);
    if (!c.sloping) spec.slopeDbPerPoint = 0.0;
    if (c.stepDb != 0.0) spec.Step(static_cast<double>(launch), c.stepDb);
    const auto sor = BuildTrace(spec);
    sor->QRTParams->begLevel = static_cast<short>(c.begLevel);
    sor->QRTParams->IntFiber = c.inside;
    sor->SetMaxLevel(-0.8);
    const LinkQuality judged = Judge(*sor, 0.0f, static_cast<float>(c.mode));
    EXPECT_EQ(judged.result, c.result) << c.peakDb;
    EXPECT_NEAR(judged.quality, c.quality, 0.05 * c.quality + 0.002) << c.peakDb << " " << c.stepDb;
    EXPECT_NEAR(judged.levelDb, -10.0, 0.02) << c.inside;
    if (c.begLevel != 0 && c.mode == 1) {
      EXPECT_NEAR(Judge(*sor, -9.0f, 1.0f).quality, ofPeak(4.0), 0.05 * ofPeak(4.0));
    }
  }
}

TEST(LinkQuality, LaunchThatCannotBeJudged) {
  const struct {
    int offsetOwt, realPulseOwt, spacing, result;
  } kCases[] = {{11, 0, 250000, 2},    // the pulse has 20 points
                {12, 0, 250000, 0},    // begins too late
                {0, 4, 250000, 0},     // 0.8 ns
                {0, 0, 10010000, 0}};  // two pulses a point
  for (const auto& c : kCases) {
    const auto sor = BuildTrace(LinkFrom(0, 5.0));
    sor->FxdParams->AO = c.offsetOwt;
    sor->QRTParams->ATP0 = static_cast<unsigned short>(c.realPulseOwt);
    sor->FxdParams->DS[0] = c.spacing;
    const LinkQuality judged = Judge(*sor);
    EXPECT_EQ(judged.result, c.result);
    EXPECT_EQ(judged.quality == -1.0f, c.result == 0);
  }
}

// Two splices in one dead zone at 4 km, 0.7 dB together, and one at 8 km, as a pulse of `pulseNs` sees them
// with `liftDb` more power.
std::unique_ptr<TSorData> Group(short pulseNs, double liftDb) {
  TraceSpec spec = LinkFrom(0, 1.0);
  spec.pulseNs = pulseNs;
  spec.startDb += liftDb;
  const double pointsPerKm = kAci / spec.slopeDbPerPoint;
  spec.Step(4.0 * pointsPerKm, 0.5).Step(4.008 * pointsPerKm, 0.2).Step(8.0 * pointsPerKm, 0.4);
  spec.End(9.5 * pointsPerKm);
  auto sor = BuildTrace(spec);
  sor->QRTParams->begLevel = static_cast<short>(1000 - 100 * liftDb);
  sor->FxdParams->SetNF(-20.0);
  const double places[] = {0.0, 4.0, 4.008, 8.0};
  for (int i = 0; i < 4; ++i) {
    auto* event = new TSorBlockKeyEvents1E;
    const auto owt = [&](double km) { return static_cast<int>(sor->LenToOwt(km)); };
    event->EPT = owt(places[i]);
    event->ML0 = i == 0 ? 0 : owt(places[i - 1] + 0.1);
    event->ML1 = i == 0 ? 0 : owt(places[i] - 0.005);
    event->ML2 = owt(places[i] + 0.02);
    RefEventAdd(sor.get(), event, 0);
  }
  return sor;
}

TEST(TwoPulseLoss, LongerPulseSeesBehindTheGroup) {
  const auto brief = Group(50, 0.0), longer = Group(200, 3.0), longest = Group(500, 5.0);
  const TSorData *at200Ns = longer.get(), *at500Ns = longest.get();
  // The longest pulse shows itself by its noise, which reaches up to 7 dB.
  longest->FxdParams->SetNF(-5.0);
  longest->QRTParams->SNL = 7400;
  const struct {
    int index;
    std::vector<const TSorData*> longer;
    double lossDb;
  } kCases[] = {{1, {at200Ns}, 0.7},           // up to the event behind the group
                {3, {at200Ns}, 0.4},           // nothing comes behind: from three pulses on
                {3, {at500Ns}, -1.0},          // which is noise
                {1, {at500Ns}, 0.7},           // but an event shows that there is light
                {3, {at500Ns, at200Ns}, 0.4},  // the second counts up to 200 ns
                {3, {at200Ns, at500Ns}, 0.4}, {-1, {at200Ns}, -1.0}, {4, {at200Ns}, -1.0}};
  for (const auto& c : kCases) {
    EXPECT_NEAR(RefEventGetEventLossFromTwoSorPulses(brief.get(), c.index, c.longer), c.lossDb, 0.02);
  }
  // Where the longer pulse has lost more before the event than the brief one, its own level counts.
  longer->QRTParams->begLevel = 500;
  EXPECT_NEAR(RefEventGetEventLossFromTwoSorPulses(brief.get(), 1, {at200Ns}), 0.7, 0.02);
  EXPECT_EQ(reflyze::test::AssertionOf([&] { RefEventGetEventLossFromTwoSorPulses(brief.get(), 1, {}); }),
            "nextPulses.size() > 0");
}

}  // namespace
