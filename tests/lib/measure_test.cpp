// SPDX-License-Identifier: Apache-2.0

// Numbers between markers, held against what stands on simulated fibres, and their deviations against what
// they are off in many noisy traces.

#include "reflyze/measure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>

#include "reflyze/report.h"
#include "sim/Simulate.h"
#include "sor/sorData.h"
#include "tests/support/links.h"

namespace {

using namespace reflyze;
using support::TraceOf;

// 15 km with a connector at 4 km and a splice at 8 km, behind which the fibre is another one.
sim::Link Metro() {
  sim::Link link = support::MetroLink();
  link.rangeKm = 20.0;
  link.points = 10000;
  link.receiver.noiseDb = -22.0;
  link.sections[2] = {7.0, 0.22, -81.9};
  link.joints[1].lossDb = 0.15;
  return link;
}

// Of the light that is sent in, the share that a link of these sections and reflections sends back.
double TrueReturnLossDb(const sim::Link& link, const TSorData& record) {
  const double perKm = record.FxdParams->LenToOwt(1.0) / 5.0;  // pulses of 1 ns that a km holds
  const auto power = [](double db) { return std::pow(10.0, db / 10.0); };
  double arriving = 1.0, back = power(*link.launch.reflectanceDb);
  for (size_t i = 0; i < link.sections.size(); ++i) {
    const double neper = 2.0 * link.sections[i].attenuationDbPerKm / 10.0 * std::log(10.0);
    const double left = std::exp(-neper * link.sections[i].lengthKm);
    back += arriving * power(link.sections[i].backscatterDb) * perKm * (1.0 - left) / neper;
    arriving *= left;
    const bool last = i == link.joints.size();
    const auto& reflectanceDb = last ? link.end.reflectanceDb : link.joints[i].reflectanceDb;
    if (reflectanceDb) back += arriving * power(*reflectanceDb);
    if (!last) arriving *= power(-2.0 * link.joints[i].lossDb);
  }
  return -10.0 * std::log10(back);
}

struct Asked {
  const char* name;
  MeasureRequest request;
  double truth;
  std::optional<double> PlaceMeasure::*value, PlaceMeasure::*deviation;
};

std::vector<Asked> AllOf(double returnLossDb) {
  using P = PlaceMeasure;
  return {{"two points in a section", {MeasureKind::kTwoPoint, {1.0, 3.5}}, 0.5, &P::lossDb, &P::lossSdDb},
          {"two points over events", {MeasureKind::kTwoPoint, {1.0, 12.0}}, 2.73, &P::lossDb, &P::lossSdDb},
          {"a line",
           {MeasureKind::kLeastSquares, {4.3, 7.9}},
           0.2,
           &P::attenuationDbPerKm,
           &P::attenuationSdDbPerKm},
          {"a line far out",
           {MeasureKind::kLeastSquares, {8.3, 14.9}},
           0.22,
           &P::attenuationDbPerKm,
           &P::attenuationSdDbPerKm},
          {"loss of a line", {MeasureKind::kLeastSquares, {0.5, 2.5}}, 0.4, &P::lossDb, &P::lossSdDb},
          {"a connector", {MeasureKind::kEvent, {0.5, 3.99, 4.3, 7.9}}, 0.3, &P::lossDb, &P::lossSdDb},
          {"a splice", {MeasureKind::kEvent, {4.3, 8.0, 8.3, 14.9}}, 0.15, &P::lossDb, &P::lossSdDb},
          {"the whole link",
           {MeasureKind::kReturnLoss, {0.0, 15.5}},
           returnLossDb,
           &P::returnLossDb,
           &P::returnLossSdDb},
          {"the connector's peak", {MeasureKind::kAt, {4.0}}, -50.0, &P::reflectanceDb, &P::reflectanceSdDb},
          {"the end's peak", {MeasureKind::kAt, {15.005}}, -30.0, &P::reflectanceDb, &P::reflectanceSdDb}};
}

// The mean square of errors over their deviations is 1 where deviations are honest, whatever the noise is
// like: of the receiver, of means over points, of neighbours that go together, of the light itself.
// Reflectance and return loss have the deviation of the backscatter coefficient, 0.1 dB, and these links keep
// to theirs: their errors are smaller.
TEST(MeasureAtPlaces, ErrorsAreAsLargeAsTheirDeviations) {
  constexpr int kTraces = 60;
  constexpr double kLeast = 0.5, kMost = 1.8;
  const std::vector<std::pair<const char*, std::function<void(sim::Receiver&)>>> kinds = {
      {"quiet", [](sim::Receiver&) {}},
      {"loud", [](sim::Receiver& receiver) { receiver.noiseDb = -18.0; }},
      {"smoothed", [](sim::Receiver& receiver) { receiver.smoothingPoints = 7; }},
      {"correlated", [](sim::Receiver& receiver) { receiver.noiseCorrelation = 0.7; }},
      {"fading", [](sim::Receiver& receiver) { receiver.noiseDb = -30.0, receiver.fadingDb = 0.03; }}};
  int seed = 5000;
  for (const auto& [kind, change] : kinds) {
    sim::Link link = Metro();
    change(link.receiver);
    std::map<std::string, double> squares, sums;
    for (int i = 0; i < kTraces; ++i) {
      const sim::SimulatedTrace simulated = sim::Simulate(link, ++seed);
      const Meter meter(TraceOf(*simulated.record));
      for (const Asked& asked : AllOf(TrueReturnLossDb(link, *simulated.record))) {
        const PlaceMeasure told = meter.Measure(asked.request);
        ASSERT_TRUE(told.*asked.value && told.*asked.deviation) << kind << ", " << asked.name;
        const double off = *(told.*asked.value) - asked.truth, sd = *(told.*asked.deviation);
        squares[asked.name] += off * off / (sd * sd) / kTraces;
        sums[asked.name] += off / kTraces;
      }
    }
    for (const Asked& asked : AllOf(0.0)) {
      const double square = squares[asked.name];
      if (asked.value == &PlaceMeasure::returnLossDb || asked.value == &PlaceMeasure::reflectanceDb) {
        EXPECT_LT(square, 1.0) << kind << ", " << asked.name;
        EXPECT_NEAR(sums[asked.name], 0.0, 0.1) << kind << ", " << asked.name;
      } else {
        EXPECT_TRUE(square > kLeast && square < kMost) << kind << ", " << asked.name << ": " << square;
      }
    }
  }
}

bool Warns(const PlaceMeasure& told, const std::string& part) {
  for (const Warning& warning : told.warnings) {
    if (warning.text.find(part) != std::string::npos) return true;
  }
  return false;
}

// Places count from the user's zero. What a number can't be trusted for is said, and what noise hides is
// none.
TEST(MeasureAtPlaces, SaysWhatItCannotTell) {
  sim::Link link = Metro();
  link.storesBackscatter = false;
  sim::SimulatedTrace simulated = sim::Simulate(link, 11);
  simulated.record->GenParams->UO = static_cast<int>(std::lround(simulated.record->dLenToOwt(1.0)));
  const Meter meter(TraceOf(*simulated.record));
  const PlaceMeasure line = meter.Measure({MeasureKind::kLeastSquares, {-0.5, 2.9}});
  EXPECT_NEAR(*line.attenuationDbPerKm, 0.2, 4.0 * *line.attenuationSdDbPerKm);
  EXPECT_NEAR(line.placesKm[0], -0.5, 0.001);
  EXPECT_TRUE(line.warnings.empty());
  EXPECT_TRUE(Warns(meter.Measure({MeasureKind::kLeastSquares, {2.0, 5.0}}), "the event at 3.0000 km"));
  EXPECT_TRUE(Warns(meter.Measure({MeasureKind::kEvent, {2.0, 2.9, 3.005, 5.0}}), "the event at 3.0000 km"));
  EXPECT_FALSE(Warns(meter.Measure({MeasureKind::kEvent, {2.0, 3.0, 3.1, 5.0}}), "the event"));
  EXPECT_TRUE(Warns(meter.Measure({MeasureKind::kReturnLoss, {-1.0, 14.5}}), "-81.9 dB for a pulse of 1 ns"));
  EXPECT_GT(*meter.Measure({MeasureKind::kReturnLoss, {-1.0, 14.5}}).returnLossSdDb, 0.9);
  const PlaceMeasure dark = meter.Measure({MeasureKind::kLeastSquares, {16.0, 18.5}});
  EXPECT_FALSE(dark.lossDb || dark.attenuationDbPerKm);
  EXPECT_TRUE(Warns(dark, "lost in the noise") && Warns(dark, "the fibre ends at 14.0"));
  EXPECT_FALSE(meter.Measure({MeasureKind::kAt, {1.5}}).reflectanceDb) << "nothing stands there";
  EXPECT_EQ(JsonOf(dark).find("nan"), std::string::npos);
  EXPECT_NE(TextOf(dark).find("\nLoss         -\n"), std::string::npos);

  link.receiver.saturationDb = -13.0;
  const Meter saturated(TraceOf(*sim::Simulate(link, 12).record));
  EXPECT_TRUE(saturated.Measure({MeasureKind::kReturnLoss, {0.0, 15.5}}).returnLossAtMost);
  const PlaceMeasure end = saturated.Measure({MeasureKind::kAt, {15.0}});
  EXPECT_TRUE(end.reflectanceAtLeast);
  EXPECT_LT(*end.reflectanceDb, -31.0);
  EXPECT_NE(TextOf(end).find("Reflectance  >-"), std::string::npos) << TextOf(end);
  const PlaceMeasure inner = saturated.Measure({MeasureKind::kAt, {4.0}});
  EXPECT_FALSE(inner.reflectanceAtLeast);
  EXPECT_NEAR(*inner.reflectanceDb, -50.0, 0.2);

  const auto refused = [&](const MeasureRequest& request, const char* part) {
    try {
      meter.Measure(request);
      ADD_FAILURE() << part;
    } catch (const Error& error) {
      EXPECT_EQ(error.kind(), ErrorKind::kUsage);
      EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
    }
  };
  refused({MeasureKind::kAt, {}}, "takes 1 places, not 0");
  refused({MeasureKind::kTwoPoint, {3.0, 2.0}}, "2 km does not");
  refused({MeasureKind::kTwoPoint, {3.0, 3.0}}, "3 km does not");
  refused({MeasureKind::kEvent, {1.0, 2.0, 3.0}}, "takes 4 places");
  refused({MeasureKind::kAt, {19.2}}, "goes from -1.0000 to 18.99");
  refused({MeasureKind::kAt, {std::nan("")}}, "is not on the trace");
  refused({static_cast<MeasureKind>(9), {1.0}}, "no measure of that kind");
}

// Of stretches with pulses of their own nobody fits a link. What noise there is the samples tell.
TEST(MeasureAtPlaces, NoLinkNeedBeUnderstood) {
  constexpr int kTraces = 60;
  std::map<std::string, double> squares;
  for (int seed = 1; seed <= kTraces; ++seed) {
    const sim::SimulatedTrace simulated = sim::Simulate(Metro(), 7000 + seed);
    TSorBlockFixedParameters& fixed = *simulated.record->FxdParams;
    const int spacing = fixed.DS[0];
    fixed.SetTPW(2);
    for (int i = 0; i < 2; ++i)
      fixed.PWU[i] = static_cast<short>(100 + i), fixed.DS[i] = spacing, fixed.NPPW[i] = 5000;
    const Meter meter(TraceOf(*simulated.record));
    for (const Asked& asked : AllOf(0.0)) {
      if (asked.value == &PlaceMeasure::returnLossDb || asked.value == &PlaceMeasure::reflectanceDb) continue;
      const PlaceMeasure told = meter.Measure(asked.request);
      ASSERT_TRUE(told.*asked.value) << asked.name;
      const double off = (*(told.*asked.value) - asked.truth) / *(told.*asked.deviation);
      squares[asked.name] += off * off / kTraces;
    }
    EXPECT_NEAR(*meter.Measure({MeasureKind::kAt, {4.0}}).reflectanceDb, -50.0, 0.3);
    EXPECT_NEAR(*meter.Measure({MeasureKind::kAt, {15.004}}).reflectanceDb, -30.0, 0.3);
  }
  for (const auto& [name, square] : squares)
    EXPECT_TRUE(square > 0.4 && square < 2.2) << name << ": " << square;
}

}  // namespace
