// SPDX-License-Identifier: Apache-2.0

// What the program makes of a trace beyond one search: it tells the receiver's rate from a low launch, tells
// a fibre that goes on behind the table from the tail of a receiver, and asks again where it does.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "measure/Plausible.h"
#include "sim/Simulate.h"
#include "sim/Waveform.h"
#include "sor/sorData.h"
#include "src/analysis/th.h"
#include "src/module/Auto.h"

namespace reflyze {
namespace {

constexpr double kPulseNs = 1000.0;

// 30 km in sections, quiet enough for every joint; nothing is connected where there are none.
sim::Link LinkOf(const std::vector<double>& sectionsKm, double launchDb) {
  sim::Link link;
  link.pulseNs = kPulseNs;
  link.rangeKm = 60.0;
  link.points = 7000;
  link.spacingM = 1000.0 * link.rangeKm / static_cast<double>(link.points);
  link.averages = 100000;
  link.launch.reflectanceDb = launchDb;
  link.receiver = {2.0, 4e-4, 4.0 * kPulseNs, 0.0, -30.0};
  for (const double km : sectionsKm) link.sections.push_back({km, 0.2, -81.9});
  link.joints.resize(std::max<size_t>(sectionsKm.size(), 1) - 1, {0.3, -40.0});
  return link;
}

double EndKm(const sim::Link& link) {
  const auto record = std::move(sim::Simulate(link, 5).record);
  TTH thresholds(nullptr);
  thresholds.THLoss = 0.03;
  thresholds.THRef = -72.0;
  thresholds.THEnd = 3.0;
  AnalysePlausibly(*record, thresholds, [&](TTH& values) { TAuto().AnalysisSorData(record.get(), &values); });
  const int events = record->KeyEvents->ListedEvents();
  return events == 0 ? -1.0 : record->OwtToLen(record->KeyEvents->EventAt(events - 1).EPT);
}

TEST(PlausibleTables, EndWhereTheFibreDoes) {
  const struct {
    std::vector<double> sectionsKm;
    double launchDb, endKm;
  } kCases[] = {
      {{10.0, 18.0}, -45.0, 28.0},       // broken far behind the last reflection ...
      {{10.0, 16.0, 1.8}, -45.0, 27.8},  // ... and near
      {{}, -16.0, 0.0},                  // nothing but a tail that stays above the noise for 4 km
      {{}, -45.0, 0.0},
  };
  for (const auto& c : kCases) {
    EXPECT_NEAR(EndKm(LinkOf(c.sectionsKm, c.launchDb)), c.endKm, 0.15)
        << c.sectionsKm.size() << " sections, launch " << c.launchDb << " dB";
  }
}

// The slow tail of a launch with a long pulse reaches over what the filter takes for the next event. The
// table must end behind the pulse all the same.
TEST(PlausibleTables, ATailIsNoFibre) {
  for (const double noiseDb : {-40.0, -34.0, -28.0}) {
    for (double launchDb = -14.0; launchDb >= -45.0; launchDb -= 3.0) {
      sim::Link link = LinkOf({}, launchDb);
      link.pulseNs = 10000.0;
      link.rangeKm = 600.0;
      link.spacingM = 1000.0 * link.rangeKm / static_cast<double>(link.points);
      link.averages = 20000;
      link.receiver = {0.2, 4e-4, 4.0 * link.pulseNs, 0.0, noiseDb};
      const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
      EXPECT_NEAR(EndKm(link), 1.1 * pulseKm, 0.1 * pulseKm) << launchDb << " dB, noise " << noiseDb;
    }
  }
}

// A receiver of 2 MHz falls by 2.17 dB in 80 ns, or 8.1 m of fibre. The edge is one sample long: a part of it
// may fall between two samples, but nothing is added.
TEST(PlausibleTables, ALowLaunchTellsTheReceiversRate) {
  const double rateDbPerKm = 5.0 / std::log(10.0) / (1e3 / (2.0 * M_PI * 2.0) * sim::KmPerNs(1.468));
  for (const double launchDb : {-56.0, -52.0, -48.0, -45.0}) {
    const auto record = std::move(sim::Simulate(LinkOf({30.0}, launchDb), 5).record);
    GiveReceiverRate(*record);
    const double told = record->QRTParams->modes.front().BWU1;
    EXPECT_GT(told, 0.6 * rateDbPerKm) << launchDb;
    EXPECT_LT(told, 1.1 * rateDbPerKm) << launchDb;
    GiveReceiverRate(*record);
    EXPECT_EQ(record->QRTParams->modes.front().BWU1, told);
  }
}

}  // namespace
}  // namespace reflyze
